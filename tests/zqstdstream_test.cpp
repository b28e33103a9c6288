#include "support/streams.h"

#include <sstream>

TEST(StandardInput, ReadsToTheEndAndDetaches)
{
    using Probe = DeleteProbe<std::istringstream>;
    int deleted = 0;
    auto text = new Probe(deleted, "text");
    zqistdstream in;
    string got;
    EXPECT_TRUE(in.set(text, true) && in.set(text, false));  // the first flag stays
    EXPECT_TRUE(in.read(got, 4) == 4 && deleted == 0 && in.read(got) == 0 && deleted == 1);
    EXPECT_TRUE(in.set(new Probe(deleted), true) && in.set(new Probe(deleted), true));
    EXPECT_EQ(deleted, 2);
    in.clear();
    EXPECT_EQ(deleted, 3);

    std::istringstream failed, moved(string(70000, 'x') + "behind");
    failed.setstate(std::ios::failbit);
    EXPECT_FALSE(in.set(&failed, false) || !zqistdstream(&failed, false).eof());
    EXPECT_TRUE(in.set(&moved, false) && in.skip(100) && in.seek(70000));
    EXPECT_TRUE(in.tell() == 70100 && rest(in) == "behind");  // off by what was used up before
    std::istringstream throwing("0123456789");
    throwing.exceptions(std::ios::failbit | std::ios::eofbit);
    EXPECT_TRUE(in.set(&throwing, false) && in.read(got) == 10 && got == throwing.str());
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
    EXPECT_TRUE(text.str() == "wendten\nx\n" && out.write("after", 5) == 0) << text.str();
    text.setstate(std::ios::badbit);
    EXPECT_TRUE(zqostdstream(&text, false).write("x", 1) == 0 && !out.set(&text, false));
    EXPECT_TRUE(out.write("x", 1) == 0 && none.write("x", 1) == 1 && !none.flush());
    unsigned char room[1];  // caller memory that is full ends the stream
    EXPECT_TRUE(none.open(room, 1) && none.write("xy", 2) == 0 && none.eof());
}
