#include "ContentBuilder.h"

#include "ThumbnailMaker.h"

#include <QDateTime>

#include <algorithm>

namespace {

double referenceSeconds(int year, int month, int day, int hour)
{
    const QDateTime date(QDate(year, month, day), QTime(hour, 0), Qt::UTC);
    return double(date.toSecsSinceEpoch() - 978307200);
}

const double kFirstDate = referenceSeconds(2019, 6, 1, 9);
const double kLastDate = referenceSeconds(2025, 10, 31, 18);
const double kRecentDate = referenceSeconds(2025, 11, 18, 10); // "today" on the phone

constexpr int kCameraFolderCapacity = 990; // leaves room for the odd extra item; never over 1000
constexpr int64_t MB = 1000 * 1000;

struct AlbumFixture {
    const char* tag;
    const char* title;
    const char* parentTag; // "" = top level
    bool trashed;
    bool empty;
};

// In order of priority: --albums K keeps the first K. "added" is written only to the log.
const AlbumFixture kAlbumFixtures[] = {
    {"added", "Added today", "", false, false},
    {"family", "Family", "", false, false},
    {"family2", "family", "", false, false},
    {"paris", "Paris", "europe", false, false},
    {"rome", "Rome", "europe", false, false},
    {"roadtrip", "Road trip", "travel", false, false},
    {"empty", "Empty album", "", false, true},
    {"odd", "Trips: 2023/2024 *best* \"picks\" <draft>?|\\", "", false, false},
    {"pumpkin", "Pumpkin Farm", "", false, false},
    {"hayride", "Hay ride", "pumpkinFolder", false, false},
    {"deleted", "Deleted album", "", true, false},
    {"survivor", "Kept from an old folder", "oldFolder", false, false},
    {"dots", "...Secret plans", "", false, false},
    {"control", "Bell\a, tab\t and\nnew line", "", false, false},
    {"unicode1", "\xC3\x81gua", "", false, false},
    {"unicode2",
     "Fr\xC3\xBChst\xC3\xBC"
     "ck \xF0\x9F\xA5\x90",
     "", false, false},
    {"unicode3", "\xE6\x9D\xB1\xE4\xBA\xAC 2024", "", false, false},
    {"long", "", "", false, false}, // 130 characters, made below
    {"emptytitle", "", "", false, false},
    {"favs", "Favourites", "", false, false},
};

const char* const kGenericWords[] = {"Birthday",   "Beach",   "Garden", "Hiking",  "Concert", "Wedding", "Christmas",
                                     "Graduation", "Camping", "Museum", "Snow",    "Sunset",  "Dogs",    "Cats",
                                     "Food",       "Picnic",  "Skiing", "Cycling", "Market",  "Lake"};

QString longTitle()
{
    QString title = "A very long album title that goes on and on";
    while (title.size() < 130)
        title += " and on";
    return title.left(130);
}

} // namespace

ContentBuilder::ContentBuilder(const MkdeviceOptions& options, const Generation& generation)
    : m_options(options), m_generation(generation), m_root(options.seed), m_random(options.seed)
{
}

PhoneContent ContentBuilder::build()
{
    PhoneContent content;
    DeterministicRandom setup = m_root.fork(1);
    m_firstCameraNumber = 901 + int(setup.below(40));
    m_cameraNumber = m_firstCameraNumber;
    // The first camera folder is already partly full, so that even a small phone has two.
    m_cameraPlaced = kCameraFolderCapacity - 60 - int(setup.below(40));
    m_cloudGroups = 8 + m_options.assets / 4000;

    buildAlbums(content);

    const int total = m_options.assets;
    const int recentCount = total == 0 ? 0 : std::min(total, std::max(3, total / 100));
    const int olderCount = total - recentCount;
    QList<Recipe> recipes = fixtureRecipes();
    if (recipes.size() > olderCount)
        recipes.resize(olderCount);
    m_random = m_root.fork(2);
    while (recipes.size() < olderCount)
        recipes << randomRecipe();
    for (int i = 0; i < recentCount; ++i)
        recipes << recentRecipe(i);

    buildAssets(content, recipes);
    buildMemberships(content, recipes);
    addUnknownFiles(content);
    return content;
}

