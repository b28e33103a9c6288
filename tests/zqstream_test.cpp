#include "support/streams.h"

#include <sys/stat.h>

TEST(FileInput, AnswersAtTheEndAndWithoutAFile)
{
    TempDir dir;
    writeFile(dir / "f", "abcdef");
    writeFile(dir / "empty", "");
    string got;
    zqifstream in(dir / "f");
    // The end resets the position, and asking for the size rewinds the file.
    EXPECT_TRUE(rest(in) == "abcdef" && in.tell() == 0 && in.size() == 6 && rest(in) == "abcdef");
    for (const char* name : {"missing", "."}) {
        in.open(dir / name);
        EXPECT_TRUE(rest(in) == "" && in.eof() && in.size() == 0);
    }
    EXPECT_TRUE(in.open(dir / "empty") && !in.eof() && in.size() == 0);
    EXPECT_FALSE(in.open(static_cast<const char*>(nullptr)) || in.openfd(-1, true));
    EXPECT_EQ(in.pread(got.data(), 1, 0), -1);
    unsigned char block[] = "block";
    EXPECT_TRUE(in.open(block, 5) && rest(in) == "block" && in.eof());
    EXPECT_TRUE(in.open(dir / "f") && in.skip(2) && in.seek(1) && in.tell() == 1);
    std::filesystem::resize_file(dir / "f", 1);
    EXPECT_TRUE(in.skip(4) && in.size() == 1 && in.read(got) == 0);

    int fds[2];
    ASSERT_TRUE(::pipe(fds) == 0 && ::write(fds[1], "abcd", 4) == 4 && ::close(fds[1]) == 0);
    EXPECT_TRUE(in.openfd(fds[0], true) && in.read(got, 1) == 1);
    EXPECT_TRUE(in.size() == 0 && !in.seek(7) && in.read(got) == 3);  // nothing is lost of a pipe

    // Standard input is never closed.
    EXPECT_FALSE(!in.openfd(0, false) || in.openfd(1, true) || in.close() || in.open("/dev/zero") ||
                 in.seek(1L << 62) || in.size() || ::fcntl(0, F_GETFD) == -1);
}

TEST(FileOutput, WritesAppendsAndCountsPositions)
{
    TempDir dir;
    const string bytes = sampleBytes(200000), name = dir / "f";
    const long before = openDescriptors();
    {
        zqofstream out;
        out << "dropped by open";
        EXPECT_TRUE(!out.flush() && out.open(name) && out.write(bytes) == bytes.size());
        EXPECT_TRUE(out.tell() == 200000 && out.size() == 0 && !out.seek(0));
        EXPECT_TRUE(out.append(name) && out.tell() == 0);
        out << "tail";
    }
    EXPECT_TRUE(readFile(name) == bytes + "tail");
    struct stat status;  // 0644, less what the mask takes
    EXPECT_TRUE(::stat(name.c_str(), &status) == 0 && (status.st_mode & 0133) == 0);

    zqofstream out(dir / "g");
    out << "flushed";
    EXPECT_TRUE(out.openfd(::dup(2), false) && readFile(dir / "g") == "flushed");
    out << "pending bytes are dropped";  // and the descriptor of "g" stays open
    EXPECT_FALSE(out.openfd(-1, true) || out.write("x", 1) != 0 || out.open(dir.path) ||
                 out.append(static_cast<const char*>(nullptr)));
    EXPECT_EQ(openDescriptors(), before + 1);
}

TEST(FileOutput, FailsWithoutADescriptorAndWritesToStandardOutput)
{
    zqofstream closed(12345);
    closed << 'x';
    EXPECT_FALSE(closed.flush());
    CaptureOut out;
    zqofstream(1) << "text";
    zqout << " goes on" << zqendl;
    EXPECT_EQ(out.text(), "text goes on\n");
}

TEST(Wrappers, OwnOrBorrowWhatTheyWrap)
{
    int deleted = 0;
    using Source = DeleteProbe<ChunkSource>;
    const std::vector<string> text = {"abc"};
    Source borrowed(deleted, text);
    auto in = std::make_unique<zqiwrapperstream>();
    EXPECT_TRUE(in->set(&borrowed, false) && in->set(&borrowed, true));  // the first flag stays
    EXPECT_TRUE(in->set(new Source(deleted, text), true) && !in->set(nullptr, false));
    EXPECT_TRUE(deleted == 1 && in->set(new Source(deleted, text), true) && in->close());
    EXPECT_TRUE(in->set(new Source(deleted, text), true) && (in = nullptr, deleted == 3));

    zqowrapperstream out;
    FailingSink sink(100);
    EXPECT_TRUE(out.set(&sink, false) && out.write("lost"));
    out.clear();
    EXPECT_TRUE(out.set(&sink, false));
    out << "kept" << zqendl;
    EXPECT_TRUE(sink.taken == "kept\n" && out.tell() == 5 && !out.seek(70000) && !out.seek(0));
    out << "more";
    out.close();
    EXPECT_EQ(sink.taken, "kept\nmore");
    EXPECT_TRUE(out.set(new DeleteProbe<FailingSink>(deleted, 0), true) &&
                out.write(string(70000, 'x')) == 0 && !out.set(nullptr, true) && deleted == 4);
}

TEST(Wrappers, EndWithoutASource)
{
    zqisstream source;
    zqiwrapperstream detached;
    unsigned char block[] = "block";
    EXPECT_TRUE(detached.open(block, 5) && rest(detached) == "block" && detached.eof());
    source.clear();
    EXPECT_FALSE(detached.set(nullptr, false) || detached.seek(9) || detached.set(&source, false));
}

TEST(FanOut, WritesToAllAndReportsOne)
{
    int deleted = 0;
    FailingSink good(100000), bad(2);
    auto owned = new DeleteProbe<FailingSink>(deleted, 100000);
    zqmultiostream out, closed;
    for (FailingSink* each : std::initializer_list<FailingSink*>{&bad, {}, owned, &good, owned})
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
    EXPECT_TRUE(closed.write("x", 1) == 0 && good.taken == "abc");
}
