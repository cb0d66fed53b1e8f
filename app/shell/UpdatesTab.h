#pragma once

#include <QWidget>

class QLabel;
class Updater;

// The "Updates" tab of the settings window: automatic checks, the current version, the last check
// and the button that checks now; in a development build only the line that says it never checks.
class UpdatesTab : public QWidget {
    Q_OBJECT
public:
    explicit UpdatesTab(Updater& updater, QWidget* parent = nullptr);

private:
    void showLastCheck();

    Updater& m_updater;
    QLabel* m_lastCheck = nullptr;
};
