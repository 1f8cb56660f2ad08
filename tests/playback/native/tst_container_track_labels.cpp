// Labels of audio tracks played through the container engine, in both interface languages.
#include "ContainerTrackLabels.h"
#include "InterfaceLanguage.h"

#include <gtest/gtest.h>

using namespace quorvane;
using quorvane::testing::InterfaceLanguage;
using Track = ContainerMedia::Track;

namespace {

PlaybackTrack audio(qint64 id)
{
    return {id, PlaybackTrackKind::Audio, QStringLiteral("Track %1").arg(id)};
}

} // namespace

TEST(ContainerTrackLabels, LanguageAndNameInEitherInterfaceLanguage)
{
    const Track commentary{false, "aac", "eng", "Commentary"};
    const Track japanese{false, "aac", "jpn", ""};
    const Track named{false, "aac", "und", " Director "};
    const Track silent{false, "aac", "und", ""};
    const Track welsh{false, "aac", "cym", ""};   // not in the catalog: its own name in Chinese
    const Track klingon{false, "aac", "tlh", ""}; // a code Qt does not know
    const struct {
        QString language;
        QStringList labels;
    } cases[] = {
        {"en",
         {"English \u2014 Commentary", "Japanese", "Director", "Track 4", "Welsh", "Track 6"}},
        {"zh-Hans",
         {"\u82f1\u8bed \u2014 Commentary", "\u65e5\u8bed", "Director", "\u8f68\u9053 4", "Cymraeg",
          "\u8f68\u9053 6"}},
    };
    for (const auto& c : cases) {
        InterfaceLanguage interface(c.language);
        int position = 0;
        for (const Track& t : {commentary, japanese, named, silent, welsh, klingon}) {
            const QString label = nativemedia::containerTrackLabel(t, position + 1);
            EXPECT_EQ(label.toStdString(), c.labels[position].toStdString())
                << qPrintable(c.language) << " " << position;
            ++position;
        }
    }
}

TEST(ContainerTrackLabels, OnlyAudioTracksAreRelabelledAndOnlyWhenTheyMatch)
{
    InterfaceLanguage interface(QStringLiteral("en"));
    const QList<Track> engine{{true, "avc", "und", "Picture"},
                              {false, "aac", "eng", "Commentary"},
                              {false, "aac", "jpn", ""}};
    const PlaybackTrack subtitle{1, PlaybackTrackKind::Subtitle, QStringLiteral("Track 1")};
    QList<PlaybackTrack> tracks{audio(1), audio(2), subtitle};
    nativemedia::labelContainerAudio(tracks, engine);
    EXPECT_EQ(tracks[0].label.toStdString(), "English \u2014 Commentary");
    EXPECT_EQ(tracks[1].label.toStdString(), "Japanese");
    EXPECT_EQ(tracks[2], subtitle);

    // The player found a different number of audio tracks: which is which is unknown.
    QList<PlaybackTrack> one{audio(1)};
    nativemedia::labelContainerAudio(one, engine);
    EXPECT_EQ(one, QList<PlaybackTrack>{audio(1)});
}
