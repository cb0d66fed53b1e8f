#include "Generation.h"

#include "MkdeviceError.h"

#include <QVersionNumber>

namespace {

// Every entity any generation has, in Core Data's order: alphabetical (ignoring case), each
// sub-entity right after its parent. A generation numbers the ones it has from 1 in this order,
// which is why an entity added before "GenericAlbum" renames the album membership table.
struct EntityRow {
    const char* name;
    const char* parent;
    int firstMajor;
    int lastMajor;
};

constexpr int kLast = 99;

// iOS 13 to 26 match the databases of the macOS release of the same year. For iOS 12 the only
// known facts are Album = 23 and GenericAsset = 30; the entities it lacks (AssetAnalysisState,
// AssetDescription, DeferredRebuildFace, LegacyFaceAlbum) are our choice to meet them.
constexpr EntityRow kEntities[] = {
    {"AdditionalAssetAttributes", "", 12, kLast},
    {"Adjustment", "", 12, 13},
    {"AlbumList", "", 12, kLast},
    {"Asset", "", 14, kLast},
    {"AssetAnalysisState", "", 13, kLast},
    {"AssetContributor", "", 16, kLast},
    {"AssetDescription", "", 13, kLast},
    {"AssetResourceUploadJob", "", 26, kLast},
    {"AssetResourceUploadJobConfiguration", "", 26, kLast},
    {"AssetResourceUploadJobRequest", "", 26, kLast},
    {"BackgroundJobWorkItem", "", 18, kLast},
    {"CharacterRecognitionAttributes", "", 15, kLast},
    {"CloudFeedEntry", "", 12, kLast},
    {"CloudFeedAssetsEntry", "CloudFeedEntry", 12, kLast},
    {"CloudFeedCommentsEntry", "CloudFeedEntry", 12, kLast},
    {"CloudMaster", "", 12, kLast},
    {"CloudMasterMediaMetadata", "", 12, kLast},
    {"CloudResource", "", 12, kLast},
    {"CloudSharedAlbumInvitationRecord", "", 12, kLast},
    {"CloudSharedComment", "", 12, kLast},
    {"Codec", "", 12, 14},
    {"ComputedAssetAttributes", "", 12, kLast},
    {"ComputeSyncAttributes", "", 17, kLast}, // from 17.6 (see entities())
    {"DeferredRebuildFace", "", 13, kLast},
    {"DetectedFace", "", 12, kLast},
    {"DetectedFaceGroup", "", 12, kLast},
    {"DetectedFaceprint", "", 12, kLast},
    {"DetectionTrait", "", 15, kLast},
    {"EditedIPTCAttributes", "", 12, kLast},
    {"ExtendedAttributes", "", 12, kLast},
    {"FaceCrop", "", 12, kLast},
    {"FileSystemBookmark", "", 12, kLast},
    {"FileSystemVolume", "", 12, kLast},
    {"GenericAlbum", "", 12, kLast},
    {"Album", "GenericAlbum", 12, kLast},
    {"CloudSharedAlbum", "Album", 12, kLast},
    {"DuplicateAlbum", "Album", 16, kLast},
    {"LegacyFaceAlbum", "Album", 13, kLast},
    {"PhotoStreamAlbum", "Album", 12, kLast},
    {"ProjectAlbum", "Album", 12, kLast},
    {"Conversation", "GenericAlbum", 15, kLast},
    {"FetchingAlbum", "GenericAlbum", 12, kLast},
    {"Folder", "GenericAlbum", 12, kLast},
    {"ImportSession", "GenericAlbum", 12, kLast},
    {"GenericAsset", "", 12, 13},
    {"Asset", "GenericAsset", 12, 13},
    {"GlobalKeyValue", "", 14, kLast},
    {"GraphEdge", "", 18, kLast},
    {"GraphEdgeAdditionalLabelAssignment", "", 26, kLast},
    {"GraphEdgeValue", "", 18, kLast},
    {"GraphLabel", "", 18, kLast},
    {"GraphNode", "", 18, kLast},
    {"GraphNodeAdditionalLabelAssignment", "", 26, kLast},
    {"GraphNodeValue", "", 18, kLast},
    {"InternalResource", "", 12, kLast},
    {"Keyword", "", 12, kLast},
    {"LegacyFace", "", 12, kLast},
    {"LimitedLibraryFetchFilter", "", 14, kLast},
    {"MediaAnalysisAssetAttributes", "", 12, kLast},
    {"Memory", "", 12, kLast},
    {"MigrationHistory", "", 14, kLast},
    {"Moment", "", 12, kLast},
    {"MomentList", "", 12, 14},
    {"MomentShare", "", 12, 13},
    {"MomentShareParticipant", "", 12, 13},
    {"Person", "", 12, kLast},
    {"PersonReference", "", 12, kLast},
    {"PhotoAnalysisAssetAttributes", "", 16, kLast},
    {"PhotosHighlight", "", 12, kLast},
    {"Question", "", 12, kLast},
    {"SceneClassification", "", 12, kLast},
    {"Sceneprint", "", 12, kLast},
    {"SearchData", "", 12, 14},
    {"Share", "", 14, kLast},
    {"CollectionShare", "Share", 26, kLast},
    {"LibraryScope", "Share", 14, kLast},
    {"MomentShare", "Share", 14, kLast},
    {"ShareParticipant", "", 14, kLast},
    {"Suggestion", "", 12, kLast},
    {"TransientInternalResource", "", 26, kLast},
    {"UniformTypeIdentifier", "", 12, 14},
    {"UnmanagedAdjustment", "", 12, kLast},
    {"UserFeedback", "", 15, kLast},
    {"VisualSearchAttributes", "", 15, kLast},
};

bool isBefore17_6(const QString& version)
{
    const QVersionNumber number = QVersionNumber::fromString(version);
    return number.majorVersion() == 17 && number.minorVersion() < 6;
}

} // namespace

