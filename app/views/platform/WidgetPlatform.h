#pragma once

#include "Platform.h"

// The model's requests to the desktop, answered with Qt Widgets: a folder dialog with the message
// shown in it, a message box whose two buttons are told apart by the button clicked, the file
// manager, the main window's close button, and quitting.
class WidgetPlatform : public Platform {
public:
    // The property the main window reads in its close event: false while a run copies files.
    static inline const char* closableProperty = "ombreloClosable";

    std::optional<QString> chooseFolder(const FolderRequest& request) override;
    AlertButton ask(const AlertRequest& request) override;
    void revealInFileManager(const QString& path) override;
    // Sets the property on every main window and shows or hides its close button.
    void setWindowsClosable(bool closable) override;
    bool sheetAttached() override;
    void terminate() override;
};
