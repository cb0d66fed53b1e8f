#include "Log.h"

#include <atomic>
#include <cstdio>
#include <mutex>

namespace {
std::atomic<bool> g_verbose{false};
std::mutex g_mutex;
} // namespace

void Log::setVerbose(bool on) { g_verbose = on; }

bool Log::verbose() { return g_verbose; }

void Log::line(const QString& text)
{
    const QByteArray bytes = "ombrelo-devicesim: " + text.toUtf8() + "\n";
    std::lock_guard lock(g_mutex);
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stderr);
    std::fflush(stderr);
}

void Log::request(const QString& text)
{
    if (g_verbose)
        line(text);
}
