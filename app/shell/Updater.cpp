#include "Updater.h"

#include "AlertPresenter.h"
#include "Appcast.h"
#include "Ed25519PublicKey.h"
#include "UpdateError.h"

#include <QLoggingCategory>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QSettings>

#include <algorithm>
#include <utility>

namespace {

Q_LOGGING_CATEGORY(updateLog, "ombrelo.shell.updates", QtInfoMsg)

const QString automaticChecksKey = QStringLiteral("automaticallyCheckForUpdates");
const QString lastCheckKey = QStringLiteral("lastUpdateCheck");
constexpr std::chrono::seconds checkInterval = std::chrono::hours(24);

QSettings settings() { return QSettings(QStringLiteral("Ombrelo"), QStringLiteral("Ombrelo")); }

} // namespace

Updater::Updater(const AppInfo& info, AlertPresenter& alerts, WhenIdle whenIdle, BackupIsRunning backupIsRunning,
                 QObject* parent)
    : QObject(parent), m_info(info), m_alerts(alerts), m_whenIdle(std::move(whenIdle)),
      m_backupIsRunning(std::move(backupIsRunning)),
      m_checksForUpdates(info.hasUpdateFeed() && qgetenv("OMB_DEMO") != "1")
{
    if (m_checksForUpdates)
        m_network = new QNetworkAccessManager(this);
    m_schedule.setInterval(std::chrono::hours(1));
    connect(&m_schedule, &QTimer::timeout, this, &Updater::checkIfDue);
}

Updater::~Updater() = default;

void Updater::start()
{
    if (!m_checksForUpdates)
        return;
    m_schedule.start();
    if (qEnvironmentVariableIsSet("OMB_CHECK_UPDATES"))
        checkForUpdatesInBackground();
    else
        checkIfDue();
}

void Updater::checkIfDue()
{
    const QDateTime last = lastCheck();
    if (automaticallyChecks() &&
        (!last.isValid() || last.addSecs(checkInterval.count()) <= QDateTime::currentDateTimeUtc()))
        checkForUpdatesInBackground();
}

void Updater::checkForUpdates()
{
    if (!m_checksForUpdates)
        showDevelopmentBuildAlert();
    else
        startCheck(true);
}

void Updater::checkForUpdatesInBackground()
{
    if (m_checksForUpdates)
        startCheck(false);
}

bool Updater::automaticallyChecks() const { return settings().value(automaticChecksKey, false).toBool(); }

void Updater::setAutomaticallyChecks(bool on)
{
    settings().setValue(automaticChecksKey, on);
    if (on)
        checkIfDue();
}

QDateTime Updater::lastCheck() const { return settings().value(lastCheckKey).toDateTime(); }

void Updater::startCheck(bool byUser)
{
    if (m_reply) {
        // A check is already on its way: the user hears how that one ends.
        m_replyIsByUser = m_replyIsByUser || byUser;
        return;
    }
    if (m_backupIsRunning && m_backupIsRunning()) {
        report(UpdateError::backupInProgress(), byUser);
        emit checkFinished();
        return;
    }
    QNetworkRequest request(m_info.updateFeed);
    request.setTransferTimeout(int(m_timeout.count()));
    m_replyIsByUser = byUser;
    m_reply = m_network->get(request);
    QNetworkReply* reply = m_reply;
    connect(reply, &QNetworkReply::finished, this, [this, reply] { feedArrived(reply); });
}

void Updater::feedArrived(QNetworkReply* reply)
{
    reply->deleteLater();
    m_reply = nullptr;
    const bool byUser = std::exchange(m_replyIsByUser, false);
    try {
        const std::optional<AppcastItem> update = newestUpdate(feedBody(reply));
        settings().setValue(lastCheckKey, QDateTime::currentDateTimeUtc());
        if (update)
            offer(*update);
        else if (byUser)
            showUpToDate();
    } catch (const UpdateError& error) {
        report(error, byUser);
    }
    emit checkFinished();
}

QByteArray Updater::feedBody(QNetworkReply* reply) const
{
    switch (reply->error()) {
    case QNetworkReply::NoError:
        return reply->readAll();
    // The transfer timeout aborts the request.
    case QNetworkReply::OperationCanceledError:
    case QNetworkReply::TimeoutError:
        throw UpdateError::timedOut(m_info.updateFeed, int(std::chrono::ceil<std::chrono::seconds>(m_timeout).count()));
    default:
        throw UpdateError::unreadableFeed(m_info.updateFeed, reply->errorString());
    }
}

// Every item must carry a good signature before any is believed: a feed with one forged item
// has been tampered with, and nothing in it is offered.
std::optional<AppcastItem> Updater::newestUpdate(const QByteArray& feed) const
{
    const std::optional<Ed25519PublicKey> key = Ed25519PublicKey::fromBase64(m_info.updatePublicKey);
    if (!key)
        throw UpdateError::invalidPublicKey();
    const QList<AppcastItem> items = Appcast::parse(feed);
    for (const AppcastItem& item : items) {
        if (!key->verifies(item.signedText(), item.signature))
            throw UpdateError::badSignature(item.version);
    }
    const QVersionNumber current = QVersionNumber::fromString(m_info.version);
    auto newest = std::max_element(items.begin(), items.end(), [](const AppcastItem& a, const AppcastItem& b) {
        return a.versionNumber() < b.versionNumber();
    });
    if (newest == items.end() || newest->versionNumber() <= current)
        return std::nullopt;
    return *newest;
}

// The notice never appears over a backup: it waits until the run's sheet is closed. Checks that
// end while it waits update the one waiting notice rather than queue more.
void Updater::offer(const AppcastItem& update)
{
    qCInfo(updateLog) << "version" << update.version << "is available";
    const bool alreadyWaiting = m_waitingUpdate.has_value();
    m_waitingUpdate = update;
    if (alreadyWaiting)
        return;
    QPointer<Updater> self(this);
    m_whenIdle([self] {
        if (self)
            self->showUpdateNotice(*std::exchange(self->m_waitingUpdate, std::nullopt));
    });
}

void Updater::showUpdateNotice(const AppcastItem& update)
{
    QString text = "You have version " + m_info.version +
                   ". Install the new version with your package manager, or download it from its page.";
    if (!update.releaseNotesLink.isEmpty())
        text += "\n\nRelease notes: " + update.releaseNotesLink;
    const Alert notice{"Ombrelo " + update.displayVersion() + " is available", text, "Later", "Open Download Page"};
    if (m_alerts.showAlert(notice) == AlertButton::second)
        m_alerts.openUrl(QUrl(update.downloadLink));
}

void Updater::report(const UpdateError& error, bool byUser)
{
    qCWarning(updateLog) << "update check failed:" << error.description();
    if (byUser)
        m_alerts.showAlert(
            {QString::fromUtf8("Ombrelo couldn\u2019t check for updates."), error.description(), "OK", {}});
}

void Updater::showUpToDate()
{
    m_alerts.showAlert({QString::fromUtf8("You\u2019re up to date."),
                        "Ombrelo " + m_info.version + " is the newest version available.",
                        "OK",
                        {}});
}

void Updater::showDevelopmentBuildAlert()
{
    const Alert alert{"Version " + m_info.versionAndBuild(),
                      QString::fromUtf8("This development build doesn\u2019t check for updates. It\u2019s updated by "
                                        "rebuilding it."),
                      "OK", "Open Website"};
    if (m_alerts.showAlert(alert) == AlertButton::second)
        m_alerts.openUrl(m_info.website);
}
