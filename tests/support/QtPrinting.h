#pragma once

#include <QString>

#include <ostream>

// Lets GoogleTest show texts in failure messages instead of their bytes.
inline void PrintTo(const QString& text, std::ostream* os) { *os << '"' << text.toStdString() << '"'; }
