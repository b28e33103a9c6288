// The hot loops by themselves, on small inputs that are always the same: .ci/counts counts their
// instructions. Streams stand in memory or drop what is written, so that no call of the platform
// counts. Each loop does 'count' times what the function is named for.

#include "zqplatform.h"

#include <cerrno>

using namespace ZQPlatform;

namespace {

constexpr int count = 10000;

std::string line, lines, words, integers, decimals;
std::vector<unsigned int> values(count);
std::vector<unsigned char> image(4 * count);
std::vector<double> numbers(count);
char array[256];

unsigned int random()
{
    static unsigned int state = 1;
    state = state * 1664525 + 1013904223;
    return state >> 8;
}

void prepare()
{
    for (unsigned int& value : values) value = random() >> 13;
    for (double& number : numbers) number = random() * 1e-3;
    for (int i = 0; i < count; ++i) {
        lines += std::string(40, 'l') += '\n';
        words += std::string(2 + random() % 9, 'w') += ' ';
        integers += std::to_string(random()) += '\n';
        decimals += std::to_string(random() * 1e-3) += '\n';
    }
}

zqisstream& in(const std::string& text)
{
    static zqisstream stream;
    stream.set(text.data(), text.size(), false);
    return stream;
}

}  // namespace

#define LOOP(name) extern "C" [[gnu::noinline]] void loop_##name()

LOOP(line_into_string)
{
    for (auto& s = in(lines); s.getline(line);) {}
}
LOOP(line_into_array)
{
    for (auto& s = in(lines); s.getline(array, sizeof array);) {}
}
LOOP(word_into_array)
{
    for (auto& s = in(words); s.gettoken(array, sizeof array);) {}
}
LOOP(int_read)
{
    auto& s = in(integers);
    for (unsigned int& value : values) s >> value;
}
LOOP(double_read)
{
    auto& s = in(decimals);
    for (double& number : numbers) s >> number;
}
LOOP(int_written)
{
    for (unsigned int value : values) zqnul << static_cast<int>(value) << '\n';
}
LOOP(double_written)
{
    for (double number : numbers) zqnul << number << '\n';
}
LOOP(string_written)
{
    for (int i = 0; i < count; ++i) ZQ_io_write_binary(zqnul, line);
}
LOOP(big_endian_written)
{
    ZQ_io_write_binary(zqnul, reinterpret_cast<unsigned char*>(values.data()), 4, count);
}
LOOP(value_packed) { ZQ_io_write_binary_compressed(image.data(), values.data(), 11, count); }
LOOP(value_unpacked) { ZQ_io_read_binary_compressed(image.data(), values.data(), 11, count); }
LOOP(end) { asm volatile(""); }

int main()
{
    prepare();
    errno = 0;
    loop_line_into_string();
    loop_line_into_array();
    loop_word_into_array();
    loop_int_read();
    loop_double_read();
    loop_int_written();
    loop_double_written();
    loop_string_written();
    loop_big_endian_written();
    loop_value_packed();
    loop_value_unpacked();
    loop_end();
}
