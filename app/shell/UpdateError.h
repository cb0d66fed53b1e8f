#pragma once

#include "DescribedError.h"

#include <QString>
#include <QUrl>

// Why a check for updates found nothing to offer.
class UpdateError : public DescribedError {
public:
    enum class Kind { backupInProgress, unreadableFeed, timedOut, invalidFeed, badSignature, invalidPublicKey };

    static UpdateError backupInProgress() { return {Kind::backupInProgress, {}, {}}; }
    static UpdateError unreadableFeed(const QUrl& feed, const QString& reason)
    {
        return {Kind::unreadableFeed, feed, reason};
    }
    static UpdateError timedOut(const QUrl& feed, int seconds)
    {
        return {Kind::timedOut, feed, QString::number(seconds)};
    }
    static UpdateError invalidFeed(const QString& reason) { return {Kind::invalidFeed, {}, reason}; }
    // `version` names the feed entry whose signature did not match.
    static UpdateError badSignature(const QString& version) { return {Kind::badSignature, {}, version}; }
    static UpdateError invalidPublicKey() { return {Kind::invalidPublicKey, {}, {}}; }

    Kind kind() const { return m_kind; }

private:
    UpdateError(Kind kind, const QUrl& feed, const QString& detail);

    Kind m_kind;
};
