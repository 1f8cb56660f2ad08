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

// The committed template is an oracle written apart from the code: the served page is it byte for
// byte, with the session (the script's nonce in the policy, on the one script element, and the
// token the script sends) in its three places.
TEST(WebPlaybackPageTest, IsTheTemplateWithTheSessionInItsThreePlaces)
{
    QFile file(QStringLiteral(QV_PAGE_TEMPLATE));
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QByteArray oracle = file.readAll();
    ASSERT_EQ(oracle.count("{SESSION}"), 3);
    EXPECT_EQ(webPlaybackPage(kSession).toUtf8(),
              QByteArray(oracle).replace("{SESSION}", kSession.toUtf8()));
    // Nothing else in the template is touched by the substitution, not even a final newline.
    EXPECT_EQ(webPlaybackPage(QStringLiteral("{SESSION}")).toUtf8(), oracle);
}

TEST(WebPlaybackPageTest, WhatEachMessageCountsAsAndWhatItLeavesInTheSnapshot)
{
    using enum Kind;
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const QJsonObject state = goodMessage(QStringLiteral("state"));
    const QJsonObject ready = goodMessage(QStringLiteral("ready"));
    const QJsonObject seeked = goodMessage(QStringLiteral("seeked"));
    const QJsonObject ended = goodMessage(QStringLiteral("ended"));
    const QJsonObject error{{"session", kSession}, {"event", "error"}, {"duration", -5}};
    const QString id = canonicalUuid(kSeek);
    const auto snap = [](double position, double rate, qint64 audio, double dropped) {
        return PlaybackSnapshot{position, rate, audio, 7, dropped};
    };
    struct Case {
        const char* name;
        QJsonObject message;
        Kind kind;
        bool ready = true;
        std::optional<PlaybackSnapshot> snapshot = {};
    };
    const Case cases[] = {
        {"stale session", with(state, "session", QUuid::createUuid().toString()), Dropped},
        {"session not a string", with(state, "session", 1), Dropped},
        {"no event", with(state, "event", QJsonValue()), Dropped},
        {"position -0.001", with(state, "position", -0.001), Dropped},
        {"position NaN", with(state, "position", nan), Dropped},
        {"duration 0", with(state, "duration", 0), Dropped},
        {"duration a year and a bit", with(state, "duration", 31536000.001), Dropped},
        {"rate -0.001", with(state, "rate", -0.001), Dropped},
        {"rate 20.001", with(state, "rate", 20.001), Dropped},
        // An error is trusted before any other field is read, but not from another session.
        {"error", error, Failed, false},
        {"forged error", with(error, "session", "forged"), Dropped, false},
        {"audio only", with(with(ready, "width", 0), "height", 0), Ready, false},
        {"largest", with(with(ready, "width", 16384), "height", 16384), Ready, false},
        {"width 16384.5", with(ready, "width", 16384.5), SnapshotOnly, false},
        {"height -1", with(ready, "height", -1), SnapshotOnly, false},
        {"height missing", with(ready, "height", QJsonValue()), SnapshotOnly, false},
        {"ready once ready", ready, SnapshotOnly},
        {"seeked", with(seeked, "seekID", id), SeekCompleted},
        {"seeked lower case", with(seeked, "seekID", id.toLower()), SeekCompleted},
        {"seeked braces", with(seeked, "seekID", "{" + id + "}"), SnapshotOnly},
        {"another seek", with(seeked, "seekID", canonicalUuid(QUuid::createUuid())), SnapshotOnly},
        {"seeked before ready", with(seeked, "seekID", id), SnapshotOnly, false},
        {"ended", ended, Ended},
        {"ended before ready", ended, SnapshotOnly, false},
        {"unknown event", goodMessage("other"), SnapshotOnly},
        {"state", state, SnapshotOnly, true, snap(1.5, 1, 0, 0)},
        {"past the end", with(with(state, "position", 120), "duration", 100), SnapshotOnly, true,
         snap(100, 1, 0, 0)},
        {"longest duration", with(state, "duration", 31536000), SnapshotOnly, true,
         snap(1.5, 1, 0, 0)},
        {"rate 20", with(state, "rate", 20), SnapshotOnly, true, snap(1.5, 20, 0, 0)},
        {"audio -3", with(state, "audioID", -3), SnapshotOnly, true, snap(1.5, 1, 0, 0)},
        {"audio 40", with(state, "audioID", 40), SnapshotOnly, true, snap(1.5, 1, 32, 0)},
        {"dropped 12", with(state, "dropped", 12), SnapshotOnly, true, snap(1.5, 1, 0, 12)},
    };
    for (const Case& c : cases) {
        const auto outcome = acceptPageMessage(context(c.ready), {kPage, true}, c.message);
        EXPECT_EQ(outcome.kind, c.kind) << c.name;
        EXPECT_EQ(outcome.snapshot, c.snapshot.value_or(outcome.snapshot)) << c.name;
    }
    EXPECT_EQ(accept(with(seeked, "seekID", id), true).seekID, kSeek);
    // Ready keeps 32 tracks and 128 characters of a label, a character being what a person reads
    // as one (a flag is four code units); a list with anything but text is no list.
    const QString flags = QStringLiteral("\U0001F1E8\U0001F1F3").repeated(130);
    QJsonArray labels;
    for (int i = 0; i < 40; ++i)
        labels.append(i % 2 ? QString(300, QLatin1Char('x')) : flags);
    const auto tracks = accept(with(ready, "tracks", labels)).info.tracks;
    ASSERT_EQ(tracks.size(), 32);
    EXPECT_EQ(tracks[0].label, flags.left(128 * 4));
    EXPECT_EQ(tracks[31],
              (PlaybackTrack{32, PlaybackTrackKind::Audio, QString(128, QLatin1Char('x'))}));
    EXPECT_TRUE(accept(with(ready, "tracks", QJsonArray{"a", 2})).info.tracks.isEmpty());
    // From a subframe, another page, before any page, or not an object at all.
    PageMessageContext unloaded = context(false);
    unloaded.page.reset();
    for (const auto& [page, source, message] :
         {std::tuple{context(true), PageMessageSource{kPage, false}, QJsonValue(state)},
          {context(true), {QUrl(u"http://127.0.0.1:4321/TOKEN/other"_s), true}, state},
          {unloaded, {kPage, true}, state},
          {context(false), {kPage, true}, QJsonArray{}}})
        EXPECT_EQ(acceptPageMessage(page, source, message).kind, Dropped);
}
