#include "AppcastItem.h"

QByteArray AppcastItem::signedText() const
{
    const QString text = "ombrelo-update-v1\n"
                         "version: " +
                         version + "\nshortVersionString: " + shortVersionString +
                         "\nreleaseNotesLink: " + releaseNotesLink + "\nlink: " + downloadLink + "\n";
    return text.toUtf8();
}
