#pragma once

#include "library/PhotoLibrary.h"

#include <QHash>
#include <QSet>
#include <QString>

struct BackupPlan;

// The built-in library of demo mode: a camera roll, hidden items, and a few albums (many more when
// OMB_DEMO_MANY_ALBUMS is "1"), with what counts as already backed up.
class DemoLibrary {
public:
    static PhotoLibrary make();

    // Leaf relative path → UUIDs of its assets that count as backed up: everything, except the
    // newest 16 items of "Japan 2026", so that one album shows new items.
    static QHash<QString, QSet<QString>> backedUp(const BackupPlan& plan);
};
