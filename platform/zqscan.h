// Finds the next byte that a line or token reader has to look at. Internal to the library.
//
// Both functions return the first such byte in [p, end), or 'end', and never load past 'end'.
// SSE2 is part of x86-64.

#ifndef ZQPLATFORM_ZQSCAN_H
#define ZQPLATFORM_ZQSCAN_H

#include <cstddef>
#include <emmintrin.h>

namespace ZQPlatform {

// The line readers' rule: tab and the bytes from 32 on are kept as they are.
inline bool isLineText(unsigned char c)
{
    return c > 31 || c == '\t';
}

// The token readers' rule: bytes up to 32 end the token or are dropped, and from 128 on the
// locale decides what is white space.
inline bool isTokenText(unsigned char c)
{
    return c > 32 && c < 128;
}

// First byte for which 'isText' is false. 'special' marks the same bytes in a vector.
template <class IsText, class Special>
unsigned char* findSpecial(unsigned char* p, const unsigned char* end, IsText isText,
                           Special special)
{
    constexpr std::ptrdiff_t width = sizeof(__m128i);
    for (; end - p >= width; p += width) {
        const __m128i bytes = _mm_loadu_si128(reinterpret_cast<__m128i*>(p));
        const auto mask = static_cast<unsigned int>(_mm_movemask_epi8(special(bytes)));
        if (mask != 0)
            return p + __builtin_ctz(mask);
    }
    while (p != end && isText(*p))
        ++p;
    return p;
}

// The same for lines, in steps of 16 bytes.
inline unsigned char* findLineSpecialNear(unsigned char* p, const unsigned char* end)
{
    return findSpecial(p, end, isLineText, [](__m128i bytes) {
        const __m128i low = _mm_cmpeq_epi8(_mm_min_epu8(bytes, _mm_set1_epi8(31)), bytes);
        return _mm_andnot_si128(_mm_cmpeq_epi8(bytes, _mm_set1_epi8('\t')), low);
    });
}

// The same in the largest steps of this processor.
unsigned char* findLineSpecialFar(unsigned char* p, const unsigned char* end);

inline unsigned char* findLineSpecial(unsigned char* p, const unsigned char* end)
{
    constexpr std::ptrdiff_t usualLine = 64;
    if (end - p <= usualLine)
        return findLineSpecialNear(p, end);
    unsigned char* special = findLineSpecialNear(p, p + usualLine);
    return special != p + usualLine ? special : findLineSpecialFar(special, end);
}

inline unsigned char* findTokenSpecial(unsigned char* p, const unsigned char* end)
{
    // As signed bytes, those from 128 on are negative.
    return findSpecial(p, end, isTokenText,
                       [](__m128i bytes) { return _mm_cmpgt_epi8(_mm_set1_epi8(33), bytes); });
}

}  // namespace ZQPlatform

#endif
