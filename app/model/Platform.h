#pragma once

#include <QString>

#include <optional>

// What the model asks of the desktop it runs on: dialogs, the file manager, windows, quitting.
// The application gives the real ones (widgets, D-Bus); tests give their own, which never block.
class Platform {
public:
    struct FolderRequest {
        QString title;
        QString message;
        QString acceptLabel;
        QString startFolder; // empty: the platform's choice
    };
    struct AlertRequest {
        QString message;
        QString informativeText;
        QString firstButton; // the default
        QString secondButton;
    };
    enum class AlertButton { first, second };

    virtual ~Platform() = default;

    // A modal chooser of one folder (folders only, new ones may be made); none when cancelled.
    virtual std::optional<QString> chooseFolder(const FolderRequest& request) = 0;
    // A modal alert with two buttons; which one was chosen.
    virtual AlertButton ask(const AlertRequest& request) = 0;
    // Shows the folder, selected, in the file manager.
    virtual void revealInFileManager(const QString& path) = 0;
    // Lets the main window be closed, or refuses its close button.
    virtual void setWindowsClosable(bool closable) = 0;
    // Whether a window still has a sheet (a modal dialog) open over it.
    virtual bool sheetAttached() = 0;
    // Ends the application.
    virtual void terminate() = 0;
};
