#include "support/streams.h"

#include <sstream>

using namespace ZQPlatform;

TEST(StandardInput, ReadsToTheEndAndDetaches)
{
    const std::string bytes = sampleBytes(70000);
    checkInput([&] { return std::make_unique<zqistdstream>(new std::istringstream(bytes), true); },
               bytes, false);
    struct Probe : std::istringstream {
        explicit Probe(int& count) : std::istringstream("text"), _count(count) {}
        ~Probe() override { ++_count; }
        int& _count;
    };
    int deleted = 0;
    auto text = new Probe(deleted);
    zqistdstream in;
    std::string got;
    EXPECT_TRUE(in.set(text, true) && in.set(text, false));  // the first flag stays
    EXPECT_TRUE(in.read(got, 4) == 4 && deleted == 0 && in.read(got) == 0 && deleted == 1);
    EXPECT_TRUE(in.set(new Probe(deleted), true) && in.set(new Probe(deleted), true) &&
                deleted == 2);
    in.clear();
    EXPECT_EQ(deleted, 3);

    std::istringstream failed, moved(std::string(100000, 'x'));
    failed.setstate(std::ios::failbit);
    EXPECT_FALSE(in.set(&failed, false) || !zqistdstream(&failed, false).eof());
    EXPECT_TRUE(in.set(&moved, false) && in.skip(100) && in.seek(70000));
    EXPECT_EQ(in.tell(), 70100);  // off by what was used up before the move
    unsigned char block[] = "block";
    EXPECT_TRUE(in.open(block, 5) && in.read(got) == 5 && in.eof());
}

TEST(StandardOutput, DeliversOnFlushAndCloseOnly)
{
    std::ostringstream text;
    zqostdstream(&text, false) << "lost";
    zqostdstream out(&text, false), none(nullptr, false);
    out << "lost, too";
    EXPECT_TRUE(!out.set(nullptr, false) && out.set(&text, false));
    out << "written" << zqendl << "x" << zqendl;
    EXPECT_EQ(out.tell(), 2);   // counts from the latest flush
    EXPECT_FALSE(out.seek(1));  // though it moves
    out << "end";
    out.close();
    EXPECT_EQ(text.str(), "wendten\nx\n");
    EXPECT_EQ(out.write("after", 5), 0u);
    text.setstate(std::ios::badbit);
    EXPECT_TRUE(zqostdstream(&text, false).write("x", 1) == 0 && !out.set(&text, false));
    EXPECT_TRUE(out.write("x", 1) == 0 && none.write("x", 1) == 1 && !none.flush());
}
