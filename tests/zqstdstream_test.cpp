#include "support/streams.h"

#include <sstream>

using namespace ZQPlatform;

TEST(StandardInput, ReadsToTheEndAndDetaches)
{
    const std::string bytes = sampleBytes(70000);
    checkInput([&] { return std::make_unique<zqistdstream>(new std::istringstream(bytes), true); },
               bytes, false);

    int deleted = 0;
    struct Probe : std::istringstream {
        Probe(int& count, const std::string& text) : std::istringstream(text), _count(count) {}
        ~Probe() override { ++_count; }
        int& _count;
    };
    auto text = new Probe(deleted, "text");
    zqistdstream in;
    EXPECT_TRUE(in.set(text, true));
    EXPECT_TRUE(in.set(text, false));  // the first flag stays
    std::string got;
    EXPECT_EQ(in.read(got, 4), 4u);
    EXPECT_EQ(deleted, 0);
    EXPECT_EQ(in.read(got), 0u);
    EXPECT_EQ(deleted, 1);
    EXPECT_TRUE(in.set(new Probe(deleted, "a"), true) && in.set(new Probe(deleted, "b"), true));
    EXPECT_EQ(deleted, 2);
    in.clear();
    EXPECT_EQ(deleted, 3);

    std::istringstream failed("x"), moved("0123456789");
    failed.setstate(std::ios::failbit);
    EXPECT_FALSE(in.set(&failed, false) || !zqistdstream(&failed, false).eof());
    EXPECT_TRUE(in.set(&moved, false));
    unsigned char block[] = "block";
    EXPECT_TRUE(in.open(block, 5));
    EXPECT_EQ(in.read(got), 5u);
    EXPECT_TRUE(in.eof());
}

TEST(StandardInput, PositionsAreOffAfterAMoveOutsideTheSpan)
{
    std::istringstream text(std::string(100000, 'x') + "end");
    zqistdstream in(&text, false);
    in.skip(100);
    EXPECT_TRUE(in.seek(70000));
    EXPECT_EQ(in.tell(), 70100);
}

TEST(StandardOutput, DeliversOnFlushAndCloseOnly)
{
    std::ostringstream text;
    {
        zqostdstream out(&text, false);
        out << "lost";
    }
    zqostdstream out(&text, false);
    out << "lost, too";
    EXPECT_TRUE(out.set(nullptr, false) == false && out.set(&text, false));
    out << "written" << zqendl;
    EXPECT_EQ(text.str(), "written\n");
    EXPECT_EQ(out.tell(), 8);
    out << "x" << zqendl;
    EXPECT_EQ(out.tell(), 2);   // counts from the latest flush
    EXPECT_FALSE(out.seek(1));  // false, though it moves
    out << "end";
    out.close();
    EXPECT_EQ(text.str(), "wendten\nx\n");
    EXPECT_EQ(out.write("after", 5), 0u);

    text.setstate(std::ios::badbit);
    zqostdstream failed(&text, false), none(nullptr, false);
    EXPECT_EQ(failed.write("x", 1), 0u);
    EXPECT_FALSE(out.set(&text, false));
    EXPECT_EQ(out.write("x", 1), 0u);
    EXPECT_EQ(none.write("x", 1), 1u);
    EXPECT_FALSE(none.flush());
}
