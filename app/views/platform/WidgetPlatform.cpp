#include "WidgetPlatform.h"

#include "FileManager.h"

#include <QApplication>
#include <QDir>
#include <QFileDialog>
#include <QGridLayout>
#include <QLabel>
#include <QMainWindow>
#include <QMessageBox>
#include <QPushButton>

std::optional<QString> WidgetPlatform::chooseFolder(const FolderRequest& request)
{
    QFileDialog dialog(QApplication::activeWindow(), request.title);
    // Qt's own dialog, so that the message can be shown in it.
    dialog.setOption(QFileDialog::DontUseNativeDialog);
    dialog.setFileMode(QFileDialog::Directory);
    dialog.setOption(QFileDialog::ShowDirsOnly);
    dialog.setLabelText(QFileDialog::Accept, request.acceptLabel);
    dialog.setDirectory(request.startFolder.isEmpty() ? QDir::homePath() : request.startFolder);
    if (auto* grid = qobject_cast<QGridLayout*>(dialog.layout())) {
        auto* message = new QLabel(request.message, &dialog);
        message->setWordWrap(true);
        grid->addWidget(message, grid->rowCount(), 0, 1, grid->columnCount());
    }
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty())
        return std::nullopt;
    return dialog.selectedFiles().first();
}

Platform::AlertButton WidgetPlatform::ask(const AlertRequest& request)
{
    QMessageBox box(QApplication::activeWindow());
    box.setIcon(QMessageBox::Warning);
    box.setText(request.message);
    box.setInformativeText(request.informativeText);
    QPushButton* first = box.addButton(request.firstButton, QMessageBox::RejectRole);
    QPushButton* second = box.addButton(request.secondButton, QMessageBox::DestructiveRole);
    box.setDefaultButton(first);
    box.setEscapeButton(first);
    box.exec();
    return box.clickedButton() == second ? AlertButton::second : AlertButton::first;
}

void WidgetPlatform::revealInFileManager(const QString& path) { FileManager::showItem(path); }

void WidgetPlatform::setWindowsClosable(bool closable)
{
    for (QWidget* widget : QApplication::topLevelWidgets()) {
        if (!qobject_cast<QMainWindow*>(widget))
            continue;
        widget->setProperty(closableProperty, closable);
        const bool visible = widget->isVisible();
        widget->setWindowFlag(Qt::WindowCloseButtonHint, closable);
        // Changing a window's flags hides it.
        if (visible)
            widget->show();
    }
}

bool WidgetPlatform::sheetAttached() { return QApplication::activeModalWidget() != nullptr; }

void WidgetPlatform::terminate() { QApplication::quit(); }
