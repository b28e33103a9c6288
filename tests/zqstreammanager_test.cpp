#include "support/process.h"
#include "support/streams.h"

#include <sys/stat.h>
#include <thread>

using namespace ZQPlatform;
using std::string;

namespace {

string gzipped(const string& bytes)
{
    zqosstream out;
    zqogzstream(&out, false).write(bytes);
    return out.str();
}

// What reading the name gives, or "(null)"; 'kind' becomes the type of stream that it opened.
string contents(const string& name, string* kind = nullptr)
{
    zqistream* in = ZQOpenIStream(name);
    if (!in) return "(null)";
    if (kind) *kind = dynamic_cast<zqigzstream*>(in) ? "gzip" : "file";
    string bytes;
    in->read(bytes);
    ZQCloseIStream(in);
    return bytes;
}

void writeName(const string& name, const string& bytes)
{
    zqostream* out = ZQOpenOStream(name);
    ASSERT_NE(out, nullptr) << name;
    EXPECT_EQ(out->write(bytes), bytes.size());
    ZQCloseOStream(out);
}

int closed = 0;
string openedName;

zqistream* openText(const char* name)
{
    openedName = name;
    auto in = new zqisstream;
    in->set(string(name).substr(string(name).find(':') + 1));
    return in;
}

template <class Stream> void countAndDelete(Stream* stream)
{
    ++closed;
    delete stream;
}

}  // namespace

TEST(Manager, FindsWhatANameHolds)
{
    TempDir dir;
    const string text = sampleBytes(100000);
    const string oddText = "\x1F\x8C not gzip";
    const struct {
        const char* stored;
        string bytes;
        const char* opened;
        string got;
        string kind;
    } rows[] = {
        {"plain", text, "plain", text, "file"},
        {"packed.gz", gzipped(text), "packed", text, "gzip"},
        {"any.name", gzipped(text), "any.name", text, "gzip"},
        {"text.gz", "plain text", "text.gz", "plain text", "file"},
        {"empty", "", "empty", "", "file"},
        {"one", "\x1F", "one", "\x1F", "file"},
        {"odd", oddText, "odd", oddText, "file"},
        {"short", "\x1F\x8B", "short", "", "gzip"},
        {":colon", "x", ":colon", "x", "file"},
    };
    const auto old = std::filesystem::current_path();
    std::filesystem::current_path(dir.path);
    const int before = openDescriptors();
    for (const auto& row : rows) {
        SCOPED_TRACE(row.opened);
        writeFile(dir / row.stored, row.bytes);
        string kind;
        EXPECT_TRUE(contents(row.opened, &kind) == row.got);
        EXPECT_EQ(kind, row.kind);
    }
    EXPECT_EQ(contents("missing"), "(null)");
    EXPECT_EQ(ZQOpenOStream("no/such/directory"), nullptr);
    std::filesystem::create_directory("a.gz.dir");
    for (const char* name : {"out.gz", "out.gzz", "x.gz.txt", "a.gz.dir/f", "plain.out"}) {
        writeName(name, text);
        const bool packed = string(name) != "plain.out";
        EXPECT_EQ(readFile(name).substr(0, 2) == "\x1F\x8B", packed) << name;
        EXPECT_TRUE(contents(name) == text) << name;
    }
    EXPECT_EQ(openDescriptors(), before);
    std::filesystem::current_path(old);
}

TEST(Manager, ServesRegisteredPrefixes)
{
    using Input = zqistream;
    ZQRegisterIStream(
        "mem", [](const char*) { return (Input*)nullptr; }, countAndDelete);
    EXPECT_EQ(contents("mem:x"), "(null)");
    EXPECT_TRUE(ZQRegisterIStream("mem", openText, countAndDelete));
    EXPECT_EQ(contents("mem:abc:d") + openedName + contents("mem"), "abc:dmem:abc:dmem");
    EXPECT_EQ(closed, 2);
    EXPECT_EQ(contents("mem:"), "(null)");  // opens empty: nothing there, and no "mem:.gz"
    EXPECT_TRUE(ZQRegisterIStream(nullptr, openText, countAndDelete));
    EXPECT_EQ(contents(":mem"), "(null)");  // the empty prefix is never looked up
    EXPECT_EQ(contents("mem:\x1F\x8B\x08"), "");
    EXPECT_EQ(closed, 2);  // the gzip stream has deleted what it owns

    const auto openOutput = [](const char*) -> zqostream* { return new zqosstream; };
    ZQRegisterOStream("drop", openOutput, countAndDelete);
    writeName("drop:x", "text");
    EXPECT_EQ(closed, 3);
    writeName("drop:x.gz", "text");
    EXPECT_EQ(closed, 3);
    ZQCloseIStream(nullptr);
    ZQCloseOStream(nullptr);
}

TEST(Manager, LosesNoByteOfAPipe)
{
    const string text = "text behind the magic";
    const struct {
        std::vector<string> writes;
        string got;
    } rows[] = {
        {{"\x1F"}, "\x1F"},
        {{"\x1F", "x", "yz"}, "\x1Fxyz"},
        {{"\x1F", gzipped(text).substr(1)}, text},
        {{gzipped(text)}, text},
        {{"a", "b"}, "ab"},
    };
    TempDir dir;
    for (const auto& row : rows) {
        const string name = dir / "fifo";
        ASSERT_EQ(::mkfifo(name.c_str(), 0600), 0);
        std::thread writer([&] {
            const int fd = ::open(name.c_str(), O_WRONLY);
            for (const string& part : row.writes) {
                EXPECT_EQ(::write(fd, part.data(), part.size()), static_cast<ssize_t>(part.size()));
                ::usleep(20000);  // each part is one read
            }
            ::close(fd);
        });
        EXPECT_EQ(contents(name), row.got);
        writer.join();
        ::unlink(name.c_str());
    }
}

TEST(Manager, ReadsAndWritesTheStandardDescriptors)
{
    TempDir dir;
    const string bytes = sampleBytes(100000);
    writeFile(dir / "in.gz", gzipped(bytes));
    writeFile(dir / "one", "\x1F");
    const ChildResult child = runChild([&] {
        ::dup2(::open((dir / "one").c_str(), O_RDONLY), 0);
        const bool one = contents("") == "\x1F";
        zqistream* none = ZQOpenIStream(nullptr);
        ::dup2(::open((dir / "in.gz").c_str(), O_RDONLY), 0);
        zqin.openfd(0, false);
        ::dup2(::open((dir / "out").c_str(), O_WRONLY | O_CREAT, 0600), 1);
        zqostream* out = ZQOpenOStream(static_cast<const char*>(nullptr));
        const string got = contents("");
        const bool written = out->write(got) == got.size();
        ZQCloseOStream(out);
        ::_exit(one && !none && written && ::fcntl(1, F_GETFD) != -1 ? 0 : 1);
    });
    EXPECT_EQ(child.status, 0) << child.err;
    EXPECT_TRUE(readFile(dir / "out") == bytes);
}

TEST(Manager, WorksFromManyThreads)
{
    TempDir dir;
    writeFile(dir / "f", "shared");
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            for (int i = 0; i < 50; ++i) {
                const string name = "t" + std::to_string(t * 50 + i);
                ZQRegisterIStream(name.c_str(), openText, [](zqistream* in) { delete in; });
                EXPECT_EQ(contents(dir / "f"), "shared");
                writeName(dir / name, name);
                EXPECT_EQ(contents(dir / name), name);
            }
        });
    for (std::thread& thread : threads) thread.join();
}
