// A whole phone backed up into an empty folder over a link paced like USB 2, against the plain
// read loop over the same files through the same simulator.
//
//   BackupBench [--assets 400] [--runs 3] [--bytes-per-second 40000000] [--work DIR] [--cli PATH]
//
// ombrelo-mkdevice writes the phone with sparse files (real sizes, little disk), ombrelo-devicesim
// serves it, and each run times the real `ombrelo-cli backup DEST --all --include-hidden --yes`
// (fetching the database, the dry run, downloading, hashing, writing, dates, syncs, the manifest;
// its output goes to a file) and then a plain loop of 1 MiB afc_file_read calls over the files that
// backup downloaded. The backup writes every byte for real: a few GB, removed after each run.

#include "BenchSupport.h"

#include "library/SQLiteDB.h"

#include <QCoreApplication>
#include <QTemporaryDir>

#include <unistd.h>

namespace {

struct Downloaded {
    QStringList paths;
    int64_t bytes = 0;
};

// The device files a backup fetched, each once, in the order it recorded them.
Downloaded downloadedFiles(const QString& dest)
{
    Downloaded files;
    SQLiteDB manifest(dest + "/.ombrelo-manifest.sqlite", true, false);
    manifest.query("SELECT source_path, max(size) FROM files GROUP BY source_path ORDER BY min(rowid)", {},
                   [&](const SQLRow& row) {
                       files.paths << row.text(0).value_or(QString());
                       files.bytes += row.integer(1).value_or(0);
                   });
    return files;
}

// The summary the backup printed at its end, on one line.
QString summaryOf(const QString& file)
{
    QFile log(file);
    log.open(QIODevice::ReadOnly);
    const QStringList lines = QString::fromUtf8(log.readAll()).trimmed().split('\n');
    qsizetype first = lines.size();
    while (first > 0 && !lines[first - 1].startsWith("Files copied:"))
        --first;
    return lines.mid(std::max<qsizetype>(0, first - 1)).join(" / ");
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    const int assets = bench::option(args, "--assets", "400").toInt();
    const int runs = std::max(1, bench::option(args, "--runs", "3").toInt());
    const int64_t bytesPerSecond = bench::option(args, "--bytes-per-second", "40000000").toLongLong();
    const QString work = bench::option(args, "--work", QDir::tempPath());
    // Another build of ombrelo-cli to time (an earlier version, to compare with).
    const QString cli = bench::option(args, "--cli", bench::tool("ombrelo-cli"));
    std::signal(SIGPIPE, SIG_IGN);

    try {
        QDir().mkpath(work);
        QTemporaryDir scratch(work + "/ombrelo-backup-bench-XXXXXX");
        if (!scratch.isValid())
            throw bench::failure("cannot make a folder in " + work);
        const QString phone = scratch.filePath("phone");
        const QString udid = bench::makePhone(phone, assets, "sparse", bytesPerSecond);
        const bench::Simulator simulator(scratch.filePath("usbmuxd.sock"), {phone});
        simulator.useInThisProcess();

        std::vector<double> backupTimes, plainTimes, ratios, backupCpu;
        Downloaded files;
        QString summary;
        for (int r = 1; r <= runs; ++r) {
            const QString dest = scratch.filePath("dest");
            const QString cache = scratch.filePath("cache");
            QDir().mkpath(dest);
            QProcessEnvironment environment = simulator.environment();
            environment.insert("XDG_CACHE_HOME", cache); // the database is fetched anew, as on a first backup
            const QString log = scratch.filePath("backup.log");
            const bench::Timing backup =
                bench::run(cli, {"backup", dest, "--all", "--include-hidden", "--yes"}, environment, log);
            if (r == 1) {
                files = downloadedFiles(dest);
                summary = summaryOf(log);
            }
            QDir(dest).removeRecursively();
            QDir(cache).removeRecursively();
            ::sync(); // the next measurement does not pay for this one's writing

            QElapsedTimer timer;
            timer.start();
            const int64_t read = bench::plainReadLoop(udid, files.paths);
            const double plain = bench::seconds(timer);
            if (read != files.bytes)
                throw bench::failure(
                    QString("the plain loop read %1 bytes, the backup recorded %2").arg(read).arg(files.bytes));
            backupTimes.push_back(backup.elapsed);
            backupCpu.push_back(backup.cpu);
            plainTimes.push_back(plain);
            ratios.push_back(backup.elapsed / plain);
            std::printf("run %d: backup %.2f s (processor %.2f s), plain loop %.2f s, ratio %.3f\n", r, backup.elapsed,
                        backup.cpu, plain, backup.elapsed / plain);
            std::fflush(stdout);
        }

        const double ratio = bench::median(ratios);
        std::printf("\nBackup of a %d-item phone (%lld files downloaded, %.2f GB) at %lld bytes/s; the backup "
                    "said: %s\n\n",
                    assets, qint64(files.paths.size()), double(files.bytes) / 1e9, qint64(bytesPerSecond),
                    qPrintable(summary));
        std::printf("| measurement | median of %d | best | worst |\n|---|---|---|---|\n", runs);
        const auto row = [](const char* name, const std::vector<double>& values, const char* unit) {
            std::printf("| %s | %.2f%s | %.2f%s | %.2f%s |\n", name, bench::median(values), unit,
                        *std::min_element(values.begin(), values.end()), unit,
                        *std::max_element(values.begin(), values.end()), unit);
        };
        row("ombrelo-cli backup (elapsed)", backupTimes, " s");
        row("ombrelo-cli backup (processor)", backupCpu, " s");
        row("plain 1 MiB read loop", plainTimes, " s");
        row("backup / plain", ratios, "");
        std::printf("\nRESULT backup/plain %.3f (target at most 1.15): %s\n", ratio, ratio <= 1.15 ? "met" : "MISSED");
    } catch (const std::exception& error) {
        std::fprintf(stderr, "BackupBench: %s\n", error.what());
        return 1;
    }
    return 0;
}