QList<ContentBuilder::Recipe> ContentBuilder::fixtureRecipes() const
{
    const bool swy = m_generation.hasSharedWithYou();
    QList<Recipe> list;
    auto add = [&](Recipe recipe) { list << recipe; };
    Recipe r;

    r = {};
    r.live = true;
    r.favorite = true;
    r.albumTags = {"family", "paris", "favs"};
    add(r);
    r = {};
    r.live = true;
    r.edited = true;
    r.albumTags = {"paris"};
    add(r);
    r = {};
    r.media = Media::jpeg;
    r.aae = true;
    r.albumTags = {"rome"};
    add(r);
    r = {};
    r.media = Media::jpeg;
    r.aae = true;
    r.edited = true;
    r.albumTags = {"roadtrip"};
    add(r);
    r = {};
    r.edited = true;
    r.albumTags = {"family"};
    add(r);
    r = {};
    r.media = Media::video;
    r.albumTags = {"roadtrip", "family2"};
    add(r);
    r = {};
    r.media = Media::video;
    r.edited = true;
    add(r);
    r = {};
    r.media = Media::video;
    r.edited = true;
    r.editedStill = true;
    r.albumTags = {"odd"};
    add(r);
    r = {};
    r.media = Media::video;
    r.subtype = 101;
    add(r);
    r = {};
    r.media = Media::png;
    r.integerDate = true;
    add(r);
    r = {};
    r.hidden = true;
    r.albumTags = {"family"};
    add(r);
    r = {};
    r.live = true;
    r.hidden = true;
    add(r);
    r = {};
    r.trashed = true;
    r.albumTags = {"favs"};
    add(r);
    r = {};
    r.media = Media::video;
    r.trashed = true;
    add(r);
    r = {};
    r.onDevice = false;
    r.albumTags = {"family"};
    add(r);
    r = {};
    r.place = Place::cloud;
    r.onDevice = false;
    add(r);
    r = {};
    r.place = Place::cloud;
    r.albumTags = {"unicode1"};
    add(r);
    r = {};
    r.place = Place::cloud;
    r.live = true;
    add(r);
    r = {};
    r.place = Place::cloud;
    r.media = Media::jpeg;
    r.edited = true;
    add(r);
    r = {};
    r.place = Place::sharedAlbum;
    r.media = Media::jpeg;
    add(r);
    r = {};
    r.place = Place::sharedAlbum;
    r.media = Media::jpeg;
    add(r);
    r = {};
    r.place = Place::sharedAlbum;
    r.media = Media::video;
    r.subtype = 100;
    r.sharedAlbum = 1;
    add(r);
    // Shared with You and other libraries exist from iOS 15; before that these are plain items.
    r = {};
    if (swy) {
        r.savedType = 12;
        r.bundleScope = 3;
    }
    add(r);
    r = {};
    if (swy) {
        r.media = Media::jpeg;
        r.bundleScope = 3;
    }
    add(r);
    r = {};
    if (swy) {
        r.savedType = 12;
    }
    add(r);
    r = {};
    if (swy) {
        r.place = Place::cloud;
        r.savedType = 8;
        r.bundleScope = 1;
    }
    add(r);
    // The same picture imported twice: identical bytes, two items.
    r = {};
    r.media = Media::jpeg;
    r.imported = true;
    r.originalName = OriginalName::custom;
    r.customOriginalName = "IMG_4471.JPG";
    r.albumTags = {"long"};
    add(r);
    r.duplicateOf = list.size() - 1;
    r.albumTags = {"emptytitle"};
    add(r);
    r = {};
    r.twinName = true;
    r.albumTags = {"dots"};
    add(r);
    // A still and a separate video sharing a stem: the video is not the still's Live Photo video.
    r = {};
    r.media = Media::jpeg;
    r.albumTags = {"control"};
    add(r);
    r = {};
    r.media = Media::video;
    r.sameStemAs = list.size() - 1;
    add(r);
    r = {};
    r.media = Media::jpeg;
    r.undated = true;
    r.originalName = OriginalName::none;
    add(r);
    r = {};
    r.media = Media::jpeg;
    r.originalName = OriginalName::empty;
    add(r);
    r = {};
    r.media = Media::jpeg;
    r.originalName = OriginalName::custom;
    r.customOriginalName = QString::fromUtf8("\xC3\x89t\xC3\xA9 \xC3\xA0 Paris.jpeg");
    r.albumTags = {"unicode2"};
    add(r);
    r = {};
    r.albumTags = {"deleted"};
    add(r);
    r = {};
    r.albumTags = {"survivor", "unicode3"};
    add(r);
    r = {};
    r.live = true;
    r.albumTags = {"pumpkin", "hayride"};
    add(r);
    r = {};
    r.media = Media::video;
    r.subtype = 102;
    add(r);
    return list;
}

