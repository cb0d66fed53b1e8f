#include "RateLimiter.h"

#include <thread>

namespace {
// Lets a few milliseconds of idle link make up for wake-up latency, so a steady stream
// averages the configured rate instead of drifting below it.
constexpr std::chrono::milliseconds kCatchUp{5};
} // namespace

void RateLimiter::pace(uint64_t bytes, uint64_t bytesPerSecond)
{
    using namespace std::chrono;
    const auto wireTime =
        duration_cast<steady_clock::duration>(duration<double>(double(bytes) / double(bytesPerSecond)));
    steady_clock::time_point until;
    {
        std::lock_guard lock(m_mutex);
        const auto now = steady_clock::now();
        if (m_next < now - kCatchUp)
            m_next = now - kCatchUp;
        m_next += wireTime;
        until = m_next;
    }
    std::this_thread::sleep_until(until);
}
