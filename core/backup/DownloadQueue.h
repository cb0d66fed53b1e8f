#pragma once

#include "device/DownloadResult.h"

#include <QString>

#include <condition_variable>
#include <cstdint>
#include <exception>
#include <map>
#include <mutex>
#include <thread>

class MediaSource;

// Downloads device files one after another on a thread of its own, in the order they were added,
// so that the next files cross the link while the caller is still busy writing the previous ones
// into the backup folder. Only `MediaSource::download` runs on that thread; everything else stays
// with the caller, which must therefore use a source whose downloads may run beside its other calls.
// Used by one thread.
class DownloadQueue {
public:
    using Ticket = uint64_t;

    explicit DownloadQueue(MediaSource& source);
    // Waits for the download under way, if any; the files of downloads never taken are removed.
    ~DownloadQueue();
    DownloadQueue(const DownloadQueue&) = delete;
    DownloadQueue& operator=(const DownloadQueue&) = delete;

    // Queues the download of `path` into the new local file `destination`.
    Ticket add(const QString& path, const QString& destination);
    // Waits until that download has ended and returns its result, or throws what it threw. The
    // file then belongs to the caller. Each ticket can be taken once.
    DownloadResult take(Ticket ticket);
    // The download is no longer wanted: skipped if it has not begun, its file removed once it ends.
    void drop(Ticket ticket);

private:
    enum class State { waiting, running, done };
    struct Job {
        QString path;
        QString destination;
        State state = State::waiting;
        bool dropped = false;
        DownloadResult result;
        std::exception_ptr failure;
    };

    void work();

    MediaSource& m_source;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::map<Ticket, Job> m_jobs;
    Ticket m_next = 1;
    bool m_stopping = false;
    std::thread m_thread;
};
