#include "VerifyCommand.h"

#include "ErrorText.h"
#include "TerminalStatus.h"
#include "checks/BackupVerifier.h"
#include "library/SQLiteError.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

QString VerifyCommand::summary() const
{
    return QStringLiteral("Check that every file recorded in a backup folder is there, unchanged.");
}

void VerifyCommand::configure(QCommandLineParser& parser) const
{
    parser.setApplicationDescription(
        summary() + "\nReads each recorded file once and compares its size and SHA-256 with the manifest.\n"
                    "Nothing is written, not even to the manifest. Exits 1 when a file is missing or changed.");
    parser.addPositionalArgument("DEST", "The backup folder.");
    parser.addOption({"json", "Print the result as JSON."});
}

int VerifyCommand::run(const QCommandLineParser& parser, CommandContext& context)
{
    const QStringList positional = parser.positionalArguments();
    if (positional.size() != 1)
        return usageError(context, "verify takes exactly one backup folder.");
    const QString root = QFileInfo(positional.first()).absoluteFilePath();
    if (!QFileInfo(root).isDir()) {
        context.err << QString::fromUtf8("The backup folder \u201c%1\u201d doesn't exist. Is the drive connected?\n")
                           .arg(positional.first());
        return ExitCode::failed;
    }

    const bool json = parser.isSet("json");
    TerminalStatus status(context.out, context.outIsTerminal && !json);
    VerificationReport report;
    try {
        report = BackupVerifier::run(root, [&](int done, int total) {
            status.setStatus("Verifying " + QString::number(done) + " of " + QString::number(total) + " files",
                             done == total);
        });
    } catch (const SQLiteError& error) {
        status.clear();
        context.err << manifestProblem(root, error.description()) << "\n";
        return ExitCode::failed;
    } catch (const std::runtime_error& error) {
        status.clear();
        context.err << QString::fromUtf8(error.what()) << "\n";
        return ExitCode::failed;
    }
    status.clear();

    if (json) {
        QJsonObject object{{"files", report.files},
                           {"bytes", double(report.bytes)},
                           {"intact", report.intact},
                           {"missing", QJsonArray::fromStringList(report.missing)},
                           {"changed", QJsonArray::fromStringList(report.changed)},
                           {"lines", QJsonArray::fromStringList(report.lines())}};
        context.out << QJsonDocument(object).toJson(QJsonDocument::Indented);
    } else {
        for (const QString& line : report.lines())
            context.out << line << "\n";
    }
    return report.isClean() ? ExitCode::ok : ExitCode::runHadErrors;
}
