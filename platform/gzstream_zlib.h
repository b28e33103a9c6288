// Gzip streams (RFC 1952) over any other stream.
//
//   zqifstream file("data.gz");
//   zqigzstream in(&file, false);      // plain data passes through unchanged
//   while (in.getline(line)) ...
//
// zlib does the deflate coding; header and trailer are read and written here. Errors end the
// data or fail the stream; those of zlib print one line on zqerr, such as
// "zqigzstream fill error: invalid block type". One thread uses a stream at a time.

#ifndef ZQPLATFORM_GZSTREAM_ZLIB_H
#define ZQPLATFORM_GZSTREAM_ZLIB_H

#include "zqstream.h"

#include <memory>

namespace ZQPlatform {

// The state of zlib and of the member that is read or written. Complete only inside the library.
struct gz_stream;

// Reads gzip data, or plain data, from another input stream.
//
// Joined members read as one stream. Bytes behind the last member are delivered as they are,
// except for one lone 0x1F. A damaged checksum ends the data behind its member, and a cut or
// unknown header ends it there, without a message; the header's checksum and the length in the
// trailer are not compared. Data cut inside a member prints "zqigzstream fill error".
//
// Deliberate: plain data is looked at anew every 16384 bytes, and such a chunk that begins with
// 1F 8B is decoded as a member.
class ZQPLATFORM_EXPORT zqigzstream : public zqiwrapperstream {
public:
    // No source: exhausted until set() attaches one.
    zqigzstream();
    // Reads from 'source'; ownSource as in zqiwrapperstream::set. Nothing is read yet.
    zqigzstream(zqistream* source, bool ownSource);
    // Lets go of the source, as clear() does.
    ~zqigzstream() override;

protected:
    // Forward by decoding up to there; backward from the start of the source, which must be
    // able to go there: false, and the position unchanged, if it is not. A position at or behind
    // the end is false, and the stream stands at its end.
    bool _zqseek(long pos) override;
    // The decoded length. Decodes the rest and then goes back to the current position, so the
    // source must be able to go to its start; over a pipe, what was decoded is lost. 0 for plain
    // data.
    zqsize_t _zqsize() override;
    bool _zqfill() override;
    void _zqclear() override;
    bool _zqset(zqistream* source) override;

private:
    ZQPLATFORM_INTERNAL bool fillChunk();

    std::unique_ptr<gz_stream> _gz;
};

// Writes one gzip member to another output stream.
//
// Deliberate: a flush passes nothing on. Bytes are compressed 65536 at a time and when the
// member is finished, by close(), clear(), set() with another destination or the destructor, so
// the size of the file does not depend on how often the caller flushes. An unused stream writes
// an empty member. After its member the stream writes nothing more, whatever is attached: use a
// new stream for a new member.
//
// Deliberate: eof() and the _eof mark may be set in the middle of good data, when a block of
// compressed bytes is just full. The copy operators << and >> stop there, so copies that must be
// complete use write().
class ZQPLATFORM_EXPORT zqogzstream : public zqowrapperstream {
public:
    // No destination: flushes fail until set() attaches one.
    zqogzstream();
    // Writes to 'destination'; ownDestination as in zqowrapperstream::set.
    zqogzstream(zqostream* destination, bool ownDestination);
    // Finishes the member. A ZQIOError is reported on zqerr.
    ~zqogzstream() override;

protected:
    // Always false: seek() moves inside the buffer only.
    bool _zqseek(long pos) override;
    // The number of bytes written to this stream so far.
    zqsize_t _zqsize() override;
    bool _zqflush() override;
    // Finishes the member.
    void _zqclear() override;
    bool _zqset(zqostream* destination) override;

private:
    ZQPLATFORM_INTERNAL bool startMember();
    ZQPLATFORM_INTERNAL bool compressBuffer();
    ZQPLATFORM_INTERNAL void finish();

    std::unique_ptr<gz_stream> _gz;

protected:
    bool finishing;  // the next flush compresses a partly filled buffer, too
};

}  // namespace ZQPlatform

#endif
