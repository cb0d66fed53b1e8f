#include "MkdeviceOptions.h"

#include "DeterministicRandom.h"
#include "Generation.h"
#include "MkdeviceError.h"

#include <QRegularExpression>

namespace {

MkdeviceError usage(const QString& text) { return MkdeviceError::usage(text + " See “ombrelo-mkdevice --help”."); }

int parseCount(const QString& option, const QString& value, int maximum)
{
    bool ok = false;
    const int count = value.toInt(&ok);
    if (!ok || count < 0 || count > maximum)
        throw usage(
            QStringLiteral("%1 takes a whole number from 0 to %2, not “%3”.").arg(option).arg(maximum).arg(value));
    return count;
}

FilesMode parseFilesMode(const QString& value)
{
    if (value == "none")
        return FilesMode::none;
    if (value == "sparse")
        return FilesMode::sparse;
    if (value == "real")
        return FilesMode::real;
    throw usage(QStringLiteral("--files takes none, sparse or real, not “%1”.").arg(value));
}

ThumbnailNames parseThumbnails(const QString& value)
{
    if (value == "5005")
        return ThumbnailNames::only5005;
    if (value == "5003")
        return ThumbnailNames::only5003;
    if (value == "mixed")
        return ThumbnailNames::mixed;
    if (value == "none")
        return ThumbnailNames::none;
    throw usage(QStringLiteral("--thumbnails takes 5005, 5003, mixed or none, not “%1”.").arg(value));
}

QString udidFromSeed(uint64_t seed)
{
    DeterministicRandom random(seed ^ 0x0DEF1CE5EEDull);
    return QString::fromLatin1(random.bytes(20).toHex());
}

} // namespace

MkdeviceOptions MkdeviceOptions::parse(const QStringList& arguments)
{
    MkdeviceOptions options;
    std::optional<int> albums;
    std::optional<ThumbnailNames> thumbnails;
    const QStringList valued = {"--generation",   "--assets",  "--albums",     "--seed",  "--name",      "--udid",
                                "--product-type", "--version", "--answer-key", "--files", "--thumbnails"};

    for (int i = 0; i < arguments.size(); ++i) {
        QString argument = arguments[i];
        if (argument == "-h" || argument == "--help") {
            options.help = true;
            return options;
        }
        if (!argument.startsWith("--") || argument == "--") {
            if (argument == "--" && i + 1 < arguments.size())
                argument = arguments[++i];
            if (!options.outputFolder.isEmpty())
                throw usage(QStringLiteral("Only one output folder can be given; “%1” is one too many.").arg(argument));
            options.outputFolder = argument;
            continue;
        }
        QString option = argument;
        QString value;
        const qsizetype equals = argument.indexOf('=');
        if (equals > 0) {
            option = argument.left(equals);
            value = argument.mid(equals + 1);
        }
        if (!valued.contains(option))
            throw usage(QStringLiteral("“%1” is not an option of ombrelo-mkdevice.").arg(option));
        if (equals <= 0) {
            if (i + 1 >= arguments.size())
                throw usage(QStringLiteral("%1 needs a value.").arg(option));
            value = arguments[++i];
        }

        if (option == "--generation") {
            options.generation = value;
            Generation::named(value); // checks the name
        } else if (option == "--assets") {
            options.assets = parseCount(option, value, 500000); // camera folders run out at 999APPLE
        } else if (option == "--albums") {
            albums = parseCount(option, value, 100000);
        } else if (option == "--seed") {
            bool ok = false;
            options.seed = value.toULongLong(&ok);
            if (!ok)
                throw usage(
                    QStringLiteral("--seed takes a whole number from 0 to 18446744073709551615, not “%1”.").arg(value));
        } else if (option == "--name") {
            if (value.trimmed().isEmpty())
                throw usage(QStringLiteral("--name needs a name that is not empty."));
            options.name = value;
        } else if (option == "--udid") {
            static const QRegularExpression pattern("^([0-9A-Fa-f]{40}|[0-9A-Fa-f]{8}-[0-9A-Fa-f]{16})$");
            if (!pattern.match(value).hasMatch())
                throw usage(
                    QStringLiteral(
                        "--udid takes 40 hexadecimal digits (or the newer form 00008101-001A2B3C4D5E6F70), not “%1”.")
                        .arg(value));
            options.udid = value;
        } else if (option == "--product-type") {
            static const QRegularExpression pattern("^(iPhone|iPad|iPod)[0-9]+,[0-9]+$");
            if (!pattern.match(value).hasMatch())
                throw usage(
                    QStringLiteral("--product-type takes a model identifier such as iPhone17,1 or iPad13,4, not “%1”.")
                        .arg(value));
            options.productType = value;
        } else if (option == "--version") {
            options.version = value;
        } else if (option == "--answer-key") {
            if (value.isEmpty())
                throw usage(QStringLiteral("--answer-key needs a file name."));
            options.answerKeyPath = value;
        } else if (option == "--files") {
            options.files = parseFilesMode(value);
        } else if (option == "--thumbnails") {
            thumbnails = parseThumbnails(value);
        }
    }

    if (options.outputFolder.isEmpty())
        throw usage(QStringLiteral("Give the folder to write the device into."));

    const Generation& generation = Generation::named(options.generation);
    if (options.version.isEmpty()) {
        options.version = generation.defaultVersion;
    } else {
        static const QRegularExpression pattern("^([0-9]+)(\\.[0-9]+){1,2}$");
        const QRegularExpressionMatch match = pattern.match(options.version);
        if (!match.hasMatch() || match.captured(1).toInt() != generation.major)
            throw usage(
                QStringLiteral(
                    "The version “%1” does not belong to %2; give a version such as %3, or leave --version out.")
                    .arg(options.version, generation.id, generation.defaultVersion));
    }
    if (options.productType.isEmpty())
        options.productType = generation.defaultProductType;
    if (options.name.isEmpty())
        options.name = options.productType.startsWith("iPad") ? "Test iPad" : "Test iPhone";
    if (options.udid.isEmpty())
        options.udid = udidFromSeed(options.seed);
    options.albums = albums.value_or(defaultAlbums(options.assets));
    if (options.files == FilesMode::none && thumbnails.value_or(ThumbnailNames::none) != ThumbnailNames::none)
        throw usage(QStringLiteral("--thumbnails needs media files; --files none writes the database only."));
    options.thumbnails =
        thumbnails.value_or(options.files == FilesMode::real ? ThumbnailNames::only5005 : ThumbnailNames::none);
    return options;
}

