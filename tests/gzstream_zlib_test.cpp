#include "support/process.h"
#include "support/streams.h"

using namespace ZQPlatform;
using std::string;

namespace {

constexpr std::size_t headerSize = 10;
constexpr std::size_t trailerSize = 8;
constexpr std::size_t chunkSize = 16384;

string memberOf(const string& bytes)
{
    zqosstream out;
    zqogzstream gzip(&out, false);
    EXPECT_EQ(gzip.write(bytes), bytes.size());
    gzip.close();
    return out.str();
}

// The same member behind another header.
string withHeader(const string& header, const string& bytes)
{
    return header + memberOf(bytes).substr(headerSize);
}

// A member whose extra field makes it 'size' bytes long.
string memberOfSize(std::size_t size, const string& bytes)
{
    const std::size_t extra = size - memberOf(bytes).size() - 2;
    string header("\x1F\x8B\x08\x04\0\0\0\0\0\x03", headerSize);
    header += {static_cast<char>(extra & 255), static_cast<char>(extra >> 8)};
    return withHeader(header + string(extra, 'e'), bytes);
}

struct Decoded {
    string bytes, err;
};

// A gzip stream that owns a string stream over 'data'.
std::unique_ptr<zqigzstream> gzipOver(const string& data)
{
    auto source = new zqisstream;
    source->set(data);
    return std::make_unique<zqigzstream>(source, true);
}

// Reads twice to the end: the second time nothing more may come, and nothing be printed.
Decoded decode(const string& data)
{
    CaptureErr err;
    string bytes, more;
    auto gzip = gzipOver(data);
    gzip->read(bytes);
    EXPECT_TRUE(gzip->read(more) == 0 && gzip->eof());
    return {bytes, err.text()};
}

}  // namespace

TEST(GzipInput, IsAnInputStreamOverMembersAndPlainData)
{
    const string bytes = sampleBytes(150000);
    const string joined =
        memberOf(bytes.substr(0, 70000)) + memberOf("") + memberOf(bytes.substr(70000));
    checkInput([&] { return gzipOver(joined); }, bytes, true);
    checkInput([&] { return gzipOver(bytes); }, bytes, true);
    const std::vector<string> chunks = {joined.substr(0, 1), joined.substr(1, 40000),
                                        joined.substr(40001)};
    const auto pipe = [&] { return std::make_unique<zqigzstream>(new ChunkSource(chunks), true); };
    checkInput(pipe, bytes, false);
}

TEST(GzipInput, ReadsEveryHeaderAndEndsAtBadOnes)
{
    const string text = "some text", fixed("\x08\0\0\0\0\0\0\x03", 8), magic = "\x1F\x8B";
    const string plain(chunkSize, 'p'), member = memberOf(text), rest = string(50000, 'r') + member;
    const string chunk = memberOfSize(chunkSize - 1, text);  // its chunk has room for one byte
    const auto flagged = [&](char flags) { return magic + "\x08" + flags + string(6, 'x'); };
    const struct {
        const char* about;
        string data, got;
    } rows[] = {
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
        {"one lone byte of the magic behind a member", member + "\x1F", text},
        {"a long rest that holds members, too", member + rest, text + rest},
        {"magic across two chunks, no header", chunk + "\x1Fz", text + "\x1Fz"},
        {"magic across two chunks", chunk + member, text + text},
        {"plain data that ends with it in a new chunk", plain + "\x1F", plain + "\x1F"},
        {"a member in a later chunk of plain data", plain + member, plain + text},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.about);
        const Decoded got = decode(row.data);
        EXPECT_TRUE(got.bytes == row.got && got.err.empty()) << got.bytes.size() << got.err;
    }
}

TEST(GzipInput, CutAnywhereItHandsOnWhatThereIs)
{
    const string first = sampleBytes(3000), second = "second member";
    const string one = memberOf(first), two = memberOf(second), all = one + two;
    for (std::size_t cut = 0; cut < all.size(); ++cut) {
        SCOPED_TRACE("cut at " + std::to_string(cut));
        const std::size_t at = cut < one.size() ? cut : cut - one.size();
        const std::size_t dataEnd = (cut < one.size() ? one.size() : two.size()) - trailerSize;
        const Decoded got = decode(all.substr(0, cut));
        EXPECT_EQ(got.err, at >= headerSize && at < dataEnd ? "zqigzstream fill error\n" : "");
        EXPECT_EQ((first + second).compare(0, got.bytes.size(), got.bytes), 0);
        EXPECT_GE(got.bytes.size(), cut < one.size() - trailerSize ? 0 : first.size());
    }
}

TEST(GzipInput, DamagedAnywhereItPrintsOneLineAtMost)
{
    const string text = sampleBytes(500), good = memberOf(text);
    for (std::size_t i = 0; i < good.size(); ++i) {
        SCOPED_TRACE("byte " + std::to_string(i));
        string bad = good;
        bad[i] = static_cast<char>(bad[i] ^ 0x55);
        const Decoded got = decode(bad + good);
        if (i >= good.size() - trailerSize) {  // a wrong checksum ends the data, a wrong length not
            EXPECT_EQ(got.bytes + got.err, i < good.size() - 4 ? text : text + text);
        } else if (!got.err.empty()) {
            EXPECT_EQ(got.err.rfind("zqigzstream fill error", 0), 0u);
            EXPECT_EQ(got.err.find('\n'), got.err.size() - 1);
        }
    }
}

