#pragma once

#include <QString>
#include <QStringList>

// What differs between two backups of the same phone, one line per difference; empty when they
// are the same backup. The same means: the same files (hidden ones too) with the same contents,
// and the same modification times where a capture date sets them; the same manifest rows apart
// from when each was recorded and whether a file was copied or found on disk ("adopted"); the same
// names reserved and album folders recorded. The manifest file itself is compared by its rows.
QStringList backupDifferences(const QString& expectedRoot, const QString& actualRoot);
