#include "zq_binary_dump.h"

#include "binary_io.h"

#include <iterator>

namespace ZQPlatform {

ZQBinaryIO::~ZQBinaryIO() = default;

zqostream& operator<<(zqostream& out, const ZQBinaryIO& obj)
{
    const unsigned int size = obj.GetSize();
    ZQ_io_write_binary(out, reinterpret_cast<const unsigned char*>(&size), sizeof size, 1);
    obj.Write(out);
    return out;
}

zqistream& operator>>(zqistream& in, ZQBinaryIO& obj)
{
    unsigned int size = 0;
    ZQ_io_read_binary(in, reinterpret_cast<unsigned char*>(&size), sizeof size, 1);
    const unsigned int consumed = obj.Read(in);
    if (consumed != size) {
        zqerr << "WARNING operator>>(zqistream& istr, ZQBinaryIO& obj) " << zqendl;
        zqerr << "Record size (" << size << ") is not equal to number of bytes read (" << consumed
              << ")" << zqendl;
    }
    return in;
}

const char* ZQBinaryDump::ReturnCode::Name(unsigned int code)
{
    static const char* const names[] = {
        "Success",     "UnsupportedVersion", "SizeMismatch",     "ContainerSize64Bit",
        "EndOfStream", "ExceededMaxRead",    "ExceededMaxWrite", "UndefinedError"};
    return code < std::size(names) ? names[code] : "UNKNOWN";
}

}  // namespace ZQPlatform
