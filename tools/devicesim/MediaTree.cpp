#include "MediaTree.h"

#include <QStringList>

#include <cerrno>

namespace {
constexpr int kObjectNotFound = 8;
constexpr int kPermissionDenied = 10;
} // namespace

MediaTree::MediaTree(const QString& root) : m_root(root.toUtf8()) {}

std::optional<QString> MediaTree::normalize(const QString& devicePath)
{
    QStringList kept;
    for (const QString& part : devicePath.split('/', Qt::SkipEmptyParts)) {
        if (part == ".")
            continue;
        if (part == "..")
            return std::nullopt;
        kept << part;
    }
    return "/" + kept.join('/');
}

MediaTree::Entry MediaTree::resolve(const QString& devicePath) const
{
    Entry entry;
    const std::optional<QString> normal = normalize(devicePath);
    if (!normal) {
        entry.afcError = kPermissionDenied;
        return entry;
    }
    entry.filePath = m_root;
    if (::stat(entry.filePath.constData(), &entry.status) != 0) {
        entry.afcError = kObjectNotFound;
        return entry;
    }
    for (const QString& part : normal->split('/', Qt::SkipEmptyParts)) {
        if (!S_ISDIR(entry.status.st_mode)) {
            entry.afcError = kObjectNotFound;
            return entry;
        }
        entry.filePath += '/' + part.toUtf8();
        if (::lstat(entry.filePath.constData(), &entry.status) != 0) {
            entry.afcError = kObjectNotFound;
            return entry;
        }
        if (S_ISLNK(entry.status.st_mode)) {
            entry.afcError = kPermissionDenied;
            return entry;
        }
    }
    return entry;
}
