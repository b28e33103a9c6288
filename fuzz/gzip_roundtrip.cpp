// What a gzip output stream writes, read by zlib and by a gzip input stream.

#include "gzip_model.h"

namespace {

// zlib's own reading of one member that fills 'data'.
string gunzip(const string& data)
{
    z_stream z = {};
    CHECK(inflateInit2(&z, 16 + 15) == Z_OK);
    z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(data.data()));
    z.avail_in = static_cast<uInt>(data.size());
    string text, block(65536, '\0');
    int result = Z_OK;
    while (result == Z_OK) {
        z.next_out = reinterpret_cast<Bytef*>(block.data());
        z.avail_out = static_cast<uInt>(block.size());
        result = inflate(&z, Z_NO_FLUSH);
        text.append(block, 0, block.size() - z.avail_out);
    }
    CHECK(result == Z_STREAM_END && z.avail_in == 0);
    inflateEnd(&z);
    return text;
}

// What no method makes smaller, but with the same bytes for each length.
string noise(size_t length)
{
    string bytes;
    std::uint32_t state = 1;
    for (; bytes.size() < length; bytes += static_cast<char>(state >> 24))
        state = state * 1664525 + 1013904223;
    return bytes;
}

void writeOnce(Input& input, zqogzstream& gzip, string& written)
{
    const auto choice = input.upTo(7);
    const string text = choice == 3  ? noise(input.upTo(65535))
                        : choice < 3 ? input.text(70000)
                                     : string();
    const int number = static_cast<int>(input.upTo(65535)) - 30000;
    switch (choice) {
    case 4: CHECK(gzip.flush()); break;
    case 5: gzip << number << '\t'; break;
    case 6: gzip << true; break;
    case 7: gzip << zqendl; break;
    default: CHECK(gzip.write(text) == text.size() && gzip.count() == text.size());
    }
    const string added[] = {"", std::to_string(number) + '\t', "1", "\n"};
    written += choice < 4 ? text : added[choice - 4];
    CHECK(gzip.tell() == long(written.size()) && gzip.size() == written.size());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* bytes, size_t size)
{
    printed();
    Input input(bytes, size);
    string written, back;
    const size_t ending = input.upTo(2);
    zqosstream target;
    {
        zqogzstream gzip(&target, false);
        while (!input.empty()) writeOnce(input, gzip, written);
        if (ending == 0)
            gzip.close();
        else if (ending == 1)
            gzip.clear();
    }
    const string data = target.str();
    CHECK(data.compare(0, 10, string("\x1F\x8B\x08\0\0\0\0\0\0\x03", 10)) == 0);
    CHECK(gunzip(data) == written);

    Spans source(data, {std::min<size_t>(1 + data.size() / 3, ZQ_STREAM_BUFSIZE)});
    zqigzstream gzip(&source, false);
    // To attach the source again, with a second member, changes nothing of what the first one
    // holds.
    const size_t first = std::min<size_t>(ending * 7, written.size());
    CHECK(gzip.read(back, first) == first && back == written.substr(0, first));
    source.append(data);
    CHECK(gzip.set(&source, true) && gzip.set(&source, false));
    CHECK(gzip.read(back) == 2 * written.size() - first);
    CHECK(back == (written + written).substr(first));
    CHECK(printed().empty());
    return 0;
}
