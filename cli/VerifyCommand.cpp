#include "VerifyCommand.h"

#include "DeviceAccess.h"
#include "ErrorText.h"
#include "TerminalStatus.h"
#include "checks/BackupRepair.h"
#include "checks/BackupVerifier.h"
#include "device/AFCDevice.h"
#include "library/SQLiteError.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <optional>

QString VerifyCommand::summary() const
{
    return QStringLiteral("Check that every file recorded in a backup folder is there, unchanged.");
}

void VerifyCommand::configure(QCommandLineParser& parser) const
{
    parser.setApplicationDescription(
        summary() + "\nReads each recorded file once and compares its size and SHA-256 with the manifest.\n"
                    "Nothing is written, not even to the manifest. Exits 1 when a file is missing or changed.\n"
                    "With --repair, each missing file is fetched again from the connected device and put back at\n"
                    "its recorded path, but only when its SHA-256 equals the recorded one and nothing else is at\n"
                    "that path. A changed file is never touched. The summary says how many files were restored\n"
                    "and why each of the others was not. Exits 0 when nothing is missing or changed afterwards.");
    parser.addPositionalArgument("DEST", "The backup folder.");
    parser.addOption({"json", "Print the result as JSON."});
    parser.addOption({"repair", "Put back missing files from the connected device."});
    parser.addOption(udidOption());
}

int VerifyCommand::run(const QCommandLineParser& parser, CommandContext& context)
{
    const QStringList positional = parser.positionalArguments();
    if (positional.size() != 1)
        return usageError(context, "verify takes exactly one backup folder.");
    const QString root = QFileInfo(positional.first()).absoluteFilePath();
    if (auto problem = backupFolderProblem(positional.first())) {
        context.err << *problem << "\n";
        return ExitCode::failed;
    }

    const bool json = parser.isSet("json");
    TerminalStatus status(context.out, context.outIsTerminal && !json);
    VerificationReport report;
    std::optional<BackupRepair::Report> repair;
    try {
        report = BackupVerifier::run(root, [&](int done, int total) {
            status.setStatus("Verifying " + QString::number(done) + " of " + QString::number(total) + " files",
                             done == total);
        });
        if (parser.isSet("repair") && !report.missing.isEmpty()) {
            AFCDevice device(chosenUdid(parser));
            repair = BackupRepair::run(root, device, report.missing, [&](int done, int total) {
                status.setStatus("Restoring " + QString::number(done) + " of " + QString::number(total) + " files",
                                 done == total);
            });
        }
    } catch (const SQLiteError& error) {
        status.clear();
        context.err << manifestProblem(root, error.description()) << "\n";
        return ExitCode::failed;
    } catch (const std::exception& error) {
        status.clear();
        context.err << describeError(error) << "\n";
        return ExitCode::failed;
    }
    status.clear();

    QStringList lines = report.lines();
    if (repair)
        lines << repair->lines();
    if (json) {
        QJsonObject object{{"files", report.files},
                           {"bytes", double(report.bytes)},
                           {"intact", report.intact},
                           {"missing", QJsonArray::fromStringList(report.missing)},
                           {"changed", QJsonArray::fromStringList(report.changed)},
                           {"lines", QJsonArray::fromStringList(lines)}};
        if (repair) {
            object.insert("restored", QJsonArray::fromStringList(repair->restored));
            object.insert("notRestored", QJsonArray::fromStringList(repair->notRestored));
        }
        context.out << QJsonDocument(object).toJson(QJsonDocument::Indented);
    } else {
        for (const QString& line : std::as_const(lines))
            context.out << line << "\n";
    }
    const bool nothingMissing = report.missing.isEmpty() || (repair && repair->notRestored.isEmpty());
    return report.changed.isEmpty() && nothingMissing ? ExitCode::ok : ExitCode::runHadErrors;
}
