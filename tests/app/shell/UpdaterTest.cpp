// The updater against a feed served over HTTP from this process, signed with a key made here.
#include "Updater.h"
#include "AlertPresenter.h"
#include "AppInfo.h"
#include "MessageBoxAlertPresenter.h"
#include "RunProgram.h"
#include "TempDir.h"
#include "UpdatesTab.h"

#include <QAbstractButton>
#include <QApplication>
#include <QEventLoop>
#include <QLabel>
#include <QMessageBox>
#include <QSettings>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>

#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <memory>

void PrintTo(const Alert& alert, std::ostream* os)
{
    *os << "{\"" << alert.message.toStdString() << "\", \"" << alert.informativeText.toStdString() << "\", ["
        << alert.firstButton.toStdString() << "] [" << alert.secondButton.toStdString() << "]}";
}

namespace {

// Answers every HTTP request with the document it was given, or, when silent, never answers.
class FeedServer {
public:
    FeedServer()
    {
        m_server.listen(QHostAddress::LocalHost);
        QObject::connect(&m_server, &QTcpServer::newConnection, [this] { accept(); });
    }

    QUrl url() const { return QUrl(QString("http://127.0.0.1:%1/appcast.xml").arg(m_server.serverPort())); }
    void serve(const QByteArray& document) { m_document = document; }
    void beSilent() { m_silent = true; }
    int requests() const { return m_requests; }

private:
    void accept()
    {
        while (QTcpSocket* socket = m_server.nextPendingConnection()) {
            QObject::connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
            QObject::connect(socket, &QTcpSocket::readyRead, socket, [this, socket] {
                m_received += socket->readAll();
                if (!m_received.contains("\r\n\r\n") || m_silent)
                    return;
                m_received.clear();
                ++m_requests;
                socket->write("HTTP/1.1 200 OK\r\nContent-Type: application/rss+xml\r\nConnection: close\r\n"
                              "Content-Length: " +
                              QByteArray::number(m_document.size()) + "\r\n\r\n" + m_document);
                socket->disconnectFromHost();
            });
        }
    }

    QTcpServer m_server;
    QByteArray m_document;
    QByteArray m_received;
    bool m_silent = false;
    int m_requests = 0;
};

// An ed25519 key pair made for this test only.
class SigningKey {
public:
    SigningKey() : m_key(EVP_PKEY_Q_keygen(nullptr, nullptr, "ED25519"), EVP_PKEY_free) {}

    QByteArray publicKey() const
    {
        unsigned char raw[32];
        size_t size = sizeof raw;
        EVP_PKEY_get_raw_public_key(m_key.get(), raw, &size);
        return QByteArray(reinterpret_cast<char*>(raw), int(size)).toBase64();
    }

    QByteArray sign(const QByteArray& message) const
    {
        std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context(EVP_MD_CTX_new(), EVP_MD_CTX_free);
        unsigned char signature[64];
        size_t size = sizeof signature;
        EVP_DigestSignInit(context.get(), nullptr, nullptr, nullptr, m_key.get());
        EVP_DigestSign(context.get(), signature, &size, reinterpret_cast<const unsigned char*>(message.constData()),
                       message.size());
        return QByteArray(reinterpret_cast<char*>(signature), int(size)).toBase64();
    }

private:
    std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> m_key;
};

struct Release {
    QString version;
    QString shortVersion;
    QString link = "https://ombrelo.example/download/" + version;
    QString notes = "https://ombrelo.example/notes/" + version;

    // The signed bytes exactly as docs/UPDATES.md spells them.
    QByteArray signedText() const
    {
        return ("ombrelo-update-v1\nversion: " + version + "\nshortVersionString: " + shortVersion +
                "\nreleaseNotesLink: " + notes + "\nlink: " + link + "\n")
            .toUtf8();
    }

