// A floating-point number in 16 bits, to store data of low precision in half the space.
//
//   ZQHalfFloat stored(0.1f);   // stored.bits is what goes to the file
//   float value = stored;       // 0.099976
//
// The layout is IEEE 754 binary16: bit 15 the sign, bits 10 to 14 the exponent (bias 15), bits 0
// to 9 the mantissa. It spans 2^-24 to 65504 with 11 significant bits. There is no arithmetic:
// compute in float.

#ifndef ZQPLATFORM_ZQHALFFLOAT_H
#define ZQPLATFORM_ZQHALFFLOAT_H

#include "zqexport.h"
#include "zqisnan.h"

#include <cstring>
#include <ostream>

namespace ZQPlatform {

// One number. Every pattern of bits is a value, so a half may be read and written as its bits.
class ZQHalfFloat {
public:
    unsigned short bits;  // sign, exponent and mantissa

    // Zero.
    ZQHalfFloat() : bits(0) {}

    // The value as float (rounded to nearest by the host), then as half. Deliberate: a double
    // is rounded twice, and the second time ties go away from zero, not to even.
    //
    // From 65520 on the result is an infinity, and the host's overflow flag is raised; a float
    // that is infinite gives the same infinity and no flag. NaN stays NaN with the upper ten
    // bits of its payload, or with payload 1 where these are all zero.
    // Deliberate: below 2^-25 the result is +0, for negative values and for -0 too.
    ZQHalfFloat(int value) : ZQHalfFloat(static_cast<float>(value)) {}
    ZQHalfFloat(float value);
    ZQHalfFloat(double value) : ZQHalfFloat(static_cast<float>(value)) {}
    ZQHalfFloat(long double value) : ZQHalfFloat(static_cast<float>(value)) {}

    // The same value, exactly; a NaN keeps its payload and stays signalling if it was.
    operator float() const;

private:
    // The half for the bits of a float whose result is no normal number.
    ZQPLATFORM_EXPORT static unsigned short fromUnusual(unsigned int single);
};

// Inserts the value as a double, in the format that 'out' is set to.
ZQPLATFORM_EXPORT std::ostream& operator<<(std::ostream& out, const ZQHalfFloat& half);

// True for NaN alone. Deliberate: false for infinities, unlike the overloads for float and double.
inline bool ZQIsNaN(ZQHalfFloat half)
{
    return (half.bits & 0x7FFF) > 0x7C00;
}

// In integers throughout, so that neither the rounding mode nor the processor's treatment of
// subnormal and signalling numbers has a say.

inline ZQHalfFloat::ZQHalfFloat(float value)
{
    // The floats that become normal halves: from 2^-14, and rounded to less than 65536.
    constexpr unsigned int least = 0x38800000;
    constexpr unsigned int overflow = 0x477FF000;
    constexpr unsigned int biasDifference = 112 << 10;

    unsigned int single;
    std::memcpy(&single, &value, sizeof single);
    const unsigned int magnitude = single & 0x7FFFFFFF;
    if (magnitude - least < overflow - least)
        bits = static_cast<unsigned short>((single >> 16 & 0x8000) |
                                           (((magnitude + 0x1000) >> 13) - biasDifference));
    else
        bits = fromUnusual(single);
}

inline ZQHalfFloat::operator float() const
{
    constexpr unsigned int leastNormal = 0x400 << 13;
    constexpr unsigned int infinity = 0x7C00 << 13;

    unsigned int magnitude = (bits & 0x7FFFu) << 13;
    if (magnitude - leastNormal < infinity - leastNormal) {
        magnitude += 112u << 23;
    } else if (magnitude >= infinity) {
        magnitude |= 0x7F800000;
    } else if (magnitude != 0) {
        // Subnormal: the highest bit of the mantissa becomes the hidden one.
        const auto shift = static_cast<unsigned int>(__builtin_clz(magnitude)) - 8;
        magnitude = (magnitude << shift) + ((112 - shift) << 23);
    }
    const unsigned int single = (bits & 0x8000u) << 16 | magnitude;
    float value;
    std::memcpy(&value, &single, sizeof value);
    return value;
}

}  // namespace ZQPlatform

#endif
