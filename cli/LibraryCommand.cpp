#include "LibraryCommand.h"

#include "DescribedError.h"
#include "PhotosDatabaseFile.h"
#include "backup/BackupSession.h"
#include "library/LibrarySnapshot.h"
#include "library/PhotoLibrary.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <stdexcept>

namespace {

template <typename T>
QJsonValue orNull(const std::optional<T>& value)
{
    return value ? QJsonValue(*value) : QJsonValue(QJsonValue::Null);
}

QJsonObject assetJson(const LibraryAsset& asset)
{
    return {
        {"pk", qint64(asset.pk)},
        {"uuid", asset.uuid},
        {"directory", asset.directory},
        {"filename", asset.filename},
        {"originalFilename", orNull(asset.originalFilename)},
        {"dateCreated", orNull(asset.dateCreated)},
        {"isVideo", asset.isVideo},
        {"kindSubtype", qint64(asset.kindSubtype)},
        {"isHidden", asset.isHidden},
        {"isTrashed", asset.isTrashed},
        {"savedAssetType", orNull(std::optional<qint64>(asset.savedAssetType))},
        {"bundleScope", orNull(std::optional<qint64>(asset.bundleScope))},
        {"hasAdjustments", asset.hasAdjustments},
    };
}

QJsonObject albumJson(const LibraryAlbum& album)
{
    return {
        {"pk", qint64(album.pk)},
        {"uuid", album.uuid},
        {"title", album.title},
        {"isFolder", album.isFolder},
        {"parentPK", orNull(std::optional<qint64>(album.parentPK))},
        {"isTrashed", album.isTrashed},
    };
}

QByteArray libraryJson(const PhotoLibrary& library)
{
    QJsonArray assets;
    for (const LibraryAsset& asset : library.assets)
        assets.append(assetJson(asset));
    QJsonArray albums;
    for (const LibraryAlbum& album : library.albums)
        albums.append(albumJson(album));
    QJsonObject membership;
    for (auto it = library.membership.cbegin(); it != library.membership.cend(); ++it) {
        QJsonArray members;
        for (int64_t pk : it.value())
            members.append(qint64(pk));
        membership.insert(QString::number(it.key()), members);
    }
    const QJsonObject root{{"assets", assets},
                           {"albums", albums},
                           {"membership", membership},
                           {"schemaNotes", QJsonArray::fromStringList(library.schemaNotes)},
                           {"problems", QJsonArray::fromStringList(library.problems)}};
    return QJsonDocument(root).toJson(QJsonDocument::Indented);
}

void printCounts(const PhotoLibrary& library, QTextStream& out)
{
    const auto assets = [&](auto predicate) {
        return std::count_if(library.assets.cbegin(), library.assets.cend(), predicate);
    };
    const auto folders = std::count_if(library.albums.cbegin(), library.albums.cend(),
                                       [](const LibraryAlbum& album) { return album.isFolder; });
    const QList<std::pair<QString, qsizetype>> counts{
        {"Assets", library.assets.size()},
        {"Trashed", assets([](const LibraryAsset& a) { return a.isTrashed; })},
        {"Hidden", assets([](const LibraryAsset& a) { return a.isHidden; })},
        {"Videos", assets([](const LibraryAsset& a) { return a.isVideo; })},
        {"Live photos", assets([](const LibraryAsset& a) { return a.isLivePhoto(); })},
        {"Edited", assets([](const LibraryAsset& a) { return a.hasAdjustments; })},
        {"Albums", library.albums.size() - folders},
        {"Folders", folders},
    };
    for (const auto& [label, count] : counts)
        out << (label + ":").leftJustified(13) << count << "\n";
    out << "Schema notes:\n";
    for (const QString& note : library.schemaNotes)
        out << "  " << note << "\n";
    for (const QString& problem : library.problems)
        out << "WARNING " << problem << "\n";
}

} // namespace

QString LibraryCommand::summary() const { return QStringLiteral("Read a Photos database and show what it holds"); }

void LibraryCommand::configure(QCommandLineParser& parser) const
{
    parser.addOption({"db",
                      "Read this Photos database file (with its -wal and -shm beside it). The file is "
                      "read from a temporary copy and left as it is.",
                      "FILE"});
    parser.addOption({"udid",
                      "Copy and read the Photos database of the connected device with this UDID (by "
                      "default the first connected device).",
                      "UDID"});
    parser.addOption({"json", "Print the whole library (assets, albums, membership, schema notes) as JSON."});
}

PhotoLibrary LibraryCommand::readDevice(const std::optional<QString>& udid, CommandContext& context) const
{
    BackupSession session;
    session.connect(udid);
    const QString folder = LibrarySnapshot::cacheFolder(session.device().udid);
    context.err << "Copying the Photos database of " << session.device().summary() << " into " << folder << "\n";
    context.err.flush();
    return session.readLibrary();
}

int LibraryCommand::run(const QCommandLineParser& parser, CommandContext& context)
{
    if (!parser.positionalArguments().isEmpty())
        return usageError(context, "unexpected argument \"" + parser.positionalArguments().first() + "\".");
    if (parser.isSet("db") && parser.isSet("udid"))
        return usageError(context, "--db and --udid cannot be used together.");

    PhotoLibrary library;
    try {
        if (parser.isSet("db"))
            library = PhotosDatabaseFile::read(parser.value("db"));
        else
            library = readDevice(parser.isSet("udid") ? std::optional(parser.value("udid")) : std::nullopt, context);
    } catch (const std::exception& error) {
        context.err << describeError(error) << "\n";
        return ExitCode::failed;
    }

    if (parser.isSet("json"))
        context.out << QString::fromUtf8(libraryJson(library));
    else
        printCounts(library, context.out);
    return ExitCode::ok;
}
