// The same calls for every way to read and to write: a contestant is a class, a row is one
// function for all of them. Buffers have 64 KiB where that can be chosen.
//
// Reading: line(string), word(string or Array), number(int or double), get(bytes) and text(string)
// are false at the end of the data. Writing: print(values...) is a line, put(bytes),
// putText(string). A text has its length in front, most significant byte first.

#pragma once

#include "race.h"

#include <charconv>
#include <cstdio>
#include <fcntl.h>
#include <fstream>
#include <iomanip>
#include <memory>
#include <stdio_ext.h>
#include <unistd.h>

#ifdef BENCH_BOOST
#include <boost/iostreams/device/file_descriptor.hpp>
#include <boost/iostreams/stream.hpp>
namespace io = boost::iostreams;
#endif
#ifdef BENCH_FMT
#include <fmt/compile.h>
#endif

using std::size_t;

constexpr size_t blockSize = 65536;
using Array = char[256];
struct Block {
    alignas(64) char block[blockSize];
};

// ---- what is written the same way in several of them

template <class Out, class First, class... More>
void printTo(Out& out, const First& first, const More&... more)
{
    out << first;
    ((out << ' ' << more), ...);
    out << '\n';
}

template <class In> bool textFrom(In& in, string& s)
{
    std::uint32_t length;
    if (!in.get(reinterpret_cast<char*>(&length), sizeof length)) return false;
    s.resize(__builtin_bswap32(length));
    return in.get(s.data(), s.size());
}

template <class Out> void textTo(Out& out, const string& s)
{
    const std::uint32_t length = __builtin_bswap32(s.size());
    out.put(reinterpret_cast<const char*>(&length), sizeof length);
    out.put(s.data(), s.size());
}

// ---- this library

template <class Stream> struct Ours : Stream {
    using Stream::Stream;
    bool line(string& s) { return this->getline(s); }
    bool word(string& s) { return this->gettoken(s, sizeof(Array)); }
    bool word(Array& s) { return this->gettoken(s, sizeof s); }
    template <class Number> bool number(Number& n) { return *this >> n, true; }
    bool get(char* to, size_t n) { return this->read(to, n) == n; }
    bool text(string& s) { return ZQ_io_read_binary(*this, s) >= 4; }
    template <class... Values> void print(const Values&... values) { printTo(*this, values...); }
    void put(const char* from, size_t n) { this->write(from, n); }
    void putText(const string& s) { ZQ_io_write_binary(*this, s); }
};

// A file that is written is there before, and keeps its size: that is not what is measured.
struct OutFile : zqofstream {
    explicit OutFile(const string& path) : zqofstream(::open(path.c_str(), O_WRONLY)) {}
};
using OurInput = Ours<zqifstream>;
using OurOutput = Ours<OutFile>;

// ---- iostreams, and Boost's

template <class Stream> struct Standard : Stream {
    using Stream::Stream;
    bool line(string& s) { return bool(std::getline(*this, s)); }
    bool word(string& s) { return bool(*this >> s); }
    bool word(Array& s) { return bool(*this >> std::setw(sizeof s) >> s); }
    template <class Number> bool number(Number& n) { return bool(*this >> n); }
    bool get(char* to, size_t n) { return bool(this->read(to, n)); }
    bool text(string& s) { return textFrom(*this, s); }
    template <class... Values> void print(const Values&... values)
    {
        this->setf(std::ios::fixed);
        printTo(*this, values...);
    }
    void put(const char* from, size_t n) { this->write(from, n); }
    void putText(const string& s) { textTo(*this, s); }
};

struct StandardFile : Block, std::fstream {
    explicit StandardFile(const string& path)
    {
        rdbuf()->pubsetbuf(block, blockSize);
        open(path, in | out | binary);
    }
};
#ifdef BENCH_BOOST
struct BoostFile : io::stream<io::file_descriptor> {
    explicit BoostFile(const string& path)
        : stream(io::file_descriptor(::open(path.c_str(), O_RDWR), io::close_handle), blockSize)
    {
    }
};
#endif

// ---- stdio without locks and what is put on top of it

