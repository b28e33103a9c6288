// Streams on files and descriptors, streams over other streams, and the four global streams.
//
//   zqofstream file("result.txt");
//   zqmultiostream both;               // everything goes to the file and to standard output
//   both.addstream(&file, false);
//   both.addstream(&zqout, false);
//   both << 42 << zqendl;
//
// Descriptors 0, 1 and 2 are never closed by a stream. One thread uses a stream at a time; the
// global streams are shared by all threads without locks, so callers take turns.

#ifndef ZQPLATFORM_ZQSTREAM_H
#define ZQPLATFORM_ZQSTREAM_H

#include "zqstreambase.h"

#include <string>
#include <utility>
#include <vector>

namespace ZQPlatform {

// Reads a file or a descriptor. Errors of the platform end the data; only an interrupted read is
// repeated.
class ZQPLATFORM_EXPORT zqifstream : public zqistream {
public:
    // No file: exhausted until open() or openfd() attaches one.
    zqifstream();
    // Opens 'name', as open() does; eof() tells whether that failed.
    explicit zqifstream(const char* name);
    explicit zqifstream(const std::string& name);
    // Closes the stream.
    ~zqifstream() override;

    zqifstream(const zqifstream&) = delete;
    zqifstream& operator=(const zqifstream&) = delete;

    // Reads from an open descriptor, which the stream closes later unless it is 0, 1 or 2.
    // closeCurrent: true closes the current descriptor first (false if the stream refuses);
    // false forgets it. Returns fd != -1.
    bool openfd(int newfd, bool closeCurrent);

    // POSIX pread(2) on the descriptor: up to 'n' bytes at 'offset', without touching the
    // buffer and the position. Returns the bytes read, or -1. Several threads may call it.
    long pread(char* buf, std::size_t n, long offset) const;

protected:
    // Repositions and refills: false at or behind the end of the file, too. A descriptor that
    // cannot seek (a pipe) keeps its position and its unread bytes.
    bool _zqseek(long pos) override;
    // The file's length, 0 where the descriptor cannot seek. Refills the buffer. After the data
    // was read to its end, the file's position is 0 again, and _eof stays set.
    zqsize_t _zqsize() override;
    bool _zqopen(const char* name) override;
    // Deliberate: false for descriptor 0, so that standard input cannot be closed or reopened.
    bool _zqclose() override;
    // Deliberate: at the end of the data _offset becomes 0.
    bool _zqfill() override;

    int fd;  // -1: none
};

// Writes a file or a descriptor. A short write fails the stream and drops the rest of the buffer.
class ZQPLATFORM_EXPORT zqofstream : public zqostream {
public:
    // Bytes written before a file is open stay in the buffer, and are dropped by open().
    zqofstream();
    // Writes to an open descriptor, as openfd() does.
    explicit zqofstream(int newfd);
    // Creates or truncates 'name', as open() does (mode 0644); eof() tells whether that failed.
    explicit zqofstream(const char* name);
    explicit zqofstream(const std::string& name);
    // Closes the stream. A ZQIOError is reported on zqerr.
    ~zqofstream() override;

    zqofstream(const zqofstream&) = delete;
    zqofstream& operator=(const zqofstream&) = delete;

    // Writes to an open descriptor, which the stream closes later unless it is 0, 1 or 2.
    // closeCurrent: true closes the current descriptor first, and bytes still in the buffer are
    // dropped (flush() before it); false flushes and leaves it open. Returns newfd != -1.
    bool openfd(int newfd, bool closeCurrent);

    // Flushes and closes the stream, then adds to the end of 'name', which is created (mode 0644)
    // if it is not there. False for null. Positions count the bytes of this stream, from 0.
    bool append(const char* name);
    bool append(const std::string& name);

protected:
    // Always false: seek() moves inside the buffer only.
    bool _zqseek(long pos) override;
    // Always 0.
    zqsize_t _zqsize() override;
    bool _zqopen(const char* name) override;
    void _zqclose() override;
    // One write(2) of all pending bytes, repeated only where it was interrupted.
    bool _zqflush() override;

    // Opens 'name' with these flags of open(2), in place of whatever fd holds. False for null.
    bool openFile(const char* name, int flags);

    int fd;  // -1: none

private:
    ZQPLATFORM_INTERNAL bool attached();
};

// A file that is written like zqofstream, and can be read at a position. Creates or truncates.
class ZQPLATFORM_EXPORT zqiofstream : public zqofstream {
public:
    // As in zqofstream.
    zqiofstream();
    explicit zqiofstream(const char* name);
    explicit zqiofstream(const std::string& name);
    // Closes the stream.
    ~zqiofstream() override;

