#include "binary_io.h"

#include "zqpack_kernels.h"
#include "zqreverse_kernels.h"
#include "zqspan.h"
#include "zqstackblock.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <limits>

namespace ZQPlatform {

namespace {

const unsigned char* bytesOf(const void* p)
{
    return static_cast<const unsigned char*>(p);
}

unsigned char* bytesOf(void* p)
{
    return static_cast<unsigned char*>(p);
}

}  // namespace

// ---- Arrays of numbers

namespace {

constexpr zqsize_t largestElement = 8;

bool isReordered(zqsize_t size)
{
    return (size == 2 || size == 4 || size == 8) && !ZQBigEndian();
}

void reportUndefinedSize(zqsize_t size)
{
    if (size != 1 && !isReordered(size) && !ZQBigEndian())
        zqerr << "Error: undefined block size - " << size << zqendl;
}

// The bytes that reading takes where elements are not reordered.
zqsize_t bytesToCopy(zqsize_t size, unsigned int count)
{
    return ZQBigEndian() ? size * count : count;
}

// One write() per element to an observer, but elements that fit the span are built in it.
void writeReordered(zqostream& dst, const unsigned char* src, zqsize_t size, zqsize_t count)
{
    const int sizeBits = __builtin_ctzl(size);
    while (count != 0) {
        const zqsize_t inSpan = std::min(count, StreamSpan::left(dst) >> sizeBits);
        if (inSpan != 0) {
            reverseElements(StreamSpan::at(dst), src, size, inSpan);
            StreamSpan::advance(dst, inSpan * size, size);
        } else {
            unsigned char element[largestElement];
            reversePlain(element, src, size, 1);
            dst.write(element, size);
        }
        const zqsize_t done = std::max(inSpan, zqsize_t(1));
        src += done * size;
        count -= done;
    }
}

// One read() per element to an observer; returns the result of the last one.
zqsize_t readReordered(zqistream& src, unsigned char* dst, zqsize_t size, zqsize_t count)
{
    const int sizeBits = __builtin_ctzl(size);
    zqsize_t got = 0;
    while (count != 0) {
        const zqsize_t inSpan = std::min(count, StreamSpan::left(src) >> sizeBits);
        if (inSpan != 0) {
            reverseElements(dst, StreamSpan::at(src), size, inSpan);
            StreamSpan::advance(src, inSpan * size, size);
            got = size;
        } else {
            got = src.read(dst, size);
            reversePlain(dst, dst, size, 1);
        }
        const zqsize_t done = std::max(inSpan, zqsize_t(1));
        dst += done * size;
        count -= done;
    }
    return got;
}

}  // namespace

zqsize_t ZQ_io_write_binary(unsigned char* dst, const unsigned char* src, zqsize_t size,
                            unsigned int count)
{
    if (!src || size == 0)
        return 0;
    const zqsize_t total = size * count;
    if (isReordered(size)) {
        reverseElements(dst, src, size, count);
        return total;
    }
    if (total != 0)
        std::memcpy(dst, src, total);
    reportUndefinedSize(size);
    return total;
}

zqsize_t ZQ_io_write_binary(zqostream& dst, const unsigned char* src, zqsize_t size,
                            unsigned int count)
{
    if (!src || size == 0)
        return 0;
    const zqsize_t total = size * count;
    if (isReordered(size)) {
        writeReordered(dst, src, size, count);
        return total;
    }
    dst.write(src, total);
    reportUndefinedSize(size);
    return total;
}

zqsize_t ZQ_io_read_binary(const unsigned char* src, unsigned char* dst, zqsize_t size,
                           unsigned int count)
{
    if (!dst || size == 0)
        return 0;
    if (isReordered(size)) {
        reverseElements(dst, src, size, count);
        return size * count;
    }
    if (count != 0)
        std::memcpy(dst, src, bytesToCopy(size, count));
    reportUndefinedSize(size);
    return size * count;
}

zqsize_t ZQ_io_read_binary(zqistream& src, unsigned char* dst, zqsize_t size, unsigned int count)
{
    if (!dst || size == 0 || size * count == 0)
        return 0;
    if (isReordered(size))
        return readReordered(src, dst, size, count);
    const zqsize_t got = src.read(dst, bytesToCopy(size, count));
    reportUndefinedSize(size);
    return got;
}

// ---- Strings

namespace {

constexpr zqsize_t lengthSize = 4;

// Most significant byte first, which is what htonl() and ntohl() are for.
void putLength(unsigned char* dst, std::uint32_t length)
{
    const std::uint32_t image = ::htonl(length);
    std::memcpy(dst, &image, lengthSize);
}

std::uint32_t getLength(const unsigned char* src)
{
    std::uint32_t image;
    std::memcpy(&image, src, lengthSize);
    return ::ntohl(image);
}

bool lengthFits(const std::string& s)
{
    if (s.size() <= std::numeric_limits<unsigned int>::max())
        return true;
    static_cast<void>(std::fputs("Attempting to write a string larger than 4GB\n", stderr));
    return false;
}

}  // namespace

zqsize_t ZQ_io_write_binary(unsigned char* dst, const std::string& s)
{
    if (!lengthFits(s))
        return 0;
    const auto length = static_cast<unsigned int>(s.size());
    putLength(dst, length);
    std::memcpy(dst + lengthSize, s.data(), length);
    return lengthSize + length;
}

namespace {

[[gnu::cold]] void writeAcrossSpan(zqostream& dst, const std::string& s)
{
    const auto length = static_cast<unsigned int>(s.size());
    ZQ_io_write_binary(dst, bytesOf(&length), lengthSize, 1);
    dst.write(s.data(), length);
}

}  // namespace

zqsize_t ZQ_io_write_binary(zqostream& dst, const std::string& s)
{
    if (!lengthFits(s))
        return 0;
    const zqsize_t length = s.size();
    const zqsize_t total = lengthSize + length;
    if (total >= StreamSpan::left(dst)) {
        writeAcrossSpan(dst, s);
        return total;
    }
    unsigned char* const at = StreamSpan::at(dst);
    StreamSpan::advance(dst, total, length);
    putLength(at, static_cast<std::uint32_t>(length));
    std::memcpy(at + lengthSize, s.data(), length);
    return total;
}

zqsize_t ZQ_io_read_binary(const unsigned char* src, std::string& s)
{
    const std::uint32_t length = getLength(src);
    s.assign(reinterpret_cast<const char*>(src + lengthSize), length);
    return lengthSize + length;
}

namespace {

// Returns the bytes that were there; behind the end of the stream the text is zeros.
[[gnu::cold]] zqsize_t readText(zqistream& src, std::string& s, unsigned int length)
{
    std::string fresh(length, '\0');
    const zqsize_t got = ZQ_io_read_binary(src, bytesOf(fresh.data()), 1, length);
    s.swap(fresh);
    return got;
}

[[gnu::cold]] zqsize_t readAcrossSpan(zqistream& src, std::string& s)
{
    unsigned int length = 0;
    const zqsize_t got = ZQ_io_read_binary(src, bytesOf(&length), lengthSize, 1);
    return got + readText(src, s, length);
}

}  // namespace

zqsize_t ZQ_io_read_binary(zqistream& src, std::string& s)
{
    const unsigned char* const at = StreamSpan::at(src);
    const zqsize_t left = StreamSpan::left(src);
    if (left < lengthSize)
        return readAcrossSpan(src, s);
    const std::uint32_t length = getLength(at);
    StreamSpan::advance(src, lengthSize, lengthSize);
    if (length == 0 || length > left - lengthSize)
        return lengthSize + readText(src, s, length);
    s.assign(reinterpret_cast<const char*>(at + lengthSize), length);
    StreamSpan::advance(src, length, length);
    return lengthSize + length;
}

// ---- Packed arrays

namespace {

constexpr unsigned int rawWidth = 32;  // from here on values are stored as they are
constexpr zqsize_t rawSize = 4;
constexpr zqsize_t groupSize = 8;  // so many values end at the end of a byte, at any width

unsigned int bitLength(unsigned int value)
{
    return value == 0 ? 0 : 32 - static_cast<unsigned int>(__builtin_clz(value));
}

unsigned int valueMask(unsigned int width)
{
    return (1u << width) - 1;
}

zqsize_t packedLength(unsigned int width, unsigned int count)
{
    return width * count / 8 + 1;
}

// All of the values, unless the number of bits wraps 32 bits.
zqsize_t valuesInImage(unsigned int width, unsigned int count)
{
    const unsigned int bits = width * count;
    return zqsize_t(width) * count == bits ? count : bits / width;
}

// Packs an array piece by piece into one image, by calls of pack(image, i, n) for n values from
// the i-th on. Every piece but the last has whole groups, and so ends with a byte; a last value
// that is too wide may spill into the first byte behind it.
template <class Pack>
void packInPieces(unsigned char* image, zqsize_t count, unsigned int width, Pack pack)
{
    unsigned char spill = 0;
    for (zqsize_t i = 0; i < count; i += packPiece) {
        const zqsize_t n = std::min(packPiece, count - i);
        pack(image, i, n);
        *image = static_cast<unsigned char>(*image | spill);
        image += n / groupSize * width;
        spill = *image;
    }
}

void clearBehind(unsigned char* image, zqsize_t packed, unsigned int width, unsigned int count)
{
    const zqsize_t written = packed == 0 ? 0 : packed * width / 8 + 1;
    std::memset(image + written, 0, packedLength(width, count) - written);
}

void packIntegers(unsigned char* image, const unsigned int* values, unsigned int width,
                  unsigned int count)
{
    const zqsize_t packed = valuesInImage(width, count);
    clearBehind(image, packed, width, count);
    packInPieces(image, packed, width, [=](unsigned char* at, zqsize_t i, zqsize_t n) {
        packForms().pack(at, values + i, n, width);
    });
}

void unpackIntegers(const unsigned char* image, unsigned int* values, unsigned int width,
                    unsigned int count)
{
    const zqsize_t packed = valuesInImage(width, count);
    packForms().unpack(image, values, packed, width);
    std::fill(values + packed, values + count, 0u);
}

// Lets fill(image) build an image, then writes it as by one write() of all of it.
template <class Fill> void writeImage(zqostream& dst, zqsize_t length, Fill fill)
{
    if (length <= StreamSpan::left(dst)) {
        fill(StreamSpan::at(dst));
        StreamSpan::advance(dst, length, length);
        return;
    }
    StackBlock block(length);
    fill(bytesOf(block.data()));
    dst.write(block.data(), length);
}

// Reads an image as by one read() of all of it and gives it to use(image).
template <class Use> void readImage(zqistream& src, zqsize_t length, Use use)
{
    if (length <= StreamSpan::left(src)) {
        use(StreamSpan::at(src));
        StreamSpan::advance(src, length, length);
        return;
    }
    StackBlock block(length);
    const zqsize_t got = src.read(block.data(), length);
    std::memset(block.data() + got, 0, length - got);
    use(bytesOf(block.data()));
}

}  // namespace

unsigned int ZQ_io_util_calc_NumBits(const unsigned int* values, unsigned int count)
{
    if (!values || count == 0)
        return 0;
    return bitLength(packForms().join(values, count));
}

zqsize_t ZQ_io_write_binary_compressed(unsigned char* dst, const unsigned int* values,
                                       unsigned int width, unsigned int count)
{
    if (!values || count == 0)
        return 0;
    if (width >= rawWidth)
        return ZQ_io_write_binary(dst, bytesOf(values), rawSize, count);
    packIntegers(dst, values, width, count);
    return packedLength(width, count);
}

zqsize_t ZQ_io_write_binary_compressed(zqostream& dst, const unsigned int* values,
                                       unsigned int width, unsigned int count)
{
    if (!values || count == 0)
        return 0;
    if (width >= rawWidth)
        return ZQ_io_write_binary(dst, bytesOf(values), rawSize, count);
    const zqsize_t length = packedLength(width, count);
    writeImage(dst, length,
               [&](unsigned char* image) { packIntegers(image, values, width, count); });
    return length;
}

zqsize_t ZQ_io_read_binary_compressed(const unsigned char* src, unsigned int* values,
                                      unsigned int width, unsigned int count)
{
    if (!values || count == 0)
        return 0;
    if (width >= rawWidth)
        return ZQ_io_read_binary(src, bytesOf(values), rawSize, count);
    unpackIntegers(src, values, width, count);
    return packedLength(width, count);
}

zqsize_t ZQ_io_read_binary_compressed(zqistream& src, unsigned int* values, unsigned int width,
                                      unsigned int count)
{
    if (!values || count == 0)
        return 0;
    if (width >= rawWidth)
        return ZQ_io_read_binary(src, bytesOf(values), rawSize, count);
    const zqsize_t length = packedLength(width, count);
    readImage(src, length,
              [&](const unsigned char* image) { unpackIntegers(image, values, width, count); });
    return length;
}

// ---- Packed floats

namespace {

struct Range {
    float max = 0;
    float min = 0;
};

constexpr zqsize_t rangeSize = 2 * rawSize;

Range rangeOf(const float* values, unsigned int count)
{
    Range range{values[0], values[0]};
    packForms().extend(values, count, range.max, range.min);
    return range;
}

void packFloats(unsigned char* image, const float* values, unsigned int width, unsigned int count,
                Range range)
{
    const bool isEmpty = !(range.max > range.min);  // NaN included
    const zqsize_t packed = isEmpty ? 0 : valuesInImage(width, count);
    clearBehind(image, packed, width, count);
    if (isEmpty)
        return;
    const float factor = (1.0f / (range.max - range.min)) * static_cast<float>(valueMask(width));
    packInPieces(image, packed, width, [=](unsigned char* at, zqsize_t i, zqsize_t n) {
        packForms().packFloats(at, values + i, n, width, range.min, factor);
    });
}

void unpackFloats(const unsigned char* image, float* values, unsigned int width, unsigned int count,
                  Range range)
{
    const zqsize_t packed = valuesInImage(width, count);
    const float step = (1.0f / static_cast<float>(valueMask(width))) * (range.max - range.min);
    if (std::isnan(step)) {
        // Which of two NaNs a sum keeps is the compiler's choice: it is not formed.
        std::fill(values, values + count, step);
        return;
    }
    packForms().unpackFloats(image, values, packed, width, range.min, step);
    std::fill(values + packed, values + count, 0.0f * step + range.min);
}

}  // namespace

unsigned int ZQ_io_util_calc_NumBits(const float* values, unsigned int count, float precision)
{
    if (!values || count == 0)
        return 0;
    const Range range = rangeOf(values, count);
    return bitLength(lowWord((range.max - range.min) / precision + 0.5f));
}

zqsize_t ZQ_io_write_binary_compressed(unsigned char* dst, const float* values, unsigned int width,
                                       unsigned int count)
{
    if (!values || count == 0)
        return 0;
    if (width >= rawWidth)
        return ZQ_io_write_binary(dst, bytesOf(values), rawSize, count);
    const Range range = rangeOf(values, count);
    ZQ_io_write_binary(dst, bytesOf(&range.max), rawSize, 1);
    ZQ_io_write_binary(dst + rawSize, bytesOf(&range.min), rawSize, 1);
    packFloats(dst + rangeSize, values, width, count, range);
    return rangeSize + packedLength(width, count);
}

zqsize_t ZQ_io_write_binary_compressed(zqostream& dst, const float* values, unsigned int width,
                                       unsigned int count)
{
    if (!values || count == 0)
        return 0;
    if (width >= rawWidth)
        return ZQ_io_write_binary(dst, bytesOf(values), rawSize, count);
    const Range range = rangeOf(values, count);
    ZQ_io_write_binary(dst, bytesOf(&range.max), rawSize, 1);
    ZQ_io_write_binary(dst, bytesOf(&range.min), rawSize, 1);
    const zqsize_t length = packedLength(width, count);
    writeImage(dst, length,
               [&](unsigned char* image) { packFloats(image, values, width, count, range); });
    return rangeSize + length;
}

zqsize_t ZQ_io_read_binary_compressed(const unsigned char* src, float* values, unsigned int width,
                                      unsigned int count)
{
    if (!values || count == 0)
        return 0;
    if (width >= rawWidth)
        return ZQ_io_read_binary(src, bytesOf(values), rawSize, count);
    const zqsize_t length = rangeSize + packedLength(width, count);
    const std::less<const unsigned char*> before;
    if (before(src, bytesOf(values + count)) && before(bytesOf(values), src + length)) {
        // The values would overwrite what of the image is still to be read.
        const std::string image(reinterpret_cast<const char*>(src), length);
        return ZQ_io_read_binary_compressed(bytesOf(image.data()), values, width, count);
    }
    Range range;
    ZQ_io_read_binary(src, bytesOf(&range.max), rawSize, 1);
    ZQ_io_read_binary(src + rawSize, bytesOf(&range.min), rawSize, 1);
    unpackFloats(src + rangeSize, values, width, count, range);
    return length;
}

zqsize_t ZQ_io_read_binary_compressed(zqistream& src, float* values, unsigned int width,
                                      unsigned int count)
{
    if (!values || count == 0)
        return 0;
    if (width >= rawWidth)
        return ZQ_io_read_binary(src, bytesOf(values), rawSize, count);
    Range range;
    zqsize_t header = ZQ_io_read_binary(src, bytesOf(&range.max), rawSize, 1);
    header += ZQ_io_read_binary(src, bytesOf(&range.min), rawSize, 1);
    const zqsize_t length = packedLength(width, count);
    readImage(src, length, [&](const unsigned char* image) {
        unpackFloats(image, values, width, count, range);
    });
    return header + length;
}

}  // namespace ZQPlatform
