#pragma once

#include "DeterministicRandom.h"
#include "Generation.h"
#include "MkdeviceOptions.h"
#include "PhoneContent.h"

#include <QHash>
#include <QSet>

// Decides, from the options and the seed alone, every item, album and file of the phone.
// A fixed set of special cases comes first (Live Photos, edits, hidden, trashed, iCloud-only,
// shared and Shared with You items, duplicates, awkward album titles…), then ordinary items
// drawn at random in realistic proportions; the newest items are marked to go into the log.
class ContentBuilder {
public:
    ContentBuilder(const MkdeviceOptions& options, const Generation& generation);

    PhoneContent build();

private:
    enum class Media { heic, jpeg, png, video };
    enum class Place { camera, cloud, sharedAlbum };
    enum class OriginalName { same, none, empty, custom };

    // What one asset is to be, before it gets a name, a key and files.
    struct Recipe {
        Media media = Media::heic;
        Place place = Place::camera;
        bool live = false;
        bool aae = false;
        bool edited = false;
        bool editedStill = false; // a video edit that also left a still render
        bool onDevice = true;
        bool hidden = false;
        bool trashed = false;
        bool favorite = false;
        int64_t subtype = -1; // -1: follows from the media
        std::optional<int64_t> savedType;
        std::optional<int64_t> bundleScope;
        OriginalName originalName = OriginalName::same;
        QString customOriginalName;
        bool undated = false;
        bool integerDate = false;
        int duplicateOf = -1;  // recipe index whose original this one repeats byte for byte
        bool twinName = false; // the first camera item's file name, in another camera folder
        int sameStemAs = -1;   // recipe index of a still whose stem this video shares
        bool imported = false;
        int sharedAlbum = 0;
        QStringList albumTags;
        bool recent = false;
    };

    QList<Recipe> fixtureRecipes() const;
    Recipe randomRecipe();
    Recipe recentRecipe(int index);
    void buildAlbums(PhoneContent& content);
    int64_t addAlbum(PhoneContent& content, int64_t kind, const QString& entity, std::optional<QString> title,
                     std::optional<int64_t> parent, const QString& tag = {});
    void buildAssets(PhoneContent& content, const QList<Recipe>& recipes);
    void nameAsset(PhoneAsset& asset, const Recipe& recipe, const QList<Recipe>& recipes, const PhoneContent& content);
    void addFiles(PhoneAsset& asset, const Recipe& recipe, const PhoneAsset* duplicateSource);
    void buildMemberships(PhoneContent& content, const QList<Recipe>& recipes);
    void addUnknownFiles(PhoneContent& content);

    const MkdeviceOptions& m_options;
    const Generation& m_generation;
    const DeterministicRandom m_root;
    DeterministicRandom m_random; // the stream of the phase being built, forked from m_root

    // Camera numbering: IMG_nnnn counts on across folders and wraps after 9999.
    int m_cameraNumber = 0;
    int m_cameraPlaced = 0;
    int m_firstCameraNumber = 0;
    int m_cloudGroups = 8;
    QList<int> m_sharedAlbumNumbers;
    QList<QString> m_sharedAlbumDirectories;
    QList<int64_t> m_sharedAlbumPKs;
    int64_t m_rootFolderPK = 0;
    int64_t m_importSessionPK = 0;
    QHash<QString, int64_t> m_albumsByTag;
    QList<int64_t> m_genericAlbumPKs;
};
