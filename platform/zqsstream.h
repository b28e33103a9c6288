// Streams over memory: reading a block of bytes, collecting what is written in a string.
//
//   zqosstream out;
//   out << "x = " << 42;
//   zqisstream in;
//   in.set(out.str());
//
// One thread uses a stream at a time.

#ifndef ZQPLATFORM_ZQSSTREAM_H
#define ZQPLATFORM_ZQSSTREAM_H

#include "zqstreambase.h"

#include <cstddef>
#include <string>

namespace ZQPlatform {

// Reads a block of bytes, borrowed from the caller or copied. All of the block is one span, so
// seek() reaches every byte of it (the position behind the last one excepted), and _eof is always
// set; see zqistream::operator>>(zqostream&) for what that means there.
class ZQPLATFORM_EXPORT zqisstream : public zqistream {
public:
    // No data: the first read ends the stream.
    zqisstream();
    // Reads the same bytes from the same position: in the same block if 'other' borrows it, in
    // a copy of its own if 'other' owns it. A block of 4 GiB and more is cut to its length
    // modulo 2^32.
    zqisstream(const zqisstream& other);
    // Deliberate: takes the other's ownership flag before it lets go of its own block, so a
    // borrowed block is released with delete[] if 'other' owns, and an owned one is not
    // released if 'other' borrows. Call clear() first.
    zqisstream& operator=(const zqisstream& other);
    // Lets go of the block.
    ~zqisstream() override;

    // Reads 'len' bytes at 'data' from now on. copy: true reads a copy; false reads the caller's
    // block, which must stay alive and unchanged. False, and no data, for null or 0 bytes.
    bool set(const char* data, zqsize_t len, bool copy);
    bool set(char* data, zqsize_t len, bool copy)
    {
        return set(static_cast<const char*>(data), len, copy);
    }
    bool set(std::nullptr_t, zqsize_t, bool copy)
    {
        return set(static_cast<const char*>(nullptr), 0, copy);
    }
    // A copy of s, cut to its length modulo 2^32.
    bool set(const std::string& s);

    // Replaces 'out' by the whole block, read or not. True, and an empty 'out', without a block.
    bool getbuffer(std::string& out) const;

    // Back to the start of the block. False without one.
    bool reset();

    // Lets go of the block.
    void clear();

protected:
    // The position in the block.
    long _zqtell() const override;
    bool _zqclose() override;
    bool _zqfill() override;

    // Releases what a derived stream holds. Called by clear(), before the block is let go of.
    // Default: nothing.
    virtual void _zqclear();

    bool _owns;  // _begin is a block of this stream, to be released with delete[]

private:
    bool hasBlock() const { return _begin && _begin != _buf; }
    // The span is the block, as it is unless a stream of another class was assigned.
    bool readsBlock() const { return hasBlock() && spanStart() == _begin; }
    ZQPLATFORM_INTERNAL void releaseBlock();
    ZQPLATFORM_INTERNAL void copyBlock(const zqisstream& other);
};

// Collects what is written in a string. Positions count the bytes written; text given to a
// constructor or to set() does not count.
class ZQPLATFORM_EXPORT zqosstream : public zqostream {
public:
    // Starts with no text.
    zqosstream();
    // Starts with this text, and writes behind it. Null counts as empty.
    zqosstream(const unsigned char* data, zqsize_t len);
    explicit zqosstream(const char* s);
    explicit zqosstream(const std::string& s);
    // Deliberate: a copy keeps _begin as it is in 'other', so its next flush fails, as in a
    // stream over caller memory, and drops the bytes that were pending. Call other.str() before
    // copying.
    zqosstream(const zqosstream& other);
    zqosstream& operator=(const zqosstream& other);
    // The text is lost: call str() before.
    ~zqosstream() override;

    // Starts anew with this text; null counts as empty. True.
    bool set(const char* s);
    bool set(const std::string& s);
    bool set(const unsigned char* data, zqsize_t len);

    // All text so far; flushes. Over caller memory (open(data, len)): the bytes written there.
    std::string str();

    // Drops the text and starts anew. size() is then not known to be 0 without asking.
    void clear();

protected:
    // Deliberate: false, but the stream is writable and keeps its text.
    bool _zqopen(const char* name) override;
    // Appends to the text and never fails. Over caller memory: fails and leaves no room, even
    // where there was some.
    bool _zqflush() override;

    // Drops the text.
    virtual void _zqclear();

    std::string _text;  // everything flushed so far
};

}  // namespace ZQPlatform

#endif
