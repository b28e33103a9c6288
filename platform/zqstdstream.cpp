#include "zqstdstream.h"

#include <memory>

namespace ZQPlatform {

namespace {

// A standard object may have been told to throw; here its state, or its count, tells all.
template <class Call> void quietly(Call call)
{
    try {
        call();
    } catch (const std::ios_base::failure&) {
    }
}

}  // namespace

// ---- zqistdstream

zqistdstream::zqistdstream() : _stream(nullptr), _owns(false) {}

zqistdstream::zqistdstream(std::istream* s, bool owns) : _stream(s), _owns(owns)
{
    _eof = !s || s->fail();
}

zqistdstream::~zqistdstream()
{
    letGo();
}

void zqistdstream::letGo()
{
    const std::unique_ptr<std::istream> owned(_owns ? _stream : nullptr);
    _stream = nullptr;
    _owns = false;
}

bool zqistdstream::set(std::istream* s, bool owns)
{
    if (s == _stream)
        return !_eof;
    clear();
    _begin = _buf;
    _stream = s;
    _owns = owns;
    if (s && !s->fail())
        _eof = !_zqset(s);
    return !_eof;
}

void zqistdstream::clear()
{
    letGo();
    _zqclear();
    resetClosed();
}

bool zqistdstream::_zqfill()
{
    if (!_stream) {
        if (_begin != _buf)
            _eof = true;  // caller memory was read out
        return false;
    }
    quietly([this] { _stream->read(reinterpret_cast<char*>(_buf), ZQ_STREAM_BUFSIZE); });
    const std::streamsize got = _stream->gcount();
    if (got < 1) {
        clear();
        return false;
    }
    moveOffset(static_cast<unsigned int>(_ptr - _buf));
    _ptr = _buf;
    _end = _buf + got;
    return true;
}

bool zqistdstream::_zqseek(long pos)
{
    if (!_stream)
        return false;
    quietly([this, pos] { _stream->seekg(pos, std::ios_base::beg); });
    _offset = pos;
    return _zqfill();
}

bool zqistdstream::_zqclose()
{
    clear();
    return true;
}

void zqistdstream::_zqclear() {}

bool zqistdstream::_zqset(std::istream*)
{
    return true;
}

// ---- zqostdstream

zqostdstream::zqostdstream() : _stream(nullptr), _owns(false) {}

zqostdstream::zqostdstream(std::ostream* s, bool owns) : _stream(s), _owns(owns)
{
    if (s && s->fail()) {
        _eof = true;
        _end = _buf;
    }
}

zqostdstream::~zqostdstream()
{
    letGo();
}

void zqostdstream::letGo()
{
    const std::unique_ptr<std::ostream> owned(_owns ? _stream : nullptr);
    _stream = nullptr;
    _owns = false;
}

bool zqostdstream::set(std::ostream* s, bool owns)
{
    if (s == _stream)
        return !_eof;
    clear();
    _begin = _buf;
    _stream = s;
    _owns = owns;
    if (s && !s->fail()) {
        _end = _buf + ZQ_STREAM_BUFSIZE;
        _eof = !_zqset(s);
    }
    return !_eof;
}

void zqostdstream::clear()
{
    if (_stream)
        quietly([this] { _stream->flush(); });
    letGo();
    _zqclear();
    resetClosed();
}

bool zqostdstream::_zqflush()
{
    if (!_stream || _begin == _end)
        return refuseFlush();
    const auto pending = static_cast<unsigned int>(_ptr - _buf);
    quietly([this, pending] {
        _stream->write(reinterpret_cast<const char*>(_buf), pending);
        _stream->flush();
    });
    _offset = pending;
    _ptr = _buf;
    return true;
}

bool zqostdstream::_zqseek(long pos)
{
    if (!_stream)
        return false;
    _zqflush();  // result ignored: false either way
    quietly([this, pos] { _stream->seekp(pos, std::ios_base::beg); });
    if (!_stream->fail())
        _offset = pos;
    return false;
}

void zqostdstream::_zqclose()
{
    clear();
}

void zqostdstream::_zqclear() {}

bool zqostdstream::_zqset(std::ostream*)
{
    return true;
}

}  // namespace ZQPlatform
