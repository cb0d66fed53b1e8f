#include "AFCService.h"

#include "Log.h"
#include "MediaTree.h"

#include <QList>
#include <QtEndian>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace {

constexpr char kMagic[] = "CFA6LPAA";
constexpr uint64_t kHeaderSize = 40;
// Requests carry paths and small arguments; anything larger is not a client we serve.
constexpr uint64_t kMaxRequest = 16 * 1024 * 1024;
// One reply never carries more than this, whatever the client asks for.
constexpr uint64_t kMaxRead = 16 * 1024 * 1024;

namespace Op {
constexpr uint64_t status = 0x01, data = 0x02, readDir = 0x03, getFileInfo = 0x0A, getDevInfo = 0x0B, fileOpen = 0x0D,
                   fileOpenResult = 0x0E, fileRead = 0x0F, fileSeek = 0x11, fileTell = 0x12, fileTellResult = 0x13,
                   fileClose = 0x14, fileLock = 0x1B;
// Operations that would change the device: the media tree is served read-only.
constexpr uint64_t writes[] = {0x05, 0x06, 0x07, 0x08, 0x09, 0x0C, 0x10, 0x15, 0x18, 0x1C, 0x1E, 0x20, 0x22, 0x28};
} // namespace Op

namespace Error {
constexpr uint64_t readError = 4, invalidArgument = 7, objectIsDirectory = 9, permissionDenied = 10, notSupported = 15,
                   ioError = 20;
}

struct Header {
    char magic[8];
    uint64_t entireLength;
    uint64_t thisLength;
    uint64_t packetNumber;
    uint64_t operation;
};
static_assert(sizeof(Header) == kHeaderSize);

Header makeHeader(uint64_t number, uint64_t operation, uint64_t argumentLength, uint64_t dataLength)
{
    Header header;
    std::memcpy(header.magic, kMagic, 8);
    header.entireLength = qToLittleEndian(kHeaderSize + argumentLength + dataLength);
    header.thisLength = qToLittleEndian(kHeaderSize + argumentLength);
    header.packetNumber = qToLittleEndian(number);
    header.operation = qToLittleEndian(operation);
    return header;
}

uint64_t word(const QByteArray& arguments, int index)
{
    uint64_t value = 0;
    if (arguments.size() >= (index + 1) * 8)
        std::memcpy(&value, arguments.constData() + index * 8, 8);
    return qFromLittleEndian(value);
}

// A path argument ends at its NUL, when the client sent one.
QString pathArgument(const QByteArray& bytes)
{
    const qsizetype end = bytes.indexOf('\0');
    return QString::fromUtf8(end < 0 ? bytes : bytes.left(end));
}

QByteArray keyValues(const QList<QPair<QByteArray, QByteArray>>& pairs)
{
    QByteArray out;
    for (const auto& [key, value] : pairs)
        out += key + '\0' + value + '\0';
    return out;
}

QByteArray decimal(uint64_t value) { return QByteArray::number(qulonglong(value)); }

QByteArray nanoseconds(const timespec& time)
{
    return decimal(uint64_t(time.tv_sec) * 1000000000ull + uint64_t(time.tv_nsec));
}

} // namespace

AFCService::AFCService(Socket& socket, SimulatedDevice& device, const QString& tag)
    : m_socket(socket), m_device(device), m_tag(tag)
{
}

void AFCService::run()
{
    for (;;) {
        Header header;
        if (!m_socket.readExact(&header, sizeof header))
            return;
        const uint64_t entire = qFromLittleEndian(header.entireLength);
        const uint64_t thisLength = qFromLittleEndian(header.thisLength);
        if (std::memcmp(header.magic, kMagic, 8) != 0 || thisLength < kHeaderSize || entire < thisLength ||
            entire - kHeaderSize > kMaxRequest) {
            Log::line(m_tag + " afc: a malformed packet header; closing.");
            return;
        }
        QByteArray payload(qsizetype(entire - kHeaderSize), Qt::Uninitialized);
        if (!payload.isEmpty() && !m_socket.readExact(payload.data(), size_t(payload.size())))
            return;
        const uint64_t packetNumber = qFromLittleEndian(header.packetNumber);
        const uint64_t operation = qFromLittleEndian(header.operation);
        const Reply reply = handle(packetNumber, operation, payload.left(qsizetype(thisLength - kHeaderSize)));
        Log::request(m_tag + " afc " + reply.note);
        if (!reply.keepGoing)
            return;
    }
}

