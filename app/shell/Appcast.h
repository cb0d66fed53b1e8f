#pragma once

#include "AppcastItem.h"

#include <QByteArray>
#include <QList>

// The update feed: an RSS document whose items are releases. Parsing only reads; whether an item
// may be believed is decided by its signature.
class Appcast {
public:
    // The namespace of the feed's own elements (version, signature, …) inside each RSS item.
    static constexpr const char* xmlNamespace = "https://ombrelo.app/xml/appcast/1";

    // Throws UpdateError (invalidFeed) when the document is not an RSS feed of well-formed items.
    static QList<AppcastItem> parse(const QByteArray& xml);
};
