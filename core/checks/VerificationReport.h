#pragma once

#include <QString>
#include <QStringList>

#include <cstdint>

// What checking a backup folder against its manifest found.
struct VerificationReport {
    int files = 0;      // manifest rows checked
    uint64_t bytes = 0; // bytes read to check them
    int intact = 0;
    QStringList missing; // paths relative to the backup folder
    QStringList changed; // "path: what differs"

    bool isClean() const { return missing.isEmpty() && changed.isEmpty(); }
    // "Verified N files (size): N intact, N missing, N changed", then one line per problem.
    QStringList lines() const;
};
