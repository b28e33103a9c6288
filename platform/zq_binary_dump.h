// Records: objects that write and read themselves, each framed by its size; and the result codes
// of binary dumps.
//
//   class Point : public ZQBinaryIO { ... };
//   out << point;   // 4 bytes of size, big-endian, then what point.Write() writes
//   in >> point;    // complains on zqerr if point.Read() consumes another number of bytes
//
// The layout is drawn in docs/formats.md.

#ifndef ZQPLATFORM_ZQ_BINARY_DUMP_H
#define ZQPLATFORM_ZQ_BINARY_DUMP_H

#include "zqexport.h"
#include "zqstream.h"

namespace ZQPlatform {

// What an object implements to be a record. The size in front of a record counts its body alone.
class ZQPLATFORM_EXPORT ZQBinaryIO {
public:
    // Records may be deleted through this class.
    virtual ~ZQBinaryIO();

    // Writes the body of the record.
    //   Called    by operator<<, behind the size.
    //   Success   exactly GetSize() bytes have been written; nobody checks that on writing.
    //   Failure   is told by the state of the stream.
    virtual void Write(zqostream& out) const = 0;

    // Reads the body of the record.
    //   Called    by operator>>, behind the size, which the object is not told.
    //   Result    the bytes consumed, which should be the size that was read.
    //   Failure   where the stream ends early: the bytes that were there.
    virtual unsigned int Read(zqistream& in) = 0;

    // The size of the body in bytes. Called by operator<<, before Write().
    virtual unsigned int GetSize() const = 0;
};

// Writes the size and the body. Failure is told by the state of the stream.
ZQPLATFORM_EXPORT zqostream& operator<<(zqostream& out, const ZQBinaryIO& obj);

// Reads the size and the body. If the two do not agree, two lines on zqerr say so; bytes of the
// size that the stream does not deliver count as 0. Deliberate: nothing is skipped and nothing is
// taken back, the stream stays where Read() left it.
ZQPLATFORM_EXPORT zqistream& operator>>(zqistream& in, ZQBinaryIO& obj);

// The result codes of binary dumps.
namespace ZQBinaryDump::ReturnCode {

// How reading or writing a binary dump ended. The numbers are part of the format.
enum : unsigned int {
    Success = 0,
    UnsupportedVersion = 1,
    SizeMismatch = 2,
    ContainerSize64Bit = 3,
    EndOfStream = 4,
    ExceededMaxRead = 5,
    ExceededMaxWrite = 6,
    UndefinedError = 7
};

// The enumerator's name, "UNKNOWN" for any other number; never null, and never to be freed.
ZQPLATFORM_EXPORT const char* Name(unsigned int code);

}  // namespace ZQBinaryDump::ReturnCode

}  // namespace ZQPlatform

#endif
