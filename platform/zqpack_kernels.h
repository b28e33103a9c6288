// The loops over packed integers and packed floats. Internal to the library.
//
// A set of forms computes exactly what every other set computes, bit for bit, and loads and
// stores nothing outside the image and the values. An image here is that of 'count' values from
// the start of a byte, count * width / 8 + 1 bytes, widths 0 to 31.

#ifndef ZQPLATFORM_ZQPACK_KERNELS_H
#define ZQPLATFORM_ZQPACK_KERNELS_H

#include "zqstreambase.h"

namespace ZQPlatform {

// Arrays are packed by so many values at a time: they stay in the cache between looking and
// packing, and the integers of floats may stand on the stack meanwhile.
constexpr zqsize_t packPiece = 2048;

struct PackForms {
    // All values, joined by OR: the highest bit set is that of the largest value.
    unsigned int (*join)(const unsigned int* values, zqsize_t count);

    // Writes the image, values that do not fit their width included.
    void (*pack)(unsigned char* image, const unsigned int* values, zqsize_t count,
                 unsigned int width);

    void (*unpack)(const unsigned char* image, unsigned int* values, zqsize_t count,
                   unsigned int width);

    // Moves max and min to the larger and the smaller of the values, in their order: an equal
    // value (a zero of the other sign) or a NaN is not taken.
    void (*extend)(const float* values, zqsize_t count, float& max, float& min);

    // Packs (value - min) * factor + 0.5 as lowWord() has it, for up to packPiece values.
    void (*packFloats)(unsigned char* image, const float* values, zqsize_t count,
                       unsigned int width, float min, float factor);

    // number * step + min, of the numbers in the image.
    void (*unpackFloats)(const unsigned char* image, float* values, zqsize_t count,
                         unsigned int width, float min, float step);
};

// The low 32 bits of the value, cut to a signed 64-bit integer. What does not fit that, NaN
// included, is -2^63 to the processor, which has low bits of 0.
inline unsigned int lowWord(float value)
{
    constexpr float limit = 9223372036854775808.0f;
    if (value >= -limit && value < limit)
        return static_cast<unsigned int>(static_cast<long>(value));
    return 0;
}

const PackForms& plainForms();
// For processors with AVX2.
const PackForms& avx2Forms();

// The fastest forms for this processor.
const PackForms& packForms();

}  // namespace ZQPlatform

#endif
