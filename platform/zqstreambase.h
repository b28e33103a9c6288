// The base classes of every stream: buffering, block and text input and output, copying.
//
// A stream is one object with a 64 KiB buffer inside it. Callers use the public functions; a
// concrete stream supplies bytes or takes them away through a few protected hooks:
//
//   zqifstream in("data.txt");                 // see zqstream.h for the concrete streams
//   std::string line;
//   while (in.getline(line))
//       zqout << line << zqendl;
//
// Failure travels in results (false, 0, a short count) and in the stream's state; no function
// here throws, but for std::bad_alloc where a string or a block has to grow.
// Not synchronised: one thread uses a stream at a time. A stream is a little over 64 KiB, so it
// is best a global, a member or on the heap, not on a small stack.

#ifndef ZQPLATFORM_ZQSTREAMBASE_H
#define ZQPLATFORM_ZQSTREAMBASE_H

#include "zqexport.h"
#include "zqtime.h"

#include <cstddef>
#include <cstring>
#include <ostream>
#include <string>

// Sizes and counts of the stream interfaces, in bytes.
typedef unsigned long zqsize_t;

namespace ZQPlatform {

using ::zqsize_t;

class zqistream;
class zqostream;

// Size of the buffer inside every stream, in bytes.
constexpr zqsize_t ZQ_STREAM_BUFSIZE = 65536;

// What a stream's hooks may throw: one message. The streams of this library throw none; the
// destructors of output streams that close catch it and print its message on zqerr.
class ZQPLATFORM_EXPORT ZQIOError {
public:
    // The message is the text of the calling thread's errno.
    ZQIOError();
    // A null message counts as an empty one.
    ZQIOError(const char* msg);

    // The message, zero-terminated; it lives as long as this object.
    const char* what() const { return _message.c_str(); }

private:
    std::string _message;
};

// What input and output streams share: the buffer, the position, the size.
//
// The order of virtual functions and of data members is part of the binary interface, which is
// why hooks stand before the destructor here and in the derived classes.
class ZQPLATFORM_EXPORT zqstream {
protected:
    // Moves to the absolute position 'pos' (bytes from the start of the stream).
    //   Called    by seek() for a position outside the span.
    //   Success   _offset is pos, the span is empty, _eof is clear; an input stream then refills
    //             and returns what its _zqfill() returns. An output stream flushes first.
    //   Failure   returns false; the stream stands where it stood.
    //   Default   false: not seekable.
    virtual bool _zqseek(long pos);

    // Computes the total size in bytes.
    //   Called    by size() while _sizeknown is false.
    //   Success   returns the size; may keep it in _size and set _sizeknown.
    //   Failure   returns 0.
    //   Default   0.
    virtual zqsize_t _zqsize();

    // The current position. Called by tell(). Default: as in the drawing below.
    virtual long _zqtell() const;

public:
    // Closes nothing: a stream that holds a resource lets go of it in its own destructor.
    virtual ~zqstream();

    // An empty span on the own buffer, with _eof set.
    zqstream();
    // Copies the state and all of the buffer; the copy's span lies in its own buffer. A stream
    // that stands in caller memory is copied as a second reader or writer of that memory, which
    // has to outlive the copy.
    zqstream(const zqstream& other);
    // The same, but _begin stays as it is (unless the other stands in caller memory).
    // For streams of one class that can be copied: through base references, too, the others must
    // not be assigned. A stream of another class that stands in caller memory leaves this one with
    // an empty span.
    zqstream& operator=(const zqstream& other);

    // Position of the next byte to read or to write, in bytes.
    long tell() const { return _zqtell(); }

    // Moves to the absolute position 'pos'. Inside the current span this only moves the pointer
    // and clears _eof, on input and on output alike; beyond it the stream's own rule decides.
    // An output stream that is moved forward inside its buffer hands on, at the next flush,
    // whatever bytes the buffer holds up to there, unwritten ones included.
    bool seek(long pos);

    // Total size in bytes; 0 where it is not known.
    zqsize_t size() { return _sizeknown ? _size : _zqsize(); }

