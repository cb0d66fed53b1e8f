// The desktop's dialogs as the model asks for them: what they show, and which answer comes back.
#include "WidgetPlatform.h"
#include "TempDir.h"

#include <QApplication>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QTimer>

#include <gtest/gtest.h>

#include <functional>

namespace {

// Runs `act` on the modal dialog of type D once it is open.
template <typename D>
void whenOpen(const std::function<void(D&)>& act)
{
    QTimer::singleShot(0, [act] {
        auto* dialog = qobject_cast<D*>(QApplication::activeModalWidget());
        ASSERT_NE(dialog, nullptr);
        act(*dialog);
    });
}

} // namespace

// The folder chooser shows the title, the message and the button it is given, opens in the folder
// it is given, and returns the folder chosen or nothing when cancelled.
TEST(WidgetPlatform, FolderChooserShowsItsTextsAndReturnsTheChoice)
{
    TempDir dir;
    WidgetPlatform platform;
    const Platform::FolderRequest request{"Choose Backup Folder", "Photos will be copied into this folder.",
                                          "Use This Folder", dir.path()};
    bool sheet = false;
    whenOpen<QFileDialog>([&](QFileDialog& dialog) {
        sheet = platform.sheetAttached();
        EXPECT_EQ(dialog.windowTitle(), "Choose Backup Folder");
        EXPECT_EQ(dialog.labelText(QFileDialog::Accept), "Use This Folder");
        EXPECT_EQ(dialog.directory().absolutePath(), dir.path());
        QStringList labels;
        for (const QLabel* label : dialog.findChildren<QLabel*>())
            labels << label->text();
        EXPECT_TRUE(labels.contains("Photos will be copied into this folder.")) << labels.join(" | ").toStdString();
        dialog.selectFile(dir.path());
        QMetaObject::invokeMethod(&dialog, "accept");
    });
    EXPECT_EQ(platform.chooseFolder(request), dir.path());
    EXPECT_TRUE(sheet);
    EXPECT_FALSE(platform.sheetAttached());

    whenOpen<QFileDialog>([](QFileDialog& dialog) { dialog.reject(); });
    EXPECT_EQ(platform.chooseFolder(request), std::nullopt);
}

// The alert shows its texts with the first button as the default, and tells the buttons apart by
// the one clicked; closing it is the first button's answer.
TEST(WidgetPlatform, AlertTellsItsButtonsApart)
{
    WidgetPlatform platform;
    const Platform::AlertRequest request{"A backup is in progress", "Stop the backup and quit?", "Keep Backing Up",
                                         "Stop and Quit"};
    const auto click = [](const QString& text) {
        return [text](QMessageBox& box) {
            EXPECT_EQ(box.text(), "A backup is in progress");
            EXPECT_EQ(box.informativeText(), "Stop the backup and quit?");
            EXPECT_EQ(box.defaultButton()->text(), "Keep Backing Up");
            for (QAbstractButton* button : box.buttons())
                if (button->text() == text)
                    button->click();
        };
    };
    whenOpen<QMessageBox>(click("Stop and Quit"));
    EXPECT_EQ(platform.ask(request), Platform::AlertButton::second);
    whenOpen<QMessageBox>(click("Keep Backing Up"));
    EXPECT_EQ(platform.ask(request), Platform::AlertButton::first);
    whenOpen<QMessageBox>([](QMessageBox& box) { box.reject(); });
    EXPECT_EQ(platform.ask(request), Platform::AlertButton::first);
}
