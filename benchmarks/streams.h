// The same calls for every way to read and to write: a contestant is a class, a row is one
// function for all of them. Buffers have 64 KiB where that can be chosen.

#pragma once

#include "race.h"

#include <charconv>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <iomanip>
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

constexpr std::size_t blockSize = 65536;
using Array = char[256];

// A file that is written is there before, and keeps its size: that is not what is measured.
inline int openToWrite(const string& path) { return ::open(path.c_str(), O_WRONLY); }

inline std::uint32_t bigEndian(std::size_t n)
{
    return __builtin_bswap32(static_cast<std::uint32_t>(n));
}

// ---- readers: line(string), word(string or Array), number(int or double), read(bytes) are false
// at the end of the data; text(string) has its length in front.

template <class Base> struct OurReader : Base {
    using Base::Base;
    bool line(string& s) { return this->in.getline(s); }
    bool word(string& s) { return this->in.gettoken(s, sizeof(Array)); }
    bool word(Array& s) { return this->in.gettoken(s, sizeof s); }
    template <class Number> bool number(Number& n) { return this->in >> n, true; }
    bool read(char* to, std::size_t n) { return this->in.read(to, n) == n; }
    bool text(string& s) { return ZQ_io_read_binary(this->in, s) >= 4; }
};

// What peers have to do for themselves.
template <class Reader> bool readText(Reader& reader, string& s)
{
    std::uint32_t length;
    if (!reader.read(reinterpret_cast<char*>(&length), sizeof length)) return false;
    s.resize(__builtin_bswap32(length));
    return reader.read(s.data(), s.size());
}

template <class Base> struct StandardReader : Base {
    using Base::Base;
    bool line(string& s) { return bool(std::getline(this->in, s)); }
    bool word(string& s) { return bool(this->in >> s); }
    bool word(Array& s) { return bool(this->in >> std::setw(sizeof s) >> s); }
    template <class Number> bool number(Number& n) { return bool(this->in >> n); }
    bool read(char* to, std::size_t n) { return bool(this->in.read(to, static_cast<long>(n))); }
    bool text(string& s) { return readText(*this, s); }
};

// stdio as it comes, or with a large buffer and without locks.
template <bool unlocked> std::FILE* openStdio(const string& path, const char* mode, char* block)
{
    std::FILE* const file = std::fopen(path.c_str(), mode);
    if (unlocked) {
        ::__fsetlocking(file, FSETLOCKING_BYCALLER);
        std::setvbuf(file, block, _IOFBF, blockSize);
    }
    return file;
}

template <bool unlocked> struct StdioReader {
    explicit StdioReader(const string& path) : file(openStdio<unlocked>(path, "r", block)) {}
    ~StdioReader() { std::fclose(file); }
    bool line(string& s)
    {
        if (!std::fgets(buffer, sizeof buffer, file)) return false;
        s.assign(buffer, std::strlen(buffer) - 1);
        return true;
    }
    bool word(Array& s) { return std::fscanf(file, "%255s", s) == 1; }
    bool word(string& s) { return std::fscanf(file, "%255s", buffer) == 1 && (s = buffer, true); }
    bool number(int& n) { return std::fscanf(file, "%d", &n) == 1; }
    bool number(double& n) { return std::fscanf(file, "%lf", &n) == 1; }
    bool read(char* to, std::size_t n)
    {
        return (unlocked ? ::fread_unlocked : std::fread)(to, 1, n, file) == n;
    }
    bool text(string& s) { return readText(*this, s); }
    std::FILE* file;
    char block[blockSize], buffer[1024];
};

// getline(3), with strtok_r for words and from_chars for numbers.
struct GetlineReader : StdioReader<true> {
    using StdioReader::StdioReader;
    ~GetlineReader() { std::free(start); }
    bool next()
    {
        length = ::getline(&start, &capacity, file) - 1;
        if (length >= 0) start[length] = '\0';
        return length >= 0;
    }
    bool line(string& s)
    {
        return next() && (s.assign(start, static_cast<std::size_t>(length)), true);
    }
    const char* cut()
    {
        const char* found = state ? ::strtok_r(nullptr, " ", &state) : nullptr;
        return found ? found : next() ? ::strtok_r(start, " ", &state) : nullptr;
    }
    bool word(string& s)
    {
        const char* found = cut();
        return found && (s = found, true);
    }
    bool word(Array& s)
    {
        const char* found = cut();
        return found && std::strcpy(s, found);
    }
    template <class Number> bool number(Number& n)
    {
        return next() && std::from_chars(start, start + length, n).ec == std::errc();
    }
    char *start = nullptr, *state = nullptr;
    std::size_t capacity = 0;
    ssize_t length = 0;
};

