#include "support/process.h"
#include "support/streams.h"

using namespace ZQPlatform;

TEST(StreamRead, IsShortOnlyWhereTheSourceEnds)
{
    const struct {
        const char* about;
        std::vector<std::string> chunks;
        zqsize_t ask;
        std::string got;
        int fills;
    } rows[] = {
        {"nothing asked: source not touched", {"abc"}, 0, "", 0},
        {"inside the first chunk", {"abcdef"}, 3, "abc", 1},
        {"across a refill", {"abc", "def"}, 5, "abcde", 2},
        {"exactly to the end", {"abc", "def"}, 6, "abcdef", 2},
        {"past the end: short count", {"abc"}, 9, "abc", 2},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.about);
        ChunkSource text(row.chunks), block(row.chunks);
        std::string got;
        EXPECT_EQ(text.read(got, row.ask), row.got.size());
        EXPECT_EQ(got, row.got);
        EXPECT_EQ(text.fills, row.fills);
        char bytes[16];
        EXPECT_EQ(block.read(bytes, row.ask), row.got.size());
        EXPECT_EQ(std::string(bytes, block.count()), row.got);
        EXPECT_EQ(block.fills, row.fills);
        EXPECT_EQ(block.eof(), row.got.size() < row.ask);
    }
}
