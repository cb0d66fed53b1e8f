#include "ProgressTracker.h"

#include <QElapsedTimer>

#include <algorithm>
#include <cmath>
#include <memory>

namespace {

constexpr int64_t kRateWindowMs = 5000;
constexpr int64_t kPaceWindowMs = 60000;

ProgressTracker::Clock steadyClock()
{
    auto timer = std::make_shared<QElapsedTimer>();
    timer->start();
    return [timer] { return int64_t(timer->elapsed()); };
}

} // namespace

ProgressTracker::ProgressTracker(Clock clock) : m_clock(clock ? std::move(clock) : steadyClock()) {}

void ProgressTracker::update(const BackupProgress& progress)
{
    m_latest = progress;
    const int64_t now = m_clock();
    m_samples.push_back({now, progress.assetsDone, progress.bytesCopied});
    while (m_samples.size() > 2 && now - m_samples.front().ms > kPaceWindowMs)
        m_samples.pop_front();
}

double ProgressTracker::bytesPerSecond() const
{
    if (m_samples.size() < 2)
        return 0;
    const Sample& last = m_samples.back();
    // The oldest sample still inside the rate window, or the one just before it. Samples come in
    // time order, and a fast run sends thousands a second: a search, not a walk from the front.
    auto first = std::partition_point(m_samples.begin(), m_samples.end(),
                                      [&](const Sample& sample) { return last.ms - sample.ms > kRateWindowMs; });
    if (first != m_samples.begin())
        first = std::prev(first);
    const int64_t ms = last.ms - first->ms;
    if (ms <= 0 || last.bytes < first->bytes)
        return 0;
    return double(last.bytes - first->bytes) * 1000.0 / double(ms);
}

std::optional<int64_t> ProgressTracker::secondsLeft() const
{
    if (m_samples.size() < 2)
        return std::nullopt;
    const Sample& first = m_samples.front();
    const Sample& last = m_samples.back();
    const int64_t items = last.items - first.items;
    const int64_t ms = last.ms - first.ms;
    if (items <= 0 || ms < 1000)
        return std::nullopt;
    const int64_t remaining = std::max<int64_t>(0, m_latest.assetsTotal - m_latest.assetsDone);
    return int64_t(std::ceil(double(remaining) * double(ms) / double(items) / 1000.0));
}

QString ProgressTracker::formatDuration(int64_t seconds)
{
    if (seconds < 60)
        return QString::number(seconds) + " s";
    if (seconds < 3600)
        return QString::number((seconds + 30) / 60) + " min";
    const int64_t minutes = (seconds + 30) / 60;
    return QString::number(minutes / 60) + " h " + QString::number(minutes % 60) + " min";
}

QString ProgressTracker::statusLine() const
{
    QString line = QString::number(m_latest.assetsDone) + " of " + QString::number(m_latest.assetsTotal) + " items · " +
                   formatByteCount(m_latest.bytesCopied) + " copied";
    const double rate = bytesPerSecond();
    if (rate > 0)
        line += " · " + formatByteCount(uint64_t(rate)) + "/s";
    if (auto left = secondsLeft())
        line += " · about " + formatDuration(*left) + " left";
    if (!m_latest.currentName.isEmpty())
        line += " · " + m_latest.currentName;
    return line;
}
