#include "LibraryLoader.h"

#include "Background.h"
#include "DescribedError.h"
#include "plan/BackupPlan.h"

#include <exception>

LibraryLoader::LibraryLoader(QThreadPool& pool, const QString& udid, QObject* parent)
    : QObject(parent), m_pool(pool), m_udid(udid)
{
}

LibraryLoader::LibraryLoader(QThreadPool& pool, std::shared_ptr<BackupSession> session, QObject* parent)
    : QObject(parent), m_pool(pool), m_udid(session->device().udid), m_session(std::move(session))
{
}

void LibraryLoader::start()
{
    runInBackground(
        m_pool, this,
        [udid = m_udid] {
            auto session = std::make_shared<BackupSession>();
            try {
                session->connect(udid);
                return Outcome{session, {}};
            } catch (const std::exception& error) {
                return Outcome{nullptr, describeError(error)};
            }
        },
        [](LibraryLoader& loader, const Outcome& outcome) {
            if (!outcome.session)
                return emit loader.failed(outcome.error);
            loader.m_session = outcome.session;
            emit loader.opened(outcome.session->device());
            loader.readLibrary();
        });
}

void LibraryLoader::readLibrary()
{
    runInBackground(
        m_pool, this,
        [session = m_session] {
            try {
                session->readLibrary();
                return QString();
            } catch (const std::exception& error) {
                return describeError(error);
            }
        },
        [](LibraryLoader& loader, const QString& error) {
            if (!error.isEmpty())
                return emit loader.failed(error);
            emit loader.libraryRead(loader.m_session->library());
        });
}

void LibraryLoader::checkCompleteness(const BackupPlan& plan)
{
    runInBackground(
        m_pool, this,
        [session = m_session, plan]() -> std::optional<CompletenessReport> {
            try {
                return session->checkCompleteness(plan);
            } catch (const std::exception&) {
                return std::nullopt;
            }
        },
        [](LibraryLoader& loader, const std::optional<CompletenessReport>& report) {
            emit loader.completenessChecked(report);
        });
}
