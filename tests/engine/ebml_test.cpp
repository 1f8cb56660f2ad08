#include "engine/ebml.h"
#include "engine/lacing.h"
#include "engine_test_support.h"

#include <gtest/gtest.h>

using namespace qv_test;

TEST(Ebml, VariableLengthIntegers)
{
    const Bytes bytes{0x81, 0x40, 0x02, 0x1A, 0x45, 0xDF, 0xA3, 0xFF, 0x7F, 0xFF, 0x00};
    auto r = readerOf(bytes);
    const auto end = r.size();
    const auto read = [&](std::uint64_t at, bool id) {
        const auto v = qv::ebml::vint(r, at, end, id);
        return std::pair<std::uint64_t, std::uint64_t>(v.value, v.length);
    };
    EXPECT_EQ(read(0, false), std::pair(1ul, 1ul));
    EXPECT_EQ(read(1, false), std::pair(2ul, 2ul));
    EXPECT_EQ(read(3, true), std::pair(0x1A45DFA3ul, 4ul)); // IDs keep their marker bits
    // All data bits set: an unknown size, in one byte and in two.
    EXPECT_TRUE(qv::ebml::vint(r, 7, end, false).unknown);
    EXPECT_TRUE(qv::ebml::vint(r, 8, end, false).unknown);
    // A zero first byte (length above 8) and a vint running past end are malformed.
    EXPECT_EQ(codeOf([&] { qv::ebml::vint(r, 10, end, false); }), qv::kMalformed);
    EXPECT_EQ(codeOf([&] { qv::ebml::vint(r, 1, 2, false); }), qv::kMalformed);
}

TEST(Ebml, ElementsStayInsideTheirParent)
{
    const auto bytes =
        cat({el(0x4282, {'w', 'e', 'b', 'm'}), unknownSized(0x1F43B675, {0xE7, 0x81, 0x05})});
    auto r = readerOf(bytes);
    const auto a = parsed(
        bytes, [](qv::Reader& reader) { return qv::ebml::element(reader, 0, reader.size()); });
    EXPECT_EQ(a.id, 0x4282u);
    EXPECT_EQ(a.size(), 4u);
    EXPECT_FALSE(a.unknownSize);
    const auto b = qv::ebml::element(r, a.end, r.size());
    EXPECT_TRUE(b.unknownSize);
    EXPECT_EQ(b.end, r.size());
    EXPECT_EQ(qv::ebml::unsignedInteger(r, qv::ebml::element(r, b.start, b.end)), 5u);
    // The same first element with a parent that ends one byte early does not fit.
    EXPECT_EQ(codeOf([&] { qv::ebml::element(r, 0, a.end - 1); }), qv::kMalformed);
}

TEST(Ebml, TypedPayloads)
{
    const auto bytes = cat({el(0xB5, {0x47, 0x3B, 0x80, 0x00}),          // 48000.0f
                            el(0xB5, {0x40, 0xE7, 0x70, 0, 0, 0, 0, 0}), // 48000.0
                            el(0xB5, {0x47, 0x3B, 0x80}),                // 3 bytes
                            el(0xFB, {0xFF, 0xFE}), el(0xFB, {}), el(0xD7, {})});
    auto r = readerOf(bytes);
    const auto e = parsed(bytes, [](qv::Reader& reader) {
        std::vector<qv::ebml::Element> elements;
        for (std::uint64_t p = 0; p < reader.size();)
            elements.push_back(qv::ebml::element(reader, p, reader.size())),
                p = elements.back().end;
        return elements;
    });
    EXPECT_EQ(qv::ebml::floating(r, e[0]), 48000.0);
    EXPECT_EQ(qv::ebml::floating(r, e[1]), 48000.0);
    EXPECT_EQ(codeOf([&] { qv::ebml::floating(r, e[2]); }), qv::kMalformed);
    EXPECT_EQ(qv::ebml::signedInteger(r, e[3]), -2);
    EXPECT_EQ(qv::ebml::signedInteger(r, e[4]), 0);
    // An empty unsigned integer is refused, deliberately stricter than EBML's default of 0.
    EXPECT_EQ(codeOf([&] { qv::ebml::unsignedInteger(r, e[5]); }), qv::kMalformed);
}

TEST(Lacing, SplitsXiphFixedAndEbmlLaces)
{
    // Xiph: 3 frames of 300, 2 and (rest) 4 bytes.
    Bytes xiph = {0x02, 0xFF, 0x2D, 0x02};
    xiph.resize(xiph.size() + 306, 0xAA);
    // EBML: 4 frames: 10, 12 (+2), 9 (-3), rest 5.
    Bytes ebmlLace = {0x03, 0x8A, 0xC1, 0xBC};
    ebmlLace.resize(ebmlLace.size() + 36, 0xBB);
    Bytes fixed = {0x02};
    fixed.resize(1 + 9, 0xCC);
    const auto all = cat({xiph, ebmlLace, fixed});
    auto r = readerOf(all);
    // The frames of one lacing, as the demuxer asks for them.
    const auto split = [](qv::Reader& reader, std::uint64_t start, std::uint64_t end,
                          qv::Lacing lacing) {
        qv::Frames frames;
        qv::splitLaces(reader, start, end, lacing, frames);
        return frames;
    };

    auto f = parsed(
        all, [&](qv::Reader& reader) { return split(reader, 0, xiph.size(), qv::Lacing::Xiph); });
    EXPECT_EQ(f.sizes, (std::vector<std::uint64_t>{300, 2, 4}));
    EXPECT_EQ(f.dataStart, 4u);

    const auto e0 = xiph.size();
    f = parsed(all, [&](qv::Reader& reader) {
        return split(reader, e0, e0 + ebmlLace.size(), qv::Lacing::Ebml);
    });
    EXPECT_EQ(f.sizes, (std::vector<std::uint64_t>{10, 12, 9, 5}));
    EXPECT_EQ(f.dataStart, e0 + 4);

    const auto x0 = e0 + ebmlLace.size();
    f = split(r, x0, x0 + fixed.size(), qv::Lacing::Fixed);
    EXPECT_EQ(f.sizes, (std::vector<std::uint64_t>{3, 3, 3}));
    // Nine bytes do not split into two equal frames.
    EXPECT_EQ(codeOf([&] { split(r, x0, x0 + fixed.size() - 1, qv::Lacing::Fixed); }),
              qv::kMalformed);
    // Lace sizes that add up past the block end are malformed, not wrapped around.
    EXPECT_EQ(codeOf([&] { split(r, 0, 200, qv::Lacing::Xiph); }), qv::kMalformed);
    EXPECT_EQ(codeOf([&] { split(r, e0, e0 + 20, qv::Lacing::Ebml); }), qv::kMalformed);
}
