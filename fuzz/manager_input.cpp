// Names and contents through the stream manager: which file or prefix a name means, and what is
// decoded.

#include "directory.h"
#include "gzip_model.h"

namespace {

string asked, served;       // the latest name that the opener got; what it delivers
std::vector<size_t> spans;  // in these
bool seekable = false;      // and going back where asked to
int alive = 0;              // its streams

template <class Base> struct Counted : Base {
    template <class... Args> explicit Counted(Args&&... args) : Base(args...) { ++alive; }
    ~Counted() override { --alive; }
};

// Nothing to serve is a stream that has failed, or none at all.
zqistream* open(const char* name)
{
    asked = name;
    if (!served.empty()) return new Counted<Spans>(served, spans, seekable);
    return asked.size() % 2 == 0 ? nullptr : new Counted<zqistream>;
}
void close(zqistream* stream) { delete stream; }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* bytes, size_t size)
{
    static const bool registered = ZQRegisterIStream("pre", open, close);
    CHECK(registered && printed().empty());
    const Directory directory;
    Input input(bytes, size);
    const string name = Directory::name(input);
    const bool prefixed = Directory::hasPrefix(name);
    const size_t choice = input.byte(), where = choice % 4;  // the file: NAME, NAME.gz or none
    const string data = gzipData(input);
    spans = {(choice & 4) ? 1 : data.size() / 3 + 1, (choice & 4) ? ZQ_STREAM_BUFSIZE : 1};
    seekable = (choice & 8) != 0;
    // A first byte that may begin a magic, with a full buffer behind it, has no place to go back
    // to.
    const bool loses = prefixed && (choice & 4) && !seekable && data[0] == '\x1F';
    const string kept = data.substr(loses && data.size() > ZQ_STREAM_BUFSIZE);
    const bool isGzip = data.compare(0, 2, "\x1F\x8B") == 0;
    const GzipModel decoded(kept);

    asked.clear();
    served = where == 3 ? "" : data;
    if (where != 3) std::ofstream(where == 2 ? name + ".gz" : name, std::ios::binary) << data;
    zqistream* in = ZQOpenIStream(name);
    CHECK((in != nullptr) == (prefixed ? !served.empty() : where != 3));
    CHECK(asked == (prefixed ? name : ""));
    string got;
    if (in) {
        in->read(got);
        CHECK(got == (isGzip ? decoded.bytes : kept));
        CHECK((dynamic_cast<zqigzstream*>(in) != nullptr) == isGzip);
    }
    ZQCloseIStream(in);
    CHECK(printed() == (in && isGzip ? decoded.printed : ""));
    CHECK(alive == 0);
    return 0;
}
