#include "BackupRecords.h"

#include <QLocale>

QString formatByteCount(uint64_t bytes)
{
    return QLocale::system().formattedDataSize(qint64(bytes), 1, QLocale::DataSizeSIFormat);
}

QStringList BackupSummary::lines() const
{
    QStringList result;
    if (isDryRun)
        result << "Would copy: " + QString::number(filesToCopy) +
                      " files (identical-content checks happen during the real run)";
    else
        result << "Files copied: " + QString::number(filesCopied) + " (" + formatByteCount(bytesCopied) + ")";
    result << "Already backed up: " + QString::number(filesAlreadyBackedUp);
    if (duplicatesDiscarded > 0)
        result << "Identical to a file already in the folder (not copied again): " +
                      QString::number(duplicatesDiscarded);
    if (filesAdopted > 0)
        result << "Found on disk from an earlier interrupted run: " + QString::number(filesAdopted);
    if (!assetsNotOnDevice.isEmpty())
        result << "Not stored on the device (iCloud only?): " + QString::number(assetsNotOnDevice.size());
    if (!dateWarnings.isEmpty())
        result << "Dates could not be set: " + QString::number(dateWarnings.size());
    if (!errors.isEmpty())
        result << "Errors: " + QString::number(errors.size());
    if (cancelled)
        result << QStringLiteral("Cancelled before finishing.");
    return result;
}
