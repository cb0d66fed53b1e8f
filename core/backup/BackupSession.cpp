#include "BackupSession.h"

#include "BackupEngine.h"
#include "BackupFolderError.h"
#include "BackupFolderLock.h"
#include "DescribedError.h"
#include "Manifest.h"
#include "checks/CompletenessReport.h"
#include "device/AFCDevice.h"
#include "library/LibrarySnapshot.h"
#include "library/SQLiteError.h"
#include "plan/BackupPlan.h"

#include <QDir>
#include <QTemporaryDir>

namespace {

// How many times a database copy the device changed while it was copied is tried again.
constexpr int kFetchAttempts = 3;

DescribedError manifestProblem(const QString& root, const QString& detail)
{
    return DescribedError(QString::fromUtf8("The manifest \u201c%1\u201d of this backup folder is damaged or is not an "
                                            "Ombrelo manifest, so nothing was done; the file was left as it is. (%2)")
                              .arg(QDir(root).filePath(Manifest::fileName), detail));
}

// Opens the manifest of `folder` and makes sure it is sound before anything is written with it.
std::unique_ptr<Manifest> openCheckedManifest(const QString& folder, Manifest::Access access)
{
    try {
        auto manifest = std::make_unique<Manifest>(folder, access);
        QString check;
        manifest->db().query("PRAGMA quick_check", {},
                             [&](const SQLRow& row) { check = row.text(0).value_or(QString()); });
        if (check != "ok")
            throw SQLiteError("quick check: " + check);
        return manifest;
    } catch (const SQLiteError& error) {
        throw manifestProblem(folder, error.description());
    }
}

void requireFolder(const QString& root) { BackupFolderError::requireFolder(root); }

} // namespace

void BackupSession::connect(const std::optional<QString>& udid)
{
    auto device = std::make_shared<AFCDevice>(udid);
    m_device = device->info();
    m_source = std::move(device);
}

void BackupSession::useSource(std::shared_ptr<MediaSource> source, const DeviceInfo& device)
{
    m_source = std::move(source);
    m_device = device;
}

Compatibility::Status BackupSession::compatibility() const { return Compatibility::status(m_device.productVersion); }

const PhotoLibrary& BackupSession::readLibrary()
{
    LibrarySnapshot::Reading reading =
        LibrarySnapshot::read(*m_source, LibrarySnapshot::cacheFolder(m_device.udid), kFetchAttempts);
    m_library = std::move(reading.library);
    m_reusedCopy = reading.reusedCopy;
    return m_library;
}

void BackupSession::useLibrary(PhotoLibrary library) { m_library = std::move(library); }

BackupPlan BackupSession::plan(const ExistingBackup& existing) const
{
    return BackupPlan(m_library, existing.albumPaths);
}

CompletenessReport BackupSession::checkCompleteness(const BackupPlan& plan) const
{
    return CompletenessReport::run(*m_source, plan);
}

void BackupSession::checkFolder(const QString& root, bool forCopying)
{
    requireFolder(root);
    if (forCopying) {
        const BackupFolderLock probe(root);
    }
    if (Manifest::exists(root))
        openCheckedManifest(root, Manifest::Access::readOnly);
}

BackupSummary BackupSession::dryRun(const BackupPlan& plan, const QString& root, const BackupOptions& options,
                                    const RunControl& control) const
{
    requireFolder(root);
    BackupOptions dry = options;
    dry.dryRun = true;
    if (Manifest::exists(root))
        return runEngine(plan, root, root, Manifest::Access::readOnly, dry, control);
    // Nothing is recorded yet: the engine asks an empty manifest of its own, outside the folder.
    QTemporaryDir scratch;
    if (!scratch.isValid())
        throw DescribedError("Could not make a temporary folder for the dry run: " + scratch.errorString());
    return runEngine(plan, root, scratch.path(), Manifest::Access::readWrite, dry, control);
}

BackupSummary BackupSession::run(const BackupPlan& plan, const QString& root, const BackupOptions& options,
                                 const RunControl& control) const
{
    requireFolder(root);
    BackupOptions real = options;
    real.dryRun = false;
    return runEngine(plan, root, root, Manifest::Access::readWrite, real, control);
}

BackupSummary BackupSession::runEngine(const BackupPlan& plan, const QString& root, const QString& manifestFolder,
                                       Manifest::Access access, const BackupOptions& options,
                                       const RunControl& control) const
{
    const std::unique_ptr<Manifest> manifest = openCheckedManifest(manifestFolder, access);
    BackupEngine engine(*m_source, plan, root, *manifest);
    return engine.run(options, control.isCancelled, control.onEvent);
}
