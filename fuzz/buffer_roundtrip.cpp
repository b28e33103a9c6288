// Buffers compressed by both methods, read by zlib and zstd themselves and by the library.

#include "gzip_model.h"

#include <zstd.h>

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* bytes, size_t size)
{
    printed();
    Input input(bytes, size);
    while (!input.empty()) {
        const bool zstd = input.flag();
        const char* method = zstd ? "zstd" : "gz";
        const string text = input.text(200000);
        string packed = "to be replaced", back = "kept ";
        CHECK(ZQCompress(packed, text, method));
        if (zstd) {
            string plain(text.size() + 1, '\0');
            CHECK(ZSTD_decompress(plain.data(), plain.size(), packed.data(), packed.size()) ==
                  text.size());
            CHECK(plain.compare(0, text.size(), text) == 0);
        } else {
            const GzipModel decoded(packed);
            CHECK(decoded.isGzip && decoded.bytes == text && decoded.printed.empty());
        }
        CHECK(ZQUncompress(back, packed, method) && back == "kept " + text);

        string same = packed;  // both arguments may be one
        CHECK(ZQUncompress(same, same, method) && same == packed + text);
        const string name = input.bytes(input.upTo(5)).c_str();
        const bool known = name == "gz" || name == "zstd";
        CHECK(ZQCompress(same, text, name.c_str()) == known && same.empty() == !known);
        CHECK(ZQUncompress(back, packed, known ? nullptr : name.c_str()) == false && back.empty());
    }
    CHECK(printed().empty());
    return 0;
}
