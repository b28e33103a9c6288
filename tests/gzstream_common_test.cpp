#include "support/streams.h"

TEST(BufferCompression, HasTheFormatsOfTheLibraries)
{
    string packed, got;
    EXPECT_TRUE(ZQCompress(packed, nullptr, 7, "zstd") && ZQUncompress(got, nullptr, 7, "zstd"));
    EXPECT_EQ(hex(packed), "28 B5 2F FD 20 00 01 00 00");
    EXPECT_TRUE(ZQCompress(packed, nullptr, 7, "gz") && ZQUncompress(got, nullptr, 7, "gz"));
    EXPECT_EQ(hex(packed), "1F 8B 08 00 00 00 00 00 00 03 03 00 00 00 00 00 00 00 00 00");
    for (const auto& [file, method] :
         {std::pair("/text.gz", "gz"), std::pair("/text.zst", "zstd")}) {
        got.clear();  // files of an earlier build
        EXPECT_TRUE(ZQUncompress(got, readFile(string(ZQPLATFORM_TEST_DATA) + file), method));
        EXPECT_EQ(got, "hello hello hello hello\n");
    }
}

TEST(BufferCompression, IsAvailableByOneNameOnly)
{
    string out = "old", in = "old";
    EXPECT_FALSE(ZQCompress(out, "data", nullptr) || ZQUncompress(in, "data", nullptr));
    EXPECT_EQ(out + in, "");
    EXPECT_TRUE(ZQCompressionAvailable("gzip"));
    for (const char* method : {(const char*)nullptr, "", "g", "zstd"})
        EXPECT_FALSE(ZQCompressionAvailable(method));
}
