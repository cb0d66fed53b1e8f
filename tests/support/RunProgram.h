#pragma once

#include <QByteArray>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

#include <ostream>

// The outcome of running a program to its end.
struct ProgramResult {
    int exitCode = -1; // -1 when it could not start, crashed or timed out
    QByteArray out;
    QByteArray err;
    QString describe() const; // for test failure messages
    // The lines of standard output that begin with `prefix` (all of them, the empty one after the
    // last line end aside, when it is empty).
    QStringList lines(const QString& prefix = {}) const;
};

// Into a failure message: EXPECT_EQ(run.exitCode, 0) << run;
inline std::ostream& operator<<(std::ostream& os, const ProgramResult& result)
{
    return os << result.describe().toStdString();
}

// Runs a program (found on PATH or by path) with this process's environment or the one given,
// waiting at most `timeoutSeconds`; a program still running then is killed.
ProgramResult runProgram(const QString& program, const QStringList& arguments, int timeoutSeconds = 60,
                         const QProcessEnvironment& environment = QProcessEnvironment::systemEnvironment());
