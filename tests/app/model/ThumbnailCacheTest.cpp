#include "ThumbnailCache.h"
#include "DemoSource.h"
#include "FakeMediaSource.h"
#include "ModelFixture.h"

#include <QMutex>
#include <QSemaphore>
#include <QThread>

#include <gtest/gtest.h>

namespace {

// A device whose files are read one at a time as the test lets them through.
class GatedSource : public FakeMediaSource {
public:
    QSemaphore gate{1000};
    QMutex mutex;
    QStringList reads;
    bool readOnGuiThread = false;

    QByteArray readFile(const QString& path) override
    {
        {
            QMutexLocker lock(&mutex);
            reads << path;
            readOnGuiThread = readOnGuiThread || QThread::currentThread() == qApp->thread();
        }
        gate.acquire();
        return FakeMediaSource::readFile(path);
    }
    QString lastRead()
    {
        QMutexLocker lock(&mutex);
        return reads.value(reads.size() - 1);
    }
};

LibraryAsset asset(const QString& name)
{
    LibraryAsset asset;
    asset.uuid = name;
    asset.directory = "DCIM/100APPLE";
    asset.filename = name + ".HEIC";
    return asset;
}

QString path(const QString& name, const QString& size = "5005")
{
    return asset(name).thumbnailPath().replace("5005", size);
}

} // namespace

// Thumbnails are read and decoded off the GUI thread and announced there; the smaller size stands
// in for a missing one; what cannot be had is remembered and not asked for again until cleared.
// Waiting requests go highest priority first, the newest first among equals (the grid asks for the
// visible tiles first), and one dropped (scrolled away) is never read.
TEST(ThumbnailCache, ReadsOnWorkersByPriorityAndRemembersWhatIsMissing)
{
    auto source = std::make_shared<GatedSource>();
    const QByteArray picture = DemoSource().readFile("/a picture");
    source->addFile(path("B", "5003"), picture);
    source->addFile(path("D"), "not a picture");
    for (const QString name : {"A", "a1", "b1", "b2", "b3", "b4", "b5"})
        source->addFile(path(name), picture);
    ThumbnailCache cache;
    cache.setSource(source);
    QStringList arrived, missing;
    QObject::connect(&cache, &ThumbnailCache::arrived, [&](const QString& uuid) { arrived << uuid; });
    QObject::connect(&cache, &ThumbnailCache::missing, [&](const QString& uuid) { missing << uuid; });
    for (const QString name : {"A", "B", "C", "D"})
        cache.request(asset(name));
    ASSERT_TRUE(waitFor([&] { return cache.pendingCount() == 0; }));
    arrived.sort();
    missing.sort();
    EXPECT_EQ(arrived, (QStringList{"A", "B"}));
    EXPECT_EQ(missing, (QStringList{"C", "D"}));
    EXPECT_EQ(cache.image("A").size(), QSize(240, 240));
    EXPECT_FALSE(source->readOnGuiThread);
    const qsizetype reads = source->reads.size();
    cache.request(asset("C"));
    cache.request(asset("A"));
    EXPECT_EQ(cache.pendingCount(), 0);
    EXPECT_EQ(source->reads.size(), reads);

    source->gate.acquire(source->gate.available()); // closed
    cache.clear();
    EXPECT_FALSE(cache.isMissing("D"));
    EXPECT_TRUE(cache.image("A").isNull());
    cache.request(asset("A"));
    cache.request(asset("a1"));
    const auto readCount = [&] {
        QMutexLocker lock(&source->mutex);
        return source->reads.size();
    };
    ASSERT_TRUE(waitFor([&] { return readCount() == reads + 2; })); // both workers busy
    cache.request(asset("b1"));
    cache.request(asset("b2"));
    cache.request(asset("b3"), 5);
    cache.request(asset("b4"));
    cache.request(asset("b5"));
    cache.drop("b2");
    cache.request(asset("b1"), 9);
    for (const QString name : {"b1", "b3", "b5", "b4"}) {
        source->gate.release();
        EXPECT_TRUE(waitFor([&] { return source->lastRead() == path(name); }, 5000)) << name.toStdString();
    }
    source->gate.release(100);
    ASSERT_TRUE(waitFor([&] { return cache.pendingCount() == 0; }));
    EXPECT_FALSE(source->reads.contains(path("b2")));
}

// On a phone that keeps its thumbnails in the smaller size only, every item's picture arrives, read
// while a backup copies from the same phone, which still ends without an error.
TEST(ThumbnailCache, SmallerSizeFromAPhoneWhileItIsBackedUp)
{
    ModelSetup setup;
    ASSERT_TRUE(setup.connected({"--thumbnails", "5003"}));
    ASSERT_TRUE(setup.slowLink());
    ThumbnailCache& cache = setup.app->thumbnails();
    QSet<QString> arrived;
    QObject::connect(&cache, &ThumbnailCache::arrived, [&](const QString& uuid) { arrived << uuid; });
    for (const LibraryAsset& asset : setup.app->library()->assets)
        cache.request(asset);
    ASSERT_TRUE(setup.startCopying());
    ASSERT_TRUE(waitFor([&] { return cache.pendingCount() == 0; }));
    ASSERT_EQ(arrived.size(), setup.app->library()->assets.size());
    const QSize size = cache.image(*arrived.begin()).size();
    EXPECT_EQ(std::max(size.width(), size.height()), 480);
    ASSERT_TRUE(setup.reaches(RunPhase::Kind::finished));
    EXPECT_TRUE(setup.app->run()->phase.summary->errors.isEmpty());
}
