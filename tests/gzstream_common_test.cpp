#include "support/streams.h"

TEST(BufferCompression, GivesTheBytesBack)
{
    for (const char* method : {"gz", "zstd"})
        for (const size_t size : {0, 1, 2047, 2048, 2049, 131072, 1000000}) {
            const string bytes = sampleBytes(size);
            string packed = "old", got = "front ";
            EXPECT_TRUE(ZQCompress(packed, bytes, method) && ZQUncompress(got, packed, method));
            EXPECT_TRUE(got == "front " + bytes) << method << size;  // appends
            EXPECT_TRUE(ZQUncompress(packed, packed, method) && packed.size() >= size &&
                        packed.substr(packed.size() - size) == bytes);
        }
    string packed, got;
    EXPECT_TRUE(ZQCompress(packed, nullptr, 7, "zstd") && ZQUncompress(got, nullptr, 7, "zstd"));
    EXPECT_EQ(hex(packed), "28 B5 2F FD 20 00 01 00 00");
    EXPECT_TRUE(ZQCompress(packed, nullptr, 7, "gz") && ZQUncompress(got, nullptr, 7, "gz"));
    EXPECT_EQ(hex(packed), "1F 8B 08 00 00 00 00 00 00 03 03 00 00 00 00 00 00 00 00 00");
    EXPECT_TRUE(ZQUncompress(got, "plain text", "gz") && got == "plain text");
    for (const auto& [file, method] :
         {std::pair("/text.gz", "gz"), std::pair("/text.zst", "zstd")}) {
        got.clear();  // files of an earlier build
        EXPECT_TRUE(ZQUncompress(got, readFile(string(ZQPLATFORM_TEST_DATA) + file), method));
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
    for (size_t i = 0; i < 400; ++i) {
        string bad = good, got;
        bad[i * (good.size() - 1) / 400] ^= 0x41;
        if (ZQUncompress(got, bad, "zstd"))  // cut by its damage: goes on until it is refused
            while (ZQUncompress(got, "never a block", "zstd")) {}
        got.clear();
        ASSERT_TRUE(ZQUncompress(got, good, "zstd") && got == bytes) << i;
    }
    string got;  // a cut frame goes on
    EXPECT_TRUE(ZQUncompress(got, good.substr(0, 1000), "zstd") &&
                ZQUncompress(got, good.substr(1000), "zstd") && got == bytes);
}