AFCService::Reply AFCService::handle(uint64_t number, uint64_t operation, const QByteArray& arguments)
{
    switch (operation) {
    case Op::readDir:
        return readDirectory(number, pathArgument(arguments));
    case Op::getFileInfo:
        return fileInfo(number, pathArgument(arguments));
    case Op::getDevInfo:
        return deviceInfo(number);
    case Op::fileOpen:
        return openFile(number, arguments);
    case Op::fileRead:
        return readFile(number, arguments);
    case Op::fileSeek:
        return seekFile(number, arguments);
    case Op::fileTell: {
        const auto it = m_files.find(word(arguments, 0));
        if (it == m_files.end())
            return {sendStatus(number, Error::invalidArgument), "FILE_TELL: unknown handle"};
        return {sendValue(number, Op::fileTellResult, it->second.position),
                "FILE_TELL handle " + QString::number(it->first) + " = " + QString::number(it->second.position)};
    }
    case Op::fileClose: {
        const uint64_t handle = word(arguments, 0);
        const bool known = m_files.erase(handle) > 0;
        return {sendStatus(number, known ? 0 : Error::invalidArgument),
                "FILE_CLOSE handle " + QString::number(handle) + (known ? "" : ": unknown handle")};
    }
    case Op::fileLock: {
        const bool known = m_files.count(word(arguments, 0)) > 0;
        return {sendStatus(number, known ? 0 : Error::invalidArgument), "FILE_LOCK"};
    }
    default:
        break;
    }
    const bool isWrite = std::find(std::begin(Op::writes), std::end(Op::writes), operation) != std::end(Op::writes);
    const uint64_t code = isWrite ? Error::permissionDenied : Error::notSupported;
    return {sendStatus(number, code), "operation 0x" + QString::number(operation, 16) + ": error " +
                                          QString::number(code) +
                                          (isWrite ? " (the media tree is read-only)" : " (not supported)")};
}

PathFault AFCService::faultFor(const QString& path) const
{
    const std::optional<QString> normal = MediaTree::normalize(path);
    return normal ? m_device.config()->faults.failPaths.value(*normal) : PathFault();
}

AFCService::Reply AFCService::readDirectory(uint64_t number, const QString& path)
{
    const QString what = "READ_DIR " + path;
    const MediaTree::Entry entry = m_device.media().resolve(path);
    if (entry.afcError != 0)
        return {sendStatus(number, uint64_t(entry.afcError)), what + ": error " + QString::number(entry.afcError)};
    const PathFault fault = faultFor(path);
    if (fault.list != 0)
        return {sendStatus(number, uint64_t(fault.list)),
                what + ": error " + QString::number(fault.list) + " (failPaths)"};
    if (fault.emptyListing)
        return {sendData(number, {}), what + ": an empty reply (failPaths)"};
    if (!S_ISDIR(entry.status.st_mode))
        return {sendStatus(number, Error::readError), what + ": not a folder"};

    QList<QByteArray> names;
    if (DIR* dir = ::opendir(entry.filePath.constData())) {
        while (const dirent* item = ::readdir(dir)) {
            const QByteArray name(item->d_name);
            if (name == "." || name == "..")
                continue;
            struct stat status;
            // Links are not part of the served tree.
            if (::fstatat(dirfd(dir), item->d_name, &status, AT_SYMLINK_NOFOLLOW) != 0 || S_ISLNK(status.st_mode))
                continue;
            names << name;
        }
        ::closedir(dir);
    } else {
        return {sendStatus(number, Error::permissionDenied), what + ": cannot open the folder"};
    }
    std::sort(names.begin(), names.end());
    QByteArray list = QByteArray(".\0..\0", 5);
    for (const QByteArray& name : names)
        list += name + '\0';
    return {sendData(number, list), what + ": " + QString::number(names.size()) + " entries"};
}

AFCService::Reply AFCService::fileInfo(uint64_t number, const QString& path)
{
    const QString what = "GET_FILE_INFO " + path;
    const MediaTree::Entry entry = m_device.media().resolve(path);
    if (entry.afcError != 0)
        return {sendStatus(number, uint64_t(entry.afcError)), what + ": error " + QString::number(entry.afcError)};
    const struct stat& status = entry.status;
    const QByteArray type = S_ISDIR(status.st_mode) ? "S_IFDIR" : S_ISREG(status.st_mode) ? "S_IFREG" : "S_IFIFO";
    const QByteArray info = keyValues({{"st_size", decimal(uint64_t(status.st_size))},
                                       {"st_blocks", decimal(uint64_t(status.st_blocks))},
                                       {"st_nlink", decimal(uint64_t(status.st_nlink))},
                                       {"st_ifmt", type},
                                       {"st_mtime", nanoseconds(status.st_mtim)},
                                       {"st_birthtime", nanoseconds(status.st_mtim)}});
    return {sendData(number, info),
            what + ": " + QString::fromLatin1(type) + ", " + QString::number(status.st_size) + " bytes"};
}

