#include "FolderSelection.h"

namespace {

const BackupNode* findNode(const QList<BackupNode>& nodes, const QString& name)
{
    for (const BackupNode& node : nodes) {
        if (node.id == name || node.relativePath.compare(name, Qt::CaseInsensitive) == 0)
            return &node;
        if (node.children)
            if (const BackupNode* found = findNode(*node.children, name))
                return found;
    }
    return nullptr;
}

} // namespace

FolderSelection FolderSelection::resolve(const BackupPlan& plan, bool all, const QStringList& folders,
                                         bool includeHidden)
{
    FolderSelection selection;
    const QList<BackupNode> top = plan.topLevelNodes();
    if (all) {
        for (const BackupNode& node : top)
            if (node.id != BackupPlan::hiddenID || includeHidden)
                selection.nodeIDs.insert(node.id);
    }
    for (QString name : folders) {
        while (name.endsWith('/'))
            name.chop(1);
        const BackupNode* node = findNode(top, name);
        if (!node) {
            selection.error = QString::fromUtf8("There is no folder \u201c%1\u201d on this device. "
                                                "Run \u201combrelo-cli tree\u201d to see the folders and their ids.")
                                  .arg(name);
            return selection;
        }
        selection.nodeIDs.insert(node->id);
    }
    return selection;
}
