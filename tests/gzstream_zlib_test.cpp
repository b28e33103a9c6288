#include "support/streams.h"

constexpr size_t headerSize = 10, trailerSize = 8, chunkSize = 16384;

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

// A member whose extra field makes it 'size' bytes long.
static string memberOfSize(size_t size, const string& bytes)
{
    const size_t extra = size - memberOf(bytes).size() - 2;
    const string header = "\x1F\x8B\x08\x04......", length = {char(extra & 255), char(extra >> 8)};
    return withHeader(header + length + string(extra, 'e'), bytes);
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

TEST(GzipInput, IsAnInputStreamOverMembersAndPlainData)
{
    const string bytes = sampleBytes(150000);
    const string all =
        memberOf(bytes.substr(0, 70000)) + memberOf("") + memberOf(bytes.substr(70000));
    for (const string& data : {all, bytes}) checkInput([&] { return gzipOver(data); }, bytes, true);
    const std::vector chunks = {all.substr(0, 1), all.substr(1, 40000), all.substr(40001)};
    const auto pipe = [&] { return std::make_unique<zqigzstream>(new ChunkSource(chunks), true); };
    checkInput(pipe, bytes, false);
}

TEST(GzipInput, ReadsEveryHeaderAndEndsAtBadOnes)
{
    const string text = "some text", fixed("\x08\0\0\0\0\0\0\x03", 8), magic = "\x1F\x8B";
    const string plain(chunkSize, 'p'), member = memberOf(text), rest = string(50000, 'r') + member;
    const string chunk = memberOfSize(chunkSize - 1, text);  // its chunk has room for one byte
    const auto flagged = [&](char flags) { return magic + "\x08" + flags + string(6, 'x'); };
    const std::tuple<const char*, string, string> rows[] = {
        {"no data", "", ""},
        {"one lone byte of the magic", "\x1F", ""},
        {"plain data that begins like it", "\x1Fplain", "\x1Fplain"},
        {"text, a flag without a meaning", withHeader(flagged(1), text), text},
        {"extra field", withHeader(flagged(4) + string("\3\0abc", 5), text), text},
        {"name", withHeader(flagged(8) + string("name\0", 5), text), text},
        {"comment and header checksum", withHeader(flagged(18) + string("c\0zz", 4), text), text},
        {"all of them", withHeader(flagged(30) + string("\1\0en\0c\0zz", 9), text), text},
        {"unknown method", withHeader(magic + "\x07" + fixed.substr(1), text), ""},
        {"reserved flag", withHeader(flagged(32), text), ""},
        {"a bad header behind a member", member + withHeader(flagged(64), text), text},
        {"data behind a member", member + "rest", text + "rest"},
        {"data behind an empty member", memberOf("") + "rest", "rest"},
        {"one lone byte of the magic behind a member", member + "\x1F", text},
        {"a long rest that holds members, too", member + rest, text + rest},
        {"magic across two chunks, no header", chunk + "\x1Fz", text + "\x1Fz"},
        {"magic across two chunks", chunk + member, text + text},
        {"plain data that ends with it in a new chunk", plain + "\x1F", plain + "\x1F"},
        {"a member in a later chunk of plain data", plain + member, plain + text}};
    for (const auto& [about, data, expected] : rows)
        EXPECT_TRUE(decode(data) == std::pair(expected, string())) << about;
}

TEST(GzipInput, CutAnywhereItHandsOnWhatThereIs)
{
    const string first = sampleBytes(3000), second = "second member";
    const string one = memberOf(first), two = memberOf(second), all = one + two;
    for (size_t cut = 0; cut < all.size(); ++cut) {
        const size_t at = cut < one.size() ? cut : cut - one.size();
        const size_t dataEnd = (cut < one.size() ? one.size() : two.size()) - trailerSize;
        const auto [bytes, err] = decode(all.substr(0, cut));
        EXPECT_EQ(err, at >= headerSize && at < dataEnd ? "zqigzstream fill error\n" : "") << cut;
        EXPECT_EQ((first + second).compare(0, bytes.size(), bytes), 0) << cut;
        EXPECT_GE(bytes.size(), cut < one.size() - trailerSize ? 0 : first.size()) << cut;
    }
}

TEST(GzipInput, DamagedAnywhereItPrintsOneLineAtMost)
{
    const string text = sampleBytes(500), good = memberOf(text);
    for (size_t i = 0; i < good.size(); ++i) {
        string bad = good;
        bad[i] ^= 0x55;
        const auto [bytes, err] = decode(bad + good);
        if (i < good.size() - trailerSize) {
            EXPECT_TRUE(err.empty() || err.find('\n') == err.size() - 1) << i << err;
            EXPECT_EQ(err.substr(0, 22), err.empty() ? "" : "zqigzstream fill error") << i;
        } else {  // a wrong checksum ends the data, a wrong length not
            EXPECT_EQ(bytes + err, i < good.size() - 4 ? text : text + text) << i;
        }
    }
}

TEST(GzipInput, SizesAndGoesBackWithoutLosingBytes)
{
    const string bytes = sampleBytes(100000);
    auto gzip = gzipOver(memberOf(bytes));
    EXPECT_TRUE(gzip->skip(40000) && gzip->size() == bytes.size() && gzip->tell() == 40000);
    EXPECT_TRUE(rest(*gzip) == bytes.substr(40000) && gzip->size() == bytes.size());
    EXPECT_EQ(gzipOver(memberOf(""))->size(), 0u);

    // Plain data from a source that cannot go back: nothing is lost or repeated.
    ChunkSource pipe({bytes.substr(0, 10), bytes.substr(10, 50000), bytes.substr(50010)});
    zqigzstream plain(&pipe, false);
    string got, all;
    for (const zqsize_t step : {0, 1, 20000, 5, 16384, 33000, 100000}) {
        EXPECT_FALSE(plain.size() || plain.seek(-1) || (plain.tell() > 32768 && plain.seek(0)));
        plain.read(got, step);
        all += got;
        EXPECT_EQ(plain.tell(), long(all.size()));
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
    EXPECT_EQ(hex(memberOf("")), "1F 8B 08 00 00 00 00 00 00 03 03 00 00 00 00 00 00 00 00 00");
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
