// Calls in any order on wrappers and adaptors over other streams, against the bytes below.

#include "text_model.h"

#include <memory>
#include <sstream>

namespace {

enum Kind { overFile, overSpans, overPipe, standard };

// A wrapper moves its source, so a position that the source refuses changes nothing; one at the end
// is taken, and nothing is there to read.
void seekOnce(Input& input, Kind kind, zqistream& in, SlowReader& model)
{
    const size_t end = model.bytes.size();
    const bool behind = kind != overFile && input.upTo(7) == 7;
    const size_t target = behind ? end + input.byte() % 3 : input.upTo(65535) * 3 % (end + 1);
    // Deliberate: an adaptor's position is not that of its source behind a seek.
    if (kind == standard || (kind == overFile && target == end)) return;
    CHECK(!in.seek(-1 - long(target)));
    const bool moved = in.seek(long(target));
    CHECK(kind == overPipe ? !moved || target < end : moved == (target < end));
    if (moved || (kind == overSpans && target == end)) model.at = target;
    if (in.eof()) CHECK(model.done());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* bytes, size_t size)
{
    Input input(bytes, size);
    const auto kind = static_cast<Kind>(input.upTo(standard));
    const string script = input.bytes(input.byte());
    const std::vector<size_t> spans = Spans::choose(input);
    SlowReader model{input.text(140000)};
    model.bytes += input.rest();
    MemoryFile source(kind == overFile ? model.bytes : string());
    std::istringstream text(kind == standard ? model.bytes : string());
    zqistdstream adaptor(&text, false);
    zqiwrapperstream wrapper;
    if (kind == overFile) {
        auto file = std::make_unique<zqifstream>();
        CHECK(file->openfd(::dup(source.fd), true) && wrapper.set(file.release(), true));
        CHECK(wrapper.size() == model.bytes.size());
    } else {
        CHECK(wrapper.set(new Spans(model.bytes, spans, kind == overSpans), true));
        CHECK(wrapper.size() == 0);
    }
    zqistream& in = kind == standard ? static_cast<zqistream&>(adaptor) : wrapper;

    Input choices(reinterpret_cast<const unsigned char*>(script.data()), script.size());
    while (!choices.empty()) {
        if (choices.upTo(3) == 0)
            seekOnce(choices, kind, in, model);
        else
            readOnce(choices, in, model);
        CHECK(in.eof() || in.tell() == long(model.at));
    }
    zqosstream rest;
    rest << in;
    CHECK(rest.str() == model.read(model.noLimit));
    readRest(in, model);
    CHECK(in.close() && in.tell() == 0 && in.eof());
    // Without a source there is nothing.
    CHECK(wrapper.close() && wrapper.size() == 0 && !wrapper.seek(0));
    CHECK(adaptor.close() && !adaptor.set(nullptr, false) && zqistdstream(nullptr, true).eof());
    adaptor.set(&text, false);
    CHECK(!adaptor.set(nullptr, false) && adaptor.eof() && !adaptor.skip(1));
    return 0;
}
