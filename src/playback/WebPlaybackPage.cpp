#include "WebPlaybackPage.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QTextBoundaryFinder>

#include <cmath>

namespace quorvane {

namespace {

// The page the web view loads. {SESSION} stands for the session token three times: the script
// nonce the Content-Security-Policy allows, the nonce of the one script element, and the
// `session` every message carries back.
constexpr char16_t kPageTemplate[] = uR"QVPAGE(<!doctype html><html><head><meta charset="utf-8">
<meta http-equiv="Content-Security-Policy" content="default-src 'none'; media-src 'self'; script-src 'nonce-{SESSION}'; style-src 'unsafe-inline'; connect-src 'none'; base-uri 'none'; form-action 'none'">
<style>html,body{margin:0;background:#000;overflow:hidden;width:100%;height:100%}video{width:100%;height:100%;object-fit:contain;pointer-events:none}</style>
</head><body><video crossorigin="anonymous" src="media" preload="auto" playsinline></video><script nonce="{SESSION}">
(()=>{
  const v=document.querySelector('video'), session='{SESSION}'; let seekID=null;
  function emit(event){
    const tracks=Array.from(v.audioTracks||[]);
    window.webkit.messageHandlers.media.postMessage({session,event,position:v.currentTime,duration:Number.isFinite(v.duration)?v.duration:0,
      rate:v.paused?0:v.playbackRate,width:v.videoWidth,height:v.videoHeight,seekID,
      tracks:tracks.map((t,i)=>t.label||t.language||String(i+1)),audioID:tracks.findIndex(t=>t.enabled)+1,
      dropped:v.getVideoPlaybackQuality?.().droppedVideoFrames||0});
  }
  v.addEventListener('loadeddata',()=>emit('ready'));
  v.addEventListener('ended',()=>emit('ended'));v.addEventListener('error',()=>emit('error'));
  v.addEventListener('seeked',()=>{emit('seeked');seekID=null});
  for(const name of ['playing','pause','ratechange','timeupdate'])v.addEventListener(name,()=>emit('state'));
  setInterval(()=>emit('state'),100);
  window.quorvane={command(c){try{
    switch(c.op){
      case 'play':v.playbackRate=c.value;v.play().catch(()=>emit('error'));break;
      case 'pause':v.pause();break;
      case 'seek':seekID=c.id;if(Math.abs(v.currentTime-c.value)<0.001){emit('seeked');seekID=null}else v.currentTime=c.value;break;
      case 'volume':v.volume=c.value;break;case 'mute':v.muted=c.value;break;
      case 'audio':Array.from(v.audioTracks||[]).forEach((t,i)=>t.enabled=i+1===c.value);break;
    }
    emit('state');
  }catch(e){emit('error')}}};
})();
</script></body></html>)QVPAGE";

} // namespace

QString webPlaybackPage(const QString& session)
{
    QString page = QString::fromUtf16(kPageTemplate);
    page.replace(QStringLiteral("{SESSION}"), session);
    return page;
}

QString pageCommandScript(const QJsonObject& command)
{
    return QStringLiteral("window.quorvane.command(") +
           QString::fromUtf8(QJsonDocument(command).toJson(QJsonDocument::Compact)) +
           QStringLiteral("); null");
}

QString canonicalUuid(const QUuid& id)
{
    return id.toString(QUuid::WithoutBraces).toUpper();
}

namespace {

std::optional<double> finiteNumber(const QJsonValue& value)
{
    if (!value.isDouble()) return std::nullopt;
    const double number = value.toDouble();
    if (!std::isfinite(number)) return std::nullopt;
    return number;
}

// A label cut to its first characters as a reader counts them (grapheme clusters).
QString cutLabel(const QString& label, int characters)
{
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, label);
    int seen = 0;
    while (finder.toNextBoundary() >= 0) {
        if (++seen == characters) return label.left(finder.position());
    }
    return label;
}

QList<PlaybackTrack> audioTracks(const QJsonValue& value)
{
    QList<PlaybackTrack> tracks;
    if (!value.isArray()) return tracks;
    const QJsonArray labels = value.toArray();
    for (const QJsonValue& label : labels) {
        if (!label.isString()) return {}; // one non-string makes the whole list unusable
    }
    for (qsizetype i = 0; i < labels.size() && i < kMaxPageAudioTracks; ++i) {
        tracks.append({qint64(i + 1), PlaybackTrackKind::Audio,
                       cutLabel(labels[i].toString(), kMaxPageTrackLabel)});
    }
    return tracks;
}

std::optional<QUuid> strictUuid(const QJsonValue& value)
{
    if (!value.isString()) return std::nullopt;
    const QString text = value.toString();
    if (text.size() != 36) return std::nullopt; // no braces, no other spellings
    const QUuid id = QUuid::fromString(text);
    if (id.isNull() && text != QLatin1String("00000000-0000-0000-0000-000000000000"))
        return std::nullopt;
    return id;
}

} // namespace

