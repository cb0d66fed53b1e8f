#pragma once

#include <QString>
#include <QStringList>

#include <cstdint>
#include <optional>

// How the media files of the phone are written.
enum class FilesMode {
    none,   // the Photos database only
    sparse, // every file at a realistic size, mostly holes: little disk
    real,   // small, complete, openable files
};

// The name each item's ready-made thumbnail is kept under, in
// PhotoData/Thumbnails/V2/<directory>/<filename>/.
enum class ThumbnailNames {
    none,     // no thumbnails
    only5005, // 5005.JPG, as most phones keep them
    only5003, // 5003.JPG, as some phones keep them
    mixed,    // about one item in four 5003.JPG, the others 5005.JPG
};

// The command line of ombrelo-mkdevice, checked.
struct MkdeviceOptions {
    QString outputFolder;
    QString generation = "ios26";
    int assets = 200;
    int albums = 0; // resolved: the default depends on `assets`
    uint64_t seed = 1;
    QString name;
    QString udid;
    QString productType;
    QString version;
    QString answerKeyPath;
    FilesMode files = FilesMode::real;
    ThumbnailNames thumbnails = ThumbnailNames::only5005; // resolved: none unless files are real or asked for
    bool help = false;

    // Parses the arguments (without the program name) and fills in the defaults that depend on
    // the generation and the seed. Throws MkdeviceError::usage with a full sentence.
    static MkdeviceOptions parse(const QStringList& arguments);
    static QString helpText();
    static int defaultAlbums(int assets) { return 20 + assets / 500; }
};
