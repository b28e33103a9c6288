#include "platform/zqpack_kernels.h"
#include "platform/zqreverse_kernels.h"
#include "support/process.h"
#include "support/streams.h"

#include <cmath>
#include <random>
#include <sys/mman.h>

using namespace ZQPlatform;

namespace {

using Words = std::vector<unsigned int>;
using Floats = std::vector<float>;

template <class T = unsigned char> T* raw(const void* p)
{
    return static_cast<T*>(const_cast<void*>(p));
}

// What 'write' writes: to memory and to a stream the same, with the same result.
template <class Write> std::string written(zqsize_t result, Write write)
{
    std::string bytes(4096, '\xA5');
    zqosstream stream;
    EXPECT_EQ(write(raw(bytes.data())), result);
    EXPECT_EQ(write(stream), result);
    const std::string streamed = stream.str();
    EXPECT_EQ(bytes, streamed + std::string(bytes.size() - streamed.size(), '\xA5'));
    return streamed;
}

std::string array(zqsize_t result, const void* values, zqsize_t size, unsigned int count)
{
    return written(result,
                   [&](auto&& dst) { return ZQ_io_write_binary(dst, raw(values), size, count); });
}

// The image of the values, which has to be read back as 'back', NaN for NaN.
template <class T>
std::string packed(const std::vector<T>& values, unsigned int width, zqsize_t length,
                   const std::vector<T>& back)
{
    const unsigned int count = unsigned(values.size());
    const std::string bytes = written(length, [&](auto&& dst) {
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

std::string reversedElements(std::string bytes, std::size_t size)
{
    for (auto at = bytes.begin(); at != bytes.end(); at += std::ptrdiff_t(size))
        std::reverse(at, at + std::ptrdiff_t(size));
    return bytes;
}

}  // namespace

TEST(BinaryNumbers, AreBigEndianInMemoryAndOnStreams)
{
    const unsigned char bytes[4] = {0x00, 0x7F, 0x80, 0xFF};
    const unsigned short shorts[2] = {0x0102, 0xFFFE};
    const unsigned int words[2] = {0x01020304, 0x80000000};
    const unsigned long longs[2] = {0x0102030405060708, 0xFEDCBA9876543210};
    const float floats[2] = {1.5f, -0.1f};
    const double doubles[2] = {1.5, -0.1};
    const std::string all = array(4, bytes, 1, 4) + array(4, shorts, 2, 2) + array(8, words, 4, 2) +
                            array(16, longs, 8, 2) + array(8, floats, 4, 2) +
                            array(16, doubles, 8, 2);
    EXPECT_EQ(hex(all), "00 7F 80 FF 01 02 FF FE 01 02 03 04 80 00 00 00 01 02 03 04 05 06 07 08 "
                        "FE DC BA 98 76 54 32 10 3F C0 00 00 BD CC CC CD 3F F8 00 00 00 00 00 00 "
                        "BF B9 99 99 99 99 99 9A");
    EXPECT_EQ(hex(all), hex(readFile(ZQPLATFORM_TEST_DATA "/raw.bin")));
}

TEST(BinaryNumbers, OfUndefinedSizeAreCopiedAndReported)
{
    CaptureErr err;
    std::string back(6, '.'), streamed = back, line = "Error: undefined block size - 3\n";
    ChunkSource source({"abcdef"});
    EXPECT_EQ(array(6, "abcdef", 3, 2), "abcdef");
    EXPECT_EQ(ZQ_io_read_binary(raw("abcdef"), raw(back.data()), 3, 2), 6u);
    EXPECT_EQ(ZQ_io_read_binary(source, raw(streamed.data()), 3, 2), 2u);
    EXPECT_EQ(back + streamed, "ab....ab....");
    EXPECT_EQ(err.text(), line + line + line + line);
}

TEST(BinaryNumbers, AreNotTouchedWithoutElements)
{
    ChunkSource source({"abcd"});
    float number = 9;
    EXPECT_EQ(array(0, "", 4, 0) + array(0, "abcd", 0, 1) + array(0, nullptr, 4, 1), "");
    EXPECT_EQ(ZQ_io_read_binary(source, raw(&number), 4, 0), 0u);
    EXPECT_EQ(ZQ_io_read_binary_compressed(source, &number, 10, 0), 0u);
    EXPECT_EQ(std::pair(source.fills, number), std::pair(0, 9.0f));
}

// A twin stream moves the same elements one by one. Both must agree in result, count, position
// and hook calls, wherever the span ends and wherever the stream fails.
TEST(BinaryNumbers, MoveAStreamLikeSingleElements)
{
    const std::string bytes = sampleBytes(96);
    for (const unsigned int size : {2, 4, 8})
        for (std::size_t cut = 0; cut < bytes.size(); ++cut) {
            ChunkSource source({bytes.substr(0, cut), bytes.substr(cut, 30)}), twin = source;
            std::string values(bytes.size(), '?'), single = values;
            const zqsize_t got = ZQ_io_read_binary(source, raw(values.data()), size, 96 / size);
            zqsize_t last = 0;
            for (unsigned int i = 0; i < 96; i += size) last = twin.read(&single[i], size);
            single = reversedElements(single, size);
            EXPECT_EQ(std::tuple(got, values, source.count(), source.tell(), source.fills),
                      std::tuple(last, single, twin.count(), twin.tell(), twin.fills));

            FailingSink sink(ZQ_STREAM_BUFSIZE + cut * 2);
            sink.write(std::string(ZQ_STREAM_BUFSIZE - cut, 'x'));
            FailingSink other = sink;
            EXPECT_EQ(ZQ_io_write_binary(sink, raw(bytes.data()), size, 96 / size), 96u);
            const std::string reversed = reversedElements(bytes, size);
            for (unsigned int i = 0; i < 96; i += size) other.write(&reversed[i], size);
            EXPECT_EQ(std::tuple(sink.count(), sink.flush(), sink.flushes, sink.taken),
                      std::tuple(other.count(), other.flush(), other.flushes, other.taken));
        }
}

TEST(BinaryStrings, FollowTheirLength)
{
    std::string all;
    for (const std::string& text :
         {std::string(), std::string("hello"), std::string("\0\xFF\n", 3)}) {
        const std::string bytes =
            written(4 + text.size(), [&](auto&& dst) { return ZQ_io_write_binary(dst, text); });
        std::string back = "old";
        EXPECT_EQ(ZQ_io_read_binary(raw(bytes.data()), back), bytes.size());
        EXPECT_EQ(back, text);
        all += bytes;
    }
    EXPECT_EQ(hex(all), "00 00 00 00 00 00 00 05 68 65 6C 6C 6F 00 00 00 03 00 FF 0A");
    EXPECT_EQ(hex(all), hex(readFile(ZQPLATFORM_TEST_DATA "/strings.bin")));
}

TEST(BinaryStrings, HaveZerosWhereTheStreamEndsEarly)
{
    const std::string five("\0\0\0\5", 4);
    const std::tuple<std::vector<std::string>, zqsize_t, std::string> rows[] = {
        {{}, 0, ""},
        {{std::string("\0\0\1", 3)}, 3, std::string(256, '\0')},
        {{five}, 4, std::string(5, '\0')},
        {{five + "he"}, 6, std::string("he\0\0\0", 5)},
        {{five.substr(0, 2), five.substr(2) + "he", "llo"}, 9, "hello"},
    };
    for (const auto& [chunks, result, expected] : rows) {
        ChunkSource source(chunks);
        std::string text = "old";
        EXPECT_EQ(ZQ_io_read_binary(source, text), result);
        EXPECT_EQ(text, expected);
    }
}

TEST(PackedIntegers, FillTheBitsFromTheLeastSignificantOn)
{
    const std::tuple<unsigned int, Words, std::string, Words> rows[] = {
        {3, {5, 1, 7, 2}, "CD 05", {5, 1, 7, 2}},
        {8, {1, 2, 3, 4}, "01 02 03 04 00", {1, 2, 3, 4}},
        {10, {1023, 1}, "FF 07 00", {1023, 1}},
        {0, {1, 2, 3, 4, 5}, "00", {0, 0, 0, 0, 0}},
        {32, {1, 0xFFFFFFFE}, "00 00 00 01 FF FF FF FE", {1, 0xFFFFFFFE}},
        {77, {1}, "00 00 00 01", {1}},
        // Values that do not fit spill up to the end of the byte where the next one begins,
        {3, {255, 0}, "FF", {7, 7}},
        {5, {0, 4095, 0}, "E0 1F", {0, 31, 7}},
        // and not at all at widths of whole bytes.
        {8, {511, 0}, "FF 00 00", {255, 0}},
        {16, {0x10001, 0}, "01 00 00 00 00", {1, 0}},
    };
    for (const auto& [width, values, image, back] : rows)
        EXPECT_EQ(hex(packed(values, width, (image.size() + 1) / 3, back)), image);
    // 31 * 138547333 is 2^32 + 27: an image of 27 bits has room for no value at all.
    const auto wrapped = [](auto&& dst) {
        return ZQ_io_write_binary_compressed(dst, raw<unsigned int>("\7"), 31, 138547333);
    };
    EXPECT_EQ(hex(written(4, wrapped)), "00 00 00 00");
}

TEST(PackedFloats, CountMissingBytesAsZero)
{
    ChunkSource source({std::string("\x3F\x80\0\0", 4), "\x3F\x80"});
    float values[] = {9, 9};
    EXPECT_EQ(ZQ_io_read_binary_compressed(source, values, 8, 2), 4u + 2u + 3u);
    EXPECT_EQ(std::pair(values[0], values[1]), std::pair(1.0f, 1.0f));
}

TEST(PackedWidths, AreWhatTheDataNeeds)
{
    const std::pair<Words, unsigned int> integers[] = {
        {{}, 0}, {{0, 0}, 0}, {{1}, 1}, {{255, 3}, 8}, {{256}, 9}, {{1 << 30}, 31}, {{~0u}, 32}};
    for (const auto& [values, width] : integers)
        EXPECT_EQ(ZQ_io_util_calc_NumBits(values.data(), unsigned(values.size())), width);
    const std::tuple<Floats, float, unsigned int> floats[] = {
        {{}, 1.0f, 0},        {{0, 10}, 0.1f, 7},   {{0, 10}, 20.0f, 1}, {{0, 10}, 100.0f, 0},
        {{10, 0}, -5.0f, 32}, {{0, 10}, 1e-9f, 31}, {{0, 10}, 0.0f, 0},  {{NAN, 10}, 1.0f, 0},
    };
    for (const auto& [values, precision, width] : floats)
        EXPECT_EQ(ZQ_io_util_calc_NumBits(values.data(), unsigned(values.size()), precision),
                  width);
}

TEST(PackedFloats, FollowTheirRange)
{
    const std::tuple<unsigned int, Floats, std::string, Floats> rows[] = {
        {8, {0, 1, 0.5f}, "3F 80 00 00 00 00 00 00 00 FF 80 00", {0, 1, 128 / 255.0f}},
        {4, {2.5f, 2.5f}, "40 20 00 00 40 20 00 00 00 00", {2.5f, 2.5f}},
        {4, {-0.0f, 0}, "80 00 00 00 80 00 00 00 00 00", {0, 0}},
        {0, {1, 2}, "40 00 00 00 3F 80 00 00 00", {NAN, NAN}},
        {2, {1, NAN, 4}, "40 80 00 00 3F 80 00 00 30", {1, 1, 4}},
        {2, {NAN, 1}, "7F C0 00 00 7F C0 00 00 00", {NAN, NAN}},
        // The largest value is rounded to 2^26: its one bit becomes the next value's.
        {26, {3, 0}, "40 40 00 00 00 00 00 00 00 00 00 04 00 00 00", {0, 0x1.8p-25f}},
        {32, {1.5f, -0.0f}, "3F C0 00 00 80 00 00 00", {1.5f, 0}},
    };
    for (const auto& [width, values, image, back] : rows)
        EXPECT_EQ(hex(packed(values, width, (image.size() + 1) / 3, back)), image);
}

TEST(PackedArrays, AreTheGoldenFilesAtEveryWidth)
{
    Floats heights, back(11, NAN);
    for (int i = 0; i < 11; ++i) heights.push_back(float(i * i) * 0.25f - 3);
    std::string integers, floats;
    const std::string restored = readFile(ZQPLATFORM_TEST_DATA "/packed_floats_restored.bin");
    for (unsigned int width = 0; width <= 32; ++width) {
        const zqsize_t length = width == 32 ? 44 : 11 * width / 8 + 1;
        Words values;
        for (unsigned long i = 1; i <= 11; ++i)
            values.push_back(unsigned((i * 2654435761 & 0xFFFFFFFF) >> (32 - width)));
        integers += packed(values, width, length, values);
        if (width != 0)
            ZQ_io_read_binary(raw(&restored[44 * (width - 1)]), raw(back.data()), 4, 11);
        floats += packed(heights, width, width == 32 ? 44 : 8 + length, back);
    }
    EXPECT_EQ(hex(integers), hex(readFile(ZQPLATFORM_TEST_DATA "/packed_integers.bin")));
    EXPECT_EQ(hex(floats), hex(readFile(ZQPLATFORM_TEST_DATA "/packed_floats.bin")));
}

// ---- Every form of the loops, not only the one that this processor prefers: their sources are
// compiled into the test program.

namespace {

const bool hasAvx2 = __builtin_cpu_supports("avx2");

// Room for 'count' values where memory ends: one byte further, and the program stops.
template <class T, int which> T* atEdge(std::size_t count)
{
    constexpr std::size_t room = 16384, page = 4096;
    static void* base =
        ::mmap(nullptr, room + page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ::mprotect(static_cast<char*>(base) + room, page, PROT_NONE);
    return reinterpret_cast<T*>(static_cast<char*>(base) + room) - count;
}

// The definition of the image: bit by bit, and bytes taken whole where a value has a part of one.
std::string packBits(const Words& values, unsigned int width)
{
    std::string image(values.size() * width / 8 + 1, '\0');
    for (std::size_t i = 0; i < values.size(); ++i)
        for (unsigned int bit = 0; bit < (width + 7) / 8 * 8; ++bit) {
            const std::size_t at = (i * width + bit) / 8;
            if (at <= (i + 1) * width / 8 && (values[i] >> bit & 1))
                image[at] = static_cast<char>(image[at] | 1 << ((i * width + bit) % 8));
        }
    return image;
}

// All that a set of forms computes of the numbers, at first the image in hex.
std::string results(const PackForms& forms, const Words& numbers, unsigned int width)
{
    const std::size_t count = numbers.size(), length = count * width / 8 + 1;
    auto* image = atEdge<unsigned char, 0>(length);
    auto* words = atEdge<unsigned int, 1>(count);
    auto* values = atEdge<float, 2>(count);
    std::memcpy(words, numbers.data(), 4 * count);
    std::memcpy(values, numbers.data(), 4 * count);
    forms.pack(image, words, count, width);
    std::string all = hex({raw<char>(image), length}) + std::to_string(forms.join(words, count));
    forms.unpack(image, words, count, width);
    all += hex({raw<char>(words), 4 * count});
    float max = values[0], min = values[0];
    forms.extend(values, count, max, min);
    forms.quantise(words, values, count, min, 0.3f);
    all +=
        hex({raw<char>(&max), 4}) + hex({raw<char>(&min), 4}) + hex({raw<char>(words), 4 * count});
    for (std::size_t i = 0; i < count; ++i) words[i] &= 0x7FFFFFFF;
    forms.restore(values, words, count, 1.5f, max);
    return all + hex({raw<char>(values), 4 * count});
}

}  // namespace

TEST(PackForms, GiveTheImageThatTheDefinitionGives)
{
    std::mt19937 random(1);
    const unsigned int odd[] = {0, 0x80000000, 0x7FC00000, 0x7F800000, 0xFF7FFFFF, 0x5F000000};
    for (unsigned int round = 0; round < 32 * 60; ++round) {
        const unsigned int width = round % 32, mask = round & 32 ? (1u << width) - 1 : ~0u;
        Words numbers(1 + random() % (round % 3 == 0 ? 400 : 20));
        for (auto& x : numbers)
            x = mask & (random() % 16 < round % 7 ? odd[random() % 6] : random());
        const std::string image = hex(packBits(numbers, width));
        const std::string plain = results(plainForms(), numbers, width);
        ASSERT_EQ(plain.substr(0, image.size()), image) << width;
        ASSERT_EQ(results(hasAvx2 ? avx2Forms() : plainForms(), numbers, width), plain) << width;
        const std::string back = hex({raw<char>(numbers.data()), 4 * numbers.size()});
        ASSERT_TRUE(mask == ~0u || plain.find(back) != std::string::npos) << width;
    }
}

TEST(ReverseForms, ReverseEveryElement)
{
    const std::string bytes = sampleBytes(200);
    for (const auto form : {reversePlain, hasAvx2 ? reverseSsse3 : reversePlain, reverseElements})
        for (const unsigned int size : {2, 4, 8})
            for (std::size_t total = 0; total <= bytes.size(); total += size) {
                char *src = atEdge<char, 0>(total), *dst = atEdge<char, 1>(total);
                std::memcpy(src, bytes.data(), total);
                form(raw(dst), raw(src), size, total / size);
                ASSERT_EQ(std::string(dst, total), reversedElements({src, total}, size));
            }
}
