#pragma once

#include <QString>

// The desktop's file manager.
class FileManager {
public:
    FileManager() = delete;

    // Shows the item selected in its folder through the freedesktop FileManager1 D-Bus service;
    // where no file manager answers it, opens the folder itself. Returns false when neither worked.
    static bool showItem(const QString& path);
};
