#pragma once

#include "AlertPresenter.h"

#include <QPointer>
#include <QWidget>

// Shows alerts as modal message boxes over a window, and opens web addresses in the desktop's
// browser.
class MessageBoxAlertPresenter : public AlertPresenter {
public:
    explicit MessageBoxAlertPresenter(QWidget* window = nullptr) : m_window(window) {}

    AlertButton showAlert(const Alert& alert) override;
    void openUrl(const QUrl& url) override;

private:
    QPointer<QWidget> m_window;
};