AFCService::Reply AFCService::deviceInfo(uint64_t number)
{
    struct statvfs fs {};
    ::statvfs(m_device.media().root().constData(), &fs);
    const QByteArray info = keyValues({{"Model", m_device.config()->productType.toUtf8()},
                                       {"FSTotalBytes", decimal(uint64_t(fs.f_blocks) * fs.f_frsize)},
                                       {"FSFreeBytes", decimal(uint64_t(fs.f_bavail) * fs.f_frsize)},
                                       {"FSBlockSize", "4096"}});
    return {sendData(number, info), "GET_DEVINFO"};
}

AFCService::Reply AFCService::openFile(uint64_t number, const QByteArray& arguments)
{
    const uint64_t mode = word(arguments, 0);
    const QString path = pathArgument(arguments.mid(8));
    const QString what = "FILE_OPEN " + path + " mode " + QString::number(mode);
    if (mode != 1)
        return {sendStatus(number, Error::permissionDenied), what + ": error 10 (the media tree is read-only)"};
    const MediaTree::Entry entry = m_device.media().resolve(path);
    if (entry.afcError != 0)
        return {sendStatus(number, uint64_t(entry.afcError)), what + ": error " + QString::number(entry.afcError)};
    if (S_ISDIR(entry.status.st_mode))
        return {sendStatus(number, Error::objectIsDirectory), what + ": error 9 (a folder)"};
    const PathFault fault = faultFor(path);
    if (fault.open != 0)
        return {sendStatus(number, uint64_t(fault.open)),
                what + ": error " + QString::number(fault.open) + " (failPaths)"};
    Socket file(::open(entry.filePath.constData(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
    if (!file.isOpen())
        return {sendStatus(number, Error::permissionDenied), what + ": cannot open the file"};
    const uint64_t handle = m_nextHandle++;
    m_files[handle] = OpenFile{std::move(file), path, 0, fault};
    return {sendValue(number, Op::fileOpenResult, handle), what + ": handle " + QString::number(handle)};
}

AFCService::Reply AFCService::readFile(uint64_t number, const QByteArray& arguments)
{
    const uint64_t handle = word(arguments, 0);
    const uint64_t asked = word(arguments, 1);
    QString what = "FILE_READ handle " + QString::number(handle) + " length " + QString::number(asked);
    const auto it = m_files.find(handle);
    if (it == m_files.end())
        return {sendStatus(number, Error::invalidArgument), what + ": unknown handle"};
    OpenFile& file = it->second;
    what += " at " + QString::number(file.position);

    struct stat status {};
    if (::fstat(file.file.fd(), &status) != 0)
        return {sendStatus(number, Error::ioError), what + ": cannot read the file"};
    const uint64_t size = uint64_t(status.st_size);
    uint64_t length = file.position < size ? std::min({asked, size - file.position, kMaxRead}) : 0;
    if (file.fault.endAfterBytes) {
        const uint64_t end = *file.fault.endAfterBytes;
        if (length > 0 && file.position >= end)
            what += " (endAfterBytes)";
        length = std::min(length, end - std::min(end, file.position));
    }
    if (file.fault.read != 0) {
        if (file.position >= file.fault.readAfterBytes && length > 0)
            return {sendStatus(number, uint64_t(file.fault.read)),
                    what + ": error " + QString::number(file.fault.read) + " (failPaths)"};
        length = std::min(length, file.fault.readAfterBytes - file.position);
    }

    const std::shared_ptr<const DeviceConfig> config = m_device.config();
    // A read that would go past a stall point is answered up to it; the next read gets no answer.
    auto holdBack = [&](const Stall& stall, uint64_t sent, bool& done, const QString& source) {
        if (done)
            return true;
        const uint64_t left = stall.afterBytes - std::min(stall.afterBytes, sent);
        if (left > 0) {
            length = std::min(length, left);
            return true;
        }
        done = true;
        return this->stall(stall, what, source);
    };
    if ((file.fault.stall && !holdBack(*file.fault.stall, file.position, file.stalled, "failPaths")) ||
        (config->faults.stall && !holdBack(*config->faults.stall, m_servedBytes, m_stalled, "stallAfterBytes")))
        return {false, what + ": the connection ended during the stall"};

    uint64_t sendable = length;
    bool cut = false;
    if (config->faults.dropAfterBytes) {
        const uint64_t left = *config->faults.dropAfterBytes - std::min(*config->faults.dropAfterBytes, m_servedBytes);
        if (length > left) {
            sendable = left;
            cut = true;
        }
    }

    if (!cut || sendable > 0) {
        const Header header = makeHeader(number, Op::data, 0, length);
        if (!m_socket.writeAll(&header, sizeof header))
            return {false, what + ": the client went away"};
    }
    if (!sendRange(file.file.fd(), file.position, sendable, config->faults.bytesPerSecond))
        return {false, what + ": the client went away"};
    file.position += sendable;
    m_servedBytes += sendable;
    if (cut) {
        ::shutdown(m_socket.fd(), SHUT_RDWR);
        return {false,
                what + ": connection cut after " + QString::number(m_servedBytes) + " file bytes (dropAfterBytes)"};
    }
    return {true, what + ": " + QString::number(length) + " bytes"};
}

AFCService::Reply AFCService::seekFile(uint64_t number, const QByteArray& arguments)
{
    const uint64_t handle = word(arguments, 0);
    const uint64_t whence = word(arguments, 1);
    const auto offset = int64_t(word(arguments, 2));
    const QString what = "FILE_SEEK handle " + QString::number(handle) + " whence " + QString::number(whence) +
                         " offset " + QString::number(offset);
    const auto it = m_files.find(handle);
    if (it == m_files.end())
        return {sendStatus(number, Error::invalidArgument), what + ": unknown handle"};
    OpenFile& file = it->second;
    struct stat status {};
    ::fstat(file.file.fd(), &status);
    int64_t base = 0;
    if (whence == 1)
        base = int64_t(file.position);
    else if (whence == 2)
        base = int64_t(status.st_size);
    else if (whence != 0)
        return {sendStatus(number, Error::invalidArgument), what + ": bad whence"};
    if (base + offset < 0)
        return {sendStatus(number, Error::invalidArgument), what + ": before the start"};
    file.position = uint64_t(base + offset);
    return {sendStatus(number, 0), what + ": now at " + QString::number(file.position)};
}

bool AFCService::stall(const Stall& stall, const QString& what, const QString& source)
{
    Log::request(m_tag + " afc " + what + ": no answer " +
                 (stall.seconds > 0 ? "for " + QString::number(stall.seconds) + " s" : QString("from now on")) + " (" +
                 source + ")");
    std::optional<std::chrono::milliseconds> limit;
    if (stall.seconds > 0)
        limit = std::chrono::milliseconds(std::llround(stall.seconds * 1000));
    return !m_socket.waitForHangUp(limit);
}

bool AFCService::sendRange(int file, uint64_t offset, uint64_t length, uint64_t bytesPerSecond)
{
    static const std::array<char, 256 * 1024> zeros{};
    // Slow links send in slices of about 10 ms, so the pace is even and a pulled cable is prompt.
    const uint64_t slice = bytesPerSecond > 0 ? std::clamp<uint64_t>(bytesPerSecond / 100, 4096, zeros.size()) : length;
    while (length > 0) {
        uint64_t piece = std::min(length, slice);
        bool hole = false;
        const off_t data = ::lseek(file, off_t(offset), SEEK_DATA);
        if (data < 0 && errno == ENXIO) {
            hole = true; // nothing but a hole up to the end of the file
        } else if (data > off_t(offset)) {
            hole = true;
            piece = std::min(piece, uint64_t(data) - offset);
        } else if (data == off_t(offset)) {
            const off_t holeStart = ::lseek(file, off_t(offset), SEEK_HOLE);
            if (holeStart > off_t(offset))
                piece = std::min(piece, uint64_t(holeStart) - offset);
        }
        if (hole)
            piece = std::min<uint64_t>(piece, zeros.size());
        if (bytesPerSecond > 0)
            m_device.link().pace(piece, bytesPerSecond);
        const bool sent = hole ? m_socket.writeAll(zeros.data(), size_t(piece))
                               : m_socket.sendFile(file, off_t(offset), size_t(piece));
        if (!sent)
            return false;
        offset += piece;
        length -= piece;
    }
    return true;
}

bool AFCService::sendStatus(uint64_t number, uint64_t code) { return sendValue(number, Op::status, code); }

bool AFCService::sendValue(uint64_t number, uint64_t operation, uint64_t value)
{
    const Header header = makeHeader(number, operation, 8, 0);
    const uint64_t little = qToLittleEndian(value);
    return m_socket.writeAll(&header, sizeof header, &little, sizeof little);
}

bool AFCService::sendData(uint64_t number, const QByteArray& data)
{
    // Data follows the header outside this_length, as phones send it.
    const Header header = makeHeader(number, Op::data, 0, uint64_t(data.size()));
    return m_socket.writeAll(&header, sizeof header, data.constData(), size_t(data.size()));
}
