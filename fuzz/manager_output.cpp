// Names and contents through the stream manager: which file or prefix a name means, and what is
// compressed.

#include "directory.h"
#include "gzip_model.h"

namespace {

string asked, collected;  // the latest name that the opener got; what its stream was given
int alive = 0;            // its streams

struct Collector : zqosstream {
    Collector() { ++alive; }
    ~Collector() override
    {
        collected = str();
        --alive;
    }
};

zqostream* open(const char* name)
{
    asked = name;
    return asked.size() % 8 == 7 ? nullptr : new Collector;
}
void close(zqostream* stream) { delete stream; }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* bytes, size_t size)
{
    static const bool registered = ZQRegisterOStream("pre", open, close);
    CHECK(registered && printed().empty());
    const Directory directory;
    Input input(bytes, size);
    const string name = Directory::name(input);
    const bool prefixed = Directory::hasPrefix(name);
    const size_t before = input.size();
    const string text = input.text(140000);
    if (before != 0) std::ofstream(name, std::ios::binary) << string(before, 'b');

    asked.clear();
    collected.clear();
    zqostream* out = ZQOpenOStream(name);
    CHECK((out != nullptr) == (!prefixed || name.size() % 8 != 7));
    CHECK(asked == (prefixed ? name : ""));
    if (!out) return 0;
    CHECK(out->write(text) == text.size());
    ZQCloseOStream(out);
    CHECK(alive == 0 && printed().empty());

    CHECK(!prefixed || Directory::bytesOf(name) == string(before, 'b'));
    const string written = prefixed ? collected : Directory::bytesOf(name);
    const GzipModel decoded(written);
    const bool compressed = name.find(".gz") != string::npos;
    CHECK(compressed ? decoded.isGzip && decoded.bytes == text : written == text);
    return 0;
}
