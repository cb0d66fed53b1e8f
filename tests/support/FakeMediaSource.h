#pragma once

#include "device/MediaSource.h"

#include <QByteArray>
#include <QHash>
#include <QMap>
#include <QSet>
#include <QString>
#include <QStringList>

// An in-memory device media tree for unit tests that need no simulator.
// Directories exist implicitly above every file; addDirectory adds an empty one.
class FakeMediaSource : public MediaSource {
public:
    void addFile(const QString& path, const QByteArray& content);
    void addDirectory(const QString& path);
    void removeFile(const QString& path);
    // Makes every operation on `path` fail with readFailed and this message.
    void failPath(const QString& path, const QString& message) { m_failures.insert(path, message); }

    QStringList listDirectory(const QString& path) override;
    DownloadResult download(const QString& path, const QString& destination,
                            const DownloadControl& control = {}) override;
    QByteArray readFile(const QString& path) override;
    std::optional<DeviceFileInfo> fileInfo(const QString& path) override;

    int downloadCount(const QString& path) const { return m_downloads.value(path); }
    int totalDownloads() const;

private:
    void checkFailure(const QString& path) const;

    QMap<QString, QByteArray> m_files;
    QSet<QString> m_directories{"/"};
    QHash<QString, QString> m_failures;
    QHash<QString, int> m_downloads;
};