struct Stdio : Block {
    explicit Stdio(const string& path) : file(std::fopen(path.c_str(), "r+"))
    {
        ::__fsetlocking(file, FSETLOCKING_BYCALLER);
        std::setvbuf(file, block, _IOFBF, blockSize);
    }
    ~Stdio() { std::fclose(file), std::free(start); }
    bool line(string& s) { return next() && (s.assign(start, end), true); }
    bool word(string& s) { return cut() && (s = found, true); }
    bool word(Array& s) { return cut() && std::strcpy(s, found); }
    template <class Number> bool number(Number& n)
    {
        return next() && std::from_chars(start, end, n).ec == std::errc();
    }
    bool get(char* to, size_t n) { return ::fread_unlocked(to, 1, n, file) == n; }
    bool text(string& s) { return textFrom(*this, s); }
    void print(int n) { std::fprintf(file, "%d\n", n); }
    void print(double n) { std::fprintf(file, "%f\n", n); }
    void print(const char* s, int i, double d) { std::fprintf(file, "%s %d %f\n", s, i, d); }
    void put(const char* from, size_t n) { ::fwrite_unlocked(from, 1, n, file); }
    void putText(const string& s) { textTo(*this, s); }
    char* room() { return array; }
    void used(char* to) { put(array, to - array); }

private:
    bool next()
    {
        const ssize_t length = ::getline(&start, &capacity, file);
        if (length > 0) *(end = start + length - 1) = '\0';
        return length > 0;
    }
    bool cut()
    {
        found = found ? ::strtok_r(nullptr, " ", &rest) : nullptr;
        if (!found && next()) found = ::strtok_r(start, " ", &rest);
        return found;
    }
    std::FILE* file;
    char array[1024];
    char *start = nullptr, *end = nullptr, *found = nullptr, *rest = nullptr;
    size_t capacity = 0;
};

#ifdef BENCH_FMT
struct Fmt : Stdio {
    using Stdio::Stdio;
    ~Fmt() { flush(); }
    void print(int n) { add(FMT_COMPILE("{}\n"), n); }
    void print(double n) { add(FMT_COMPILE("{:f}\n"), n); }
    void print(const char* s, int i, double d) { add(FMT_COMPILE("{} {} {:f}\n"), s, i, d); }
    template <class Format, class... Values> void add(Format form, const Values&... values)
    {
        fmt::format_to(std::back_inserter(buffer), form, values...);
        if (buffer.size() > blockSize / 2) flush();
    }
    void flush()
    {
        put(buffer.data(), buffer.size());
        buffer.clear();
    }
    fmt::memory_buffer buffer;
};
#endif

// to_chars at the place that room() gives; used(end) takes what is there.
template <class Base> struct ToChars : Base {
    using Base::Base;
    template <class... Values> void print(const Values&... values)
    {
        char* to = this->room();
        ((to = format(to, values), *to++ = ' '), ...);
        to[-1] = '\n';
        this->used(to);
    }
    static char* format(char* to, const char* s) { return ::stpcpy(to, s); }
    static char* format(char* to, int n) { return std::to_chars(to, to + 16, n).ptr; }
    static char* format(char* to, double n)
    {
        return std::to_chars(to, to + 400, n, std::chars_format::fixed, 6).ptr;
    }
};

// ---- the limits: 64 KiB at a time, in a buffer that lies well

