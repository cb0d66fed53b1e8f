#include "AnswerKey.h"

#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace {

template <class T>
QJsonValue optional(const std::optional<T>& value)
{
    return value ? QJsonValue(*value) : QJsonValue(QJsonValue::Null);
}

QJsonValue optionalInteger(const std::optional<int64_t>& value)
{
    return value ? QJsonValue(qint64(*value)) : QJsonValue(QJsonValue::Null);
}

} // namespace

QByteArray AnswerKey::toJson(const Generation& generation, const PhoneContent& content, bool filesWritten)
{
    QHash<int64_t, QString> albumUUIDs;
    for (const PhoneAlbum& album : content.albums)
        albumUUIDs.insert(album.pk, album.uuid);
    QHash<int64_t, QList<int64_t>> albumsOfAsset;
    for (const Membership& m : content.memberships)
        albumsOfAsset[m.assetPK] << m.albumPK;

    QJsonArray assets;
    for (const PhoneAsset& asset : content.assets) {
        QJsonObject item;
        item["pk"] = qint64(asset.pk);
        item["uuid"] = asset.uuid;
        item["directory"] = asset.directory;
        item["filename"] = asset.filename;
        item["originalFilename"] = optional(asset.originalFilename);
        if (asset.dateCreated && asset.dateStoredAsInteger)
            item["dateCreated"] = qint64(*asset.dateCreated);
        else
            item["dateCreated"] = optional(asset.dateCreated);
        item["isVideo"] = asset.isVideo;
        item["isLivePhoto"] = asset.isLivePhoto();
        item["isHidden"] = asset.isHidden;
        item["isTrashed"] = asset.isTrashed;
        item["savedAssetType"] = optionalInteger(asset.savedAssetType);
        item["bundleScope"] = optionalInteger(asset.bundleScope);
        item["hasAdjustments"] = asset.hasAdjustments;
        item["category"] = categoryName(asset.category());

        QList<int64_t> albumPKs = albumsOfAsset.value(asset.pk);
        std::sort(albumPKs.begin(), albumPKs.end());
        QJsonArray albums;
        for (int64_t pk : albumPKs)
            albums << albumUUIDs.value(pk);
        item["albums"] = albums;

        QJsonArray files;
        for (const MediaFile& file : asset.files) {
            QJsonObject entry;
            entry["component"] = file.component;
            entry["path"] = file.devicePath;
            entry["sha256"] =
                file.sha256 ? QJsonValue(QString::fromLatin1(*file.sha256)) : QJsonValue(QJsonValue::Null);
            entry["size"] = file.size ? QJsonValue(qint64(*file.size)) : QJsonValue(QJsonValue::Null);
            files << entry;
        }
        item["files"] = files;
        item["thumbnail"] = asset.thumbnail ? QJsonValue(asset.thumbnail->devicePath) : QJsonValue(QJsonValue::Null);
        assets << item;
    }

    QJsonArray albums;
    for (const PhoneAlbum& album : content.albums) {
        QJsonObject entry;
        entry["pk"] = qint64(album.pk);
        entry["uuid"] = album.uuid;
        entry["title"] = optional(album.title);
        entry["isFolder"] = album.isFolder();
        entry["parentUUID"] =
            album.parentPK ? QJsonValue(albumUUIDs.value(*album.parentPK)) : QJsonValue(QJsonValue::Null);
        entry["isTrashed"] = album.isTrashed;
        entry["kind"] = qint64(album.kind);
        albums << entry;
    }

    QJsonArray unknown;
    if (filesWritten) {
        for (const MediaFile& file : content.unknownFiles)
            unknown << file.devicePath;
    }

    QJsonObject root;
    root["generation"] = generation.id;
    root["assets"] = assets;
    root["albums"] = albums;
    root["unknownFiles"] = unknown;
    return QJsonDocument(root).toJson(QJsonDocument::Indented);
}
