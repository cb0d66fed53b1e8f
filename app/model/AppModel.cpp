#include "AppModel.h"

#include "DemoPresets.h"
#include "DemoSource.h"
#include "IndexedPlan.h"
#include "LibraryLoader.h"
#include "Platform.h"
#include "RunController.h"
#include "Selection.h"
#include "backup/BackupSession.h"
#include "backup/ExistingBackup.h"
#include "demo/DemoLibrary.h"
#include "library/LibrarySnapshot.h"

#include <QFileInfo>
#include <QSettings>
#include <QTimer>

#include <algorithm>
#include <exception>

namespace {

const QString kDestinationKey = QStringLiteral("destinationPath");
const QString kDemoDestination = QStringLiteral("/Photo Backup");
const QString kDemoAlbumID = QStringLiteral("DEMO-ALBUM-JAPAN-2026");
const QString kServiceMissing = QStringLiteral(
    "The USB service usbmuxd isn't running. Install the usbmuxd package, then plug the device in again.");
// Worker threads: a listing, a connection, a completeness check and a run or two at the same time.
constexpr int kWorkerThreads = 6;
// Sheets get this many looks, 0.1 s apart, to close before the application quits regardless.
constexpr int kSheetAttempts = 20;

bool holds(const QList<DeviceInfo>& devices, const QString& udid)
{
    return std::any_of(devices.begin(), devices.end(), [&](const DeviceInfo& device) { return device.udid == udid; });
}

bool samePlan(const BackupPlan* a, const BackupPlan* b)
{
    if (!a || !b)
        return a == b;
    return a->cameraRoll == b->cameraRoll && a->hidden == b->hidden && a->albumTree == b->albumTree &&
           a->skipped == b->skipped;
}

} // namespace

AppModel::AppModel(const Setup& setup, QObject* parent)
    : QObject(parent), m_platform(*setup.platform),
      m_ownSettings(setup.settings ? nullptr : std::make_unique<QSettings>("Ombrelo", "Ombrelo")),
      m_settings(setup.settings ? setup.settings : m_ownSettings.get()),
      m_isDemo(qEnvironmentVariable("OMB_DEMO") == "1"), m_selection(new Selection(*m_settings, !m_isDemo, this)),
      m_runs(new RunController(m_workers, m_platform, m_folderCache, this))
{
    m_workers.setMaxThreadCount(kWorkerThreads);
    QObject::connect(m_selection, &Selection::untickedIDsChanged, this, &AppModel::untickedIDsChanged);
    QObject::connect(m_selection, &Selection::photoChoicesChanged, this, &AppModel::photoChoicesChanged);
    QObject::connect(m_selection, &Selection::includeHiddenChanged, this, &AppModel::includeHiddenChanged);
    QObject::connect(m_selection, &Selection::collapsedFolderIDsChanged, this, &AppModel::collapsedFolderIDsChanged);
    QObject::connect(m_runs, &RunController::runChanged, this, &AppModel::runChanged);
    QObject::connect(m_runs, &RunController::cancelFlagChanged, this, &AppModel::cancelFlagChanged);
    QObject::connect(m_runs, &RunController::engineFinished, this, &AppModel::onEngineFinished);

    m_selection->load();
    if (const QString path = m_settings->value(kDestinationKey).toString(); !path.isEmpty())
        m_destination = path;
    if (m_isDemo) {
        loadDemo();
    } else {
        m_poller = new DevicePoller(m_workers, setup.pollInterval, this);
        QObject::connect(m_poller, &DevicePoller::listed, this, &AppModel::applyListing);
        m_poller->start();
    }
    s_shared = this;
}

AppModel::~AppModel()
{
    // Workers deliver to objects that are about to go; let them finish first, an engine soonest.
    m_runs->cancel();
    if (m_poller)
        m_poller->stop();
    m_workers.waitForDone();
}

template <typename T>
void AppModel::assign(T& field, const T& value, void (AppModel::*changed)())
{
    if (field == value)
        return;
    field = value;
    emit(this->*changed)();
}

const BackupPlan* AppModel::plan() const { return m_plan ? &m_plan->plan() : nullptr; }
const std::optional<Run>& AppModel::run() const { return m_runs->run(); }
std::shared_ptr<CancelFlag> AppModel::cancelFlag() const { return m_runs->cancelFlag(); }

std::shared_ptr<MediaSource> AppModel::source() const
{
    return m_connection && m_connection->session() ? m_connection->session()->source() : nullptr;
}

