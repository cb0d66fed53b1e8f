#pragma once

#include "BackupFolderCache.h"
#include "CancelFlag.h"
#include "DestinationStatus.h"
#include "DevicePoller.h"
#include "IndexedPlan.h"
#include "LibraryState.h"
#include "PhotoChoice.h"
#include "Run.h"
#include "Selection.h"
#include "ThumbnailCache.h"
#include "TickState.h"
#include "checks/Compatibility.h"
#include "checks/CompletenessReport.h"
#include "device/DeviceInfo.h"
#include "library/PhotoLibrary.h"
#include "plan/BackupPlan.h"

#include <QHash>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QThreadPool>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

class BackupSession;
class LibraryLoader;
class MediaSource;
class Platform;
class QSettings;
class RunController;

// The application's one model: every view reads it and calls it, nothing else in the application
// talks to the core. It lives on the GUI thread; slow work (listing devices, opening one, reading
// its library, checking its files, the engine) runs on worker threads, and results are applied
// back on the GUI thread. Every stored field has a change signal, emitted only on a real change.
//
// Start-up reads the selection and the backup folder from the settings and, unless demo mode is
// on, lists the connected devices at once and then every 4 seconds, connecting to the first one.
//
// Environment:
//   OMB_DEMO=1             demo mode: a built-in library stands in for a device, no device is
//                          polled, and nothing is written to the settings. Any other value is off.
//   OMB_DEMO_CHOICE=1      (demo mode) the selected album "Japan 2026" starts with every fourth
//                          photo left out, so its box shows mixed and those tiles dimmed.
//   OMB_DEMO_RUN=PHASE     (demo mode) a "Back Up All" run of the ticked folders is shown in the
//                          backup sheet, in PHASE "preparing", "ready", "running" or "finished",
//                          with figures made from the demo library.
class AppModel : public QObject {
    Q_OBJECT
public:
    struct Setup {
        Platform* platform = nullptr; // required
        // Where the selection and the backup folder are kept; none: the user's settings.
        QSettings* settings = nullptr;
        std::chrono::milliseconds pollInterval{4000};
    };

    explicit AppModel(const Setup& setup, QObject* parent = nullptr);
    ~AppModel() override;

    // The model made last, while it lives.
    static AppModel* shared() { return s_shared; }

    // Stored fields.
    const QList<DeviceInfo>& devices() const { return m_devices; }
    const std::optional<QString>& selectedUDID() const { return m_selectedUDID; }
    const LibraryState& libraryState() const { return m_libraryState; }
    // The device of the open connection.
    const std::optional<DeviceInfo>& device() const { return m_device; }
    const std::optional<PhotoLibrary>& library() const { return m_library; }
    // Null when there is no plan.
    const BackupPlan* plan() const;
    const std::optional<Compatibility::Status>& compatibility() const { return m_compatibility; }
    const std::optional<CompletenessReport>& completeness() const { return m_completeness; }
    bool checkingCompleteness() const { return m_checkingCompleteness; }
    const QString& selectedNodeID() const { return m_selectedNodeID; }
    const QSet<QString>& untickedIDs() const { return m_selection->untickedIDs(); }
    const QHash<QString, PhotoChoice>& photoChoices() const { return m_selection->photoChoices(); }
    bool includeHidden() const { return m_selection->includeHidden(); }
    const QSet<QString>& collapsedFolderIDs() const { return m_selection->collapsedFolderIDs(); }
    const std::optional<QString>& destination() const { return m_destination; }
    const QHash<QString, QSet<QString>>& backedUp() const { return m_backedUp; }
    int manifestFileCount() const { return m_manifestFileCount; }
    const std::optional<Run>& run() const;
    std::shared_ptr<CancelFlag> cancelFlag() const;
    ThumbnailCache& thumbnails() { return m_thumbnails; }
    bool isDemo() const { return m_isDemo; }
    // The line the "Connect Your iPhone" overlay adds when the USB service does not answer; empty
    // while it does.
    const QString& usbServiceProblem() const { return m_usbServiceProblem; }

    // Derived values.
    std::shared_ptr<MediaSource> source() const;
    // Leaf ids of the plan, in plan order, Hidden only when it is ticked.
    QStringList allLeaves() const;
    QStringList tickedLeaves() const;
    bool destinationAvailable() const;
    DestinationStatus destinationStatus() const;
    bool canBackUp() const;

    // Devices and library.
    void refreshDevices();
    void connect(const QString& udid);
    void disconnect();
    void reloadLibrary();
    void rebuildPlan();
    void runCompletenessCheck();
    static QString snapshotFolder(const QString& udid);
    void setSelectedNodeID(const QString& id);

