// The application model over a large library: rebuilding the plan with every count the sidebar
// shows (a tick box, the chosen, backed-up and total counts of every row, the toolbar's total and
// the backup folder's status line), and a click on the largest folder or on one photo in it with
// all those counts again. The model connects to a phone served by ombrelo-devicesim, as the window
// does.
//
//   AppModelBench [--assets 100000] [--runs 7] [--data DIR]
//
// The counts are taken against a backup folder whose manifest records the whole library. With
// --data, the phone and the backup that RerunBench keeps in DIR/rerun-N are used; without them a
// phone with the database alone is made, and a manifest with one file per item and folder is
// written directly (no file is copied).

#include "AppModel.h"
#include "BenchSupport.h"
#include "Platform.h"
#include "backup/Manifest.h"

#include <QEventLoop>
#include <QGuiApplication>
#include <QSettings>
#include <QTemporaryDir>
#include <QTimer>

#include <ctime>

namespace {

// The desktop is not asked for anything but the backup folder.
class BenchPlatform : public Platform {
public:
    explicit BenchPlatform(const QString& folder) : m_folder(folder) {}
    std::optional<QString> chooseFolder(const FolderRequest&) override { return m_folder; }
    AlertButton ask(const AlertRequest&) override { return AlertButton::first; }
    void revealInFileManager(const QString&) override {}
    void setWindowsClosable(bool) override {}
    bool sheetAttached() override { return false; }
    void terminate() override {}

private:
    QString m_folder;
};

// What a backup of the whole library records: the original of every item in every folder.
void recordWholeLibrary(const QString& folder, const BackupPlan& plan)
{
    QDir().mkpath(folder);
    Manifest manifest(folder);
    manifest.db().execute("BEGIN");
    for (const BackupNode& leaf : plan.allLeaves())
        for (const QString& uuid : leaf.assetUUIDs)
            manifest.db().execute("INSERT OR IGNORE INTO files VALUES(?,?,?,?,?,?,?,?,?,?)",
                                  {uuid, leaf.relativePath, "original", leaf.relativePath + "/" + uuid + ".HEIC",
                                   QString(64, '0'), 1, SQLValue::null(), QString(), "copied", "2026-01-01T00:00:00Z"});
    manifest.db().execute("COMMIT");
}

void collect(const BackupNode& node, QStringList& ids)
{
    ids << node.id;
    for (const BackupNode& child : node.children.value_or(QList<BackupNode>()))
        collect(child, ids);
}

// Every count the sidebar and the toolbar show; the sum keeps the work from being optimised away.
int64_t sidebarCounts(const AppModel& model, const QStringList& rows, const QStringList& topLevel)
{
    int64_t sum = 0;
    for (const QString& id : rows)
        sum += int(model.tickState(id)) + model.chosenCount(id) + model.backedUpCount(id) + model.assetCount(id);
    for (const QString& id : topLevel)
        sum += model.chosenCount(id);
    return sum + model.destinationStatus().text.size();
}

// One run of a step: the time it took, and the processor time this thread spent on it. Every step
// runs on this thread alone, so on a machine busy with other work the processor time is what the
// step costs, while the elapsed time also counts the waits for a processor.
struct Timing {
    double elapsedMs = 0;
    double processorMs = 0;
};

double threadProcessorMs()
{
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return double(now.tv_sec) * 1e3 + double(now.tv_nsec) / 1e6;
}

// Times `step` `runs` times, each after an untimed `prepare`.
template <typename Step, typename Prepare = void (*)()>
std::vector<Timing> timed(
    int runs, Step step, Prepare prepare = [] {})
{
    std::vector<Timing> times;
    for (int run = 0; run < runs; ++run) {
        prepare();
        QElapsedTimer timer;
        const double processor = threadProcessorMs();
        timer.start();
        step(run);
        times.push_back({double(timer.nsecsElapsed()) / 1e6, threadProcessorMs() - processor});
    }
    return times;
}

// A click is judged by its slowest run (the first click on a folder does the most), a rebuild by the
// median; both by processor time, which the machine's other work leaves as it is.
enum class Judge { median, worst };

void report(const char* what, const std::vector<Timing>& times, double target, const char* result, Judge judge)
{
    std::vector<double> elapsed, processor;
    for (const Timing& time : times) {
        elapsed.push_back(time.elapsedMs);
        processor.push_back(time.processorMs);
    }
    const auto worst = [](const std::vector<double>& values) {
        return *std::max_element(values.begin(), values.end());
    };
    std::printf("| %s | %.1f ms | %.1f ms | %.1f ms | %.1f ms | %.1f ms |\n", what, bench::median(elapsed),
                *std::min_element(elapsed.begin(), elapsed.end()), worst(elapsed), bench::median(processor),
                worst(processor));
    if (!result)
        return;
    const double judged = judge == Judge::median ? bench::median(processor) : worst(processor);
    std::printf("RESULT %s %.1f ms (processor time, %s; target under %.0f ms): %s\n", result, judged,
                judge == Judge::median ? "median" : "slowest", target, judged < target ? "met" : "MISSED");
}

} // namespace