ContentBuilder::Recipe ContentBuilder::randomRecipe()
{
    DeterministicRandom& random = m_random;
    Recipe r;
    const double media = random.fraction() * 100;
    r.media = media < 8 ? Media::video : media < 13 ? Media::png : media < 25 ? Media::jpeg : Media::heic;
    const double place = random.fraction() * 100;
    r.place = place < 10 ? Place::cloud : place < 11.5 ? Place::sharedAlbum : Place::camera;
    if (r.place == Place::sharedAlbum) {
        r.media = r.media == Media::video ? Media::video : Media::jpeg;
        r.sharedAlbum = int(random.below(2));
        return r;
    }
    if (r.media == Media::heic)
        r.live = random.chance(45);
    if (r.media == Media::video) {
        const double kind = random.fraction() * 100;
        r.subtype = kind < 5 ? 101 : kind < 8 ? 102 : 0;
    }
    r.edited = random.chance(6);
    r.aae = r.media != Media::video && random.chance(3);
    r.hidden = random.chance(2);
    r.trashed = random.chance(2);
    r.onDevice = !random.chance(3);
    r.favorite = random.chance(5);
    if (m_generation.hasSharedWithYou()) {
        if (r.place == Place::camera && random.chance(1)) {
            r.savedType = 12;
            r.bundleScope = 3;
        } else if (r.place == Place::cloud && random.chance(5)) {
            r.savedType = 8;
            r.bundleScope = 1;
        }
    }
    return r;
}

ContentBuilder::Recipe ContentBuilder::recentRecipe(int index)
{
    Recipe r;
    r.recent = true;
    r.albumTags = {"added"};
    switch (index % 4) {
    case 0:
        r.live = true;
        break;
    case 1:
        break;
    case 2:
        r.media = Media::video;
        break;
    case 3:
        r.media = Media::png;
        break;
    }
    if (index == 0)
        r.albumTags << "family";
    return r;
}

int64_t ContentBuilder::addAlbum(PhoneContent& content, int64_t kind, const QString& entity,
                                 std::optional<QString> title, std::optional<int64_t> parent, const QString& tag)
{
    PhoneAlbum album;
    album.pk = content.albums.size() + 1;
    album.kind = kind;
    album.entityName = entity;
    album.uuid = m_random.uuid();
    album.title = title;
    album.parentPK = parent;
    album.creationDate = kFirstDate - 86400.0 * 30 + 3607.25 * double(album.pk);
    content.albums << album;
    if (!tag.isEmpty())
        m_albumsByTag.insert(tag, album.pk);
    return album.pk;
}

