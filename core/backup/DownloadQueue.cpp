#include "DownloadQueue.h"

#include "device/MediaSource.h"

#include <QFile>

#include <stdexcept>

DownloadQueue::DownloadQueue(MediaSource& source, int maxReady) : m_source(source), m_maxReady(maxReady) {}

DownloadQueue::~DownloadQueue()
{
    {
        std::lock_guard lock(m_mutex);
        m_stopping = true;
        for (auto it = m_jobs.begin(); it != m_jobs.end();) {
            if (it->second.state == State::running) {
                it->second.dropped = true;
                ++it;
                continue;
            }
            if (it->second.state == State::done)
                QFile::remove(it->second.destination);
            it = m_jobs.erase(it);
        }
    }
    m_changed.notify_all();
    if (m_thread.joinable())
        m_thread.join();
}

DownloadQueue::Ticket DownloadQueue::add(const QString& path, const QString& destination)
{
    Ticket ticket = 0;
    {
        std::lock_guard lock(m_mutex);
        ticket = m_next++;
        m_jobs.emplace(ticket, Job{path, destination, State::waiting, false, false, {}, nullptr});
    }
    // The thread starts with the first download, so a run that downloads nothing has none.
    if (!m_thread.joinable())
        m_thread = std::thread([this] { work(); });
    m_changed.notify_all();
    return ticket;
}

DownloadResult DownloadQueue::take(Ticket ticket)
{
    std::unique_lock lock(m_mutex);
    auto it = m_jobs.find(ticket);
    if (it == m_jobs.end() || it->second.dropped)
        throw std::logic_error("DownloadQueue: a download taken twice or after it was dropped");
    if (it->second.state == State::waiting) {
        it->second.wanted = true;
        m_changed.notify_all();
    }
    m_changed.wait(lock, [&] { return it->second.state == State::done; });
    const Job job = std::move(it->second);
    m_jobs.erase(it);
    --m_ready;
    m_changed.notify_all();
    lock.unlock();
    if (job.failure)
        std::rethrow_exception(job.failure);
    return job.result;
}

void DownloadQueue::drop(Ticket ticket)
{
    std::lock_guard lock(m_mutex);
    const auto it = m_jobs.find(ticket);
    if (it == m_jobs.end())
        return;
    switch (it->second.state) {
    case State::running:
        it->second.dropped = true; // the thread removes the file when the download ends
        return;
    case State::done:
        QFile::remove(it->second.destination);
        --m_ready;
        m_changed.notify_all();
        break;
    case State::waiting:
        break;
    }
    m_jobs.erase(it);
}

std::map<DownloadQueue::Ticket, DownloadQueue::Job>::iterator DownloadQueue::nextJob()
{
    auto first = m_jobs.end();
    for (auto it = m_jobs.begin(); it != m_jobs.end(); ++it) {
        if (it->second.state != State::waiting)
            continue;
        if (it->second.wanted)
            return it;
        if (first == m_jobs.end())
            first = it;
    }
    return m_ready < m_maxReady ? first : m_jobs.end();
}

void DownloadQueue::work()
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
        const QString path = job.path;
        const QString destination = job.destination;
        lock.unlock();

        DownloadResult result;
        std::exception_ptr failure;
        try {
            result = m_source.download(path, destination);
        } catch (...) {
            failure = std::current_exception();
        }

        lock.lock();
        // Jobs are only erased by others while they are not running, so `job` is still there.
        if (job.dropped) {
            QFile::remove(destination);
            m_jobs.erase(it);
        } else {
            job.result = result;
            job.failure = failure;
            job.state = State::done;
            ++m_ready;
        }
        m_changed.notify_all();
    }
}
