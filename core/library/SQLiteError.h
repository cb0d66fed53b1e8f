#pragma once

#include <QString>

#include <stdexcept>

// Every failure of the SQLite layer. The message carries SQLite's own text.
class SQLiteError : public std::runtime_error {
public:
    explicit SQLiteError(const QString& message);

    const QString& message() const { return m_message; }
    // The user-facing text: "SQLite: " followed by the message.
    QString description() const;

    bool operator==(const SQLiteError& other) const { return m_message == other.m_message; }

private:
    QString m_message;
};