void ContentBuilder::buildAlbums(PhoneContent& content)
{
    m_random = m_root.fork(3);
    // The phone's own albums, as a fresh library has them: only kinds 2 and 4000 are the user's.
    addAlbum(content, 3998, "Folder", std::nullopt, std::nullopt);
    m_rootFolderPK = addAlbum(content, 3999, "Folder", std::nullopt, std::nullopt);
    const int64_t root = m_rootFolderPK;
    m_importSessionPK = addAlbum(content, 1506, "ImportSession", std::nullopt, std::nullopt);
    addAlbum(content, 1506, "ImportSession", std::nullopt, std::nullopt);
    for (int64_t kind : {1600, 1602, 1607})
        addAlbum(content, kind, "FetchingAlbum", std::nullopt, std::nullopt);
    for (int64_t kind : {1552, 1605, 1606, 1609, 1610, 1611})
        addAlbum(content, kind, "FetchingAlbum", std::nullopt, root);
    addAlbum(content, 3571, "Album", QString("progress-sync"), std::nullopt);
    addAlbum(content, 3572, "Album", QString("progress-ota-restore"), std::nullopt);
    addAlbum(content, 3573, "Album", QString("progress-fs-import"), std::nullopt);
    for (int64_t kind : {4001, 4002, 4003})
        addAlbum(content, kind, "Album", std::nullopt, root);
    for (int64_t kind : {4004, 4005, 4006})
        addAlbum(content, kind, "Folder", std::nullopt, root);
    addAlbum(content, 1507, "FetchingAlbum", QString("Favourite places"), root);

    // iCloud shared albums: outside the folder tree, their items in the same membership table.
    const QStringList sharedTitles = {"Family Stream", "Ski weekend 2024"};
    for (const QString& title : sharedTitles) {
        const int64_t pk = addAlbum(content, 1505, "CloudSharedAlbum", title, std::nullopt);
        PhoneAlbum& album = content.albums.last();
        album.cloudGUID = m_random.uuid();
        const QString person = QString::number(1000000000 + m_random.below(9000000000ull));
        m_sharedAlbumPKs << pk;
        m_sharedAlbumDirectories << "PhotoData/PhotoCloudSharingData/" + person + "/" + *album.cloudGUID + "/100CLOUD";
        m_sharedAlbumNumbers << 0;
    }

    const int albumCount = m_options.albums;
    if (albumCount == 0)
        return;
    const int64_t travel = addAlbum(content, 4000, "Folder", QString("Travel"), root, "travel");
    addAlbum(content, 4000, "Folder", QString("Europe"), travel, "europe");
    addAlbum(content, 4000, "Folder", QString("Pumpkin Farm"), root, "pumpkinFolder");
    addAlbum(content, 4000, "Folder", QString("Empty folder"), root, "emptyFolder");
    addAlbum(content, 4000, "Folder", QString("Old folder"), root, "oldFolder");
    content.albums.last().isTrashed = true;

    const int fixtureCount = std::min<int>(albumCount, std::size(kAlbumFixtures));
    for (int i = 1; i < fixtureCount; ++i) { // "added" comes last
        const AlbumFixture& fixture = kAlbumFixtures[i];
        const QString tag = QString::fromLatin1(fixture.tag);
        const QString title = tag == "long" ? longTitle() : QString::fromUtf8(fixture.title);
        const QString parentTag = QString::fromLatin1(fixture.parentTag);
        const int64_t parent = parentTag.isEmpty() ? root : m_albumsByTag.value(parentTag);
        addAlbum(content, 2, "Album", title, parent, tag);
        content.albums.last().isTrashed = fixture.trashed;
    }

    int64_t collection = 0;
    for (int i = 0; i < albumCount - fixtureCount; ++i) {
        if (i % 25 == 0) {
            collection = addAlbum(content, 4000, "Folder", QString("Collection %1").arg(i / 25 + 1), root);
            if (i % 50 == 25) // every other collection sits one level deeper
                content.albums.last().parentPK = travel;
        }
        const QString title = QString("%1 %2")
                                  .arg(QString::fromLatin1(kGenericWords[m_random.below(std::size(kGenericWords))]))
                                  .arg(2019 + m_random.below(7));
        const int64_t parent = m_random.chance(30) ? collection : root;
        m_genericAlbumPKs << addAlbum(content, 2, "Album", title, parent);
    }

    addAlbum(content, 2, "Album", QString("Added today"), root, "added");
    content.albums.last().recent = true;
    content.albums.last().creationDate = kRecentDate + 120.5;
}

