#pragma once

#include "DescribedError.h"

#include <QString>

#include <stdexcept>

// A failure to list or read a file of a device's media tree.
class MediaSourceError : public DescribedError {
public:
    enum class Kind { notFound, readFailed };

    static MediaSourceError notFound(const QString& path) { return {Kind::notFound, path, {}}; }
    static MediaSourceError readFailed(const QString& path, const QString& message)
    {
        return {Kind::readFailed, path, message};
    }

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