TEST(GzipInput, SizesAndGoesBackWithoutLosingBytes)
{
    const string bytes = sampleBytes(100000);
    auto gzip = gzipOver(memberOf(bytes));
    string got;
    gzip->read(got, 40000);
    EXPECT_EQ(gzip->size(), bytes.size());
    EXPECT_EQ(gzip->tell(), 40000);
    gzip->read(got);
    EXPECT_TRUE(got == bytes.substr(40000));
    EXPECT_EQ(gzip->size(), bytes.size());
    EXPECT_EQ(gzipOver(memberOf(""))->size(), 0u);

    // Plain data from a source that cannot go back: nothing is lost or repeated.
    ChunkSource pipe({bytes.substr(0, 10), bytes.substr(10, 50000), bytes.substr(50010)});
    zqigzstream plain(&pipe, false);
    string all;
    for (const zqsize_t step : {0, 1, 20000, 5, 16384, 33000, 100000}) {
        EXPECT_EQ(plain.size(), 0u);
        EXPECT_FALSE(plain.seek(-1));
        if (plain.tell() > 32768) { EXPECT_FALSE(plain.seek(0)); }
        plain.read(got, step);
        all += got;
        EXPECT_EQ(plain.tell(), static_cast<long>(all.size()));
    }
    EXPECT_TRUE(all == bytes);
}

TEST(GzipInput, BeginsAnewWithEverySource)
{
    const string badHeader("\x1F\x8B\x07", 3);
    zqisstream bad, good, empty;
    bad.set(badHeader);
    good.set(memberOf("good"));
    zqigzstream gzip;
    string got;
    EXPECT_EQ(gzip.read(got), 0u);
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
    const string empty = memberOf("");
    for (int i = 0; i < 20000; ++i) data += empty;
    data += memberOf("end");
    struct Reader : ZQThread {
        void* Run(void* arg) override
        {
            auto text = static_cast<string*>(arg);
            gzipOver(*text)->read(*text);
            return arg;
        }
    } thread;
    thread.SetStackSize(128 * 1024);
    ASSERT_TRUE(thread.Start(&data));
    thread.Join();
    EXPECT_EQ(data, "end");
}

TEST(GzipOutput, WritesOneMemberWhenItIsFinished)
{
    EXPECT_EQ(hex(memberOf("")), "1F 8B 08 00 00 00 00 00 00 03 03 00 00 00 00 00 00 00 00 00");
    const string abc = memberOf("abc");
    EXPECT_EQ(hex(abc.substr(0, 10)), "1F 8B 08 00 00 00 00 00 00 03");
    EXPECT_EQ(hex(abc.substr(abc.size() - 8)), "C2 41 24 35 03 00 00 00");

    zqosstream out;
    auto gzip = std::make_unique<zqogzstream>(&out, false);
    *gzip << "some" << zqendl;
    EXPECT_TRUE(gzip->flush());
    EXPECT_EQ(out.str(), "");
    EXPECT_EQ(gzip->size(), 5u);
    EXPECT_FALSE(gzip->seek(70000));
    gzip.reset();
    EXPECT_EQ(decode(out.str()).bytes, "some\n");

    int deleted = 0;
    auto owned = new DeleteProbe<FailingSink>(deleted, 1000000);
    zqogzstream again;
    EXPECT_TRUE(again.set(owned, true));
    const string bytes = sampleBytes(300000);
    for (std::size_t at = 0; at < bytes.size(); at += 1000)
        EXPECT_EQ(again.write(bytes.substr(at, 1000)), 1000u);
    EXPECT_EQ(again.size(), bytes.size());
    again.clear();
    EXPECT_EQ(deleted, 1);
    EXPECT_EQ(again.set(&out, false) ? again.write(bytes) : 0, 0u);  // one member in its life
    EXPECT_TRUE(decode(memberOf(bytes)).bytes == bytes);
}

TEST(GzipOutput, ReportsWhatTheDestinationRefuses)
{
    const string bytes = sampleBytes(400000);
    int deleted = 0;
    CaptureErr err;
    {
        zqogzstream gzip(new DeleteProbe<FailingSink>(deleted, 65536), true);
        EXPECT_EQ(gzip.write(bytes), 0u);
        EXPECT_TRUE(gzip.eof());
    }
    EXPECT_EQ(err.text(), "zqogzstream clear error\n");
    EXPECT_EQ(deleted, 1);

    struct Thrower : zqostream {
        bool _zqflush() override { throw ZQIOError("no space"); }
    };
    CaptureErr thrown;
    {
        Thrower sink;
        sink.write(string(65530, 'x'));
        zqogzstream gzip(&sink, false);
        gzip << "text";
    }
    EXPECT_EQ(thrown.text(), "Caught ZQIOError during zqogzstream destruction: no space\n"
                             "Caught ZQIOError during zqowrapperstream destruction: no space\n");
}
