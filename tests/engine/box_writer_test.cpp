#include "engine/box_writer.h"

#include <gtest/gtest.h>

using Bytes = std::vector<std::uint8_t>;

TEST(BoxWriter, SizesAreFixedWhenScopesClose)
{
    qv::BoxWriter w;
    {
        auto outer = w.box("moov");
        {
            auto inner = w.full("mvhd", 1, 0x000003);
            w.u16(0xABCD);
            w.u64(0x0102030405060708ull);
        }
        auto empty = w.box("free");
    }
    const Bytes expected = {0, 0, 0, 38, 'm', 'o', 'o', 'v',                         //
                            0, 0, 0, 22, 'm', 'v', 'h', 'd', 1, 0, 0, 3, 0xAB, 0xCD, //
                            1, 2, 3, 4,  5,   6,   7,   8,                           //
                            0, 0, 0, 8,  'f', 'r', 'e', 'e'};
    EXPECT_EQ(w.take(), expected);
}

TEST(BoxWriter, IntegersAreBigEndianAndTheMatrixIsUnity)
{
    qv::BoxWriter w;
    w.u24(0x123456);
    w.u32(0xDEADBEEF);
    w.matrix();
    const auto data = w.take();
    ASSERT_EQ(data.size(), 3u + 4u + 36u);
    EXPECT_EQ(Bytes(data.begin(), data.begin() + 7),
              (Bytes{0x12, 0x34, 0x56, 0xDE, 0xAD, 0xBE, 0xEF}));
    EXPECT_EQ(Bytes(data.begin() + 7, data.begin() + 11), (Bytes{0, 1, 0, 0}));
    EXPECT_EQ(Bytes(data.end() - 4, data.end()), (Bytes{0x40, 0, 0, 0}));
}

TEST(BoxWriter, AnEarlyCloseIsNotRepeatedByTheDestructor)
{
    qv::BoxWriter w;
    {
        auto a = w.box("abcd");
        w.u8(1);
        a.close();
        w.u8(2); // after the box: must not be counted in it
    }
    EXPECT_EQ(w.take(), (Bytes{0, 0, 0, 9, 'a', 'b', 'c', 'd', 1, 2}));
}
