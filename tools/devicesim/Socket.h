#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <sys/types.h>

// An owned stream socket (or any file descriptor) with the whole-message reads and writes the
// protocols need: every reply goes out in one piece, because the clients read headers with a
// single recv.
class Socket {
public:
    Socket() = default;
    explicit Socket(int fd) : m_fd(fd) {}
    ~Socket();
    Socket(Socket&& other) noexcept;
    Socket& operator=(Socket&& other) noexcept;
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;

    int fd() const { return m_fd; }
    bool isOpen() const { return m_fd >= 0; }
    void close();

    // False on end of stream or error.
    bool readExact(void* buffer, size_t length);
    bool writeAll(const void* data, size_t length);
    bool writeAll(const void* head, size_t headLength, const void* body, size_t bodyLength);
    // Sends `length` bytes of `file` from `offset` without copying them through user space.
    bool sendFile(int file, off_t offset, size_t length);
    // Waits without reading until the other end hangs up or the socket is shut down (true), or
    // until `limit` has passed (false); data that arrives meanwhile stays unread.
    bool waitForHangUp(std::optional<std::chrono::milliseconds> limit);

private:
    int m_fd = -1;
};
