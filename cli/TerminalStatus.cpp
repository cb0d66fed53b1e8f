#include "TerminalStatus.h"

#include <sys/ioctl.h>
#include <unistd.h>

namespace {

int terminalWidth()
{
    winsize size{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0)
        return size.ws_col;
    return 80;
}

const char* const kClearLine = "\r\x1b[2K";

} // namespace

TerminalStatus::TerminalStatus(QTextStream& out, bool isTerminal) : m_out(out), m_isTerminal(isTerminal) {}

TerminalStatus::~TerminalStatus() { clear(); }

void TerminalStatus::setStatus(const QString& text, bool force)
{
    m_status = text;
    if (wantsStatus(force))
        draw();
}

bool TerminalStatus::wantsStatus(bool force) const
{
    return m_isTerminal && (force || !m_sinceDraw.isValid() || m_sinceDraw.elapsed() >= 100);
}

void TerminalStatus::draw()
{
    // Never wrap: a wrapped line could not be redrawn in place.
    const int width = terminalWidth() - 1;
    QString line = m_status;
    if (line.size() > width)
        line = line.left(width - 1) + QString::fromUtf8("…");
    m_out << kClearLine << line;
    m_out.flush();
    m_shown = true;
    m_sinceDraw.start();
}

void TerminalStatus::printLine(const QString& line)
{
    if (m_shown)
        m_out << kClearLine;
    m_out << line << "\n";
    if (m_shown)
        draw();
    else
        m_out.flush();
}

void TerminalStatus::clear()
{
    if (!m_shown)
        return;
    m_out << kClearLine;
    m_out.flush();
    m_shown = false;
}
