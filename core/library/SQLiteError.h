#pragma once

#include "DescribedError.h"

#include <QString>

#include <stdexcept>

// Every failure of the SQLite layer. The message carries SQLite's own text.
class SQLiteError : public DescribedError {
public:
    explicit SQLiteError(const QString& message);

    // SQLite's own text; the description is "SQLite: " followed by it.
    const QString& message() const { return m_message; }

    bool operator==(const SQLiteError& other) const { return m_message == other.m_message; }

private:
    QString m_message;
};
