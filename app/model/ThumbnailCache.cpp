#include "ThumbnailCache.h"

#include "device/MediaSource.h"

#include <exception>

namespace {

// The device lets one reader at a time through; two keep it busy while the other decodes.
constexpr int kWorkers = 2;
const QString kThumbnail = QStringLiteral("5005.JPG");
const QString kSmallerThumbnail = QStringLiteral("5003.JPG");

// The item's thumbnail, else the smaller one in the same folder (some phones keep only that);
// a null image when neither can be read and decoded.
QImage loadThumbnail(MediaSource& source, const QString& path)
{
    QStringList candidates{path};
    if (path.endsWith("/" + kThumbnail))
        candidates << path.chopped(kThumbnail.size()) + kSmallerThumbnail;
    for (const QString& candidate : candidates) {
        try {
            if (QImage image = QImage::fromData(source.readFile(candidate)); !image.isNull())
                return image;
        } catch (const std::exception&) {
        }
    }
    return {};
}

} // namespace

ThumbnailCache::ThumbnailCache(QObject* parent) : QObject(parent)
{
    m_cache.setMaxCost(countLimit);
    m_pool.setMaxThreadCount(kWorkers);
}

ThumbnailCache::~ThumbnailCache()
{
    m_queue.clear();
    m_pool.waitForDone();
}

void ThumbnailCache::setSource(std::shared_ptr<MediaSource> source)
{
    m_source = std::move(source);
    clear();
}

void ThumbnailCache::clear()
{
    ++m_generation;
    m_cache.clear();
    m_missing.clear();
    m_queue.clear();
    m_queued.clear();
    m_started.clear();
}

QImage ThumbnailCache::image(const QString& uuid) const
{
    const QImage* image = m_cache.object(uuid);
    return image ? *image : QImage();
}

void ThumbnailCache::request(const LibraryAsset& asset, int priority)
{
    if (m_cache.contains(asset.uuid) || m_missing.contains(asset.uuid) || m_started.contains(asset.uuid))
        return;
    const QueueKey key{-priority, ~m_order++};
    if (const auto queued = m_queued.constFind(asset.uuid); queued != m_queued.cend())
        m_queue.remove(queued->first);
    m_queue.insert(key, asset.uuid);
    m_queued.insert(asset.uuid, {key, asset.thumbnailPath()});
    startNext();
}

void ThumbnailCache::drop(const QString& uuid)
{
    if (const auto queued = m_queued.constFind(uuid); queued != m_queued.cend()) {
        m_queue.remove(queued->first);
        m_queued.erase(queued);
    }
}

void ThumbnailCache::startNext()
{
    while (m_source && m_inFlight < kWorkers && !m_queue.isEmpty()) {
        const QString uuid = m_queue.take(m_queue.firstKey());
        const QString path = m_queued.take(uuid).second;
        m_started.insert(uuid);
        ++m_inFlight;
        m_pool.start([this, source = m_source, generation = m_generation, uuid, path] {
            Result result{generation, uuid, loadThumbnail(*source, path)};
            QMetaObject::invokeMethod(
                this, [this, result] { finish(result); }, Qt::QueuedConnection);
        });
    }
}

void ThumbnailCache::finish(const Result& result)
{
    --m_inFlight;
    if (result.generation == m_generation) {
        m_started.remove(result.uuid);
        if (result.image.isNull()) {
            m_missing.insert(result.uuid);
            emit missing(result.uuid);
        } else {
            m_cache.insert(result.uuid, new QImage(result.image), 1);
            emit arrived(result.uuid);
        }
    }
    startNext();
}
