#include "support/streams.h"

#include <future>
#include <sys/stat.h>

static string gzipped(const string& bytes)
{
    string packed;
    EXPECT_TRUE(ZQCompress(packed, bytes, "gz"));
    return packed;
}

// What reading the name gives, or "(null)".
static string contents(const string& name)
{
    zqistream* in = ZQOpenIStream(name);
    if (!in) return "(null)";
    const string bytes = rest(*in);
    ZQCloseIStream(in);
    return bytes;
}

static void writeName(const string& name, const string& bytes)
{
    zqostream* out = ZQOpenOStream(name);
    EXPECT_TRUE(out && out->write(bytes) == bytes.size()) << name;
    ZQCloseOStream(out);
}

static int closed = 0;
static string openedName;

static zqistream* openText(const char* name)
{
    openedName = name;
    auto in = new zqisstream;
    in->set(string(name).substr(string(name).find(':') + 1));
    return in;
}

template <class Stream> static void countAndDelete(Stream* stream)
{
    ++closed;
    delete stream;
}

TEST(Manager, FindsWhatANameHolds)
{
    WorkingDir dir;
    const string text = sampleBytes(100000);
    const std::tuple<const char*, string, const char*, string> rows[] = {
        {"plain", text, "plain", text},
        {"packed.gz", gzipped(text), "packed", text},
        {"short", "\x1F\x8B", "short", ""},
        {":colon", "x", ":colon", "x"}};
    const int before = openDescriptors();
    for (const auto& [stored, bytes, opened, expected] : rows) {
        writeFile(stored, bytes);
        EXPECT_TRUE(contents(opened) == expected) << opened;
    }
    EXPECT_TRUE(contents("missing") == "(null)" && !ZQOpenOStream("no/such/directory"));
    ZQCloseOStream(ZQOpenOStream(nullptr));  // standard output
    std::filesystem::create_directory("a.gz.dir");
    for (const char* name : {"out.gzz", "a.gz.dir/f", "plain.out"}) {
        writeName(name, text);
        EXPECT_TRUE(contents(name) == text) << name;
        EXPECT_EQ(readFile(name) == text, string(name) == "plain.out") << name;
    }
    EXPECT_EQ(openDescriptors(), before);
}

TEST(Manager, ServesRegisteredPrefixes)
{
    const auto openNothing = [](const char*) -> zqistream* { return nullptr; };
    ZQRegisterIStream("mem", openNothing, countAndDelete);
    EXPECT_TRUE(contents("mem:x") == "(null)" &&
                ZQRegisterIStream("mem", openText, countAndDelete));
    EXPECT_EQ(contents("mem:abc:d") + openedName + contents("mem"), "abc:dmem:abc:dmem");
    EXPECT_EQ(contents("mem:"), "(null)");  // opens empty: nothing there, and no "mem:.gz"
    EXPECT_TRUE(ZQRegisterIStream(nullptr, openText, countAndDelete));
    EXPECT_EQ(contents(":mem"), "(null)");  // the empty prefix is never looked up
    EXPECT_TRUE(contents("mem:\x1F\x8B\x08") == "" && closed == 2);  // gzip deletes what it owns

    const auto openOutput = [](const char*) -> zqostream* { return new zqosstream; };
    ZQRegisterOStream("drop", openOutput, countAndDelete);
    for (const char* name : {"drop:x", "drop:x.gz"}) {
        writeName(name, "text");
        EXPECT_EQ(closed, 3);
    }
    ZQCloseIStream(nullptr);
    ZQCloseOStream(nullptr);
}

TEST(Manager, LosesNoByteOfAPipe)
{
    const string text = "text behind the magic";
    const std::pair<std::vector<string>, string> rows[] = {
        {{"\x1F"}, "\x1F"},
        {{"\x1F", "x", "yz"}, "\x1Fxyz"},
        {{"\x1F", gzipped(text).substr(1)}, text},
        {{gzipped(text)}, text}};
    TempDir dir;
    const string name = dir / "fifo";
    ASSERT_EQ(::mkfifo(name.c_str(), 0600), 0);
    for (const auto& row : rows) {
        const auto writer = std::async(std::launch::async, [&] {
            std::ofstream fifo(name);
            for (const string& part : row.first) {
                fifo << part << std::flush;
                ::usleep(20000);  // each part is one read
            }
        });
        EXPECT_EQ(contents(name), row.second);
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
        const bool one = contents("") == "\x1F" && !ZQOpenIStream(nullptr);
        ::dup2(::open((dir / "in.gz").c_str(), O_RDONLY), 0);
        ::dup2(::open((dir / "out").c_str(), O_WRONLY | O_CREAT, 0600), 1);
        zqin.openfd(0, false);
        writeName("", contents(""));
        endChild(one && ::fcntl(1, F_GETFD) != -1 ? 0 : 1);
    });
    EXPECT_TRUE(child.status == 0 && readFile(dir / "out") == bytes) << child.err;
}

TEST(Manager, WorksFromManyThreads)
{
    TempDir dir;
    writeFile(dir / "f", "shared");
    zqifstream file(dir / "f");
    std::vector<std::future<void>> threads;  // joined where their futures end
    for (const char* name : {"a", "b", "c", "d"})
        threads.push_back(std::async(std::launch::async, [&, name] {
            for (int i = 0; i < 50; ++i) {
                ZQRegisterIStream((name + std::to_string(i)).c_str(), openText, countAndDelete);
                writeName(dir / name, name);
                EXPECT_EQ(contents(dir / "f") + contents(dir / name), string("shared") + name);
                const char* method = i % 2 == 0 ? "gz" : "zstd";
                string packed, text(2, '?');
                EXPECT_EQ(file.pread(text.data(), 2, 4), 2);
                EXPECT_TRUE(ZQCompress(packed, name, method) && ZQUncompress(text, packed, method));
                EXPECT_EQ(text, string("ed") + name);
            }
        }));
}
