// scratch, not committed
#include "backup/BackupEngine.h"
#include "backup/Manifest.h"
#include "device/AFCDevice.h"
#include "library/LibrarySnapshot.h"
#include "library/PhotoLibrary.h"
#include "plan/BackupPlan.h"
#include <QCoreApplication>
#include <QElapsedTimer>
#include <cstdio>
#include <ctime>
int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    QElapsedTimer t; t.start();
    AFCDevice device;
    PhotoLibrary library = PhotoLibrary::load(argv[1]);
    std::printf("load %lld ms\n", t.restart());
    Manifest manifest(argv[2]);
    BackupPlan plan(library, manifest.albumPaths());
    std::printf("plan %lld ms\n", t.restart());
    BackupOptions options;
    for (const BackupNode& n : plan.topLevelNodes()) options.nodeIDs.insert(n.id);
    options.dryRun = QString(argv[3]) == "dry";
    for (int r = 0; r < 2; ++r) {
        std::clock_t c = std::clock();
        BackupEngine engine(device, plan, argv[2], manifest);
        qint64 lines = 0;
        auto s = engine.run(options, [] { return false; }, [&](const BackupEvent& e) { if (e.kind == BackupEvent::Kind::log) ++lines; });
        std::printf("walk %lld ms cpu %.0f ms, %lld lines, already %lld\n", t.restart(), double(std::clock()-c)*1000/CLOCKS_PER_SEC, lines, qint64(s.filesAlreadyBackedUp));
    }
}
