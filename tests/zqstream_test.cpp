#include "support/process.h"
#include "support/streams.h"

#include <sys/stat.h>

using namespace ZQPlatform;
using std::string;

TEST(FileInput, IsAnInputStreamThatKnowsItsSize)
{
    TempDir dir;
    const string bytes = sampleBytes(200000);
    writeFile(dir / "f", bytes);
    const long before = openDescriptors();
    checkInput([&] { return std::make_unique<zqifstream>(dir / "f"); }, bytes, false);
    zqifstream in((dir / "f").c_str());
    string got(4, 0);
    for (const long pos : {150000L, 3L, 199999L}) {
        EXPECT_TRUE(in.seek(pos) && in.tell() == pos && in.size() == bytes.size() &&
                    in.tell() == pos);
        in.read(got, 10);
        EXPECT_EQ(got, bytes.substr(static_cast<std::size_t>(pos), 10));
        EXPECT_FALSE(in.seek(200000) || in.seek(-1));
    }
    EXPECT_EQ(in.pread(got.data(), 1, 100), 1);
    EXPECT_EQ(got[0], bytes[100]);
    EXPECT_TRUE(in.close());
    EXPECT_EQ(openDescriptors(), before);
}

TEST(FileInput, AnswersAtTheEndAndWithoutAFile)
{
    TempDir dir;
    writeFile(dir / "f", "abcdef");
    writeFile(dir / "empty", "");
    string got;
    zqifstream in(dir / "f");
    in.read(got);
    EXPECT_TRUE(in.tell() == 0 && in.size() == 6);  // the end resets the position,
    in.read(got);
    EXPECT_EQ(got, "abcdef");  // and asking for the size rewinds the file
    for (const char* name : {"missing", "."}) {
        in.open(dir / name);
        EXPECT_TRUE(in.read(got, 1) == 0 && in.eof() && in.size() == 0);
    }
    EXPECT_TRUE(in.open(dir / "empty") && !in.eof() && in.size() == 0);
    EXPECT_FALSE(in.open(static_cast<const char*>(nullptr)) || in.openfd(-1, true));
    EXPECT_EQ(in.pread(got.data(), 1, 0), -1);
    unsigned char block[] = "block";
    EXPECT_TRUE(in.open(block, 5) && in.read(got) == 5 && in.eof());
    EXPECT_TRUE(in.open(dir / "f") && in.skip(2) && in.seek(1) && in.tell() == 1);
    ASSERT_EQ(::truncate((dir / "f").c_str(), 1), 0);
    in.skip(4);
    EXPECT_EQ(in.size(), 1u);
    EXPECT_EQ(in.read(got), 0u);

    int fds[2];
    ASSERT_EQ(::pipe(fds), 0);
    EXPECT_TRUE(in.openfd(fds[0], true));
    ASSERT_EQ(::write(fds[1], "abcd", 4), 4);
    ::close(fds[1]);
    in.read(got, 1);
    EXPECT_TRUE(in.size() == 0 && !in.seek(7) && in.read(got) == 3);  // nothing is lost of a pipe
}

TEST(FileInput, NeverClosesStandardInput)
{
    const ChildResult child = runChild([] {
        zqifstream in;
        const bool kept = in.openfd(0, false) && !in.openfd(1, true) && !in.close() &&
                          !in.open("/dev/zero") && !in.seek(100000) && in.size() == 0;
        ::_exit(kept && ::fcntl(0, F_GETFD) != -1 ? 0 : 1);
    });
    EXPECT_EQ(child.status, 0);
}

