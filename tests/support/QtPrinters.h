#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <optional>
#include <ostream>

// Readable GoogleTest failure messages for Qt values (gtest looks these up by argument type).
inline void PrintTo(const QString& text, std::ostream* os) { *os << '"' << text.toStdString() << '"'; }
inline void PrintTo(const QByteArray& bytes, std::ostream* os) { *os << '"' << bytes.toStdString() << '"'; }

// A QString straight into a failure message: EXPECT_TRUE(…) << path;
inline std::ostream& operator<<(std::ostream& os, const QString& text) { return os << text.toStdString(); }

inline void PrintTo(const QStringList& list, std::ostream* os)
{
    *os << '[';
    for (qsizetype i = 0; i < list.size(); ++i)
        *os << (i ? ", " : "") << '"' << list[i].toStdString() << '"';
    *os << ']';
}
