#include "DestinationFolder.h"

#include "BackupError.h"
#include "device/StreamingHasher.h"

#include <QFile>
#include <QStringList>
#include <QStringTokenizer>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

QString systemMessage(int error) { return QString::fromLocal8Bit(std::strerror(error)); }

QByteArray native(const QString& path) { return QFile::encodeName(path); }

// Calls a system function again when a signal interrupted it.
template <typename F>
int retrying(F call)
{
    int result;
    do
        result = call();
    while (result == -1 && errno == EINTR);
    return result;
}

bool cannotSync(int error) { return error == EINVAL || error == ENOSYS || error == ENOTSUP; }

constexpr size_t kMostSentAtOnce = 0x7ffff000; // what one sendfile call moves at most

} // namespace

bool DestinationFolder::isSafeRelativePath(const QString& relativePath)
{
    if (relativePath.isEmpty() || relativePath.startsWith('/') || relativePath.contains(QChar(0)))
        return false;
    // Asked for every file of a run: looked at in place rather than split into copies.
    for (const QStringView part : QStringTokenizer(relativePath, u'/'))
        if (part.isEmpty() || part == u"." || part == u"..")
            return false;
    return !relativePath.startsWith(u".ombrelo", Qt::CaseInsensitive);
}

bool DestinationFolder::isSafeFileName(const QString& name)
{
    return !name.isEmpty() && name != "." && name != ".." && !name.contains('/') && !name.contains(QChar(0));
}

QString DestinationFolder::makeFolder(const QString& relativePath) const
{
    if (!isSafeRelativePath(relativePath))
        throw BackupError::unsafeFolder(relativePath);
    QString path = m_root;
    for (const QString& part : relativePath.split('/')) {
        path += '/' + part;
        const QByteArray name = native(path);
        struct stat info;
        if (::lstat(name.constData(), &info) != 0) {
            if (errno != ENOENT)
                throw BackupError::folder(path, systemMessage(errno));
            if (::mkdir(name.constData(), 0777) == 0)
                continue;
            // Someone else may have made it meanwhile; look again.
            if (errno != EEXIST || ::lstat(name.constData(), &info) != 0)
                throw BackupError::folder(path, systemMessage(errno));
        }
        if (S_ISLNK(info.st_mode))
            throw BackupError::folder(path, "it is a link to another place, which a backup does not follow");
        if (!S_ISDIR(info.st_mode))
            throw BackupError::folder(path, "a file of that name is in the way");
    }
    return path;
}

DestinationFolder::Entry DestinationFolder::entryAt(const QString& path)
{
    struct stat info;
    if (::lstat(native(path).constData(), &info) == 0)
        return S_ISREG(info.st_mode) ? Entry::file : Entry::other;
    if (errno == ENOENT)
        return Entry::none;
    // A name that cannot even be looked at (too long, for one) cannot be written either.
    throw BackupError::write(path, systemMessage(errno));
}

DestinationFolder::Placement DestinationFolder::placeExclusively(const QString& from, const QString& to)
{
    const QByteArray source = native(from);
    const QByteArray target = native(to);
#ifdef RENAME_NOREPLACE
    if (retrying([&] {
            return ::renameat2(AT_FDCWD, source.constData(), AT_FDCWD, target.constData(), RENAME_NOREPLACE);
        }) == 0)
        return Placement::placed;
    if (errno == EEXIST)
        return Placement::taken;
    if (errno == EXDEV)
        return Placement::otherFileSystem;
    if (errno != EINVAL && errno != ENOSYS && errno != ENOTSUP)
        throw BackupError::write(to, systemMessage(errno));
#endif
    // Without an exclusive rename, a hard link is just as exclusive.
    if (retrying([&] { return ::link(source.constData(), target.constData()); }) == 0) {
        ::unlink(source.constData());
        return Placement::placed;
    }
    if (errno == EEXIST)
        return Placement::taken;
    if (errno == EXDEV)
        return Placement::otherFileSystem;
    throw BackupError::write(to, systemMessage(errno));
}

namespace {

// Closes a descriptor when the scope ends.
struct Descriptor {
    int fd;
    ~Descriptor()
    {
        if (fd >= 0)
            ::close(fd);
    }
};

// Copies what is left of `in` into `out` through a user-space buffer, for file systems that cannot
// send from one file to another. False with errno set on failure.
bool copyByReading(int in, int out)
{
    const auto buffer = std::make_unique_for_overwrite<char[]>(kTransferChunkSize);
    for (;;) {
        const ssize_t got = ::read(in, buffer.get(), kTransferChunkSize);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return got == 0;
        for (ssize_t done = 0; done < got;) {
            const ssize_t put = ::write(out, buffer.get() + done, size_t(got - done));
            if (put < 0 && errno == EINTR)
                continue;
            if (put <= 0)
                return false;
            done += put;
        }
    }
}

} // namespace

void DestinationFolder::copyFile(const QString& from, const QString& to)
{
    const Descriptor in{retrying([&] { return ::open(native(from).constData(), O_RDONLY | O_CLOEXEC); })};
    if (in.fd < 0)
        throw BackupError::write(to, systemMessage(errno));
    Descriptor out{
        retrying([&] { return ::open(native(to).constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666); })};
    if (out.fd < 0)
        throw BackupError::write(to, systemMessage(errno));
    // The kernel copies between the files itself; the buffer is the way where it cannot.
    bool copied = true;
    for (bool first = true;; first = false) {
        const ssize_t sent = ::sendfile(out.fd, in.fd, nullptr, kMostSentAtOnce);
        if (sent < 0 && errno == EINTR)
            continue;
        if (sent < 0 && first && (errno == EINVAL || errno == ENOSYS))
            copied = copyByReading(in.fd, out.fd);
        else if (sent < 0)
            copied = false;
        if (sent <= 0)
            break;
    }
    const int error = errno;
    const int closed = ::close(out.fd);
    const int closeError = errno;
    out.fd = -1;
    if (!copied || closed != 0)
        throw BackupError::write(to, systemMessage(copied ? closeError : error));
}

void DestinationFolder::syncFile(const QString& path)
{
    const int fd = retrying([&] { return ::open(native(path).constData(), O_RDONLY | O_CLOEXEC); });
    if (fd < 0)
        throw BackupError::write(path, systemMessage(errno));
    const int result = ::fsync(fd);
    const int error = errno;
    ::close(fd);
    if (result != 0 && !cannotSync(error))
        throw BackupError::write(path, systemMessage(error));
}

void DestinationFolder::syncFolder(const QString& path)
{
    const int fd = retrying([&] { return ::open(native(path).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); });
    if (fd < 0)
        return;
    ::fsync(fd);
    ::close(fd);
}
