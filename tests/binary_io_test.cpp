#include "platform/zqpack_kernels.h"
#include "platform/zqreverse_kernels.h"
#include "support/streams.h"

#include <cmath>
#include <random>

using Words = std::vector<unsigned int>;
using Floats = std::vector<float>;

template <class T = unsigned char> static T* raw(const void* p) { return (T*)p; }

static string golden(const string& name) { return hex(readFile(ZQPLATFORM_TEST_DATA "/" + name)); }

// What 'write' writes: to memory and to a stream the same, with the same result.
template <class Write> static string written(zqsize_t result, Write write)
{
    string bytes(4096, '\xA5');
    zqosstream stream;
    EXPECT_TRUE(write(raw(bytes.data())) == result && write(stream) == result);
    const string streamed = stream.str();
    EXPECT_EQ(bytes, streamed + string(bytes.size() - streamed.size(), '\xA5'));
    return streamed;
}

static string array(zqsize_t result, const void* values, zqsize_t size, unsigned int count)
{
    return written(result,
                   [&](auto&& dst) { return ZQ_io_write_binary(dst, raw(values), size, count); });
}

// The image of the values, which has to be read back as 'back', NaN for NaN.
template <class T>
static string packed(const std::vector<T>& values, unsigned int width, zqsize_t length,
                     const std::vector<T>& back)
{
    const auto count = unsigned(values.size());
    const string bytes = written(length, [&](auto&& dst) {
        return ZQ_io_write_binary_compressed(dst, values.data(), width, count);
    });
    std::vector<T> got(count), other(count);
    ChunkSource in({bytes});
    EXPECT_EQ(ZQ_io_read_binary_compressed(raw(bytes.data()), got.data(), width, count), length);
    EXPECT_EQ(ZQ_io_read_binary_compressed(in, other.data(), width, count),
              width < 32 ? length : 4);
    EXPECT_EQ(std::memcmp(got.data(), other.data(), count * sizeof(T)), 0);
    for (unsigned int i = 0; i < count; ++i)
        EXPECT_TRUE(got[i] == back[i] || (got[i] != got[i] && back[i] != back[i])) << got[i];
    return bytes;
}

template <class Rows> static void expectPacked(const Rows& rows)
{
    for (const auto& [width, values, image, back] : rows)
        EXPECT_EQ(hex(packed(values, width, (image.size() + 1) / 3, back)), image);
}

static string reversed(string bytes, long size)
{
    for (auto at = bytes.begin(); at != bytes.end(); at += size) std::reverse(at, at + size);
    return bytes;
}

TEST(BinaryImages, AreBigEndianInMemoryAndOnStreams)
{
    const unsigned short shorts[] = {0x0102, 0xFFFE};
    const unsigned int words[] = {0x01020304, 0x80000000};
    const unsigned long longs[] = {0x0102030405060708, 0xFEDCBA9876543210};
    const float floats[] = {1.5f, -0.1f};
    const double doubles[] = {1.5, -0.1};
    const string all = array(4, "\0\x7F\x80\xFF", 1, 4) + array(4, shorts, 2, 2) +
                       array(8, words, 4, 2) + array(16, longs, 8, 2) + array(8, floats, 4, 2) +
                       array(16, doubles, 8, 2);
    EXPECT_EQ(hex(all), golden("raw.bin"));
    string strings;
    for (const string& text : {string(), string("hello"), string("\0\xFF\n", 3)})
        strings +=
            written(4 + text.size(), [&](auto&& dst) { return ZQ_io_write_binary(dst, text); });
    EXPECT_EQ(hex(strings), golden("strings.bin"));
}

TEST(BinaryNumbers, OfNoSizeAndNoneAreNotTouched)
{
    ChunkSource untouched({"abcd"});
    float number = 9;
    EXPECT_EQ(array(0, "", 4, 0) + array(0, "abcd", 0, 1) + array(0, nullptr, 4, 1), "");
    EXPECT_FALSE(ZQ_io_read_binary(untouched, raw(&number), 4, 0) ||
                 ZQ_io_read_binary_compressed(untouched, &number, 10, 0) || untouched.fills);
    EXPECT_EQ(number, 9);
}

