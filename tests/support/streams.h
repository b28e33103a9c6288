// Scripted streams, deletion probes, and the battery that every input stream passes.

#ifndef ZQPLATFORM_TESTS_STREAMS_H
#define ZQPLATFORM_TESTS_STREAMS_H

#include "platform/zqplatform.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <utility>
#include <vector>

// A source that hands out the given chunks, one per fill, and counts its hooks. It cannot seek.
class ChunkSource : public ZQPlatform::zqistream {
public:
    explicit ChunkSource(std::vector<std::string> chunks) : _chunks(std::move(chunks))
    {
        _eof = false;
    }
    int fills = 0, seeks = 0;  // calls so far

protected:
    bool _zqfill() override
    {
        ++fills;
        if (_next == _chunks.size()) return zqistream::_zqfill();
        const std::string& chunk = _chunks[_next++];
        _offset += _ptr - _buf;
        std::copy(chunk.begin(), chunk.end(), _ptr = _buf);
        _end = _buf + chunk.size();
        return true;
    }
    bool _zqseek(long) override { return ++seeks == 0; }

private:
    std::vector<std::string> _chunks;
    std::size_t _next = 0;
};

// Takes 'room' bytes, then fails.
class FailingSink : public ZQPlatform::zqostream {
public:
    explicit FailingSink(std::size_t room) : _room(room) {}
    std::string taken;
    int flushes = 0;  // calls so far

protected:
    bool _zqflush() override
    {
        ++flushes;
        const auto pending = static_cast<std::size_t>(_ptr - _buf);
        taken.append(reinterpret_cast<const char*>(_buf), std::min(pending, _room));
        _eof = pending > _room;
        _room -= std::min(pending, _room);
        if (_eof) return false;
        _offset += _ptr - _buf;
        _ptr = _buf;
        return true;
    }

private:
    std::size_t _room;
};

// Counts its deletions.
template <class Base> class DeleteProbe : public Base {
public:
    template <class... Args>
    explicit DeleteProbe(int& deletions, Args&&... args)
        : Base(std::forward<Args>(args)...), _deletions(deletions)
    {
    }
    ~DeleteProbe() override { ++_deletions; }

private:
    int& _deletions;
};

// Bytes as "1F 8B ...".
inline std::string hex(const std::string& bytes)
{
    std::string text;
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        text += {"0123456789ABCDEF"[byte >> 4], "0123456789ABCDEF"[byte & 15], ' '};
    }
    return text.substr(0, text.empty() ? 0 : text.size() - 1);
}

// Bytes that compress a little, line ends and the gzip magic among them.
inline std::string sampleBytes(std::size_t n)
{
    std::string bytes(n, 0);
    unsigned int state = 12345;
    for (char& c : bytes) {
        state = state * 1103515245u + 12345u;
        c = "etaoin shrd\n\t\x1F\x8B\0\xFF"[state >> 16 & 15];
    }
    return bytes;
}

// What every input stream owes its callers. 'make' returns a fresh stream over 'bytes' as a
// pointer that deletes it; seekable: it can go back to any position, and knows where it is.
template <class Make> void checkInput(Make make, const std::string& bytes, bool seekable)
{
    std::string got, part;
    for (const std::size_t step : {1, 2, 7, 4096, 65535, 65536, 65537}) {
        auto in = make();
        for (got.clear(); in->read(part, step) != 0;) got += part;
        EXPECT_TRUE(in->eof() && got == bytes) << got.size() << " bytes in steps of " << step;
    }
    EXPECT_EQ(make()->read(got), bytes.size());
    EXPECT_TRUE(got == bytes);
    auto in = make();
    const std::size_t half = bytes.size() / 2;
    EXPECT_TRUE(in->skip(static_cast<long>(half)));
    in->read(got);
    EXPECT_TRUE(got == bytes.substr(half));
    EXPECT_FALSE(make()->skip(static_cast<long>(bytes.size()) + 1));
    if (!seekable) return;
    for (const std::size_t pos : {half, std::size_t{0}, bytes.size() - 1, half / 2}) {
        ASSERT_TRUE(in->seek(static_cast<long>(pos))) << pos;
        EXPECT_EQ(in->tell(), static_cast<long>(pos));
        in->read(got, 100);
        EXPECT_EQ(got, bytes.substr(pos, 100));
    }
    EXPECT_FALSE(in->seek(static_cast<long>(bytes.size())) || in->seek(-1));
}

#endif