    QByteArray item(const QByteArray& signature) const
    {
        return ("<item><title>Ombrelo " + shortVersion + "</title><ombrelo:version>" + version +
                "</ombrelo:version><ombrelo:shortVersionString>" + shortVersion +
                "</ombrelo:shortVersionString><ombrelo:releaseNotesLink>" + notes +
                "</ombrelo:releaseNotesLink><link>" + link + "</link>" +
                (signature.isEmpty() ? QString()
                                     : "<ombrelo:edSignature>" + QString(signature) + "</ombrelo:edSignature>") +
                "</item>\n")
            .toUtf8();
    }
};

QByteArray feed(const QList<QByteArray>& items)
{
    return "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
           "<rss version=\"2.0\" xmlns:ombrelo=\"https://ombrelo.app/xml/appcast/1\"><channel><title>Ombrelo</title>\n" +
           items.join() + "</channel></rss>\n";
}

// Answers every alert with the button it is told to, and keeps what it was shown.
class RecordingAlerts : public AlertPresenter {
public:
    AlertButton showAlert(const Alert& alert) override
    {
        shown.append(alert);
        return answer;
    }
    void openUrl(const QUrl& url) override { opened.append(url); }
    void clear()
    {
        shown.clear();
        opened.clear();
    }

    AlertButton answer = AlertButton::second;
    QList<Alert> shown;
    QList<QUrl> opened;
};

// Stands in for the model's backup run: open while its sheet shows, running while it copies.
struct BackupRun {
    bool open = false;
    bool running = false;
    QList<Updater::IdleHandler> waiting;

    void whenIdle(const Updater::IdleHandler& handler)
    {
        if (open)
            waiting.append(handler);
        else
            handler();
    }
    void close()
    {
        open = running = false;
        for (const auto& handler : std::exchange(waiting, {}))
            handler();
    }
};

const QString failed = QString::fromUtf8("Ombrelo couldn\u2019t check for updates.");

class UpdaterTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        // Settings of this test's own, never the user's, and never another test's running beside it.
        QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, settingsDir.path());
        qunsetenv("OMB_DEMO");
        qunsetenv("OMB_CHECK_UPDATES");
    }

    AppInfo info() const
    {
        return {.version = "0.9.0",
                .build = "12",
                .environment = "release",
                .website = QUrl("https://ombrelo.example/"),
                .updateFeed = server.url(),
                .updatePublicKey = key.publicKey()};
    }

    std::unique_ptr<Updater> makeUpdater(const AppInfo& appInfo)
    {
        return std::make_unique<Updater>(
            appInfo, alerts, [this](const Updater::IdleHandler& handler) { run.whenIdle(handler); },
            [this] { return run.running; });
    }

    // Starts a check and waits for its outcome.
    static void waitForCheck(Updater& updater, const std::function<void()>& start)
    {
        bool finished = false;
        QEventLoop loop;
        QObject::connect(&updater, &Updater::checkFinished, &loop, [&] {
            finished = true;
            loop.quit();
        });
        QTimer::singleShot(10000, &loop, &QEventLoop::quit);
        start();
        if (!finished)
            loop.exec();
        ASSERT_TRUE(finished) << "the check did not end";
    }

    void serve(const QList<Release>& releases)
    {
        QList<QByteArray> items;
        for (const Release& release : releases)
            items.append(release.item(key.sign(release.signedText())));
        server.serve(feed(items));
    }

    TempDir settingsDir;
    FeedServer server;
    SigningKey key;
    RecordingAlerts alerts;
    BackupRun run;
};

QStringList labelTexts(const QWidget& widget)
{
    QStringList texts;
    for (const QLabel* label : widget.findChildren<QLabel*>())
        texts.append(label->text());
    return texts;
}

TEST_F(UpdaterTest, DevelopmentBuildNeverChecksAndSaysSo)
{
    AppInfo noKey = info();
    noKey.updatePublicKey.clear();
    AppInfo noFeed = info();
    noFeed.updateFeed.clear();
    const Alert expected{"Version 0.9.0 (12)",
                         QString::fromUtf8("This development build doesn\u2019t check for updates. It\u2019s updated "
                                           "by rebuilding it."),
                         "OK", "Open Website"};
    for (const AppInfo& appInfo : {noKey, noFeed, info()}) {
        qputenv("OMB_DEMO", appInfo.hasUpdateFeed() ? "1" : "0");
        alerts.clear();
        std::unique_ptr<Updater> updater = makeUpdater(appInfo);
        updater->start();
        updater->checkForUpdates();
        EXPECT_EQ(alerts.shown, QList<Alert>{expected});
        EXPECT_EQ(alerts.opened, QList<QUrl>{QUrl("https://ombrelo.example/")});

        UpdatesTab tab(*updater);
        EXPECT_EQ(labelTexts(tab),
                  QStringList{QString::fromUtf8("This development build doesn\u2019t check for updates.")});
        EXPECT_TRUE(tab.findChildren<QAbstractButton*>().isEmpty());
    }
    EXPECT_EQ(server.requests(), 0);
}

