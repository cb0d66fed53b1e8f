#pragma once

#include "MkdeviceOptions.h"

#include <QTextStream>

// Writes a whole device folder: device.json, the media tree with its Photos database, and,
// when asked, the answer key. Progress goes to `progress`, the closing summary to `out`.
class DeviceFolderWriter {
public:
    DeviceFolderWriter(const MkdeviceOptions& options, QTextStream& out, QTextStream& progress);

    // Throws MkdeviceError.
    void write();

private:
    void prepareFolder();

    const MkdeviceOptions& m_options;
    QTextStream& m_out;
    QTextStream& m_progress;
};
