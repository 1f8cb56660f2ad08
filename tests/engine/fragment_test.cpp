// The fragmented layout over small hand-built Matroska files with Cues: when it is chosen, where
// its mfra sits, and what a damaged or overfull cluster or a cancellation does to the read that
// first touches it (packets and times of the layout are judged by the oracle on real files).
#include "engine_test_support.h"

#include "engine/media.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

using namespace qv_test;

namespace {

// Forces a layout for the tests' lifetime of one object.
class Layout {
public:
    explicit Layout(const char* value) { ::setenv("QV_MEDIA_LAYOUT", value, 1); }
    ~Layout() { ::unsetenv("QV_MEDIA_LAYOUT"); }
};

// A cluster of AAC frames (1024 samples at 48 kHz each, millisecond ticks), from frame `first` on.
Bytes aacCluster(int first, int frames, std::uint8_t fill, bool damaged = false)
{
    const auto ms = [](int frame) { return (frame * 1024 + 24) / 48; };
    Bytes blocks;
    for (int i = 0; i < frames; ++i) {
        const bool empty = damaged && i == frames / 2; // an empty frame is malformed
        blocks =
            cat({blocks, simpleBlock(static_cast<std::int16_t>(ms(first + i) - ms(first)), true,
                                     empty ? Bytes{} : Bytes(20, std::uint8_t(fill + i)))});
    }
    return cluster(static_cast<std::uint64_t>(ms(first)), blocks);
}

// SeekHead, Tracks, the clusters, then Cues naming `cued` clusters (by index in the low byte, plus
// the bytes above it into the cluster; an index past the clusters points past the file) at the
// given times.
Bytes withCues(const std::vector<Bytes>& clusters,
               const std::vector<std::pair<std::uint64_t, std::uint64_t>>& cued)
{
    const auto seekHead = [](std::uint64_t at) {
        return el(0x114D9B74,
                  el(0x4DBB, cat({el(0x53AB, be(0x1C53BB6B, 4)), uintEl(0x53AC, at, 8)})));
    };
    const auto tracks = el(0x1654AE6B, aacTrack());
    std::uint64_t relative = seekHead(0).size() + tracks.size();
    Bytes body;
    std::vector<std::uint64_t> starts;
    for (const auto& c : clusters) {
        starts.push_back(relative);
        relative += c.size();
        body = cat({body, c});
    }
    Bytes points;
    for (const auto& [index, ticks] : cued) {
        const auto at =
            (index & 0xFF) < starts.size() ? starts[index & 0xFF] + (index >> 8) : 1ull << 40;
        points = cat(
            {points, el(0xBB, cat({uintEl(0xB3, ticks, 8),
                                   el(0xB7, cat({uintEl(0xF7, 1, 1), uintEl(0xF1, at, 8)}))}))});
    }
    return cat({ebmlHeader(),
                el(0x18538067, cat({seekHead(relative), tracks, body, el(0x1C53BB6B, points)}))});
}

std::vector<Bytes> fourClusters()
{
    return {aacCluster(0, 10, 0x10), aacCluster(10, 10, 0x20), aacCluster(20, 10, 0x30),
            aacCluster(30, 10, 0x40)};
}

std::vector<std::pair<std::uint64_t, std::uint64_t>> cuesAtClusters(int count)
{
    std::vector<std::pair<std::uint64_t, std::uint64_t>> cued;
    for (int i = 0; i < count; ++i)
        cued.emplace_back(i, (i * 10 * 1024 + 24) / 48);
    return cued;
}

std::string type(const Bytes& b, std::size_t at)
{
    return std::string(b.begin() + at + 4, b.begin() + at + 8);
}

Bytes readAll(QVMedia* media)
{
    Bytes whole(qv_media_size(media));
    for (std::uint64_t at = 0; at < whole.size();) {
        const auto n = qv_media_read(media, at, whole.data() + at, 1000);
        if (n <= 0) return {};
        at += static_cast<std::uint64_t>(n);
    }
    return whole;
}

} // namespace

