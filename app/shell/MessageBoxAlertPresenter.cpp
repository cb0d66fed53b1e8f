#include "MessageBoxAlertPresenter.h"

#include <QDesktopServices>
#include <QMessageBox>
#include <QPushButton>

AlertButton MessageBoxAlertPresenter::showAlert(const Alert& alert)
{
    QMessageBox box(m_window);
    box.setIcon(QMessageBox::Information);
    box.setText(alert.message);
    box.setInformativeText(alert.informativeText);
    box.setTextFormat(Qt::PlainText);
    QPushButton* first = box.addButton(alert.firstButton, QMessageBox::RejectRole);
    box.setDefaultButton(first);
    box.setEscapeButton(first);
    QPushButton* second = nullptr;
    if (!alert.secondButton.isEmpty()) {
        second = box.addButton(alert.secondButton, QMessageBox::AcceptRole);
        box.setDefaultButton(second);
    }
    box.exec();
    return second && box.clickedButton() == second ? AlertButton::second : AlertButton::first;
}

void MessageBoxAlertPresenter::openUrl(const QUrl& url) { QDesktopServices::openUrl(url); }
