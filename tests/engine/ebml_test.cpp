#include "engine/ebml.h"
#include "engine/lacing.h"
#include "engine_test_support.h"

#include <gtest/gtest.h>

using namespace qv_test;

TEST(Ebml, IntegersElementsAndPayloads)
{
    const Bytes ints{0x81, 0x40, 0x02, 0x1A, 0x45, 0xDF, 0xA3, 0xFF, 0x7F, 0xFF, 0x00};
    auto r = readerOf(ints);
    const auto vint = [&](std::uint64_t at, std::uint64_t end, bool id) {
        const auto v = qv::ebml::vint(r, at, end, id);
        return std::tuple(v.value, v.length, v.unknown);
    };
    EXPECT_EQ(vint(0, 11, false), std::tuple(1ul, 1ul, false));
    EXPECT_EQ(vint(1, 11, false), std::tuple(2ul, 2ul, false));
    EXPECT_EQ(vint(3, 11, true), std::tuple(0x1A45DFA3ul, 4ul, false)); // IDs keep their markers
    // All data bits set: an unknown size, in one byte and in two.
    EXPECT_TRUE(std::get<2>(vint(7, 11, false)));
    EXPECT_TRUE(std::get<2>(vint(8, 11, false)));
    // A zero first byte (length above 8) and a vint running past end are malformed.
    EXPECT_EQ(codeOf([&] { vint(10, 11, false); }), qv::kMalformed);
    EXPECT_EQ(codeOf([&] { vint(1, 2, false); }), qv::kMalformed);

    // A DocType, then a Cluster of unknown size holding a Timecode of 5, then typed payloads:
    // 48000 as a 4- and an 8-byte float, a 3-byte float, -2, an empty signed and unsigned integer.
    const auto bytes =
        cat({el(0x4282, text("webm")), {0x1F, 0x43, 0xB6, 0x75, 0xFF, 0xE7, 0x81, 5}});
    const auto typed =
        cat({el(0xB5, {0x47, 0x3B, 0x80, 0x00}), el(0xB5, {0x40, 0xE7, 0x70, 0, 0, 0, 0, 0}),
             el(0xB5, {0x47, 0x3B, 0x80}), el(0xFB, {0xFF, 0xFE}), el(0xFB, {}), el(0xD7, {})});
    const auto elements = [](qv::Reader& reader) {
        std::vector<qv::ebml::Element> all;
        for (std::uint64_t p = 0; p < reader.size(); p = all.back().end)
            all.push_back(qv::ebml::element(reader, p, reader.size()));
        return all;
    };
    auto rb = readerOf(bytes);
    const auto a = parsed(
        bytes, [](qv::Reader& reader) { return qv::ebml::element(reader, 0, reader.size()); });
    EXPECT_EQ(std::tuple(a.id, a.size(), a.unknownSize), std::tuple(0x4282u, 4u, false));
    const auto b = qv::ebml::element(rb, a.end, rb.size());
    EXPECT_TRUE(b.unknownSize);
    EXPECT_EQ(b.end, rb.size()); // an unknown size runs to the parent's end
    EXPECT_EQ(qv::ebml::unsignedInteger(rb, qv::ebml::element(rb, b.start, b.end)), 5u);
    // The same first element with a parent that ends one byte early does not fit.
    EXPECT_EQ(codeOf([&] { qv::ebml::element(rb, 0, a.end - 1); }), qv::kMalformed);

    auto rt = readerOf(typed);
    const auto e = parsed(typed, elements);
    EXPECT_EQ(qv::ebml::floating(rt, e[0]), 48000.0);
    EXPECT_EQ(qv::ebml::floating(rt, e[1]), 48000.0);
    EXPECT_EQ(codeOf([&] { qv::ebml::floating(rt, e[2]); }), qv::kMalformed);
    EXPECT_EQ(qv::ebml::signedInteger(rt, e[3]), -2);
    EXPECT_EQ(qv::ebml::signedInteger(rt, e[4]), 0);
    // An empty unsigned integer is refused, deliberately stricter than EBML's default of 0.
    EXPECT_EQ(codeOf([&] { qv::ebml::unsignedInteger(rt, e[5]); }), qv::kMalformed);
}

TEST(Lacing, SplitsXiphFixedAndEbmlLaces)
{
    // Xiph: 3 frames of 300, 2 and (rest) 4 bytes. EBML: 4 frames of 10, 12 (+2), 9 (-3) and
    // (rest) 5. Fixed: 3 frames of 3.
    const Bytes xiph = cat({{0x02, 0xFF, 0x2D, 0x02}, Bytes(306, 0xAA)});
    const Bytes lace = cat({{0x03, 0x8A, 0xC1, 0xBC}, Bytes(36, 0xBB)});
    const auto all = cat({xiph, lace, {0x02}, Bytes(9, 0xCC)});
    const auto e0 = xiph.size(), x0 = e0 + lace.size();
    const auto split = [&](std::uint64_t start, std::uint64_t end, qv::Lacing lacing) {
        return parsed(all, [&](qv::Reader& reader) {
            qv::Frames frames;
            qv::splitLaces(reader, start, end, lacing, frames);
            return std::pair(frames.sizes, frames.dataStart);
        });
    };
    using Sizes = std::vector<std::uint64_t>;
    EXPECT_EQ(split(0, e0, qv::Lacing::Xiph), std::pair(Sizes{300, 2, 4}, 4ul));
    EXPECT_EQ(split(e0, x0, qv::Lacing::Ebml), std::pair(Sizes{10, 12, 9, 5}, e0 + 4));
    EXPECT_EQ(split(x0, x0 + 10, qv::Lacing::Fixed).first, (Sizes{3, 3, 3}));
    // Nine bytes do not split into two equal frames; lace sizes that add up past the block end
    // are malformed, not wrapped around.
    for (const auto& [start, end, lacing] :
         {std::tuple(x0, x0 + 9, qv::Lacing::Fixed), std::tuple(0ul, 200ul, qv::Lacing::Xiph),
          std::tuple(e0, e0 + 20, qv::Lacing::Ebml)})
        EXPECT_EQ(codeOf([&] { split(start, end, lacing); }), qv::kMalformed);
}
