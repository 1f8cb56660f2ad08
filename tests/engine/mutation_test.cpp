// Bounded mutation run over the committed fuzz seeds: thousands of truncated and byte-flipped
// variants of small real files. Every open must end in a handle or a code, every read of an opened
// variant must stay inside the virtual file, and the transport probe must answer within its range.
#include "engine_test_support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

using namespace qv_test;

namespace {

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
    const std::int32_t presence =
        qv::transportPresence([&] { return sourceOf(bytes); }, nullptr, nullptr);
    if (presence > 3 || presence < -5) return "presence " + std::to_string(presence);
    return {};
}

} // namespace

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
        ASSERT_FALSE(seed.empty()) << path;
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
    RecordProperty("variants", variants);
}