TEST_F(UpdaterTest, OffersTheNewestSignedReleaseAndOpensItsDownloadPage)
{
    std::unique_ptr<Updater> updater = makeUpdater(info());
    UpdatesTab tab(*updater);
    ASSERT_TRUE(labelTexts(tab).contains("Never"));

    // 0.10.0 is newer than 0.9.5 by number, though not as text.
    serve({{"0.9.0", "0.9"}, {"0.10.0", "0.10"}, {"0.9.5", "0.9.5"}});
    waitForCheck(*updater, [&] { updater->checkForUpdates(); });
    ASSERT_EQ(alerts.shown.size(), 1);
    EXPECT_EQ(alerts.shown[0].message, "Ombrelo 0.10 is available");
    EXPECT_TRUE(alerts.shown[0].informativeText.contains("https://ombrelo.example/notes/0.10.0"));
    EXPECT_EQ(alerts.shown[0].secondButton, "Open Download Page");
    EXPECT_EQ(alerts.opened, QList<QUrl>{QUrl("https://ombrelo.example/download/0.10.0")});
    EXPECT_TRUE(updater->lastCheck().isValid());
    EXPECT_FALSE(labelTexts(tab).contains("Never"));

    // Nothing newer than the running version: a check the user asked for says so.
    serve({{"0.9.0", "0.9"}, {"0.8.12", "0.8.12"}});
    alerts.clear();
    waitForCheck(*updater, [&] { updater->checkForUpdates(); });
    ASSERT_EQ(alerts.shown.size(), 1);
    EXPECT_EQ(alerts.shown[0].message, QString::fromUtf8("You\u2019re up to date."));
    EXPECT_TRUE(alerts.opened.isEmpty());
}

TEST_F(UpdaterTest, NoticeWaitsUntilTheBackupSheetIsClosed)
{
    serve({{"1.0.0", "1.0"}});
    std::unique_ptr<Updater> updater = makeUpdater(info());

    // While copying, a check is refused before the feed is even asked for.
    run.open = run.running = true;
    waitForCheck(*updater, [&] { updater->checkForUpdates(); });
    EXPECT_EQ(alerts.shown, (QList<Alert>{{failed, "A backup is in progress.", "OK", {}}}));
    EXPECT_EQ(server.requests(), 0);

    // The run has finished but its sheet is still open: the launch check and a later one find
    // the update, and their one notice waits until the sheet closes.
    alerts.clear();
    run.running = false;
    qputenv("OMB_CHECK_UPDATES", "1");
    waitForCheck(*updater, [&] { updater->start(); });
    waitForCheck(*updater, [&] { updater->checkForUpdatesInBackground(); });
    EXPECT_EQ(server.requests(), 2);
    EXPECT_TRUE(alerts.shown.isEmpty());
    run.close();
    ASSERT_EQ(alerts.shown.size(), 1);
    EXPECT_EQ(alerts.shown[0].message, "Ombrelo 1.0 is available");
    EXPECT_EQ(alerts.opened, QList<QUrl>{QUrl("https://ombrelo.example/download/1.0.0")});
}

