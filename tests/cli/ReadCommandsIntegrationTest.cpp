#include "CliRun.h"
#include "FolderSnapshot.h"
#include "PhoneBackup.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>

#include <gtest/gtest.h>

// A command that reads a Photos database the user names leaves it exactly as it was. SQLite,
// opening a database for writing, folds its log (-wal) into it and may delete the log files; on a
// phone mounted with ifuse that would be a write to the phone.
TEST(ReadCommands, LeaveTheDatabaseTheyReadAsItWas)
{
    TempDir dir;
    ASSERT_EQ(makePhone(dir.filePath("phone"), {"--assets", "20", "--files", "none"}).exitCode, 0);
    const QString folder = dir.filePath("phone/media/PhotoData");
    const QString database = folder + "/Photos.sqlite";
    ASSERT_GT(QFileInfo(database + "-wal").size(), 0) << "a log holding changes not yet in the database";
    const FolderSnapshot before = FolderSnapshot::take(folder);

    for (const QStringList& command : {QStringList{"library"}, QStringList{"library", "--json"}, QStringList{"tree"},
                                       QStringList{"tree", "--json"}}) {
        SCOPED_TRACE(command.join(' ').toStdString());
        const CliRun run = CliRun::of(command + QStringList{"--db", database});
        EXPECT_EQ(run.code, 0) << run.err.toStdString();
        EXPECT_FALSE(run.out.isEmpty());
        EXPECT_EQ(FolderSnapshot::take(folder), before);
        if (command == QStringList{"library", "--json"}) {
            EXPECT_EQ(QJsonDocument::fromJson(run.out.toUtf8())["assets"].toArray().size(), 20) << "the log was read";
        }
    }
}
