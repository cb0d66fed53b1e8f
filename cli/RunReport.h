#pragma once

#include "backup/BackupRecords.h"

#include <QDateTime>
#include <QJsonObject>
#include <QString>
#include <QStringList>

// The JSON record of one backup run written by --report: its options, every log line, the
// summary's fields and lines, and when it started and ended. Written also when a run is cancelled
// or fails, so a scheduled job always leaves an account of itself.
class RunReport {
public:
    explicit RunReport(const QJsonObject& options);

    void setDevice(const QJsonObject& device) { m_device = device; }
    void addLine(const QString& line) { m_log << line; }
    void setSummary(const BackupSummary& summary)
    {
        m_summary = summary;
        m_hasSummary = true;
        m_lines = summary.lines();
        m_cancelled = summary.cancelled;
    }
    // A run stopped before it had a summary of its own; `line` is what it printed instead.
    void setCancelled(const QString& line)
    {
        m_cancelled = true;
        m_lines = {line};
    }
    void setFailure(const QString& failure) { m_failure = failure; }

    // Writes the report under a temporary name beside `path`, then renames it into place (a link at
    // `path` is replaced, never followed). Returns an error text when it cannot be written, or when
    // `path` lies inside `backupFolder`.
    std::optional<QString> write(const QString& path, const QString& backupFolder, int exitCode) const;
    // Why a report cannot go to `path`: links and ".." resolved, it lies inside `backupFolder`,
    // where it could replace a photo or the manifest. Nothing when it lies outside.
    static std::optional<QString> refusal(const QString& path, const QString& backupFolder);

private:
    QJsonObject m_options;
    QJsonObject m_device;
    QStringList m_log;
    BackupSummary m_summary;
    bool m_hasSummary = false;
    QStringList m_lines;
    bool m_cancelled = false;
    QString m_failure;
    QDateTime m_startedAt;
};