const QList<Generation>& Generation::all()
{
    static const QList<Generation> generations = {
        {"ios12", 12, "12.5.7", "iPhone8,1", 12310},   {"ios13", 13, "13.7", "iPhone10,4", 13703},
        {"ios14", 14, "14.8.1", "iPhone12,1", 14208},  {"ios15", 15, "15.8.3", "iPhone13,2", 15331},
        {"ios16", 16, "16.7.10", "iPhone14,5", 16502}, {"ios17", 17, "17.6.1", "iPhone15,2", 17600},
        {"ios18", 18, "18.6.2", "iPhone16,1", 18600},  {"ios26", 26, "26.1", "iPhone17,1", 19320},
    };
    return generations;
}

const Generation& Generation::named(const QString& id)
{
    for (const Generation& generation : all()) {
        if (generation.id == id)
            return generation;
    }
    throw MkdeviceError::usage(
        QStringLiteral("“%1” is not a generation this tool knows; use one of %2.").arg(id, ids().join(", ")));
}

QStringList Generation::ids()
{
    QStringList result;
    for (const Generation& generation : all())
        result << generation.id;
    return result;
}

QList<Entity> Generation::entities(const QString& version) const
{
    QList<Entity> result;
    for (const EntityRow& row : kEntities) {
        if (major < row.firstMajor || major > row.lastMajor)
            continue;
        // The entity that moved Album from 28 to 29 arrived with 17.6.
        if (QLatin1String(row.name) == QLatin1String("ComputeSyncAttributes") && isBefore17_6(version))
            continue;
        Entity entity;
        entity.name = QString::fromLatin1(row.name);
        entity.parent = QString::fromLatin1(row.parent);
        entity.number = result.size() + 1;
        result << entity;
    }
    for (Entity& entity : result) {
        if (!entity.parent.isEmpty())
            entity.parentNumber = entityNamed(result, entity.parent).number;
    }
    // Core Data's own change-tracking entities keep fixed numbers.
    result << Entity{"CHANGE", {}, 16001, 0} << Entity{"TRANSACTION", {}, 16002, 0}
           << Entity{"TRANSACTIONSTRING", {}, 16003, 0};
    return result;
}

int64_t Generation::modelVersionFor(const QString& version) const
{
    return isBefore17_6(version) ? 17120 : modelVersion;
}

const Entity& entityNamed(const QList<Entity>& entities, const QString& name)
{
    for (const Entity& entity : entities) {
        if (entity.name == name)
            return entity;
    }
    throw std::logic_error("no entity named " + name.toStdString());
}

bool hasEntity(const QList<Entity>& entities, const QString& name)
{
    for (const Entity& entity : entities) {
        if (entity.name == name)
            return true;
    }
    return false;
}
