#pragma once

#include <QByteArray>
#include <QString>
#include <QUrl>
#include <QVersionNumber>

// One release offered by the update feed. docs/UPDATES.md describes the feed and what is signed.
struct AppcastItem {
    QString version;
    QString shortVersionString;
    QString releaseNotesLink;
    QString downloadLink;
    // base64 of the ed25519 signature over signedText().
    QByteArray signature;

    // The exact bytes the feed's key signs: a fixed first line, then each field on a line of its
    // own, in UTF-8.
    QByteArray signedText() const;
    // The version as numbers, compared segment by segment (0.10.0 is newer than 0.9.2).
    QVersionNumber versionNumber() const { return QVersionNumber::fromString(version); }
    // The version shown to people: the short version string when there is one.
    QString displayVersion() const { return shortVersionString.isEmpty() ? version : shortVersionString; }

    bool operator==(const AppcastItem&) const = default;
};