    // Input: everything was read. Output: failed or closed, and no room left.
    bool eof() const { return _ptr == _end && _eof; }

    // Bytes moved by the latest read or write.
    zqsize_t count() const { return _count; }

protected:
    // The span that is being read or written:
    //
    //   _begin            _ptr              _end
    //     |  already read   |   still unread  |      position = _offset + (_ptr - _begin)
    //     |  written        |   room          |
    //
    // It lies in _buf, or in a block of the caller after open(data, len). 64-byte alignment: a
    // 64 KiB read() into an odd place inside a page costs several times as much.
    alignas(64) unsigned char _buf[ZQ_STREAM_BUFSIZE];
    unsigned char* _ptr;    // next byte to read or to write
    unsigned char* _begin;  // start of the span
    unsigned char* _end;    // input: behind the last valid byte; output: behind the last free one
    zqsize_t _count;        // bytes moved by the latest read or write
    long _offset;           // stream position of _begin
    zqsize_t _size;         // total size, if _sizeknown
    bool _sizeknown;        // _size is valid
    bool _eof;              // input: the source has no more than the span; output: failed, closed

    // Compilers copy a larger constant number of bytes by an instruction that is slower than
    // std::memcpy itself.
    static constexpr zqsize_t largestInline = 256;

    // Where the span really starts. After close(), and in some copies, _begin still names memory
    // that is not the stream's any more; _ptr never does, so _ptr decides.
    unsigned char* spanStart() const;

    // Moves _offset on by 'n' bytes, as fills and flushes do; positions wrap at 2^63.
    void moveOffset(std::ptrdiff_t n)
    {
        _offset = static_cast<long>(zqsize_t(_offset) + zqsize_t(n));
    }

    // The state of a stream that is closed: no size, position 0, an empty span on _buf, _eof set.
    // Deliberate: _begin stays as it is.
    void resetClosed();

private:
    // The stream manager looks at the first bytes of a stream that it did not make.
    friend class ZQStreamManager;

    bool inOwnBuffer(const unsigned char* p) const
    {
        return reinterpret_cast<std::size_t>(p) - reinterpret_cast<std::size_t>(_buf) <=
               ZQ_STREAM_BUFSIZE;
    }
    ZQPLATFORM_INTERNAL void copyFrom(const zqstream& other);
};

// A buffered input stream. By itself it reads nothing but caller memory (open(data, len)).
class ZQPLATFORM_EXPORT zqistream : public zqstream {
protected:
    // Attaches the resource called 'name' (may be null).
    //   Called    by open(name), after the stream was closed and reset.
    //   Success   the resource is attached and _begin is _buf again (it may still name a block
    //             of an earlier open(data, len)); returns true. Nothing is read yet.
    //   Failure   returns false; the stream stays closed.
    //   Default   false.
    virtual bool _zqopen(const char* name);

    // Releases the resource.
    //   Called    by close() and the open() functions, before anything else.
    //   Failure   returns false: close() or open() stops there and changes nothing.
    //   Default   true.
    virtual bool _zqclose();

    // Makes at least one more byte readable.
    //   Called    when the span is used up (_ptr == _end) and more bytes are wanted.
    //   Success   fills _buf from its start, moves _offset on by the bytes used up
    //             (_ptr - _buf), sets _ptr and _end around the new bytes; returns true.
    //   Failure   at the end of the data or on any error: sets _eof, leaves _ptr == _end,
    //             returns false.
    //   Default   there is nothing more to read.
    virtual bool _zqfill();

public:
    // Calls f(*this).
    virtual zqistream& operator>>(zqistream& (*f)(zqistream&));
    virtual zqistream& operator>>(zqstream& (*f)(zqstream&));

    // Consumes one byte and yields true, whatever the byte is; false at the end of the data.
    // Deliberate: the '0' that operator<<(bool) writes reads back as true.
    virtual zqistream& operator>>(bool& value)
    {
        value = nextByte() >= 0;
        return *this;
    }

    // The next byte as it is; white space is not skipped. At the end of the data 0xFF.
    virtual zqistream& operator>>(char& value) { return take(value); }
    virtual zqistream& operator>>(unsigned char& value) { return take(value); }
    virtual zqistream& operator>>(signed char& value) { return take(value); }

