#include "zqscan.h"

#include <cstdint>
#include <immintrin.h>

namespace ZQPlatform {

namespace {

using Scan = unsigned char* (*)(unsigned char*, const unsigned char*);

// Marks the special ones of the bytes at 'p'.
__attribute__((target("avx2"))) __m256i lineSpecials(const unsigned char* p)
{
    const __m256i bytes = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
    const __m256i low = _mm256_cmpeq_epi8(_mm256_min_epu8(bytes, _mm256_set1_epi8(31)), bytes);
    return _mm256_andnot_si256(_mm256_cmpeq_epi8(bytes, _mm256_set1_epi8('\t')), low);
}

__attribute__((target("avx2"))) std::uint64_t maskOf(__m256i marks)
{
    return static_cast<std::uint32_t>(_mm256_movemask_epi8(marks));
}

__attribute__((target("avx2"))) unsigned char* findLineSpecialAvx2(unsigned char* p,
                                                                   const unsigned char* end)
{
    constexpr std::ptrdiff_t width = sizeof(__m256i);
    for (; end - p >= 2 * width; p += 2 * width) {
        const __m256i first = lineSpecials(p), second = lineSpecials(p + width);
        const __m256i any = _mm256_or_si256(first, second);
        if (!_mm256_testz_si256(any, any))
            return p + __builtin_ctzl(maskOf(first) | maskOf(second) << width);
    }
    return findLineSpecialNear(p, end);
}

Scan fastestScan()
{
#ifndef ZQPLATFORM_BASELINE_KERNELS
    if (__builtin_cpu_supports("avx2"))
        return findLineSpecialAvx2;
#endif
    return findLineSpecialNear;
}

}  // namespace

unsigned char* findLineSpecialFar(unsigned char* p, const unsigned char* end)
{
    static const Scan scan = fastestScan();
    return scan(p, end);
}

}  // namespace ZQPlatform
