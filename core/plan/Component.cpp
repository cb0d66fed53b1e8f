#include "Component.h"

QString rawValue(Component component)
{
    switch (component) {
    case Component::original:
        return QStringLiteral("original");
    case Component::liveVideo:
        return QStringLiteral("live-video");
    case Component::aae:
        return QStringLiteral("aae");
    case Component::edited:
        return QStringLiteral("edited");
    case Component::editedLiveVideo:
        return QStringLiteral("edited-live-video");
    case Component::editedStill:
        return QStringLiteral("edited-still");
    case Component::adjustments:
        break;
    }
    return QStringLiteral("adjustments");
}

const QList<Component>& allComponents()
{
    static const QList<Component> all{Component::original,   Component::liveVideo,       Component::aae,
                                      Component::edited,     Component::editedLiveVideo, Component::editedStill,
                                      Component::adjustments};
    return all;
}

std::optional<Component> componentFromRawValue(const QString& raw)
{
    for (Component component : allComponents())
        if (rawValue(component) == raw)
            return component;
    return std::nullopt;
}
