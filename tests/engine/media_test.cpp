// The flat interface over small hand-built Matroska files: refusals with their codes, the layout
// of the virtual file, reads across its parts and cancellation; then a bounded mutation run over
// the committed fuzz seeds.
#include "engine_test_support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

using namespace qv_test;

namespace {

// Three AAC frames of distinct bytes in two clusters, the middle one in a BlockGroup.
Bytes threeFrames(const Bytes& trackExtra = {}, const Bytes& info = {})
{
    const Bytes f1(100, 0x11), f2(50, 0x22), f3(70, 0x33);
    const auto group = el(0xA0, cat({el(0xA1, cat({{0x81, 0, 21, 0}, f2})), uintEl(0x9B, 21, 1)}));
    return matroskaFile(aacTrack(1, trackExtra),
                        cat({cluster(0, cat({simpleBlock(0, true, f1), group})),
                             cluster(43, simpleBlock(0, true, f3))}),
                        info);
}

int cancelAfter(void* context)
{
    auto* remaining = static_cast<int*>(context);
    return (*remaining)-- <= 0 ? 1 : 0;
}

const std::filesystem::path kSeeds = QV_MEDIA_SEEDS;

// A fixed xorshift generator, so a failing variant can be found again by its number.
std::uint64_t randomNumber()
{
    static std::uint64_t state = 0x9E3779B97F4A7C15ull;
    state ^= state << 13;
    state ^= state >> 7;
    return state ^= state << 17;
}

// Opens one variant and reads it completely in uneven pieces; returns a description of the first
// broken promise, or an empty string. Counts the variants that opened.
std::string exercise(const Bytes& bytes, int& opened)
{
    std::uint32_t code = 99;
    QVMedia* media = openBytes(bytes, code);
    if (!media) {
        if (code < 1 || code > 5) return "refused with code " + std::to_string(code);
    } else {
        const std::uint64_t size = qv_media_size(media);
        if (code != 0) return "opened with code " + std::to_string(code);
        if (qv_media_video_tracks(media) + qv_media_audio_tracks(media) == 0) return "no tracks";
        Bytes buffer(4096);
        std::uint64_t piece = 1;
        for (std::uint64_t at = 0; at < size;) {
            const auto n = qv_media_read(media, at, buffer.data(), piece);
            if (n <= 0 || static_cast<std::uint64_t>(n) > std::min(piece, size - at)) {
                qv_media_close(media);
                return "read at " + std::to_string(at) + " gave " + std::to_string(n);
            }
            at += static_cast<std::uint64_t>(n);
            piece = piece * 5 % buffer.size() + 1;
        }
        const bool endOk = qv_media_read(media, size, buffer.data(), 1) == 0 &&
                           qv_media_read(media, size + 1, buffer.data(), 1) == -1;
        qv_media_close(media);
        if (!endOk) return "reads at the end misbehave";
        ++opened;
    }
    // The text tracks of an MP4 or QuickTime file: a handle whose events lie within the limits,
    // or a code.
    code = 99;
    QVMedia* texts = qv::openTextTracks([&] { return sourceOf(bytes); }, nullptr, nullptr, &code);
    if (!texts && (code < 1 || code > 5)) return "text tracks refused with " + std::to_string(code);
    for (std::uint32_t t = 0; t < qv_media_subtitle_tracks(texts); ++t) {
        QVMediaSubtitleTrack track{};
        QVMediaSubtitleEvent e{};
        bool ok = qv_media_subtitle_track(texts, t, &track) == 0 && track.complete == 1;
        for (std::uint64_t i = 0; ok && i < track.event_count; ++i)
            ok = qv_media_subtitle_event(texts, t, i, &e) == 0 && e.start >= 0 && e.duration >= 0 &&
                 e.text_size > 0 && e.text_size <= 65'536;
        if (!ok) {
            qv_media_close(texts);
            return "text track " + std::to_string(t) + " misbehaves";
        }
    }
    qv_media_close(texts);
    const std::int32_t presence =
        qv::transportPresence([&] { return sourceOf(bytes); }, nullptr, nullptr);
    if (presence > 3 || presence < -5) return "presence " + std::to_string(presence);
    return {};
}

} // namespace