    // Selection (see Selection for the rules) and the counts of a node of the plan.
    bool isTicked(const QString& leafID) const { return m_selection->isTicked(leafID); }
    TickState tickState(const QString& nodeID) const { return m_selection->tickState(nodeID); }
    void toggle(const QString& nodeID) { m_selection->toggle(nodeID); }
    void setTicked(const QString& leafID, bool on) { m_selection->setTicked(leafID, on); }
    bool isChosen(const QString& uuid, const QString& leafID) const { return m_selection->isChosen(uuid, leafID); }
    void togglePhoto(const QString& uuid, const QString& leafID) { m_selection->togglePhoto(uuid, leafID); }
    void chooseAllPhotos(const QString& leafID) { m_selection->chooseAllPhotos(leafID); }
    void chooseNoPhotos(const QString& leafID) { m_selection->chooseNoPhotos(leafID); }
    int chosenCount(const QString& nodeID) const { return m_selection->chosenCount(nodeID); }
    int backedUpCount(const QString& nodeID) const { return m_plan ? m_plan->backedUpCount(nodeID) : 0; }
    int assetCount(const QString& nodeID) const { return m_plan ? m_plan->assetCount(nodeID) : 0; }
    void setFolder(const QString& id, bool expanded) { m_selection->setFolder(id, expanded); }
    void saveTicks() { m_selection->saveTicks(); }

    // Backup folder, runs and quitting.
    void chooseDestination();
    void revealDestination();
    void startBackup(bool allFolders);
    void perform(bool dryRun);
    void cancelBackup();
    void closeRun();
    void whenIdle(std::function<void()> handler);
    void quit();
    bool confirmStopForQuit();
    void closeSheetsAndTerminate();
    void setWindowClosable(bool closable);
    // Blocks until every worker thread has returned; what they deliver still waits for the event
    // loop. For tests, and for a caller that must know the engine has let go of the backup folder.
    void waitForWorkers() { m_workers.waitForDone(); }

signals:
    void devicesChanged();
    void selectedUDIDChanged();
    void libraryStateChanged();
    void deviceChanged();
    void libraryChanged();
    void planChanged();
    void compatibilityChanged();
    void completenessChanged();
    void checkingCompletenessChanged();
    void selectedNodeIDChanged();
    void untickedIDsChanged();
    void photoChoicesChanged();
    void includeHiddenChanged();
    void collapsedFolderIDsChanged();
    void destinationChanged();
    void backedUpChanged();
    void manifestFileCountChanged();
    void runChanged();
    void cancelFlagChanged();
    void usbServiceProblemChanged();

private:
    void applyListing(const DevicePoller::Listing& listing);
    void startConnection(LibraryLoader* loader);
    void dropConnection();
    void onOpened(const DeviceInfo& device);
    void onLibraryRead(const PhotoLibrary& library);
    void onConnectionFailed(const QString& text);
    void onCompletenessChecked(const std::optional<CompletenessReport>& report);
    void onEngineFinished();
    void loadDemo();
    void setPlan(std::unique_ptr<IndexedPlan> plan);
    void closeSheetsAndTerminate(int attempt);

    template <typename T>
    void assign(T& field, const T& value, void (AppModel::*changed)());

    static inline QPointer<AppModel> s_shared;

    // Declared first so that it is destroyed last: its destructor waits for every worker.
    QThreadPool m_workers;
    Platform& m_platform;
    std::unique_ptr<QSettings> m_ownSettings;
    QSettings* m_settings;
    const bool m_isDemo;
    QList<DeviceInfo> m_devices;
    std::optional<QString> m_selectedUDID;
    LibraryState m_libraryState = LibraryState::noDevice();
    std::optional<DeviceInfo> m_device;
    std::optional<PhotoLibrary> m_library;
    std::unique_ptr<IndexedPlan> m_plan;
    std::optional<Compatibility::Status> m_compatibility;
    std::optional<CompletenessReport> m_completeness;
    bool m_checkingCompleteness = false;
    QString m_selectedNodeID = BackupPlan::cameraRollID;
    std::optional<QString> m_destination;
    QHash<QString, QSet<QString>> m_backedUp;
    int m_manifestFileCount = 0;
    QString m_usbServiceProblem;
    ThumbnailCache m_thumbnails;
    BackupFolderCache m_folderCache;
    Selection* m_selection;
    RunController* m_runs;
    DevicePoller* m_poller = nullptr;
    LibraryLoader* m_connection = nullptr;
    // The device a reload is to connect to once the next listing is in.
    std::optional<QString> m_reloadUDID;
    // The device last tried, also when its problem kept it from being opened.
    std::optional<QString> m_triedUDID;
    // The selected device vanished while an engine copied from it.
    bool m_vanishedDuringRun = false;
    QList<std::function<void()>> m_idleHandlers;
};
