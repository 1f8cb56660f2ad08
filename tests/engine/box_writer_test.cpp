#include "engine/box_writer.h"

#include <gtest/gtest.h>

using Bytes = std::vector<std::uint8_t>;

TEST(BoxWriter, SizesAreFixedWhenScopesCloseAndIntegersAreBigEndian)
{
    qv::BoxWriter w;
    {
        auto outer = w.box("moov");
        {
            auto inner = w.full("mvhd", 1, 0x000003);
            w.u16(0xABCD);
            w.u24(0x123456);
            w.u32(0xDEADBEEF);
            w.u64(0x0102030405060708ull);
        }
        auto early = w.box("free");
        w.u8(1);
        early.close();
        w.u8(2); // after the early close: counted in moov, not in free, nor closed twice
    }
    const Bytes expected = {
        0, 0, 0, 47, 'm',  'o',  'o',  'v',  0,    0,    0,    29,   'm',  'v', 'h', 'd', //
        1, 0, 0, 3,  0xAB, 0xCD, 0x12, 0x34, 0x56, 0xDE, 0xAD, 0xBE, 0xEF,                //
        1, 2, 3, 4,  5,    6,    7,    8,    0,    0,    0,    9,    'f',  'r', 'e', 'e', 1, 2};
    EXPECT_EQ(w.take(), expected);

    qv::BoxWriter unity; // 1.0 (16.16) at the start, 1.0 (2.30) at the end
    unity.matrix();
    const auto m = unity.take();
    ASSERT_EQ(m.size(), 36u);
    EXPECT_EQ(Bytes(m.begin(), m.begin() + 4), (Bytes{0, 1, 0, 0}));
    EXPECT_EQ(Bytes(m.end() - 4, m.end()), (Bytes{0x40, 0, 0, 0}));
}