TEST_F(UpdaterTest, OffersNothingFromATamperedOrWronglySignedFeed)
{
    const Release good{"1.0.0", "1.0"};
    Release otherVersion = good;
    otherVersion.version = "1.0.1";
    Release otherLink = good;
    otherLink.link = "https://attacker.example/ombrelo.deb";
    const Release older{"0.9.5", "0.9.5"};
    const QByteArray signature = key.sign(good.signedText());
    const struct {
        const char* what;
        QList<QByteArray> items;
    } feeds[] = {
        {"version changed after signing", {otherVersion.item(signature)}},
        {"link changed after signing", {otherLink.item(signature)}},
        {"signed with another key", {good.item(SigningKey().sign(good.signedText()))}},
        {"no signature", {good.item({})}},
        {"a good item beside a forged one", {good.item(signature), older.item(signature)}},
    };
    std::unique_ptr<Updater> updater = makeUpdater(info());
    for (const auto& tampered : feeds) {
        SCOPED_TRACE(tampered.what);
        alerts.clear();
        server.serve(feed(tampered.items));
        waitForCheck(*updater, [&] { updater->checkForUpdates(); });
        ASSERT_EQ(alerts.shown.size(), 1);
        EXPECT_EQ(alerts.shown[0].message, failed);
        EXPECT_TRUE(alerts.shown[0].informativeText.contains("does not carry a valid signature"))
            << alerts.shown[0].informativeText.toStdString();
        EXPECT_TRUE(alerts.opened.isEmpty());
        EXPECT_FALSE(updater->lastCheck().isValid());
    }
}

TEST_F(UpdaterTest, SilentFeedEndsTheCheckWithAFailure)
{
    server.beSilent();
    std::unique_ptr<Updater> updater = makeUpdater(info());
    updater->setTimeout(std::chrono::milliseconds(300));
    waitForCheck(*updater, [&] { updater->checkForUpdates(); });
    ASSERT_EQ(alerts.shown.size(), 1);
    EXPECT_EQ(alerts.shown[0].informativeText,
              QString::fromUtf8("The update feed at \u201c%1\u201d did not answer within 1 second.")
                  .arg(server.url().toString()));
}

// The feed as a publisher makes it: a key from the openssl tool and the item from the script.
TEST_F(UpdaterTest, ItemSignedWithTheOpensslToolIsOffered)
{
    TempDir dir;
    const QString pem = dir.filePath("key.pem");
    ASSERT_EQ(runProgram("openssl", {"genpkey", "-algorithm", "ed25519", "-out", pem}).exitCode, 0);
    const ProgramResult publicKey = runProgram("openssl", {"pkey", "-in", pem, "-pubout", "-outform", "DER"});
    ProgramResult item = runProgram(
        OMBRELO_SOURCE_DIR "/scripts/appcast-item.sh",
        {pem, "2.0.0", "2.0", "https://ombrelo.example/notes?v=2&lang=en", "https://ombrelo.example/download"});
    ASSERT_EQ(item.exitCode, 0) << item.describe().toStdString();
    server.serve(feed({item.out}));
    AppInfo appInfo = info();
    appInfo.updatePublicKey = publicKey.out.right(32).toBase64();

    std::unique_ptr<Updater> updater = makeUpdater(appInfo);
    waitForCheck(*updater, [&] { updater->checkForUpdates(); });
    ASSERT_EQ(alerts.shown.size(), 1);
    EXPECT_EQ(alerts.shown[0].message, "Ombrelo 2.0 is available");
    EXPECT_TRUE(alerts.shown[0].informativeText.contains("https://ombrelo.example/notes?v=2&lang=en"));
}

TEST(MessageBoxAlertPresenterTest, ShowsTheAlertAndReportsTheButtonClicked)
{
    MessageBoxAlertPresenter presenter;
    QStringList seen;
    QTimer::singleShot(0, [&] {
        for (QWidget* window : QApplication::topLevelWidgets()) {
            if (auto* box = qobject_cast<QMessageBox*>(window); box && box->isVisible()) {
                seen << box->text() << box->informativeText();
                for (QAbstractButton* button : box->buttons())
                    if (button->text() == "Open Website")
                        button->click();
                box->close();
            }
        }
    });
    const Alert alert{"Version 1.0 (3)", "Informative text.", "OK", "Open Website"};
    EXPECT_EQ(presenter.showAlert(alert), AlertButton::second);
    EXPECT_EQ(seen, (QStringList{"Version 1.0 (3)", "Informative text."}));
}

} // namespace