int main(int argc, char* argv[])
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);
    const QStringList args = app.arguments();
    const int assets = bench::option(args, "--assets", "100000").toInt();
    const int runs = std::max(1, bench::option(args, "--runs", "7").toInt());
    const QString data = bench::option(args, "--data", QString());
    try {
        QTemporaryDir scratch(QDir::tempPath() + "/ombrelo-appmodel-bench-XXXXXX");
        const QString kept = data + "/rerun-" + QString::number(assets);
        const bool reuse = !data.isEmpty() && QFile::exists(kept + "/ready");
        const QString phone = reuse ? kept + "/phone" : scratch.filePath("phone");
        if (!reuse)
            bench::makePhone(phone, assets, "none", 0);
        bench::Simulator simulator(scratch.filePath("usbmuxd.sock"), {phone});
        simulator.useInThisProcess();
        qputenv("XDG_CACHE_HOME", scratch.filePath("cache").toUtf8());
        qunsetenv("OMB_DEMO");

        const QString destination = reuse ? kept + "/dest" : scratch.filePath("dest");
        BenchPlatform platform(destination);
        QSettings settings(scratch.filePath("settings.ini"), QSettings::IniFormat);
        AppModel model({&platform, &settings, std::chrono::hours(1)});
        QElapsedTimer connecting;
        connecting.start();
        while (model.libraryState() != LibraryState::loaded()) {
            if (model.libraryState().kind() == LibraryState::Kind::failed || connecting.elapsed() > 600000)
                throw bench::failure("the phone did not load: " + model.libraryState().message());
            QEventLoop loop;
            QTimer::singleShot(10, &loop, &QEventLoop::quit);
            loop.exec();
        }
        // The completeness check runs in the background after a connection; let it finish first.
        while (model.checkingCompleteness()) {
            QEventLoop loop;
            QTimer::singleShot(10, &loop, &QEventLoop::quit);
            loop.exec();
        }
        const double connectSeconds = double(connecting.elapsed()) / 1000.0;
        if (!reuse)
            recordWholeLibrary(destination, *model.plan());
        model.chooseDestination();

        QStringList rows, topLevel;
        for (const BackupNode& node : model.plan()->topLevelNodes()) {
            topLevel << node.id;
            collect(node, rows);
        }
        const QString largest = BackupPlan::cameraRollID;
        const int largestSize = model.assetCount(largest);
        const QString photo = model.plan()->cameraRoll.assetUUIDs.value(largestSize / 2);
        std::printf("%d assets: %d rows in the sidebar, the camera roll holds %d photos, %d files recorded in the "
                    "backup folder; connected, read and checked in %.1f s\n\n",
                    assets, int(rows.size()), largestSize, model.manifestFileCount(), connectSeconds);
        std::printf("| step, then every count | median of %d | best | worst | processor time, median | "
                    "processor time, worst |\n|---|---|---|---|---|---|\n",
                    runs);

        int64_t sink = 0;
        report("the core's BackupPlan alone, for comparison",
               timed(runs, [&](int) { sink += BackupPlan(*model.library()).allLeaves().size(); }), 0, nullptr,
               Judge::median);
        const auto rebuild = [&](int) {
            model.rebuildPlan();
            sink += sidebarCounts(model, rows, topLevel);
        };
        // A manifest that is newer than the model's reading of it is read again: after a run of
        // another program, or a new backup folder. (After its own runs the model reads it on the
        // run's worker.)
        QFile manifest(QDir(destination).filePath(Manifest::fileName));
        const auto touchManifest = [&] {
            if (!manifest.open(QIODevice::ReadWrite) ||
                !manifest.setFileTime(QDateTime::currentDateTime(), QFileDevice::FileModificationTime))
                throw bench::failure("cannot touch " + manifest.fileName());
            manifest.close();
        };
        report("rebuildPlan, the manifest read again", timed(runs, rebuild, touchManifest), 200,
               "app model rebuild and counts", Judge::median);
        report("rebuildPlan, the manifest as last read", timed(runs, rebuild), 0, nullptr, Judge::median);
        report("toggle the camera roll",
               timed(runs,
                     [&](int) {
                         model.toggle(largest);
                         sink += sidebarCounts(model, rows, topLevel);
                     }),
               16, "app model folder click", Judge::worst);
        if (!model.isTicked(largest))
            model.toggle(largest);
        report("toggle one photo in it",
               timed(runs,
                     [&](int) {
                         model.togglePhoto(photo, largest);
                         sink += sidebarCounts(model, rows, topLevel);
                     }),
               16, "app model photo click", Judge::worst);
        std::printf("\n(checksum %lld)\n", static_cast<long long>(sink));
    } catch (const std::exception& error) {
        std::fprintf(stderr, "AppModelBench: %s\n", error.what());
        return 1;
    }
    return 0;
}
