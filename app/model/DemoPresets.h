#pragma once

#include "PhotoChoice.h"
#include "Run.h"

#include <QString>
#include <QStringList>

#include <optional>

struct BackupNode;

// What demo mode shows for screenshots when asked through the environment: a photo choice in an
// album (OMB_DEMO_CHOICE=1) and a backup run in a given phase (OMB_DEMO_RUN=preparing, ready,
// running or finished). Nothing is copied: the figures are made from the demo library.
class DemoPresets {
public:
    DemoPresets() = delete;

    struct RunFacts {
        QStringList leafIDs;     // the ticked folders
        int toCopy = 0;          // chosen photos not backed up yet
        int alreadyBackedUp = 0; // chosen photos the folder holds
        QString destination;
        QString currentName; // the photo shown as being copied
    };

    // The album's choice when OMB_DEMO_CHOICE is "1": every fourth photo left out.
    static std::optional<PhotoChoice> choice(const BackupNode& album);
    // The run OMB_DEMO_RUN asks for; none when it is not set or names no phase.
    static std::optional<Run> run(const RunFacts& facts);
};
