#include "FileManager.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDesktopServices>
#include <QFileInfo>
#include <QStringList>
#include <QUrl>

bool FileManager::showItem(const QString& path)
{
    const QUrl item = QUrl::fromLocalFile(QFileInfo(path).absoluteFilePath());
    QDBusMessage call = QDBusMessage::createMethodCall("org.freedesktop.FileManager1", "/org/freedesktop/FileManager1",
                                                       "org.freedesktop.FileManager1", "ShowItems");
    call << QStringList{item.toString()} << QString();
    const QDBusMessage reply = QDBusConnection::sessionBus().call(call, QDBus::Block, 5000);
    if (reply.type() == QDBusMessage::ReplyMessage)
        return true;
    return QDesktopServices::openUrl(item);
}
