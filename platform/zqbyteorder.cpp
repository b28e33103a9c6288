#include "zqbyteorder.h"

#include <cstring>

namespace ZQPlatform {

namespace {

bool firstByteIsTheHighest()
{
    const unsigned short number = 0x0102;
    unsigned char first;
    std::memcpy(&first, &number, 1);
    return first == 0x01;
}

}  // namespace

bool ZQBigEndian()
{
    static const bool bigEndian = firstByteIsTheHighest();
    return bigEndian;
}

}  // namespace ZQPlatform
