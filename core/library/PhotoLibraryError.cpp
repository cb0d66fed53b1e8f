#include "PhotoLibraryError.h"

PhotoLibraryError::PhotoLibraryError(Kind kind, const QString& detail)
    : std::runtime_error(detail.toStdString()), m_kind(kind), m_detail(detail)
{
}

QString PhotoLibraryError::description() const
{
    return "The Photos database has a layout this app doesn't recognise: " + m_detail;
}