// Reads by memchr and memcpy.
class Source {
public:
    explicit Source(const string& path) : _fd(::open(path.c_str(), O_RDONLY)) {}
    Source(const char* text, size_t n) : _next(text), _end(text + n), _fd(-1) {}
    virtual ~Source() { ::close(_fd); }
    bool line(string& s)
    {
        const char* stop;
        while (!(stop = find('\n', _end)))
            if (!fill()) return false;
        s.assign(_next, stop);
        _next = stop + 1;
        return true;
    }
    bool word(string& s)
    {
        return cut([&](const char* p, size_t n) { s.assign(p, n); });
    }
    bool word(Array& s)
    {
        return cut([&](const char* p, size_t n) { std::memcpy(s, p, n), s[n] = '\0'; });
    }
    template <class Number> bool number(Number& n)
    {
        if (_end - _next < 32) fill();
        _next = std::from_chars(_next, _end, n).ptr + 1;
        return true;
    }
    bool get(char* to, size_t n)
    {
        const char* from = take(n);
        return from && std::memcpy(to, from, n);
    }
    bool text(string& s)
    {
        std::uint32_t length;
        if (!get(reinterpret_cast<char*>(&length), sizeof length)) return false;
        length = __builtin_bswap32(length);
        return s.assign(take(length), length), true;
    }

protected:
    virtual ssize_t bring(char* to) { return ::read(_fd, to, blockSize); }
    const int& fd() const { return _fd; }

private:
    const char* find(char c, const char* end)
    {
        return static_cast<const char*>(std::memchr(_next, c, end - _next));
    }
    template <class Keep> bool cut(Keep keep)
    {
        while (_next >= _lineEnd && !(_lineEnd = find('\n', _end)))
            if (!fill()) return false;
        const char* stop = find(' ', _lineEnd);
        if (!stop) stop = _lineEnd;
        keep(_next, stop - _next);
        _next = stop + 1;
        return true;
    }
    const char* take(size_t n)
    {
        while (size_t(_end - _next) < n)
            if (!fill()) return nullptr;
        _next += n;
        return _next - n;
    }
    // What is left moves to right in front of the new bytes.
    bool fill()
    {
        const size_t left = _end - _next;
        char* const block = _memory + blockSize;
        std::memcpy(block - left, _next, left);
        const ssize_t n = _fd < 0 ? 0 : bring(block);
        _next = _lineEnd = block - left;
        _end = block + (n > 0 ? n : 0);
        return n > 0;
    }

    alignas(64) char _memory[2 * blockSize];
    const char *_next = _memory, *_end = _memory, *_lineEnd = nullptr;
    int _fd;
};

// Writes by memcpy.
struct Sink : Block {
    explicit Sink(const string& path) : fd(::open(path.c_str(), O_WRONLY)) {}
    ~Sink() { flush(), ::close(fd); }
    char* room(size_t n = 1024)
    {
        if (size_t(block + blockSize - next) < n) flush();
        return next;
    }
    void used(char* end) { next = end; }
    void put(const char* from, size_t n) { std::memcpy(room(n), from, n), next += n; }
    void putText(const string& s) { textTo(*this, s); }
    void flush()
    {
        if (::write(fd, block, next - block) < 0) std::abort();
        next = block;
    }
    char* next = block;
    int fd;
};

// ---- to the start

// 'body' does the work with a stream, and returns a checksum or nothing.
template <class Stream, class Body> auto with(const string& path, Body body)
{
    return [=] { return body(*std::make_unique<Stream>(path)); };
}

template <class Body>
void peers(Race& race, const string& path, Body body, const char* stdio = "stdio unlocked")
{
    race.peer("iostreams", with<Standard<StandardFile>>(path, body));
#ifdef BENCH_BOOST
    race.peer("boost", with<Standard<BoostFile>>(path, body));
#endif
    race.peer(stdio, with<Stdio>(path, body));
}

template <class Body>
void readers(Race& race, const string& path, Body body, const char* stdio = "stdio unlocked")
{
    race.ours(with<OurInput>(path, body));
    peers(race, path, body, stdio);
    race.limit(with<Source>(path, body));
}

template <class Body> void writers(Race& race, const string& path, Body body)
{
    race.leavesFile(path);
    race.ours(with<OurOutput>(path, body));
    peers(race, path, body);
    race.limit(with<ToChars<Sink>>(path, body));
}

// ---- checksums: cheap, and different for different texts nearly always

inline std::uint64_t sumOf(std::string_view text)
{
    return text.size() * 257 + static_cast<unsigned char>(text.empty() ? 0 : text.back());
}
inline std::uint64_t sumOf(double n)
{
    std::uint64_t bits;
    std::memcpy(&bits, &n, sizeof bits);
    return bits;
}

// All lines, into the same string.
inline const auto eachLine = [](auto& in) {
    std::uint64_t sum = 0;
    for (string line; in.line(line);) sum += sumOf(line);
    return sum;
};
