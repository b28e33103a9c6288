#include "platform/zqpack_kernels.h"
#include "platform/zqreverse_kernels.h"
#include "support/streams.h"

#include <cmath>
#include <random>
#include <sys/mman.h>

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

TEST(BinaryNumbers, AreBigEndianInMemoryAndOnStreams)
{
    const unsigned short shorts[] = {0x0102, 0xFFFE};
    const unsigned int words[] = {0x01020304, 0x80000000};
    const unsigned long longs[] = {0x0102030405060708, 0xFEDCBA9876543210};
    const float floats[] = {1.5f, -0.1f};
    const double doubles[] = {1.5, -0.1};
    const string all = array(4, "\0\x7F\x80\xFF", 1, 4) + array(4, shorts, 2, 2) +
                       array(8, words, 4, 2) + array(16, longs, 8, 2) + array(8, floats, 4, 2) +
                       array(16, doubles, 8, 2);
    EXPECT_EQ(hex(all), "00 7F 80 FF 01 02 FF FE 01 02 03 04 80 00 00 00 01 02 03 04 05 06 07 08 "
                        "FE DC BA 98 76 54 32 10 3F C0 00 00 BD CC CC CD 3F F8 00 00 00 00 00 00 "
                        "BF B9 99 99 99 99 99 9A");
    EXPECT_EQ(hex(all), golden("raw.bin"));
}

TEST(BinaryNumbers, OfUndefinedSizeAreCopiedAndReportedAndNoneAreNotTouched)
{
    CaptureErr err;
    string back(6, '.'), streamed = back, line = "Error: undefined block size - 3\n";
    ChunkSource source({"abcdef"}), untouched({"abcd"});
    EXPECT_EQ(array(6, "abcdef", 3, 2), "abcdef");
    EXPECT_EQ(ZQ_io_read_binary(raw("abcdef"), raw(back.data()), 3, 2), 6u);
    EXPECT_EQ(ZQ_io_read_binary(source, raw(streamed.data()), 3, 2), 2u);
    EXPECT_EQ(back + streamed, "ab....ab....");
    EXPECT_EQ(err.text(), line + line + line + line);

    float number = 9;
    EXPECT_EQ(array(0, "", 4, 0) + array(0, "abcd", 0, 1) + array(0, nullptr, 4, 1), "");
    EXPECT_FALSE(ZQ_io_read_binary(untouched, raw(&number), 4, 0) ||
                 ZQ_io_read_binary_compressed(untouched, &number, 10, 0) || untouched.fills);
    EXPECT_EQ(number, 9);
}

// A twin stream moves the same elements one by one. Both must agree in result, count, position
// and hook calls, wherever the span ends and wherever the stream fails.
TEST(BinaryNumbers, MoveAStreamLikeSingleElements)
{
    const string bytes = sampleBytes(96);
    for (const unsigned int size : {2, 4, 8})
        for (size_t cut = 0; cut < bytes.size(); ++cut) {
            ChunkSource source({bytes.substr(0, cut), bytes.substr(cut, 30)}), twin = source;
            string values(bytes.size(), '?'), single = values;
            const zqsize_t got = ZQ_io_read_binary(source, raw(values.data()), size, 96 / size);
            zqsize_t last = 0;
            for (unsigned int i = 0; i < 96; i += size) last = twin.read(&single[i], size);
            EXPECT_EQ(
                std::tuple(got, values, source.count(), source.tell(), source.fills),
                std::tuple(last, reversed(single, size), twin.count(), twin.tell(), twin.fills));

            FailingSink sink(ZQ_STREAM_BUFSIZE + cut * 2);
            sink.write(string(ZQ_STREAM_BUFSIZE - cut, 'x'));
            FailingSink other = sink;
            EXPECT_EQ(ZQ_io_write_binary(sink, raw(bytes.data()), size, 96 / size), 96u);
            for (unsigned int i = 0; i < 96; i += size)
                other.write(reversed(bytes, size).substr(i, size));
            EXPECT_EQ(std::tuple(sink.count(), sink.flush(), sink.flushes, sink.taken),
                      std::tuple(other.count(), other.flush(), other.flushes, other.taken));
        }
}

TEST(BinaryStrings, FollowTheirLengthAndHaveZerosWhereTheStreamEndsEarly)
{
    string all, back;
    for (const string& text : {string(), string("hello"), string("\0\xFF\n", 3)}) {
        const string bytes =
            written(4 + text.size(), [&](auto&& dst) { return ZQ_io_write_binary(dst, text); });
        EXPECT_TRUE(ZQ_io_read_binary(raw(bytes.data()), back) == bytes.size() && back == text);
        all += bytes;
    }
    EXPECT_EQ(hex(all), "00 00 00 00 00 00 00 05 68 65 6C 6C 6F 00 00 00 03 00 FF 0A");
    EXPECT_EQ(hex(all), golden("strings.bin"));

    const string five("\0\0\0\5", 4);
    const std::tuple<std::vector<string>, zqsize_t, string> rows[] = {
        {{}, 0, ""},
        {{string("\0\0\1", 3)}, 3, string(256, '\0')},
        {{five}, 4, string(5, '\0')},
        {{five + "he"}, 6, string("he\0\0\0", 5)},
        {{five.substr(0, 2), five.substr(2) + "he", "llo"}, 9, "hello"}};
    for (const auto& [chunks, result, expected] : rows) {
        ChunkSource source(chunks);
        EXPECT_TRUE(ZQ_io_read_binary(source, back) == result && back == expected) << back;
    }
}

