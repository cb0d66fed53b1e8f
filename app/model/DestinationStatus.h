#pragma once

#include <QString>

#include <optional>

// The line under the backup folder in the sidebar: what the folder holds against what is chosen.
struct DestinationStatus {
    struct Facts {
        bool destinationSet = false;
        bool available = false;
        bool existingBackup = false; // the manifest records files (always so in demo mode)
        bool hasPlan = false;
        int chosenNotBackedUp = 0; // over the ticked folders
    };

    QString text;
    bool isWarning = false;

    static DestinationStatus describe(const Facts& facts);

    bool operator==(const DestinationStatus&) const = default;
};
