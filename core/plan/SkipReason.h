#pragma once

#include <QList>
#include <QString>

#include <optional>

// Why the plan leaves a library asset out. The raw value is the text shown beside its count.
enum class SkipReason { trashed, sharedWithYou, sharedAlbum, otherLibrary };

QString rawValue(SkipReason reason);
std::optional<SkipReason> skipReasonFromRawValue(const QString& raw);
const QList<SkipReason>& allSkipReasons();

inline size_t qHash(SkipReason reason, size_t seed = 0) { return ::qHash(int(reason), seed); }
