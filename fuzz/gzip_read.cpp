// Every reading function on gzip data, plain data and damaged data.

#include "gzip_model.h"
#include "text_model.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* bytes, size_t size)
{
    printed();
    Input input(bytes, size);
    const string script = input.bytes(input.byte());
    const std::vector<size_t> spans = Spans::choose(input);
    const string data = gzipData(input);
    const GzipModel decoded(data);
    SlowReader model{decoded.bytes};

    Spans source(data, spans);
    zqigzstream gzip(&source, false);
    Input choices(reinterpret_cast<const unsigned char*>(script.data()), script.size());
    while (!choices.empty()) {
        readOnce(choices, gzip, model);
        CHECK(gzip.tell() == long(model.at));
    }
    readRest(gzip, model);
    CHECK(printed() == decoded.printed);
    return 0;
}
