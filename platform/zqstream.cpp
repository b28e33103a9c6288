#include "zqstream.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <iostream>  // the standard streams are to be set up before ours and to outlive them
#include <memory>
#include <unistd.h>

namespace ZQPlatform {

namespace {

constexpr int highestStandardFd = 2;
constexpr int createMode = 0644;

// Lets go of a descriptor; the standard ones stay open for the rest of the process.
void closeUnlessStandard(int fd)
{
    if (fd > highestStandardFd)
        ::close(fd);
}

// Repeats a call of read or write while a signal interrupts it.
template <class Call> ssize_t repeatInterrupted(Call call)
{
    ssize_t result;
    do
        result = call();
    while (result < 0 && errno == EINTR);
    return result;
}

}  // namespace

// ---- zqifstream

zqifstream::zqifstream() : fd(-1) {}

zqifstream::zqifstream(const char* name) : fd(-1)
{
    open(name);
}

zqifstream::zqifstream(const std::string& name) : fd(-1)
{
    open(name);
}

zqifstream::~zqifstream()
{
    _zqclose();  // result ignored: standard input stays open
}

bool zqifstream::openfd(int newfd, bool closeCurrent)
{
    if (closeCurrent && !_zqclose())
        return false;
    resetClosed();
    _begin = _buf;
    fd = newfd;
    _eof = fd == -1;
    return fd != -1;
}

long zqifstream::pread(char* buf, std::size_t n, long offset) const
{
    return ::pread(fd, buf, n, offset);
}

bool zqifstream::_zqopen(const char* name)
{
    fd = name ? ::open(name, O_RDONLY) : -1;
    if (fd == -1)
        return false;
    _begin = _buf;
    return true;
}

bool zqifstream::_zqclose()
{
    if (fd == STDIN_FILENO)
        return false;
    closeUnlessStandard(fd);
    fd = -1;
    _eof = true;
    return true;
}

bool zqifstream::_zqfill()
{
    if (fd == -1) {
        _eof = true;
        return false;
    }
    const ssize_t got = repeatInterrupted([this] { return ::read(fd, _buf, ZQ_STREAM_BUFSIZE); });
    if (got <= 0) {
        _offset = 0;
        _ptr = _end = _buf;
        _eof = true;
        return false;
    }
    return filled(got);
}

bool zqifstream::_zqseek(long pos)
{
    if (fd == -1 || fd == STDIN_FILENO || ::lseek(fd, pos, SEEK_SET) == -1)
        return false;
    _offset = pos;
    _eof = false;
    _ptr = _end = _buf;
    return _zqfill();
}

zqsize_t zqifstream::_zqsize()
{
    if (fd == -1 || fd == STDIN_FILENO)
        return 0;
    const long offset = _offset;
    const std::ptrdiff_t read = _ptr - _buf;
    const off_t end = ::lseek(fd, 0, SEEK_END);
    _size = end == -1 ? 0 : static_cast<zqsize_t>(end);
    _sizeknown = true;
    if (end == -1)
        return 0;

    ::lseek(fd, offset, SEEK_SET);
    if (!_zqfill()) {
        _size = 0;
        return 0;
    }
    _offset = offset;
    _ptr = std::min(_buf + read, _end);  // the file may have shrunk
    return _size;
}

// ---- zqofstream

zqofstream::zqofstream() : fd(-1) {}

zqofstream::zqofstream(int newfd) : fd(-1)
{
    openfd(newfd, false);
}

zqofstream::zqofstream(const char* name) : fd(-1)
{
    open(name);
}

zqofstream::zqofstream(const std::string& name) : fd(-1)
{
    open(name);
}

zqofstream::~zqofstream()
{
    try {
        close();
    } catch (const ZQIOError& error) {
        zqerr << "Caught ZQIOError during zqofstream destruction: " << error.what() << zqendl;
    }
}

// Makes the buffer writable if there is a descriptor to write it to.
bool zqofstream::attached()
{
    if (fd == -1)
        return false;
    _end = _buf + ZQ_STREAM_BUFSIZE;
    _eof = false;
    return true;
}

bool zqofstream::openfd(int newfd, bool closeCurrent)
{
    if (closeCurrent)
        _zqclose();
    else
        flush();  // result ignored: the old descriptor is left to its owner either way
    resetClosed();
    _begin = _buf;
    fd = newfd;
    return attached();
}

bool zqofstream::append(const char* name)
{
    _zqflush();  // result ignored: the current file is closed either way
    _zqclose();
    resetClosed();
    _begin = _buf;
    openFile(name, O_WRONLY | O_CREAT | O_APPEND);  // attached() tells
    return attached();
}

bool zqofstream::append(const std::string& name)
{
    return append(name.c_str());
}

bool zqofstream::openFile(const char* name, int flags)
{
    fd = name ? ::open(name, flags, createMode) : -1;
    if (fd == -1)
        return false;
    _begin = _buf;
    return true;
}

bool zqofstream::_zqopen(const char* name)
{
    return openFile(name, O_WRONLY | O_CREAT | O_TRUNC);
}

void zqofstream::_zqclose()
{
    closeUnlessStandard(fd);
    fd = -1;
    _eof = true;
}

bool zqofstream::_zqflush()
{
    if (fd == -1)
        return refuseFlush();
    const std::ptrdiff_t pending = _ptr - _buf;
    const ssize_t written = repeatInterrupted(
        [this, pending] { return ::write(fd, _buf, static_cast<std::size_t>(pending)); });
    if (written != pending)
        _eof = true;
    moveOffset(pending);
    _ptr = _buf;
    return !_eof;
}

bool zqofstream::_zqseek(long)
{
    return false;
}

zqsize_t zqofstream::_zqsize()
{
    return 0;
}

// ---- zqiofstream

zqiofstream::zqiofstream() = default;

zqiofstream::zqiofstream(const char* name)
{
    open(name);
}

zqiofstream::zqiofstream(const std::string& name)
{
    open(name);
}

zqiofstream::~zqiofstream()
{
    close();
}

long zqiofstream::pread(char* buf, std::size_t n, long offset) const
{
    return ::pread(fd, buf, n, offset);
}

bool zqiofstream::_zqopen(const char* name)
{
    return openFile(name, O_RDWR | O_CREAT | O_TRUNC);
}

// ---- zqiwrapperstream

zqiwrapperstream::zqiwrapperstream() : stream(nullptr), own(false) {}

zqiwrapperstream::~zqiwrapperstream()
{
    clear();
}

bool zqiwrapperstream::set(zqistream* source, bool ownSource)
{
    if (source != stream) {
        clear();
        _begin = _buf;
        stream = source;
        own = ownSource;
    }
    if (source && !source->eof())
        _eof = !_zqset(source);
    return !_eof;
}

void zqiwrapperstream::clear()
{
    _zqclear();
    const std::unique_ptr<zqistream> owned(own ? stream : nullptr);
    stream = nullptr;
    own = false;
    resetClosed();
}

bool zqiwrapperstream::_zqfill()
{
    const zqsize_t got = stream ? stream->read(_buf, ZQ_STREAM_BUFSIZE) : 0;
    if (got == 0) {
        if (stream)
            _ptr = _end = _buf;
        _eof = true;
        return false;
    }
    return filled(static_cast<std::ptrdiff_t>(got));
}

bool zqiwrapperstream::_zqseek(long pos)
{
    if (!stream || !stream->seek(pos))
        return false;
    _offset = pos;
    _eof = false;
    _ptr = _end = _buf;
    return _zqfill();
}

zqsize_t zqiwrapperstream::_zqsize()
{
    return stream ? stream->size() : 0;
}

bool zqiwrapperstream::_zqclose()
{
    clear();
    return true;
}

void zqiwrapperstream::_zqclear() {}

bool zqiwrapperstream::_zqset(zqistream*)
{
    return true;
}

// ---- zqowrapperstream

zqowrapperstream::zqowrapperstream() : stream(nullptr), own(false) {}

zqowrapperstream::~zqowrapperstream()
{
    try {
        clear();
    } catch (const ZQIOError& error) {
        zqerr << "Caught ZQIOError during zqowrapperstream destruction: " << error.what() << zqendl;
    }
}

bool zqowrapperstream::set(zqostream* destination, bool ownDestination)
{
    if (destination == stream)
        return !_eof;
    clear();
    _begin = _buf;
    stream = destination;
    own = ownDestination;
    if (destination && !destination->eof()) {
        _end = _buf + ZQ_STREAM_BUFSIZE;
        _eof = !_zqset(destination);
    }
    return !_eof;
}

void zqowrapperstream::clear()
{
    _zqclear();
    zqostream* destination = stream;
    const std::unique_ptr<zqostream> owned(own ? stream : nullptr);
    stream = nullptr;
    own = false;
    resetClosed();
    if (destination)
        destination->flush();  // result ignored: the destination is let go of either way
}

bool zqowrapperstream::_zqflush()
{
    if (!stream)
        return refuseFlush();
    const std::ptrdiff_t pending = _ptr - _buf;
    stream->write(_buf, static_cast<zqsize_t>(pending));
    const bool flushed = stream->flush();
    _ptr = _buf;
    moveOffset(pending);
    return flushed;
}

bool zqowrapperstream::_zqseek(long pos)
{
    if (!stream)
        return false;
    _zqflush();  // result ignored: false either way
    if (stream->seek(pos))
        _offset = pos;
    return false;
}

zqsize_t zqowrapperstream::_zqsize()
{
    return stream ? stream->size() : 0;
}

void zqowrapperstream::_zqclose()
{
    clear();
}

void zqowrapperstream::_zqclear() {}

bool zqowrapperstream::_zqset(zqostream*)
{
    return true;
}

// ---- zqmultiostream

zqmultiostream::zqmultiostream() = default;

zqmultiostream::~zqmultiostream()
{
    clear();
}

void zqmultiostream::addstream(zqostream* stream, bool ownStream)
{
    streams.emplace_back(stream, ownStream);
}

void zqmultiostream::clear()
{
    for (auto entry = streams.begin(); entry != streams.end(); ++entry) {
        if (!entry->second)
            continue;
        const std::unique_ptr<zqostream> owned(entry->first);
        for (auto same = entry; same != streams.end(); ++same)
            if (same->first == owned.get())
                same->first = nullptr;  // one that was added twice is deleted once
    }
    streams.clear();
}

bool zqmultiostream::_zqflush()
{
    if (_begin != _buf)
        _begin = _ptr = _end = _buf;  // caller memory is full, or was given back
    if (_begin == _end) {
        _eof = true;
        return false;
    }
    const std::ptrdiff_t pending = _ptr - _begin;
    bool flushed = true;
    for (const auto& destination : streams) {
        zqostream* stream = destination.first;
        if (!stream)
            continue;
        stream->write(_begin, static_cast<zqsize_t>(pending));
        flushed = stream->flush() && flushed;
    }
    _ptr = _begin;
    moveOffset(pending);
    return flushed;
}

// ---- global streams

// Constructed in this order at load time and destroyed in reverse at exit.
zqifstream zqin;
[[maybe_unused]] static const bool standardInputAdopted = zqin.openfd(STDIN_FILENO, false);
zqofstream zqout(STDOUT_FILENO);
zqofstream zqerr(STDERR_FILENO);
zqostream zqnul;

}  // namespace ZQPlatform