TEST(PackedIntegers, FillTheBitsFromTheLeastSignificantOn)
{
    const std::tuple<unsigned int, Words, string, Words> rows[] = {
        {3, {5, 1, 7, 2}, "CD 05", {5, 1, 7, 2}},
        {8, {1, 2, 3, 4}, "01 02 03 04 00", {1, 2, 3, 4}},
        {10, {1023, 1}, "FF 07 00", {1023, 1}},
        {0, {1, 2, 3, 4, 5}, "00", {0, 0, 0, 0, 0}},
        {32, {1, 0xFFFFFFFE}, "00 00 00 01 FF FF FF FE", {1, 0xFFFFFFFE}},
        {77, {1}, "00 00 00 01", {1}},
        // Values that do not fit spill up to the end of the byte where the next one begins,
        {3, {255, 0}, "FF", {7, 7}},
        {3, {255, 0, 0, 0}, "FF 00", {7, 7, 3, 0}},
        {5, {0, 4095, 0}, "E0 1F", {0, 31, 7}},
        // and not at all at widths of whole bytes.
        {8, {511, 0}, "FF 00 00", {255, 0}},
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
    const std::pair<Words, unsigned int> integers[] = {
        {{}, 0}, {{0, 0}, 0}, {{1}, 1}, {{255, 3}, 8}, {{256}, 9}, {{1 << 30}, 31}, {{~0u}, 32}};
    for (const auto& [values, width] : integers)
        EXPECT_EQ(ZQ_io_util_calc_NumBits(values.data(), unsigned(values.size())), width);
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
// compiled into the test program.

const bool hasAvx2 = __builtin_cpu_supports("avx2");

// Room for 'count' values where memory ends: one byte further, and the program stops.
template <class T, int which> static T* atEdge(size_t count)
{
    constexpr size_t room = 16384, page = 4096;
    static char* const base = raw<char>(
        ::mmap(nullptr, room + page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    ::mprotect(base + room, page, PROT_NONE);
    return raw<T>(base + room) - count;
}

// The definition of the image: bit by bit, and bytes taken whole where a value has a part of one.
static string packBits(const Words& values, unsigned int width)
{
    string image(values.size() * width / 8 + 1, '\0');
    for (size_t i = 0; i < values.size(); ++i)
        for (unsigned int bit = 0; bit < (width + 7) / 8 * 8; ++bit) {
            const size_t at = (i * width + bit) / 8;
            if (at <= (i + 1) * width / 8 && (values[i] >> bit & 1))
                image[at] |= char(1 << ((i * width + bit) % 8));
        }
    return image;
}

// All that a set of forms computes of the numbers, at first the image.
static string results(const PackForms& forms, const Words& numbers, unsigned int width)
{
    const size_t count = numbers.size(), length = count * width / 8 + 1;
    auto* image = atEdge<unsigned char, 0>(length);
    auto* words = atEdge<unsigned int, 1>(count);
    auto* values = atEdge<float, 2>(count);
    std::memcpy(words, numbers.data(), 4 * count);
    std::memcpy(values, numbers.data(), 4 * count);
    forms.pack(image, words, count, width);
    string all = string(raw<char>(image), length) + std::to_string(forms.join(words, count));
    forms.unpack(image, words, count, width);
    all.append(raw<char>(words), 4 * count);
    float range[2] = {values[0], values[0]};
    forms.extend(values, count, range[0], range[1]);
    forms.quantise(words, values, count, range[1], 0.3f);
    all.append(raw<char>(range), 8).append(raw<char>(words), 4 * count);
    for (size_t i = 0; i < count; ++i) words[i] &= 0x7FFFFFFF;
    forms.restore(values, words, count, 1.5f, range[0]);
    return all.append(raw<char>(values), 4 * count);
}

TEST(PackForms, GiveTheImageThatTheDefinitionGives)
{
    std::mt19937 random(1);
    const unsigned int odd[] = {0, 0x80000000, 0x7FC00000, 0x7F800000, 0xFF7FFFFF, 0x5F000000};
    for (unsigned int round = 0; round < 32 * 60; ++round) {
        const unsigned int width = round % 32, mask = round & 32 ? (1u << width) - 1 : ~0u;
        Words numbers(1 + random() % (round % 3 == 0 ? 400 : 20));
        for (auto& x : numbers)
            x = mask & (random() % 16 < round % 7 ? odd[random() % 6] : random());
        const string plain = results(plainForms(), numbers, width);
        ASSERT_EQ(plain.find(packBits(numbers, width)), 0u) << width;
        ASSERT_TRUE(results(hasAvx2 ? avx2Forms() : plainForms(), numbers, width) == plain);
        const string back(raw<char>(numbers.data()), 4 * numbers.size());
        ASSERT_TRUE(mask == ~0u || plain.find(back) != string::npos) << width;
    }
}

TEST(ReverseForms, ReverseEveryElement)
{
    const string bytes = sampleBytes(200);
    for (const auto form : {reversePlain, hasAvx2 ? reverseSsse3 : reversePlain, reverseElements})
        for (const unsigned int size : {2, 4, 8})
            for (size_t total = 0; total <= bytes.size(); total += size) {
                char *src = atEdge<char, 0>(total), *dst = atEdge<char, 1>(total);
                std::memcpy(src, bytes.data(), total);
                form(raw(dst), raw(src), size, total / size);
                ASSERT_EQ(string(dst, total), reversed({src, total}, size));
            }
}
