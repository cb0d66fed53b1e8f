#include "VerificationReport.h"

#include "backup/BackupRecords.h"

QStringList VerificationReport::lines() const
{
    QStringList result{"Verified " + QString::number(files) + " files (" + formatByteCount(bytes) +
                       "): " + QString::number(intact) + " intact, " + QString::number(missing.size()) + " missing, " +
                       QString::number(changed.size()) + " changed"};
    for (const QString& path : missing)
        result << "Missing: " + path;
    for (const QString& problem : changed)
        result << "Changed: " + problem;
    return result;
}
