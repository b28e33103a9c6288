#include "support/process.h"
#include "support/streams.h"

#include <csignal>
#include <sys/stat.h>

using namespace ZQPlatform;
using std::string;

TEST(FileInput, IsAnInputStream)
{
    TempDir dir;
    const string bytes = sampleBytes(200000);
    writeFile(dir / "f", bytes);
    const int before = openDescriptors();
    checkInput([&] { return std::make_unique<zqifstream>(dir / "f"); }, bytes, false);
    for (const long pos : {150000L, 3L, 199999L}) {
        zqifstream in((dir / "f").c_str());
        string got;
        EXPECT_TRUE(in.seek(pos));
        EXPECT_EQ(in.tell(), pos);
        EXPECT_EQ(in.size(), bytes.size());
        EXPECT_EQ(in.tell(), pos);
        in.read(got, 10);
        EXPECT_EQ(got, bytes.substr(static_cast<std::size_t>(pos), 10));
        char at[4];
        EXPECT_EQ(in.pread(at, 4, 100), 4);
        EXPECT_EQ(string(at, 4), bytes.substr(100, 4));
        EXPECT_FALSE(in.seek(200000) || in.seek(-1));
    }
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
    EXPECT_EQ(in.tell(), 0);  // the end of the data resets the position
    EXPECT_EQ(in.size(), 6u);
    in.read(got);
    EXPECT_EQ(got, "abcdef");  // asking for the size has rewound the file
    for (const char* name : {"missing", "."}) {
        in.open(dir / name);
        EXPECT_EQ(in.read(got, 1), 0u);
        EXPECT_TRUE(in.eof());
        EXPECT_EQ(in.size(), 0u);
    }
    EXPECT_TRUE(in.open(dir / "empty") && !in.eof());
    EXPECT_EQ(in.size(), 0u);
    EXPECT_FALSE(in.open(static_cast<const char*>(nullptr)) || in.openfd(-1, true));
    EXPECT_EQ(in.pread(got.data(), 1, 0), -1);
    unsigned char block[] = "block";
    EXPECT_TRUE(in.open(block, 5));
    EXPECT_EQ(in.read(got), 5u);
    EXPECT_TRUE(in.eof());
    EXPECT_TRUE(in.open(dir / "f") && in.skip(2) && in.seek(1));
    EXPECT_EQ(in.tell(), 1);

    writeFile(dir / "shrinks", string(100, 'x'));
    EXPECT_TRUE(in.open(dir / "shrinks") && in.skip(80));
    ASSERT_EQ(::truncate((dir / "shrinks").c_str(), 50), 0);
    EXPECT_EQ(in.size(), 50u);
    EXPECT_EQ(in.read(got), 0u);
}

TEST(FileInput, LosesNothingOfAPipe)
{
    int fds[2];
    ASSERT_EQ(::pipe(fds), 0);
    zqifstream in;
    EXPECT_TRUE(in.openfd(fds[0], true));
    string got;
    ASSERT_EQ(::write(fds[1], "ab", 2), 2);
    in.read(got, 1);
    EXPECT_EQ(in.size(), 0u);
    EXPECT_FALSE(in.seek(7));
    ASSERT_EQ(::write(fds[1], "cd", 2), 2);
    ::close(fds[1]);
    in.read(got);
    EXPECT_EQ(got, "bcd");
}

TEST(FileInput, NeverClosesStandardInput)
{
    const ChildResult child = runChild([] {
        zqifstream in, other;
        other.openfd(0, false);
        const bool refused = !in.openfd(0, true) == false && !in.close() &&
                             !in.open("/etc/passwd") && !in.seek(100000) && in.size() == 0 &&
                             !in.openfd(1, true);
        ::_exit(refused && ::fcntl(0, F_GETFD) != -1 ? 0 : 1);
    });
    EXPECT_EQ(child.status, 0);
}

