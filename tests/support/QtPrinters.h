#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <ostream>

// Readable GoogleTest failure messages for Qt text types (gtest looks these up by argument type).
inline void PrintTo(const QString& text, std::ostream* os) { *os << '"' << text.toStdString() << '"'; }
inline void PrintTo(const QByteArray& bytes, std::ostream* os) { *os << '"' << bytes.toStdString() << '"'; }
inline void PrintTo(const QStringList& list, std::ostream* os)
{
    *os << '[' << list.join("\", \"").prepend('"').append('"').toStdString() << ']';
}
