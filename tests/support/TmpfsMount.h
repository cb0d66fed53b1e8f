#pragma once

#include <QString>

// A small tmpfs mounted on a folder for one test (a disk that can fill up or turn read-only) and
// unmounted however the test ends. Mounting needs root; when it is refused, mounted() is false
// and error() says why, for GTEST_SKIP.
class TmpfsMount {
public:
    // `size` as mount(8) takes it: "2m", "512k".
    TmpfsMount(const QString& folder, const QString& size);
    ~TmpfsMount();
    TmpfsMount(const TmpfsMount&) = delete;
    TmpfsMount& operator=(const TmpfsMount&) = delete;

    bool mounted() const { return m_mounted; }
    const QString& error() const { return m_error; }
    const QString& path() const { return m_folder; }
    // Remounts it read-only (true) or read-write (false); true when that worked.
    bool setReadOnly(bool readOnly);

private:
    QString m_folder;
    bool m_mounted = false;
    QString m_error;
};
