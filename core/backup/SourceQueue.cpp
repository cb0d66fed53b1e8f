#include "SourceQueue.h"

#include "device/MediaSource.h"

#include <QFile>

#include <stdexcept>

SourceQueue::SourceQueue(MediaSource& source, int maxReady) : m_source(source), m_maxReady(maxReady) {}

SourceQueue::~SourceQueue()
{
    {
        std::lock_guard lock(m_mutex);
        m_stopping = true;
        for (auto it = m_jobs.begin(); it != m_jobs.end();) {
            if (it->second.state == State::running) {
                stopRunning(it->second);
                ++it;
                continue;
            }
            if (it->second.state == State::done && it->second.isDownload)
                QFile::remove(it->second.destination);
            it = m_jobs.erase(it);
        }
    }
    m_changed.notify_all();
    if (m_thread.joinable())
        m_thread.join();
}

SourceQueue::Ticket SourceQueue::download(const QString& path, const QString& destination)
{
    Job job;
    job.isDownload = true;
    job.path = path;
    job.destination = destination;
    return add(std::move(job));
}

SourceQueue::Ticket SourceQueue::list(const QString& path)
{
    Job job;
    job.path = path;
    return add(std::move(job));
}

SourceQueue::Ticket SourceQueue::add(Job job)
{
    Ticket ticket = 0;
    {
        std::lock_guard lock(m_mutex);
        ticket = m_next++;
        m_jobs.emplace(ticket, std::move(job));
    }
    // The thread starts with the first job, so a run that needs none has none.
    if (!m_thread.joinable())
        m_thread = std::thread([this] { work(); });
    m_changed.notify_all();
    return ticket;
}

std::optional<DownloadResult> SourceQueue::takeDownload(Ticket ticket, const WhileWaiting& whileWaiting)
{
    std::optional<Job> job = take(ticket, whileWaiting);
    if (!job)
        return std::nullopt;
    return job->result;
}

QStringList SourceQueue::takeListing(Ticket ticket) { return take(ticket, {})->names; }

uint64_t SourceQueue::bytesStreamed() const
{
    std::lock_guard lock(m_mutex);
    return m_streamed + (m_running ? m_running->progress.done : 0);
}

void SourceQueue::reportProgress(uint64_t done, uint64_t total)
{
    std::lock_guard lock(m_mutex);
    if (m_running)
        m_running->progress = {done, total};
}

std::optional<SourceQueue::Job> SourceQueue::take(Ticket ticket, const WhileWaiting& whileWaiting)
{
    std::unique_lock lock(m_mutex);
    auto it = m_jobs.find(ticket);
    if (it == m_jobs.end() || it->second.dropped)
        throw std::logic_error("SourceQueue: a job taken twice or after it was dropped");
    if (it->second.state == State::waiting) {
        it->second.wanted = true;
        m_changed.notify_all();
    }
    while (!m_changed.wait_for(lock, waitStep, [&] { return it->second.state == State::done; })) {
        if (!whileWaiting)
            continue;
        const Progress progress = it->second.progress;
        lock.unlock();
        const bool goOn = whileWaiting(progress);
        lock.lock();
        if (!goOn) {
            lock.unlock();
            drop(ticket);
            return std::nullopt;
        }
    }
    Job job = std::move(it->second);
    m_jobs.erase(it);
    if (job.isDownload) {
        --m_ready;
        m_changed.notify_all();
    }
    lock.unlock();
    if (job.failure)
        std::rethrow_exception(job.failure);
    return job;
}

void SourceQueue::drop(Ticket ticket)
{
    std::lock_guard lock(m_mutex);
    const auto it = m_jobs.find(ticket);
    if (it == m_jobs.end())
        return;
    switch (it->second.state) {
    case State::running:
        stopRunning(it->second); // the thread removes the file when the download ends
        return;
    case State::done:
        if (it->second.isDownload) {
            QFile::remove(it->second.destination);
            --m_ready;
            m_changed.notify_all();
        }
        break;
    case State::waiting:
        break;
    }
    m_jobs.erase(it);
}

void SourceQueue::stopRunning(Job& job)
{
    job.dropped = true;
    m_runningStop.request_stop();
}

std::map<SourceQueue::Ticket, SourceQueue::Job>::iterator SourceQueue::nextJob()
{
    auto first = m_jobs.end();
    for (auto it = m_jobs.begin(); it != m_jobs.end(); ++it) {
        const Job& job = it->second;
        if (job.state != State::waiting)
            continue;
        if (job.wanted)
            return it;
        // Listings take no room, so they never wait for room.
        if (first == m_jobs.end() && (!job.isDownload || m_ready < m_maxReady))
            first = it;
    }
    return first;
}

void SourceQueue::work()
{
    std::unique_lock lock(m_mutex);
    for (;;) {
        auto it = m_jobs.end();
        m_changed.wait(lock, [&] {
            it = nextJob();
            return m_stopping || it != m_jobs.end();
        });
        if (m_stopping)
            return;
        Job& job = it->second;
        job.state = State::running;
        const bool isDownload = job.isDownload;
        const QString path = job.path;
        const QString destination = job.destination;
        m_runningStop = std::stop_source();
        m_running = &job;
        DownloadControl control;
        control.stop = m_runningStop.get_token();
        control.onProgress = [this](uint64_t done, uint64_t total) { reportProgress(done, total); };
        lock.unlock();

        DownloadResult result;
        QStringList names;
        std::exception_ptr failure;
        try {
            if (isDownload)
                result = m_source.download(path, destination, control);
            else
                names = m_source.listDirectory(path);
        } catch (...) {
            failure = std::current_exception();
        }

        lock.lock();
        m_running = nullptr;
        if (isDownload)
            m_streamed += job.progress.done;
        // Jobs are only erased by others while they are not running, so `job` is still there.
        if (job.dropped) {
            if (isDownload)
                QFile::remove(destination);
            m_jobs.erase(it);
        } else {
            job.result = result;
            job.names = std::move(names);
            job.failure = failure;
            job.state = State::done;
            if (isDownload)
                ++m_ready;
        }
        m_changed.notify_all();
    }
}
