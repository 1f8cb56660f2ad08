// The page text for a session, the command scripts, and the message acceptance rules with each
// check's boundary values.
#include "WebPlaybackPage.h"

#include <QFile>
#include <QJsonArray>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using namespace quorvane;
using Kind = PageMessageOutcome::Kind;

namespace {

const QString kSession = QStringLiteral("0F1E2D3C-4B5A-6978-8796-A5B4C3D2E1F0");
const QUrl kPage(QStringLiteral("http://127.0.0.1:4321/TOKEN/index.html"));
const QUuid kSeek = QUuid::fromString(QStringLiteral("11111111-2222-3333-4444-555555555555"));

QJsonObject goodMessage(const QString& event)
{
    return QJsonObject{{"session", kSession},
                       {"event", event},
                       {"position", 1.5},
                       {"duration", 10.0},
                       {"rate", 1.0},
                       {"width", 320.0},
                       {"height", 240.0},
                       {"seekID", QJsonValue()},
                       {"tracks", QJsonArray{}},
                       {"audioID", 0.0},
                       {"dropped", 0.0}};
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

PageMessageOutcome accept(const QJsonObject& message, bool ready = false,
                          PageMessageSource source = {kPage, true})
{
    return acceptPageMessage(context(ready), source, message);
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

TEST(WebPlaybackPageTest, CommandScripts)
{
    EXPECT_EQ(pageCommandScript({{"op", "pause"}}),
              QStringLiteral("window.quorvane.command({\"op\":\"pause\"}); null"));
    EXPECT_EQ(pageCommandScript({{"op", "mute"}, {"value", true}}),
              QStringLiteral("window.quorvane.command({\"op\":\"mute\",\"value\":true}); null"));
    EXPECT_EQ(canonicalUuid(kSeek), QStringLiteral("11111111-2222-3333-4444-555555555555"));
}

TEST(WebPlaybackPageTest, DropsMessagesThatFailAnEarlyCheck)
{
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const QJsonObject state = goodMessage(QStringLiteral("state"));
    struct Case {
        const char* name;
        QJsonObject message;
        PageMessageSource source;
    };
    const Case cases[] = {
        {"subframe", state, {kPage, false}},
        {"other page", state, {QUrl(QStringLiteral("http://127.0.0.1:4321/TOKEN/other")), true}},
        {"stale session", with(state, "session", QUuid::createUuid().toString()), {kPage, true}},
        {"session not a string", with(state, "session", 1), {kPage, true}},
        {"no event", with(state, "event", QJsonValue()), {kPage, true}},
        {"position -0.001", with(state, "position", -0.001), {kPage, true}},
        {"position NaN", with(state, "position", nan), {kPage, true}},
        {"position text", with(state, "position", "1"), {kPage, true}},
        {"duration 0", with(state, "duration", 0), {kPage, true}},
        {"duration negative", with(state, "duration", -1), {kPage, true}},
        {"duration NaN", with(state, "duration", nan), {kPage, true}},
        {"duration a year and a bit", with(state, "duration", 31536000.001), {kPage, true}},
        {"ended without duration", with(goodMessage("ended"), "duration", 0), {kPage, true}},
        {"rate -0.001", with(state, "rate", -0.001), {kPage, true}},
        {"rate 20.001", with(state, "rate", 20.001), {kPage, true}},
    };
    for (const Case& c : cases)
        EXPECT_EQ(acceptPageMessage(context(true), c.source, c.message).kind, Kind::Dropped)
            << c.name;

    PageMessageContext unloaded = context(false);
    unloaded.page.reset();
    EXPECT_EQ(acceptPageMessage(unloaded, {kPage, true}, state).kind, Kind::Dropped);
    EXPECT_EQ(acceptPageMessage(context(false), {kPage, true}, QJsonValue(QJsonArray{})).kind,
              Kind::Dropped);
}

TEST(WebPlaybackPageTest, ErrorIsTrustedBeforeAnyFieldIsRead)
{
    const QJsonObject error{{"session", kSession}, {"event", "error"}, {"duration", -5}};
    EXPECT_EQ(accept(error).kind, Kind::Failed);
    EXPECT_EQ(accept(error, true).kind, Kind::Failed);
    EXPECT_EQ(accept(with(error, "session", "forged")).kind, Kind::Dropped);
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
        {"rate 0 and 20", with(state, "rate", 20), snap(1.5, 20, 0, 0)},
        {"audio -3", with(state, "audioID", -3), snap(1.5, 1, 0, 0)},
        {"audio 40", with(state, "audioID", 40), snap(1.5, 1, 32, 0)},
        {"audio 32", with(state, "audioID", 32), snap(1.5, 1, 32, 0)},
        {"audio 2.5", with(state, "audioID", 2.5), snap(1.5, 1, 0, 0)},
        {"audio text", with(state, "audioID", "2"), snap(1.5, 1, 0, 0)},
        {"dropped negative", with(state, "dropped", -4), snap(1.5, 1, 0, 0)},
        {"dropped 12", with(state, "dropped", 12), snap(1.5, 1, 0, 12)},
        {"dropped text", with(state, "dropped", "12"), snap(1.5, 1, 0, 0)},
    };
    for (const Case& c : cases) {
        const PageMessageOutcome outcome = accept(c.message, true);
        EXPECT_EQ(outcome.kind, Kind::SnapshotOnly) << c.name;
        EXPECT_EQ(outcome.snapshot, c.expected) << c.name;
    }
}

TEST(WebPlaybackPageTest, ReadyNeedsASaneSizeAndKeepsThirtyTwoTracks)
{
    const QJsonObject ready = goodMessage(QStringLiteral("ready"));
    struct Case {
        const char* name;
        QJsonObject message;
        Kind kind;
    };
    const Case cases[] = {
        {"audio only", with(with(ready, "width", 0), "height", 0), Kind::Ready},
        {"largest", with(with(ready, "width", 16384), "height", 16384), Kind::Ready},
        {"width 16384.5", with(ready, "width", 16384.5), Kind::SnapshotOnly},
        {"width 20000", with(ready, "width", 20000), Kind::SnapshotOnly},
        {"height -1", with(ready, "height", -1), Kind::SnapshotOnly},
        {"height missing", with(ready, "height", QJsonValue()), Kind::SnapshotOnly},
    };
    for (const Case& c : cases)
        EXPECT_EQ(accept(c.message).kind, c.kind) << c.name;
    EXPECT_EQ(accept(ready, true).kind, Kind::SnapshotOnly) << "ready once ready";

    QJsonArray labels;
    for (int i = 0; i < 40; ++i)
        labels.append(i == 1 ? QString(300, QLatin1Char('x')) : QString::number(i));
    const PageMessageOutcome outcome = accept(with(ready, "tracks", labels));
    ASSERT_EQ(outcome.kind, Kind::Ready);
    EXPECT_EQ(outcome.info.duration, 10);
    EXPECT_EQ(outcome.info.width, 320);
    EXPECT_EQ(outcome.info.height, 240);
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

TEST(WebPlaybackPageTest, SeekedAndEndedCountOnlyOnceReady)
{
    const QJsonObject seeked = goodMessage(QStringLiteral("seeked"));
    const QString id = canonicalUuid(kSeek);
    struct Case {
        const char* name;
        QJsonObject message;
        bool ready;
        Kind kind;
    };
    const Case cases[] = {
        {"matching", with(seeked, "seekID", id), true, Kind::SeekCompleted},
        {"lower case", with(seeked, "seekID", id.toLower()), true, Kind::SeekCompleted},
        {"braces", with(seeked, "seekID", "{" + id + "}"), true, Kind::SnapshotOnly},
        {"null", seeked, true, Kind::SnapshotOnly},
        {"another seek", with(seeked, "seekID", canonicalUuid(QUuid::createUuid())), true,
         Kind::SnapshotOnly},
        {"before ready", with(seeked, "seekID", id), false, Kind::SnapshotOnly},
        {"ended", goodMessage("ended"), true, Kind::Ended},
        {"ended before ready", goodMessage("ended"), false, Kind::SnapshotOnly},
        {"unknown event", goodMessage("other"), true, Kind::SnapshotOnly},
    };
    for (const Case& c : cases)
        EXPECT_EQ(accept(c.message, c.ready).kind, c.kind) << c.name;
    EXPECT_EQ(accept(with(seeked, "seekID", id), true).seekID, kSeek);
}