// Empty and foreign files, trailing bytes, encrypted tracks and codecs not carried are refused on
// real files by the oracle.
TEST(Media, RefusesFilesWithTheirCodes)
{
    auto wrongDoc = threeFrames(); // DocType neither matroska nor webm
    std::copy_n("wobm", 4, wrongDoc.begin() + 12 + 3 + 8);
    const auto padded = el(0xA0, cat({el(0xA1, {0x81, 0, 0, 0, 7}), el(0x75A2, {0x10})}));
    const auto withBlocks = [](const Bytes& tracks, const Bytes& blocks) {
        return matroskaFile(tracks, cluster(0, blocks));
    };
    const Bytes nine = simpleBlock(0, true, Bytes(9, 1)), five = simpleBlock(0, true, Bytes(5, 1));
    const auto six = simpleBlock(0, true, Bytes(6, 2));
    const std::vector<std::pair<Bytes, std::uint32_t>> cases{
        {threeFrames({}, el(0x1549A966, uintEl(0x2AD7B1, 0))), 1}, // TimecodeScale 0
        {threeFrames(uintEl(0x56AA, 1'000'000'001)), 3},           // CodecDelay > 1 s
        {wrongDoc, 2},                                             //
        {cat({el(0x1A45DFA3, {}), el(0x18538067, {})}), 1},        // no DocType at all
        {withBlocks(cat({aacTrack(), aacTrack()}), nine), 1},      // a track number used twice
        // DiscardPadding is only allowed on a track's last block.
        {withBlocks(aacTrack(), cat({padded, simpleBlock(21, true, Bytes(9, 1))})), 2},
        // A gap of 100 ms inside an audio track.
        {withBlocks(aacTrack(), cat({simpleBlock(0, true, {1}), simpleBlock(121, true, {2})})), 2},
        // The last Timecode of a cluster times its blocks: written after the block it still
        // places the second cluster 21 ms in; a later Timecode of 0 makes the frames overlap.
        {matroskaFile(aacTrack(),
                      cat({cluster(0, five), el(0x1F43B675, cat({six, uintEl(0xE7, 21, 1)}))})),
         0},
        {matroskaFile(aacTrack(),
                      cat({cluster(0, five),
                           el(0x1F43B675, cat({uintEl(0xE7, 21, 1), six, uintEl(0xE7, 0, 1)}))})),
         2},
    };
    for (std::size_t i = 0; i < cases.size(); ++i)
        EXPECT_EQ(openCode(cases[i].first), cases[i].second) << i;
}

TEST(Media, ReadBoundariesAndCancellation)
{
    TempFile file(threeFrames());
    std::uint32_t code = 0;
    int remaining = 0;
    EXPECT_EQ(qv_media_open(file.path().c_str(), cancelAfter, &remaining, &code), nullptr);
    EXPECT_EQ(code, 4u);
    remaining = 1'000'000;
    QVMedia* media = qv_media_open(file.path().c_str(), cancelAfter, &remaining, &code);
    ASSERT_NE(media, nullptr) << code;

    const auto size = qv_media_size(media);
    // Boundaries (the end itself is checked on every mutated file): above the cap, no buffer, a
    // capped read at the end.
    std::vector<std::uint8_t> big(QV_MEDIA_MAX_READ + 1);
    EXPECT_EQ(qv_media_read(media, 0, big.data(), big.size()), -1);
    EXPECT_EQ(qv_media_read(media, 0, nullptr, 1), -1);
    EXPECT_EQ(qv_media_read(media, size - 3, big.data(), QV_MEDIA_MAX_READ), 3);

    // Cancelled reads of samples fail; header bytes come from memory and need no source read; the
    // handle stays usable.
    remaining = 0;
    EXPECT_EQ(qv_media_read(media, size - 64, big.data(), 64), -QV_MEDIA_CANCELLED);
    EXPECT_EQ(qv_media_read(media, 0, big.data(), 8), 8);
    remaining = 10;
    EXPECT_EQ(qv_media_read(media, size - 64, big.data(), 64), 64);
    qv_media_close(media);

    EXPECT_EQ(qv_media_size(nullptr), 0u);
    EXPECT_EQ(qv_media_open(nullptr, nullptr, nullptr, &code), nullptr);
    EXPECT_EQ(code, 1u);
}

// Hundreds of small frames of varied sizes: their gaps grow along a read, so every way of moving a
// sample into place is used, and any byte written past a sample's end would show in the next one.
// They must follow their header back to back, in source order, whatever the size of the reads.
TEST(Media, ManySmallFramesReadBackFromAnyOffset)
{
    Bytes blocks, expected;
    for (int i = 0; i < 600; ++i) {
        const Bytes frame(1 + (i * 37) % 150, static_cast<std::uint8_t>(i));
        blocks =
            cat({blocks, simpleBlock(static_cast<std::int16_t>((i * 64 + 1) / 3), true, frame)});
        expected = cat({expected, frame});
    }
    const Bytes file = matroskaFile(aacTrack(), cluster(0, blocks));
    std::uint32_t code = 0;
    QVMedia* media = openBytes(file, code);
    ASSERT_NE(media, nullptr) << code;
    // From the 64-bit mdat header on, so reads also cross from the header into the samples.
    expected = cat({be(1, 4), text("mdat"), be(expected.size() + 16, 8), expected});
    const auto size = qv_media_size(media);
    for (const std::uint64_t piece : {1, 63, 64, 129, 1000, 100'000}) {
        Bytes got;
        for (std::uint64_t at = size - expected.size(); at < size;) {
            Bytes buffer(piece);
            const auto n = qv_media_read(media, at, buffer.data(), piece);
            ASSERT_GT(n, 0) << piece << " at " << at;
            got.insert(got.end(), buffer.begin(), buffer.begin() + n);
            at += std::uint64_t(n);
        }
        EXPECT_EQ(got, expected) << piece;
    }
    qv_media_close(media);
}

// Thousands of truncated and byte-flipped variants of small real files: every open must end in a
// handle or a code, every read of an opened variant must stay inside the virtual file, the text
// tracks read of MP4 files must keep their events in range, and the transport probe must answer
// within its range.
TEST(Mutation, TruncatedAndFlippedSeedsFailCleanly)
{
    ASSERT_TRUE(std::filesystem::is_directory(kSeeds)) << kSeeds;
    std::vector<std::filesystem::path> seeds;
    for (const auto& entry : std::filesystem::directory_iterator(kSeeds))
        seeds.push_back(entry.path());
    std::sort(seeds.begin(), seeds.end());
    ASSERT_GE(seeds.size(), 5u);

    int variants = 0, opened = 0;
    for (const auto& path : seeds) {
        std::ifstream in(path, std::ios::binary);
        const Bytes seed(std::istreambuf_iterator<char>(in), {});
        const std::string name = path.filename().string();
        // Truncations at 64 points spread over the file, from the very start.
        for (std::size_t i = 0; i < 64; ++i) {
            const Bytes cut(seed.begin(),
                            seed.begin() + static_cast<std::ptrdiff_t>(seed.size() * i / 64));
            ASSERT_EQ(exercise(cut, opened), "") << name << " cut to " << cut.size() << " bytes";
            ++variants;
        }
        // Byte flips: one to four random bytes replaced, biased to the structure at the front.
        for (int i = 0; i < 400; ++i) {
            Bytes flipped = seed;
            const int count = 1 + static_cast<int>(randomNumber() % 4);
            for (int k = 0; k < count; ++k) {
                const std::size_t span =
                    (randomNumber() & 1) ? std::min<std::size_t>(seed.size(), 512) : seed.size();
                flipped[randomNumber() % span] = static_cast<std::uint8_t>(randomNumber());
            }
            ASSERT_EQ(exercise(flipped, opened), "") << name << " flip variant " << i;
            ++variants;
        }
    }
    // Most flips land in sample data and leave a playable file: the run must cover both roads.
    EXPECT_GT(opened, variants / 20);
}