QString MkdeviceOptions::helpText()
{
    return QStringLiteral(R"(Usage: ombrelo-mkdevice OUT [options]

Writes a simulated iPhone into the folder OUT, for ombrelo-devicesim to serve:
OUT/device.json (the device's identity) and OUT/media/ (its media tree: DCIM camera
folders and PhotoData with the Photos database, edits, thumbnails, iCloud and
shared-album files). OUT must be new or empty. The same options and seed always
give the same bytes.

Options:
  --generation G     ios12, ios13, ios14, ios15, ios16, ios17, ios18 or ios26
                     (default ios26): the Photos database's layout of that release
  --assets N         photos and videos in the library, up to 500000 (default 200)
  --albums K         regular albums, the special ones included (default 20 + N/500)
  --seed S           any whole number (default 1)
  --name NAME        device name (default "Test iPhone")
  --udid UDID        40 hexadecimal digits (default: derived from the seed)
  --product-type T   model identifier (default: a model of the generation, e.g. iPhone17,1)
  --version V        OS version (default: a release of the generation, e.g. 26.1)
  --files MODE       real (default): small, complete, openable files;
                     sparse: realistic sizes (stills 1-5 MB, videos tens of MB) as
                     sparse files that take little disk, and no thumbnails;
                     none: the Photos database only
  --thumbnails T     the name of each item's ready-made thumbnail (a 480-pixel picture)
                     in PhotoData/Thumbnails/V2/<folder>/<file>/: 5005 (5005.JPG,
                     the default with real files), 5003 (5003.JPG, as some phones
                     keep them), mixed (one item in four 5003.JPG, chosen from the
                     seed) or none (the default with sparse files)
  --answer-key FILE  also write what the phone holds, as JSON, for tests (with
                     sparse files every byte is hashed, which takes time at scale)
  -h, --help         show this text

The database is left as the phone leaves it: in WAL mode, with the most recent
changes (the newest items, the album "Added today", a few memberships and one item
moved to Recently Deleted) only in Photos.sqlite-wal.

Choices made where real databases are not known:
  - ios12: entity numbers chosen to give Album 23 and GenericAsset 30 (so the
    membership table is Z_23ASSETS with Z_23ALBUMS, Z_30ASSETS); other iOS 12
    columns follow iOS 13.
  - ios17: versions 17.0 to 17.5 number Album 28 (Z_28ASSETS), 17.6 and later 29.
  - ios26: Album is entity 33 (Z_33ASSETS) for every 26.x version.
  - Shared with You items (iOS 15 and later) keep their files in the camera
    folders; items of other libraries (ZBUNDLESCOPE 1) lie under PhotoData/CPLAssets.
  - A Live Photo's video is the .MOV beside the still with the same name.
  - Edited HEIC stills are rendered as FullSizeRender.heic from iOS 17, .jpg before.
  - A camera folder holds at most 1000 items (a Live Photo is one item).
)");
}
