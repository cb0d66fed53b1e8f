#include "AppInfo.h"

#include "BuildInfo.h"
#include "Version.h"

#include <QSysInfo>
#include <QtGlobal>

AppInfo AppInfo::current()
{
    return AppInfo{
        .version = ombrelo::kVersion,
        .build = buildinfo::build,
        .environment = buildinfo::environment,
        .website = QUrl(buildinfo::website),
        .updateFeed = QUrl(buildinfo::updateFeedUrl),
        .updatePublicKey = QByteArray(buildinfo::updatePublicKey),
    };
}

QString AppInfo::versionAndBuild() const { return build.isEmpty() ? version : version + " (" + build + ")"; }

QString AppInfo::editionName() const
{
    if (environment == "release")
        return QStringLiteral("Ombrelo");
    QString kind = environment.isEmpty() ? QStringLiteral("development") : environment;
    return "Ombrelo " + kind.left(1).toUpper() + kind.mid(1);
}

QString AppInfo::supportDetails() const
{
    return QStringList{
        editionName() + " " + versionAndBuild(),
        "System: " + QSysInfo::prettyProductName() + ", kernel " + QSysInfo::kernelVersion() + ", " +
            QSysInfo::currentCpuArchitecture(),
        QString("Qt: ") + qVersion(),
        "Update checks: " + QString(hasUpdateFeed() ? "on" : "none (development build)"),
    }
        .join('\n');
}