TEST(Fragments, LayoutChosenOnlyWhenCuesLocateClusters)
{
    const struct {
        const char* what;
        std::vector<std::pair<std::uint64_t, std::uint64_t>> cued;
        std::uint32_t layout;
        bool forced = true; // without the switch a file this small keeps the full layout
    } cases[] = {
        {"cues at every cluster", cuesAtClusters(4), QV_MEDIA_LAYOUT_FRAGMENTED},
        {"cues at some clusters", {{0, 0}, {2, 427}}, QV_MEDIA_LAYOUT_FRAGMENTED},
        {"no cue points", {}, QV_MEDIA_LAYOUT_FULL},
        {"a cue past the end of the file", {{0, 0}, {9, 213}}, QV_MEDIA_LAYOUT_FULL},
        {"a middle cue inside a cluster",
         {{0, 0}, {1, 213}, {2 | 5 << 8, 427}, {3, 640}},
         QV_MEDIA_LAYOUT_FULL},
        {"a small file", cuesAtClusters(4), QV_MEDIA_LAYOUT_FULL, false},
    };
    for (const auto& c : cases) {
        Layout layout(c.forced ? "fragmented" : "automatic");
        TempFile file(withCues(fourClusters(), c.cued));
        std::uint32_t code = 0;
        QVMedia* media = qv_media_open(file.path().c_str(), nullptr, nullptr, &code);
        ASSERT_NE(media, nullptr) << c.what << ": " << code;
        EXPECT_EQ(qv_media_layout(media), c.layout) << c.what;
        const auto whole = readAll(media);
        ASSERT_FALSE(whole.empty()) << c.what;
        // Packets and times are judged by the oracle; the mfra that only seeking players read is
        // not: its closing mfro must give the size back to the mfra box.
        const auto mfra = whole.size() - be32(whole, whole.size() - 4);
        EXPECT_TRUE(c.layout != QV_MEDIA_LAYOUT_FRAGMENTED || type(whole, mfra) == "mfra")
            << c.what;
        qv_media_close(media);
    }
}

// A cluster found damaged when first read, or holding far more samples than its cue times let
// the slot expect, fails the reads of its own fragment with the code and leaves the others whole.
TEST(Fragments, DamagedOrOverfullClusterFailsItsOwnFragment)
{
    Layout forced("fragmented");
    auto damaged = fourClusters();
    damaged[1] = aacCluster(10, 10, 0x20, true);
    auto overfull = fourClusters();
    overfull[2] = aacCluster(20, 200, 0x30);
    overfull[3] = aacCluster(220, 10, 0x40);
    auto lying = cuesAtClusters(4);
    lying[3].second = lying[2].second + 1; // cluster 2 "lasts" one millisecond
    const struct {
        const char* what;
        Bytes file;
        std::size_t bad;
        std::uint32_t code;
    } cases[] = {
        {"empty frame", withCues(damaged, cuesAtClusters(4)), 1, 1},
        {"overfull", withCues(overfull, lying), 2, 3},
    };
    for (const auto& c : cases) {
        TempFile file(c.file);
        QVMedia media(file.path().c_str(), nullptr, nullptr);
        ASSERT_TRUE(media.fragmented) << c.what;
        const auto& fragments = media.fragmented->fragments();
        ASSERT_EQ(fragments.size(), 4u);
        std::uint8_t byte = 0;
        for (std::size_t i = 0; i < fragments.size(); ++i) {
            const auto code = codeOf([&] { media.read(fragments[i].position, &byte, 1); });
            EXPECT_EQ(code, i == c.bad ? c.code : 0u) << c.what << ", fragment " << i;
            // Its payload stays readable: only the moof cannot be made.
            const auto payload = fragments[i].position + fragments[i].slot + 16;
            EXPECT_EQ(codeOf([&] { media.read(payload, &byte, 1); }), 0u) << c.what;
        }
    }
    // The full layout refuses the damaged file at open.
    EXPECT_EQ(openCode(cases[0].file), 0u); // still fragmented while forced
    ::unsetenv("QV_MEDIA_LAYOUT");
    EXPECT_EQ(openCode(cases[0].file), 1u);
}

// A moof is built under the read's cancellation polling: cancelled, the read fails with 4; once the
// callback lets go, the same fragment builds and reads as if nothing happened.
TEST(Fragments, CancelledWhileBuildingAMoof)
{
    Layout forced("fragmented");
    TempFile file(withCues(fourClusters(), cuesAtClusters(4)));
    bool cancel = false;
    const auto poll = [](void* context) { return *static_cast<bool*>(context) ? 1 : 0; };
    QVMedia media(file.path().c_str(), poll, &cancel);
    ASSERT_TRUE(media.fragmented);
    const auto at = media.fragmented->fragments()[2].position;
    Bytes first(64), again(64);
    cancel = true;
    EXPECT_EQ(codeOf([&] { media.read(at, first.data(), first.size()); }), 4u);
    cancel = false;
    EXPECT_EQ(codeOf([&] { media.read(at, again.data(), again.size()); }), 0u);
    EXPECT_EQ(type(again, 0), "moof");
}
