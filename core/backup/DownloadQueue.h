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
// into the backup folder. At most `maxReady` finished downloads wait to be taken (they take room in
// the backup folder's temporary folder); a download being waited for starts regardless. Only `MediaSource::download` runs on that thread; everything else stays
// with the caller, which must therefore use a source whose downloads may run beside its other calls.
// Used by one thread.
class DownloadQueue {
public:
    using Ticket = uint64_t;

    DownloadQueue(MediaSource& source, int maxReady);
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
        bool wanted = false; // take() is waiting for it
        DownloadResult result;
        std::exception_ptr failure;
    };

    void work();
    std::map<Ticket, Job>::iterator nextJob();

    MediaSource& m_source;
    const int m_maxReady;
    int m_ready = 0; // finished downloads not yet taken or dropped
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::map<Ticket, Job> m_jobs;
    Ticket m_next = 1;
    bool m_stopping = false;
    std::thread m_thread;
};
