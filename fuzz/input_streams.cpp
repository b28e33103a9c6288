// Calls in any order on streams over memory and files, against the bytes that they read.

#include "text_model.h"

#include <memory>

namespace {

enum Kind { memory, borrowed, copied, file };

std::unique_ptr<zqistream> make(Kind kind, SlowReader& model, MemoryFile& source)
{
    if (kind == file) {
        auto stream = std::make_unique<zqifstream>();
        CHECK(stream->openfd(::dup(source.fd), true));
        return stream;
    }
    if (kind == memory) {
        auto stream = std::make_unique<zqistream>();
        auto* data = reinterpret_cast<unsigned char*>(model.bytes.data());
        CHECK(stream->open(data, model.bytes.size()));
        return stream;
    }
    auto stream = std::make_unique<zqisstream>();
    const bool any = stream->set(model.bytes.data(), model.bytes.size(), kind == copied);
    CHECK(any == !model.bytes.empty());
    return stream;
}

void seekOnce(Input& input, Kind kind, zqistream& in, SlowReader& model)
{
    const size_t end = model.bytes.size(), target = input.upTo(65535) * 3 % (end + end / 8 + 2);
    CHECK(!in.seek(-1 - long(target)));
    CHECK(in.seek(long(target)) == (target < end));
    if (target < end || kind == file) model.at = std::min(target, end);
}

// To be assigned to itself changes no stream.
void assignOnce(Kind kind, zqistream& in)
{
    const zqistream& same = in;
    in = same;
    if (kind != borrowed && kind != copied) return;
    auto& text = static_cast<zqisstream&>(in);
    const zqisstream& sameText = text;
    text = sameText;
}

void sizeOnce(Kind kind, zqistream& in, SlowReader& model, bool& known)
{
    const bool rewinds = kind == file && in.eof() && !known;
    CHECK(in.size() == (kind == memory ? 0 : model.bytes.size()));
    known = true;
    if (!rewinds) return;
    model.at = 0;
    CHECK(in.seek(0) == !model.bytes.empty());  // clears the mark that size() leaves
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* bytes, size_t size)
{
    Input input(bytes, size);
    const auto kind = static_cast<Kind>(input.upTo(file));
    const string script = input.bytes(input.byte());
    SlowReader model{input.text(140000)};
    model.bytes += input.rest();
    MemoryFile source(kind == file ? model.bytes : string());
    const auto in = make(kind, model, source);

    Input choices(reinterpret_cast<const unsigned char*>(script.data()), script.size());
    for (bool known = false; !choices.empty();) {
        switch (choices.upTo(3)) {
        case 0: seekOnce(choices, kind, *in, model); break;
        case 1: sizeOnce(kind, *in, model, known); break;
        default: readOnce(choices, *in, model);
        }
        assignOnce(kind, *in);
        CHECK(in->tell() == (in->eof() && kind == file ? 0 : long(model.at)));
    }
    if (kind == borrowed && !model.bytes.empty()) {
        zqisstream copy(static_cast<zqisstream&>(*in));
        zqosstream rest;
        CHECK((rest << copy).tell() == long(model.bytes.size() - model.at));
        CHECK(rest.str() == model.bytes.substr(model.at));
    }
    readRest(*in, model);
    CHECK(in->close() && in->tell() == 0 && in->eof());
    unsigned char other = 0;
    CHECK(!zqin.open("/dev/null") && !zqin.open(&other, 1) && !zqin.close());
    return 0;
}
