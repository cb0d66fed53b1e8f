#include "UpdateError.h"

namespace {

QString quoted(const QString& text) { return QString::fromUtf8("\u201c") + text + QString::fromUtf8("\u201d"); }

QString describe(UpdateError::Kind kind, const QUrl& feed, const QString& detail)
{
    const QString address = quoted(feed.toDisplayString());
    switch (kind) {
    case UpdateError::Kind::backupInProgress:
        return QStringLiteral("A backup is in progress.");
    case UpdateError::Kind::unreadableFeed:
        return "The update feed at " + address + " could not be read (" + detail + ").";
    case UpdateError::Kind::timedOut:
        return "The update feed at " + address + " did not answer within " + detail +
               (detail == "1" ? " second." : " seconds.");
    case UpdateError::Kind::invalidFeed:
        return "The update feed is not a valid appcast: " + detail + ".";
    case UpdateError::Kind::badSignature:
        return "The update feed\u2019s entry for version " + quoted(detail) +
               " does not carry a valid signature, so nothing from the feed is offered.";
    case UpdateError::Kind::invalidPublicKey:
        break;
    }
    return QStringLiteral("The public key for updates built into this program is not a valid ed25519 key.");
}

} // namespace

UpdateError::UpdateError(Kind kind, const QUrl& feed, const QString& detail)
    : DescribedError(describe(kind, feed, detail)), m_kind(kind)
{
}
