#pragma once

#include "Generation.h"
#include "PhoneContent.h"

#include <QString>

#include <cstdint>

// Writes PhotoData/Photos.sqlite in the table layout of one generation, and leaves it as a
// phone does: in WAL mode, everything but the most recent changes checkpointed into the main
// file, the recent ones (items, an album, memberships, an item moved to the trash) only in
// Photos.sqlite-wal, with its Photos.sqlite-shm beside it.
class PhotosDatabaseWriter {
public:
    PhotosDatabaseWriter(const Generation& generation, const QString& version, uint64_t seed);

    // Throws MkdeviceError::output when the database cannot be written.
    void write(const QString& path, const PhoneContent& content);

private:
    const Generation& m_generation;
    QString m_version;
    uint64_t m_seed;
};
