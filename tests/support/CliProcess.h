#pragma once

#include "RunProgram.h"

#include <QByteArray>
#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

// A program (ombrelo-cli, usually) started in the background, for tests that watch it, signal it
// or kill it while it runs. Its output is collected as it comes. A process still running when
// the object goes is killed.
class CliProcess {
public:
    CliProcess(const QString& program, const QStringList& arguments, const QProcessEnvironment& environment);
    ~CliProcess();
    CliProcess(const CliProcess&) = delete;
    CliProcess& operator=(const CliProcess&) = delete;

    qint64 pid() const { return m_pid; }
    // Waits until standard output holds `text`; false when the process ended or `timeoutMs`
    // passed first.
    bool waitForOutput(const QByteArray& text, int timeoutMs);
    // Collects output for `ms` milliseconds, or until the process ends; true while it runs.
    bool runFor(int ms);
    bool isRunning() const;
    // Sends a signal (SIGINT, SIGTERM, …) to the process.
    void signal(int signal);
    // SIGKILL, then waits until the process is gone; true when the signal ended it (false when it
    // had already ended on its own).
    bool kill();
    // Waits for the end; exit code -1 when it crashed, was killed or outlived `timeoutSeconds`.
    ProgramResult finish(int timeoutSeconds = 120);

    const QByteArray& out() const { return m_out; }
    const QByteArray& err() const { return m_err; }

private:
    void collect();

    QProcess m_process;
    qint64 m_pid = 0;
    QByteArray m_out;
    QByteArray m_err;
};
