#include "support/streams.h"

using namespace ZQPlatform;

TEST(StringInput, IsAnInputStreamThatBorrowsOrCopies)
{
    const std::string bytes = sampleBytes(200000);
    for (const bool copy : {false, true})
        checkInput(
            [&] {
                auto in = std::make_unique<zqisstream>();
                EXPECT_TRUE(in->set(bytes.data(), bytes.size(), copy));
                EXPECT_EQ(in->size(), bytes.size());
                return in;
            },
            bytes, true);
}

TEST(StringInput, KeepsItsBlockUntilItIsCleared)
{
    zqisstream in;
    std::string got = "old";
    EXPECT_FALSE(in.reset());
    EXPECT_TRUE(in.getbuffer(got) && got.empty());
    EXPECT_FALSE(in.set(nullptr, 5, true) || in.set("abc", 0, false) || in.set(std::string()));
    EXPECT_TRUE(in.getbuffer(got) && got.empty());

    EXPECT_TRUE(in.set(std::string("abcdef")));
    in.read(got, 4);
    EXPECT_TRUE(in.getbuffer(got));
    EXPECT_EQ(got, "abcdef");
    EXPECT_EQ(in.tell(), 4);
    EXPECT_TRUE(in.reset());
    EXPECT_EQ(in.read(got), 6u);

    EXPECT_FALSE(in.open("name"));  // lets go of the block
    EXPECT_EQ(in.tell(), 0);
    EXPECT_EQ(in.read(got), 0u);
    EXPECT_FALSE(in.reset() || in.seek(0));
    unsigned char block[] = "xyz";
    EXPECT_TRUE(in.set(std::string("owned")) && in.open(block, 3));
    zqisstream copy(in);
    EXPECT_EQ(copy.read(got), 3u);
    EXPECT_EQ(in.read(got), 3u);
    EXPECT_TRUE(in.close() && in.close());
    EXPECT_EQ(in.size(), 0u);
}

TEST(StringInput, CopiesStandWhereTheOriginalStands)
{
    std::string text = "abcdef", got;
    for (const bool owned : {false, true}) {
        zqisstream in, assigned, empty;
        in.set(text.data(), text.size(), owned);
        in.skip(2);
        zqisstream copy(in), nothing(empty);
        assigned = in;
        in.clear();
        for (zqisstream* each : {&copy, &assigned}) {
            EXPECT_EQ(each->tell(), 2);
            EXPECT_EQ(each->read(got), 4u);
            EXPECT_EQ(got, "cdef");
            EXPECT_TRUE(each->reset());
        }
        assigned = empty;
        EXPECT_FALSE(assigned.reset() || nothing.reset());
        text[5] = 'F';  // a borrowing copy reads the caller's block
        copy.seek(5);
        EXPECT_EQ(copy.read(got), 1u);
        EXPECT_EQ(got, owned ? "f" : "F");
        text[5] = 'f';
        copy.clear();
    }
    auto block = new char[3]{'o', 'l', 'd'};
    zqisstream borrower, owner;
    borrower.set(block, 3, false);
    owner.set(text);
    borrower = owner;  // releases the borrowed block: its rule, and the sanitizer's proof
}

TEST(StringOutput, CollectsTextBehindTheGivenOne)
{
    zqosstream out("ab");
    out << "cd";
    EXPECT_EQ(out.str() + out.str(), "abcdabcd");
    EXPECT_EQ(out.tell(), 2);
    EXPECT_EQ(out.size(), 0u);
    out.write(std::string(200000, 'x'));
    EXPECT_EQ(out.str().size(), 200004u);
    EXPECT_FALSE(out.open("name"));  // reports failure, keeps its text, goes on writing
    out << "more";
    EXPECT_EQ(out.str().substr(200000), "xxxxmore");
    EXPECT_TRUE(out.set(std::string("a\0b", 3)));
    EXPECT_EQ(out.str().size(), 3u);
    const auto* bytes = reinterpret_cast<const unsigned char*>("xyz");
    EXPECT_TRUE(out.set(bytes, 2));
    out << '!';
    EXPECT_EQ(out.str() + zqosstream(bytes, 3).str(), "xy!xyz");
    EXPECT_EQ(zqosstream(static_cast<const char*>(nullptr)).str(), "");
    out.clear();
    EXPECT_EQ(out.str(), "");
    out.close();
    out << 'x' << 12 << zqendl;  // dropped: there is no room after close()
    EXPECT_EQ(out.str(), "");
}

TEST(StringOutput, FailsOverCallerMemoryAndInCopies)
{
    unsigned char block[4] = {};
    zqosstream out("text");
    EXPECT_TRUE(out.open(block, 4));
    EXPECT_EQ(out.write("ab", 2), 2u);
    EXPECT_EQ(out.str(), "ab");
    EXPECT_EQ(out.write("cdef", 4), 0u);
    EXPECT_EQ(std::memcmp(block, "abcd", 4), 0);
    EXPECT_TRUE(out.eof());
    EXPECT_EQ(out.str(), "text");

    zqosstream source("text"), assigned;
    source.write(std::string(70000, 'x'));
    source.flush();
    source << "pending";
    zqosstream copy(source);
    assigned = source;
    for (zqosstream* each : {&copy, &assigned}) {
        EXPECT_EQ(each->tell(), 70007);
        EXPECT_EQ(each->str(), "pending");
        *each << "+";
        EXPECT_EQ(each->str(), "pending+");
        EXPECT_FALSE(each->flush());
        EXPECT_EQ(each->str().size(), 70004u);
    }
    EXPECT_EQ(source.str().substr(70004), "pending");
}
