// Names and contents through the stream manager: which file or prefix a name means, and what is
// decoded.

#include "directory.h"
#include "gzip_model.h"

namespace {

string asked, served;  // the latest name that the opener got; what it delivers
int alive = 0;         // its streams

template <class Base> struct Counted : Base {
    template <class... Args> explicit Counted(Args&&... args) : Base(args...) { ++alive; }
    ~Counted() override { --alive; }
};

// Nothing to serve is a stream that has failed, or none at all.
zqistream* open(const char* name)
{
    asked = name;
    if (!served.empty())
        return new Counted<Spans>(served, std::vector<size_t>{served.size() / 3 + 1, 1});
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
    const size_t where = input.upTo(3);  // the file: NAME, NAME.gz or none
    const string data = gzipData(input);
    const GzipModel decoded(data);

    asked.clear();
    served = where == 3 ? "" : data;
    if (where != 3) std::ofstream(where == 2 ? name + ".gz" : name, std::ios::binary) << data;
    zqistream* in = ZQOpenIStream(name);
    CHECK((in != nullptr) == (prefixed ? !served.empty() : where != 3));
    CHECK(asked == (prefixed ? name : ""));
    string got;
    if (in) {
        in->read(got);
        CHECK(got == (decoded.isGzip ? decoded.bytes : data));
        CHECK((dynamic_cast<zqigzstream*>(in) != nullptr) == decoded.isGzip);
    }
    ZQCloseIStream(in);
    CHECK(printed() == (in && decoded.isGzip ? decoded.printed : ""));
    CHECK(alive == 0);
    return 0;
}
