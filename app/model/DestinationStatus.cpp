#include "DestinationStatus.h"

#include <QLocale>

DestinationStatus DestinationStatus::describe(const Facts& facts)
{
    if (!facts.destinationSet)
        return {QStringLiteral("Choose where your photos go"), false};
    if (!facts.available)
        return {QStringLiteral("Not available. Is the drive or share connected?"), true};
    if (!facts.existingBackup)
        return {QStringLiteral("New backup"), false};
    if (!facts.hasPlan)
        return {QStringLiteral("Existing backup"), false};
    if (facts.chosenNotBackedUp == 0)
        return {QString::fromUtf8("Existing backup \u00b7 up to date"), false};
    return {
        QString::fromUtf8("Existing backup \u00b7 %1 new to back up").arg(QLocale().toString(facts.chosenNotBackedUp)),
        false};
}
