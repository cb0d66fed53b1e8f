#include "BackupPlan.h"

#include "FileNaming.h"

#include <QCollator>
#include <QLocale>
#include <QSet>

#include <algorithm>
#include <vector>

namespace {

// The earliest representable date (0001-01-01 00:00:00 UTC) in seconds since the reference date:
// undated assets sort before every dated one.
constexpr double kDistantPast = -63114076800.0;
constexpr int kMaxNameLength = 120;

double sortDate(const LibraryAsset& asset) { return asset.dateCreated.value_or(kDistantPast); }

bool plannedBefore(const LibraryAsset& a, const LibraryAsset& b)
{
    const double da = sortDate(a);
    const double db = sortDate(b);
    if (da != db)
        return da < db;
    return a.uuid < b.uuid;
}

std::optional<SkipReason> skipReasonFor(const LibraryAsset& asset)
{
    if (asset.isTrashed)
        return SkipReason::trashed;
    // Saved from Messages (type 12) and scope 3 are both content shared with the user.
    if (asset.savedAssetType == 12)
        return SkipReason::sharedWithYou;
    if (asset.bundleScope == 3)
        return SkipReason::sharedWithYou;
    if (asset.directory.startsWith(QLatin1String("PhotoData/PhotoCloudSharingData")))
        return SkipReason::sharedAlbum;
    if (asset.bundleScope && *asset.bundleScope != 0)
        return SkipReason::otherLibrary;
    return std::nullopt;
}

// The platform's numeric-aware, case-insensitive title order. The C/POSIX locale (servers, CI)
// would compare code points, so it gets the English collation instead.
QCollator titleCollator()
{
    QLocale locale;
    if (locale.language() == QLocale::C)
        locale = QLocale(QLocale::English, QLocale::UnitedStates);
    QCollator collator(locale);
    collator.setNumericMode(true);
    collator.setCaseSensitivity(Qt::CaseInsensitive);
    return collator;
}

class PlanBuilder {
public:
    PlanBuilder(BackupPlan& plan, const QHash<QString, QString>& existingAlbumPaths)
        : m_plan(plan), m_library(plan.library), m_existing(existingAlbumPaths)
    {
    }

    void build()
    {
        classifyAssets();
        collectAlbums();
        assignPaths();
        fillAlbums();
        fillCameraRollAndHidden();
        buildTree();
    }

private:
    const LibraryAlbum& album(int index) const { return m_library.albums[m_albums[index]]; }
    const LibraryAsset& asset(int index) const { return m_library.assets[index]; }

    void classifyAssets()
    {
        const QList<LibraryAsset>& assets = m_library.assets;
        m_plan.assetsByUUID.reserve(assets.size());
        // Dates sit beside the indices so that sorting touches the assets only on ties.
        struct Keyed {
            double date;
            int index;
        };
        std::vector<Keyed> keyed;
        keyed.reserve(size_t(assets.size()));
        for (int i = 0; i < assets.size(); ++i) {
            if (const auto reason = skipReasonFor(assets[i])) {
                m_plan.skipped[*reason] += 1;
                continue;
            }
            m_plan.assetsByUUID.insert(assets[i].uuid, assets[i]);
            keyed.push_back({sortDate(assets[i]), i});
        }
        const auto before = [&](const Keyed& a, const Keyed& b) {
            if (a.date != b.date)
                return a.date < b.date;
            return asset(a.index).uuid < asset(b.index).uuid;
        };
        std::stable_sort(keyed.begin(), keyed.end(), before);

        // Assets that sort equal share a rank, so ordering by rank is the plan order exactly.
        m_ordered.reserve(keyed.size());
        m_eligibleByPK.reserve(qsizetype(keyed.size()));
        int rank = 0;
        for (size_t i = 0; i < keyed.size(); ++i) {
            if (i > 0 && before(keyed[i - 1], keyed[i]))
                ++rank;
            m_ordered.push_back(keyed[i].index);
            m_eligibleByPK.insert(asset(keyed[i].index).pk, {keyed[i].index, rank});
        }
    }

    // Trashed albums and folders take no part in the plan at all.
    void collectAlbums()
    {
        const QList<LibraryAlbum>& albums = m_library.albums;
        for (int i = 0; i < albums.size(); ++i) {
            if (albums[i].isTrashed)
                continue;
            const int index = int(m_albums.size());
            m_albums.push_back(i);
            m_indexByPK.insert(albums[i].pk, index);
            m_safeTitles.push_back(FileNaming::safeName(albums[i].title, kMaxNameLength));
        }
    }

    // The plan-album index of the folder that encloses `index`, or -1 at top level.
    int parentFolder(int index) const
    {
        const auto& parentPK = album(index).parentPK;
        if (!parentPK)
            return -1;
        const int parent = m_indexByPK.value(*parentPK, -1);
        return parent >= 0 && album(parent).isFolder ? parent : -1;
    }

