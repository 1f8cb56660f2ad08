// Labels of audio tracks played through the container engine, in both interface languages.
#include "ContainerTrackLabels.h"
#include "InterfaceLanguage.h"

#include <gtest/gtest.h>

using namespace quorvane;
using quorvane::testing::InterfaceLanguage;
using Track = ContainerMedia::Track;

TEST(ContainerTrackLabels, LanguageAndNameInEitherInterfaceLanguage)
{
    const QList<Track> tracks{{false, "aac", "eng", "Commentary"},
                              {false, "aac", "jpn", ""},
                              {false, "aac", "und", " Director "},
                              {false, "aac", "und", ""},
                              {false, "aac", "cym", ""},  // not in the catalog: its own name
                              {false, "aac", "tlh", ""}}; // a code Qt does not know
    const std::pair<QString, QStringList> cases[] = {
        {"en",
         {"English \u2014 Commentary", "Japanese", "Director", "Track 4", "Welsh", "Track 6"}},
        {"zh-Hans",
         {"\u82f1\u8bed \u2014 Commentary", "\u65e5\u8bed", "Director", "\u8f68\u9053 4", "Cymraeg",
          "\u8f68\u9053 6"}},
    };
    for (const auto& [language, labels] : cases) {
        InterfaceLanguage interface(language);
        for (int i = 0; i < tracks.size(); ++i)
            EXPECT_EQ(nativemedia::containerTrackLabel(tracks[i], i + 1).toStdString(),
                      labels[i].toStdString())
                << qPrintable(language) << " " << i;
    }
}

TEST(ContainerTrackLabels, OnlyAudioTracksAreRelabelledAndOnlyWhenTheyMatch)
{
    InterfaceLanguage interface("en");
    const QList<Track> engine{{true, "avc", "und", "Picture"},
                              {false, "aac", "eng", "Commentary"},
                              {false, "aac", "jpn", ""}};
    const auto audio = [](qint64 id) {
        return PlaybackTrack{id, PlaybackTrackKind::Audio, QStringLiteral("Track %1").arg(id)};
    };
    const PlaybackTrack subtitle{1, PlaybackTrackKind::Subtitle, QStringLiteral("Track 1")};
    QList<PlaybackTrack> tracks{audio(1), audio(2), subtitle};
    nativemedia::labelContainerAudio(tracks, engine);
    EXPECT_EQ(tracks,
              (QList<PlaybackTrack>{{1, PlaybackTrackKind::Audio, "English \u2014 Commentary"},
                                    {2, PlaybackTrackKind::Audio, "Japanese"},
                                    subtitle}));
    // The player found a different number of audio tracks: which is which is unknown.
    QList<PlaybackTrack> one{audio(1)};
    nativemedia::labelContainerAudio(one, engine);
    EXPECT_EQ(one, QList<PlaybackTrack>{audio(1)});
}