    // Deliberate: the entire rest of the stream, not a word. See gettoken for words.
    virtual zqistream& operator>>(std::string& value);

    // One token (see gettoken) as a number, in the forms of strtol (base 10) and strtod in the
    // "C" locale; what does not fit the type is cut to it. 0 at the end of the data, for a token
    // without a number (two separators in a row enclose an empty token), and whenever errno is
    // ERANGE afterwards. Deliberate: errno is not cleared first, so an ERANGE that an earlier
    // call left, an overflowing number included, turns every later number into 0 until the
    // caller clears errno.
    virtual zqistream& operator>>(short& value);
    virtual zqistream& operator>>(int& value);
    virtual zqistream& operator>>(long& value);
    virtual zqistream& operator>>(unsigned short& value);
    virtual zqistream& operator>>(unsigned int& value);
    virtual zqistream& operator>>(unsigned long& value);
    virtual zqistream& operator>>(float& value);
    virtual zqistream& operator>>(double& value);

    // Copies the rest of this stream to 'out', in blocks of 4096 bytes.
    // Deliberate: copies nothing where _eof is already set, even with bytes left in the span, as
    // in every string stream; out << in copies those too.
    virtual zqistream& operator>>(zqostream& out);

    // An empty stream; the first read ends it.
    zqistream();
    // As in zqstream.
    zqistream(const zqistream& other);
    // As in zqstream.
    ~zqistream() override;
    // As in zqstream.
    zqistream& operator=(const zqistream& other);

    // Closes the stream and attaches the resource called 'name'. False if either fails.
    bool open(const char* name);
    bool open(const std::string& name) { return open(name.c_str()); }

    // Closes the stream and reads the caller's 'len' bytes at 'data' where they are; they must
    // stay alive until the stream is closed. False for null.
    bool open(unsigned char* data, zqsize_t len);

    // Releases the resource. False if the stream refuses, and then nothing changes.
    bool close();

    // Reads up to 'n' bytes; fewer only where the data ends. Returns the bytes read, as count().
    zqsize_t read(unsigned char* dst, zqsize_t n)
    {
        // 0 bytes, too: they must not touch a null dst.
        if (n - 1 >= zqsize_t(_end - _ptr) || (__builtin_constant_p(n) && n > largestInline))
            return readAcross(dst, n);
        std::memcpy(dst, _ptr, n);
        _ptr += n;
        return _count = n;
    }
    zqsize_t read(char* dst, zqsize_t n) { return read(reinterpret_cast<unsigned char*>(dst), n); }
    zqsize_t read(signed char* dst, zqsize_t n)
    {
        return read(reinterpret_cast<unsigned char*>(dst), n);
    }
    // The same into a string, which is emptied first; without 'n', to the end of the data.
    zqsize_t read(std::string& dst, zqsize_t n);
    zqsize_t read(std::string& dst);

    // Skips 'n' bytes by reading them. False for a negative n and where the data ends before.
    bool skip(long n);

    // Reads one line: its tabs and its bytes from 32 on; other bytes below 32 are dropped.
    // A line ends at a line feed, at a carriage return with all carriage returns and at most
    // one line feed that follow, or where the data ends. False if there was nothing to read.
    //
    // With 'max', the size of the buffer: at most max - 1 characters and a NUL are stored, and
    // what a longer line has left is lost. max 0 writes one NUL and is false; a buffer that would
    // reach behind the end of the address space stops the process.
    bool getline(char* buffer, zqsize_t max);
    bool getline(unsigned char* buffer, zqsize_t max)
    {
        return getline(reinterpret_cast<char*>(buffer), max);
    }
    bool getline(signed char* buffer, zqsize_t max)
    {
        return getline(reinterpret_cast<char*>(buffer), max);
    }
    // 'line' is empty where the result is false. A max within 16 of the largest number throws
    // std::bad_alloc, as does one for which there is no memory.
    bool getline(std::string& line, zqsize_t max);
    bool getline(std::string& line);

