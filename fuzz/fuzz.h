// What the fuzz targets share: choices taken from the fuzzer's bytes, checks, a source that hands
// out its bytes in chosen spans, a file in memory, and what the library prints.

#pragma once

#include "platform/zqplatform.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

using namespace ZQPlatform;
using std::size_t;
using std::string;

// Ends the process, for the fuzzer to keep the input.
#define CHECK(condition)                                                                           \
    ((condition) ? void() : failCheck(#condition, __FILE__, static_cast<int>(__LINE__)))
[[noreturn]] inline void failCheck(const char* condition, const char* file, int line)
{
    std::fprintf(stderr, "%s:%d: false: %s\n", file, line, condition);
    std::abort();
}

// Takes choices from the front of the fuzzer's bytes. At their end every choice is 0 or empty.
class Input {
public:
    Input(const unsigned char* data, size_t size) : _at(data), _end(data + size) {}

    bool empty() const { return _at == _end; }
    unsigned char byte() { return empty() ? static_cast<unsigned char>(0) : *_at++; }
    // 0 to 'most'.
    size_t upTo(size_t most)
    {
        size_t value = byte();
        for (size_t range = most; range > 255; range >>= 8) value = value << 8 | byte();
        return value % (most + 1);
    }
    bool flag() { return (byte() & 1) != 0; }
    string bytes(size_t n)
    {
        const unsigned char* start = _at;
        _at += std::min(n, static_cast<size_t>(_end - _at));
        return string(start, _at);
    }
    string rest() { return bytes(static_cast<size_t>(_end - _at)); }

    // Mostly small, else close to the sizes of the buffers.
    size_t size()
    {
        static constexpr size_t bounds[] = {256, 2048, 4096, 16384, 32768, 65536};
        const size_t choice = byte();
        return choice < 200 ? choice : bounds[choice % std::size(bounds)] + byte() % 8 - 4;
    }
    // Up to 'most' bytes; repeated pieces of input stand for long text.
    string text(size_t most)
    {
        const size_t length = std::min(size(), most);
        string text = bytes(byte());
        if (text.empty()) text = "x";
        while (text.size() < length) text.append(text, 0, length - text.size());
        text.resize(length);
        return text;
    }

private:
    const unsigned char* _at;
    const unsigned char* _end;
};

// A number of 4 bytes, most significant byte first.
inline string bigEndian(size_t value)
{
    string bytes;
    for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>(value >> shift & 0xFF);
    return bytes;
}

// Hands out its bytes in spans of the given sizes, in turn. May seek.
struct Spans : zqistream {
    Spans(string data, std::vector<size_t> spans, bool seeks = false)
        : bytes(std::move(data)), sizes(std::move(spans)), seekable(seeks)
    {
        _eof = false;
    }
    static std::vector<size_t> choose(Input& input)
    {
        std::vector<size_t> sizes(1 + input.upTo(3));
        for (size_t& size : sizes) size = std::clamp<size_t>(input.size(), 1, ZQ_STREAM_BUFSIZE);
        return sizes;
    }

    // More data behind an end that may have been found.
    void append(const string& data)
    {
        bytes += data;
        _eof = false;
    }

    string bytes;
    std::vector<size_t> sizes;
    bool seekable;
    size_t next = 0, turn = 0;

protected:
    bool _zqfill() override
    {
        // Long data is not handed out byte by byte to its end: time is better spent otherwise.
        const size_t span = turn < 500 ? sizes[turn % sizes.size()] : ZQ_STREAM_BUFSIZE;
        const size_t n = std::min(span, bytes.size() - next);
        ++turn;
        if (n == 0) return zqistream::_zqfill();
        bytes.copy(reinterpret_cast<char*>(_buf), n, next);
        next += n;
        return filled(static_cast<std::ptrdiff_t>(n));
    }
    bool _zqseek(long pos) override
    {
        if (!seekable || pos < 0 || size_t(pos) > bytes.size()) return false;
        next = size_t(_offset = pos);
        _ptr = _end = _buf;
        _eof = false;
        return true;
    }
};

// A file in memory.
struct MemoryFile {
    explicit MemoryFile(const string& bytes = string()) : fd(::memfd_create("fuzz", 0))
    {
        CHECK(fd > 2 && ::write(fd, bytes.data(), bytes.size()) == ssize_t(bytes.size()));
        ::lseek(fd, 0, SEEK_SET);
    }
    ~MemoryFile() { ::close(fd); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;
    string text() const
    {
        string bytes(size_t(::lseek(fd, 0, SEEK_END)), '\0');
        CHECK(::pread(fd, bytes.data(), bytes.size(), 0) == ssize_t(bytes.size()));
        return bytes;
    }
    const int fd;
};

// What the library has printed on zqerr since the last call. The first call turns zqerr to a file.
inline string printed()
{
    static const MemoryFile file;
    static const bool taken = zqerr.openfd(file.fd, false);
    CHECK(taken);
    if (zqerr.tell() == 0) return {};
    const string lines = file.text();
    CHECK(::ftruncate(file.fd, 0) == 0 && ::lseek(file.fd, 0, SEEK_SET) == 0);
    zqerr.openfd(file.fd, false);  // its position counts from 0 again
    return lines;
}
