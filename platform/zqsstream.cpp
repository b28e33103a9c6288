#include "zqsstream.h"

#include <algorithm>

namespace ZQPlatform {

namespace {

// Lengths pass through 32 bits where a block is copied.
zqsize_t low32(zqsize_t n)
{
    return static_cast<unsigned int>(n);
}

std::string textOf(const char* s)
{
    return s ? s : "";
}

std::string textOf(const unsigned char* data, zqsize_t len)
{
    if (!data)
        return std::string();
    return std::string(reinterpret_cast<const char*>(data), len);
}

}  // namespace

// ---- zqisstream

zqisstream::zqisstream() : _owns(false) {}

// Not the base's copy: it would copy the buffer, which holds nothing here.
// NOLINTNEXTLINE(bugprone-copy-constructor-init)
zqisstream::zqisstream(const zqisstream& other) : zqistream(), _owns(other._owns)
{
    copyBlock(other);
}

zqisstream& zqisstream::operator=(const zqisstream& other)
{
    if (this == &other)
        return *this;
    _owns = other._owns;
    copyBlock(other);
    return *this;
}

zqisstream::~zqisstream()
{
    releaseBlock();
}

void zqisstream::releaseBlock()
{
    if (_owns && hasBlock())
        delete[] _begin;
    _begin = nullptr;
    _owns = false;
}

// Sets the block of 'other' and stands in it where 'other' stands.
void zqisstream::copyBlock(const zqisstream& other)
{
    if (other._size == 0 && other.readsBlock()) {
        // Caller memory of open(data, len): its length is known by its end alone.
        clear();
        _begin = other._begin;
        _ptr = other._ptr;
        _end = other._end;
        _eof = other._eof;
        return;
    }
    if (!set(reinterpret_cast<const char*>(other._begin), low32(other._size), other._owns))
        return;
    _ptr = _begin + std::min(other._ptr - other._begin, static_cast<std::ptrdiff_t>(_size));
    _end = _begin + std::min(other._end - other._begin, static_cast<std::ptrdiff_t>(_size));
}

bool zqisstream::set(const char* data, zqsize_t len, bool copy)
{
    clear();
    if (!data || len == 0)
        return false;
    if (copy) {
        _begin = new unsigned char[len];
        std::memcpy(_begin, data, len);
        _owns = true;
    } else {
        // Nothing writes through the span of an input stream.
        _begin = reinterpret_cast<unsigned char*>(const_cast<char*>(data));
    }
    _ptr = _begin;
    _end = _begin + len;
    _size = len;
    _sizeknown = true;
    return true;
}

bool zqisstream::set(const std::string& s)
{
    return set(s.data(), low32(s.size()), true);
}

bool zqisstream::getbuffer(std::string& out) const
{
    out.clear();
    if (!readsBlock())
        return true;
    out.assign(reinterpret_cast<const char*>(_begin), static_cast<zqsize_t>(_end - _begin));
    return _begin != _end;
}

bool zqisstream::reset()
{
    if (!readsBlock())
        return false;
    _ptr = _begin;
    _end = _begin + _size;
    return true;
}

void zqisstream::clear()
{
    _zqclear();
    releaseBlock();
    resetClosed();
}

long zqisstream::_zqtell() const
{
    return readsBlock() ? _ptr - _begin : _ptr - _end + static_cast<long>(_size);
}

bool zqisstream::_zqclose()
{
    releaseBlock();
    _ptr = _end = _buf;
    return true;
}

bool zqisstream::_zqfill()
{
    _ptr = _end;
    _eof = true;
    return false;
}

void zqisstream::_zqclear() {}

// ---- zqosstream

zqosstream::zqosstream() = default;

zqosstream::zqosstream(const unsigned char* data, zqsize_t len) : _text(textOf(data, len)) {}

zqosstream::zqosstream(const char* s) : _text(textOf(s)) {}

zqosstream::zqosstream(const std::string& s) : _text(s) {}

zqosstream::zqosstream(const zqosstream& other) : zqostream(other), _text(other._text)
{
    _begin = other._begin;
}

zqosstream& zqosstream::operator=(const zqosstream& other)
{
    if (this == &other)
        return *this;
    zqostream::operator=(other);
    _begin = other._begin;
    _text = other._text;
    return *this;
}

zqosstream::~zqosstream() = default;

bool zqosstream::set(const char* s)
{
    clear();
    _text = textOf(s);
    return true;
}

bool zqosstream::set(const std::string& s)
{
    clear();
    _text = s;
    return true;
}

bool zqosstream::set(const unsigned char* data, zqsize_t len)
{
    clear();
    _text = textOf(data, len);
    return true;
}

std::string zqosstream::str()
{
    if (_begin == _buf) {
        flush();
        return _text;
    }
    return std::string(reinterpret_cast<const char*>(spanStart()),
                       static_cast<zqsize_t>(_ptr - spanStart()));
}

void zqosstream::clear()
{
    std::string().swap(_text);
    _offset = 0;
    _size = 0;
    _sizeknown = false;
    _ptr = _begin = _buf;
    _end = _buf + ZQ_STREAM_BUFSIZE;
    _eof = false;
}

bool zqosstream::_zqopen(const char*)
{
    _eof = false;
    _end = _buf + ZQ_STREAM_BUFSIZE;
    return false;
}

bool zqosstream::_zqflush()
{
    if (_begin != _buf) {
        _begin = _ptr = _end = _buf;
        _eof = true;
        return false;
    }
    const std::ptrdiff_t pending = _ptr - _begin;
    _text.append(reinterpret_cast<const char*>(_begin), static_cast<zqsize_t>(pending));
    moveOffset(pending);
    _ptr = _begin;
    return true;
}

void zqosstream::_zqclear()
{
    std::string().swap(_text);
}

}  // namespace ZQPlatform
