#pragma once

#include <QByteArray>
#include <QString>
#include <QUrl>

// Read-only facts about this build: its version, what kind of build it is, where it finds its
// updates and the product's web addresses. current() holds the values the build was configured
// with; tests make their own.
struct AppInfo {
    QString version;
    QString build;
    // "development", "beta", "release", …; empty counts as a development build.
    QString environment;
    QUrl website;
    QUrl updateFeed;
    // The base64 text of the 32-byte ed25519 key that signs the update feed.
    QByteArray updatePublicKey;

    static AppInfo current();

    // Reverse-DNS name of the application: the desktop entry's metadata id and error domain.
    static QString identifier() { return QStringLiteral("app.ombrelo.Ombrelo"); }

    // "0.1.0 (7)".
    QString versionAndBuild() const;
    // "Ombrelo" for a release, "Ombrelo Beta" or "Ombrelo Development" otherwise.
    QString editionName() const;
    // Version, build and system facts, pasted into support requests.
    QString supportDetails() const;
    // Only a build with both a feed address and its public key checks for updates.
    bool hasUpdateFeed() const { return !updateFeed.isEmpty() && !updatePublicKey.isEmpty(); }

    QUrl privacy() const { return website.resolved(QUrl("privacy/")); }
    QUrl openSource() const { return website.resolved(QUrl("open-source/")); }
    QString supportAddress() const { return "support@" + website.host(); }
};
