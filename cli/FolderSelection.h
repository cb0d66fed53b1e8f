#pragma once

#include "plan/BackupPlan.h"

#include <QSet>
#include <QString>
#include <QStringList>

// Which nodes of the backup tree a command line names: every leaf with --all, or each folder by
// its id or its destination path (letter case ignored).
struct FolderSelection {
    QSet<QString> nodeIDs;
    QString error; // a full sentence when a name matches nothing

    static FolderSelection resolve(const BackupPlan& plan, bool all, const QStringList& folders, bool includeHidden);
};
