#pragma once
// Labels of the audio tracks of a file played through the container engine. Qt 6.4 reads no track
// language back from the virtual MP4 (every track comes back as AnyLanguage) and no title either,
// so these labels come from the engine's own description of each track.
#include "ContainerMedia.h"
#include "PlaybackBackend.h"

#include <QList>
#include <QString>

namespace quorvane::nativemedia {

// The name of an ISO 639-2 or 639-3 language ("eng", "jpn") in the interface language: "English"
// or "英语"; empty for "und" and codes that name no language.
QString languageName(const QString& code);

// "English — Commentary", "English" or "Commentary" from the track's language and name, and the
// translated "Track N" (N = position) when the file says neither.
QString containerTrackLabel(const ContainerMedia::Track& track, int position);

// Relabels the audio entries of `tracks` (numbered from 1 in the player's order) from the engine's
// tracks, when the player found as many audio tracks as the engine wrote; else leaves them.
void labelContainerAudio(QList<PlaybackTrack>& tracks, const QList<ContainerMedia::Track>& engine);

} // namespace quorvane::nativemedia
