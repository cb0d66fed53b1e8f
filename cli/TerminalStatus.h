#pragma once

#include <QElapsedTimer>
#include <QString>
#include <QTextStream>

// One status line at the bottom of a terminal, redrawn in place, with ordinary lines printed
// above it. When the output is not a terminal the status line is never drawn.
class TerminalStatus {
public:
    TerminalStatus(QTextStream& out, bool isTerminal);
    ~TerminalStatus();

    // Redraws the status line, at most ten times a second unless `force` is set.
    void setStatus(const QString& text, bool force = false);
    // Whether setStatus would draw now: a caller with thousands of updates a second makes the
    // text only then.
    bool wantsStatus(bool force = false) const;
    // Prints a whole line above the status line.
    void printLine(const QString& line);
    // Removes the status line, leaving the cursor at the start of an empty line.
    void clear();

private:
    void draw();

    QTextStream& m_out;
    bool m_isTerminal;
    bool m_shown = false;
    QString m_status;
    QElapsedTimer m_sinceDraw;
};
