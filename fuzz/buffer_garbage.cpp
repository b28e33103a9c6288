// Sequences of damaged, cut, joined and sound buffers on one thread: no call may spoil the next,
// but for a frame that is cut, which the next call continues.

#include "gzip_model.h"

#include <zstd.h>

namespace {

// What the library's session holds from one call to the next.
class ZstdModel {
public:
    ZstdModel() : _stream(ZSTD_createDStream()), _block(ZSTD_DStreamOutSize(), '\0') {}
    ~ZstdModel() { ZSTD_freeDStream(_stream); }
    ZstdModel(const ZstdModel&) = delete;
    ZstdModel& operator=(const ZstdModel&) = delete;

    bool uncompress(string& out, const string& data)
    {
        ZSTD_inBuffer in = {data.data(), data.size(), 0};
        while (in.pos < in.size) {
            const size_t before = in.pos;
            ZSTD_outBuffer block = {_block.data(), _block.size(), 0};
            const size_t result = ZSTD_decompressStream(_stream, &block, &in);
            if (!ZSTD_isError(result)) out.append(_block, 0, block.pos);
            if (ZSTD_isError(result) || in.pos == before) {
                ZSTD_DCtx_reset(_stream, ZSTD_reset_session_only);
                return false;
            }
        }
        return true;
    }

private:
    ZSTD_DStream* _stream;
    string _block;
};

string zstdData(Input& input)
{
    if (input.upTo(3) == 3) return input.bytes(input.byte());
    const string text = input.text(30000);
    string data(ZSTD_compressBound(text.size()), '\0');
    data.resize(ZSTD_compress(data.data(), data.size(), text.data(), text.size(), 1));
    if (input.upTo(3) == 3)
        data[input.upTo(65535) % data.size()] ^= static_cast<char>(input.byte());
    if (input.upTo(3) != 3) return data;
    const size_t start = input.upTo(255) % data.size();
    return data.substr(start, input.upTo(65535));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* bytes, size_t size)
{
    printed();
    Input input(bytes, size);
    // What zstd makes of a damaged frame depends on the room that earlier frames have left: the two
    // sessions always get the same.
    static ZstdModel model;
    string got, expected, lines;
    while (!input.empty()) {
        const bool zstd = input.upTo(3) != 0;
        const string data = zstd ? zstdData(input) : gzipData(input);
        if (zstd) {
            CHECK(ZQUncompress(got, data, "zstd") == model.uncompress(expected, data));
        } else {
            const GzipModel decoded(data);
            CHECK(ZQUncompress(got, data, "gz"));
            expected += decoded.bytes;
            lines += decoded.printed;
        }
        CHECK(got == expected);
    }
    CHECK(printed() == lines);
    // No magic number, no block and no checksum of this ends well: the session is new again.
    const string bad(65536, '\xFF');
    for (bool cut = true; cut;) {
        got.clear();
        expected.clear();
        cut = ZQUncompress(got, bad, "zstd");
        CHECK(cut == model.uncompress(expected, bad) && got == expected);
    }
    return 0;
}
