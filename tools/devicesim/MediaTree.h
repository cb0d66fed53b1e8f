#pragma once

#include <QByteArray>
#include <QString>

#include <optional>
#include <sys/stat.h>

// The folder served as the phone's media root. Every device path is resolved inside it: a path
// that climbs out with ".." or passes through a symbolic link is refused, so nothing outside the
// folder is ever reachable.
class MediaTree {
public:
    explicit MediaTree(const QString& root);

    // "/DCIM/100APPLE" for "DCIM//100APPLE/./"; nothing when a ".." component appears.
    static std::optional<QString> normalize(const QString& devicePath);

    struct Entry {
        int afcError = 0; // 0, or the AFC error number the device answers
        QByteArray filePath;
        struct stat status {};
    };
    // AFC error 10 (permission denied) for ".." or a link on the way, 8 when nothing is there.
    Entry resolve(const QString& devicePath) const;

    const QByteArray& root() const { return m_root; }

private:
    QByteArray m_root;
};