// A twin stream moves the same elements one by one. Both must agree in result, position and hook
// calls, wherever the buffer ends and wherever the stream fails.
TEST(BinaryNumbers, AreWrittenToAStreamLikeSingleElements)
{
    const string bytes = sampleBytes(96);
    for (const unsigned int size : {2, 4, 8})
        for (size_t room = 0; room < bytes.size(); ++room) {
            FailingSink sink(ZQ_STREAM_BUFSIZE + room * 2);
            sink.write(string(ZQ_STREAM_BUFSIZE - room, 'x'));
            FailingSink twin = sink;
            EXPECT_EQ(ZQ_io_write_binary(sink, raw(bytes.data()), size, 96 / size), 96u);
            for (unsigned int i = 0; i < 96; i += size)
                twin.write(reversed(bytes, size).substr(i, size));
            EXPECT_EQ(std::tuple(sink.count(), sink.flush(), sink.flushes, sink.taken),
                      std::tuple(twin.count(), twin.flush(), twin.flushes, twin.taken));
        }
}

TEST(PackedIntegers, FillTheBitsFromTheLeastSignificantOn)
{
    const std::tuple<unsigned int, Words, string, Words> rows[] = {
        {3, {5, 1, 7, 2}, "CD 05", {5, 1, 7, 2}},
        {77, {1}, "00 00 00 01", {1}},
        // Values that do not fit spill up to the end of the byte where the next one begins,
        {3, {255, 0, 0, 0}, "FF 00", {7, 7, 3, 0}},
        // and not at all at widths of whole bytes.
        {16, {0x10001, 0}, "01 00 00 00 00", {1, 0}}};
    expectPacked(rows);
    // 31 * 138547333 is 2^32 + 27: an image of 27 bits has room for no value at all.
    const auto wrapped = [](auto&& dst) {
        return ZQ_io_write_binary_compressed(dst, raw<unsigned int>("\7"), 31, 138547333);
    };
    EXPECT_EQ(hex(written(4, wrapped)), "00 00 00 00");
}

TEST(PackedFloats, FollowTheirRange)
{
    const std::tuple<unsigned int, Floats, string, Floats> rows[] = {
        {8, {0, 1, 0.5f}, "3F 80 00 00 00 00 00 00 00 FF 80 00", {0, 1, 128 / 255.0f}},
        {4, {2.5f, 2.5f}, "40 20 00 00 40 20 00 00 00 00", {2.5f, 2.5f}},
        {4, {-0.0f, 0}, "80 00 00 00 80 00 00 00 00 00", {0, 0}},
        {0, {1, 2}, "40 00 00 00 3F 80 00 00 00", {NAN, NAN}},
        {2, {1, NAN, 4}, "40 80 00 00 3F 80 00 00 30", {1, 1, 4}},
        {2, {NAN, 1}, "7F C0 00 00 7F C0 00 00 00", {NAN, NAN}},
        // The largest value is rounded to 2^26: its one bit becomes the next value's.
        {26, {3, 0}, "40 40 00 00 00 00 00 00 00 00 00 04 00 00 00", {0, 0x1.8p-25f}},
        {32, {1.5f, -0.0f}, "3F C0 00 00 80 00 00 00", {1.5f, 0}}};
    expectPacked(rows);
    ChunkSource cut({string("\x3F\x80\0\0\x3F\x80", 6)});  // what is missing is zero
    Floats values = {9, 9};
    EXPECT_EQ(ZQ_io_read_binary_compressed(cut, values.data(), 8, 2), 4u + 2u + 3u);
    EXPECT_EQ(values, Floats({1, 1}));
}

TEST(PackedWidths, AreWhatTheDataNeeds)
{
    const std::tuple<Floats, float, unsigned int> floats[] = {
        {{}, 1.0f, 0},        {{0, 10}, 0.1f, 7},   {{0, 10}, 20.0f, 1}, {{0, 10}, 100.0f, 0},
        {{10, 0}, -5.0f, 32}, {{0, 10}, 1e-9f, 31}, {{0, 10}, 0.0f, 0},  {{NAN, 10}, 1.0f, 0}};
    for (const auto& [x, precision, width] : floats)
        EXPECT_EQ(ZQ_io_util_calc_NumBits(x.data(), unsigned(x.size()), precision), width);
}

