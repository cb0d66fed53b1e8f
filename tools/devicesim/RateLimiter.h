#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>

// A device's link: every connection to one device shares its bandwidth, as on one USB cable.
class RateLimiter {
public:
    // Blocks until `bytes` more may cross a link of `bytesPerSecond`.
    void pace(uint64_t bytes, uint64_t bytesPerSecond);

private:
    std::mutex m_mutex;
    std::chrono::steady_clock::time_point m_next{};
};
