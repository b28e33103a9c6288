// Packed floats against the formulas, each operation rounded to single precision by itself.

#include "fuzz.h"

#include <cmath>
#include <cstring>

namespace {

using Values = std::vector<float>;

string bytesOf(float value)
{
    std::uint32_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    return bigEndian(bits);
}

unsigned int quantised(float value, float min, float factor)
{
    const volatile float product = (value - min) * factor;
    const volatile float rounded = product + 0.5f;
    const bool fits = rounded >= -0x1p63f && rounded < 0x1p63f;
    return fits ? static_cast<unsigned int>(static_cast<long>(rounded)) : 0;
}

bool same(const Values& a, const Values& b)
{
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](float x, float y) {
        return std::memcmp(&x, &y, sizeof x) == 0 || (std::isnan(x) && std::isnan(y));
    });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* bytes, size_t size)
{
    Input input(bytes, size);
    const auto width = static_cast<unsigned int>(input.upTo(31));
    const std::vector<size_t> spans = Spans::choose(input);
    Values values(1 + input.size() % 3000), back(values.size()), expected;
    std::vector<unsigned int> numbers;
    for (float& value : values) {
        const auto raw = static_cast<std::uint32_t>(input.upTo(~0u));
        if (raw & 1)
            std::memcpy(&value, &raw, sizeof value);
        else
            value = static_cast<float>(raw) / 1000 - 1000;
    }
    const auto count = static_cast<unsigned int>(values.size());
    float max = values[0], min = values[0];
    for (float value : values) {
        max = max < value ? value : max;
        min = min > value ? value : min;
    }
    const auto mask = static_cast<float>((1u << width) - 1);
    const volatile float inverse = 1.0f / (max - min), unit = 1.0f / mask;
    const volatile float step = unit * (max - min);
    for (float value : values) {
        numbers.push_back(max > min ? quantised(value, min, inverse * mask) : 0);
        const unsigned int kept = numbers.back() & ((1u << width) - 1);
        const volatile float scaled = static_cast<float>(kept) * step;
        expected.push_back(scaled + min);
    }
    // The packed integers have a target of their own.
    zqosstream out, packed;
    packed.write(bytesOf(max) + bytesOf(min));
    ZQ_io_write_binary_compressed(packed, numbers.data(), width, count);
    const string image = packed.str();
    std::vector<unsigned char> block(image.size());
    CHECK(ZQ_io_write_binary_compressed(block.data(), values.data(), width, count) == image.size());
    CHECK(std::memcmp(block.data(), image.data(), image.size()) == 0);
    // At the end of a span the image is built elsewhere.
    const string before(values.size() % 2 == 0 ? ZQ_STREAM_BUFSIZE - 10 : 0, 'b');
    out.write(before);
    CHECK(ZQ_io_write_binary_compressed(out, values.data(), width, count) == image.size());
    CHECK(out.str() == before + image);

    const bool spills = std::any_of(numbers.begin(), numbers.end(),
                                    [&](unsigned int number) { return number >> width != 0; });
    CHECK(ZQ_io_read_binary_compressed(block.data(), back.data(), width, count) == image.size());
    CHECK(spills || same(back, expected));
    // An image may be read into the place where it stands.
    Values place(values.size() + 3);
    std::memcpy(place.data(), image.data(), image.size());
    const auto* standing = reinterpret_cast<const unsigned char*>(place.data());
    CHECK(ZQ_io_read_binary_compressed(standing, place.data(), width, count) == image.size());
    place.resize(values.size());
    CHECK(same(place, back));
    Values fromStream(values.size());
    Spans in(image, spans);
    CHECK(ZQ_io_read_binary_compressed(in, fromStream.data(), width, count) == image.size());
    CHECK(same(fromStream, back));
    return 0;
}