void ContentBuilder::buildAssets(PhoneContent& content, const QList<Recipe>& recipes)
{
    m_random = m_root.fork(4);
    const int olderCount =
        int(std::count_if(recipes.begin(), recipes.end(), [](const Recipe& r) { return !r.recent; }));
    const double span = (kLastDate - kFirstDate) / std::max(1, olderCount);

    for (int i = 0; i < recipes.size(); ++i) {
        const Recipe& recipe = recipes[i];
        PhoneAsset asset;
        asset.pk = i + 1;
        asset.uuid = m_random.uuid();
        asset.recent = recipe.recent;

        double date = recipe.recent ? kRecentDate + 97.0 * (i - olderCount)
                                    : kFirstDate + span * i + span * 0.8 * m_random.fraction();
        date = std::floor(date);
        if (!recipe.integerDate)
            date += double(m_random.below(1000000)) / 1e6;
        if (recipe.duplicateOf >= 0)
            date = *content.assets[recipe.duplicateOf].dateCreated;
        if (!recipe.undated)
            asset.dateCreated = date;
        asset.dateStoredAsInteger = recipe.integerDate;

        asset.isVideo = recipe.media == Media::video;
        asset.kindSubtype = recipe.subtype >= 0          ? recipe.subtype
                            : recipe.media == Media::png ? 10
                            : recipe.live                ? 2
                                                         : 0;
        switch (recipe.media) {
        case Media::heic:
            asset.uniformTypeIdentifier = "public.heic";
            break;
        case Media::jpeg:
            asset.uniformTypeIdentifier = "public.jpeg";
            break;
        case Media::png:
            asset.uniformTypeIdentifier = "public.png";
            break;
        case Media::video:
            asset.uniformTypeIdentifier = "com.apple.quicktime-movie";
            break;
        }
        if (recipe.media == Media::video) {
            const bool uhd = m_random.chance(30);
            asset.width = uhd ? 3840 : 1920;
            asset.height = uhd ? 2160 : 1080;
            asset.duration = double(m_random.between(4, 75)) + m_random.fraction();
        } else if (recipe.media == Media::png) {
            asset.width = 1179;
            asset.height = 2556;
        } else {
            const bool portrait = m_random.chance(25);
            asset.width = portrait ? 3024 : 4032;
            asset.height = portrait ? 4032 : 3024;
        }

        const int64_t placeType = recipe.place == Place::cloud ? 6 : recipe.place == Place::sharedAlbum ? 4 : 3;
        asset.savedAssetType = recipe.savedType.value_or(placeType);
        if (m_generation.hasBundleScope())
            asset.bundleScope = recipe.bundleScope.value_or(recipe.place == Place::sharedAlbum ? 2 : 0);
        asset.isHidden = recipe.hidden;
        asset.isTrashed = recipe.trashed;
        if (recipe.trashed)
            asset.trashedDate = kRecentDate - 86400.0 * double(m_random.between(1, 25)) - 0.5;
        asset.isFavorite = recipe.favorite;
        asset.onDevice = recipe.onDevice;
        if (recipe.live)
            asset.mediaGroupUUID = m_random.uuid();
        if (recipe.place != Place::camera)
            asset.cloudAssetGUID = m_random.uuid();
        if (recipe.imported)
            asset.importSessionPK = m_importSessionPK;
        if (recipe.edited) {
            asset.hasAdjustments = true;
            asset.adjustmentTimestamp = date + 3600.0 * double(m_random.between(1, 48)) + 0.25;
            asset.adjustmentsState = m_generation.hasAdjustmentsState() ? m_random.between(1, 3) : 0;
        }

        nameAsset(asset, recipe, recipes, content);
        switch (recipe.originalName) {
        case OriginalName::same:
            asset.originalFilename = asset.filename;
            if (recipe.place == Place::cloud) // kept under its UUID, shot under a camera name
                asset.originalFilename = QString("IMG_%1.%2")
                                             .arg(m_random.between(1, 9999), 4, 10, QChar('0'))
                                             .arg(asset.filename.section('.', -1));
            break;
        case OriginalName::none:
            break;
        case OriginalName::empty:
            asset.originalFilename = QString("");
            break;
        case OriginalName::custom:
            asset.originalFilename = recipe.customOriginalName;
            break;
        }
        const PhoneAsset* source = recipe.duplicateOf >= 0 ? &content.assets[recipe.duplicateOf] : nullptr;
        addFiles(asset, recipe, source);
        content.assets << asset;
    }
}

