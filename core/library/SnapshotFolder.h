#pragma once

#include <QJsonObject>
#include <QLockFile>
#include <QString>

#include <optional>

// The folder that holds one device's copy of its Photos database, beside the record of the device
// files it was made from. It is the program's own: a link found where the folder (or its parent)
// should be is removed and a real folder made, so that nothing is ever written or removed through
// a link; inside it, files are only ever unlinked or renamed over, never opened through a link.
// While the object lives it holds the folder's lock, so one process at a time fetches or reads the
// copy; another waits its turn and then finds the finished copy.
class SnapshotFolder {
public:
    static inline const QString recordName = QStringLiteral("device-files.json");

    // Throws DescribedError when the folder cannot be made or locked.
    explicit SnapshotFolder(const QString& path);

    const QString& path() const { return m_path; }
    QString filePath(const QString& name) const;

    // Removes the copy and its record (the names given, the record, and half-written files).
    void clear(const QStringList& names);
    // A new name in the folder to download `name` into before it is put in place with place().
    QString partPath(const QString& name) const;
    void place(const QString& partPath, const QString& name);

    std::optional<QJsonObject> record() const;
    void writeRecord(const QJsonObject& record);

private:
    QString m_path;
    std::optional<QLockFile> m_lock;
};
