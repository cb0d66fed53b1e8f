#pragma once

#include "Component.h"

#include <QString>

// One device file of an asset and the kind of file it is in the backup.
struct SourceComponent {
    Component component = Component::original;
    QString sourcePath; // absolute device path, beginning with "/"
    QString ext;        // the source file's extension without the dot, case kept; may be empty

    // The destination file name of this component for the asset's stem in a folder.
    QString fileName(const QString& stem) const;

    bool operator==(const SourceComponent&) const = default;
};
