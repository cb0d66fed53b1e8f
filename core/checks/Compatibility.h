#pragma once

#include <QList>
#include <QString>

// Whether a device's OS release is one this version of the app has been tested against.
namespace Compatibility {

struct TestedRelease {
    int major = 0;
    QString version;
    QString device;
    QString date;
};

class Status {
public:
    enum class Kind { newerThanTested, untested, tested };

    static Status newerThanTested(const QString& message) { return {Kind::newerThanTested, message}; }
    static Status untested(const QString& message) { return {Kind::untested, message}; }
    static Status tested() { return {Kind::tested, {}}; }

    Kind kind() const { return m_kind; }
    const QString& message() const { return m_message; }
    bool isTested() const { return m_kind == Kind::tested; }
    bool operator==(const Status&) const = default;

private:
    Status(Kind kind, const QString& message) : m_kind(kind), m_message(message) {}
    Kind m_kind;
    QString m_message;
};

const QList<TestedRelease>& tested();
QList<int> supportedMajors();
QString supportedDescription();
Status status(const QString& version);

} // namespace Compatibility
