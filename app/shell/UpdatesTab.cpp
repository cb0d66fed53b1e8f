#include "UpdatesTab.h"

#include "Updater.h"

#include <QCheckBox>
#include <QFormLayout>
#include <QLabel>
#include <QLocale>
#include <QPushButton>
#include <QVBoxLayout>

UpdatesTab::UpdatesTab(Updater& updater, QWidget* parent) : QWidget(parent), m_updater(updater)
{
    if (!updater.checksForUpdates()) {
        auto* layout = new QVBoxLayout(this);
        layout->addWidget(
            new QLabel(QString::fromUtf8("This development build doesn\u2019t check for updates."), this));
        layout->addStretch();
        return;
    }
    auto* automatic = new QCheckBox("Automatically check for updates", this);
    automatic->setChecked(updater.automaticallyChecks());
    connect(automatic, &QCheckBox::toggled, &updater, &Updater::setAutomaticallyChecks);
    m_lastCheck = new QLabel(this);
    auto* checkNow = new QPushButton(QString::fromUtf8("Check for Updates\u2026"), this);
    connect(checkNow, &QPushButton::clicked, &updater, &Updater::checkForUpdates);

    auto* layout = new QFormLayout(this);
    layout->addRow(automatic);
    layout->addRow("Current version:", new QLabel(updater.info().versionAndBuild(), this));
    layout->addRow("Last checked:", m_lastCheck);
    layout->addRow(checkNow);
    showLastCheck();
    connect(&updater, &Updater::checkFinished, this, &UpdatesTab::showLastCheck);
}

void UpdatesTab::showLastCheck()
{
    const QDateTime last = m_updater.lastCheck();
    m_lastCheck->setText(last.isValid() ? QLocale().toString(last.toLocalTime(), QLocale::ShortFormat) : "Never");
}
