#include "SkipReason.h"

QString rawValue(SkipReason reason)
{
    switch (reason) {
    case SkipReason::trashed:
        return QStringLiteral("Recently Deleted");
    case SkipReason::sharedWithYou:
        return QStringLiteral("Shared with You (Messages)");
    case SkipReason::sharedAlbum:
        return QStringLiteral("iCloud Shared Albums");
    case SkipReason::otherLibrary:
        return QStringLiteral("Other library scope");
    }
    return {};
}

std::optional<SkipReason> skipReasonFromRawValue(const QString& raw)
{
    for (SkipReason reason : allSkipReasons())
        if (rawValue(reason) == raw)
            return reason;
    return std::nullopt;
}

const QList<SkipReason>& allSkipReasons()
{
    static const QList<SkipReason> all{SkipReason::trashed, SkipReason::sharedWithYou, SkipReason::sharedAlbum,
                                       SkipReason::otherLibrary};
    return all;
}