void ContentBuilder::nameAsset(PhoneAsset& asset, const Recipe& recipe, const QList<Recipe>& recipes,
                               const PhoneContent& content)
{
    QString ext;
    switch (recipe.media) {
    case Media::heic:
        ext = "HEIC";
        break;
    case Media::jpeg:
        ext = "JPG";
        break;
    case Media::png:
        ext = "PNG";
        break;
    case Media::video:
        ext = "MOV";
        break;
    }
    switch (recipe.place) {
    case Place::camera: {
        if (recipe.twinName) {
            const auto first =
                std::find_if(recipes.begin(), recipes.end(), [](const Recipe& r) { return r.place == Place::camera; });
            const PhoneAsset& source = content.assets[first - recipes.begin()];
            const int folder = source.directory.mid(5, 3).toInt();
            asset.directory = QString("DCIM/%1APPLE").arg(folder + 1);
            asset.filename = source.filename;
        } else if (recipe.sameStemAs >= 0) {
            const PhoneAsset& still = content.assets[recipe.sameStemAs];
            asset.directory = still.directory;
            asset.filename = still.stem() + "." + ext;
        } else {
            const int folder = 100 + m_cameraPlaced / kCameraFolderCapacity;
            const int number = (m_cameraNumber - 1) % 9999 + 1;
            ++m_cameraPlaced;
            ++m_cameraNumber;
            asset.directory = QString("DCIM/%1APPLE").arg(folder);
            asset.filename = QString("IMG_%1.%2").arg(number, 4, 10, QChar('0')).arg(ext);
        }
        break;
    }
    case Place::cloud:
        asset.directory = QString("PhotoData/CPLAssets/group%1").arg(1 + m_random.below(m_cloudGroups));
        asset.filename = asset.uuid + "." + ext;
        break;
    case Place::sharedAlbum: {
        const int album = recipe.sharedAlbum;
        asset.directory = m_sharedAlbumDirectories[album];
        asset.filename = QString("IMG_%1.%2").arg(++m_sharedAlbumNumbers[album], 4, 10, QChar('0')).arg(ext);
        break;
    }
    }
}

