// What docs/formats.md shows, at work.

#include "expect.h"

#include <zqplatform/binary_io.h>
#include <zqplatform/zqsstream.h>

#include <string>
#include <vector>

using namespace ZQPlatform;

namespace {

using Values = std::vector<unsigned int>;

//! [a packed array]
zqsize_t write(zqostream& out, unsigned int number)
{
    return ZQ_io_write_binary(out, reinterpret_cast<unsigned char*>(&number), sizeof number, 1);
}

bool read(zqistream& in, unsigned int& number)
{
    auto* bytes = reinterpret_cast<unsigned char*>(&number);
    return ZQ_io_read_binary(in, bytes, sizeof number, 1) == sizeof number;
}

void write(zqostream& out, const Values& values)
{
    const auto count = static_cast<unsigned int>(values.size());
    const unsigned int width = ZQ_io_util_calc_NumBits(values.data(), count);
    write(out, count);
    write(out, width);
    ZQ_io_write_binary_compressed(out, values.data(), width, count);
}

bool read(zqistream& in, Values& values, unsigned int mostValues)
{
    unsigned int count = 0, width = 0;
    if (!read(in, count) || count > mostValues || !read(in, width))
        return false;
    values.resize(count);
    ZQ_io_read_binary_compressed(in, values.data(), width, count);
    return true;
}
//! [a packed array]

}  // namespace

int main()
{
    const Values values = {5, 1, 7, 2};
    const std::string bytes("\0\0\0\x04\0\0\0\x03\xCD\x05", 10);
    Values back;
    zqosstream out;
    zqisstream in;

    write(out, values);
    expect(out.str() == bytes, "the bytes");
    in.set(bytes);
    expect(read(in, back, 4) && back == values, "read back");
    in.set(bytes);
    expect(!read(in, back, 3), "too many");
    in.set(bytes.substr(0, 7));
    expect(!read(in, back, 4), "cut");
}
