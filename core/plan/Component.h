#pragma once

#include <QList>
#include <QString>

#include <optional>

// The kinds of file that make up one asset in a backup. The raw values are stored in the manifest.
enum class Component { original, liveVideo, aae, edited, editedLiveVideo, editedStill, adjustments };

QString rawValue(Component component);
std::optional<Component> componentFromRawValue(const QString& raw);
const QList<Component>& allComponents();