void ContentBuilder::addFiles(PhoneAsset& asset, const Recipe& recipe, const PhoneAsset* duplicateSource)
{
    DeterministicRandom& random = m_random;
    const double date = asset.dateCreated.value_or(kFirstDate);
    const uint64_t key = uint64_t(asset.pk) << 8;
    auto file = [&](const QString& component, const QString& path, FileFormat format, int64_t size,
                    uint64_t componentKey) {
        MediaFile f;
        f.component = component;
        f.devicePath = path;
        f.format = format;
        f.sparseSize = size;
        f.contentKey = key | componentKey;
        f.width = asset.width;
        f.height = asset.height;
        f.date = date;
        return f;
    };

    FileFormat originalFormat = FileFormat::heic;
    int64_t originalSize = 0;
    switch (recipe.media) {
    case Media::heic:
        originalFormat = FileFormat::heic;
        originalSize = random.between(1200, 3600) * 1000 + random.below(1000);
        break;
    case Media::jpeg:
        originalFormat = FileFormat::jpeg;
        originalSize = random.between(1800, 4800) * 1000 + random.below(1000);
        break;
    case Media::png:
        originalFormat = FileFormat::png;
        originalSize = random.between(400, 2600) * 1000 + random.below(1000);
        break;
    case Media::video:
        originalFormat = FileFormat::mov;
        originalSize = int64_t(asset.duration * double(random.between(800, 1300)) * 1000.0);
        break;
    }
    MediaFile original =
        file("original", "/" + asset.directory + "/" + asset.filename, originalFormat, originalSize, 1);
    original.duration = asset.duration;
    if (duplicateSource && !duplicateSource->files.isEmpty()) {
        const MediaFile& same = duplicateSource->files.first();
        original.contentKey = same.contentKey;
        original.sparseSize = same.sparseSize;
        original.width = same.width;
        original.height = same.height;
        original.date = same.date;
    }
    asset.fileSize = original.sparseSize;

    const MediaFile thumbnail = file({}, {}, FileFormat::thumbnail, random.between(18000, 48000), 0xFF);
    if (m_options.thumbnails != ThumbnailNames::none)
        asset.thumbnail = ThumbnailMaker::describe(thumbnail, asset, m_options.thumbnails, m_options.seed);
    if (!asset.onDevice)
        return;

    asset.files << original;
    const QString sibling = "/" + asset.directory + "/" + asset.stem();
    if (recipe.aae && !asset.isVideo)
        asset.files << file("aae", sibling + ".AAE", FileFormat::aae, 0, 2);
    if (recipe.live && !asset.isVideo) {
        MediaFile video = file("live-video", sibling + ".MOV", FileFormat::mov, random.between(1400, 4200) * 1000, 3);
        video.width = 1440;
        video.height = 1080;
        video.duration = 2.8;
        asset.files << video;
    }
    if (recipe.edited) {
        const QString folder = "/PhotoData/Mutations/" + asset.directory + "/" + asset.stem() + "/Adjustments/";
        QList<MediaFile> edits;
        edits << file("adjustments", folder + "Adjustments.plist", FileFormat::adjustments, 0, 4);
        if (asset.isVideo) {
            MediaFile render = file("edited", folder + "FullSizeRender.mov", FileFormat::mov,
                                    original.sparseSize * random.between(80, 100) / 100, 5);
            render.duration = asset.duration;
            edits << render;
            if (recipe.editedStill)
                edits << file("edited-still", folder + "FullSizeRender.jpg", FileFormat::jpeg,
                              random.between(1500, 4500) * 1000, 6);
        } else {
            const bool heic = recipe.media == Media::heic && m_generation.rendersEditsAsHeic();
            edits << file("edited", folder + (heic ? "FullSizeRender.heic" : "FullSizeRender.jpg"),
                          heic ? FileFormat::heic : FileFormat::jpeg, random.between(1500, 4500) * 1000, 5);
            if (recipe.live) {
                MediaFile render = file("edited-live-video", folder + "FullSizeRender.mov", FileFormat::mov,
                                        random.between(1400, 4000) * 1000, 6);
                render.duration = 2.8;
                edits << render;
            }
        }
        std::sort(edits.begin(), edits.end(),
                  [](const MediaFile& a, const MediaFile& b) { return a.devicePath < b.devicePath; });
        asset.files << edits;
    }
}

