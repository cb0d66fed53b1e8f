#pragma once

#include <QList>
#include <QString>
#include <QStringList>

#include <cstdint>

// One Core Data entity of the Photos database: its number is its place in the list.
struct Entity {
    QString name;
    QString parent; // empty for a root entity, which owns a table of its own
    int64_t number = 0;
    int64_t parentNumber = 0;
};

// How one OS generation lays out its Photos database, and the defaults of a phone running it.
struct Generation {
    QString id;             // "ios26"
    int major = 0;          // 26
    QString defaultVersion; // "26.1"
    QString defaultProductType;
    int64_t modelVersion = 0; // PLModelVersion in Z_METADATA

    static const QList<Generation>& all();
    // Throws MkdeviceError for a name that is not a generation.
    static const Generation& named(const QString& id);
    static QStringList ids();

    // ZGENERICASSET up to iOS 13, ZASSET from iOS 14.
    bool hasGenericAsset() const { return major <= 13; }
    QString assetTable() const { return hasGenericAsset() ? "ZGENERICASSET" : "ZASSET"; }
    bool hasBundleScope() const { return major >= 15; }
    bool hasAdjustmentsFlag() const { return major <= 17; }  // ZHASADJUSTMENTS
    bool hasAdjustmentsState() const { return major >= 18; } // ZADJUSTMENTSSTATE
    bool hasSharedWithYou() const { return major >= 15; }
    bool hasShareTable() const { return major >= 14; } // ZSHARE, else ZMOMENTSHARE
    // Edited HEIC stills are rendered as HEIC from iOS 17, as JPEG before.
    bool rendersEditsAsHeic() const { return major >= 17; }

    // The entities of this generation, numbered; `version` matters where a point release renumbers.
    QList<Entity> entities(const QString& version) const;
    int64_t modelVersionFor(const QString& version) const;
};

// Looks an entity up by name; throws when the generation has no such entity.
const Entity& entityNamed(const QList<Entity>& entities, const QString& name);
bool hasEntity(const QList<Entity>& entities, const QString& name);
