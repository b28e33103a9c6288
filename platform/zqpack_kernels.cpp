#include "zqpack_kernels.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <immintrin.h>

namespace ZQPlatform {

namespace {

constexpr zqsize_t groupSize = 8;  // so many values of w bits fill w whole bytes
constexpr unsigned int wordBits = 64;

// A word as it stands in an image, and back.
std::uint64_t littleEndian(std::uint64_t word)
{
    return __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__ ? __builtin_bswap64(word) : word;
}

zqsize_t imageLength(zqsize_t count, unsigned int width)
{
    return count * width / 8 + 1;
}

// ---- Plain forms

unsigned int joinPlain(const unsigned int* values, zqsize_t count)
{
    unsigned int all = 0;
    for (zqsize_t i = 0; i < count; ++i)
        all |= values[i];
    return all;
}

// The bits of each value of a group that go into the image: its lowest whole bytes that hold the
// width, but nothing behind the byte where the next value begins.
using GroupMasks = std::array<unsigned int, groupSize>;

constexpr GroupMasks writtenBits(unsigned int width)
{
    GroupMasks masks{};
    for (unsigned int i = 0; i < groupSize; ++i) {
        const unsigned int next = (i + 1) * width;
        const unsigned int toByteEnd = (next / 8 + 1) * 8 - i * width;
        const unsigned int bits = std::min((width + 7) / 8 * 8, toByteEnd);
        masks[i] = static_cast<unsigned int>((std::uint64_t(1) << bits) - 1);
    }
    return masks;
}

// What 'plan' gives for each width.
template <class Plan> constexpr auto forEachWidth(Plan plan)
{
    std::array<decltype(plan(0u)), 32> all{};
    for (unsigned int width = 0; width < all.size(); ++width)
        all[width] = plan(width);
    return all;
}

constexpr auto groupMasks = forEachWidth(writtenBits);

void packPlain(unsigned char* image, const unsigned int* values, zqsize_t count, unsigned int width)
{
    const GroupMasks& masks = groupMasks[width];
    std::uint64_t word = 0;
    unsigned int filled = 0;
    for (zqsize_t i = 0; i < count; ++i) {
        const std::uint64_t value = values[i] & masks[i % groupSize];
        word |= value << filled;
        filled += width;
        if (filled < wordBits)
            continue;
        const std::uint64_t bytes = littleEndian(word);
        std::memcpy(image, &bytes, sizeof bytes);
        image += sizeof bytes;
        filled -= wordBits;
        word = value >> (width - filled);
    }
    const std::uint64_t bytes = littleEndian(word);
    std::memcpy(image, &bytes, filled / 8 + 1);
}

void unpackPlain(const unsigned char* image, unsigned int* values, zqsize_t count,
                 unsigned int width)
{
    const zqsize_t length = imageLength(count, width);
    const std::uint64_t mask = (std::uint64_t(1) << width) - 1;
    zqsize_t bit = 0;
    const auto takeFrom = [&](const unsigned char* word) {
        std::uint64_t bytes;
        std::memcpy(&bytes, word, sizeof bytes);
        const auto value = littleEndian(bytes) >> (bit % 8) & mask;
        bit += width;
        return static_cast<unsigned int>(value);
    };
    zqsize_t i = 0;
    for (; i < count && bit / 8 + sizeof(std::uint64_t) <= length; ++i)
        values[i] = takeFrom(image + bit / 8);
    // The last values of the image, from a copy with room behind them.
    for (; i < count; ++i) {
        unsigned char end[sizeof(std::uint64_t)] = {};
        std::memcpy(end, image + bit / 8, length - bit / 8);
        values[i] = takeFrom(end);
    }
}

void extendPlain(const float* values, zqsize_t count, float& max, float& min)
{
    for (zqsize_t i = 0; i < count; ++i) {
        if (max < values[i])
            max = values[i];
        if (min > values[i])
            min = values[i];
    }
}

void quantisePlain(unsigned int* numbers, const float* values, zqsize_t count, float min,
                   float factor)
{
    for (zqsize_t i = 0; i < count; ++i)
        numbers[i] = lowWord((values[i] - min) * factor + 0.5f);
}

void restorePlain(float* values, const unsigned int* numbers, zqsize_t count, float min, float step)
{
    for (zqsize_t i = 0; i < count; ++i)
        values[i] = static_cast<float>(static_cast<int>(numbers[i])) * step + min;
}

// ---- AVX2

#define ZQ_AVX2 __attribute__((target("avx2")))

ZQ_AVX2 __m256i loadWords(const unsigned int* p)
{
    return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
}

ZQ_AVX2 void storeWords(unsigned int* p, __m256i words)
{
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), words);
}

