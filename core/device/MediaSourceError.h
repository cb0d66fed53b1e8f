#pragma once

#include "DescribedError.h"

#include <QString>

#include <stdexcept>

// A failure to list or read a file of a device's media tree.
class MediaSourceError : public DescribedError {
public:
    // linkLost: the connection to the device failed (the cable, the phone going away);
    // deviceStopped: the device stopped answering and its connection was given up.
    enum class Kind { notFound, readFailed, linkLost, deviceStopped };

    static MediaSourceError notFound(const QString& path) { return {Kind::notFound, path, {}}; }
    static MediaSourceError readFailed(const QString& path, const QString& message)
    {
        return {Kind::readFailed, path, message};
    }
    static MediaSourceError linkLost(const QString& path, const QString& message)
    {
        return {Kind::linkLost, path, message};
    }
    static MediaSourceError deviceStopped(const QString& path) { return {Kind::deviceStopped, path, {}}; }

    Kind kind() const { return m_kind; }
    const QString& path() const { return m_path; }
    const QString& message() const { return m_message; }

    bool operator==(const MediaSourceError& other) const
    {
        return m_kind == other.m_kind && m_path == other.m_path && m_message == other.m_message;
    }

private:
    MediaSourceError(Kind kind, const QString& path, const QString& message);

    Kind m_kind;
    QString m_path;
    QString m_message;
};
