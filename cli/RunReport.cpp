#include "RunReport.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTemporaryFile>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

QJsonObject summaryObject(const BackupSummary& summary)
{
    return {
        {"filesCopied", summary.filesCopied},
        {"bytesCopied", double(summary.bytesCopied)},
        {"filesAlreadyBackedUp", summary.filesAlreadyBackedUp},
        {"duplicatesDiscarded", summary.duplicatesDiscarded},
        {"filesAdopted", summary.filesAdopted},
        {"filesToCopy", summary.filesToCopy},
        {"assetsNotOnDevice", QJsonArray::fromStringList(summary.assetsNotOnDevice)},
        {"dateWarnings", QJsonArray::fromStringList(summary.dateWarnings)},
        {"errors", QJsonArray::fromStringList(summary.errors)},
        {"cancelled", summary.cancelled},
        {"deviceStopped", summary.deviceStopped},
        {"isDryRun", summary.isDryRun},
    };
}

QString isoNow() { return QDateTime::currentDateTimeUtc().toString(Qt::ISODate); }

bool isWithin(const QString& path, const QString& folder)
{
    return !path.isEmpty() && !folder.isEmpty() && (path == folder || path.startsWith(folder + '/'));
}

} // namespace

RunReport::RunReport(const QJsonObject& options) : m_options(options), m_startedAt(QDateTime::currentDateTimeUtc()) {}

std::optional<QString> RunReport::write(const QString& path, const QString& backupFolder, int exitCode) const
{
    QJsonObject report{
        {"options", m_options},
        {"startedAt", m_startedAt.toString(Qt::ISODate)},
        {"finishedAt", isoNow()},
        {"exitCode", exitCode},
        {"log", QJsonArray::fromStringList(m_log)},
        {"lines", QJsonArray::fromStringList(m_lines)},
        {"cancelled", m_cancelled},
    };
    if (!m_device.isEmpty())
        report.insert("device", m_device);
    if (m_hasSummary)
        report.insert("summary", summaryObject(m_summary));
    if (!m_failure.isEmpty())
        report.insert("failure", m_failure);

    if (auto refused = refusal(path, backupFolder))
        return refused;
    const QFileInfo target(path);
    QTemporaryFile file(target.absolutePath() + "/." + target.fileName() + ".XXXXXX");
    QString error;
    if (!file.open() || file.write(QJsonDocument(report).toJson()) < 0 || !file.flush())
        error = file.errorString();
    else if (std::rename(QFile::encodeName(file.fileName()).constData(), QFile::encodeName(path).constData()) != 0)
        error = QString::fromLocal8Bit(std::strerror(errno));
    else
        file.setAutoRemove(false);
    if (!error.isEmpty())
        return QString::fromUtf8("The report \u201c%1\u201d could not be written: %2").arg(path, error);
    return std::nullopt;
}

std::optional<QString> RunReport::refusal(const QString& path, const QString& backupFolder)
{
    const QString folder = QFileInfo(backupFolder).canonicalFilePath();
    const QFileInfo report(path);
    const QString parent = QFileInfo(report.absolutePath()).canonicalFilePath();
    if (isWithin(report.canonicalFilePath(), folder) || isWithin(parent + '/' + report.fileName(), folder) ||
        (parent.isEmpty() && isWithin(QDir::cleanPath(report.absoluteFilePath()), folder)))
        return QString::fromUtf8("The report \u201c%1\u201d would be written inside the backup folder \u201c%2\u201d, "
                                 "where it could replace a backed-up file. Give a path outside the backup folder.")
            .arg(path, backupFolder);
    return std::nullopt;
}
