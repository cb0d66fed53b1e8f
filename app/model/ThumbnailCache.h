#pragma once

#include "library/LibraryAsset.h"

#include <QCache>
#include <QHash>
#include <QImage>
#include <QMap>
#include <QObject>
#include <QSet>
#include <QString>
#include <QThreadPool>

#include <memory>
#include <utility>

class MediaSource;

// The thumbnails of the main window, read from the device on demand and kept in memory only (at
// most 2000). Files are read and decoded on worker threads; results are applied on the GUI thread,
// which announces each arrival. A thumbnail that cannot be read is remembered as missing, so
// scrolling does not ask the device for it again until the cache is cleared.
//
// Requests wait in a queue of their own, highest priority first (the newest first among equals), so
// that the grid can ask for the visible tiles first and drop those that scrolled away.
class ThumbnailCache : public QObject {
    Q_OBJECT
public:
    static constexpr int countLimit = 2000;

    explicit ThumbnailCache(QObject* parent = nullptr);
    ~ThumbnailCache() override;

    // Where thumbnails are read from; none reads nothing. Clears the cache.
    void setSource(std::shared_ptr<MediaSource> source);
    // Empties the cache and the missing set, and forgets every request.
    void clear();

    // The cached image, or a null image.
    QImage image(const QString& uuid) const;
    bool isMissing(const QString& uuid) const { return m_missing.contains(uuid); }
    // Asks for the asset's thumbnail unless it is cached, missing or asked for already (then its
    // priority is raised or lowered to this one).
    void request(const LibraryAsset& asset, int priority = 0);
    // Forgets a request that has not started yet.
    void drop(const QString& uuid);
    int pendingCount() const { return int(m_queue.size()) + m_inFlight; }

signals:
    // The thumbnail of this asset is now in the cache.
    void arrived(const QString& uuid);
    // The thumbnail of this asset cannot be had (until the next clear).
    void missing(const QString& uuid);

private:
    using QueueKey = std::pair<int, quint64>; // (−priority, −order): the first entry goes next
    struct Result {
        quint64 generation;
        QString uuid;
        QImage image;
    };

    void startNext();
    void finish(const Result& result);

    mutable QCache<QString, QImage> m_cache;
    QSet<QString> m_missing;
    QMap<QueueKey, QString> m_queue;
    QHash<QString, std::pair<QueueKey, QString>> m_queued; // uuid → queue key and thumbnail path
    QSet<QString> m_started;
    std::shared_ptr<MediaSource> m_source;
    quint64 m_generation = 0;
    quint64 m_order = 0;
    int m_inFlight = 0;
    QThreadPool m_pool;
};
