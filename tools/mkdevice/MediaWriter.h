#pragma once

#include "MediaFactory.h"
#include "MkdeviceOptions.h"
#include "PhoneContent.h"

#include <QList>
#include <QSet>
#include <QString>

#include <functional>

// Writes files of the phone under its media folder. A file that already exists is never
// overwritten: that is an error. Each file's modification time is its item's date.
class MediaWriter {
public:
    // `hash`: fill in each written file's SHA-256 and size (for the answer key).
    MediaWriter(const QString& mediaRoot, FilesMode mode, bool hash);

    // Throws MkdeviceError::output naming the file.
    void write(MediaFile& file);

    struct Totals {
        int64_t files = 0;
        int64_t bytes = 0; // apparent sizes, holes included
    };
    // Writes all the files; `progress` is called now and then with the number written.
    static Totals writeAll(const QString& mediaRoot, FilesMode mode, bool hash, const QList<MediaFile*>& files,
                           const std::function<void(qsizetype)>& progress);

private:
    void ensureFolder(const QString& localPath);

    QString m_root;
    FilesMode m_mode;
    bool m_hash;
    MediaFactory m_factory;
    QSet<QString> m_folders;
    int64_t m_files = 0;
    int64_t m_bytes = 0;
};
