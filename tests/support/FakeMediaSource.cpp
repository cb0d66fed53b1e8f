#include "FakeMediaSource.h"

#include "device/MediaSourceError.h"
#include "device/StreamingHasher.h"

#include <QFile>

namespace {
QString parentOf(const QString& path)
{
    const qsizetype slash = path.lastIndexOf('/');
    return slash <= 0 ? QStringLiteral("/") : path.left(slash);
}
} // namespace

void FakeMediaSource::addFile(const QString& path, const QByteArray& content)
{
    m_files.insert(path, content);
    for (QString dir = parentOf(path);; dir = parentOf(dir)) {
        m_directories.insert(dir);
        if (dir == "/")
            break;
    }
}

void FakeMediaSource::addDirectory(const QString& path)
{
    for (QString dir = path;; dir = parentOf(dir)) {
        m_directories.insert(dir);
        if (dir == "/")
            break;
    }
}

void FakeMediaSource::removeFile(const QString& path) { m_files.remove(path); }

void FakeMediaSource::checkFailure(const QString& path) const
{
    if (m_failures.contains(path))
        throw MediaSourceError::readFailed(path, m_failures.value(path));
}

QStringList FakeMediaSource::listDirectory(const QString& path)
{
    checkFailure(path);
    if (!m_directories.contains(path))
        throw MediaSourceError::notFound(path);
    const QString prefix = path == "/" ? QStringLiteral("/") : path + "/";
    QSet<QString> names;
    for (const QString& dir : m_directories)
        if (dir.startsWith(prefix) && dir.size() > prefix.size() && !dir.mid(prefix.size()).contains('/'))
            names.insert(dir.mid(prefix.size()));
    for (auto it = m_files.cbegin(); it != m_files.cend(); ++it)
        if (it.key().startsWith(prefix) && !it.key().mid(prefix.size()).contains('/'))
            names.insert(it.key().mid(prefix.size()));
    QStringList sorted(names.begin(), names.end());
    sorted.sort();
    return sorted;
}

DownloadResult FakeMediaSource::download(const QString& path, const QString& destination,
                                         const DownloadControl& control)
{
    checkFailure(path);
    if (!m_files.contains(path))
        throw MediaSourceError::notFound(path);
    m_downloads[path] += 1;
    QFile file(destination);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        throw MediaSourceError::readFailed(path, "cannot create " + destination);
    const QByteArray content = m_files.value(path);
    if (file.write(content) != content.size())
        throw std::runtime_error(file.errorString().toStdString());
    StreamingHasher hasher;
    hasher.update(content.constData(), size_t(content.size()));
    if (control.onProgress)
        control.onProgress(uint64_t(content.size()), uint64_t(content.size()));
    return hasher.finish();
}

std::optional<DeviceFileInfo> FakeMediaSource::fileInfo(const QString& path)
{
    checkFailure(path);
    if (m_files.contains(path))
        return DeviceFileInfo{uint64_t(m_files.value(path).size()), 0, false};
    if (m_directories.contains(path))
        return DeviceFileInfo{0, 0, true};
    return std::nullopt;
}

QByteArray FakeMediaSource::readFile(const QString& path)
{
    checkFailure(path);
    if (!m_files.contains(path))
        throw MediaSourceError::notFound(path);
    return m_files.value(path);
}

int FakeMediaSource::totalDownloads() const
{
    int total = 0;
    for (int count : m_downloads)
        total += count;
    return total;
}