    // "Albums", the enclosing folders' safe titles (outermost first), then the album's own.
    QString basePath(int index) const
    {
        QStringList components;
        QSet<int> visited;
        for (int parent = parentFolder(index); parent >= 0 && !visited.contains(parent);
             parent = parentFolder(parent)) {
            visited.insert(parent);
            components.prepend(m_safeTitles[parent]);
        }
        components.prepend(BackupPlan::albumsPath);
        components.append(m_safeTitles[index]);
        return components.join(QLatin1Char('/'));
    }

    void assignPaths()
    {
        QSet<QString> taken;
        taken.reserve(m_existing.size() + qsizetype(m_albums.size()));
        for (const QString& path : m_existing)
            taken.insert(path.toLower());

        m_folderPaths.resize(m_albums.size());
        for (size_t i = 0; i < m_albums.size(); ++i) {
            if (!album(int(i)).isFolder)
                continue;
            m_folderPaths[i] = basePath(int(i));
            taken.insert(m_folderPaths[i].toLower());
        }

        // Where the numbering of a clashing base path may resume: the taken set only grows,
        // so numbers found taken once stay taken.
        QHash<QString, int> nextNumber;
        for (size_t i = 0; i < m_albums.size(); ++i) {
            const LibraryAlbum& current = album(int(i));
            if (current.isFolder)
                continue;
            if (const auto existing = m_existing.constFind(current.uuid); existing != m_existing.cend()) {
                m_plan.albumPaths.insert(current.uuid, *existing);
                continue;
            }
            const QString base = basePath(int(i));
            const QString lowerBase = base.toLower();
            QString path = base;
            QString lowerPath = lowerBase;
            if (taken.contains(lowerPath)) {
                int n = nextNumber.value(lowerBase, 2);
                for (;; ++n) {
                    const QString suffix = QStringLiteral(" (%1)").arg(n);
                    lowerPath = lowerBase + suffix;
                    if (!taken.contains(lowerPath)) {
                        path = base + suffix;
                        break;
                    }
                }
                nextNumber.insert(lowerBase, n + 1);
            }
            taken.insert(lowerPath);
            m_plan.albumPaths.insert(current.uuid, path);
        }
    }

    void fillAlbums()
    {
        m_contents.resize(m_albums.size());
        m_inAlbum.reserve(qsizetype(m_ordered.size()));
        std::vector<std::pair<int, int>> members; // (rank, asset index)
        for (size_t i = 0; i < m_albums.size(); ++i) {
            const LibraryAlbum& current = album(int(i));
            if (current.isFolder)
                continue;
            const auto found = m_library.membership.constFind(current.pk);
            if (found == m_library.membership.cend())
                continue;
            members.clear();
            for (int64_t pk : *found) {
                const auto eligible = m_eligibleByPK.constFind(pk);
                if (eligible == m_eligibleByPK.cend() || asset(eligible->index).isHidden)
                    continue;
                m_inAlbum.insert(pk);
                members.emplace_back(eligible->rank, eligible->index);
            }
            std::stable_sort(members.begin(), members.end(),
                             [](const auto& a, const auto& b) { return a.first < b.first; });
            QStringList& uuids = m_contents[i];
            uuids.reserve(qsizetype(members.size()));
            for (const auto& member : members)
                uuids.append(asset(member.second).uuid);
        }
    }

    void fillCameraRollAndHidden()
    {
        BackupNode& cameraRoll = m_plan.cameraRoll;
        cameraRoll = {BackupPlan::cameraRollID,
                      QStringLiteral("Camera Roll"),
                      BackupNode::Kind::cameraRoll,
                      BackupPlan::cameraRollPath,
                      std::nullopt,
                      {}};
        BackupNode& hidden = m_plan.hidden;
        hidden = {BackupPlan::hiddenID,
                  QStringLiteral("Hidden"),
                  BackupNode::Kind::hidden,
                  BackupPlan::hiddenPath,
                  std::nullopt,
                  {}};
        for (int index : m_ordered) {
            const LibraryAsset& current = asset(index);
            if (current.isHidden)
                hidden.assetUUIDs.append(current.uuid);
            else if (!m_inAlbum.contains(current.pk))
                cameraRoll.assetUUIDs.append(current.uuid);
        }
    }

    void buildTree()
    {
        std::vector<int> topLevel;
        m_children.resize(m_albums.size());
        for (size_t i = 0; i < m_albums.size(); ++i) {
            const int parent = parentFolder(int(i));
            if (parent >= 0)
                m_children[size_t(parent)].push_back(int(i));
            else
                topLevel.push_back(int(i));
        }
        hangLoopsAtTheTop(topLevel);

        // One collation key per title: comparing keys is far cheaper than collating strings.
        const QCollator collator = titleCollator();
        m_sortKeys.reserve(m_albums.size());
        for (size_t i = 0; i < m_albums.size(); ++i)
            m_sortKeys.push_back(collator.sortKey(album(int(i)).title));

        m_plan.albumTree = nodes(topLevel);
    }

