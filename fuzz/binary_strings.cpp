// Strings with their lengths, in memory and on streams that may end early.

#include "fuzz.h"

namespace {

void readString(zqistream& in, const string& bytes, size_t& at)
{
    size_t length = 0;
    for (size_t i = 0; i < 4; ++i)
        length =
            length << 8 | (at + i < bytes.size() ? static_cast<unsigned char>(bytes[at + i]) : 0);
    if (length > 1000000) return;  // it would be zeros for the most part
    const size_t head = std::min<size_t>(4, bytes.size() - at);
    const string text = bytes.substr(at + head, length);
    string got = "replaced";
    CHECK(ZQ_io_read_binary(in, got) == head + text.size());
    CHECK(got == text + string(length - text.size(), '\0'));
    at += head + text.size();
}

// A string whose bytes would take 4 GiB, were they looked at: its length stands behind its pointer.
// Two lines go to descriptor 2.
bool isTooLongRefused()
{
    zqosstream out;
    string text;
    const size_t length = size_t(1) << 32;
    std::memcpy(reinterpret_cast<char*>(&text) + sizeof(char*), &length, sizeof length);
    return ZQ_io_write_binary(out, text) == 0 && ZQ_io_write_binary(nullptr, text) == 0 &&
           out.str().empty();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* bytes, size_t size)
{
    static const bool refused = isTooLongRefused();
    CHECK(refused);
    Input input(bytes, size);
    zqosstream out;
    string written, back;
    for (size_t n = input.upTo(4); n > 0; --n) {
        const string text = input.text(70000);
        std::vector<unsigned char> block(text.size() + 4);
        CHECK(ZQ_io_write_binary(block.data(), text) == block.size());
        CHECK(ZQ_io_write_binary(out, text) == block.size());
        CHECK(ZQ_io_read_binary(block.data(), back) == block.size() && back == text);
        CHECK(string(block.begin(), block.end()) == bigEndian(text.size()) + text);
        written += string(block.begin(), block.end());
    }
    CHECK(out.str() == written);

    const std::vector<size_t> spans = Spans::choose(input);
    size_t at = 0, steps = input.byte();
    written += input.rest();
    Spans in(written, spans);
    in.skip(long(at = std::min(steps / 16, written.size())));
    for (steps %= 16; steps > 0; --steps, CHECK(in.tell() == long(at))) readString(in, written, at);
    return 0;
}
