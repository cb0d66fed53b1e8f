// Running the backup of a fully backed-up 100,000-item phone again: the real
// `ombrelo-cli backup DEST --all --include-hidden --yes`, end to end, through ombrelo-devicesim
// with no limit on the link, its output read through a pipe into a file.
//
//   RerunBench [--assets 100000] [--runs 3] [--data DIR] [--cli PATH]
//
// The phone (ombrelo-mkdevice --files real: small, complete files) and its first backup take a
// while to make, so they are kept in DIR/rerun-N and reused by later runs of the bench; without
// --data they go into a temporary folder, removed at the end.

#include "BenchSupport.h"

#include <QCoreApplication>
#include <QTemporaryDir>
#include <QTextStream>

namespace {

const QStringList kMarks{"Reading the Photos database", "Dry run:", "Files copied:"};

// The line that starts with `prefix` in a program's output, or nothing.
QString lineOf(const QString& file, const QString& prefix)
{
    QFile log(file);
    log.open(QIODevice::ReadOnly);
    QTextStream in(&log);
    QString found;
    while (!in.atEnd()) {
        const QString line = in.readLine();
        if (line.startsWith(prefix))
            found = line;
    }
    return found;
}

// Makes the phone and backs it up once, unless that was done before. Returns the simulator serving
// the phone when it had to be started for that.
std::unique_ptr<bench::Simulator> prepare(const QString& folder, int assets, QString& firstRun)
{
    const QString ready = folder + "/ready";
    if (QFile::exists(ready)) {
        QFile file(ready);
        file.open(QIODevice::ReadOnly);
        firstRun = QString::fromUtf8(file.readAll()).trimmed() + " (made by an earlier run of the bench)";
        return nullptr;
    }
    QDir(folder).removeRecursively();
    QDir().mkpath(folder + "/dest");
    bench::makePhone(folder + "/phone", assets, "real", 0);
    auto simulator = std::make_unique<bench::Simulator>(folder + "/usbmuxd.sock", QStringList{folder + "/phone"});
    QProcessEnvironment environment = simulator->environment();
    environment.insert("XDG_CACHE_HOME", folder + "/cache");
    std::printf("first backup of the phone...\n");
    std::fflush(stdout);
    const bench::Timing first =
        bench::run(bench::tool("ombrelo-cli"), {"backup", folder + "/dest", "--all", "--include-hidden", "--yes"},
                   environment, folder + "/first.log", 6 * 3600);
    firstRun = QString("first backup: %1 s; %2")
                   .arg(first.elapsed, 0, 'f', 1)
                   .arg(lineOf(folder + "/first.log", "Files copied:"));
    QFile file(ready);
    if (!file.open(QIODevice::WriteOnly) || file.write(firstRun.toUtf8() + "\n") < 0)
        throw bench::failure("cannot write " + ready);
    return simulator;
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    const int assets = bench::option(args, "--assets", "100000").toInt();
    const int runs = std::max(1, bench::option(args, "--runs", "3").toInt());
    const QString data = bench::option(args, "--data", QString());
    // Another build of ombrelo-cli to time (an earlier version, to compare with).
    const QString cli = bench::option(args, "--cli", bench::tool("ombrelo-cli"));

    try {
        QTemporaryDir scratch(QDir::tempPath() + "/ombrelo-rerun-bench-XXXXXX");
        const QString folder = (data.isEmpty() ? scratch.path() : data) + "/rerun-" + QString::number(assets);
        QString firstRun;
        std::unique_ptr<bench::Simulator> simulator = prepare(folder, assets, firstRun);
        if (!simulator)
            simulator = std::make_unique<bench::Simulator>(folder + "/usbmuxd.sock", QStringList{folder + "/phone"});
        std::printf("%s\n", qPrintable(firstRun));

        QProcessEnvironment environment = simulator->environment();
        environment.insert("XDG_CACHE_HOME", folder + "/cache");
        std::vector<double> times, cpu, connect, prepared, copied;
        qint64 lines = 0;
        QString already;
        for (int r = 1; r <= runs; ++r) {
            const QString log = folder + "/rerun.log";
            std::vector<double> marks;
            const bench::Timing timing =
                bench::runMarked(cli, {"backup", folder + "/dest", "--all", "--include-hidden", "--yes"}, environment,
                                 log, kMarks, marks, &lines);
            const QString copiedLine = lineOf(log, "Files copied:");
            if (!copiedLine.startsWith("Files copied: 0 "))
                throw bench::failure("the phone was not fully backed up: " + copiedLine);
            already = lineOf(log, "Already backed up:");
            times.push_back(timing.elapsed);
            cpu.push_back(timing.cpu);
            connect.push_back(marks[0]);
            prepared.push_back(marks[1] - marks[0]);
            copied.push_back(marks[2] - marks[1]);
            std::printf("run %d: %.2f s (processor %.2f s): connected at %.2f s, dry run done at %.2f s, "
                        "summary at %.2f s\n",
                        r, timing.elapsed, timing.cpu, marks[0], marks[1], marks[2]);
            std::fflush(stdout);
        }

        std::printf("\nRe-running the backup of a fully backed-up %d-item phone (%s; %lld lines of output)\n\n", assets,
                    qPrintable(already), lines);
        std::printf("| step | median of %d | best | worst |\n|---|---|---|---|\n", runs);
        const auto row = [](const char* name, const std::vector<double>& values) {
            std::printf("| %s | %.2f s | %.2f s | %.2f s |\n", name, bench::median(values),
                        *std::min_element(values.begin(), values.end()),
                        *std::max_element(values.begin(), values.end()));
        };
        row("start and connect", connect);
        row("fetch and read the database, plan, dry run", prepared);
        row("the run itself", copied);
        row("ombrelo-cli backup, end to end", times);
        row("processor time of ombrelo-cli", cpu);
        const double median = bench::median(times);
        std::printf("\nRESULT rerun %.2f s (target under 10 s): %s\n", median, median < 10 ? "met" : "MISSED");
    } catch (const std::exception& error) {
        std::fprintf(stderr, "RerunBench: %s\n", error.what());
        return 1;
    }
    return 0;
}
