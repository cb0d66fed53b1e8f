#pragma once

#include <QString>
#include <QUrl>

// An alert: a message, an informative text below it and one or two buttons. The first button
// closes the alert; the second, when there is one, is the alert's action.
struct Alert {
    QString message;
    QString informativeText;
    QString firstButton;
    QString secondButton;

    bool operator==(const Alert&) const = default;
};

enum class AlertButton { first, second };

// The dialogs the shell shows, behind one seam so that tests answer them without blocking.
class AlertPresenter {
public:
    virtual ~AlertPresenter() = default;

    // Shows the alert and returns the button that closed it.
    virtual AlertButton showAlert(const Alert& alert) = 0;
    // Opens a web address in the user's browser.
    virtual void openUrl(const QUrl& url) = 0;
};
