// Caller memory takes what fits, then fails for good.

#include "fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* bytes, size_t size)
{
    Input input(bytes, size);
    const size_t room = input.size();
    std::vector<unsigned char> block(room);
    zqostream out;
    CHECK(out.open(block.data(), room) == (block.data() != nullptr));
    string taken;
    bool failed = room == 0;
    while (!input.empty()) {
        const string text = input.text(140000);
        const size_t fits = std::min(text.size(), room - taken.size());
        const bool whole = fits == text.size() && (!text.empty() || taken.size() < room);
        failed = failed || !whole;
        CHECK(out.write(text) == (whole ? text.size() : 0));
        taken.append(text, 0, fits);
        CHECK(out.eof() == (failed && taken.size() == room) && out.tell() == long(taken.size()));
        CHECK(std::equal(taken.begin(), taken.end(), reinterpret_cast<char*>(block.data())));
    }
    out.close();
    CHECK(out.write("more") == 0 && out.eof());
    zqofstream file;  // the same, but for the flush, which refuses and does no harm
    if (!file.open(block.data(), room)) return 0;
    CHECK(!file.flush() && !file.eof());
    unsigned char byte = 'i';
    zqistream in;
    CHECK(in.open(&byte, 1) && (file << in).tell() == 1 && block[0] == byte);
    CHECK(file.write(string(room, 'f')) == 0 && file.eof());
    return 0;
}
