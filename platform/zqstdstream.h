// Adaptors that read from and write to the standard library's stream objects.
//
//   std::ostringstream text;
//   zqostdstream out(&text, false);
//   out << 42 << zqendl;
//
// Errors of the standard object while writing are not detected; while reading they end the data.
// Nothing is thrown, even if the object was told to throw. One thread uses an adaptor at a time.

#ifndef ZQPLATFORM_ZQSTDSTREAM_H
#define ZQPLATFORM_ZQSTDSTREAM_H

#include "zqstreambase.h"

#include <istream>
#include <ostream>

namespace ZQPlatform {

// Reads from a standard input stream, and detaches from it (deletes it if it is owned) where its
// data ends.
class ZQPLATFORM_EXPORT zqistdstream : public zqistream {
public:
    // No object: exhausted until set() attaches one.
    zqistdstream();
    // owns: true deletes 's' when the adaptor lets go of it; false leaves it to the caller, who
    // keeps it alive as long. With null or an object that has failed the adaptor is exhausted.
    zqistdstream(std::istream* s, bool owns);
    // Deletes the object if it is owned.
    ~zqistdstream() override;

    zqistdstream(const zqistdstream&) = delete;
    zqistdstream& operator=(const zqistdstream&) = delete;

    // Lets go of the object before and reads from 's'. True if the adaptor is ready. Setting the
    // same object again changes nothing, not even the ownership.
    bool set(std::istream* s, bool owns);

    // Lets go of the object.
    void clear();

protected:
    // Moves the standard object and refills. Deliberate: positions after a move outside the span
    // are off by the number of bytes that were used up in the span before.
    bool _zqseek(long pos) override;
    bool _zqclose() override;
    bool _zqfill() override;

    std::istream* _stream;  // null: detached
    bool _owns;             // delete _stream when letting go of it

    // Releases what a derived adaptor holds. Called by clear(). Default: nothing.
    virtual void _zqclear();
    // Accepts a good object. Called by set(). False marks the adaptor
    // exhausted. Default: true.
    virtual bool _zqset(std::istream* s);

private:
    ZQPLATFORM_INTERNAL void letGo();
};

// Writes to a standard output stream, and flushes it with every flush.
class ZQPLATFORM_EXPORT zqostdstream : public zqostream {
public:
    // No object: there is room in the buffer, and the first flush fails.
    zqostdstream();
    // As zqistdstream. With null there is room in the buffer, and the first flush fails; with an
    // object that has failed there is none.
    zqostdstream(std::ostream* s, bool owns);
    // Deletes the object if it is owned. Deliberate: flushes nothing; close() does.
    ~zqostdstream() override;

    zqostdstream(const zqostdstream&) = delete;
    zqostdstream& operator=(const zqostdstream&) = delete;

    // As zqistdstream. Bytes still in the buffer are dropped.
    bool set(std::ostream* s, bool owns);

    // Flushes the standard object and lets go of it.
    // Deliberate: bytes still in the adaptor's buffer are dropped. close() writes them.
    void clear();

protected:
    // Deliberate: always false, even where the standard object has moved.
    bool _zqseek(long pos) override;
    void _zqclose() override;
    // Deliberate: the position afterwards counts from this flush on, not from the start.
    bool _zqflush() override;

    std::ostream* _stream;  // null: detached
    bool _owns;             // delete _stream when letting go of it

    // As in zqistdstream.
    virtual void _zqclear();
    virtual bool _zqset(std::ostream* s);

private:
    ZQPLATFORM_INTERNAL void letGo();
};

}  // namespace ZQPlatform

#endif
