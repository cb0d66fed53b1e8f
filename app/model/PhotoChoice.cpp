#include "PhotoChoice.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QStringList>

#include <algorithm>

QString rawValue(PhotoChoice::Mode mode)
{
    return mode == PhotoChoice::Mode::only ? QStringLiteral("only") : QStringLiteral("allExcept");
}

QJsonObject PhotoChoice::toJson() const
{
    QStringList sorted(uuids.begin(), uuids.end());
    std::sort(sorted.begin(), sorted.end());
    return {{"mode", rawValue(mode)}, {"uuids", QJsonArray::fromStringList(sorted)}};
}

std::optional<PhotoChoice> PhotoChoice::fromJson(const QJsonObject& object)
{
    if (object.size() != 2 || !object.value("uuids").isArray())
        return std::nullopt;
    PhotoChoice choice;
    const QString mode = object.value("mode").toString();
    if (mode == rawValue(Mode::only))
        choice.mode = Mode::only;
    else if (mode != rawValue(Mode::allExcept))
        return std::nullopt;
    for (const QJsonValue& uuid : object.value("uuids").toArray()) {
        if (!uuid.isString())
            return std::nullopt;
        choice.uuids.insert(uuid.toString());
    }
    return choice;
}

QByteArray PhotoChoice::encode(const QHash<QString, PhotoChoice>& choices)
{
    QJsonObject object;
    for (auto it = choices.cbegin(); it != choices.cend(); ++it)
        object.insert(it.key(), it->toJson());
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

std::optional<QHash<QString, PhotoChoice>> PhotoChoice::decode(const QByteArray& data)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(data, &error);
    if (error.error != QJsonParseError::NoError || !document.isObject())
        return std::nullopt;
    QHash<QString, PhotoChoice> choices;
    const QJsonObject object = document.object();
    for (auto it = object.begin(); it != object.end(); ++it) {
        const std::optional<PhotoChoice> choice = fromJson(it.value().toObject());
        if (!it.value().isObject() || !choice)
            return std::nullopt;
        choices.insert(it.key(), *choice);
    }
    return choices;
}
