#pragma once

#include <QString>

// The simulator's stderr log: errors always, one line per request with --verbose.
namespace Log {
void setVerbose(bool on);
bool verbose();
// Writes one whole line even when several connections log at once.
void line(const QString& text);
// A request line, written only with --verbose.
void request(const QString& text);
} // namespace Log