PageMessageOutcome acceptPageMessage(const PageMessageContext& context,
                                     const PageMessageSource& source, const QJsonValue& body)
{
    using Kind = PageMessageOutcome::Kind;
    PageMessageOutcome outcome;
    if (!source.mainFrame || !context.page || source.frameUrl != *context.page) return outcome;
    if (!body.isObject()) return outcome;
    const QJsonObject message = body.toObject();
    const QJsonValue session = message.value(QLatin1String("session"));
    if (!session.isString() || session.toString() != context.session) return outcome;
    const QJsonValue eventValue = message.value(QLatin1String("event"));
    if (!eventValue.isString()) return outcome;
    const QString event = eventValue.toString();
    if (event == QLatin1String("error")) {
        outcome.kind = Kind::Failed;
        return outcome;
    }

    const auto position = finiteNumber(message.value(QLatin1String("position")));
    if (!position || *position < 0) return outcome;
    const auto duration = finiteNumber(message.value(QLatin1String("duration")));
    if (!duration || *duration <= 0 || *duration > kMaxPageDuration) return outcome;
    const auto rate = finiteNumber(message.value(QLatin1String("rate")));
    if (!rate || *rate < 0 || *rate > kMaxPageRate) return outcome;

    PlaybackSnapshot snapshot = context.snapshot;
    snapshot.position = std::min(*position, *duration);
    snapshot.rate = *rate;
    const auto audioID = finiteNumber(message.value(QLatin1String("audioID")));
    snapshot.audioID = (audioID && std::trunc(*audioID) == *audioID)
                           ? qint64(std::clamp(*audioID, 0.0, double(kMaxPageAudioTracks)))
                           : 0;
    const QJsonValue dropped = message.value(QLatin1String("dropped"));
    snapshot.droppedFrames = dropped.isDouble() ? std::max(dropped.toDouble(), 0.0) : 0;
    outcome.kind = Kind::SnapshotOnly;
    outcome.snapshot = snapshot;

    if (event == QLatin1String("ready")) {
        if (context.ready) return outcome;
        const auto width = finiteNumber(message.value(QLatin1String("width")));
        const auto height = finiteNumber(message.value(QLatin1String("height")));
        if (!width || *width < 0 || *width > kMaxPageVideoSide || !height || *height < 0 ||
            *height > kMaxPageVideoSide)
            return outcome;
        outcome.kind = Kind::Ready;
        outcome.info.duration = *duration;
        outcome.info.width = *width;
        outcome.info.height = *height;
        outcome.info.tracks = audioTracks(message.value(QLatin1String("tracks")));
    } else if (event == QLatin1String("seeked") && context.ready) {
        const auto id = strictUuid(message.value(QLatin1String("seekID")));
        if (id && context.pendingSeek && *id == *context.pendingSeek) {
            outcome.kind = Kind::SeekCompleted;
            outcome.seekID = *id;
        }
    } else if (event == QLatin1String("ended") && context.ready) {
        outcome.kind = Kind::Ended;
    }
    return outcome;
}

} // namespace quorvane
