#include "Appcast.h"

#include "UpdateError.h"

#include <QXmlStreamReader>

namespace {

// A field's value is one line: the signed text has one line per field, so a line break inside a
// value could make two different items sign the same bytes.
QString fieldText(QXmlStreamReader& reader)
{
    const QString name = reader.name().toString();
    const QString text = reader.readElementText(QXmlStreamReader::ErrorOnUnexpectedElement).trimmed();
    if (text.contains('\n') || text.contains('\r'))
        throw UpdateError::invalidFeed(QString::fromUtf8("the field \u201c%1\u201d holds a line break").arg(name));
    return text;
}

void checkItem(const AppcastItem& item)
{
    if (item.version.isEmpty())
        throw UpdateError::invalidFeed("an item has no version");
    qsizetype end = 0;
    if (QVersionNumber::fromString(item.version, &end).isNull() || end != item.version.size())
        throw UpdateError::invalidFeed(
            QString::fromUtf8("the version \u201c%1\u201d is not made of numbers").arg(item.version));
    if (item.downloadLink.isEmpty())
        throw UpdateError::invalidFeed(
            QString::fromUtf8("the item for version \u201c%1\u201d has no link").arg(item.version));
}

AppcastItem readItem(QXmlStreamReader& reader)
{
    AppcastItem item;
    while (reader.readNextStartElement()) {
        const bool ours = reader.namespaceUri() == QLatin1String(Appcast::xmlNamespace);
        const auto name = reader.name();
        if (ours && name == QLatin1String("version"))
            item.version = fieldText(reader);
        else if (ours && name == QLatin1String("shortVersionString"))
            item.shortVersionString = fieldText(reader);
        else if (ours && name == QLatin1String("releaseNotesLink"))
            item.releaseNotesLink = fieldText(reader);
        else if (ours && name == QLatin1String("edSignature"))
            item.signature = fieldText(reader).toLatin1();
        else if (reader.namespaceUri().isEmpty() && name == QLatin1String("link"))
            item.downloadLink = fieldText(reader);
        else
            reader.skipCurrentElement();
    }
    return item;
}

} // namespace

QList<AppcastItem> Appcast::parse(const QByteArray& xml)
{
    QXmlStreamReader reader(xml);
    QList<AppcastItem> items;
    bool rss = false;
    while (!reader.atEnd()) {
        if (reader.readNext() != QXmlStreamReader::StartElement || !reader.namespaceUri().isEmpty())
            continue;
        if (reader.name() == QLatin1String("rss"))
            rss = true;
        else if (reader.name() == QLatin1String("item") && rss)
            items.append(readItem(reader));
    }
    if (reader.hasError())
        throw UpdateError::invalidFeed(reader.errorString() + " (line " + QString::number(reader.lineNumber()) + ")");
    if (!rss)
        throw UpdateError::invalidFeed("it is not an RSS document");
    for (const AppcastItem& item : items)
        checkItem(item);
    return items;
}
