#pragma once

#include <QString>

// Where reading the selected device's library stands.
class LibraryState {
public:
    enum class Kind { noDevice, loading, failed, loaded };

    static LibraryState noDevice() { return {Kind::noDevice, {}}; }
    // Work in progress; the text is shown with a spinner.
    static LibraryState loading(const QString& text) { return {Kind::loading, text}; }
    // Connecting or reading failed; the text says why.
    static LibraryState failed(const QString& text) { return {Kind::failed, text}; }
    static LibraryState loaded() { return {Kind::loaded, {}}; }

    Kind kind() const { return m_kind; }
    // The loading or failure text; empty otherwise.
    const QString& message() const { return m_message; }

    bool operator==(const LibraryState&) const = default;

private:
    LibraryState(Kind kind, const QString& message) : m_kind(kind), m_message(message) {}

    Kind m_kind;
    QString m_message;
};