    // Reads up to the next byte that isspace() names and consumes that one byte. Other bytes up
    // to 32 are dropped. Leading white space is not skipped: two separators in a row enclose an
    // empty token. False if there was nothing to read. 'max' as for getline, and what is left of
    // the *line* after an overlong token is lost.
    bool gettoken(unsigned char* buffer, zqsize_t max);
    bool gettoken(char* buffer, zqsize_t max)
    {
        return gettoken(reinterpret_cast<unsigned char*>(buffer), max);
    }
    bool gettoken(signed char* buffer, zqsize_t max)
    {
        return gettoken(reinterpret_cast<unsigned char*>(buffer), max);
    }
    bool gettoken(std::string& token, zqsize_t max);

    // Skips to behind the end of the current line. False if there was nothing to read.
    bool skipline();

protected:
    // For a _zqfill() that has put 'n' bytes at the start of _buf: makes them the span. True.
    bool filled(std::ptrdiff_t n);

private:
    friend class ZQStreamManager;

    // True once a byte stands at _ptr; false where the data ends.
    bool more()
    {
        while (_ptr == _end)
            if (!_zqfill())
                return false;
        return true;
    }
    int nextByte() { return more() ? *_ptr++ : -1; }
    template <class Byte> zqistream& take(Byte& value)
    {
        value = static_cast<Byte>(nextByte());
        return *this;
    }
    zqsize_t readAcross(unsigned char* dst, zqsize_t n);
    ZQPLATFORM_INTERNAL bool takeLineEnd();
    ZQPLATFORM_INTERNAL bool tokenInSpan(const char*& first, const char*& last, zqsize_t max);
    template <class Parsed> ZQPLATFORM_INTERNAL Parsed parseToken();
    template <class Parsed, class Number> ZQPLATFORM_INTERNAL zqistream& readNumber(Number& value);
};

// A buffered output stream. By itself it drops what is written and counts the position, or
// writes to caller memory (open(data, len)).
class ZQPLATFORM_EXPORT zqostream : public zqstream {
protected:
    // Attaches the resource called 'name' (may be null).
    //   Called    by open(name), after the stream was flushed, closed and reset.
    //   Success   the resource is attached and _begin is _buf again (it may still name a block
    //             of an earlier open(data, len)); returns true.
    //   Failure   returns false; the stream stays closed.
    //   Default   false.
    virtual bool _zqopen(const char* name);

    // Releases the resource. Called by close() and the open() functions, after _zqflush().
    // Default: nothing to release.
    virtual void _zqclose();

    // Hands on the bytes from the start of the span to _ptr.
    //   Called    when the span is full (_ptr == _end) and room is wanted; by flush(), close()
    //             and the open() functions.
    //   Success   _offset has moved on by the bytes handed on, _ptr is back at the start of the
    //             span; returns true. True without having made room stops the process where
    //             write() finds it.
    //   Failure   sets _eof, returns false.
    //   Default   drops the bytes of the own buffer. In caller memory: true while there is room,
    //             then _eof and false; the bytes stay where they were written.
    virtual bool _zqflush();

public:
    // Calls f(*this): zqendl and its kind.
    virtual zqostream& operator<<(zqostream& (*f)(zqostream&));
    virtual zqostream& operator<<(zqstream& (*f)(zqstream&));

    // The characters up to the NUL; nothing for null.
    virtual zqostream& operator<<(const char* s);
    virtual zqostream& operator<<(const unsigned char* s);
    virtual zqostream& operator<<(const signed char* s);
    // Deliberate: stops at the first NUL in the string. write(s) writes all of it.
    virtual zqostream& operator<<(const std::string& s);

    // One byte: '1' or '0', or the character itself. Dropped where no room can be made.
    virtual zqostream& operator<<(bool value) { return put(value ? '1' : '0'); }
    virtual zqostream& operator<<(char c) { return put(static_cast<unsigned char>(c)); }
    virtual zqostream& operator<<(unsigned char c) { return put(c); }
    virtual zqostream& operator<<(signed char c) { return put(static_cast<unsigned char>(c)); }

