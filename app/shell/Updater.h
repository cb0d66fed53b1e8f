#pragma once

#include "AppInfo.h"
#include "AppcastItem.h"

#include <QDateTime>
#include <QObject>
#include <QPointer>
#include <QTimer>

#include <chrono>
#include <functional>
#include <optional>

class AlertPresenter;
class QNetworkAccessManager;
class QNetworkReply;
class UpdateError;

// Tells the user when a newer version is published. A Linux user installs it with the package
// manager, so the updater only reads the signed update feed and offers the download page. A
// development build (no feed or no public key built in) and demo mode have no update checks.
class Updater : public QObject {
    Q_OBJECT
public:
    using IdleHandler = std::function<void()>;
    // Calls the handler at once when no backup run is open, else when the run is closed.
    using WhenIdle = std::function<void(IdleHandler)>;
    using BackupIsRunning = std::function<bool()>;

    Updater(const AppInfo& info, AlertPresenter& alerts, WhenIdle whenIdle, BackupIsRunning backupIsRunning,
            QObject* parent = nullptr);
    ~Updater() override;

    const AppInfo& info() const { return m_info; }
    bool checksForUpdates() const { return m_checksForUpdates; }

    // At launch: checks in the background when OMB_CHECK_UPDATES is set, or when automatic checks
    // are on and the last check is a day old; automatic checks then repeat daily.
    void start();
    // "Check for Updates…": says what it found, including failures and being up to date.
    void checkForUpdates();
    // A check that speaks only when there is an update to offer.
    void checkForUpdatesInBackground();

    bool automaticallyChecks() const;
    void setAutomaticallyChecks(bool on);
    // When the feed was last read and verified; invalid when never.
    QDateTime lastCheck() const;

    // How long the feed may stay silent before the check gives up.
    void setTimeout(std::chrono::milliseconds timeout) { m_timeout = timeout; }

signals:
    // A check has ended: its outcome is known, though an update notice may still wait for idle.
    void checkFinished();

private:
    void startCheck(bool byUser);
    void checkIfDue();
    void feedArrived(QNetworkReply* reply);
    QByteArray feedBody(QNetworkReply* reply) const;
    std::optional<AppcastItem> newestUpdate(const QByteArray& feed) const;
    void offer(const AppcastItem& update);
    void showUpdateNotice(const AppcastItem& update);
    void report(const UpdateError& error, bool byUser);
    void showUpToDate();
    void showDevelopmentBuildAlert();

    AppInfo m_info;
    AlertPresenter& m_alerts;
    WhenIdle m_whenIdle;
    BackupIsRunning m_backupIsRunning;
    bool m_checksForUpdates;
    QNetworkAccessManager* m_network = nullptr;
    QPointer<QNetworkReply> m_reply;
    bool m_replyIsByUser = false;
    // The update whose notice waits for the backup sheet to close.
    std::optional<AppcastItem> m_waitingUpdate;
    std::chrono::milliseconds m_timeout{std::chrono::seconds(30)};
    QTimer m_schedule;
};
