#include "zqreverse_kernels.h"

#include <cstdint>
#include <cstring>
#include <immintrin.h>

namespace ZQPlatform {

namespace {

std::uint16_t reversed(std::uint16_t value)
{
    return __builtin_bswap16(value);
}

std::uint32_t reversed(std::uint32_t value)
{
    return __builtin_bswap32(value);
}

std::uint64_t reversed(std::uint64_t value)
{
    return __builtin_bswap64(value);
}

template <class Number>
void reverseEach(unsigned char* dst, const unsigned char* src, zqsize_t count)
{
    for (zqsize_t i = 0; i < count; ++i) {
        Number value;
        std::memcpy(&value, src + i * sizeof value, sizeof value);
        value = reversed(value);
        std::memcpy(dst + i * sizeof value, &value, sizeof value);
    }
}

// For each byte of 16, the place inside its element that it comes from.
__m128i byteOrder(zqsize_t size)
{
    if (size == 2)
        return _mm_setr_epi8(1, 0, 3, 2, 5, 4, 7, 6, 9, 8, 11, 10, 13, 12, 15, 14);
    if (size == 4)
        return _mm_setr_epi8(3, 2, 1, 0, 7, 6, 5, 4, 11, 10, 9, 8, 15, 14, 13, 12);
    return _mm_setr_epi8(7, 6, 5, 4, 3, 2, 1, 0, 15, 14, 13, 12, 11, 10, 9, 8);
}

ReverseForm fastestForm()
{
#ifndef ZQPLATFORM_BASELINE_KERNELS
    if (__builtin_cpu_supports("avx2"))
        return reverseAvx2;
    if (__builtin_cpu_supports("ssse3"))
        return reverseSsse3;
#endif
    return reversePlain;
}

}  // namespace

void reversePlain(unsigned char* dst, const unsigned char* src, zqsize_t size, zqsize_t count)
{
    if (size == 2)
        reverseEach<std::uint16_t>(dst, src, count);
    else if (size == 4)
        reverseEach<std::uint32_t>(dst, src, count);
    else
        reverseEach<std::uint64_t>(dst, src, count);
}

__attribute__((target("ssse3"))) void reverseSsse3(unsigned char* dst, const unsigned char* src,
                                                   zqsize_t size, zqsize_t count)
{
    const __m128i order = byteOrder(size);
    const zqsize_t step = sizeof(__m128i) / size;
    for (; count >= step; count -= step) {
        const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst), _mm_shuffle_epi8(bytes, order));
        src += sizeof bytes;
        dst += sizeof bytes;
    }
    reversePlain(dst, src, size, count);
}

__attribute__((target("avx2"))) void reverseAvx2(unsigned char* dst, const unsigned char* src,
                                                 zqsize_t size, zqsize_t count)
{
    const __m256i order = _mm256_broadcastsi128_si256(byteOrder(size));
    constexpr int together = 4;
    const zqsize_t step = together * sizeof(__m256i) / size;
    for (; count >= step; count -= step) {
        __m256i bytes[together];
        for (int i = 0; i < together; ++i)
            bytes[i] = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src) + i);
        for (int i = 0; i < together; ++i)
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst) + i,
                                _mm256_shuffle_epi8(bytes[i], order));
        src += sizeof bytes;
        dst += sizeof bytes;
    }
    reverseSsse3(dst, src, size, count);
}

void reverseElements(unsigned char* dst, const unsigned char* src, zqsize_t size, zqsize_t count)
{
    static const ReverseForm form = fastestForm();
    if (count < 4)
        reversePlain(dst, src, size, count);
    else
        form(dst, src, size, count);
}

}  // namespace ZQPlatform
