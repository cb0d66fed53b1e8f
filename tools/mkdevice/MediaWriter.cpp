#include "MediaWriter.h"

#include "MkdeviceError.h"

#include <QDir>

#include <openssl/evp.h>

#include <cerrno>
#include <cmath>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace {

MkdeviceError writeError(const QString& path, int error)
{
    return MkdeviceError::output(
        QStringLiteral("Could not write “%1”: %2.").arg(path, QString::fromLocal8Bit(std::strerror(error))));
}

// SHA-256 of `head` followed by zeros up to `size` bytes: the contents of a sparse file,
// computed without reading it back.
QByteArray sha256(const QByteArray& head, int64_t size)
{
    std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context(EVP_MD_CTX_new(), &EVP_MD_CTX_free);
    EVP_DigestInit_ex(context.get(), EVP_sha256(), nullptr);
    EVP_DigestUpdate(context.get(), head.constData(), size_t(head.size()));
    static const QByteArray zeros(1 << 20, '\0');
    for (int64_t left = size - head.size(); left > 0;) {
        const int64_t chunk = std::min<int64_t>(left, zeros.size());
        EVP_DigestUpdate(context.get(), zeros.constData(), size_t(chunk));
        left -= chunk;
    }
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_DigestFinal_ex(context.get(), digest, &length);
    return QByteArray(reinterpret_cast<const char*>(digest), int(length)).toHex();
}

} // namespace

MediaWriter::MediaWriter(const QString& mediaRoot, FilesMode mode, bool hash)
    : m_root(mediaRoot), m_mode(mode), m_hash(hash)
{
}

void MediaWriter::ensureFolder(const QString& localPath)
{
    if (m_folders.contains(localPath))
        return;
    // Most folders (one per thumbnail) sit in a folder made just before: one system call.
    const QString parent = localPath.left(localPath.lastIndexOf('/'));
    if (m_folders.contains(parent) && ::mkdir(QFile::encodeName(localPath).constData(), 0755) == 0) {
        m_folders.insert(localPath);
        return;
    }
    if (!QDir().mkpath(localPath))
        throw MkdeviceError::output(QStringLiteral("Could not create the folder “%1”.").arg(localPath));
    m_folders.insert(localPath);
}

void MediaWriter::write(MediaFile& file)
{
    const QString path = m_root + file.devicePath;
    ensureFolder(path.left(path.lastIndexOf('/')));

    const QByteArray head = m_factory.contents(file, m_mode);
    const bool sparse = m_mode == FilesMode::sparse && !MediaFactory::isAlwaysComplete(file.format);
    const int64_t size = sparse ? std::max<int64_t>(file.sparseSize, head.size()) : head.size();

    const QByteArray localPath = QFile::encodeName(path);
    const int fd = ::open(localPath.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd < 0)
        throw writeError(path, errno);
    auto fail = [&](int error) {
        ::close(fd);
        return writeError(path, error);
    };
    for (qsizetype done = 0; done < head.size();) {
        const ssize_t n = ::write(fd, head.constData() + done, size_t(head.size() - done));
        if (n < 0) {
            if (errno == EINTR)
                continue;
            throw fail(errno);
        }
        done += n;
    }
    if (size > head.size() && ::ftruncate(fd, off_t(size)) != 0)
        throw fail(errno);
    const double unixTime = file.date + 978307200.0;
    timespec times[2];
    times[0].tv_sec = time_t(std::floor(unixTime));
    times[0].tv_nsec = long((unixTime - std::floor(unixTime)) * 1e9);
    times[1] = times[0];
    if (::futimens(fd, times) != 0)
        throw fail(errno);
    if (::close(fd) != 0)
        throw writeError(path, errno);

    ++m_files;
    m_bytes += size;
    if (m_hash) {
        file.sha256 = sha256(head, size);
        file.size = size;
    }
}

MediaWriter::Totals MediaWriter::writeAll(const QString& mediaRoot, FilesMode mode, bool hash,
                                          const QList<MediaFile*>& files,
                                          const std::function<void(qsizetype)>& progress)
{
    // One thread: creating files is the work at scale, and threads creating files on one
    // file system mostly wait for each other's journal updates (measured: slower with two).
    MediaWriter writer(mediaRoot, mode, hash);
    for (qsizetype i = 0; i < files.size(); ++i) {
        writer.write(*files[i]);
        if ((i + 1) % 1000 == 0)
            progress(i + 1);
    }
    progress(files.size());
    return {writer.m_files, writer.m_bytes};
}