ZQ_AVX2 __m256i wordPairs(unsigned int lowLane0, unsigned int lowLane1, unsigned int highLane0,
                          unsigned int highLane1)
{
    return _mm256_setr_epi64x(lowLane0, lowLane1, highLane0, highLane1);
}

ZQ_AVX2 unsigned int joinAvx2(const unsigned int* values, zqsize_t count)
{
    __m256i all[4] = {_mm256_setzero_si256(), _mm256_setzero_si256(), _mm256_setzero_si256(),
                      _mm256_setzero_si256()};
    zqsize_t i = 0;
    for (; i + 4 * groupSize <= count; i += 4 * groupSize)
        for (zqsize_t k = 0; k < 4; ++k)
            all[k] = _mm256_or_si256(all[k], loadWords(values + i + k * groupSize));
    unsigned int words[groupSize];
    storeWords(words,
               _mm256_or_si256(_mm256_or_si256(all[0], all[1]), _mm256_or_si256(all[2], all[3])));
    return joinPlain(words, groupSize) | joinPlain(values + i, count - i);
}

// The two functions below pack groups of values that fit, as far as their stores stay in front of
// 'end', and return how many values that were. They store bytes behind the last group, too, which
// are for the caller to write again.

// Widths up to 16, two groups at a time: the values in 16 bits each, joined to pairs and fours.
ZQ_AVX2 zqsize_t packNarrowGroups(unsigned char* image, const unsigned char* end,
                                  const unsigned int* values, zqsize_t count, unsigned int width)
{
    const __m256i zero = _mm256_setzero_si256();
    const auto shift = [](unsigned int bits) { return _mm_cvtsi32_si128(static_cast<int>(bits)); };
    const __m128i pairShift = shift(16 - width), fourShift = shift(32 - 2 * width);
    const __m128i upLow = shift(4 * width), upHigh = shift(wordBits - 4 * width);
    const auto store = [&image](zqsize_t offset, __m128i words) {
        _mm_storel_epi64(reinterpret_cast<__m128i*>(image + offset), words);
    };

    zqsize_t done = 0;
    for (; count - done >= 2 * groupSize && end - image >= std::ptrdiff_t(width) + 16;
         done += 2 * groupSize) {
        const __m256i each =
            _mm256_packus_epi32(loadWords(values + done), loadWords(values + done + groupSize));
        const __m256i pairs =
            _mm256_or_si256(_mm256_blend_epi16(each, zero, 0xAA),
                            _mm256_srl_epi32(_mm256_blend_epi16(zero, each, 0xAA), pairShift));
        const __m256i fours =
            _mm256_or_si256(_mm256_blend_epi32(pairs, zero, 0xAA),
                            _mm256_srl_epi64(_mm256_blend_epi32(zero, pairs, 0xAA), fourShift));
        // Four values of each group in the lower lane, the other four in the upper lane.
        const __m128i upper = _mm256_extracti128_si256(fours, 1);
        const __m128i low =
            _mm_or_si128(_mm256_castsi256_si128(fours), _mm_sll_epi64(upper, upLow));
        const __m128i high = _mm_srl_epi64(upper, upHigh);
        store(0, low);
        store(8, high);
        image += width;
        store(0, _mm_unpackhi_epi64(low, low));
        store(8, _mm_unpackhi_epi64(high, high));
        image += width;
    }
    return done;
}

