#pragma once

#include "device/DownloadResult.h"

#include <QString>
#include <QStringList>

#include <condition_variable>
#include <cstdint>
#include <exception>
#include <map>
#include <mutex>
#include <stop_token>
#include <thread>

class MediaSource;

// Does a backup run's device work on a thread of its own: downloads and folder listings, one after
// another in the order they were asked for, so that the next files cross the link, and the next
// folders are listed, while the caller is still busy with earlier ones. The source is only ever
// called from that thread. At most `maxReady` finished downloads wait to be taken (they take room
// in the backup folder's temporary folder); a job being waited for starts before any other.
// Used by one thread.
class SourceQueue {
public:
    using Ticket = uint64_t;

    SourceQueue(MediaSource& source, int maxReady);
    // Stops the download under way, if any, and waits for it to end; the files of downloads never
    // taken are removed.
    ~SourceQueue();
    SourceQueue(const SourceQueue&) = delete;
    SourceQueue& operator=(const SourceQueue&) = delete;

    // Queues the download of `path` into the new local file `destination`.
    Ticket download(const QString& path, const QString& destination);
    // Queues the listing of the device folder `path`.
    Ticket list(const QString& path);

    // Wait until that job has ended and return its result, or throw what it threw. A downloaded
    // file then belongs to the caller. Each ticket can be taken once.
    DownloadResult takeDownload(Ticket ticket);
    QStringList takeListing(Ticket ticket);
    // The job is no longer wanted: skipped if it has not begun, stopped if it is under way; a
    // download's file is removed.
    void drop(Ticket ticket);

private:
    enum class State { waiting, running, done };
    struct Job {
        bool isDownload = false;
        QString path;
        QString destination; // downloads only
        State state = State::waiting;
        bool dropped = false;
        bool wanted = false; // someone waits for it
        DownloadResult result;
        QStringList names;
        std::exception_ptr failure;
    };

    Ticket add(Job job);
    Job take(Ticket ticket);
    std::map<Ticket, Job>::iterator nextJob();
    void work();
    void stopRunning(Job& job);

    MediaSource& m_source;
    const int m_maxReady;
    int m_ready = 0; // finished downloads not yet taken or dropped
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::map<Ticket, Job> m_jobs;
    Ticket m_next = 1;
    bool m_stopping = false;
    std::stop_source m_runningStop; // of the job under way

    std::thread m_thread;
};
