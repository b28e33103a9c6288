#include "support/streams.h"

TEST(StringInput, KeepsItsBlockUntilItIsCleared)
{
    zqisstream in;
    string got = "old";
    EXPECT_TRUE(!in.reset() && in.getbuffer(got) && got.empty());
    EXPECT_FALSE(in.set(nullptr, 5, true) || in.set("abc", 0, false) || in.set(string()));
    EXPECT_TRUE(in.getbuffer(got) && got.empty());
    EXPECT_TRUE(in.set(string("abcdef")) && in.skip(4) && in.getbuffer(got) && in.tell() == 4);
    EXPECT_TRUE(got == "abcdef" && in.reset() && rest(in) == got);
    EXPECT_FALSE(in.open("name") || in.reset() || in.seek(0));  // lets go of the block
    EXPECT_TRUE(in.tell() == 0 && in.read(got) == 0);
    unsigned char block[] = "xyz";
    EXPECT_TRUE(in.set(string("owned")) && in.open(block, 3));
    zqisstream copy(in);
    EXPECT_TRUE(rest(copy) == "xyz" && rest(in) == "xyz" && in.close() && in.close());
}

TEST(StringInput, CopiesStandWhereTheOriginalStands)
{
    string text = "abcdef";
    zqisstream empty, nothing(empty), borrower, owner;
    for (const bool owned : {false, true}) {
        zqisstream in, assigned;
        EXPECT_TRUE(in.set(text.data(), text.size(), owned) && in.skip(2));
        zqisstream copy(in);
        assigned = in;
        in.clear();
        text[5] = 'F';  // a borrowing copy reads the caller's block
        for (zqisstream* each : {&copy, &assigned})
            EXPECT_TRUE(each->tell() == 2 && rest(*each) == (owned ? "cdef" : "cdeF") &&
                        each->reset());
        text[5] = 'f';
        assigned.clear();  // an owned block would leak, deliberately
        assigned = empty;
        EXPECT_FALSE(assigned.reset() || nothing.reset());
    }
    EXPECT_TRUE(borrower.set(new char[3]{'o', 'l', 'd'}, 3, false) && owner.set(text));
    borrower = owner;  // releases the borrowed block, as a leak checker sees
}

TEST(StringOutput, CollectsTextBehindTheGivenOne)
{
    zqosstream out("ab");
    out << "cd";
    EXPECT_EQ(out.str() + out.str(), "abcdabcd");
    EXPECT_TRUE(out.tell() == 2 && out.size() == 0 && out.write(string(200000, 'x')) == 200000);
    EXPECT_FALSE(out.open("name"));  // reports failure, keeps its text, goes on writing
    out << "more";
    EXPECT_EQ(out.str().substr(200000), "xxxxmore");
    EXPECT_TRUE(out.set(string("a\0b", 3)) && out.str().size() == 3);
    const auto* bytes = reinterpret_cast<const unsigned char*>("xyz");
    EXPECT_TRUE(out.set(bytes, 2) && out.write("!", 1) && out.tell() == 1);
    EXPECT_EQ(out.str() + zqosstream(bytes, 3).str() + zqosstream((const char*)nullptr).str(),
              "xy!xyz");
    out.clear();
    out.close();
    out << 'x' << 12 << zqendl;  // dropped: there is no room after close()
    EXPECT_EQ(out.str(), "");
}

TEST(StringOutput, FailsOverCallerMemoryAndInCopies)
{
    unsigned char block[4];
    zqosstream out("text"), source("text"), assigned;
    EXPECT_TRUE(out.open(block, 4) && out.write("ab", 2) == 2 && out.str() == "ab");
    EXPECT_TRUE(out.write("cdef", 4) == 0 && out.eof() && out.str() == "text");
    EXPECT_EQ(std::memcmp(block, "abcd", 4), 0);
    EXPECT_TRUE(out.open(block, 4) && out.write("abcde", 5) == 0 && out.eof());
    out.clear();
    EXPECT_TRUE(!out.eof() && out.open(block, 4) && out.write("ab", 2) == 2);
    out.clear();  // and all is as at first
    EXPECT_TRUE(out.size() == 0 && out.write(string(70000, 'x')) && out.tell() == 70000);
    EXPECT_EQ(out.str().size(), 70000u);

    source.write(string(70000, 'x'));
    source << zqflush << "pending";
    zqosstream copy(source);
    assigned = source;
    for (zqosstream* each : {&copy, &assigned}) {
        *each << "+";
        EXPECT_TRUE(each->tell() == 70008 && each->str() == "pending+" && !each->flush() &&
                    each->str().size() == 70004);
    }
    EXPECT_EQ(source.str().substr(70004), "pending");
}
