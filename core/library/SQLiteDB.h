#pragma once

#include "SQLiteError.h"

#include <QByteArrayView>
#include <QSet>
#include <QString>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <variant>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

// A value bound to a positional parameter.
class SQLValue {
public:
    struct Null {};
    static SQLValue integer(int64_t v) { return SQLValue(v); }
    static SQLValue real(double v) { return SQLValue(v); }
    static SQLValue text(const QString& v) { return SQLValue(v); }
    static SQLValue null() { return SQLValue(Null{}); }

    SQLValue(int64_t v) : m_value(v) {}
    SQLValue(int v) : m_value(int64_t(v)) {}
    SQLValue(double v) : m_value(v) {}
    SQLValue(const QString& v) : m_value(v) {}
    SQLValue(const char* v) : m_value(QString::fromUtf8(v)) {}
    SQLValue(Null) : m_value(Null{}) {}

    const std::variant<int64_t, double, QString, Null>& value() const { return m_value; }

private:
    std::variant<int64_t, double, QString, Null> m_value;
};

// The current result row of a statement being stepped; valid only inside the row callback.
class SQLRow {
public:
    explicit SQLRow(sqlite3_stmt* statement) : m_statement(statement) {}

    std::optional<int64_t> integer(int column) const;
    std::optional<double> real(int column) const;
    std::optional<QString> text(int column) const;
    // The column's text as UTF-8 bytes, without a copy (empty for NULL); for rows read by the thousand.
    QByteArrayView utf8(int column) const;

private:
    sqlite3_stmt* m_statement;
};

// One open SQLite connection, in serialized mode with a 5-second busy timeout.
// One statement per call, prepared, stepped to completion and finalized before returning.
class SQLiteDB {
public:
    using RowHandler = std::function<void(const SQLRow&)>;

    SQLiteDB(const QString& path, bool readOnly, bool create);
    ~SQLiteDB();
    SQLiteDB(const SQLiteDB&) = delete;
    SQLiteDB& operator=(const SQLiteDB&) = delete;

    void query(const QString& sql, const std::vector<SQLValue>& params, const RowHandler& row);
    void execute(const QString& sql, const std::vector<SQLValue>& params = {});
    // The column names of a table, case kept; empty for a table that does not exist.
    QSet<QString> columns(const QString& table);

private:
    QString errorMessage() const;

    sqlite3* m_handle = nullptr;
};