    // The number in decimal, without blanks or a line end; float and double as printf's "%f" in
    // the "C" locale: fixed notation, six decimals.
    virtual zqostream& operator<<(short value);
    virtual zqostream& operator<<(unsigned short value);
    virtual zqostream& operator<<(int value);
    virtual zqostream& operator<<(unsigned int value);
    virtual zqostream& operator<<(long value);
    virtual zqostream& operator<<(unsigned long value);
    virtual zqostream& operator<<(float value);
    virtual zqostream& operator<<(double value);

    // Copies the rest of 'in' to this stream, in blocks of 4096 bytes; stops where this stream's
    // _eof is set.
    virtual zqostream& operator<<(zqistream& in);

    // Ready to write.
    zqostream();
    // As in zqstream.
    zqostream(const zqostream& other);
    // Does not flush. Streams that must not lose data close in their own destructor.
    ~zqostream() override;
    // As in zqstream.
    zqostream& operator=(const zqostream& other);

    // Flushes and closes the stream, then attaches the resource called 'name'.
    bool open(const char* name);
    bool open(const std::string& name) { return open(name.c_str()); }

    // Flushes and closes the stream, then writes to the caller's 'len' bytes at 'data', which
    // must stay alive until the stream is closed. Once they are full, writing fails. False for
    // null.
    bool open(unsigned char* data, zqsize_t len);

    // Flushes and releases the resource; until the next open there is no room to write.
    void close();

    // Hands on the buffered bytes. False if that failed.
    bool flush() { return _zqflush(); }

    // Writes 'n' bytes and returns n. Deliberate: a failure on the way returns 0 even if some
    // bytes went out; count() tells how many. Null returns 0 and leaves count() alone.
    zqsize_t write(const char* src, zqsize_t n)
    {
        unsigned char* const dst = _ptr;  // read once: to the compiler, the copy may change _ptr
        if (n - 1 >= zqsize_t(_end - dst) || !src || (__builtin_constant_p(n) && n > largestInline))
            return writeAcross(src, n);
        std::memcpy(dst, src, n);
        _ptr = dst + n;
        return _count = n;
    }
    zqsize_t write(const unsigned char* src, zqsize_t n)
    {
        return write(reinterpret_cast<const char*>(src), n);
    }
    zqsize_t write(const signed char* src, zqsize_t n)
    {
        return write(reinterpret_cast<const char*>(src), n);
    }
    zqsize_t write(const std::string& s) { return write(s.data(), s.size()); }
    // The first 'n' bytes of s, or all of it where n is more.
    zqsize_t write(const std::string& s, zqsize_t n)
    {
        return write(s.data(), n < s.size() ? n : s.size());
    }
    zqsize_t write(std::nullptr_t, zqsize_t) { return 0; }

protected:
    // For a _zqflush() that has nowhere to hand bytes to: false, and the end of the stream where
    // caller memory is full.
    bool refuseFlush();

private:
    // Room for one byte at least: flushes a full span.
    bool makeRoom() { return _ptr != _end || (_zqflush() && _ptr != _end); }
    zqostream& put(unsigned char c)
    {
        if (makeRoom())
            *_ptr++ = c;
        return *this;
    }
    zqsize_t writeAcross(const char* src, zqsize_t n);
    template <class Number> ZQPLATFORM_INTERNAL zqostream& putNumber(Number value);
};

// Line feed, then flush(). The line feed is dropped where no room can be made.
ZQPLATFORM_EXPORT zqostream& zqendl(zqostream& out);
// A NUL byte.
ZQPLATFORM_EXPORT zqostream& zqends(zqostream& out);
// flush().
ZQPLATFORM_EXPORT zqostream& zqflush(zqostream& out);

// std::endl, std::ends and std::flush do what zqendl, zqends and zqflush do.
// Deliberate: every other standard manipulator counts as zqendl.
ZQPLATFORM_EXPORT zqostream& operator<<(zqostream& out, std::ostream& (*f)(std::ostream&));
ZQPLATFORM_EXPORT zqostream& operator<<(zqostream& out, std::ios_base& (*f)(std::ios_base&));

}  // namespace ZQPlatform

#endif
