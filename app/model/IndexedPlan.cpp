#include "IndexedPlan.h"

#include <utility>

IndexedPlan::IndexedPlan(BackupPlan plan, const QHash<QString, QSet<QString>>& backedUp) : m_plan(std::move(plan))
{
    add(m_plan.cameraRoll);
    add(m_plan.hidden);
    for (const BackupNode& node : std::as_const(m_plan.albumTree))
        add(node);
    for (const BackupNode& leaf : m_plan.allLeaves())
        m_allLeafIDs << leaf.id;
    for (auto it = m_leaves.begin(); it != m_leaves.end(); ++it) {
        it->backedUp = backedUp.value(it->node->relativePath);
        if (it->backedUp.isEmpty())
            continue;
        for (const QString& uuid : it->node->assetUUIDs)
            it->backedUpCount += it->backedUp.contains(uuid) ? 1 : 0;
    }
}

void IndexedPlan::add(const BackupNode& node)
{
    m_nodes.insert(node.id, &node);
    if (node.isLeaf()) {
        m_leaves.insert(node.id, Leaf{&node, 0, {}, std::nullopt});
        m_leavesBelow.insert(node.id, {node.id});
        return;
    }
    QStringList below;
    if (node.children) {
        for (const BackupNode& child : *node.children) {
            add(child);
            below << m_leavesBelow.value(child.id);
        }
    }
    m_leavesBelow.insert(node.id, below);
}

const BackupNode* IndexedPlan::node(const QString& id) const { return m_nodes.value(id); }

template <typename Count>
int IndexedPlan::sum(const QString& nodeID, Count count) const
{
    int total = 0;
    for (const QString& leafID : m_leavesBelow.value(nodeID))
        total += count(m_leaves.find(leafID).value());
    return total;
}

int IndexedPlan::assetCount(const QString& nodeID) const
{
    return sum(nodeID, [](const Leaf& leaf) { return int(leaf.node->assetUUIDs.size()); });
}

int IndexedPlan::backedUpCount(const QString& nodeID) const
{
    return sum(nodeID, [](const Leaf& leaf) { return leaf.backedUpCount; });
}

QSet<QString> IndexedPlan::heldBy(const QString& leafID, const QSet<QString>& uuids) const
{
    // Up to this many are looked for one by one: cheaper than hashing a large leaf's every asset.
    constexpr qsizetype kScanned = 8;
    QSet<QString> held;
    const auto leaf = m_leaves.constFind(leafID);
    if (leaf == m_leaves.cend())
        return held;
    const QStringList& assets = leaf->node->assetUUIDs;
    if (!leaf->assets && uuids.size() > kScanned)
        leaf->assets = QSet<QString>(assets.begin(), assets.end());
    for (const QString& uuid : uuids)
        if (leaf->assets ? leaf->assets->contains(uuid) : assets.contains(uuid))
            held.insert(uuid);
    return held;
}

bool IndexedPlan::isBackedUp(const QString& leafID, const QString& uuid) const
{
    const auto leaf = m_leaves.constFind(leafID);
    return leaf != m_leaves.cend() && leaf->backedUp.contains(uuid);
}