TEST(FileOutput, WritesAppendsAndCountsPositions)
{
    TempDir dir;
    const string bytes = sampleBytes(200000);
    const int before = openDescriptors();
    {
        zqofstream out;
        out << "dropped by open";
        EXPECT_FALSE(out.flush());
        EXPECT_TRUE(out.open(dir / "f"));
        EXPECT_EQ(out.write(bytes), bytes.size());
        EXPECT_EQ(out.tell(), 200000);
        EXPECT_EQ(out.size(), 0u);
        EXPECT_FALSE(out.seek(0));
        EXPECT_TRUE(out.append(dir / "f"));
        EXPECT_EQ(out.tell(), 0);
        out << "tail";
    }
    EXPECT_TRUE(readFile(dir / "f") == bytes + "tail");
    struct stat status;
    EXPECT_EQ(::stat((dir / "f").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0133, 0u);  // 0644, less what the mask takes

    zqofstream out(dir / "g");
    const int kept = ::dup(2);
    out << "flushed";
    EXPECT_TRUE(out.openfd(::dup(kept), false));  // flushes and forgets, so that one leaks
    EXPECT_EQ(readFile(dir / "g"), "flushed");
    out << "pending bytes are dropped";
    EXPECT_FALSE(out.openfd(-1, true) || out.write("x", 1) != 0);
    EXPECT_FALSE(out.append(static_cast<const char*>(nullptr)) || out.open(dir.path));
    ::close(kept);
    EXPECT_EQ(openDescriptors(), before + 1);
    EXPECT_EQ(::close(kept - 1), 0);

    zqiofstream both(dir / "h");
    both << "0123456789";
    both.flush();
    char at[3];
    EXPECT_EQ(both.pread(at, 3, 4), 3);
    EXPECT_EQ(string(at, 3), "456");
}

TEST(FileOutput, FailsForGoodOnAShortWrite)
{
    zqofstream full("/dev/full");
    EXPECT_EQ(full.write(sampleBytes(65537)), 0u);
    EXPECT_EQ(full.tell(), 65536);
    EXPECT_FALSE(full.flush());
    full << "kept" << zqendl;
    EXPECT_FALSE(full.flush());
    full.close();
    EXPECT_EQ(full.write("x", 1), 0u);
    zqofstream closed(12345);
    closed << 'x';
    EXPECT_FALSE(closed.flush());

    CaptureFd out(1);
    {
        zqofstream standard(1);
        standard << "text";
    }
    zqout << " goes on" << zqendl;
    EXPECT_EQ(out.text(), "text goes on\n");
}

TEST(Wrappers, OwnOrBorrowWhatTheyWrap)
{
    int deleted = 0;
    using Source = DeleteProbe<ChunkSource>;
    using Sink = DeleteProbe<FailingSink>;
    const std::vector<string> text = {"abc", "def"};
    {
        Source borrowed(deleted, text);
        zqiwrapperstream in;
        EXPECT_TRUE(in.set(&borrowed, false) && in.set(&borrowed, true));  // the first flag stays
        EXPECT_TRUE(in.set(new Source(deleted, text), true));
        in.set(nullptr, false);
        EXPECT_EQ(deleted, 1);
        in.set(new Source(deleted, text), true);
        EXPECT_TRUE(in.close());
        EXPECT_EQ(deleted, 2);
        in.set(new Source(deleted, text), true);
    }
    EXPECT_EQ(deleted, 4);  // the borrowed one died in its own scope

    zqowrapperstream out;
    Sink sink(deleted, 100);
    EXPECT_TRUE(out.set(&sink, false));
    out << "lost";
    out.clear();
    EXPECT_EQ(sink.taken, "");
    EXPECT_TRUE(out.set(&sink, false));
    out << "kept" << zqendl;
    EXPECT_EQ(sink.taken, "kept\n");
    EXPECT_EQ(out.tell(), 5);
    EXPECT_FALSE(out.seek(70000));
    out << "more";
    out.close();
    EXPECT_EQ(sink.taken, "kept\nmore");
    EXPECT_TRUE(out.set(new Sink(deleted, 0), true));
    EXPECT_EQ(out.write(string(70000, 'x')), 0u);
    EXPECT_FALSE(out.set(nullptr, true));
    EXPECT_EQ(deleted, 5);
}

TEST(Wrappers, ReadSeekAndSizeThroughTheSource)
{
    const string bytes = sampleBytes(150000);
    zqisstream source;
    const auto make = [&] {
        source.set(bytes);
        auto in = std::make_unique<zqiwrapperstream>();
        EXPECT_TRUE(in->set(&source, false));
        EXPECT_EQ(in->size(), bytes.size());
        return in;
    };
    checkInput(make, bytes, true);
    zqiwrapperstream detached;
    unsigned char block[] = "block";
    EXPECT_TRUE(detached.open(block, 5));
    string got;
    EXPECT_EQ(detached.read(got), 5u);
    EXPECT_TRUE(detached.eof());
    EXPECT_FALSE(detached.set(nullptr, false) || detached.seek(9));
    source.clear();
    EXPECT_FALSE(detached.set(&source, false));  // exhausted
}

TEST(FanOut, WritesToAllAndReportsOne)
{
    int deleted = 0;
    FailingSink good(100000), bad(2);
    zqmultiostream out;
    auto owned = new DeleteProbe<FailingSink>(deleted, 100000);
    out.addstream(&bad, false);
    out.addstream(nullptr, true);
    out.addstream(owned, true);
    out.addstream(&good, false);
    out.addstream(owned, true);
    EXPECT_EQ(out.write("abc", 3), 3u);
    EXPECT_FALSE(out.flush());
    EXPECT_EQ(good.taken + bad.taken + owned->taken, "abcababcabc");
    EXPECT_EQ(out.tell(), 3);
    out.clear();
    EXPECT_EQ(deleted, 1);
    EXPECT_TRUE(out.flush());
    unsigned char block[2];
    EXPECT_TRUE(out.open(block, 2));
    EXPECT_EQ(out.write("abc", 3), 0u);
    EXPECT_TRUE(out.eof());
    zqmultiostream closed;
    closed.addstream(&good, false);
    closed.close();
    EXPECT_EQ(closed.write("x", 1), 0u);
    closed << 'x' << zqendl;
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
    {
        auto sink = new Thrower;
        zqowrapperstream out;
        out.set(sink, true);
    }
    EXPECT_EQ(err.text(),
              "Caught ZQIOError during zqowrapperstream destruction: No space left on device\n");
}