void ContentBuilder::buildMemberships(PhoneContent& content, const QList<Recipe>& recipes)
{
    m_random = m_root.fork(5);
    QHash<int64_t, int64_t> nextOrder;
    QSet<QPair<int64_t, int64_t>> seen;
    auto add = [&](int64_t album, int64_t asset, bool recent) {
        if (seen.contains({album, asset}))
            return;
        seen.insert({album, asset});
        const int64_t order = (nextOrder[album] += 1024);
        content.memberships << Membership{album, asset, order, recent};
    };

    // Items that can be in the user's albums: the library's own (not shared, not Shared with You).
    QList<int64_t> pool;
    for (const PhoneAsset& asset : std::as_const(content.assets)) {
        const AssetCategory category = asset.category();
        if (!asset.recent && category != AssetCategory::sharedAlbum && category != AssetCategory::sharedWithYou &&
            category != AssetCategory::otherLibrary)
            pool << asset.pk;
    }

    for (int i = 0; i < recipes.size(); ++i) {
        for (const QString& tag : recipes[i].albumTags) {
            if (m_albumsByTag.contains(tag))
                add(m_albumsByTag.value(tag), i + 1, recipes[i].recent);
        }
        if (recipes[i].place == Place::sharedAlbum)
            add(m_sharedAlbumPKs[recipes[i].sharedAlbum], i + 1, false);
    }

    if (!pool.isEmpty()) {
        for (const AlbumFixture& fixture : kAlbumFixtures) {
            const QString tag = QString::fromLatin1(fixture.tag);
            if (fixture.empty || tag == "added" || !m_albumsByTag.contains(tag))
                continue;
            const int64_t count = std::min<int64_t>(pool.size(), m_random.between(3, 8));
            for (int64_t n = 0; n < count; ++n)
                add(m_albumsByTag.value(tag), pool[m_random.below(pool.size())], false);
        }
        const int64_t average =
            std::max<int64_t>(1, int64_t(pool.size()) * 2 / 5 / std::max<qsizetype>(1, m_genericAlbumPKs.size()));
        for (int64_t album : std::as_const(m_genericAlbumPKs)) {
            const int64_t count = m_random.between(1, 2 * average);
            for (int64_t n = 0; n < count; ++n)
                add(album, pool[m_random.below(pool.size())], false);
        }
        // Changes made since the last checkpoint: a few older items added to albums.
        if (m_albumsByTag.contains("added")) {
            add(m_albumsByTag.value("added"), pool[m_random.below(pool.size())], true);
            add(m_albumsByTag.value("added"), pool[m_random.below(pool.size())], true);
        }
        if (m_albumsByTag.contains("family"))
            add(m_albumsByTag.value("family"), pool[m_random.below(pool.size())], true);
    }

    // …and one item of the camera roll moved to Recently Deleted.
    for (qsizetype i = content.assets.size() - 1; i >= 0; --i) {
        PhoneAsset& asset = content.assets[i];
        if (!asset.recent && asset.category() == AssetCategory::library && !asset.isHidden &&
            asset.directory.startsWith("DCIM/") && recipes[i].albumTags.isEmpty()) {
            asset.isTrashed = true;
            asset.trashedRecently = true;
            asset.trashedDate = kRecentDate + 600.5;
            break;
        }
    }
}

void ContentBuilder::addUnknownFiles(PhoneContent& content)
{
    DeterministicRandom random = m_root.fork(6);
    auto unknown = [&](const QString& path, FileFormat format, int64_t size) {
        MediaFile f;
        f.devicePath = path;
        f.format = format;
        f.sparseSize = size;
        f.contentKey = (uint64_t(1) << 62) + uint64_t(content.unknownFiles.size());
        f.width = 4032;
        f.height = 3024;
        f.date = kFirstDate - 86400.0;
        content.unknownFiles << f;
    };
    // Numbers just below the first camera item's are never used by the library.
    unknown(QString("/DCIM/100APPLE/IMG_%1.JPG").arg(m_firstCameraNumber - 1, 4, 10, QChar('0')), FileFormat::jpeg,
            2345678);
    unknown(QString("/DCIM/100APPLE/IMG_%1.AAE").arg(m_firstCameraNumber - 2, 4, 10, QChar('0')), FileFormat::aae, 0);
    unknown("/PhotoData/CPLAssets/group1/" + random.uuid() + ".JPG", FileFormat::jpeg, 1987654);

    MediaFile configuration;
    configuration.devicePath = "/PhotoData/Thumbnails/thumbnailConfiguration";
    configuration.format = FileFormat::configuration;
    configuration.contentKey = m_options.thumbnails == ThumbnailNames::only5003 ? 5003 : 5005;
    configuration.date = kFirstDate - 86400.0 * 30;
    content.otherFiles << configuration;
}
