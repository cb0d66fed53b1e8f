// Times PhotoLibrary::load (and the integrity check that precedes it) on the Photos database of a
// 100,000-item phone written by ombrelo-mkdevice.
//
//   LibraryLoadBench [--assets N] [--runs R] [--db FILE]
//
// Each run reads a fresh copy of the database with its -wal and -shm, as a fetch leaves them: the
// first open folds the log into the copy, so reusing one copy would time less work.

#include "library/LibrarySnapshot.h"
#include "library/PhotoLibrary.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <stdexcept>
#include <vector>

namespace {

QString makeDevice(const QString& folder, int assets)
{
    const QString tool = QStringLiteral(OMBRELO_BIN_DIR) + "/ombrelo-mkdevice";
    const QStringList arguments{folder, "--assets", QString::number(assets), "--files", "none"};
    std::printf("$ ombrelo-mkdevice %s\n", qPrintable(arguments.join(' ')));
    std::fflush(stdout);
    QProcess process;
    process.setProcessChannelMode(QProcess::ForwardedChannels);
    process.start(tool, arguments);
    if (!process.waitForFinished(600000) || process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0)
        throw std::runtime_error("ombrelo-mkdevice failed; build it first (cmake --build build)");
    return folder + "/media/PhotoData/Photos.sqlite";
}

void copyDatabase(const QString& database, const QString& folder)
{
    QDir().mkpath(folder);
    for (const QString& name : LibrarySnapshot::deviceFiles()) {
        const QString source = QFileInfo(database).dir().filePath(QFileInfo(database).fileName() +
                                                                  name.mid(QString("Photos.sqlite").size()));
        const QString target = folder + "/" + name;
        QFile::remove(target);
        if (QFile::exists(source) && !QFile::copy(source, target))
            throw std::runtime_error(("cannot copy " + source).toStdString());
        QFile::setPermissions(target, QFile::ReadOwner | QFile::WriteOwner);
    }
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    const auto option = [&](const QString& name, const QString& fallback) {
        const qsizetype at = args.indexOf(name);
        return at >= 0 && at + 1 < args.size() ? args.at(at + 1) : fallback;
    };
    const int assets = option("--assets", "100000").toInt();
    const int runs = std::max(1, option("--runs", "5").toInt());

    try {
        QTemporaryDir scratch;
        QString database = option("--db", QString());
        if (database.isEmpty())
            database = makeDevice(scratch.filePath("phone"), assets);
        std::printf("database: %s (%.1f MB, log %.1f MB)\n", qPrintable(database), QFileInfo(database).size() / 1e6,
                    QFileInfo(database + "-wal").size() / 1e6);

        std::vector<double> checkTimes;
        std::vector<double> loadTimes;
        std::vector<double> loadCpuTimes;
        PhotoLibrary library;
        for (int run = 1; run <= runs; ++run) {
            const QString folder = scratch.filePath(QString("run%1").arg(run));
            copyDatabase(database, folder);
            QElapsedTimer timer;
            timer.start();
            LibrarySnapshot::checkIntegrity(folder + "/Photos.sqlite");
            checkTimes.push_back(timer.nsecsElapsed() / 1e6);
            copyDatabase(database, folder);
            timer.restart();
            const std::clock_t cpu = std::clock();
            library = PhotoLibrary::load(folder + "/Photos.sqlite");
            loadTimes.push_back(timer.nsecsElapsed() / 1e6);
            loadCpuTimes.push_back(double(std::clock() - cpu) * 1000.0 / CLOCKS_PER_SEC);
            QDir(folder).removeRecursively();
        }
        qsizetype memberships = 0;
        for (const auto& members : library.membership)
            memberships += members.size();
        std::printf("read %lld assets, %lld albums and folders, %lld memberships\n", qint64(library.assets.size()),
                    qint64(library.albums.size()), qint64(memberships));
        // On a shared machine the processor time tells the work done; the elapsed time what a user waits.
        std::printf("| step | median of %d runs | best | processor time (median) |\n|---|---|---|---|\n", runs);
        std::printf("| PhotoLibrary::load | %.0f ms | %.0f ms | %.0f ms |\n", median(loadTimes),
                    *std::min_element(loadTimes.begin(), loadTimes.end()), median(loadCpuTimes));
        std::printf("| LibrarySnapshot::checkIntegrity | %.0f ms | %.0f ms | |\n", median(checkTimes),
                    *std::min_element(checkTimes.begin(), checkTimes.end()));
        std::printf("RESULT library load %.0f ms (target under 1000 ms): %s\n", median(loadTimes),
                    median(loadTimes) < 1000 ? "met" : "MISSED");
    } catch (const std::exception& error) {
        std::fprintf(stderr, "LibraryLoadBench: %s\n", error.what());
        return 1;
    }
    return 0;
}
