#include "zqstreambase.h"

#include "zqnumbertext.h"
#include "zqscan.h"
#include "zqstackblock.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <memory>
#include <type_traits>
#include <typeinfo>

// The C library's own report of a failed assertion. <cassert> declares it in debug builds only,
// and the assertions here stop the process in every build.
extern "C" [[noreturn]] void __assert_fail(const char* assertion, const char* file,
                                           unsigned int line, const char* function) noexcept;

namespace ZQPlatform {

namespace {

constexpr zqsize_t copyBlockSize = 4096;
constexpr zqsize_t numberTokenLimit = 65536;  // with the NUL

std::string ZQStrError()
{
    char text[256];
    if (ZQInternalStrError(text, sizeof text) != 0)
        return "ZQStrError failed to retrieve proper error message";
    return text;
}

// The text of a line or token reader's buffer ends at 'dst', which must lie in front of
// buffer + max. The readers never violate it; it guards against changes.
void terminate(char* dst, char* buffer, zqsize_t max)
{
    if (reinterpret_cast<std::size_t>(dst) >= reinterpret_cast<std::size_t>(buffer) + max)
        __assert_fail("(size_t)dst < (size_t)(buffer + max)", __FILE__, __LINE__,
                      "bool ZQPlatform::zqistream::getline(char*, zqsize_t)");
    *dst = '\0';
}

zqsize_t distance(const unsigned char* from, const unsigned char* to)
{
    return static_cast<zqsize_t>(to - from);
}

const char* chars(const unsigned char* bytes)
{
    return reinterpret_cast<const char*>(bytes);
}

// Appends the next bytes of a text of unknown size. Doubled, as std::string does it, a string of
// one to some buffers would be copied once more in all; it grows fourfold.
void appendBlock(std::string& text, const unsigned char* bytes, zqsize_t n)
{
    constexpr zqsize_t manyBuffers = 64 * ZQ_STREAM_BUFSIZE;
    const zqsize_t size = text.size();
    if (n > text.capacity() - size && size >= ZQ_STREAM_BUFSIZE && size < manyBuffers)
        text.reserve(4 * size);
    text.append(chars(bytes), n);
}

}  // namespace

// ---- ZQIOError

ZQIOError::ZQIOError() : _message(ZQStrError()) {}

ZQIOError::ZQIOError(const char* msg) : _message(msg ? msg : "") {}

// ---- zqstream

zqstream::zqstream()
    : _ptr(_buf), _begin(_buf), _end(_buf), _count(0), _offset(0), _size(0), _sizeknown(false),
      _eof(true)
{
}

zqstream::zqstream(const zqstream& other) : _begin(_buf)
{
    copyFrom(other);
}

zqstream& zqstream::operator=(const zqstream& other)
{
    if (this == &other)
        return *this;
    unsigned char* const begin = _begin;
    copyFrom(other);
    // Another class may own what it reads, or hand on its own buffer only.
    if (_ptr == other._ptr && typeid(*this) != typeid(other)) {
        _begin = begin;
        _ptr = _end = _buf;
    }
    return *this;
}

zqstream::~zqstream()
{
    _ptr = _end = nullptr;
}

void zqstream::copyFrom(const zqstream& other)
{
    _count = other._count;
    _offset = other._offset;
    _size = other._size;
    _sizeknown = other._sizeknown;
    _eof = other._eof;
    std::memcpy(_buf, other._buf, sizeof _buf);
    if (other.inOwnBuffer(other._ptr)) {
        // Deliberate: _begin stays. spanStart() finds the start of the span all the same.
        _ptr = _buf + (other._ptr - other._buf);
        _end = _buf + (other._end - other._buf);
    } else {
        _begin = other._begin;
        _ptr = other._ptr;
        _end = other._end;
    }
}

unsigned char* zqstream::spanStart() const
{
    if (inOwnBuffer(_ptr) && !inOwnBuffer(_begin))
        return const_cast<unsigned char*>(_buf);
    return _begin;
}

bool zqstream::seek(long pos)
{
    unsigned char* start = spanStart();
    if (pos < _offset || zqsize_t(pos) - zqsize_t(_offset) >= distance(start, _end))
        return _zqseek(pos);
    _eof = false;
    _ptr = start + (pos - _offset);
    return true;
}

void zqstream::resetClosed()
{
    _offset = 0;
    _size = 0;
    _sizeknown = false;
    _ptr = _end = _buf;
    _eof = true;
}

bool zqstream::_zqseek(long)
{
    return false;
}

zqsize_t zqstream::_zqsize()
{
    return 0;
}

long zqstream::_zqtell() const
{
    return static_cast<long>(zqsize_t(_offset) + distance(spanStart(), _ptr));
}

// ---- zqistream: attaching, blocks

zqistream::zqistream() = default;

zqistream::zqistream(const zqistream& other) = default;

zqistream::~zqistream() = default;

zqistream& zqistream::operator=(const zqistream& other) = default;

bool zqistream::_zqopen(const char*)
{
    return false;
}

bool zqistream::_zqclose()
{
    return true;
}

bool zqistream::_zqfill()
{
    _ptr = _end;
    _eof = true;
    return false;
}

bool zqistream::filled(std::ptrdiff_t n)
{
    moveOffset(_ptr - _buf);
    _ptr = _buf;
    _end = _buf + n;
    return true;
}

bool zqistream::open(const char* name)
{
    if (!_zqclose())
        return false;
    resetClosed();
    const bool opened = _zqopen(name);
    _eof = !opened;
    return opened;
}

bool zqistream::open(unsigned char* data, zqsize_t len)
{
    if (!_zqclose())
        return false;
    resetClosed();
    if (!data)
        return false;
    _begin = _ptr = data;
    _end = data + len;
    _eof = false;
    return true;
}

bool zqistream::close()
{
    if (!_zqclose())
        return false;
    resetClosed();
    return true;
}

zqsize_t zqistream::readAcross(unsigned char* dst, zqsize_t n)
{
    _count = 0;
    if (n == 0)
        return 0;
    for (;;) {
        const zqsize_t step = std::min(n, distance(_ptr, _end));
        if (step != 0)
            std::memcpy(dst, _ptr, step);
        dst += step;
        _ptr += step;
        _count += step;
        n -= step;
        if (n == 0 || !_zqfill())
            return _count;
    }
}

zqsize_t zqistream::read(std::string& dst, zqsize_t n)
{
    dst.clear();
    _count = 0;
    if (n == 0)
        return 0;
    for (;;) {
        const zqsize_t step = std::min(n, distance(_ptr, _end));
        appendBlock(dst, _ptr, step);
        _ptr += step;
        _count += step;
        n -= step;
        if (n == 0 || !_zqfill())
            return _count;
    }
}

zqsize_t zqistream::read(std::string& dst)
{
    dst.clear();
    _count = 0;
    do {
        const zqsize_t step = distance(_ptr, _end);
        appendBlock(dst, _ptr, step);
        _ptr = _end;
        _count += step;
    } while (_zqfill());
    return _count;
}

bool zqistream::skip(long n)
{
    if (n < 0)
        return false;
    auto left = static_cast<zqsize_t>(n);
    while (left > distance(_ptr, _end)) {
        left -= distance(_ptr, _end);
        _ptr = _end;
        if (!_zqfill())
            return false;
    }
    _ptr += left;
    return true;
}

// ---- zqistream: lines and tokens

// Consumes the byte at _ptr, which no line keeps. True if it ends the line; behind a carriage
// return the others that follow and at most one line feed are consumed, too.
bool zqistream::takeLineEnd()
{
    const unsigned char end = *_ptr++;
    if (end != '\r')
        return end == '\n';
    while (more() && *_ptr == '\r')
        ++_ptr;
    if (_ptr != _end && *_ptr == '\n')
        ++_ptr;
    return true;
}

bool zqistream::getline(char* buffer, zqsize_t max)
{
    const bool any = more();
    if (!any || max == 0) {
        *buffer = '\0';
        return false;
    }
    zqsize_t room = max - 1;
    char* dst = buffer;
    do {
        const zqsize_t run = distance(_ptr, findLineSpecial(_ptr, _end));
        if (run > room) {
            std::memcpy(dst, _ptr, room);
            _ptr += room + 1;
            terminate(dst + room, buffer, max);
            skipline();  // result ignored: the line is complete either way
            return true;
        }
        std::memcpy(dst, _ptr, run);
        dst += run;
        room -= run;
        _ptr += run;
        terminate(dst, buffer, max);
        if (_ptr != _end && takeLineEnd())
            return true;
    } while (more());
    return true;
}

bool zqistream::getline(std::string& line, zqsize_t max)
{
    StackBlock block(max);
    const bool result = getline(block.data(), max);
    if (result)
        line = block.data();
    else
        line.clear();
    return result;
}

bool zqistream::getline(std::string& line)
{
    line.clear();
    if (!more())
        return false;
    do {
        unsigned char* special = findLineSpecial(_ptr, _end);
        line.append(chars(_ptr), distance(_ptr, special));
        _ptr = special;
        if (_ptr != _end && takeLineEnd())
            return true;
    } while (more());
    return true;
}

bool zqistream::skipline()
{
    if (!more())
        return false;
    do {
        _ptr = findLineSpecial(_ptr, _end);
        if (_ptr != _end && takeLineEnd())
            return true;
    } while (more());
    return true;
}

bool zqistream::gettoken(unsigned char* buffer, zqsize_t max)
{
    const bool any = more();
    if (!any || max == 0) {
        *buffer = '\0';
        return false;
    }
    zqsize_t room = max - 1;
    unsigned char* dst = buffer;
    do {
        const zqsize_t run = std::min(room, distance(_ptr, findTokenSpecial(_ptr, _end)));
        std::memcpy(dst, _ptr, run);
        dst += run;
        room -= run;
        _ptr += run;
        if (_ptr == _end)
            continue;
        const unsigned char c = *_ptr++;
        if (std::isspace(c)) {
            *dst = '\0';
            return true;
        }
        if (c <= 32)
            continue;
        if (room == 0) {
            *dst = '\0';
            skipline();  // result ignored: the token is complete either way
            return true;
        }
        *dst++ = c;
        --room;
    } while (more());
    *dst = '\0';
    return true;
}

// The next token where it stands, if all of it lies in the span, is shorter than 'max', and none
// of its bytes has to be dropped; it is consumed then, with its separator.
bool zqistream::tokenInSpan(const char*& first, const char*& last, zqsize_t max)
{
    unsigned char* p = _ptr;
    for (;; ++p) {
        p = findTokenSpecial(p, _end);
        if (p == _end || distance(_ptr, p) >= max)
            return false;
        if (std::isspace(*p))
            break;
        if (*p <= 32)
            return false;
    }
    first = chars(_ptr);
    last = chars(p);
    _ptr = p + 1;
    return true;
}

bool zqistream::gettoken(std::string& token, zqsize_t max)
{
    if (max + 1 == 0)
        throw std::bad_alloc();
    const char* first = nullptr;
    const char* last = nullptr;
    if (max <= numberTokenLimit && tokenInSpan(first, last, max)) {
        token.assign(first, last);
        return true;
    }
    const std::unique_ptr<char[]> block(new char[max + 1]);
    const bool result = gettoken(block.get(), max);
    if (result)
        token = block.get();
    else
        token.clear();
    return result;
}

// ---- zqistream: values

zqistream& zqistream::operator>>(zqistream& (*f)(zqistream&))
{
    f(*this);
    return *this;
}

zqistream& zqistream::operator>>(zqstream& (*f)(zqstream&))
{
    f(*this);
    return *this;
}

zqistream& zqistream::operator>>(std::string& value)
{
    read(value);
    return *this;
}

// The next token as a number; 0 where the data ends.
template <class Parsed> Parsed zqistream::parseToken()
{
    const char* first = nullptr;
    const char* last = nullptr;
    std::string token;
    if (!tokenInSpan(first, last, numberTokenLimit)) {
        if (!gettoken(token, numberTokenLimit))
            return 0;
        first = token.data();
        last = first + token.size();
    }
    Parsed parsed;
    parseNumber(first, last, parsed);
    return parsed;
}

template <class Parsed, class Number> zqistream& zqistream::readNumber(Number& value)
{
    auto [parsed, end] = parsePlain<Parsed>(chars(_ptr), chars(_end));
    if (end && std::isspace(static_cast<unsigned char>(*end)))
        _ptr += end + 1 - chars(_ptr);
    else
        parsed = parseToken<Parsed>();
    value = errno == ERANGE ? Number(0) : static_cast<Number>(parsed);
    return *this;
}

zqistream& zqistream::operator>>(short& value)
{
    return readNumber<long>(value);
}

zqistream& zqistream::operator>>(int& value)
{
    return readNumber<long>(value);
}

zqistream& zqistream::operator>>(long& value)
{
    return readNumber<long>(value);
}

zqistream& zqistream::operator>>(unsigned short& value)
{
    return readNumber<long>(value);
}

zqistream& zqistream::operator>>(unsigned int& value)
{
    return readNumber<long>(value);
}

zqistream& zqistream::operator>>(unsigned long& value)
{
    return readNumber<long>(value);
}

zqistream& zqistream::operator>>(float& value)
{
    return readNumber<double>(value);
}

zqistream& zqistream::operator>>(double& value)
{
    return readNumber<double>(value);
}

zqistream& zqistream::operator>>(zqostream& out)
{
    if (_eof)
        return *this;
    unsigned char block[copyBlockSize];
    while (!out.eof()) {
        const zqsize_t n = read(block, sizeof block);
        if (n == 0)
            break;
        out.write(block, n);
        if (_eof)
            break;
    }
    return *this;
}

// ---- zqostream: attaching, blocks

zqostream::zqostream()
{
    _end = _buf + ZQ_STREAM_BUFSIZE;
    _sizeknown = true;
    _eof = false;
}

zqostream::zqostream(const zqostream& other) = default;

zqostream::~zqostream() = default;

zqostream& zqostream::operator=(const zqostream& other) = default;

bool zqostream::_zqopen(const char*)
{
    return false;
}

void zqostream::_zqclose() {}

bool zqostream::_zqflush()
{
    unsigned char* start = spanStart();
    if (start != _buf && _ptr != _end)
        return true;
    // Moves by a 32-bit difference, so positions wrap for caller memory over 4 GiB.
    _offset += static_cast<long>(static_cast<unsigned int>(_ptr - start));
    _ptr = start;
    if (start != _buf)
        _end = start;
    if (_ptr == _end)
        _eof = true;
    return !_eof;
}

bool zqostream::refuseFlush()
{
    if (spanStart() != _buf && _ptr == _end)
        _eof = true;
    return false;
}

bool zqostream::open(const char* name)
{
    _zqflush();  // results ignored: what was attached is let go of either way
    _zqclose();
    resetClosed();
    if (!_zqopen(name))
        return false;
    _eof = false;
    _end = spanStart() + ZQ_STREAM_BUFSIZE;
    return true;
}

bool zqostream::open(unsigned char* data, zqsize_t len)
{
    _zqflush();  // result ignored, as in open(name)
    _zqclose();
    resetClosed();
    _size = len;
    _sizeknown = true;
    if (!data)
        return false;
    _begin = _ptr = data;
    _end = data + len;
    _eof = false;
    return true;
}

void zqostream::close()
{
    _zqflush();  // result ignored: the stream is closed either way
    _zqclose();
    resetClosed();
}

zqsize_t zqostream::writeAcross(const char* src, zqsize_t n)
{
    if (!src)
        return 0;
    if (_ptr == _end && !_zqflush())
        return 0;
    _count = 0;
    for (;;) {
        const zqsize_t step = std::min(n, distance(_ptr, _end));
        if (step != 0)
            std::memcpy(_ptr, src, step);
        src += step;
        _ptr += step;
        _count += step;
        n -= step;
        if (n == 0)
            return _count;
        if (!_zqflush())
            return 0;
        if (_end == _ptr)
            __assert_fail("len != 0 && _end != _ptr", __FILE__, __LINE__,
                          "zqsize_t ZQPlatform::zqostream::write(const char*, zqsize_t)");
    }
}

// ---- zqostream: values

template <class Number> zqostream& zqostream::putNumber(Number value)
{
    if (distance(_ptr, _end) >= numberTextSize) {
        _ptr += formatNumber(reinterpret_cast<char*>(_ptr), value) - chars(_ptr);
        return *this;
    }
    // One byte after the other, so that a failed flush drops the rest and count() stays as it is.
    char text[numberTextSize];
    const char* end = formatNumber(text, value);
    for (const char* p = text; p != end && makeRoom(); ++p)
        *_ptr++ = static_cast<unsigned char>(*p);
    return *this;
}

zqostream& zqostream::operator<<(zqostream& (*f)(zqostream&))
{
    f(*this);
    return *this;
}

zqostream& zqostream::operator<<(zqstream& (*f)(zqstream&))
{
    f(*this);
    return *this;
}

zqostream& zqostream::operator<<(const char* s)
{
    if (s)
        write(s, static_cast<unsigned int>(std::strlen(s)));  // modulo 2^32
    return *this;
}

zqostream& zqostream::operator<<(const unsigned char* s)
{
    return zqostream::operator<<(reinterpret_cast<const char*>(s));
}

zqostream& zqostream::operator<<(const signed char* s)
{
    return zqostream::operator<<(reinterpret_cast<const char*>(s));
}

zqostream& zqostream::operator<<(const std::string& s)
{
    return *this << s.c_str();
}

zqostream& zqostream::operator<<(short value)
{
    return putNumber(long{value});
}

zqostream& zqostream::operator<<(unsigned short value)
{
    return putNumber(zqsize_t{value});
}

zqostream& zqostream::operator<<(int value)
{
    return putNumber(long{value});
}

zqostream& zqostream::operator<<(unsigned int value)
{
    return putNumber(zqsize_t{value});
}

zqostream& zqostream::operator<<(long value)
{
    return putNumber(value);
}

zqostream& zqostream::operator<<(unsigned long value)
{
    return putNumber(value);
}

zqostream& zqostream::operator<<(float value)
{
    return putNumber(double{value});
}

zqostream& zqostream::operator<<(double value)
{
    return putNumber(value);
}

zqostream& zqostream::operator<<(zqistream& in)
{
    unsigned char block[copyBlockSize];
    while (!in.eof() && !_eof) {
        const zqsize_t n = in.read(block, sizeof block);
        if (n == 0)
            break;
        write(block, n);
    }
    return *this;
}

// ---- manipulators

zqostream& zqendl(zqostream& out)
{
    out.zqostream::operator<<('\n');  // the byte itself, whatever a derived stream makes of a char
    out.flush();
    return out;
}

zqostream& zqends(zqostream& out)
{
    out.zqostream::operator<<('\0');
    return out;
}

zqostream& zqflush(zqostream& out)
{
    out.flush();
    return out;
}

zqostream& operator<<(zqostream& out, std::ostream& (*f)(std::ostream&))
{
    if (f == static_cast<std::ostream& (*)(std::ostream&)>(std::ends))
        return zqends(out);
    if (f == static_cast<std::ostream& (*)(std::ostream&)>(std::flush))
        return zqflush(out);
    return zqendl(out);
}

zqostream& operator<<(zqostream& out, std::ios_base& (*)(std::ios_base&))
{
    return zqendl(out);
}

}  // namespace ZQPlatform
