// Damaged EBML and laces, as a hostile file can hold them. Well-formed elements, unknown sizes,
// floats and Xiph, EBML and fixed lacing are judged end to end by the oracle's fixtures.
#include "engine/ebml.h"
#include "engine/lacing.h"
#include "engine_test_support.h"

#include <gtest/gtest.h>

#include <functional>

using namespace qv_test;
using qv::ebml::element;

TEST(Ebml, MalformedElementsAndLacesAreRefused)
{
    const auto lace = [](std::uint64_t end, qv::Lacing lacing) {
        return [=](qv::Reader& r) {
            qv::Frames frames;
            qv::splitLaces(r, 0, end, lacing, frames);
        };
    };
    const std::pair<Bytes, std::function<void(qv::Reader&)>> cases[] = {
        // A zero first byte (a length above 8), and a vint running past its end.
        {{0x00, 0x81}, [](qv::Reader& r) { qv::ebml::vint(r, 0, 2, false); }},
        {{0x40, 0x02}, [](qv::Reader& r) { qv::ebml::vint(r, 0, 1, false); }},
        // An element in a parent that ends one byte early.
        {el(0x4282, text("webm")), [](qv::Reader& r) { element(r, 0, r.size() - 1); }},
        // A float of three bytes; an empty unsigned integer, deliberately stricter than EBML's
        // default of 0.
        {el(0xB5, {0x47, 0x3B, 0x80}),
         [](qv::Reader& r) { qv::ebml::floating(r, element(r, 0, r.size())); }},
        {el(0xD7, {}),
         [](qv::Reader& r) { qv::ebml::unsignedInteger(r, element(r, 0, r.size())); }},
        // Eight bytes do not split into three equal frames; Xiph and EBML lace sizes that add up
        // past the block end are malformed, not wrapped around.
        {cat({{0x02}, Bytes(8, 0xCC)}), lace(9, qv::Lacing::Fixed)},
        {cat({{0x02, 0xFF, 0x2D, 0x02}, Bytes(306, 0xAA)}), lace(200, qv::Lacing::Xiph)},
        {cat({{0x03, 0x8A, 0xC1, 0xBC}, Bytes(36, 0xBB)}), lace(20, qv::Lacing::Ebml)},
    };
    for (std::size_t i = 0; i < std::size(cases); ++i)
        EXPECT_EQ(codeOf([&] { parsed(cases[i].first, cases[i].second); }), qv::kMalformed) << i;
}
