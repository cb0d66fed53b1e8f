#pragma once

#include <QString>

#include <cstdint>

// What a streamed copy produced: the SHA-256 of the bytes (64 lower-case hex digits) and their count.
struct DownloadResult {
    QString sha256;
    uint64_t size = 0;

    bool operator==(const DownloadResult&) const = default;
};
