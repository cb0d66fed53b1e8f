#include "RunReport.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QSaveFile>

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

} // namespace

RunReport::RunReport(const QJsonObject& options) : m_options(options), m_startedAt(QDateTime::currentDateTimeUtc()) {}

std::optional<QString> RunReport::write(const QString& path, int exitCode) const
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

    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(QJsonDocument(report).toJson()) < 0 || !file.commit())
        return QString::fromUtf8("The report \u201c%1\u201d could not be written: %2").arg(path, file.errorString());
    return std::nullopt;
}
