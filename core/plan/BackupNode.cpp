#include "BackupNode.h"

namespace {
void collectLeaves(const BackupNode& node, QList<BackupNode>& into)
{
    if (node.isLeaf()) {
        into.append(node);
        return;
    }
    if (node.children)
        for (const BackupNode& child : *node.children)
            collectLeaves(child, into);
}
} // namespace

QList<BackupNode> BackupNode::leaves() const
{
    QList<BackupNode> result;
    collectLeaves(*this, result);
    return result;
}

int BackupNode::totalCount() const
{
    if (isLeaf())
        return int(assetUUIDs.size());
    int total = 0;
    if (children)
        for (const BackupNode& child : *children)
            total += child.totalCount();
    return total;
}

QString rawValue(BackupNode::Kind kind)
{
    switch (kind) {
    case BackupNode::Kind::cameraRoll:
        return QStringLiteral("cameraRoll");
    case BackupNode::Kind::hidden:
        return QStringLiteral("hidden");
    case BackupNode::Kind::folder:
        return QStringLiteral("folder");
    case BackupNode::Kind::album:
        return QStringLiteral("album");
    }
    return {};
}
