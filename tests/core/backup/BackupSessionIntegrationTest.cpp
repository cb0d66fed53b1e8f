#include "PhoneBackup.h"
#include "TempDir.h"
#include "backup/BackupSession.h"
#include "plan/BackupPlan.h"

#include <QDir>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonObject>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

namespace {

// Events handed from the thread that runs the session to the test's thread, as a window gets them.
class EventChannel {
public:
    void post(const BackupEvent& event)
    {
        std::lock_guard lock(m_mutex);
        m_events.push_back(event);
        m_changed.notify_one();
    }
    void close()
    {
        std::lock_guard lock(m_mutex);
        m_closed = true;
        m_changed.notify_one();
    }
    // Every event, taken on this thread as they come, until the session's thread is done.
    QList<BackupEvent> receiveAll()
    {
        QList<BackupEvent> received;
        std::unique_lock lock(m_mutex);
        for (;;) {
            m_changed.wait(lock, [&] { return m_closed || !m_events.empty(); });
            while (!m_events.empty()) {
                received.append(m_events.front());
                m_events.pop_front();
            }
            if (m_closed)
                return received;
        }
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<BackupEvent> m_events;
    bool m_closed = false;
};

} // namespace

// A window's whole backup through the session alone, on a worker thread: connect, read the library,
// plan against the folder, dry run, run; the typed events reach another thread, an unreadable photo
// is an error event naming its asset, and the folder's counts then show what was copied.
TEST(BackupSession, BacksUpAPhoneOnAWorkerThreadWithTypedEvents)
{
    PhoneBackup phone({"--generation", "ios17", "--assets", "12", "--albums", "2", "--seed", "7"});
    const PhoneAnswerKey::Asset* broken = nullptr;
    for (const PhoneAnswerKey::Asset& asset : phone.answerKey().assets)
        if (!broken && asset.category == "library" && !asset.isHidden)
            broken = &asset;
    ASSERT_NE(broken, nullptr);
    phone.setFaults({{"failPaths", QJsonObject{{broken->files.first().path, QJsonObject{{"open", 9}}}}}});
    TempDir dirs;
    qputenv("XDG_CACHE_HOME", dirs.filePath("cache").toUtf8());
    const QString dest = dirs.path();

    EventChannel channel;
    BackupSummary preview, summary;
    ExistingBackup after;
    std::thread worker([&] {
        BackupSession session;
        session.connect(phone.udid());
        session.readLibrary();
        const BackupPlan plan = session.plan(ExistingBackup::read(dest));
        BackupOptions options;
        for (const BackupNode& leaf : plan.allLeaves())
            options.nodeIDs.insert(leaf.id);
        const BackupSession::RunControl control{[] { return false; },
                                                [&](const BackupEvent& event) { channel.post(event); }};
        preview = session.dryRun(plan, dest, options, control);
        summary = session.run(plan, dest, options, control);
        after = ExistingBackup::read(dest);
        channel.close();
    });
    const QList<BackupEvent> events = channel.receiveAll();
    worker.join();

    EXPECT_TRUE(preview.isDryRun);
    EXPECT_GT(preview.filesToCopy, 0);
    EXPECT_GE(summary.filesCopied, preview.filesToCopy - 1);
    ASSERT_EQ(summary.errors.size(), 1);

    QList<BackupEvent> errors;
    int progress = 0;
    for (const BackupEvent& event : events) {
        progress += event.kind == BackupEvent::Kind::progress;
        if (event.kind == BackupEvent::Kind::log && event.severity == BackupEvent::Severity::error)
            errors.append(event);
        if (event.kind == BackupEvent::Kind::log && event.severity == BackupEvent::Severity::info) {
            EXPECT_FALSE(event.line.startsWith("ERROR ") || event.line.startsWith("WARNING "))
                << qPrintable(event.line);
        }
    }
    ASSERT_EQ(errors.size(), 1);
    EXPECT_EQ(errors.first().assetUUID, broken->uuid);
    EXPECT_EQ(errors.first().line, "ERROR " + summary.errors.first());
    EXPECT_GT(progress, 0);

    EXPECT_EQ(after.fileCount, summary.filesCopied);
    EXPECT_FALSE(after.backedUp.value(BackupPlan::cameraRollPath).contains(broken->uuid));
    EXPECT_FALSE(after.backedUp.value(BackupPlan::cameraRollPath).isEmpty());
}

// A 1 GB video on a USB 2-paced link: the bytes the listener hears grow every second while it
// streams; Stop one second into it returns within two seconds, leaving nothing of the video; the
// next run copies it whole.
TEST(BackupSession, StreamsByteProgressAndStopsWithinTwoSecondsInsideALargeFile)
{
    PhoneBackup phone({"--generation", "ios17", "--assets", "10", "--seed", "3"});
    TempDir dirs;
    qputenv("XDG_CACHE_HOME", dirs.filePath("cache").toUtf8());
    const QString dest = dirs.filePath("dest");
    QDir().mkpath(dest);

    BackupSession session;
    session.connect(phone.udid());
    session.readLibrary();
    const BackupPlan plan = session.plan(ExistingBackup::read(dest));
    BackupNode leaf;
    for (const BackupNode& candidate : plan.allLeaves())
        if (leaf.assetUUIDs.isEmpty())
            leaf = candidate;
    ASSERT_FALSE(leaf.assetUUIDs.isEmpty());
    const LibraryAsset first = plan.assetsByUUID.value(leaf.assetUUIDs.first());
    const QString video = "/" + first.directory + "/" + first.filename;
    constexpr qint64 kVideoBytes = qint64(1) << 30;
    ASSERT_TRUE(QFile::resize(phone.deviceFolder() + "/media" + video, kVideoBytes)); // sparse
    phone.setFaults({{"bytesPerSecond", 40000000}});
    BackupOptions options;
    options.nodeIDs = {leaf.id};

    QElapsedTimer clock;
    std::atomic<qint64> stopAt = -1;      // ms on `clock`
    QList<QPair<qint64, uint64_t>> bytes; // (ms, bytes of the run so far), on the run's thread
    const BackupSession::RunControl control{[&] { return stopAt >= 0 && clock.elapsed() >= stopAt; },
                                            [&](const BackupEvent& event) {
                                                if (event.kind != BackupEvent::Kind::progress ||
                                                    event.progress.fileBytesDone == 0)
                                                    return;
                                                bytes.append({clock.elapsed(), event.progress.bytesDone});
                                                if (stopAt < 0)
                                                    stopAt = clock.elapsed() + 1000;
                                            }};
    clock.start();
    const BackupSummary stopped = session.run(plan, dest, options, control);
    const qint64 returnedAfterStop = clock.elapsed() - stopAt;

    EXPECT_TRUE(stopped.cancelled);
    EXPECT_LT(returnedAfterStop, 2000);
    ASSERT_GE(bytes.size(), 2);
    for (qsizetype i = 1; i < bytes.size(); ++i) {
        EXPECT_LE(bytes[i].first - bytes[i - 1].first, 1000) << "no progress for over a second";
        EXPECT_GE(bytes[i].second, bytes[i - 1].second);
    }
    EXPECT_GT(bytes.last().second, bytes.first().second);
    for (const ManifestRow& row : readManifestRows(dest))
        EXPECT_NE(row.sourcePath, video);
    qint64 largest = 0;
    for (QDirIterator it(dest, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories); it.hasNext();)
        largest = std::max(largest, QFileInfo(it.next()).size());
    EXPECT_LT(largest, 100 << 20) << "part of the video was left in the backup folder";

    phone.setFaults({});
    BackupSession again;
    again.connect(phone.udid());
    again.readLibrary();
    const BackupSummary completed = again.run(again.plan(ExistingBackup::read(dest)), dest, options, {});
    EXPECT_FALSE(completed.cancelled);
    EXPECT_TRUE(completed.errors.isEmpty()) << completed.errors.join('\n').toStdString();
    bool videoRecorded = false;
    for (const ManifestRow& row : readManifestRows(dest))
        videoRecorded = videoRecorded || (row.sourcePath == video && row.size == kVideoBytes);
    EXPECT_TRUE(videoRecorded);
}
