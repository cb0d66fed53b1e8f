#include "PhotosDatabaseFile.h"

#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <stdexcept>

PhotoLibrary PhotosDatabaseFile::read(const QString& path)
{
    if (!QFileInfo(path).isFile())
        throw std::runtime_error(QString("There is no database file at \u201c%1\u201d.").arg(path).toStdString());
    QTemporaryDir scratch;
    if (!scratch.isValid())
        throw std::runtime_error("Could not create a temporary folder for the database copy.");
    for (const QString& suffix : {QString(), QStringLiteral("-wal"), QStringLiteral("-shm")}) {
        QFile source(path + suffix);
        if (!source.exists() && !suffix.isEmpty())
            continue;
        const QString copy = scratch.filePath("Photos.sqlite" + suffix);
        if (!source.copy(copy))
            throw std::runtime_error(QString("Could not copy \u201c%1\u201d: %2")
                                         .arg(source.fileName(), source.errorString())
                                         .toStdString());
        QFile::setPermissions(copy, QFile::ReadOwner | QFile::WriteOwner);
    }
    return PhotoLibrary::load(scratch.filePath("Photos.sqlite"));
}
