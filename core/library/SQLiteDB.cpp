#include "SQLiteDB.h"

#include <sqlite3.h>

#include <memory>

namespace {

// The "copy the bytes now" destructor marker, so callers' temporary UTF-8 buffers can go.
sqlite3_destructor_type transient() { return SQLITE_TRANSIENT; }

int openFlags(bool readOnly, bool create)
{
    int flags = readOnly ? SQLITE_OPEN_READONLY : SQLITE_OPEN_READWRITE;
    if (create)
        flags |= SQLITE_OPEN_CREATE;
    return flags | SQLITE_OPEN_FULLMUTEX;
}

struct StatementFinalizer {
    void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};
using Statement = std::unique_ptr<sqlite3_stmt, StatementFinalizer>;

void bind(sqlite3_stmt* statement, int position, const SQLValue& value)
{
    // Bind results are ignored on purpose: a bad bind shows up as a step failure.
    std::visit(
        [&](const auto& v) {
            using T = std::decay_t<decltype(v)>;
            if constexpr (std::is_same_v<T, int64_t>) {
                sqlite3_bind_int64(statement, position, v);
            } else if constexpr (std::is_same_v<T, double>) {
                sqlite3_bind_double(statement, position, v);
            } else if constexpr (std::is_same_v<T, QString>) {
                const QByteArray utf8 = v.toUtf8();
                sqlite3_bind_text(statement, position, utf8.constData(), -1, transient());
            } else {
                sqlite3_bind_null(statement, position);
            }
        },
        value.value());
}

} // namespace

std::optional<int64_t> SQLRow::integer(int column) const
{
    if (sqlite3_column_type(m_statement, column) == SQLITE_NULL)
        return std::nullopt;
    return sqlite3_column_int64(m_statement, column);
}

std::optional<double> SQLRow::real(int column) const
{
    if (sqlite3_column_type(m_statement, column) == SQLITE_NULL)
        return std::nullopt;
    return sqlite3_column_double(m_statement, column);
}

std::optional<QString> SQLRow::text(int column) const
{
    if (sqlite3_column_type(m_statement, column) == SQLITE_NULL)
        return std::nullopt;
    const auto* bytes = reinterpret_cast<const char*>(sqlite3_column_text(m_statement, column));
    if (!bytes)
        return std::nullopt;
    return QString::fromUtf8(bytes, sqlite3_column_bytes(m_statement, column));
}

QByteArrayView SQLRow::utf8(int column) const
{
    const auto* bytes = reinterpret_cast<const char*>(sqlite3_column_text(m_statement, column));
    return bytes ? QByteArrayView(bytes, sqlite3_column_bytes(m_statement, column)) : QByteArrayView();
}

SQLiteDB::SQLiteDB(const QString& path, bool readOnly, bool create)
{
    sqlite3* handle = nullptr;
    const int result = sqlite3_open_v2(path.toUtf8().constData(), &handle, openFlags(readOnly, create), nullptr);
    if (result != SQLITE_OK || !handle) {
        QString message;
        if (handle && result != SQLITE_OK)
            message = path + ": " + QString::fromUtf8(sqlite3_errmsg(handle));
        else
            message = path + ": open failed (" + QString::number(result) + ")";
        if (handle)
            sqlite3_close(handle);
        throw SQLiteError(message);
    }
    m_handle = handle;
    sqlite3_busy_timeout(m_handle, 5000);
}

SQLiteDB::~SQLiteDB() { sqlite3_close(m_handle); }

QString SQLiteDB::errorMessage() const { return QString::fromUtf8(sqlite3_errmsg(m_handle)); }

void SQLiteDB::query(const QString& sql, const std::vector<SQLValue>& params, const RowHandler& row)
{
    sqlite3_stmt* raw = nullptr;
    const QByteArray utf8 = sql.toUtf8();
    if (sqlite3_prepare_v2(m_handle, utf8.constData(), -1, &raw, nullptr) != SQLITE_OK || !raw) {
        sqlite3_finalize(raw);
        throw SQLiteError(errorMessage() + " in: " + sql);
    }
    Statement statement(raw);
    for (size_t i = 0; i < params.size(); ++i)
        bind(raw, int(i) + 1, params[i]);

    for (;;) {
        const int step = sqlite3_step(raw);
        if (step == SQLITE_ROW) {
            row(SQLRow(raw));
        } else if (step == SQLITE_DONE) {
            return;
        } else {
            const QString message = errorMessage() + " in: " + sql;
            statement.reset();
            throw SQLiteError(message);
        }
    }
}

void SQLiteDB::execute(const QString& sql, const std::vector<SQLValue>& params)
{
    query(sql, params, [](const SQLRow&) {});
}

QSet<QString> SQLiteDB::columns(const QString& table)
{
    QSet<QString> names;
    query("SELECT name FROM pragma_table_info(?)", {SQLValue::text(table)}, [&](const SQLRow& row) {
        if (auto name = row.text(0))
            names.insert(*name);
    });
    return names;
}
