#pragma once

#include "DescribedError.h"

#include <QString>

#include <stdexcept>

// The Photos database has a layout the reader cannot work with.
class PhotoLibraryError : public DescribedError {
public:
    enum class Kind { unsupportedSchema };

    static PhotoLibraryError unsupportedSchema(const QString& detail) { return {Kind::unsupportedSchema, detail}; }

    Kind kind() const { return m_kind; }
    const QString& detail() const { return m_detail; }

private:
    PhotoLibraryError(Kind kind, const QString& detail);

    Kind m_kind;
    QString m_detail;
};