    // As zqifstream::pread. Bytes still in the buffer are not in the file yet: flush() first.
    long pread(char* buf, std::size_t n, long offset) const;

protected:
    bool _zqopen(const char* name) override;
};

// Reads through another input stream. Base of the gzip input stream.
class ZQPLATFORM_EXPORT zqiwrapperstream : public zqistream {
public:
    // No source: exhausted until set() attaches one.
    zqiwrapperstream();
    // Calls clear().
    ~zqiwrapperstream() override;

    zqiwrapperstream(const zqiwrapperstream&) = delete;
    zqiwrapperstream& operator=(const zqiwrapperstream&) = delete;

    // Reads from 'source' from now on, and lets go of the one before as clear() does.
    // ownSource: true deletes 'source' when this stream lets go of it; false leaves it to the
    // caller, who keeps it alive as long as this stream reads. Setting the same source again
    // keeps the first flag. False for null and for a source that is exhausted.
    bool set(zqistream* source, bool ownSource);

    // Lets go of the source, and deletes it if it is owned.
    void clear();

protected:
    // Moves the source, then refills.
    bool _zqseek(long pos) override;
    // The size of the source.
    zqsize_t _zqsize() override;
    bool _zqclose() override;
    bool _zqfill() override;

    // Releases what a derived stream holds for the source. Called by clear(), before the source
    // is let go of. Default: nothing.
    virtual void _zqclear();
    // Prepares for a source that is not exhausted. Called by set(). False marks the stream
    // exhausted. Default: true.
    virtual bool _zqset(zqistream* source);

    zqistream* stream;  // the source; null: none
    bool own;           // delete 'stream' when letting go of it
};

// Writes through another output stream; every flush flushes that one, too. Base of the gzip
// output stream.
class ZQPLATFORM_EXPORT zqowrapperstream : public zqostream {
public:
    // No destination: flushes fail until set() attaches one.
    zqowrapperstream();
    // Calls clear(). A ZQIOError is reported on zqerr.
    ~zqowrapperstream() override;

    zqowrapperstream(const zqowrapperstream&) = delete;
    zqowrapperstream& operator=(const zqowrapperstream&) = delete;

    // Writes to 'destination' from now on; the rest as zqiwrapperstream::set. False for null and
    // for a destination that has failed and has no room.
    bool set(zqostream* destination, bool ownDestination);

    // Flushes and lets go of the destination, and deletes it if it is owned.
    // Deliberate: bytes still in this stream's own buffer are dropped, here, in set() and in the
    // destructor. close() delivers them.
    void clear();

protected:
    // Deliberate: always false, even where the destination has moved.
    bool _zqseek(long pos) override;
    // The size of the destination.
    zqsize_t _zqsize() override;
    void _zqclose() override;
    bool _zqflush() override;

    // As in zqiwrapperstream.
    virtual void _zqclear();
    virtual bool _zqset(zqostream* destination);

    zqostream* stream;  // the destination; null: none
    bool own;           // delete 'stream' when letting go of it
};

// Writes the same bytes to any number of output streams.
class ZQPLATFORM_EXPORT zqmultiostream : public zqostream {
public:
    // No destinations: what is written goes nowhere.
    zqmultiostream();
    // Calls clear(); bytes still in the buffer are dropped.
    ~zqmultiostream() override;

    zqmultiostream(const zqmultiostream&) = delete;
    zqmultiostream& operator=(const zqmultiostream&) = delete;

    // Adds a destination; null is skipped when writing. ownStream: true deletes it in clear().
    void addstream(zqostream* stream, bool ownStream);

    // Deletes the owned destinations, in the order they were added, and forgets the others
    // without a flush.
    void clear();

protected:
    // Writes to every destination and flushes it, whether or not others fail; true if every
    // flush was.
    bool _zqflush() override;

    std::vector<std::pair<zqostream*, bool>> streams;  // destination, owned
};

// The standard descriptors 0, 1 and 2, and a stream that drops what is written and counts it.
// They exist from load time to exit; zqout and zqerr are flushed then.
ZQPLATFORM_EXPORT extern zqifstream zqin;
ZQPLATFORM_EXPORT extern zqofstream zqout;
ZQPLATFORM_EXPORT extern zqofstream zqerr;
ZQPLATFORM_EXPORT extern zqostream zqnul;

}  // namespace ZQPlatform

#endif
