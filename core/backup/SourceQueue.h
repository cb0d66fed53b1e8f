#pragma once

#include "device/DownloadResult.h"

#include <QString>
#include <QStringList>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <exception>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
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

    // How far a download has come: its bytes so far and the file's size on the device.
    struct Progress {
        uint64_t done = 0;
        uint64_t total = 0;
    };
    // Called while a caller waits, about every `waitStep`; returning false gives the job up.
    using WhileWaiting = std::function<bool(const Progress& progress)>;
    static constexpr std::chrono::milliseconds waitStep{200};

    // Wait until that job has ended and return its result, or throw what it threw. A downloaded
    // file then belongs to the caller. Each ticket can be taken once. When `whileWaiting` gives the
    // download up, it is dropped (stopped and its file removed) and nothing is returned.
    std::optional<DownloadResult> takeDownload(Ticket ticket, const WhileWaiting& whileWaiting = {});
    QStringList takeListing(Ticket ticket);
    // The job is no longer wanted: skipped if it has not begun, stopped if it is under way; a
    // download's file is removed.
    void drop(Ticket ticket);
    // Bytes of every download of this queue so far, those under way included.
    uint64_t bytesStreamed() const;

private:
    enum class State { waiting, running, done };
    struct Job {
        bool isDownload = false;
        QString path;
        QString destination; // downloads only
        State state = State::waiting;
        bool dropped = false;
        bool wanted = false; // someone waits for it
        Progress progress;   // downloads only
        DownloadResult result;
        QStringList names;
        std::exception_ptr failure;
    };

    Ticket add(Job job);
    // Nothing when `whileWaiting` gave the job up.
    std::optional<Job> take(Ticket ticket, const WhileWaiting& whileWaiting);
    void reportProgress(uint64_t done, uint64_t total);
    std::map<Ticket, Job>::iterator nextJob();
    void work();
    void stopRunning(Job& job);

    MediaSource& m_source;
    const int m_maxReady;
    int m_ready = 0; // finished downloads not yet taken or dropped
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::map<Ticket, Job> m_jobs;
    Ticket m_next = 1;
    bool m_stopping = false;
    std::stop_source m_runningStop; // of the job under way
    Job* m_running = nullptr;       // the job under way, while it runs
    uint64_t m_streamed = 0;        // bytes of finished downloads

    std::thread m_thread;
};
