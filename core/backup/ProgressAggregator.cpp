#include "ProgressAggregator.h"

#include <QElapsedTimer>

#include <algorithm>
#include <cmath>
#include <memory>

namespace {

constexpr int64_t kRateWindowMs = 5000;
constexpr int64_t kPaceWindowMs = 60000;

ProgressAggregator::Clock steadyClock()
{
    auto timer = std::make_shared<QElapsedTimer>();
    timer->start();
    return [timer] { return int64_t(timer->elapsed()); };
}

// The run's bytes as they stream; a source that does not report them counts whole files copied.
uint64_t bytesMoved(const BackupProgress& progress) { return std::max(progress.bytesDone, progress.bytesCopied); }

} // namespace

ProgressAggregator::ProgressAggregator(Deliver deliver, Clock clock)
    : m_deliver(std::move(deliver)), m_clock(clock ? std::move(clock) : steadyClock())
{
}

void ProgressAggregator::handle(const BackupEvent& event)
{
    bool closing = false;
    if (event.kind == BackupEvent::Kind::log) {
        m_lines.append(event);
    } else {
        m_latest = event.progress;
        m_progressChanged = true;
        closing = event.progress.currentName.isEmpty();
    }
    const int64_t now = m_clock();
    if (closing || !m_lastDelivery || now - *m_lastDelivery >= intervalMs)
        deliver(now);
}

void ProgressAggregator::flush()
{
    if (m_progressChanged || !m_lines.isEmpty())
        deliver(m_clock());
}

void ProgressAggregator::deliver(int64_t now)
{
    RunUpdate update;
    update.lines.swap(m_lines);
    if (m_progressChanged) {
        m_samples.push_back({now, m_latest.assetsDone, bytesMoved(m_latest)});
        while (m_samples.size() > 2 && now - m_samples.front().ms > kPaceWindowMs)
            m_samples.pop_front();
        update.progress = report();
        m_progressChanged = false;
    }
    m_lastDelivery = now;
    if (m_deliver)
        m_deliver(update);
}

ProgressReport ProgressAggregator::report() const { return {m_latest, bytesPerSecond(), secondsLeft(), statusLine()}; }

double ProgressAggregator::bytesPerSecond() const
{
    if (m_samples.size() < 2)
        return 0;
    const Sample& last = m_samples.back();
    // The oldest sample still inside the rate window, or the one just before it.
    auto first = std::partition_point(m_samples.begin(), m_samples.end(),
                                      [&](const Sample& sample) { return last.ms - sample.ms > kRateWindowMs; });
    if (first != m_samples.begin())
        first = std::prev(first);
    const int64_t ms = last.ms - first->ms;
    if (ms <= 0 || last.bytes < first->bytes)
        return 0;
    return double(last.bytes - first->bytes) * 1000.0 / double(ms);
}

std::optional<int64_t> ProgressAggregator::secondsLeft() const
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

QString ProgressAggregator::formatDuration(int64_t seconds)
{
    if (seconds < 60)
        return QString::number(seconds) + " s";
    if (seconds < 3600)
        return QString::number((seconds + 30) / 60) + " min";
    const int64_t minutes = (seconds + 30) / 60;
    return QString::number(minutes / 60) + " h " + QString::number(minutes % 60) + " min";
}

QString ProgressAggregator::statusLine() const
{
    QString line = QString::number(m_latest.assetsDone) + " of " + QString::number(m_latest.assetsTotal) + " items · " +
                   formatByteCount(m_latest.bytesCopied) + " copied";
    const double rate = bytesPerSecond();
    if (rate > 0)
        line += " · " + formatByteCount(uint64_t(rate)) + "/s";
    if (auto left = secondsLeft())
        line += " · about " + formatDuration(*left) + " left";
    if (!m_latest.currentName.isEmpty()) {
        line += " · " + m_latest.currentName;
        if (m_latest.fileBytesTotal > 0 && m_latest.fileBytesDone < m_latest.fileBytesTotal)
            line += " (" + formatByteCount(m_latest.fileBytesDone) + " of " + formatByteCount(m_latest.fileBytesTotal) +
                    ")";
    }
    return line;
}
