#include "zqscan.h"

#include <immintrin.h>

namespace ZQPlatform {

namespace {

using Scan = unsigned char* (*)(unsigned char*, const unsigned char*);

__attribute__((target("avx2"))) unsigned char* findLineSpecialAvx2(unsigned char* p,
                                                                   const unsigned char* end)
{
    constexpr std::ptrdiff_t width = sizeof(__m256i);
    const __m256i highest = _mm256_set1_epi8(31), tab = _mm256_set1_epi8('\t');
    for (; end - p >= width; p += width) {
        const __m256i bytes = _mm256_loadu_si256(reinterpret_cast<__m256i*>(p));
        const __m256i low = _mm256_cmpeq_epi8(_mm256_min_epu8(bytes, highest), bytes);
        const __m256i special = _mm256_andnot_si256(_mm256_cmpeq_epi8(bytes, tab), low);
        const auto mask = static_cast<unsigned int>(_mm256_movemask_epi8(special));
        if (mask != 0)
            return p + __builtin_ctz(mask);
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
