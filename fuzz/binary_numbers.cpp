// Arrays of numbers, in memory and on streams that may end early, against big-endian
// bytes put together one at a time.

#include "fuzz.h"

namespace {

constexpr unsigned char untouched = 0xA5;

// The bytes of an array in the order of the image.
string imageOf(const string& elements, size_t width)
{
    string image = elements;
    if (width == 2 || width == 4 || width == 8)
        for (size_t i = 0; i + width <= image.size(); i += width)
            std::reverse(image.begin() + long(i), image.begin() + long(i + width));
    return image;
}

string complaint(size_t width)
{
    const bool defined = width == 1 || width == 2 || width == 4 || width == 8;
    return defined ? "" : "Error: undefined block size - " + std::to_string(width) + "\n";
}

// Without an address or a width nothing is touched and nothing said.
void writeAndReadNothing(zqostream& out, char* address, size_t width)
{
    auto* data = reinterpret_cast<unsigned char*>(address);
    zqistream in;
    CHECK(ZQ_io_write_binary(nullptr, data, width, 1) == 0);
    CHECK(ZQ_io_write_binary(out, data, width, 1) == 0);
    CHECK(ZQ_io_read_binary(nullptr, data, width, 1) == 0);
    CHECK(ZQ_io_read_binary(in, data, width, 1) == 0 && printed().empty());
}

void writeAndReadBack(Input& input, zqosstream& out, string& written)
{
    const size_t width = 1 + input.upTo(8);
    string elements = input.text(3000);
    elements.resize(elements.size() / width * width);
    const auto count = static_cast<unsigned int>(elements.size() / width);
    const auto* data = reinterpret_cast<const unsigned char*>(elements.data());
    const string image = imageOf(elements, width);
    std::vector<unsigned char> block(image.size() + 1), back(image.size() + 1, untouched);
    CHECK(ZQ_io_write_binary(block.data(), data, width, count) == image.size());
    CHECK(string(block.begin(), block.end() - 1) == image && printed() == complaint(width));
    CHECK(ZQ_io_read_binary(block.data(), back.data(), width, count) == image.size());
    const size_t copied = complaint(width).empty() ? image.size() : count;
    CHECK(string(back.begin(), back.end()) ==
          elements.substr(0, copied) + string(back.size() - copied, char(untouched)));
    CHECK(printed() == complaint(width));
    CHECK(ZQ_io_write_binary(out, data, width, count) == image.size());
    CHECK(printed() == complaint(width));
    written += image;
    writeAndReadNothing(out, nullptr, width);
    writeAndReadNothing(out, elements.data(), 0);
}

// Elements that the stream does not reach are reversed all the same.
void readArray(Input& input, zqistream& in, const string& bytes, size_t& at)
{
    const size_t width = 1 + input.upTo(8), count = input.size() % 4000;
    const bool reordered = width == 2 || width == 4 || width == 8;
    string expected(width * count, char(untouched));
    const size_t there = std::min(reordered ? width * count : count, bytes.size() - at);
    expected.replace(0, there, bytes, at, there);
    at += there;
    std::vector<unsigned char> back(width * count + 1, untouched);
    size_t last = there;
    if (reordered && count != 0)
        last = there == width * count ? width : there / width == count - 1 ? there % width : 0;
    CHECK(ZQ_io_read_binary(in, back.data(), width, unsigned(count)) == last);
    CHECK(string(back.begin(), back.end() - 1) == imageOf(expected, width));
    CHECK(printed() == (count == 0 ? "" : complaint(width)));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* bytes, size_t size)
{
    printed();
    Input input(bytes, size);
    zqosstream out;
    string written;
    for (size_t n = input.upTo(4); n > 0; --n) writeAndReadBack(input, out, written);
    CHECK(out.str() == written);

    const std::vector<size_t> spans = Spans::choose(input);
    const string script = input.bytes(input.byte());
    written += input.rest();
    Spans in(written, spans);
    Input choices(reinterpret_cast<const unsigned char*>(script.data()), script.size());
    for (size_t at = 0; !choices.empty(); CHECK(in.tell() == long(at)))
        readArray(choices, in, written, at);
    return 0;
}
