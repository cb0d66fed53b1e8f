#include "SQLiteError.h"

SQLiteError::SQLiteError(const QString& message)
    : std::runtime_error(("SQLite: " + message).toStdString()), m_message(message)
{
}

QString SQLiteError::description() const { return QStringLiteral("SQLite: ") + m_message; }
