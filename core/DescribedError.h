#pragma once

#include <QString>

#include <exception>
#include <stdexcept>

// A failure with a text for the people using the program: a full sentence that says what happened
// and, where it helps, what to do. Every error class of the core derives from it, so a front end
// shows any failure through describeError() without knowing where it came from.
class DescribedError : public std::runtime_error {
public:
    explicit DescribedError(const QString& description);

    const QString& description() const { return m_description; }

private:
    QString m_description;
};

// The user's text of any failure: a DescribedError's description, else the exception's own text.
QString describeError(const std::exception& error);
