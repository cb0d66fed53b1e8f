#include "Socket.h"

#include <algorithm>
#include <cerrno>
#include <poll.h>
#include <sys/sendfile.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>
#include <utility>

Socket::~Socket() { close(); }

Socket::Socket(Socket&& other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}

Socket& Socket::operator=(Socket&& other) noexcept
{
    if (this != &other) {
        close();
        m_fd = std::exchange(other.m_fd, -1);
    }
    return *this;
}

void Socket::close()
{
    if (m_fd >= 0)
        ::close(std::exchange(m_fd, -1));
}

bool Socket::readExact(void* buffer, size_t length)
{
    auto* out = static_cast<char*>(buffer);
    while (length > 0) {
        const ssize_t n = ::read(m_fd, out, length);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        out += n;
        length -= size_t(n);
    }
    return true;
}

bool Socket::writeAll(const void* data, size_t length) { return writeAll(data, length, nullptr, 0); }

bool Socket::writeAll(const void* head, size_t headLength, const void* body, size_t bodyLength)
{
    iovec parts[2] = {{const_cast<void*>(head), headLength}, {const_cast<void*>(body), bodyLength}};
    iovec* next = parts;
    int count = bodyLength > 0 ? 2 : 1;
    while (count > 0) {
        msghdr message{};
        message.msg_iov = next;
        message.msg_iovlen = size_t(count);
        ssize_t n = ::sendmsg(m_fd, &message, MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            return false;
        while (count > 0 && size_t(n) >= next->iov_len) {
            n -= ssize_t(next->iov_len);
            ++next;
            --count;
        }
        if (count > 0) {
            next->iov_base = static_cast<char*>(next->iov_base) + n;
            next->iov_len -= size_t(n);
        }
    }
    return true;
}

bool Socket::sendFile(int file, off_t offset, size_t length)
{
    while (length > 0) {
        const ssize_t n = ::sendfile(m_fd, file, &offset, length);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        length -= size_t(n);
    }
    return true;
}

bool Socket::waitForHangUp(std::optional<std::chrono::milliseconds> limit)
{
    using Clock = std::chrono::steady_clock;
    const auto deadline = limit ? Clock::now() + *limit : Clock::time_point::max();
    for (;;) {
        int timeout = -1;
        if (limit) {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
            if (left <= 0)
                return false;
            timeout = int(std::min<long long>(left, 60'000));
        }
        // Only the hang-up is asked for: a request that arrives is no reason to wake.
        pollfd fd{m_fd, POLLRDHUP, 0};
        const int ready = ::poll(&fd, 1, timeout);
        if (ready < 0 && errno != EINTR)
            return true;
        if (ready > 0)
            return true;
    }
}
