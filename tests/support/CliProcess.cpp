#include "CliProcess.h"

#include <QElapsedTimer>

#include <algorithm>
#include <csignal>

CliProcess::CliProcess(const QString& program, const QStringList& arguments, const QProcessEnvironment& environment)
{
    m_process.setProcessEnvironment(environment);
    m_process.start(program, arguments);
    if (m_process.waitForStarted(10000))
        m_pid = m_process.processId();
    m_process.closeWriteChannel();
}

CliProcess::~CliProcess() { kill(); }

void CliProcess::collect()
{
    m_out += m_process.readAllStandardOutput();
    m_err += m_process.readAllStandardError();
}

bool CliProcess::isRunning() const { return m_process.state() != QProcess::NotRunning; }

bool CliProcess::waitForOutput(const QByteArray& text, int timeoutMs)
{
    QElapsedTimer timer;
    timer.start();
    for (;;) {
        collect();
        if (m_out.contains(text))
            return true;
        if (!isRunning() || timer.elapsed() >= timeoutMs)
            return false;
        m_process.waitForReadyRead(20);
    }
}

bool CliProcess::runFor(int ms)
{
    QElapsedTimer timer;
    timer.start();
    while (isRunning() && timer.elapsed() < ms)
        m_process.waitForFinished(int(std::max<qint64>(1, std::min<qint64>(20, ms - timer.elapsed()))));
    collect();
    return isRunning();
}

void CliProcess::signal(int signal)
{
    if (isRunning())
        ::kill(pid_t(m_pid), signal);
}

bool CliProcess::kill()
{
    if (!isRunning())
        return false;
    m_process.kill();
    m_process.waitForFinished(10000);
    collect();
    // A process that ended on its own just before the signal is no kill.
    return m_process.exitStatus() == QProcess::CrashExit;
}

ProgramResult CliProcess::finish(int timeoutSeconds)
{
    ProgramResult result;
    const bool finished = m_process.waitForFinished(timeoutSeconds * 1000) || !isRunning();
    if (!finished)
        kill();
    collect();
    result.out = m_out;
    result.err = m_err;
    if (!finished)
        result.err += "\n(killed after " + QByteArray::number(timeoutSeconds) + " s)";
    else if (m_process.exitStatus() == QProcess::NormalExit)
        result.exitCode = m_process.exitCode();
    return result;
}
