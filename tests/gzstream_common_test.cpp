#include "support/process.h"
#include "support/streams.h"

using namespace ZQPlatform;
using std::string;

TEST(BufferCompression, GivesTheBytesBack)
{
    for (const char* method : {"gz", "zstd"})
        for (const std::size_t size : {0, 1, 2047, 2048, 2049, 131072, 1000000}) {
            SCOPED_TRACE(string(method) + " " + std::to_string(size));
            const string bytes = sampleBytes(size);
            string packed = "old", got = "front ";
            EXPECT_TRUE(ZQCompress(packed, bytes, method));
            EXPECT_TRUE(ZQUncompress(got, packed, method));  // appends
            EXPECT_TRUE(got == "front " + bytes);
            EXPECT_TRUE(ZQUncompress(packed, packed, method));
            EXPECT_TRUE(packed.size() >= size && packed.substr(packed.size() - size) == bytes);
        }
    string packed, got;
    EXPECT_TRUE(ZQCompress(packed, nullptr, 7, "zstd") && ZQUncompress(got, nullptr, 7, "zstd"));
    EXPECT_EQ(hex(packed), "28 B5 2F FD 20 00 01 00 00");
    EXPECT_TRUE(ZQCompress(packed, nullptr, 7, "gz") && ZQUncompress(got, nullptr, 7, "gz"));
    EXPECT_EQ(hex(packed), "1F 8B 08 00 00 00 00 00 00 03 03 00 00 00 00 00 00 00 00 00");
    EXPECT_TRUE(ZQUncompress(got, "plain text", "gz"));
    EXPECT_EQ(got, "plain text");
    for (const char* method : {"gz", "zstd"}) {  // files of an earlier build
        const string name =
            string(ZQPLATFORM_TEST_DATA "/text.") + (method[0] == 'g' ? "gz" : "zst");
        got.clear();
        EXPECT_TRUE(ZQUncompress(got, readFile(name), method));
        EXPECT_EQ(got, "hello hello hello hello\n");
    }
}

TEST(BufferCompression, RefusesOtherMethods)
{
    for (const char* method : {(const char*)nullptr, "", "gzip", "g", "zst", "ZSTD"}) {
        string out = "old", in = "old";
        EXPECT_FALSE(ZQCompress(out, "data", method) || ZQUncompress(in, "data", method));
        EXPECT_EQ(out + in, "");
        EXPECT_EQ(ZQCompressionAvailable(method), method && string(method) == "gzip");
    }
    EXPECT_FALSE(ZQCompressionAvailable("zstd"));
}

TEST(BufferCompression, DamageStaysInItsBuffer)
{
    const string bytes = sampleBytes(100000);
    string good, frame;
    ZQCompress(good, bytes, "zstd");
    for (std::size_t i = 0; i < 400; ++i) {
        string bad = good, got;
        bad[i * (good.size() - 1) / 400] ^= 0x41;
        if (ZQUncompress(got, bad, "zstd"))  // cut by its damage: goes on until it is refused
            while (ZQUncompress(got, "never a block", "zstd")) {}
        got.clear();
        ASSERT_TRUE(ZQUncompress(got, good, "zstd") && got == bytes) << i;
    }
    string got;
    EXPECT_TRUE(ZQUncompress(got, good.substr(0, 1000), "zstd"));
    EXPECT_TRUE(ZQUncompress(got, good.substr(1000), "zstd"));  // a cut frame goes on
    EXPECT_TRUE(got == bytes);
}
