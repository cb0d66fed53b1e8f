#include "MediaSourceError.h"

namespace {
QString describe(MediaSourceError::Kind kind, const QString& path, const QString& message)
{
    if (kind == MediaSourceError::Kind::notFound)
        return "Not found on device: " + path;
    if (kind == MediaSourceError::Kind::deviceStopped)
        return QStringLiteral("The device stopped responding. Check the cable, unlock it, and try again.");
    return "Could not read " + path + " from device: " + message;
}
} // namespace

MediaSourceError::MediaSourceError(Kind kind, const QString& path, const QString& message)
    : DescribedError(describe(kind, path, message)), m_kind(kind), m_path(path), m_message(message)
{
}