// Any width. A group goes into two 128-bit lanes of four values each. The second half of the image
// begins 4 * width bits behind the first, for odd widths in the middle of a byte that both share.
ZQ_AVX2 zqsize_t packGroups(unsigned char* image, const unsigned char* end,
                            const unsigned int* values, zqsize_t count, unsigned int width)
{
    const zqsize_t half = width / 2;
    const unsigned int odd = width % 2 * 4;
    const __m256i zero = _mm256_setzero_si256();
    const __m128i pairShift = _mm_cvtsi32_si128(static_cast<int>(32 - width));
    const __m256i quadLeft = wordPairs(2 * width, wordBits, 2 * width, wordBits);
    const __m256i quadRight =
        wordPairs(wordBits, wordBits - 2 * width, wordBits, wordBits - 2 * width);
    const __m256i oddLeft = wordPairs(0, 0, odd, odd);
    const __m256i oddRight = wordPairs(wordBits, wordBits, wordBits, wordBits - odd);
    // Byte 'half' of the lower lane, to the start of the upper one.
    alignas(16) std::uint8_t sharedFrom[16];
    std::fill_n(sharedFrom, sizeof sharedFrom, std::uint8_t(0x80));
    if (odd)
        sharedFrom[0] = static_cast<std::uint8_t>(half);
    const __m128i sharedByte = _mm_load_si128(reinterpret_cast<const __m128i*>(sharedFrom));

    zqsize_t done = 0;
    for (; count - done >= groupSize && end - image >= std::ptrdiff_t(half + 16);
         done += groupSize) {
        const __m256i eight = loadWords(values + done);
        // Each 64-bit lane: two values, 2 * width bits.
        const __m256i pairs =
            _mm256_or_si256(_mm256_blend_epi32(eight, zero, 0xAA),
                            _mm256_srl_epi64(_mm256_blend_epi32(zero, eight, 0xAA), pairShift));
        // Each 128-bit lane: four values, 4 * width bits.
        const __m256i second = _mm256_unpackhi_epi64(pairs, pairs);
        __m256i quads = _mm256_or_si256(_mm256_sllv_epi64(second, quadLeft),
                                        _mm256_srlv_epi64(second, quadRight));
        quads = _mm256_or_si256(quads, _mm256_blend_epi32(pairs, zero, 0xCC));
        // The upper lane moved into its place in the shared byte.
        const __m256i carry = _mm256_srlv_epi64(_mm256_slli_si256(quads, 8), oddRight);
        quads = _mm256_or_si256(_mm256_sllv_epi64(quads, oddLeft), carry);
        const __m128i low = _mm256_castsi256_si128(quads);
        const __m128i high =
            _mm_or_si128(_mm256_extracti128_si256(quads, 1), _mm_shuffle_epi8(low, sharedByte));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(image), low);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(image + half), high);
        image += width;
    }
    return done;
}

// What the functions for groups leave over at the end of an array is less than this.
constexpr zqsize_t restBytes = 128;
constexpr zqsize_t restValues = 2 * groupSize;

ZQ_AVX2 void packAvx2(unsigned char* image, const unsigned int* values, zqsize_t count,
                      unsigned int width)
{
    if (width == 0 || joinAvx2(values, count) >> width != 0)
        return packPlain(image, values, count, width);
    const auto groups = width <= 16 ? packNarrowGroups : packGroups;
    const unsigned char* const end = image + imageLength(count, width);
    zqsize_t done = groups(image, end, values, count, width);
    image += done / groupSize * width;

    // The rest in a block with room behind it, the last values filled up with zeros.
    unsigned char rest[restBytes] = {};
    unsigned char* at = rest;
    const zqsize_t more = groups(at, rest + restBytes, values + done, count - done, width);
    at += more / groupSize * width;
    done += more;
    unsigned int last[restValues] = {};
    std::copy(values + done, values + count, last);
    groups(at, rest + restBytes, last, restValues, width);
    std::memcpy(image, rest, static_cast<zqsize_t>(end - image));
}

