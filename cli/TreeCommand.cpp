#include "TreeCommand.h"

#include "DeviceLibrary.h"
#include "ErrorText.h"
#include "PhotosDatabaseFile.h"
#include "backup/ExistingBackup.h"
#include "demo/DemoLibrary.h"
#include "plan/BackupPlan.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <functional>

namespace {

QJsonObject nodeJson(const BackupNode& node, const std::optional<ExistingBackup>& backedUp)
{
    QJsonObject object{{"id", node.id},
                       {"title", node.title},
                       {"kind", rawValue(node.kind)},
                       {"relativePath", node.relativePath},
                       {"assetUUIDs", QJsonArray::fromStringList(node.assetUUIDs)}};
    if (node.children) {
        QJsonArray children;
        for (const BackupNode& child : *node.children)
            children.append(nodeJson(child, backedUp));
        object.insert("children", children);
    }
    if (backedUp)
        object.insert("backedUp", backedUp->backedUpCount(node));
    return object;
}

void printNode(QTextStream& out, const BackupNode& node, int depth, const std::optional<ExistingBackup>& backedUp)
{
    out << QString(depth * 2, ' ') << node.title << (node.children ? "/" : "") << "  [" << node.id << "]  → "
        << node.relativePath << "  (" << node.totalCount() << " items";
    if (backedUp)
        out << ", " << backedUp->backedUpCount(node) << " backed up";
    out << ")\n";
    if (node.children)
        for (const BackupNode& child : *node.children)
            printNode(out, child, depth + 1, backedUp);
}

} // namespace

QString TreeCommand::summary() const
{
    return QStringLiteral("Show the folders a backup makes, with their ids and item counts.");
}

void TreeCommand::configure(QCommandLineParser& parser) const
{
    parser.setApplicationDescription(summary() +
                                     "\nReads the connected device (or a Photos database file, or the demo "
                                     "library) and prints\nthe backup tree, then the items left out and why.");
    parser.addOption({"udid", "Read the device with this UDID (default: the first one).", "U"});
    parser.addOption({"db",
                      "Read this Photos database file (with its -wal and -shm beside it) instead of a device. "
                      "The file is read from a temporary copy and left as it is.",
                      "FILE"});
    parser.addOption({"demo", "Show the built-in demo library."});
    parser.addOption({"dest", "Also count what is already backed up in this backup folder.", "DIR"});
    parser.addOption({"json", "Print the tree as JSON."});
}

int TreeCommand::run(const QCommandLineParser& parser, CommandContext& context)
{
    const int sources = int(parser.isSet("udid")) + int(parser.isSet("db")) + int(parser.isSet("demo"));
    if (sources > 1)
        return usageError(context, "Use only one of --udid, --db and --demo.");
    if (!parser.positionalArguments().isEmpty())
        return usageError(context, "tree takes no arguments besides its options.");
    const bool json = parser.isSet("json");

    try {
        PhotoLibrary library;
        QTextStream quiet(stderr);
        if (parser.isSet("demo")) {
            library = DemoLibrary::make();
        } else if (parser.isSet("db")) {
            library = PhotosDatabaseFile::read(parser.value("db"));
        } else {
            std::optional<QString> udid;
            if (parser.isSet("udid"))
                udid = parser.value("udid");
            BackupSession session;
            DeviceLibrary::open(session, udid, json ? quiet : context.out);
            library = session.library();
        }

        std::optional<ExistingBackup> backedUp;
        if (parser.isSet("dest")) {
            const QString dest = parser.value("dest");
            if (auto problem = backupFolderProblem(dest)) {
                context.err << *problem << "\n";
                return ExitCode::failed;
            }
            // Read only: looking at a backup never changes its manifest.
            backedUp = ExistingBackup::read(dest);
        }
        const BackupPlan plan(library, backedUp ? backedUp->albumPaths : QHash<QString, QString>{});

        if (json) {
            QJsonArray nodes;
            for (const BackupNode& node : plan.topLevelNodes())
                nodes.append(nodeJson(node, backedUp));
            QJsonObject skipped;
            for (SkipReason reason : allSkipReasons())
                skipped.insert(rawValue(reason), plan.skipped.value(reason));
            context.out << QJsonDocument(QJsonObject{{"topLevelNodes", nodes}, {"skipped", skipped}}).toJson();
            return ExitCode::ok;
        }
        for (const BackupNode& node : plan.topLevelNodes())
            printNode(context.out, node, 0, backedUp);
        context.out << "Left out:\n";
        for (SkipReason reason : allSkipReasons())
            context.out << "  " << rawValue(reason) << ": " << plan.skipped.value(reason) << "\n";
        return ExitCode::ok;
    } catch (const std::exception& error) {
        context.err << describeError(error) << "\n";
        return ExitCode::failed;
    }
}
