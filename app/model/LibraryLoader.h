#pragma once

#include "backup/BackupSession.h"
#include "checks/CompletenessReport.h"

#include <QObject>
#include <QString>

#include <memory>
#include <optional>

class QThreadPool;
struct BackupPlan;

// One connection to one device: opens it and reads its library, each step on a worker thread, and
// checks the device's files against the library when asked. A loader lives as long as its
// connection is the current one; whatever its workers deliver after it is gone is dropped, so a
// connection the user has left behind never overwrites the one that replaced it.
class LibraryLoader : public QObject {
    Q_OBJECT
public:
    LibraryLoader(QThreadPool& pool, const QString& udid, QObject* parent = nullptr);
    // A connection that is already open, with its library (demo mode).
    LibraryLoader(QThreadPool& pool, std::shared_ptr<BackupSession> session, QObject* parent = nullptr);

    const QString& udid() const { return m_udid; }
    // The session of the open connection; none until the device is open.
    const std::shared_ptr<BackupSession>& session() const { return m_session; }

    // Opens the device, then reads its library.
    void start();
    void checkCompleteness(const BackupPlan& plan);

signals:
    void opened(const DeviceInfo& device);
    void libraryRead(const PhotoLibrary& library);
    void failed(const QString& text);
    // None when the check could not be made.
    void completenessChecked(const std::optional<CompletenessReport>& report);

private:
    struct Outcome {
        std::shared_ptr<BackupSession> session;
        QString error;
    };

    void readLibrary();

    QThreadPool& m_pool;
    QString m_udid;
    std::shared_ptr<BackupSession> m_session;
};
