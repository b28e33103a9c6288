// Scripted streams, deletion probes, and the battery that every input stream passes.

#ifndef ZQPLATFORM_TESTS_STREAMS_H
#define ZQPLATFORM_TESTS_STREAMS_H

#include "platform/zqplatform.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

// A source that hands out the given chunks, one per fill, and counts the fills. It seeks to 0 only.
class ChunkSource : public ZQPlatform::zqistream {
public:
    explicit ChunkSource(std::vector<std::string> chunks, bool seekable = false)
        : _chunks(std::move(chunks)), _seekable(seekable)
    {
        _eof = false;
    }
    int fills = 0;    // calls of _zqfill so far
    int failAt = -1;  // the fill that fails, counted from 0; -1: none
    int seeks = 0;    // calls of _zqseek so far

protected:
    bool _zqfill() override
    {
        if (fills++ == failAt || _next == _chunks.size()) {
            _ptr = _end;
            _eof = true;
            return false;
        }
        const std::string& chunk = _chunks[_next++];
        _offset += _ptr - _buf;
        std::copy(chunk.begin(), chunk.end(), _buf);
        _ptr = _buf;
        _end = _buf + chunk.size();
        return true;
    }
    bool _zqseek(long pos) override
    {
        ++seeks;
        if (!_seekable || pos != 0)
            return false;
        _next = 0;
        _offset = 0;
        _ptr = _end = _buf;
        _eof = false;
        return _zqfill();
    }

private:
    std::vector<std::string> _chunks;
    bool _seekable;
    std::size_t _next = 0;
};

// Takes 'room' bytes, then fails.
class FailingSink : public ZQPlatform::zqostream {
public:
    explicit FailingSink(std::size_t room) : _room(room) {}
    std::string taken;
    int flushes = 0;  // calls of _zqflush so far

protected:
    bool _zqflush() override
    {
        ++flushes;
        const auto pending = static_cast<std::size_t>(_ptr - _buf);
        const std::size_t step = std::min(pending, _room);
        taken.append(reinterpret_cast<const char*>(_buf), step);
        _room -= step;
        if (step < pending) {
            _eof = true;
            return false;
        }
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
    static const char digits[] = "0123456789ABCDEF";
    std::string text;
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        text += {digits[byte >> 4], digits[byte & 15], ' '};
    }
    if (!text.empty())
        text.pop_back();
    return text;
}

// Bytes that compress a little and repeat nowhere at a fixed distance.
inline std::string sampleBytes(std::size_t n)
{
    std::string bytes(n, '\0');
    unsigned int state = 12345;
    for (char& c : bytes) {
        state = state * 1103515245u + 12345u;
        c = static_cast<char>("etaoin shrdlu\n\t\x1F\x8B\0\xFF"[state >> 16 & 15] ^
                              (state >> 28 & 1));
    }
    return bytes;
}

// Reads 'in', which stands at the start of 'bytes', in steps of 'step', and compares.
inline void expectReads(ZQPlatform::zqistream& in, const std::string& bytes, std::size_t step)
{
    SCOPED_TRACE("read in steps of " + std::to_string(step));
    std::string got, part;
    while (in.read(part, step) != 0)
        got += part;
    EXPECT_TRUE(in.eof());
    EXPECT_TRUE(got == bytes) << "got " << got.size() << " bytes of " << bytes.size();
}

// What every input stream owes its callers: 'make()' returns a fresh stream over 'bytes' as a
// pointer that deletes it. seekable: it can go back to any position, and knows where it is.
template <class Make> void checkInput(Make make, const std::string& bytes, bool seekable)
{
    for (const std::size_t step : {1, 2, 7, 4096, 65535, 65536, 65537})
        expectReads(*make(), bytes, step);
    auto whole = make();
    std::string got;
    EXPECT_EQ(whole->read(got), bytes.size());
    EXPECT_TRUE(got == bytes);
    EXPECT_EQ(whole->read(got, 1), 0u);

    auto skipping = make();
    const std::size_t half = bytes.size() / 2;
    EXPECT_TRUE(skipping->skip(static_cast<long>(half)));
    expectReads(*skipping, bytes.substr(half), 7777);
    EXPECT_FALSE(make()->skip(static_cast<long>(bytes.size()) + 1));

    if (!seekable)
        return;
    auto seeking = make();
    for (const std::size_t pos : {half, std::size_t{0}, bytes.size() - 1, half / 2}) {
        SCOPED_TRACE("seek to " + std::to_string(pos));
        ASSERT_TRUE(seeking->seek(static_cast<long>(pos)));
        EXPECT_EQ(seeking->tell(), static_cast<long>(pos));
        EXPECT_EQ(seeking->read(got, 100), std::min<std::size_t>(100, bytes.size() - pos));
        EXPECT_EQ(got, bytes.substr(pos, 100));
    }
    EXPECT_FALSE(seeking->seek(static_cast<long>(bytes.size())));
    EXPECT_FALSE(seeking->seek(-1));
}

#endif
