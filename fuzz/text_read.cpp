// Lines, tokens and numbers over spans of every size.

#include "text_model.h"

#include <cfenv>

// Into memory of 'room' bytes: whole blocks are read, and of the last one what fits is kept.
static void copyInto(size_t room, zqistream& in, SlowReader& model)
{
    std::vector<unsigned char> block(room);
    zqostream out;
    CHECK(out.open(block.data(), room));
    string copied;
    while (copied.size() <= room && !model.done()) copied += model.read(4096);
    (room % 2 == 0) ? static_cast<void>(in >> out) : static_cast<void>(out << in);
    CHECK(out.eof() == (copied.size() > room));
    copied.resize(std::min(copied.size(), room));
    CHECK(out.tell() == long(copied.size()) && in.tell() == long(model.at));
    CHECK(std::equal(copied.begin(), copied.end(), reinterpret_cast<char*>(block.data())));
    out << in;  // full, or nothing is left
    CHECK(in.tell() == long(model.at));
}

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* bytes, size_t size)
{
    Input input(bytes, size);
    const string script = input.bytes(input.byte());
    const std::vector<size_t> spans = Spans::choose(input);
    SlowReader model;
    const size_t how = input.upTo(15);
    if (how & 1) model.bytes = input.text(140000);
    model.bytes += input.rest();

    // strtod follows the rounding mode, too.
    static const int modes[] = {FE_TONEAREST, FE_DOWNWARD, FE_UPWARD, FE_TOWARDZERO};
    std::fesetround(modes[how >> 1 & 3]);
    Spans in(model.bytes, spans);
    Input choices(reinterpret_cast<const unsigned char*>(script.data()), script.size());
    while (!choices.empty()) {
        readOnce(choices, in, model);
        CHECK(in.tell() == long(model.at));
    }
    std::fesetround(FE_TONEAREST);
    if (how & 8) copyInto(1 + how * spans[0] % 9001, in, model);
    readRest(in, model);
    return 0;
}
