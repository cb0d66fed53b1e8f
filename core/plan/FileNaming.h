#pragma once

#include <QString>

// The rules that turn device names and album titles into safe, stable file names.
namespace FileNaming {

struct Parts {
    QString stem;
    QString ext;
    bool operator==(const Parts&) const = default;
};

// Splits at the last "."; no dot, or a dot only in first place, leaves the extension empty.
Parts split(const QString& name);
// stem + "." + ext, or the stem alone when ext is empty.
QString join(const QString& stem, const QString& ext);
// A name any common file system accepts: no separators or control characters, no leading dot,
// at most maxLength user-perceived characters and 200 UTF-8 bytes, never empty.
QString safeName(const QString& name, int maxLength);

// The longest a name may be in UTF-8, leaving room for a numbering suffix, "_edited" and an extension.
inline constexpr int kMaxNameBytes = 200;

} // namespace FileNaming
