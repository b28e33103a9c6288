// Scripted streams and deletion probes.

#pragma once

#include "platform/zqplatform.h"
#include "support/process.h"

#include <algorithm>
#include <vector>

using namespace ZQPlatform;
using std::size_t;

// A source that hands out the given chunks, one per fill, and counts its hooks. It cannot seek.
struct ChunkSource : zqistream {
    explicit ChunkSource(std::vector<string> chunks) : _chunks(std::move(chunks)) { _eof = false; }
    bool _zqfill() override
    {
        ++fills;
        if (_next == _chunks.size()) return zqistream::_zqfill();
        const string& chunk = _chunks[_next++];
        _offset += _ptr - _buf;
        _end = std::copy(chunk.begin(), chunk.end(), _ptr = _buf);
        return true;
    }
    bool _zqseek(long) override { return ++seeks == 0; }
    std::vector<string> _chunks;
    size_t _next = 0;
    int fills = 0, seeks = 0;  // calls so far
};

// Takes 'room' bytes, then fails.
struct FailingSink : zqostream {
    explicit FailingSink(size_t room) : _room(room) {}
    bool _zqflush() override
    {
        ++flushes;
        const size_t pending = _ptr - _buf, fitting = std::min(pending, _room);
        taken.append(reinterpret_cast<const char*>(_buf), fitting);
        _room -= fitting;
        if ((_eof = pending > fitting)) return false;
        _offset += _ptr - _buf;
        _ptr = _buf;
        return true;
    }
    size_t _room;
    string taken;
    int flushes = 0;  // calls so far
};

// Counts its deletions.
template <class Base> struct DeleteProbe : Base {
    template <class... Args>
    explicit DeleteProbe(int& count, Args&&... args) : Base(args...), deletions(count)
    {
    }
    ~DeleteProbe() override { ++deletions; }
    int& deletions;
};

// All that is left to read.
inline string rest(zqistream& in)
{
    string bytes;
    const zqsize_t count = in.read(bytes);
    EXPECT_EQ(count, bytes.size());
    return bytes;
}

// Bytes as "1F 8B ...".
inline string hex(const string& bytes)
{
    string text;
    for (const unsigned char byte : bytes)
        text += {' ', "0123456789ABCDEF"[byte >> 4], "0123456789ABCDEF"[byte & 15]};
    return bytes.empty() ? text : text.substr(1);
}

// Bytes that compress a little, line ends and the gzip magic among them.
inline string sampleBytes(size_t n)
{
    string bytes(n, 0);
    unsigned int state = 12345;
    for (char& c : bytes) {
        state = state * 1103515245u + 12345u;
        c = "etaoin shrd\n\t\x1F\x8B\0\xFF"[state >> 16 & 15];
    }
    return bytes;
}
