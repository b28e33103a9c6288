#include "zqhalffloat.h"

namespace ZQPlatform {

namespace {

constexpr unsigned int hiddenBit = 0x800000;
constexpr unsigned int infinity = 0x7C00;

// Sets the host's overflow flag, and traps where the program asked for that.
void raiseOverflow()
{
    volatile float f = 1e10f;
    for (int i = 0; i < 10; ++i)
        f = f * f;
}

}  // namespace

unsigned short ZQHalfFloat::fromUnusual(unsigned int single)
{
    const unsigned int sign = single >> 16 & 0x8000;
    const int exponent = static_cast<int>(single >> 23 & 0xFF) - 112;
    unsigned int mantissa = single & (hiddenBit - 1);

    if (exponent < -10)
        return 0;
    if (exponent <= 0) {
        mantissa = (mantissa | hiddenBit) >> (1 - exponent);
        return static_cast<unsigned short>(sign | (mantissa + 0x1000) >> 13);
    }
    if (exponent != 143) {
        raiseOverflow();
        return static_cast<unsigned short>(sign | infinity);
    }
    if (mantissa == 0)
        return static_cast<unsigned short>(sign | infinity);
    const unsigned int payload = mantissa >> 13;
    return static_cast<unsigned short>(sign | infinity | (payload != 0 ? payload : 1));
}

std::ostream& operator<<(std::ostream& out, const ZQHalfFloat& half)
{
    return out << static_cast<double>(static_cast<float>(half));
}

}  // namespace ZQPlatform