// How a group is taken apart. The image of its first four values lies in 16 bytes from its start,
// that of the others in 16 bytes from width / 2 on. In each half, 'front' moves the bytes of the
// first and second value to 64-bit lanes, 'back' those of the third and fourth; the shifts then
// drop the bits in front of the value.
struct UnpackSteps {
    alignas(32) std::uint8_t front[32], back[32];
    alignas(32) std::uint64_t frontShift[4], backShift[4];
};

constexpr void planValue(std::uint8_t* lane, std::uint64_t& shift, unsigned int firstBit)
{
    shift = firstBit % 8;
    for (unsigned int i = 0; i < 8; ++i) {
        const unsigned int byte = firstBit / 8 + i;
        lane[i] = static_cast<std::uint8_t>(byte < 16 ? byte : 0x80);
    }
}

constexpr UnpackSteps planUnpack(unsigned int width)
{
    UnpackSteps steps{};
    for (unsigned int half = 0; half < 2; ++half) {
        const unsigned int firstBit = half * (4 * width % 8);
        for (unsigned int i = 0; i < 2; ++i) {
            const zqsize_t lane = 2 * zqsize_t(half) + i;
            planValue(steps.front + 8 * lane, steps.frontShift[lane], firstBit + i * width);
            planValue(steps.back + 8 * lane, steps.backShift[lane], firstBit + (i + 2) * width);
        }
    }
    return steps;
}

constexpr auto unpackSteps = forEachWidth(planUnpack);

ZQ_AVX2 __m256i loadSteps(const void* p)
{
    return _mm256_load_si256(static_cast<const __m256i*>(p));
}

// Unpacks groups as far as 16-byte loads stay in front of 'end'; returns how many values that were.
ZQ_AVX2 zqsize_t unpackGroups(const unsigned char* image, const unsigned char* end,
                              unsigned int* values, zqsize_t count, unsigned int width)
{
    const zqsize_t half = width / 2;
    const UnpackSteps& steps = unpackSteps[width];
    const __m256i front = loadSteps(steps.front), frontShift = loadSteps(steps.frontShift);
    const __m256i back = loadSteps(steps.back), backShift = loadSteps(steps.backShift);
    const __m256i mask = _mm256_set1_epi32(static_cast<int>((1u << width) - 1));

    zqsize_t done = 0;
    for (; count - done >= groupSize && end - image >= std::ptrdiff_t(half + 16);
         done += groupSize) {
        const __m256i bytes = _mm256_loadu2_m128i(reinterpret_cast<const __m128i*>(image + half),
                                                  reinterpret_cast<const __m128i*>(image));
        const __m256i first = _mm256_srlv_epi64(_mm256_shuffle_epi8(bytes, front), frontShift);
        const __m256i last = _mm256_srlv_epi64(_mm256_shuffle_epi8(bytes, back), backShift);
        const __m256 eight =
            _mm256_shuffle_ps(_mm256_castsi256_ps(first), _mm256_castsi256_ps(last), 0x88);
        storeWords(values + done, _mm256_and_si256(_mm256_castps_si256(eight), mask));
        image += width;
    }
    return done;
}

ZQ_AVX2 void unpackAvx2(const unsigned char* image, unsigned int* values, zqsize_t count,
                        unsigned int width)
{
    if (width == 0)
        return unpackPlain(image, values, count, width);
    const unsigned char* const end = image + imageLength(count, width);
    zqsize_t done = unpackGroups(image, end, values, count, width);
    image += done / groupSize * width;

    // The rest from a block with room behind it.
    unsigned char rest[restBytes] = {};
    std::memcpy(rest, image, static_cast<zqsize_t>(end - image));
    const unsigned char* at = rest;
    const zqsize_t more = unpackGroups(at, rest + restBytes, values + done, count - done, width);
    at += more / groupSize * width;
    done += more;
    unsigned int last[groupSize];
    unpackGroups(at, rest + restBytes, last, groupSize, width);
    std::copy_n(last, count - done, values + done);
}