QStringList AppModel::allLeaves() const
{
    QStringList leaves;
    for (const QString& id : m_plan ? m_plan->allLeafIDs() : QStringList())
        if (id != BackupPlan::hiddenID || includeHidden())
            leaves << id;
    return leaves;
}

QStringList AppModel::tickedLeaves() const
{
    QStringList leaves;
    for (const QString& id : m_plan ? m_plan->allLeafIDs() : QStringList())
        if (isTicked(id))
            leaves << id;
    return leaves;
}

// --- Devices and library ---

void AppModel::refreshDevices()
{
    if (m_poller)
        m_poller->listNow();
}

void AppModel::applyListing(const DevicePoller::Listing& listing)
{
    assign(m_usbServiceProblem, listing.serviceReachable ? QString() : kServiceMissing,
           &AppModel::usbServiceProblemChanged);
    // Only a different set of devices is news: the same ones in another order redraw nothing.
    if (QSet<DeviceInfo>(listing.devices.begin(), listing.devices.end()) !=
        QSet<DeviceInfo>(m_devices.begin(), m_devices.end())) {
        m_devices = listing.devices;
        emit devicesChanged();
    }
    if (m_selectedUDID && !holds(m_devices, *m_selectedUDID)) {
        // A run keeps its own hold on the device: it ends with its own errors, then we let go.
        if (m_runs->engineBusy())
            m_vanishedDuringRun = true;
        else
            disconnect();
    }
    if (const std::optional<QString> reload = std::exchange(m_reloadUDID, std::nullopt)) {
        if (holds(m_devices, *reload))
            return connect(*reload);
    }
    if (!m_selectedUDID && !m_devices.isEmpty())
        connect(m_devices.first().udid);
}

void AppModel::connect(const QString& udid)
{
    m_triedUDID = udid;
    for (const DeviceInfo& device : std::as_const(m_devices)) {
        if (device.udid == udid && device.problem) {
            assign(m_libraryState, LibraryState::failed(*device.problem), &AppModel::libraryStateChanged);
            return;
        }
    }
    startConnection(new LibraryLoader(m_workers, udid, this));
    assign(m_libraryState, LibraryState::loading(QString::fromUtf8("Connecting\u2026")),
           &AppModel::libraryStateChanged);
    m_connection->start();
}

void AppModel::startConnection(LibraryLoader* loader)
{
    dropConnection();
    m_connection = loader;
    QObject::connect(loader, &LibraryLoader::opened, this, &AppModel::onOpened);
    QObject::connect(loader, &LibraryLoader::libraryRead, this, &AppModel::onLibraryRead);
    QObject::connect(loader, &LibraryLoader::failed, this, &AppModel::onConnectionFailed);
    QObject::connect(loader, &LibraryLoader::completenessChecked, this, &AppModel::onCompletenessChecked);
    assign(m_selectedUDID, std::optional(loader->udid()), &AppModel::selectedUDIDChanged);
    m_thumbnails.setSource(loader->session() ? loader->session()->source() : nullptr);
}

// Forgets the connection and everything read through it; what its workers still deliver is dropped.
void AppModel::dropConnection()
{
    if (m_connection) {
        m_connection->QObject::disconnect(this);
        m_connection->deleteLater();
        m_connection = nullptr;
    }
    m_thumbnails.setSource(nullptr);
    assign(m_device, std::optional<DeviceInfo>(), &AppModel::deviceChanged);
    assign(m_library, std::optional<PhotoLibrary>(), &AppModel::libraryChanged);
    setPlan(nullptr);
    assign(m_compatibility, std::optional<Compatibility::Status>(), &AppModel::compatibilityChanged);
    assign(m_completeness, std::optional<CompletenessReport>(), &AppModel::completenessChanged);
    assign(m_checkingCompleteness, false, &AppModel::checkingCompletenessChanged);
}

void AppModel::onOpened(const DeviceInfo& device)
{
    assign(m_device, std::optional(device), &AppModel::deviceChanged);
    m_thumbnails.setSource(source());
    assign(m_libraryState, LibraryState::loading("Reading the Photos library from " + device.name + "\u2026"),
           &AppModel::libraryStateChanged);
}

void AppModel::onLibraryRead(const PhotoLibrary& library)
{
    assign(m_library, std::optional(library), &AppModel::libraryChanged);
    rebuildPlan();
    assign(m_compatibility, std::optional(m_connection->session()->compatibility()), &AppModel::compatibilityChanged);
    assign(m_libraryState, LibraryState::loaded(), &AppModel::libraryStateChanged);
    runCompletenessCheck();
}

