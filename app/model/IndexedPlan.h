#pragma once

#include "plan/BackupPlan.h"

#include <QHash>
#include <QSet>
#include <QString>
#include <QStringList>

#include <optional>

// A backup plan with what the backup folder already holds, indexed for the counts the sidebar
// shows on every row: nodes by id, the leaves below every node, and per leaf its number of assets
// and of assets already backed up. Built once per plan; nothing in it changes afterwards but
// the per-leaf sets of asset UUIDs, made when many photos of a leaf are looked up at once.
class IndexedPlan {
public:
    // backedUp: leaf relative path → UUIDs recorded there.
    IndexedPlan(BackupPlan plan, const QHash<QString, QSet<QString>>& backedUp);
    IndexedPlan(const IndexedPlan&) = delete;
    IndexedPlan& operator=(const IndexedPlan&) = delete;

    const BackupPlan& plan() const { return m_plan; }

    // Null when the plan has no such node.
    const BackupNode* node(const QString& id) const;
    bool isLeaf(const QString& id) const { return m_leaves.contains(id); }
    // Every leaf of the plan, in plan order, Hidden included.
    const QStringList& allLeafIDs() const { return m_allLeafIDs; }
    // The leaves below a node (the node itself for a leaf), in plan order.
    QStringList leafIDs(const QString& nodeID) const { return m_leavesBelow.value(nodeID); }

    int assetCount(const QString& nodeID) const;
    int backedUpCount(const QString& nodeID) const;
    // Those of the assets that are the leaf's. A few are looked for in the leaf's list; for more, the
    // leaf's set of assets is made once and kept.
    QSet<QString> heldBy(const QString& leafID, const QSet<QString>& uuids) const;
    // Whether the asset is recorded in the leaf's folder of the backup.
    bool isBackedUp(const QString& leafID, const QString& uuid) const;

private:
    struct Leaf {
        const BackupNode* node = nullptr;
        int backedUpCount = 0;
        QSet<QString> backedUp;
        mutable std::optional<QSet<QString>> assets;
    };

    void add(const BackupNode& node);
    template <typename Count>
    int sum(const QString& nodeID, Count count) const;

    BackupPlan m_plan;
    QHash<QString, const BackupNode*> m_nodes;
    QHash<QString, Leaf> m_leaves;
    QHash<QString, QStringList> m_leavesBelow;
    QStringList m_allLeafIDs;
};