TEST(FileOutput, WritesAppendsAndCountsPositions)
{
    TempDir dir;
    const string bytes = sampleBytes(200000);
    const long before = openDescriptors();
    {
        zqofstream out;
        out << "dropped by open";
        EXPECT_TRUE(!out.flush() && out.open(dir / "f"));
        EXPECT_EQ(out.write(bytes), bytes.size());
        EXPECT_TRUE(out.tell() == 200000 && out.size() == 0 && !out.seek(0));
        EXPECT_TRUE(out.append(dir / "f") && out.tell() == 0);
        out << "tail";
    }
    EXPECT_TRUE(readFile(dir / "f") == bytes + "tail");
    struct stat status;
    EXPECT_EQ(::stat((dir / "f").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0133, 0u);  // 0644, less what the mask takes

    zqofstream out(dir / "g");
    out << "flushed";
    EXPECT_TRUE(out.openfd(::dup(2), false));  // the descriptor before stays open
    EXPECT_EQ(readFile(dir / "g"), "flushed");
    out << "pending bytes are dropped";
    EXPECT_FALSE(out.openfd(-1, true) || out.write("x", 1) != 0);
    EXPECT_FALSE(out.append(static_cast<const char*>(nullptr)) || out.open(dir.path));
    EXPECT_EQ(openDescriptors(), before + 1);

    zqiofstream both(dir / "h");
    char at[4] = "";
    both << "0123456789" << zqflush;
    EXPECT_EQ(both.pread(at, 3, 4), 3);
    EXPECT_STREQ(at, "456");
}

TEST(FileOutput, FailsForGoodOnAShortWrite)
{
    zqofstream full("/dev/full"), closed(12345);
    EXPECT_EQ(full.write(sampleBytes(65537)), 0u);
    EXPECT_TRUE(full.tell() == 65536 && !full.flush());
    full << "kept" << zqendl;
    EXPECT_FALSE(full.flush());
    full.close();
    closed << 'x';
    EXPECT_FALSE(closed.flush() || full.write("x", 1) != 0);
    CaptureFd out(1);
    zqofstream(1) << "text";
    zqout << " goes on" << zqendl;
    EXPECT_EQ(out.text(), "text goes on\n");
}

TEST(Wrappers, OwnOrBorrowWhatTheyWrap)
{
    int deleted = 0;
    using Source = DeleteProbe<ChunkSource>;
    using Sink = DeleteProbe<FailingSink>;
    const std::vector<string> text = {"abc"};
    Source borrowed(deleted, text);
    auto in = std::make_unique<zqiwrapperstream>();
    EXPECT_TRUE(in->set(&borrowed, false) && in->set(&borrowed, true));  // the first flag stays
    EXPECT_TRUE(in->set(new Source(deleted, text), true) && !in->set(nullptr, false));
    EXPECT_EQ(deleted, 1);
    EXPECT_TRUE(in->set(new Source(deleted, text), true) && in->close());
    in->set(new Source(deleted, text), true);
    in.reset();
    EXPECT_EQ(deleted, 3);

    zqowrapperstream out;
    Sink sink(deleted, 100);
    EXPECT_TRUE(out.set(&sink, false));
    out << "lost";
    out.clear();
    EXPECT_TRUE(out.set(&sink, false));
    out << "kept" << zqendl;
    EXPECT_EQ(sink.taken, "kept\n");
    EXPECT_TRUE(out.tell() == 5 && !out.seek(70000) && !out.seek(0));
    out << "more";
    out.close();
    EXPECT_EQ(sink.taken, "kept\nmore");
    EXPECT_TRUE(out.set(new Sink(deleted, 0), true));
    EXPECT_EQ(out.write(string(70000, 'x')), 0u);
    EXPECT_FALSE(out.set(nullptr, true));
    EXPECT_EQ(deleted, 4);
}

TEST(Wrappers, ReadSeekAndSizeThroughTheSource)
{
    const string bytes = sampleBytes(150000);
    zqisstream source;
    const auto make = [&] {
        source.set(bytes);
        auto in = std::make_unique<zqiwrapperstream>();
        EXPECT_TRUE(in->set(&source, false) && in->size() == bytes.size());
        return in;
    };
    checkInput(make, bytes, true);
    zqiwrapperstream detached;
    unsigned char block[] = "block";
    string got;
    EXPECT_TRUE(detached.open(block, 5) && detached.read(got) == 5 && detached.eof());
    source.clear();
    EXPECT_FALSE(detached.set(nullptr, false) || detached.seek(9) || detached.set(&source, false));
}

TEST(FanOut, WritesToAllAndReportsOne)
{
    int deleted = 0;
    FailingSink good(100000), bad(2);
    auto owned = new DeleteProbe<FailingSink>(deleted, 100000);
    zqmultiostream out, closed;
    for (zqostream* each : {static_cast<zqostream*>(&bad),
                            {},
                            static_cast<zqostream*>(owned),
                            static_cast<zqostream*>(&good),
                            static_cast<zqostream*>(owned)})
        out.addstream(each, each == owned);
    EXPECT_TRUE(out.write("abc", 3) == 3 && !out.flush() && out.tell() == 3);
    EXPECT_EQ(good.taken + bad.taken + owned->taken, "abcababcabc");
    out.clear();
    EXPECT_TRUE(deleted == 1 && out.flush());
    unsigned char block[2];
    EXPECT_TRUE(out.open(block, 2) && out.write("abc", 3) == 0 && out.eof());
    closed.addstream(&good, false);
    closed.close();
    closed << 'x' << zqendl;
    EXPECT_EQ(closed.write("x", 1), 0u);
    EXPECT_EQ(good.taken, "abc");
}

TEST(Destructors, ReportTheErrorOfAHook)
{
    struct Thrower : zqostream {
        bool _zqflush() override
        {
            errno = ENOSPC;
            throw ZQIOError();
        }
    };
    CaptureErr err;
    zqowrapperstream().set(new Thrower, true);
    EXPECT_EQ(err.text(),
              "Caught ZQIOError during zqowrapperstream destruction: No space left on device\n");
}