void AppModel::onConnectionFailed(const QString& text)
{
    dropConnection();
    assign(m_libraryState, LibraryState::failed(text), &AppModel::libraryStateChanged);
}

void AppModel::disconnect()
{
    dropConnection();
    assign(m_selectedUDID, std::optional<QString>(), &AppModel::selectedUDIDChanged);
    assign(m_libraryState, LibraryState::noDevice(), &AppModel::libraryStateChanged);
}

void AppModel::reloadLibrary()
{
    const std::optional<QString> udid = m_selectedUDID ? m_selectedUDID : m_triedUDID;
    if (!udid || !m_poller)
        return;
    // The device's problem may be gone (unlocked, trusted): look again before connecting.
    m_reloadUDID = udid;
    m_poller->listNow();
}

QString AppModel::snapshotFolder(const QString& udid) { return LibrarySnapshot::cacheFolder(udid); }

void AppModel::rebuildPlan()
{
    if (!m_library || !m_connection)
        return setPlan(nullptr);
    ExistingBackup existing;
    try {
        if (m_destination && !m_isDemo)
            existing = m_folderCache.read(*m_destination);
    } catch (const std::exception&) {
        // A manifest that is a link or not a file counts as no backup here; the dry run says why.
    }
    BackupPlan plan = m_connection->session()->plan(existing);
    assign(m_backedUp, m_isDemo ? DemoLibrary::backedUp(plan) : existing.backedUp, &AppModel::backedUpChanged);
    assign(m_manifestFileCount, existing.fileCount, &AppModel::manifestFileCountChanged);
    setPlan(std::make_unique<IndexedPlan>(std::move(plan), m_backedUp));
    if (!m_plan->node(m_selectedNodeID))
        setSelectedNodeID(BackupPlan::cameraRollID);
}

void AppModel::setPlan(std::unique_ptr<IndexedPlan> plan)
{
    const bool changed = !samePlan(this->plan(), plan ? &plan->plan() : nullptr);
    m_selection->setPlan(plan.get());
    m_plan = std::move(plan);
    if (changed)
        emit planChanged();
}

void AppModel::runCompletenessCheck()
{
    if (!m_connection || !m_plan || m_isDemo)
        return;
    assign(m_checkingCompleteness, true, &AppModel::checkingCompletenessChanged);
    m_connection->checkCompleteness(m_plan->plan());
}

void AppModel::onCompletenessChecked(const std::optional<CompletenessReport>& report)
{
    assign(m_completeness, report, &AppModel::completenessChanged);
    assign(m_checkingCompleteness, false, &AppModel::checkingCompletenessChanged);
}

void AppModel::setSelectedNodeID(const QString& id) { assign(m_selectedNodeID, id, &AppModel::selectedNodeIDChanged); }

void AppModel::loadDemo()
{
    auto session = std::make_shared<BackupSession>();
    session->useSource(std::make_shared<DemoSource>(), DemoSource::deviceInfo());
    session->useLibrary(DemoLibrary::make());
    assign(m_devices, QList<DeviceInfo>{session->device()}, &AppModel::devicesChanged);
    startConnection(new LibraryLoader(m_workers, session, this));
    assign(m_destination, std::optional(kDemoDestination), &AppModel::destinationChanged);
    m_selection->reset();
    assign(m_device, std::optional(session->device()), &AppModel::deviceChanged);
    assign(m_library, std::optional(session->library()), &AppModel::libraryChanged);
    rebuildPlan();
    assign(m_compatibility, std::optional(session->compatibility()), &AppModel::compatibilityChanged);
    setSelectedNodeID(kDemoAlbumID);
    assign(m_libraryState, LibraryState::loaded(), &AppModel::libraryStateChanged);

    if (const BackupNode* album = m_plan->node(kDemoAlbumID))
        if (const std::optional<PhotoChoice> choice = DemoPresets::choice(*album))
            m_selection->setChoice(kDemoAlbumID, *choice);
    DemoPresets::RunFacts facts{tickedLeaves(), 0, 0, kDemoDestination, QStringLiteral("IMG_1310.HEIC")};
    for (const QString& leaf : std::as_const(facts.leafIDs)) {
        facts.toCopy += m_selection->chosenNotBackedUp(leaf);
        facts.alreadyBackedUp += m_selection->chosenCount(leaf) - m_selection->chosenNotBackedUp(leaf);
    }
    if (std::optional<Run> run = DemoPresets::run(facts))
        m_runs->show(std::move(run));
}

// --- Backup folder ---

