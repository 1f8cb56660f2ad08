#pragma once
// The one page the web backend loads from its loopback server, the commands the backend sends
// into it, and the rules by which a message posted by the page is accepted. Kept apart from the
// web view so the rules can be checked without a browser.
#include "PlaybackBackend.h"

#include <QJsonObject>
#include <QJsonValue>
#include <QString>
#include <QUrl>
#include <QUuid>

#include <optional>

namespace quorvane {

// The page text for a session token.
QString webPlaybackPage(const QString& session);

// "window.quorvane.command(<command as JSON>); null": the script that carries one command.
QString pageCommandScript(const QJsonObject& command);

// Canonical upper-case text of a UUID, as the page and its messages carry it.
QString canonicalUuid(const QUuid& id);

// Where a message came from and what the backend expects of it.
struct PageMessageSource {
    QUrl frameUrl;          // the URL of the frame that posted
    bool mainFrame = false; // whether that frame is the view's main frame
};

struct PageMessageContext {
    std::optional<QUrl> page; // the page the backend loaded
    QString session;          // the backend's current session token
    bool ready = false;
    std::optional<QUuid> pendingSeek;
    PlaybackSnapshot snapshot; // the snapshot before the message
};

struct PageMessageOutcome {
    enum class Kind {
        Dropped,       // nothing changes
        Failed,        // report failed(-11828)
        SnapshotOnly,  // the snapshot changed, nothing to report
        Ready,         // the backend becomes ready with `info`
        SeekCompleted, // report seekCompleted(seekID) and clear the pending seek
        Ended,         // report ended
    };
    Kind kind = Kind::Dropped;
    PlaybackSnapshot snapshot; // the new snapshot, for every kind from SnapshotOnly on
    PlaybackMediaInfo info;    // for Ready
    QUuid seekID;              // for SeekCompleted
};

// Longest duration a message may carry: one year in seconds.
inline constexpr double kMaxPageDuration = 31536000;
inline constexpr double kMaxPageRate = 20;
inline constexpr double kMaxPageVideoSide = 16384;
inline constexpr int kMaxPageAudioTracks = 32;
inline constexpr int kMaxPageTrackLabel = 128;

// Applies the acceptance rules, in their order, to one posted message body.
PageMessageOutcome acceptPageMessage(const PageMessageContext& context,
                                     const PageMessageSource& source, const QJsonValue& body);

} // namespace quorvane
