#pragma once

#include "RunPhase.h"

#include <QHash>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QUuid>

// One backup as the backup sheet shows it, from the dry run to the end.
struct Run {
    inline static const QString backUpAllTitle = QStringLiteral("Back Up All");
    inline static const QString backUpSelectedTitle = QStringLiteral("Backup Selected");

    QUuid id = QUuid::createUuid();
    QStringList nodeIDs;                      // the leaf folders, in plan order
    QHash<QString, QSet<QString>> onlyAssets; // leaf id → the photos chosen there; other leaves whole
    QString title;
    RunPhase phase;
    QStringList log;

    // What the engine is asked to do.
    BackupOptions options(bool dryRun) const;
};