    // Folders that enclose each other in a loop (only a damaged library has one) hang from nothing
    // at the top level. One folder of each loop is put at the top level instead, so that neither the
    // loop nor the albums in it, nor their photos, drop out of the tree.
    void hangLoopsAtTheTop(std::vector<int>& topLevel)
    {
        std::vector<bool> reached(m_albums.size(), false);
        const auto reach = [&](int from) {
            std::vector<int> pending{from};
            while (!pending.empty()) {
                const int index = pending.back();
                pending.pop_back();
                if (reached[size_t(index)])
                    continue;
                reached[size_t(index)] = true;
                pending.insert(pending.end(), m_children[size_t(index)].begin(), m_children[size_t(index)].end());
            }
        };
        for (int index : topLevel)
            reach(index);
        for (size_t i = 0; i < m_albums.size(); ++i) {
            if (reached[i])
                continue;
            // Climb from this unreached album to the first folder met twice: that one is in the loop.
            QSet<int> climbed;
            int inLoop = int(i);
            while (!climbed.contains(inLoop)) {
                climbed.insert(inLoop);
                inLoop = parentFolder(inLoop);
            }
            auto& siblings = m_children[size_t(parentFolder(inLoop))];
            siblings.erase(std::find(siblings.begin(), siblings.end(), inLoop));
            topLevel.push_back(inLoop);
            reach(inLoop);
        }
    }

    // Each album has a single parent and no loop hangs from the top level, so this recursion ends.
    QList<BackupNode> nodes(std::vector<int> indices) const
    {
        std::stable_sort(indices.begin(), indices.end(),
                         [&](int a, int b) { return m_sortKeys[size_t(a)].compare(m_sortKeys[size_t(b)]) < 0; });
        QList<BackupNode> result;
        result.reserve(qsizetype(indices.size()));
        for (int index : indices) {
            const LibraryAlbum& current = album(index);
            BackupNode node;
            node.id = current.uuid;
            node.title = current.title;
            if (current.isFolder) {
                node.kind = BackupNode::Kind::folder;
                node.relativePath = m_folderPaths[size_t(index)];
                node.children = nodes(m_children[size_t(index)]);
            } else {
                node.kind = BackupNode::Kind::album;
                node.relativePath = m_plan.albumPaths.value(current.uuid);
                node.assetUUIDs = m_contents[size_t(index)];
            }
            result.append(std::move(node));
        }
        return result;
    }

    struct Eligible {
        int index = 0; // into the library's assets
        int rank = 0;  // position in plan order; equal for assets that sort equal
    };

    BackupPlan& m_plan;
    const PhotoLibrary& m_library;
    const QHash<QString, QString>& m_existing;

    std::vector<int> m_ordered; // eligible assets' library indices, in plan order
    QHash<int64_t, Eligible> m_eligibleByPK;
    QSet<int64_t> m_inAlbum;

    // Plan albums (library indices of the albums that are not trashed) and what belongs to each.
    std::vector<int> m_albums;
    QHash<int64_t, int> m_indexByPK;
    std::vector<QString> m_safeTitles;
    std::vector<QString> m_folderPaths;
    std::vector<QStringList> m_contents;
    std::vector<std::vector<int>> m_children;
    std::vector<QCollatorSortKey> m_sortKeys;
};

void findNode(const QList<BackupNode>& nodes, const QString& id, std::optional<BackupNode>& found)
{
    for (const BackupNode& node : nodes) {
        if (found)
            return;
        if (node.id == id) {
            found = node;
            return;
        }
        if (node.children)
            findNode(*node.children, id, found);
    }
}

} // namespace

BackupPlan::BackupPlan(const PhotoLibrary& library, const QHash<QString, QString>& existingAlbumPaths)
    : library(library)
{
    PlanBuilder(*this, existingAlbumPaths).build();
}

QList<BackupNode> BackupPlan::topLevelNodes() const
{
    QList<BackupNode> nodes{cameraRoll, hidden};
    nodes.append(albumTree);
    return nodes;
}

QList<BackupNode> BackupPlan::allLeaves() const
{
    QList<BackupNode> result;
    for (const BackupNode& node : topLevelNodes())
        result.append(node.leaves());
    return result;
}

std::optional<BackupNode> BackupPlan::node(const QString& id) const
{
    std::optional<BackupNode> found;
    findNode(topLevelNodes(), id, found);
    return found;
}

QList<LibraryAsset> BackupPlan::assets(const BackupNode& node) const
{
    QList<LibraryAsset> result;
    for (const BackupNode& leaf : node.leaves()) {
        for (const QString& uuid : leaf.assetUUIDs) {
            const auto found = assetsByUUID.constFind(uuid);
            if (found != assetsByUUID.cend())
                result.append(*found);
        }
    }
    return result;
}

QList<LibraryAsset> BackupPlan::sorted(QList<LibraryAsset> assets)
{
    std::stable_sort(assets.begin(), assets.end(), plannedBefore);
    return assets;
}