void AppModel::chooseDestination()
{
    const std::optional<QString> chosen = m_platform.chooseFolder(
        {QStringLiteral("Choose Backup Folder"),
         QStringLiteral("Photos will be copied into this folder. Nothing in it is ever overwritten or deleted."),
         QStringLiteral("Use This Folder"), m_destination.value_or(QString())});
    if (!chosen)
        return;
    assign(m_destination, chosen, &AppModel::destinationChanged);
    if (!m_isDemo)
        m_settings->setValue(kDestinationKey, *chosen);
    rebuildPlan();
}

void AppModel::revealDestination()
{
    if (m_destination)
        m_platform.revealInFileManager(*m_destination);
}

bool AppModel::destinationAvailable() const { return m_isDemo || (m_destination && QFileInfo(*m_destination).isDir()); }

DestinationStatus AppModel::destinationStatus() const
{
    DestinationStatus::Facts facts;
    facts.destinationSet = m_destination.has_value();
    facts.available = destinationAvailable();
    facts.existingBackup = m_manifestFileCount > 0 || m_isDemo;
    facts.hasPlan = m_plan != nullptr;
    for (const QString& leaf : tickedLeaves())
        facts.chosenNotBackedUp += m_selection->chosenNotBackedUp(leaf);
    return DestinationStatus::describe(facts);
}

bool AppModel::canBackUp() const
{
    return m_libraryState.kind() == LibraryState::Kind::loaded && m_plan && destinationAvailable();
}

// --- Runs ---

void AppModel::startBackup(bool allFolders)
{
    const QStringList leaves = allFolders ? allLeaves() : tickedLeaves();
    if (!canBackUp() || m_isDemo || leaves.isEmpty())
        return;
    Run run;
    run.nodeIDs = leaves;
    for (const QString& leaf : leaves)
        if (photoChoices().contains(leaf))
            run.onlyAssets.insert(leaf, m_selection->chosenUUIDs(leaf));
    run.title = allFolders ? Run::backUpAllTitle : Run::backUpSelectedTitle;
    run.phase = RunPhase::preparing();
    m_runs->show(std::move(run));
    perform(true);
}

void AppModel::perform(bool dryRun)
{
    // Demo mode shows runs but copies nothing.
    if (!m_runs->run() || !m_plan || !source() || !m_destination || m_isDemo)
        return;
    m_runs->perform(dryRun, {m_connection->session(), m_plan->plan(), *m_destination});
}

void AppModel::cancelBackup()
{
    if (m_runs->isRunning())
        m_runs->cancel();
    else
        closeRun();
}

void AppModel::closeRun()
{
    m_runs->show(std::nullopt);
    rebuildPlan();
    const QList<std::function<void()>> handlers = std::exchange(m_idleHandlers, {});
    for (const std::function<void()>& handler : handlers)
        handler();
}

void AppModel::whenIdle(std::function<void()> handler)
{
    if (!m_runs->run())
        handler();
    else
        m_idleHandlers.append(std::move(handler));
}

void AppModel::onEngineFinished()
{
    // The device went while a run copied from it: look again now, and let go of it if it is gone.
    if (std::exchange(m_vanishedDuringRun, false))
        refreshDevices();
}

void AppModel::setWindowClosable(bool closable) { m_platform.setWindowsClosable(closable); }

// --- Quitting ---

void AppModel::quit()
{
    if (!m_runs->isRunning())
        return closeSheetsAndTerminate();
    if (!confirmStopForQuit())
        return;
    // Quit as soon as the engine has stopped and recorded what it copied.
    if (m_runs->isRunning() && m_runs->engineBusy())
        m_runs->whenStopped([this] { closeSheetsAndTerminate(); });
    else
        closeSheetsAndTerminate();
}

bool AppModel::confirmStopForQuit()
{
    const Platform::AlertButton choice = m_platform.ask(
        {QStringLiteral("A backup is in progress"),
         QStringLiteral("Stop the backup and quit? Everything copied so far is kept, and your next backup carries on "
                        "from where this one stopped."),
         QStringLiteral("Keep Backing Up"), QStringLiteral("Stop and Quit")});
    if (choice != Platform::AlertButton::second)
        return false;
    if (m_runs->isRunning())
        m_runs->cancel();
    return true;
}

void AppModel::closeSheetsAndTerminate()
{
    m_runs->show(std::nullopt);
    closeSheetsAndTerminate(0);
}

void AppModel::closeSheetsAndTerminate(int attempt)
{
    if (!m_platform.sheetAttached() || attempt >= kSheetAttempts)
        return m_platform.terminate();
    QTimer::singleShot(100, this, [this, attempt] { closeSheetsAndTerminate(attempt + 1); });
}
