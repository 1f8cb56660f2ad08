// The page text for a session, and the message acceptance rules with each check's boundary values.
#include "WebPlaybackPage.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using namespace quorvane;
using Kind = PageMessageOutcome::Kind;
using namespace Qt::StringLiterals;

namespace {

const QString kSession = QStringLiteral("0F1E2D3C-4B5A-6978-8796-A5B4C3D2E1F0");
const QUrl kPage(QStringLiteral("http://127.0.0.1:4321/TOKEN/index.html"));
const QUuid kSeek = QUuid::fromString(QStringLiteral("11111111-2222-3333-4444-555555555555"));

QJsonObject goodMessage(const QString& event)
{
    return QJsonDocument::fromJson(
               QStringLiteral(R"({"session":"%1","event":"%2","position":1.5,"duration":10,"rate":1,
                   "width":320,"height":240,"seekID":null,"tracks":[],"audioID":0,"dropped":0})")
                   .arg(kSession, event)
                   .toUtf8())
        .object();
}

PageMessageContext context(bool ready)
{
    PageMessageContext c;
    c.page = kPage;
    c.session = kSession;
    c.ready = ready;
    c.pendingSeek = kSeek;
    c.snapshot.subtitleID = 7; // never touched by a message
    return c;
}

PageMessageOutcome accept(const QJsonObject& message, bool ready = false)
{
    return acceptPageMessage(context(ready), {kPage, true}, message);
}

QJsonObject with(QJsonObject message, const QString& key, const QJsonValue& value)
{
    message.insert(key, value);
    return message;
}

} // namespace

TEST(WebPlaybackPageTest, IsTheTemplateWithTheSessionInItsThreePlaces)
{
    QFile file(QStringLiteral(QV_PAGE_TEMPLATE));
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QByteArray oracle = file.readAll();
    ASSERT_EQ(oracle.count("{SESSION}"), 3);
    ASSERT_TRUE(oracle.contains("script-src 'nonce-{SESSION}'"));
    EXPECT_EQ(webPlaybackPage(kSession).toUtf8(),
              QByteArray(oracle).replace("{SESSION}", kSession.toUtf8()));
    // Nothing else in the template is touched by the substitution, not even a final newline.
    EXPECT_EQ(webPlaybackPage(QStringLiteral("{SESSION}")).toUtf8(), oracle);
}

TEST(WebPlaybackPageTest, WhatEachMessageCountsAs)
{
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const QJsonObject state = goodMessage(QStringLiteral("state"));
    const QJsonObject ready = goodMessage(QStringLiteral("ready"));
    const QJsonObject seeked = goodMessage(QStringLiteral("seeked"));
    const QJsonObject error{{"session", kSession}, {"event", "error"}, {"duration", -5}};
    const QString id = canonicalUuid(kSeek);
    const PageMessageSource main{kPage, true};
    struct Case {
        const char* name;
        QJsonObject message;
        bool ready;
        Kind kind;
        PageMessageSource source;
    };
    const Case cases[] = {
        {"subframe", state, true, Kind::Dropped, {kPage, false}},
        {"other page",
         state,
         true,
         Kind::Dropped,
         {QUrl(u"http://127.0.0.1:4321/TOKEN/other"_s), true}},
        {"stale session", with(state, "session", QUuid::createUuid().toString()), true,
         Kind::Dropped, main},
        {"session not a string", with(state, "session", 1), true, Kind::Dropped, main},
        {"no event", with(state, "event", QJsonValue()), true, Kind::Dropped, main},
        {"position -0.001", with(state, "position", -0.001), true, Kind::Dropped, main},
        {"position NaN", with(state, "position", nan), true, Kind::Dropped, main},
        {"position text", with(state, "position", "1"), true, Kind::Dropped, main},
        {"duration 0", with(state, "duration", 0), true, Kind::Dropped, main},
        {"duration NaN", with(state, "duration", nan), true, Kind::Dropped, main},
        {"duration a year and a bit", with(state, "duration", 31536000.001), true, Kind::Dropped,
         main},
        {"ended without duration", with(goodMessage("ended"), "duration", 0), true, Kind::Dropped,
         main},
        {"rate -0.001", with(state, "rate", -0.001), true, Kind::Dropped, main},
        {"rate 20.001", with(state, "rate", 20.001), true, Kind::Dropped, main},
        // An error is trusted before any other field is read, but not from another session.
        {"error", error, false, Kind::Failed, main},
        {"error once ready", error, true, Kind::Failed, main},
        {"forged error", with(error, "session", "forged"), false, Kind::Dropped, main},
        {"audio only", with(with(ready, "width", 0), "height", 0), false, Kind::Ready, main},
        {"largest", with(with(ready, "width", 16384), "height", 16384), false, Kind::Ready, main},
        {"width 16384.5", with(ready, "width", 16384.5), false, Kind::SnapshotOnly, main},
        {"height -1", with(ready, "height", -1), false, Kind::SnapshotOnly, main},
        {"height missing", with(ready, "height", QJsonValue()), false, Kind::SnapshotOnly, main},
        {"ready once ready", ready, true, Kind::SnapshotOnly, main},
        {"seeked", with(seeked, "seekID", id), true, Kind::SeekCompleted, main},
        {"seeked lower case", with(seeked, "seekID", id.toLower()), true, Kind::SeekCompleted,
         main},
        {"seeked braces", with(seeked, "seekID", "{" + id + "}"), true, Kind::SnapshotOnly, main},
        {"seeked null", seeked, true, Kind::SnapshotOnly, main},
        {"another seek", with(seeked, "seekID", canonicalUuid(QUuid::createUuid())), true,
         Kind::SnapshotOnly, main},
        {"seeked before ready", with(seeked, "seekID", id), false, Kind::SnapshotOnly, main},
        {"ended", goodMessage("ended"), true, Kind::Ended, main},
        {"ended before ready", goodMessage("ended"), false, Kind::SnapshotOnly, main},
        {"unknown event", goodMessage("other"), true, Kind::SnapshotOnly, main},
    };
    for (const Case& c : cases)
        EXPECT_EQ(acceptPageMessage(context(c.ready), c.source, c.message).kind, c.kind) << c.name;
    EXPECT_EQ(accept(with(seeked, "seekID", id), true).seekID, kSeek);

    PageMessageContext unloaded = context(false);
    unloaded.page.reset();
    EXPECT_EQ(acceptPageMessage(unloaded, main, state).kind, Kind::Dropped);
    EXPECT_EQ(acceptPageMessage(context(false), main, QJsonValue(QJsonArray{})).kind,
              Kind::Dropped);
}

