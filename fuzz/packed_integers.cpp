// Packed integers in memory and on streams against one bit at a time.

#include "fuzz.h"

namespace {

using Values = std::vector<unsigned int>;

// Without values nothing is touched.
template <class Number, class... Precision>
void packNothing(const Number* values, unsigned int width, unsigned int count, Precision... one)
{
    zqosstream out;
    zqistream in;
    auto* back = const_cast<Number*>(values);
    CHECK(ZQ_io_util_calc_NumBits(values, count, one...) == 0);
    CHECK(ZQ_io_write_binary_compressed(nullptr, values, width, count) == 0);
    CHECK(ZQ_io_write_binary_compressed(out, values, width, count) == 0 && out.str().empty());
    CHECK(ZQ_io_read_binary_compressed(nullptr, back, width, count) == 0);
    CHECK(ZQ_io_read_binary_compressed(in, back, width, count) == 0);
}

// The image of values that may be too wide: those take whole bytes, up to the end of the byte in
// which the next value begins.
string pack(const Values& values, unsigned int width)
{
    const size_t bits = values.size() * width;
    string image(bits / 8 + 1, '\0');
    for (size_t i = 0; i < values.size(); ++i) {
        const size_t end = std::min(((i + 1) * width / 8 + 1) * 8, image.size() * 8);
        for (size_t bit = 0; bit < (width + 7) / 8 * 8 && i * width + bit < end; ++bit)
            if (values[i] >> bit & 1)
                image[(i * width + bit) / 8] |= static_cast<char>(1 << (i * width + bit) % 8);
    }
    return image;
}

Values unpack(const string& image, unsigned int width, size_t count)
{
    Values values(count);
    for (size_t bit = 0; bit < count * width && bit / 8 < image.size(); ++bit)
        values[bit / width] |= (unsigned(image[bit / 8]) >> bit % 8 & 1) << bit % width;
    return values;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* bytes, size_t size)
{
    Input input(bytes, size);
    const auto width = static_cast<unsigned int>(input.upTo(31));
    const std::vector<size_t> spans = Spans::choose(input);
    const size_t before = input.upTo(3) == 3 ? input.size() : 0;
    const size_t missing = input.upTo(3) == 3 ? input.size() : 0;
    const unsigned int mask = input.flag() ? ~0u : (1u << width) - 1;
    Values values(1 + input.size() % 3000), back(values.size());
    unsigned int all = 0;
    for (unsigned int& value : values)
        all |= value = (input.empty() ? value + width * 77 : unsigned(input.upTo(~0u))) & mask;
    const auto count = static_cast<unsigned int>(values.size());

    unsigned int bits = 0;
    while (bits < 32 && all >> bits != 0) ++bits;
    CHECK(ZQ_io_util_calc_NumBits(values.data(), count) == bits);

    const float one = 1;
    packNothing<float>(nullptr, width, count, one);
    packNothing(&one, width, 0, one);
    packNothing<unsigned int>(nullptr, width, count);
    packNothing(values.data(), width, 0);

    const string image = pack(values, width);
    std::vector<unsigned char> block(image.size());
    CHECK(ZQ_io_write_binary_compressed(block.data(), values.data(), width, count) == image.size());
    CHECK(std::equal(block.begin(), block.end(),
                     reinterpret_cast<const unsigned char*>(image.data())));
    CHECK(ZQ_io_read_binary_compressed(block.data(), back.data(), width, count) == image.size());
    CHECK(back == unpack(image, width, count));

    zqosstream out;
    out.write(string(before, 'b'));
    CHECK(ZQ_io_write_binary_compressed(out, values.data(), width, count) == image.size());
    CHECK(out.str() == string(before, 'b') + image);

    const string cut = image.substr(0, image.size() - std::min(missing, image.size()));
    Spans in(string(before, 'b') + cut, spans);
    in.skip(long(before));
    CHECK(ZQ_io_read_binary_compressed(in, back.data(), width, count) == image.size());
    CHECK(back == unpack(cut, width, count) && in.tell() == long(before + cut.size()));
    return 0;
}
