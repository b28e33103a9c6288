#include "support/streams.h"

static string memberOf(const string& bytes)
{
    zqosstream out;
    EXPECT_EQ(zqogzstream(&out, false).write(bytes), bytes.size());
    return out.str();
}

// A gzip stream that owns a string stream over 'data'.
static std::unique_ptr<zqigzstream> gzipOver(const string& data)
{
    auto source = new zqisstream;
    source->set(data);
    return std::make_unique<zqigzstream>(source, true);
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
    zqosstream out;
    auto gzip = std::make_unique<zqogzstream>(&out, false);
    *gzip << "some" << zqendl;
    EXPECT_TRUE(gzip->flush() && gzip->size() == 5 && !gzip->seek(70000) && out.str().empty());
    gzip.reset();
    EXPECT_EQ(rest(*gzipOver(out.str())), "some\n");

    int deleted = 0;
    zqogzstream again;
    EXPECT_TRUE(again.set(new DeleteProbe<FailingSink>(deleted, 1000000), true));
    const string bytes = sampleBytes(300000);
    for (size_t at = 0; at < bytes.size(); at += 1000) again.write(bytes.substr(at, 1000));
    EXPECT_EQ(again.size(), bytes.size());
    again.clear();
    EXPECT_EQ(deleted, 1);
    EXPECT_EQ(again.set(&out, false) ? again.write(bytes) : 0, 0u);  // one member in its life
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
