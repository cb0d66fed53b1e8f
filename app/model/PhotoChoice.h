#pragma once

#include <QByteArray>
#include <QHash>
#include <QJsonObject>
#include <QSet>
#include <QString>

#include <optional>

// Which single photos of a folder are taken: all but some, or only some. A folder without a
// choice is taken whole. Stored as JSON with exactly the keys "mode" and "uuids".
struct PhotoChoice {
    enum class Mode { allExcept, only };

    Mode mode = Mode::allExcept;
    QSet<QString> uuids; // allExcept: the photos left out; only: the only photos taken

    QJsonObject toJson() const;
    // None when the object is not a choice.
    static std::optional<PhotoChoice> fromJson(const QJsonObject& object);

    // The choices of every folder, keyed by folder id, as the settings keep them.
    static QByteArray encode(const QHash<QString, PhotoChoice>& choices);
    // None when the data is not a JSON object of choices, damaged or of another shape.
    static std::optional<QHash<QString, PhotoChoice>> decode(const QByteArray& data);

    bool operator==(const PhotoChoice&) const = default;
};

// "allExcept" or "only".
QString rawValue(PhotoChoice::Mode mode);
