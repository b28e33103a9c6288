#include "support/streams.h"

constexpr size_t headerSize = 10, trailerSize = 8;

static string memberOf(const string& bytes)
{
    zqosstream out;
    EXPECT_EQ(zqogzstream(&out, false).write(bytes), bytes.size());
    return out.str();
}

// The same member behind another header.
static string withHeader(const string& header, const string& bytes)
{
    return header + memberOf(bytes).substr(headerSize);
}

// A gzip stream that owns a string stream over 'data'.
static std::unique_ptr<zqigzstream> gzipOver(const string& data)
{
    auto source = new zqisstream;
    source->set(data);
    return std::make_unique<zqigzstream>(source, true);
}

// What comes, and what is printed. The second time nothing more may come, and nothing be printed.
static std::pair<string, string> decode(const string& data)
{
    CaptureErr err;
    string bytes, more;
    auto gzip = gzipOver(data);
    gzip->read(bytes);
    EXPECT_TRUE(gzip->read(more) == 0 && gzip->eof());
    return {bytes, err.text()};
}

TEST(GzipInput, ReadsEveryHeaderAndEndsAtBadOnes)
{
    const string text = "some text", magic = "\x1F\x8B", member = memberOf(text);
    const string fields = string("\0\2", 2) + string(512, 'e') + string("n\0c\0zz", 6);
    const auto flagged = [&](char flags) { return magic + "\x08" + flags + string(6, 'x'); };
    const std::tuple<const char*, string, string> rows[] = {
        {"one lone byte of the magic", "\x1F", ""},
        {"text, a flag without a meaning", withHeader(flagged(1), text), text},
        {"all fields", withHeader(flagged(30) + fields, text), text},
        {"unknown method", magic + "\x07" + member.substr(3), ""},
        {"a reserved flag behind a member", member + withHeader(flagged(64), text), text},
        {"data behind a member", member + "rest", text + "rest"},
        {"one lone byte of the magic behind a member", member + "\x1F", text},
        {"a rest that holds a member, too", member + "r" + member, text + "r" + member},
        {"a member in a later chunk of plain data", string(16384, 'p') + member,
         string(16384, 'p') + text}};
    for (const auto& [about, data, expected] : rows)
        EXPECT_TRUE(decode(data) == std::pair(expected, string())) << about;
}

TEST(GzipInput, ComplainsOfCutDataButNotOfItsTrailer)
{
    const string text = sampleBytes(3000), good = memberOf(text);
    for (size_t left = 1; left <= trailerSize; ++left) {
        string bad = good;
        bad[bad.size() - left] ^= 0x55;  // a wrong checksum ends the data, a wrong length does not
        EXPECT_TRUE(decode(bad + good).first == (left <= 4 ? text + text : text)) << left;
        EXPECT_TRUE(decode(good.substr(0, good.size() - left)) == std::pair(text, string()));
    }
    const auto [bytes, err] = decode(good.substr(0, good.size() - trailerSize - 1));
    EXPECT_TRUE(text.compare(0, bytes.size(), bytes) == 0 && err == "zqigzstream fill error\n");
}

TEST(GzipInput, LosesNoByteOfAPipe)
{
    const string bytes = sampleBytes(100000);
    ChunkSource pipe({bytes.substr(0, 10), bytes.substr(10, 50000), bytes.substr(50010)});
    zqigzstream plain(&pipe, false);
    string got, all;
    for (const zqsize_t step : {0, 1, 20000, 33000, 100000}) {
        EXPECT_FALSE(plain.size() || plain.seek(-1) || (plain.tell() > 32768 && plain.seek(0)));
        plain.read(got, step);
        all += got;
    }
    EXPECT_TRUE(all == bytes);
}

TEST(GzipInput, BeginsAnewWithEverySource)
{
    const string badHeader("\x1F\x8B\x07", 3);
    zqisstream bad, good, empty;
    zqigzstream gzip;
    string got;
    EXPECT_TRUE(bad.set(badHeader) && good.set(memberOf("good")) && gzip.read(got) == 0);
    EXPECT_TRUE(gzip.set(&bad, false) && gzip.read(got) == 0);
    EXPECT_TRUE(gzip.set(&good, false) && gzip.read(got) == 4);
    EXPECT_TRUE(!gzip.set(&empty, false) && gzip.read(got) == 0);
    empty.set(memberOf("late"));
    EXPECT_EQ(gzip.read(got), 4u);
    good.set(badHeader);
    EXPECT_TRUE(gzip.set(&good, false) && gzip.read(got) == 0);
    good.set(memberOf("again"));  // the same source, with new data
    EXPECT_TRUE(gzip.set(&good, false) && gzip.read(got) == 5 && gzip.seek(1));
}

TEST(GzipInput, ReadsManyEmptyMembersOnASmallStack)
{
    string data;
    for (int i = 0; i < 20000; ++i) data += memberOf("");
    data += memberOf("end");
    struct Reader : ZQThread {
        void* Run(void* text) override
        {
            return gzipOver(*(string*)text)->read(*(string*)text), text;
        }
    } thread;
    thread.SetStackSize(128 * 1024);
    EXPECT_TRUE(thread.Start(&data) && thread.Join() == &data && data == "end");
}

TEST(GzipOutput, WritesOneMemberWhenItIsFinished)
{
    const string abc = memberOf("abc");
    EXPECT_EQ(hex(abc.substr(abc.size() - trailerSize)), "C2 41 24 35 03 00 00 00");
    zqosstream out;
    auto gzip = std::make_unique<zqogzstream>(&out, false);
    *gzip << "some" << zqendl;
    EXPECT_TRUE(gzip->flush() && gzip->size() == 5 && !gzip->seek(70000) && out.str().empty());
    gzip.reset();
    EXPECT_EQ(decode(out.str()).first, "some\n");

    int deleted = 0;
    zqogzstream again;
    EXPECT_TRUE(again.set(new DeleteProbe<FailingSink>(deleted, 1000000), true));
    const string bytes = sampleBytes(300000);
    for (size_t at = 0; at < bytes.size(); at += 1000) again.write(bytes.substr(at, 1000));
    EXPECT_EQ(again.size(), bytes.size());
    again.clear();
    EXPECT_EQ(deleted, 1);
    EXPECT_EQ(again.set(&out, false) ? again.write(bytes) : 0, 0u);  // one member in its life
    EXPECT_TRUE(decode(memberOf(bytes)).first == bytes);
}

TEST(GzipOutput, ReportsWhatTheDestinationRefuses)
{
    int deleted = 0;
    struct Thrower : zqostream {
        bool _zqflush() override { throw(errno = ENOSPC, ZQIOError()); }
    } thrower;
    thrower.write(string(65530, 'x'));
    CaptureErr err;
    {
        zqogzstream gzip(new DeleteProbe<FailingSink>(deleted, 65536), true);
        EXPECT_TRUE(gzip.write(sampleBytes(400000)) == 0 && gzip.eof());
    }
    zqogzstream(&thrower, false) << "text";
    EXPECT_EQ(err.text(),
              "zqogzstream clear error\n"
              "Caught ZQIOError during zqogzstream destruction: No space left on device\n"
              "Caught ZQIOError during zqowrapperstream destruction: No space left on device\n");
    EXPECT_EQ(deleted, 1);
}
