#include "RunProgram.h"

#include <QProcess>
#include <QRegularExpression>

QString ProgramResult::describe() const
{
    return "exit " + QString::number(exitCode) + "\nstdout:\n" + QString::fromUtf8(out) + "\nstderr:\n" +
           QString::fromUtf8(err);
}

QStringList ProgramResult::lines(const QString& prefix) const
{
    QStringList all = QString::fromUtf8(out).split('\n');
    if (!all.isEmpty() && all.last().isEmpty())
        all.removeLast();
    return prefix.isEmpty() ? all : all.filter(QRegularExpression("^" + QRegularExpression::escape(prefix)));
}

ProgramResult runProgram(const QString& program, const QStringList& arguments, int timeoutSeconds,
                         const QProcessEnvironment& environment)
{
    QProcess process;
    process.setProcessEnvironment(environment);
    process.start(program, arguments);
    ProgramResult result;
    if (!process.waitForStarted(10000)) {
        result.err = process.errorString().toUtf8();
        return result;
    }
    process.closeWriteChannel();
    if (!process.waitForFinished(timeoutSeconds * 1000)) {
        process.kill();
        process.waitForFinished(5000);
        result.out = process.readAllStandardOutput();
        result.err = process.readAllStandardError() + "\n(killed after " + QByteArray::number(timeoutSeconds) + " s)";
        return result;
    }
    result.out = process.readAllStandardOutput();
    result.err = process.readAllStandardError();
    result.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    return result;
}
