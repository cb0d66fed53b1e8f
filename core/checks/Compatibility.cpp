#include "Compatibility.h"

#include <algorithm>

namespace Compatibility {

const QList<TestedRelease>& tested()
{
    static const QList<TestedRelease> releases{
        {18, "18.7", "iPad Pro 11-inch (4th gen), iPad14,3", "2026-09-23"},
        {26, "26 (point release not recorded)", "iPhone 15 Pro Max", "2026-09-25"},
    };
    return releases;
}

QList<int> supportedMajors()
{
    QList<int> majors;
    for (const auto& release : tested())
        if (!majors.contains(release.major))
            majors << release.major;
    std::sort(majors.begin(), majors.end());
    return majors;
}

QString supportedDescription()
{
    QStringList names;
    for (int major : supportedMajors())
        names << QString::number(major);
    QString list = names.value(0);
    if (names.size() > 1)
        list = names.mid(0, names.size() - 1).join(", ") + " and " + names.last();
    return "iOS/iPadOS " + list;
}

Status status(const QString& version)
{
    const QStringList pieces = version.split('.', Qt::SkipEmptyParts);
    bool ok = false;
    const int major = pieces.value(0).toInt(&ok, 10);
    if (!ok)
        return Status::untested(QString::fromUtf8("iOS version \u201c") + version +
                                QString::fromUtf8("\u201d couldn't be read, so compatibility is unknown."));
    const QList<int> majors = supportedMajors();
    if (majors.contains(major))
        return Status::tested();
    if (major > majors.last())
        return Status::newerThanTested("iOS " + QString::number(major) +
                                       " hasn't been tested with this version of the app yet. "
                                       "The backup may be incomplete. Check for an update.");
    return Status::untested("iOS " + QString::number(major) +
                            " hasn't been tested with this app. The backup may be incomplete.");
}

} // namespace Compatibility
