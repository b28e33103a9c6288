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
constexpr unsigned int widest = 31;

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

// What 'plan' gives for each width from 'first' to 'last'.
template <unsigned int first, unsigned int last, class Plan> constexpr auto forWidths(Plan plan)
{
    std::array<decltype(plan(first)), last - first + 1> all{};
    for (unsigned int width = first; width <= last; ++width)
        all[width - first] = plan(width);
    return all;
}

constexpr auto groupMasks = forWidths<0, widest>(writtenBits);

// 'number' gives the i-th of the integers to be packed.
template <class Number>
void packEach(unsigned char* image, zqsize_t count, unsigned int width, Number number)
{
    const GroupMasks& masks = groupMasks[width];
    std::uint64_t word = 0;
    unsigned int filled = 0;
    for (zqsize_t i = 0; i < count; ++i) {
        const std::uint64_t value = number(i) & masks[i % groupSize];
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

void packPlain(unsigned char* image, const unsigned int* values, zqsize_t count, unsigned int width)
{
    packEach(image, count, width, [=](zqsize_t i) { return values[i]; });
}

// 'put' takes the i-th of the integers.
template <class Put>
void unpackEach(const unsigned char* image, zqsize_t count, unsigned int width, Put put)
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
        put(i, takeFrom(image + bit / 8));
    // The last values of the image, from a copy with room behind them.
    for (; i < count; ++i) {
        unsigned char end[sizeof(std::uint64_t)] = {};
        std::memcpy(end, image + bit / 8, length - bit / 8);
        put(i, takeFrom(end));
    }
}

void unpackPlain(const unsigned char* image, unsigned int* values, zqsize_t count,
                 unsigned int width)
{
    unpackEach(image, count, width, [=](zqsize_t i, unsigned int value) { values[i] = value; });
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

unsigned int quantise(float value, float min, float factor)
{
    return lowWord((value - min) * factor + 0.5f);
}

void packFloatsPlain(unsigned char* image, const float* values, zqsize_t count, unsigned int width,
                     float min, float factor)
{
    packEach(image, count, width, [=](zqsize_t i) { return quantise(values[i], min, factor); });
}

float restore(unsigned int number, float min, float step)
{
    return static_cast<float>(static_cast<int>(number)) * step + min;
}

void unpackFloatsPlain(const unsigned char* image, float* values, zqsize_t count,
                       unsigned int width, float min, float step)
{
    unpackEach(image, count, width,
               [=](zqsize_t i, unsigned int number) { values[i] = restore(number, min, step); });
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

ZQ_AVX2 __m256i loadSteps(const void* p)
{
    return _mm256_load_si256(static_cast<const __m256i*>(p));
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

// The integers to be packed, eight from the i-th on: as they stand.
struct Integers {
    const unsigned int* values;

    ZQ_AVX2 __m256i operator()(zqsize_t i) const { return loadWords(values + i); }
};

// Eight floats of which one has a number that does not fit 32 bits, if cut to an integer.
[[gnu::cold]] ZQ_AVX2 __m256i quantiseEach(const float* values, float min, float factor)
{
    unsigned int eight[groupSize];
    for (zqsize_t i = 0; i < groupSize; ++i)
        eight[i] = quantise(values[i], min, factor);
    return loadWords(eight);
}

// Those of packed floats, which are joined on the way.
struct QuantisedFloats {
    const float* values;
    float min, factor;
    __m256i all;

    ZQ_AVX2 __m256i operator()(zqsize_t i)
    {
        const __m256 above = _mm256_sub_ps(_mm256_loadu_ps(values + i), _mm256_set1_ps(min));
        const __m256 scaled = _mm256_mul_ps(above, _mm256_set1_ps(factor));
        __m256i eight = _mm256_cvttps_epi32(_mm256_add_ps(scaled, _mm256_set1_ps(0.5f)));
        // A conversion to 32 bits cannot tell what does not fit them, and gives the lowest number.
        if (_mm256_movemask_ps(_mm256_castsi256_ps(eight)) != 0)
            eight = quantiseEach(values + i, min, factor);
        all = _mm256_or_si256(all, eight);
        return eight;
    }
};

// The two functions below pack groups of integers that fit, as far as their stores stay in front
// of 'end', and return how many integers that were. They store bytes behind the last group, too,
// which are for the caller to write again.

// Widths up to 16, two groups at a time: the values in 16 bits each, joined to pairs and fours.
template <class Numbers>
ZQ_AVX2 zqsize_t packNarrowGroups(unsigned char* image, const unsigned char* end, Numbers numbers,
                                  zqsize_t count, unsigned int width)
{
    const auto shift = [](unsigned int bits) { return _mm_cvtsi32_si128(static_cast<int>(bits)); };
    const __m128i pairShift = shift(16 - width), fourShift = shift(32 - 2 * width);
    const __m128i upLow = shift(4 * width), upHigh = shift(wordBits - 4 * width);
    // The first of two lanes moves up to the second: by a product where no shift has its own count
    // for each lane.
    const __m256i toSecond = _mm256_set1_epi32(static_cast<int>((1u << 16) | 1u << (16 - width)));
    const __m256i toSecondPair = _mm256_set1_epi64x(32 - 2 * static_cast<int>(width));
    const auto store = [&image](zqsize_t offset, __m128i words) {
        _mm_storel_epi64(reinterpret_cast<__m128i*>(image + offset), words);
    };

    zqsize_t done = 0;
    for (; count - done >= 2 * groupSize && end - image >= std::ptrdiff_t(width) + 16;
         done += 2 * groupSize) {
        const __m256i each = _mm256_packus_epi32(numbers(done), numbers(done + groupSize));
        const __m256i pairs = _mm256_srl_epi32(_mm256_mullo_epi16(each, toSecond), pairShift);
        const __m256i fours = _mm256_srl_epi64(_mm256_sllv_epi32(pairs, toSecondPair), fourShift);
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

constexpr unsigned int firstWide = 17;

// How a group of wider values is put together. Its pairs p, of 2 * width bits each, are formed at
// the upper end of 64-bit lanes. The image of the group is made of
//
//   lane       0              1              2              3
//   right      p0             p1, its end    p2             p3, its end
//   left       p1             p2             p3             nothing
//
// where 'right' shifts pairs down to where the lane goes on with them, and 'left' moves the next
// lane's pair up behind. Of p2, lane 1 needs what shares a byte with p1: odd widths have the upper
// 128 bits begin with the next byte, 4 bits into p2. What else is in lane 1 is overwritten by them.
struct WideSteps {
    alignas(32) std::uint32_t pairs[8], nextPairs[8];
    alignas(32) std::uint64_t right[4], left[4];
};

constexpr WideSteps planWide(unsigned int width)
{
    const unsigned int apart = 32 - width, odd = width % 2 * 4;
    const std::uint64_t bits = width, gap = apart;
    return {{apart, 0, apart, 0, apart, 0, apart, 0},
            {apart, 0, 0, 0, apart, 0, apart, 0},  // of p2, the first value will do
            {gap, 3 * gap, gap + odd, 3 * gap + odd},
            {3 * bits - 32, 4 * bits - 64, 3 * bits - 32 - odd, wordBits}};
}

constexpr auto wideSteps = forWidths<firstWide, widest>(planWide);

// Widths from firstWide on. Looks at two values behind the group.
ZQ_AVX2 zqsize_t packWideGroups(unsigned char* image, const unsigned char* end,
                                const unsigned int* values, zqsize_t count, unsigned int width)
{
    const WideSteps& steps = wideSteps[width - firstWide];
    const __m256i pairs = loadSteps(steps.pairs), nextPairs = loadSteps(steps.nextPairs);
    const __m256i right = loadSteps(steps.right), left = loadSteps(steps.left);
    const zqsize_t half = (width + 1) / 2;

    zqsize_t done = 0;
    for (; count - done >= groupSize + 2 && end - image >= std::ptrdiff_t(half + 16);
         done += groupSize) {
        const __m256i own = _mm256_sllv_epi32(loadWords(values + done), pairs);
        const __m256i next = _mm256_sllv_epi32(loadWords(values + done + 2), nextPairs);
        const __m256i group =
            _mm256_or_si256(_mm256_srlv_epi64(own, right), _mm256_sllv_epi64(next, left));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(image), _mm256_castsi256_si128(group));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(image + half),
                         _mm256_extracti128_si256(group, 1));
        image += width;
    }
    return done;
}

ZQ_AVX2 zqsize_t packGroups(unsigned char* image, const unsigned char* end,
                            const unsigned int* values, zqsize_t count, unsigned int width)
{
    return width < firstWide ? packNarrowGroups(image, end, Integers{values}, count, width)
                             : packWideGroups(image, end, values, count, width);
}

// What the functions for groups leave over at the end of an array is less than this.
constexpr zqsize_t restBytes = 128;
constexpr zqsize_t restValues = 128;
constexpr zqsize_t lastValues = 3 * groupSize;  // of these, two groups are packed

ZQ_AVX2 void packAvx2(unsigned char* image, const unsigned int* values, zqsize_t count,
                      unsigned int width)
{
    if (width == 0 || joinAvx2(values, count) >> width != 0)
        return packPlain(image, values, count, width);
    const unsigned char* const end = image + imageLength(count, width);
    zqsize_t done = packGroups(image, end, values, count, width);
    image += done / groupSize * width;

    // The rest in a block with room behind it, the last values filled up with zeros.
    unsigned char rest[restBytes];
    unsigned char* at = rest;
    const zqsize_t more = packGroups(at, rest + restBytes, values + done, count - done, width);
    at += more / groupSize * width;
    done += more;
    unsigned int last[lastValues];
    for (zqsize_t i = 0; i < lastValues; i += groupSize)
        storeWords(last + i, _mm256_setzero_si256());
    std::copy(values + done, values + count, last);
    packGroups(at, rest + restBytes, last, lastValues, width);
    std::memcpy(image, rest, static_cast<zqsize_t>(end - image));
}

ZQ_AVX2 void packFloatsAvx2(unsigned char* image, const float* values, zqsize_t count,
                            unsigned int width, float min, float factor)
{
    QuantisedFloats numbers{values, min, factor, _mm256_setzero_si256()};
    zqsize_t done = 0;
    if (width != 0 && width < firstWide) {
        const unsigned char* const end = image + imageLength(count, width);
        done = packNarrowGroups<QuantisedFloats&>(image, end, numbers, count, width);
        unsigned int all[groupSize];
        storeWords(all, numbers.all);
        if (joinPlain(all, groupSize) >> width != 0)
            done = 0;
    }

    // The rest, or all of them, as integers.
    unsigned int rest[packPiece];
    zqsize_t i = done;
    for (; i + groupSize <= count; i += groupSize)
        storeWords(rest + i - done, numbers(i));
    for (; i < count; ++i)
        rest[i - done] = quantise(values[i], min, factor);
    packAvx2(image + done / groupSize * width, rest, count - done, width);
}

// Where unpacked integers go, eight from the i-th on: as they are, and as floats.
struct ToIntegers {
    unsigned int* values;

    ZQ_AVX2 void operator()(zqsize_t i, __m256i eight) const { storeWords(values + i, eight); }
};

struct ToFloats {
    float* values;
    float min, step;

    ZQ_AVX2 void operator()(zqsize_t i, __m256i eight) const
    {
        const __m256 scaled = _mm256_mul_ps(_mm256_cvtepi32_ps(eight), _mm256_set1_ps(step));
        _mm256_storeu_ps(values + i, _mm256_add_ps(scaled, _mm256_set1_ps(min)));
    }
};

// How a group is taken apart. The image of its first four values lies in 16 bytes from its start,
// that of the others in 16 bytes from width / 2 on. Each value's bytes are moved to the start of a
// lane; shifts then drop the bits in front of the value.
template <class Word>
constexpr void planValue(std::uint8_t* lane, Word& shift, unsigned int firstBit)
{
    shift = firstBit % 8;
    for (unsigned int i = 0; i < sizeof(Word); ++i) {
        const unsigned int byte = firstBit / 8 + i;
        lane[i] = static_cast<std::uint8_t>(byte < 16 ? byte : 0x80);
    }
}

constexpr unsigned int firstBitOf(unsigned int half, unsigned int i, unsigned int width)
{
    return half * (4 * width % 8) + i * width;
}

// Up to 25 bits and the 7 in front of them fit 32-bit lanes, which have the order of the values.
constexpr unsigned int firstLong = 26;

struct ShortSteps {
    alignas(32) std::uint8_t bytes[32];
    alignas(32) std::uint32_t shift[8];
};

constexpr ShortSteps planShort(unsigned int width)
{
    ShortSteps steps{};
    for (unsigned int lane = 0; lane < 8; ++lane) {
        std::uint8_t* const bytes = steps.bytes + zqsize_t(4) * lane;
        planValue(bytes, steps.shift[lane], firstBitOf(lane / 4, lane % 4, width));
    }
    return steps;
}

// Others have 64-bit lanes: 'front' those of the first and second value of each half, 'back' those
// of the third and fourth.
struct LongSteps {
    alignas(32) std::uint8_t front[32], back[32];
    alignas(32) std::uint64_t frontShift[4], backShift[4];
};

constexpr LongSteps planLong(unsigned int width)
{
    LongSteps steps{};
    for (unsigned int half = 0; half < 2; ++half)
        for (unsigned int i = 0; i < 2; ++i) {
            const zqsize_t lane = 2 * zqsize_t(half) + i;
            planValue(steps.front + 8 * lane, steps.frontShift[lane], firstBitOf(half, i, width));
            planValue(steps.back + 8 * lane, steps.backShift[lane], firstBitOf(half, i + 2, width));
        }
    return steps;
}

constexpr auto shortSteps = forWidths<0, firstLong - 1>(planShort);
constexpr auto longSteps = forWidths<firstLong, widest>(planLong);

// Unpacks groups as far as 16-byte loads stay in front of 'end'; returns how many values that were.
// 'take' makes eight values, with more bits above them, of the two halves of a group.
template <class Take, class Put>
ZQ_AVX2 zqsize_t unpackBy(Take take, const unsigned char* image, const unsigned char* end, Put put,
                          zqsize_t count, unsigned int width)
{
    const zqsize_t half = width / 2;
    const __m256i mask = _mm256_set1_epi32(static_cast<int>((1u << width) - 1));

    zqsize_t done = 0;
    for (; count - done >= groupSize && end - image >= std::ptrdiff_t(half + 16);
         done += groupSize) {
        const __m256i bytes = _mm256_loadu2_m128i(reinterpret_cast<const __m128i*>(image + half),
                                                  reinterpret_cast<const __m128i*>(image));
        put(done, _mm256_and_si256(take(bytes), mask));
        image += width;
    }
    return done;
}

struct TakeShort {
    __m256i bytes, shift;

    ZQ_AVX2 __m256i operator()(__m256i halves) const
    {
        return _mm256_srlv_epi32(_mm256_shuffle_epi8(halves, bytes), shift);
    }
};

struct TakeLong {
    __m256i front, frontShift, back, backShift;

    ZQ_AVX2 __m256i operator()(__m256i halves) const
    {
        const __m256i first = _mm256_srlv_epi64(_mm256_shuffle_epi8(halves, front), frontShift);
        const __m256i last = _mm256_srlv_epi64(_mm256_shuffle_epi8(halves, back), backShift);
        return _mm256_castps_si256(
            _mm256_shuffle_ps(_mm256_castsi256_ps(first), _mm256_castsi256_ps(last), 0x88));
    }
};

template <class Put>
ZQ_AVX2 zqsize_t unpackGroups(const unsigned char* image, const unsigned char* end, Put put,
                              zqsize_t count, unsigned int width)
{
    if (width < firstLong) {
        const ShortSteps& steps = shortSteps[width];
        const TakeShort take{loadSteps(steps.bytes), loadSteps(steps.shift)};
        return unpackBy(take, image, end, put, count, width);
    }
    const LongSteps& steps = longSteps[width - firstLong];
    const TakeLong take{loadSteps(steps.front), loadSteps(steps.frontShift), loadSteps(steps.back),
                        loadSteps(steps.backShift)};
    return unpackBy(take, image, end, put, count, width);
}

ZQ_AVX2 void unpackAvx2(const unsigned char* image, unsigned int* values, zqsize_t count,
                        unsigned int width)
{
    if (width == 0)
        return unpackPlain(image, values, count, width);
    const unsigned char* const end = image + imageLength(count, width);
    zqsize_t done = unpackGroups(image, end, ToIntegers{values}, count, width);
    image += done / groupSize * width;

    // The rest from a block with room behind it.
    unsigned char rest[restBytes] = {};
    std::memcpy(rest, image, static_cast<zqsize_t>(end - image));
    const unsigned char* at = rest;
    const zqsize_t more =
        unpackGroups(at, rest + restBytes, ToIntegers{values + done}, count - done, width);
    at += more / groupSize * width;
    done += more;
    unsigned int last[groupSize];
    unpackGroups(at, rest + restBytes, ToIntegers{last}, groupSize, width);
    std::copy_n(last, count - done, values + done);
}

ZQ_AVX2 void unpackFloatsAvx2(const unsigned char* image, float* values, zqsize_t count,
                              unsigned int width, float min, float step)
{
    if (width == 0)
        return unpackFloatsPlain(image, values, count, width, min, step);
    const unsigned char* const end = image + imageLength(count, width);
    const zqsize_t done = unpackGroups(image, end, ToFloats{values, min, step}, count, width);

    unsigned int rest[restValues];
    unpackAvx2(image + done / groupSize * width, rest, count - done, width);
    for (zqsize_t i = done; i < count; ++i)
        values[i] = restore(rest[i - done], min, step);
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

}  // namespace

const PackForms& plainForms()
{
    static const PackForms forms = {joinPlain,   packPlain,       unpackPlain,
                                    extendPlain, packFloatsPlain, unpackFloatsPlain};
    return forms;
}

const PackForms& avx2Forms()
{
    static const PackForms forms = {joinAvx2,   packAvx2,       unpackAvx2,
                                    extendAvx2, packFloatsAvx2, unpackFloatsAvx2};
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