// The limit: 64 KiB at a time into a buffer that lies well, then memchr and memcpy.
class Source {
public:
    explicit Source(const string& path) : _fd(::open(path.c_str(), O_RDONLY)) {}
    Source(const char* text, std::size_t n) : _next(text), _end(text + n), _fd(-1) {}
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
        return cut([&](const char* p, std::size_t n) { s.assign(p, n); });
    }
    bool word(Array& s)
    {
        return cut([&](const char* p, std::size_t n) { std::memcpy(s, p, n), s[n] = '\0'; });
    }
    template <class Number> bool number(Number& n)
    {
        if (_end - _next < 32) fill();
        _next = std::from_chars(_next, _end, n).ptr + 1;
        return true;
    }
    bool read(char* to, std::size_t n)
    {
        const char* from = take(n);
        return from && std::memcpy(to, from, n);
    }
    bool text(string& s)
    {
        std::uint32_t length;
        return read(reinterpret_cast<char*>(&length), sizeof length) &&
               (s.assign(take(__builtin_bswap32(length)), __builtin_bswap32(length)), true);
    }

protected:
    virtual ssize_t bring(char* to) { return ::read(_fd, to, blockSize); }
    const int& fd() const { return _fd; }

private:
    const char* find(char c, const char* end)
    {
        return static_cast<const char*>(
            std::memchr(_next, c, static_cast<std::size_t>(end - _next)));
    }
    template <class Keep> bool cut(Keep keep)
    {
        while (_next >= _lineEnd && !(_lineEnd = find('\n', _end)))
            if (!fill()) return false;
        const char* stop = find(' ', _lineEnd);
        if (!stop) stop = _lineEnd;
        keep(_next, static_cast<std::size_t>(stop - _next));
        _next = stop + 1;
        return true;
    }
    const char* take(std::size_t n)
    {
        while (static_cast<std::size_t>(_end - _next) < n)
            if (!fill()) return nullptr;
        _next += n;
        return _next - n;
    }
    // What is left moves to right in front of the new bytes.
    bool fill()
    {
        const auto left = static_cast<std::size_t>(_end - _next);
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

struct OurFile {
    explicit OurFile(const string& path) : in(path) {}
    zqifstream in;
};
struct StandardFile {
    explicit StandardFile(const string& path)
    {
        in.rdbuf()->pubsetbuf(buffer, sizeof buffer);
        in.open(path, std::ios::binary);
    }
    char buffer[blockSize];
    std::ifstream in;
};
#ifdef BENCH_BOOST
struct BoostFile {
    explicit BoostFile(const string& path) : in(io::file_descriptor_source(path), blockSize) {}
    io::stream<io::file_descriptor_source> in;
};
#endif

// 'body' does the work with a reader and returns a checksum.
template <class Reader, class Body> Pass reading(const string& path, Body body)
{
    return [=] { return body(*std::make_unique<Reader>(path)); };
}

template <class Body> void standardReaders(Race& race, const string& path, Body body)
{
    race.peer("iostreams", reading<StandardReader<StandardFile>>(path, body));
#ifdef BENCH_BOOST
    race.peer("boost", reading<StandardReader<BoostFile>>(path, body));
#endif
    race.peer("stdio", reading<StdioReader<false>>(path, body));
    race.peer("stdio unlocked", reading<StdioReader<true>>(path, body));
}

template <class Body> void readers(Race& race, const string& path, Body body)
{
    race.ours(reading<OurReader<OurFile>>(path, body));
    standardReaders(race, path, body);
    race.limit(reading<Source>(path, body));
}

// ---- writers: put(int, double or string) ends its line, as does put of all three; write(bytes),
// text(string) with its length in front

struct OurOutput {
    explicit OurOutput(const string& path) : out(openToWrite(path)) {}
    template <class Value> void put(const Value& value) { out << value << '\n'; }
    void put(const string& s, int i, double d) { out << s << ' ' << i << ' ' << d << '\n'; }
    void write(const char* from, std::size_t n) { out.write(from, n); }
    void text(const string& s) { ZQ_io_write_binary(out, s); }
    zqofstream out;
};

template <class Writer> void writeText(Writer& writer, const string& s)
{
    const std::uint32_t length = bigEndian(s.size());
    writer.write(reinterpret_cast<const char*>(&length), sizeof length);
    writer.write(s.data(), s.size());
}

template <class Base> struct StandardOutput : Base {
    explicit StandardOutput(const string& path) : Base(path) { this->out << std::fixed; }
    template <class Value> void put(const Value& value) { this->out << value << '\n'; }
    void put(const string& s, int i, double d) { this->out << s << ' ' << i << ' ' << d << '\n'; }
    void write(const char* from, std::size_t n) { this->out.write(from, static_cast<long>(n)); }
    void text(const string& s) { writeText(*this, s); }
};
struct StandardOutFile {
    explicit StandardOutFile(const string& path)
    {
        out.rdbuf()->pubsetbuf(buffer, sizeof buffer);
        out.open(path, std::ios::in | std::ios::out | std::ios::binary);
    }
    char buffer[blockSize];
    std::ofstream out;
};
#ifdef BENCH_BOOST
struct BoostOutFile {
    explicit BoostOutFile(const string& path)
        : out(io::file_descriptor_sink(openToWrite(path), io::close_handle), blockSize)
    {
    }
    io::stream<io::file_descriptor_sink> out;
};
#endif

template <bool unlocked> struct StdioWriter {
    explicit StdioWriter(const string& path) : file(openStdio<unlocked>(path, "r+", block)) {}
    ~StdioWriter() { std::fclose(file); }
    void put(int n) { std::fprintf(file, "%d\n", n); }
    void put(double n) { std::fprintf(file, "%f\n", n); }
    void put(const string& s, int i, double d)
    {
        std::fprintf(file, "%s %d %f\n", s.c_str(), i, d);
    }
    void write(const char* from, std::size_t n)
    {
        (unlocked ? ::fwrite_unlocked : std::fwrite)(from, 1, n, file);
    }
    void text(const string& s) { writeText(*this, s); }
    std::FILE* file;
    char block[blockSize];
};

inline char* format(char* to, int n) { return std::to_chars(to, to + 16, n).ptr; }
inline char* format(char* to, double n)
{
    return std::to_chars(to, to + 400, n, std::chars_format::fixed, 6).ptr;
}

// to_chars, at the place that room(n) gives for n bytes; used(end) takes it.
template <class Base> struct FormattingWriter : Base {
    using Base::Base;
    template <class Number> void put(Number n)
    {
        this->used(end(format(this->room(400), n), '\n'));
    }
    void put(const string& s, int i, double d)
    {
        char* to = this->room(s.size() + 440);
        std::memcpy(to, s.data(), s.size());
        to = end(format(end(to + s.size(), ' '), i), ' ');
        this->used(end(format(to, d), '\n'));
    }
    static char* end(char* to, char c) { return *to = c, to + 1; }
};
struct StdioRoom : StdioWriter<true> {
    using StdioWriter::StdioWriter;
    char* room(std::size_t) { return buffer; }
    void used(char* end) { write(buffer, static_cast<std::size_t>(end - buffer)); }
    char buffer[1024];
};

#ifdef BENCH_FMT
struct FmtWriter : StdioWriter<true> {
    using StdioWriter::StdioWriter;
    ~FmtWriter() { flush(); }
    void put(int n) { add(FMT_COMPILE("{}\n"), n); }
    void put(double n) { add(FMT_COMPILE("{:f}\n"), n); }
    void put(const string& s, int i, double d) { add(FMT_COMPILE("{} {} {:f}\n"), s, i, d); }
    template <class Format, class... Values> void add(Format form, const Values&... values)
    {
        fmt::format_to(std::back_inserter(buffer), form, values...);
        if (buffer.size() > blockSize / 2) flush();
    }
    void flush()
    {
        write(buffer.data(), buffer.size());
        buffer.clear();
    }
    fmt::memory_buffer buffer;
};
#endif

// The limit: memcpy to a buffer of 64 KiB.
struct Sink {
    explicit Sink(const string& path) : fd(openToWrite(path)) {}
    ~Sink() { flush(), ::close(fd); }
    char* room(std::size_t n)
    {
        if (static_cast<std::size_t>(block + blockSize - next) < n) flush();
        return next;
    }
    void used(char* end) { next = end; }
    void write(const char* from, std::size_t n) { std::memcpy(room(n), from, n), next += n; }
    void text(const string& s) { writeText(*this, s); }
    void flush()
    {
        if (::write(fd, block, static_cast<std::size_t>(next - block)) < 0) std::abort();
        next = block;
    }
    alignas(64) char block[blockSize];
    char* next = block;
    int fd;
};

// 'body' does the work with a writer.
template <class Writer, class Body> Pass writing(const string& path, Body body)
{
    return [=] { return body(*std::make_unique<Writer>(path)), 0; };
}

template <class Body> void standardWriters(Race& race, const string& path, Body body)
{
    race.peer("iostreams", writing<StandardOutput<StandardOutFile>>(path, body));
#ifdef BENCH_BOOST
    race.peer("boost", writing<StandardOutput<BoostOutFile>>(path, body));
#endif
    race.peer("stdio", writing<StdioWriter<false>>(path, body));
    race.peer("stdio unlocked", writing<StdioWriter<true>>(path, body));
}

template <class Body> void writers(Race& race, const string& path, Body body)
{
    race.leavesFile(path);
    race.ours(writing<OurOutput>(path, body));
    standardWriters(race, path, body);
    race.limit(writing<FormattingWriter<Sink>>(path, body));
}

// ---- checksums: cheap, and different for different texts nearly always

inline std::uint64_t sumOf(const string& text)
{
    return text.size() * 257 + static_cast<unsigned char>(text.empty() ? 0 : text.back());
}
inline std::uint64_t sumOf(const Array& text)
{
    const std::size_t n = std::strlen(text);
    return n * 257 + static_cast<unsigned char>(n ? text[n - 1] : 0);
}
inline std::uint64_t sumOf(int n) { return static_cast<std::uint64_t>(n); }
inline std::uint64_t sumOf(double n)
{
    std::uint64_t bits;
    std::memcpy(&bits, &n, sizeof bits);
    return bits;
}
