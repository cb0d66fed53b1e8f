#pragma once

#include <QString>

#include <stdexcept>

// A failure of ombrelo-mkdevice: a bad command line or a folder it cannot write.
class MkdeviceError : public std::runtime_error {
public:
    enum class Kind { usage, output };

    static MkdeviceError usage(const QString& text) { return {Kind::usage, text}; }
    static MkdeviceError output(const QString& text) { return {Kind::output, text}; }

    Kind kind() const { return m_kind; }
    // The full sentence shown to the user.
    const QString& description() const { return m_description; }

private:
    MkdeviceError(Kind kind, const QString& description)
        : std::runtime_error(description.toStdString()), m_kind(kind), m_description(description)
    {
    }

    Kind m_kind;
    QString m_description;
};
