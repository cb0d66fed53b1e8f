#include "PhoneBackup.h"
#include "RunProgram.h"

#include <QDateTime>
#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QStandardPaths>

#include <gtest/gtest.h>

namespace {

const QByteArray kClearLine = "\r\x1b[2K";

// Runs ombrelo-cli on a pseudo-terminal, as a user at a terminal sees it, through script(1).
ProgramResult runOnTerminal(const PhoneBackup& phone, const QStringList& arguments)
{
    QStringList quoted{PhoneBackup::cliPath()};
    for (const QString& argument : arguments)
        quoted << "'" + QString(argument).replace("'", "'\\''") + "'";
    return runProgram("script", {"--quiet", "--return", "--command", quoted.join(' '), "/dev/null"}, 120,
                      phone.environment());
}

QStringList toStrings(const QJsonValue& array)
{
    QStringList result;
    for (const QJsonValue& value : array.toArray())
        result << value.toString();
    return result;
}

} // namespace

// On a terminal the run shows one status line that is redrawn in place, with the log lines
// printed above it, and it is gone before the summary.
TEST(BackupOutput, ProgressLineRedrawsInPlaceOnATerminal)
{
    if (QStandardPaths::findExecutable("script").isEmpty())
        GTEST_SKIP() << "script(1), from util-linux, gives the program a terminal; it is not installed.";
    PhoneBackup phone({"--assets", "30", "--seed", "31"});
    phone.setFaults({{"bytesPerSecond", 300000}});
    TempDir dest;
    const ProgramResult run = runOnTerminal(phone, {"backup", "--all", "--yes", dest.path()});
    ASSERT_EQ(run.exitCode, 0) << run.describe().toStdString();
    // The terminal turns each line end into "\r\n".
    const QByteArray screen = QByteArray(run.out).replace("\r\n", "\n");

    static const QRegularExpression status("^(\\d+) of (\\d+) items · [0-9.]+ (bytes|kB|MB) copied"
                                           "( · [0-9.]+ (bytes|kB|MB)/s)?( · about \\d+ (s|min) left)?( · \\S.*)?$");
    const QList<QByteArray> draws = screen.split('\r');
    int redraws = 0;
    qint64 lastDone = -1;
    for (const QByteArray& draw : draws) {
        if (!draw.startsWith("\x1b[2K"))
            continue;
        // A log line printed above the status line ends with its line end; a status line does not.
        const QString text = QString::fromUtf8(draw.mid(4));
        if (text.isEmpty() || text.contains('\n'))
            continue;
        const QRegularExpressionMatch match = status.match(text);
        ASSERT_TRUE(match.hasMatch()) << "not a status line: " << text.toStdString();
        EXPECT_GE(match.captured(1).toLongLong(), lastDone) << "progress never goes back";
        lastDone = match.captured(1).toLongLong();
        ++redraws;
    }
    EXPECT_GE(redraws, 5) << screen.toStdString();
    EXPECT_TRUE(screen.contains(kClearLine + "Copied ")) << "log lines go above the status line";
    // The summary follows the cleared status line, each line whole.
    const qsizetype summary = screen.indexOf("Files copied: ");
    ASSERT_GT(summary, 0);
    EXPECT_TRUE(screen.left(summary).endsWith(kClearLine));
    EXPECT_FALSE(screen.mid(summary).contains('\r'));
    EXPECT_FALSE(screen.mid(summary).contains('\x1b'));
    EXPECT_TRUE(screen.mid(summary).contains("\nAlready backed up: 0\n")) << screen.right(300).toStdString();
    EXPECT_TRUE(screen.endsWith('\n'));

    // verify shows its own progress line the same way, gone before its result.
    const ProgramResult verify = runOnTerminal(phone, {"verify", dest.path()});
    ASSERT_EQ(verify.exitCode, 0) << verify.describe().toStdString();
    const QByteArray verifyScreen = QByteArray(verify.out).replace("\r\n", "\n");
    static const QRegularExpression verifying("\r\x1b\\[2KVerifying (\\d+) of (\\d+) files");
    EXPECT_TRUE(verifying.match(QString::fromUtf8(verifyScreen)).hasMatch()) << verifyScreen.toStdString();
    const qsizetype result = verifyScreen.indexOf("Verified ");
    ASSERT_GT(result, 0) << verifyScreen.toStdString();
    EXPECT_TRUE(verifyScreen.left(result).endsWith(kClearLine));
    EXPECT_TRUE(verifyScreen.endsWith(" intact, 0 missing, 0 changed\n")) << verifyScreen.toStdString();
}

