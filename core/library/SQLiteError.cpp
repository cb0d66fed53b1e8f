#include "SQLiteError.h"

SQLiteError::SQLiteError(const QString& message) : DescribedError("SQLite: " + message), m_message(message) {}
