// Positions and sizes of gzip streams over sources that can and cannot go back.

#include "gzip_model.h"
#include "text_model.h"

namespace {

void seekOnce(Input& input, zqistream& gzip, SlowReader& model, bool canGoBack)
{
    const size_t end = model.bytes.size();
    const long target =
        input.upTo(9) == 9 ? -long(input.size()) - 1 : long(input.upTo(65535) % (end + 10));
    if (target < 0 || (!canGoBack && target < long(model.at))) {
        // Backward it may still lie in the buffer.
        if (gzip.seek(target)) model.at = size_t(target);
        CHECK(target >= 0 || model.at != size_t(target));
    } else {
        CHECK(gzip.seek(target) == (target < long(end)));
        model.at = std::min(size_t(target), end);
    }
    CHECK(gzip.tell() == long(model.at));
}

// In plain data with members behind it, it depends on what was reached.
void sizeOnce(zqistream& gzip, const GzipModel& decoded)
{
    const zqsize_t total = gzip.size();
    CHECK(total == (decoded.isGzip ? decoded.bytes.size() : 0) ||
          (total == decoded.bytes.size() && decoded.hasMembers));
}

// A source may let go of its reader while it is told to go back.
struct Leaver : Spans {
    using Spans::Spans;
    bool _zqseek(long pos) override { return reader->clear(), Spans::_zqseek(pos); }
    zqigzstream* reader = nullptr;
};

bool isLettingGoSafe()
{
    Leaver source(string(40000, 'p'), {10000}, true);
    zqigzstream gzip(&source, false);
    source.reader = &gzip;
    return gzip.skip(40000) && !gzip.seek(0) && gzip.eof() && gzip.tell() == 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* bytes, size_t size)
{
    static const bool safe = isLettingGoSafe();
    CHECK(safe);
    printed();
    Input input(bytes, size);
    const string script = input.bytes(input.byte());
    const bool canGoBack = input.upTo(3) != 3;
    const std::vector<size_t> spans = Spans::choose(input);
    const string data = gzipData(input);
    const GzipModel decoded(data);
    SlowReader model{decoded.bytes};

    Spans source(data, spans, canGoBack);
    zqigzstream gzip(&source, false);
    Input choices(reinterpret_cast<const unsigned char*>(script.data()), script.size());
    if (canGoBack && script.size() % 2 != 0) sizeOnce(gzip, decoded);
    while (!choices.empty()) {
        if (choices.flag())
            readOnce(choices, gzip, model);
        else
            seekOnce(choices, gzip, model, canGoBack);
        if (canGoBack && choices.upTo(7) == 7) sizeOnce(gzip, decoded);
        CHECK(gzip.tell() == long(model.at));
    }
    readRest(gzip, model);
    zqigzstream none;
    CHECK(none.size() == 0 && !none.seek(0) && none.eof());
    // One line for each time that the damage was reached.
    for (string lines = printed(); !lines.empty(); lines.erase(0, decoded.printed.size()))
        CHECK(!decoded.printed.empty() &&
              lines.compare(0, decoded.printed.size(), decoded.printed) == 0);
    return 0;
}
