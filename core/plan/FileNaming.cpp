#include "FileNaming.h"

#include <QList>
#include <QTextBoundaryFinder>

#include <vector>

namespace FileNaming {

namespace {

bool isForbidden(char32_t c)
{
    switch (c) {
    case U'/':
    case U':':
    case U'\\':
    case U'*':
    case U'?':
    case U'"':
    case U'<':
    case U'>':
    case U'|':
        return true;
    default:
        return QChar::category(c) == QChar::Other_Control;
    }
}

QString replaceForbidden(const QString& name)
{
    QString result;
    result.reserve(name.size());
    for (uint c : name.toUcs4()) {
        if (isForbidden(c))
            result += QLatin1Char('-');
        else
            result += QString::fromUcs4(reinterpret_cast<const char32_t*>(&c), 1);
    }
    return result;
}

bool isWhitespaceNotNewline(QChar c)
{
    if (!c.isSpace())
        return false;
    const auto category = c.category();
    return category != QChar::Separator_Line && category != QChar::Separator_Paragraph &&
           category != QChar::Other_Control;
}

QString trimWhitespaceNotNewlines(const QString& text)
{
    qsizetype start = 0;
    qsizetype end = text.size();
    while (start < end && isWhitespaceNotNewline(text[start]))
        ++start;
    while (end > start && isWhitespaceNotNewline(text[end - 1]))
        --end;
    return text.mid(start, end - start);
}

// Positions where user-perceived characters end, in order (the last is the text's length).
std::vector<qsizetype> graphemeEnds(const QString& text)
{
    std::vector<qsizetype> ends;
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    while (finder.toNextBoundary() != -1)
        ends.push_back(finder.position());
    return ends;
}

QString cutToLimits(const QString& text, int maxLength)
{
    const auto ends = graphemeEnds(text);
    qsizetype count = qsizetype(ends.size());
    if (count > maxLength)
        count = maxLength;
    // Then shorten, whole characters at a time, until the UTF-8 form fits.
    while (count > 0 && text.left(ends[size_t(count) - 1]).toUtf8().size() > kMaxNameBytes)
        --count;
    return count == 0 ? QString() : text.left(ends[size_t(count) - 1]);
}

} // namespace

Parts split(const QString& name)
{
    const qsizetype dot = name.lastIndexOf(QLatin1Char('.'));
    if (dot <= 0)
        return {name, QString()};
    return {name.left(dot), name.mid(dot + 1)};
}

QString join(const QString& stem, const QString& ext) { return ext.isEmpty() ? stem : stem + "." + ext; }

QString safeName(const QString& name, int maxLength)
{
    QString result = replaceForbidden(name).trimmed();
    while (result.startsWith(QLatin1Char('.')))
        result.remove(0, 1);
    while (result.endsWith(QLatin1Char('.')) || result.endsWith(QLatin1Char(' ')))
        result.chop(1);

    const bool tooLong = graphemeEnds(result).size() > size_t(maxLength);
    if (tooLong || result.toUtf8().size() > kMaxNameBytes)
        result = trimWhitespaceNotNewlines(cutToLimits(result, maxLength));

    return result.isEmpty() ? QStringLiteral("Untitled") : result;
}

} // namespace FileNaming
