// Lines, tokens and numbers over spans of every size.

#include "text_model.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* bytes, size_t size)
{
    Input input(bytes, size);
    const string script = input.bytes(input.byte());
    const std::vector<size_t> spans = Spans::choose(input);
    SlowReader model;
    if (input.flag()) model.bytes = input.text(140000);
    model.bytes += input.rest();

    Spans in(model.bytes, spans);
    Input choices(reinterpret_cast<const unsigned char*>(script.data()), script.size());
    while (!choices.empty()) {
        readOnce(choices, in, model);
        CHECK(in.tell() == long(model.at));
    }
    readRest(in, model);
    return 0;
}