TEST(PackedArrays, AreTheGoldenFilesAtEveryWidth)
{
    Floats heights, back(11, NAN);
    for (int i = 0; i < 11; ++i) heights.push_back(float(i * i) * 0.25f - 3);
    string integers, floats;
    const string restored = readFile(ZQPLATFORM_TEST_DATA "/packed_floats_restored.bin");
    for (unsigned int width = 0; width <= 32; ++width) {
        const zqsize_t length = width == 32 ? 44 : 11 * width / 8 + 1;
        Words values;
        for (unsigned int i = 1; i <= 11; ++i)
            values.push_back(unsigned((i * 2654435761ul & 0xFFFFFFFF) >> (32 - width)));
        integers += packed(values, width, length, values);
        if (width != 0)
            ZQ_io_read_binary(raw(&restored[44 * (width - 1)]), raw(back.data()), 4, 11);
        floats += packed(heights, width, width == 32 ? 44 : 8 + length, back);
    }
    EXPECT_EQ(hex(integers), golden("packed_integers.bin"));
    EXPECT_EQ(hex(floats), golden("packed_floats.bin"));
}

// ---- Every form of the loops, not only the one that this processor prefers: their sources are
// compiled into the test program. What the preferred form computes, the fuzz targets compare with
// models. Blocks have their own size, so that AddressSanitizer sees every access behind them.

const bool hasAvx2 = __builtin_cpu_supports("avx2");

// All that a set of forms computes of the numbers.
static string results(const PackForms& forms, const Words& numbers, unsigned int width)
{
    const size_t count = numbers.size(), length = count * width / 8 + 1;
    std::vector<unsigned char> image(length);
    Words words = numbers;
    Floats values(count);
    std::memcpy(values.data(), words.data(), 4 * count);
    forms.pack(image.data(), words.data(), count, width);
    string all = std::to_string(forms.join(words.data(), count));
    all.append(image.begin(), image.end());
    forms.unpack(image.data(), words.data(), count, width);
    all.append(raw<char>(words.data()), 4 * count);
    float range[2] = {values[0], values[0]};
    forms.extend(values.data(), count, range[0], range[1]);
    forms.packFloats(image.data(), values.data(), count, width, range[1], 0.3f);
    all.append(raw<char>(range), 8).append(image.begin(), image.end());
    forms.unpackFloats(image.data(), values.data(), count, width, 1.5f, range[0]);
    return all.append(raw<char>(values.data()), 4 * count);
}

TEST(PackForms, AgreeInEveryBit)
{
    std::mt19937 random(1);
    const unsigned int odd[] = {0, 0x80000000, 0x7FC00000, 0x7F800000, 0xFF7FFFFF, 0x5F000000};
    for (unsigned int round = 0; round < 32 * 60; ++round) {
        const unsigned int width = round % 32, mask = round & 32 ? (1u << width) - 1 : ~0u;
        Words numbers(1 + random() % (round % 3 == 0 ? 400 : 20));
        for (auto& x : numbers)
            x = mask & (random() % 16 < round % 7 ? odd[random() % 6] : random());
        ASSERT_TRUE(results(hasAvx2 ? avx2Forms() : plainForms(), numbers, width) ==
                    results(plainForms(), numbers, width))
            << width;
    }
}

TEST(ReverseForms, ReverseEveryElement)
{
    const string bytes = sampleBytes(200);
    for (const auto form : {reversePlain, hasAvx2 ? reverseSsse3 : reversePlain, reverseElements})
        for (const unsigned int size : {2, 4, 8})
            for (size_t total = 0; total <= bytes.size(); total += size) {
                const std::vector<char> src(bytes.begin(), bytes.begin() + long(total));
                std::vector<char> dst(total);
                form(raw(dst.data()), raw(src.data()), size, total / size);
                ASSERT_EQ(string(dst.data(), total), reversed({src.data(), total}, size));
            }
}
