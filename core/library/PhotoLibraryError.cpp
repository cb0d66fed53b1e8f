#include "PhotoLibraryError.h"

PhotoLibraryError::PhotoLibraryError(Kind kind, const QString& detail)
    : DescribedError("The Photos database has a layout this app doesn't recognise: " + detail), m_kind(kind),
      m_detail(detail)
{
}
