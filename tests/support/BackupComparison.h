#pragma once

#include <QString>
#include <QStringList>

// What differs between two backups of the same phone, one line per difference; empty when they
// are the same backup. The same means: the same folders, links and files (hidden ones too), the
// files with the same contents and modification times (but for the files of items without a
// capture date, which carry the time they were copied); the same manifest rows apart from when
// each was recorded and whether a file was copied or found on disk ("adopted"); the same names
// reserved and album folders recorded. The manifest file itself is compared by its rows.
QStringList backupDifferences(const QString& expectedRoot, const QString& actualRoot);
