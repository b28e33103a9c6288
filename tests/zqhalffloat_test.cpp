#include "support/streams.h"

#include <cfenv>
#include <cmath>
#include <sstream>

TEST(HalfFloat, RoundsTiesAwayFromZero)
{
    // 1, -2, 0.1; a tie, the number below it, a tie that carries into the exponent; 65504, 65519,
    // 65520, -1e30, -infinity; the smallest normal number, the tie below it, the smallest number
    // and its half; -2^-25 less a bit, -1e-9, -0; NaNs with a payload too low to keep, and kept.
    const unsigned int singles[] = {0x3F800000, 0xC0000000, 0x3DCCCCCD, 0x3F801000, 0x3F800FFF,
                                    0x3FFFF000, 0x477FE000, 0x477FEF00, 0x477FF000, 0xF149F2CA,
                                    0xFF800000, 0x38800000, 0x387FF000, 0xB3800000, 0x33000000,
                                    0xB2FFFFFF, 0xB089705F, 0x80000000, 0x7F800001, 0xFFC02000};
    zqosstream out;
    for (const unsigned int single : singles) {
        const float value = __builtin_bit_cast(float, single);
        std::feclearexcept(FE_ALL_EXCEPT);
        const ZQHalfFloat half(value);
        const bool overflows = std::isfinite(value) && std::fabs(value) >= 65520;
        EXPECT_EQ(std::fetestexcept(FE_OVERFLOW) != 0, overflows) << value;
        ZQ_io_write_binary(out, reinterpret_cast<const unsigned char*>(&half), 2, 1);
    }
    EXPECT_EQ(hex(out.str()), "3C 00 C0 00 2E 66 3C 01 3C 00 40 00 7B FF 7B FF 7C 00 FC 00 "
                              "FC 00 04 00 04 00 80 01 00 01 00 00 00 00 00 00 7C 01 FE 01");
    EXPECT_EQ(hex(out.str()), hex(readFile(ZQPLATFORM_TEST_DATA "/halves.bin")));
    EXPECT_EQ(ZQHalfFloat(1.00048828124).bits, 0x3C01);  // below the tie, but not as a float
}

TEST(HalfFloat, WidensExactlyAndComesBack)
{
    for (unsigned int bits = 0; bits < 0x10000; ++bits) {
        ZQHalfFloat half;
        half.bits = static_cast<unsigned short>(bits);
        const int exponent = bits >> 10 & 31, mantissa = bits & 0x3FF;
        float value = exponent == 0 ? std::ldexp(float(mantissa), -24)
                                    : std::ldexp(float(mantissa + 1024), exponent - 25);
        if (exponent == 31) value = __builtin_bit_cast(float, 0x7F800000 | mantissa << 13);
        ASSERT_EQ(__builtin_bit_cast(unsigned int, float(half)),
                  (bits & 0x8000) << 16 | __builtin_bit_cast(unsigned int, value));
        ASSERT_EQ(ZQHalfFloat(float(half)).bits, bits == 0x8000 ? 0 : bits);
        ASSERT_EQ(ZQIsNaN(half), std::isnan(value));
    }
    std::ostringstream text;
    text << ZQHalfFloat() << ' ' << ZQHalfFloat(-1e9L) << ' ' << ZQHalfFloat(7);
    EXPECT_EQ(text.str(), "0 -inf 7");
}

TEST(NumberKinds, CountInfinityAsNaN)
{
    for (const double x : {0., -1., 1e-42, 5e-324, 1e38, 1e300, NAN * 1., HUGE_VAL, -HUGE_VAL}) {
        EXPECT_TRUE(ZQIsNormalNum(x) == (x - x == 0) && ZQIsNaN(x) == (x - x != 0)) << x;
        const auto y = float(x);
        EXPECT_TRUE(ZQIsNormalNum(y) == (y - y == 0) && ZQIsNaN(y) == (y - y != 0)) << y;
    }
    EXPECT_FALSE(ZQBigEndian());
}
