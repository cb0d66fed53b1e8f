// The desktop's dialogs as the model asks for them: what they show, and which answer comes back.
#include "WidgetPlatform.h"
#include "TempDir.h"

#include <QApplication>
#include <QFileDialog>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QTimer>

#include <gtest/gtest.h>

// The folder chooser shows its title, message and button, opens in the folder given and returns the
// folder chosen, or nothing when cancelled; the alert shows its texts with the first button as the
// default and tells the buttons apart by the one clicked (closing it is the first one's answer).
TEST(WidgetPlatform, DialogsShowTheirTextsAndReturnTheChoice)
{
    TempDir dir;
    WidgetPlatform platform;
    const auto onDialog = [](const std::function<void(QDialog&)>& act) {
        QTimer::singleShot(0, [act] { act(*qobject_cast<QDialog*>(QApplication::activeModalWidget())); });
    };
    const Platform::FolderRequest folder{"Choose Backup Folder", "Photos will be copied here.", "Use This Folder",
                                         dir.path()};
    bool sheet = false;
    onDialog([&](QDialog& widget) {
        auto& dialog = dynamic_cast<QFileDialog&>(widget);
        sheet = platform.sheetAttached();
        EXPECT_EQ(dialog.windowTitle(), "Choose Backup Folder");
        EXPECT_EQ(dialog.labelText(QFileDialog::Accept), "Use This Folder");
        EXPECT_EQ(dialog.directory().absolutePath(), dir.path());
        QStringList labels;
        for (const QLabel* label : dialog.findChildren<QLabel*>())
            labels << label->text();
        EXPECT_TRUE(labels.contains("Photos will be copied here.")) << labels.join(" | ").toStdString();
        dialog.selectFile(dir.path());
        QMetaObject::invokeMethod(&dialog, "accept");
    });
    EXPECT_EQ(platform.chooseFolder(folder), dir.path());
    EXPECT_TRUE(sheet);
    EXPECT_FALSE(platform.sheetAttached());
    onDialog([](QDialog& dialog) { dialog.reject(); });
    EXPECT_EQ(platform.chooseFolder(folder), std::nullopt);

    const Platform::AlertRequest alert{"A backup is in progress", "Stop it?", "Keep Backing Up", "Stop and Quit"};
    const auto click = [](const QString& text) {
        return [text](QDialog& widget) {
            auto& box = dynamic_cast<QMessageBox&>(widget);
            EXPECT_EQ(box.text(), "A backup is in progress");
            EXPECT_EQ(box.informativeText(), "Stop it?");
            EXPECT_EQ(box.defaultButton()->text(), "Keep Backing Up");
            for (QAbstractButton* button : box.buttons())
                if (button->text() == text)
                    button->click();
        };
    };
    onDialog(click("Stop and Quit"));
    EXPECT_EQ(platform.ask(alert), Platform::AlertButton::second);
    onDialog(click("Keep Backing Up"));
    EXPECT_EQ(platform.ask(alert), Platform::AlertButton::first);
    onDialog([](QDialog& box) { box.reject(); });
    EXPECT_EQ(platform.ask(alert), Platform::AlertButton::first);
}