// The first zero among the values, for a largest or smallest value that is zero: vectors lose
// track of which of two zeros came first.
float firstZero(const float* values, zqsize_t count, float before)
{
    if (before == 0)
        return before;
    return *std::find(values, values + count, 0.0f);
}

ZQ_AVX2 void extendAvx2(const float* values, zqsize_t count, float& max, float& min)
{
    // _mm256_max_ps(a, b) is a > b ? a : b, and so the same as the comparison of single values.
    const float oldMax = max, oldMin = min;
    __m256 most[2] = {_mm256_set1_ps(max), _mm256_set1_ps(max)};
    __m256 least[2] = {_mm256_set1_ps(min), _mm256_set1_ps(min)};
    zqsize_t i = 0;
    for (; i + 2 * groupSize <= count; i += 2 * groupSize)
        for (zqsize_t k = 0; k < 2; ++k) {
            const __m256 eight = _mm256_loadu_ps(values + i + k * groupSize);
            most[k] = _mm256_max_ps(eight, most[k]);
            least[k] = _mm256_min_ps(eight, least[k]);
        }
    float ends[4 * groupSize];
    for (zqsize_t k = 0; k < 2; ++k) {
        _mm256_storeu_ps(ends + 2 * k * groupSize, most[k]);
        _mm256_storeu_ps(ends + (2 * k + 1) * groupSize, least[k]);
    }
    extendPlain(ends, 4 * groupSize, max, min);
    extendPlain(values + i, count - i, max, min);
    if (max == 0)
        max = firstZero(values, count, oldMax);
    if (min == 0)
        min = firstZero(values, count, oldMin);
}

ZQ_AVX2 void quantiseAvx2(unsigned int* numbers, const float* values, zqsize_t count, float min,
                          float factor)
{
    const __m256 allMin = _mm256_set1_ps(min), allFactor = _mm256_set1_ps(factor);
    const __m256 rounding = _mm256_set1_ps(0.5f);
    const __m256i misfit = _mm256_set1_epi32(INT32_MIN);
    zqsize_t i = 0;
    for (; i + groupSize <= count; i += groupSize) {
        const __m256 above = _mm256_sub_ps(_mm256_loadu_ps(values + i), allMin);
        const __m256i eight =
            _mm256_cvttps_epi32(_mm256_add_ps(_mm256_mul_ps(above, allFactor), rounding));
        storeWords(numbers + i, eight);
        // What the 32-bit conversion cannot tell is left to the one that can.
        const __m256i misfits = _mm256_cmpeq_epi32(eight, misfit);
        if (_mm256_movemask_epi8(misfits) != 0)
            quantisePlain(numbers + i, values + i, groupSize, min, factor);
    }
    quantisePlain(numbers + i, values + i, count - i, min, factor);
}

ZQ_AVX2 void restoreAvx2(float* values, const unsigned int* numbers, zqsize_t count, float min,
                         float step)
{
    const __m256 allMin = _mm256_set1_ps(min), allStep = _mm256_set1_ps(step);
    zqsize_t i = 0;
    for (; i + groupSize <= count; i += groupSize) {
        const __m256 eight = _mm256_cvtepi32_ps(loadWords(numbers + i));
        _mm256_storeu_ps(values + i, _mm256_add_ps(_mm256_mul_ps(eight, allStep), allMin));
    }
    restorePlain(values + i, numbers + i, count - i, min, step);
}

}  // namespace

const PackForms& plainForms()
{
    static const PackForms forms = {joinPlain,   packPlain,     unpackPlain,
                                    extendPlain, quantisePlain, restorePlain};
    return forms;
}

const PackForms& avx2Forms()
{
    static const PackForms forms = {joinAvx2,   packAvx2,     unpackAvx2,
                                    extendAvx2, quantiseAvx2, restoreAvx2};
    return forms;
}

const PackForms& packForms()
{
#ifdef ZQPLATFORM_BASELINE_KERNELS
    return plainForms();
#else
    static const PackForms& forms = __builtin_cpu_supports("avx2") ? avx2Forms() : plainForms();
    return forms;
#endif
}

}  // namespace ZQPlatform