// Not on a terminal: plain lines, no status line. --quiet keeps errors, warnings and the summary.
// --report writes the run down in JSON, on failure too.
TEST(BackupOutput, PlainLinesQuietAndReport)
{
    PhoneBackup phone({"--assets", "20", "--seed", "32"});
    QString broken; // a photo whose file cannot be read from the phone
    for (const PhoneAnswerKey::Asset& asset : phone.answerKey().assets)
        if (asset.category == "library" && !asset.isVideo && !asset.isHidden && !asset.files.isEmpty()) {
            broken = asset.files.first().path;
            break;
        }
    ASSERT_FALSE(broken.isEmpty());
    phone.setFaults({{"failPaths", QJsonObject{{broken, QJsonObject{{"open", 10}}}}}});
    TempDir dirs;

    const QString plainDest = dirs.filePath("plain");
    QDir().mkpath(plainDest);
    const ProgramResult plain = phone.cli({"backup", "--all", "--yes", plainDest});
    EXPECT_EQ(plain.exitCode, 1) << plain.describe().toStdString();
    EXPECT_FALSE(plain.out.contains('\r'));
    EXPECT_FALSE(plain.out.contains('\x1b'));
    const QStringList plainLines = plain.lines();
    ASSERT_GE(plainLines.size(), 6);
    EXPECT_TRUE(plainLines[0].startsWith("Device: Test iPhone (")) << plainLines[0].toStdString();
    EXPECT_EQ(plainLines[1], "Reading the Photos database...");
    EXPECT_EQ(plainLines[2], "Dry run:");
    EXPECT_TRUE(plainLines[3].startsWith("  Would copy: "));
    EXPECT_GE(plainLines.filter(QRegularExpression("^Copied ")).size(), 10);

    const QString quietDest = dirs.filePath("quiet");
    const QString reportPath = dirs.filePath("report.json");
    QDir().mkpath(quietDest);
    const QDateTime before = QDateTime::currentDateTimeUtc().addSecs(-1);
    const ProgramResult quiet = phone.cli({"backup", "--all", "--yes", "--quiet", "--report", reportPath, quietDest});
    const QDateTime after = QDateTime::currentDateTimeUtc().addSecs(1);
    EXPECT_EQ(quiet.exitCode, 1) << quiet.describe().toStdString();
    const QJsonObject report = QJsonDocument::fromJson(readFile(reportPath)).object();
    ASSERT_FALSE(report.isEmpty()) << readFile(reportPath).toStdString();
    const QStringList summaryLines = toStrings(report["lines"]);
    const QStringList errors = quiet.lines("ERROR ");
    ASSERT_EQ(errors.size(), 1) << quiet.out.toStdString();
    EXPECT_TRUE(errors[0].contains(broken)) << errors[0].toStdString();
    EXPECT_EQ(quiet.lines(), errors + summaryLines) << "only errors, warnings and the summary";
    EXPECT_EQ(quiet.err, "");

    // The report: the options, the device, every log line, the summary by field and by line.
    EXPECT_EQ(report["options"]["dest"].toString(), quietDest);
    EXPECT_EQ(report["device"]["udid"].toString(), phone.udid());
    EXPECT_EQ(report["exitCode"].toInt(), 1);
    const QStringList log = toStrings(report["log"]);
    EXPECT_TRUE(log.value(0).startsWith("Device: Test iPhone (")) << log.value(0).toStdString();
    EXPECT_TRUE(log.contains(errors[0]));
    EXPECT_EQ(report["summary"]["filesCopied"].toInt(), log.filter(QRegularExpression("^Copied ")).size());
    EXPECT_EQ(toStrings(report["summary"]["errors"]), QStringList{errors[0].mid(6)});
    EXPECT_EQ(summaryLines.last(), "Errors: 1");
    const QDateTime started = QDateTime::fromString(report["startedAt"].toString(), Qt::ISODate);
    const QDateTime finished = QDateTime::fromString(report["finishedAt"].toString(), Qt::ISODate);
    EXPECT_TRUE(before <= started && started <= finished && finished <= after)
        << report["startedAt"].toString().toStdString() << " " << report["finishedAt"].toString().toStdString();

    // A run that cannot start leaves a report too.
    phone.setFaults({{"lockdownError", "PasswordProtected"}});
    const ProgramResult locked = phone.cli({"backup", "--all", "--yes", "--quiet", "--report", reportPath, quietDest});
    EXPECT_EQ(locked.exitCode, 3);
    const QJsonObject failed = QJsonDocument::fromJson(readFile(reportPath)).object();
    EXPECT_EQ(failed["exitCode"].toInt(), 3);
    EXPECT_EQ(failed["failure"].toString(), "The device is locked. Unlock it and try again.");
    EXPECT_FALSE(failed.contains("summary"));
}
