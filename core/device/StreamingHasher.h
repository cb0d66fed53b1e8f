#pragma once

#include "DownloadResult.h"

#include <QString>

#include <cstddef>
#include <cstdint>
#include <memory>

struct evp_md_ctx_st;

// A running SHA-256 and byte count, fed chunk by chunk while data streams past.
class StreamingHasher {
public:
    StreamingHasher();
    ~StreamingHasher();
    StreamingHasher(StreamingHasher&&) noexcept;
    StreamingHasher& operator=(StreamingHasher&&) noexcept;

    void update(const char* data, size_t length);
    uint64_t bytesFed() const { return m_count; }
    DownloadResult finish();

private:
    struct ContextFree {
        void operator()(evp_md_ctx_st* context) const;
    };
    std::unique_ptr<evp_md_ctx_st, ContextFree> m_context;
    uint64_t m_count = 0;
};

// The SHA-256 and size of a local file, read in 1 MiB chunks. Throws std::runtime_error
// with the file system's message when the file cannot be read.
DownloadResult sha256OfFile(const QString& path);

// One buffer per transfer: files are streamed through a single block of this size.
inline constexpr size_t kTransferChunkSize = 1024 * 1024;