TEST(WebPlaybackPageTest, UpdatesTheSnapshotWithinItsLimits)
{
    struct Case {
        const char* name;
        QJsonObject message;
        PlaybackSnapshot expected;
    };
    const QJsonObject state = goodMessage(QStringLiteral("state"));
    auto snap = [](double position, double rate, qint64 audio, double dropped) {
        return PlaybackSnapshot{position, rate, audio, 7, dropped};
    };
    const Case cases[] = {
        {"plain", state, snap(1.5, 1, 0, 0)},
        {"position past the end", with(with(state, "position", 120), "duration", 100),
         snap(100, 1, 0, 0)},
        {"longest duration", with(state, "duration", 31536000), snap(1.5, 1, 0, 0)},
        {"rate 20", with(state, "rate", 20), snap(1.5, 20, 0, 0)},
        {"audio -3", with(state, "audioID", -3), snap(1.5, 1, 0, 0)},
        {"audio 40", with(state, "audioID", 40), snap(1.5, 1, 32, 0)},
        {"audio 2.5", with(state, "audioID", 2.5), snap(1.5, 1, 0, 0)},
        {"audio text", with(state, "audioID", "2"), snap(1.5, 1, 0, 0)},
        {"dropped negative", with(state, "dropped", -4), snap(1.5, 1, 0, 0)},
        {"dropped 12", with(state, "dropped", 12), snap(1.5, 1, 0, 12)},
    };
    for (const Case& c : cases) {
        const PageMessageOutcome outcome = accept(c.message, true);
        EXPECT_EQ(outcome.kind, Kind::SnapshotOnly) << c.name;
        EXPECT_EQ(outcome.snapshot, c.expected) << c.name;
    }
}

TEST(WebPlaybackPageTest, ReadyKeepsThirtyTwoTracksWithShortLabels)
{
    const QJsonObject ready = goodMessage(QStringLiteral("ready"));
    QJsonArray labels;
    for (int i = 0; i < 40; ++i)
        labels.append(i == 1 ? QString(300, QLatin1Char('x')) : QString::number(i));
    const PageMessageOutcome outcome = accept(with(ready, "tracks", labels));
    ASSERT_EQ(outcome.kind, Kind::Ready);
    EXPECT_EQ(QSizeF(outcome.info.width, outcome.info.height), QSizeF(320, 240));
    ASSERT_EQ(outcome.info.tracks.size(), 32);
    EXPECT_EQ(outcome.info.tracks[0], (PlaybackTrack{1, PlaybackTrackKind::Audio, "0"}));
    EXPECT_EQ(outcome.info.tracks[1].label, QString(128, QLatin1Char('x')));
    EXPECT_EQ(outcome.info.tracks[31].id, 32);

    // One label a person reads as one character, however many code units it takes.
    const QString flag = QStringLiteral("\U0001F1E8\U0001F1F3");
    QString flags;
    for (int i = 0; i < 130; ++i)
        flags += flag;
    EXPECT_EQ(accept(with(ready, "tracks", QJsonArray{flags})).info.tracks[0].label.size(),
              128 * 4);
    EXPECT_TRUE(accept(with(ready, "tracks", QJsonArray{"a", 2})).info.tracks.isEmpty());
    EXPECT_TRUE(accept(with(ready, "tracks", "a")).info.tracks.isEmpty());
}
