// Every call of the platform and of the compression libraries that can fail does so, one at a time,
// while an operation below runs. data/faults.txt says what fails, and what comes of it.

#include "support/interpose.h"
#include "support/streams.h"

#include <map>
#include <sstream>
#include <string_view>
#include <thread>

static const string sample = sampleBytes(300000);

// Values as text. The braces of say{...} have them computed from left to right; from then on
// nothing fails any more.
struct say : string {
    template <class... Values> explicit say(const Values&... values)
    {
        Fault::lift();
        std::ostringstream text;
        ((text << (text.tellp() > 0 ? " " : "") << values), ...);
        assign(text.str());
    }
};

static string amount(const string& got, const string& whole = sample)
{
    if (whole.compare(0, got.size(), got) != 0) return "wrong";
    return got.empty() ? "none" : got.size() < whole.size() ? "part" : "all";
}

// The sample, made before anything fails.
static const string& packedSample(const char* method)
{
    static string gz, zstd;
    static const bool made = ZQCompress(gz, sample, "gz") && ZQCompress(zstd, sample, "zstd");
    return made && method[0] == 'g' ? gz : zstd;
}

// ---- What is done while a call fails, and, behind lift(), with the same object afterwards

static string read()
{
    zqifstream in("f");
    string got, more;
    in.read(got);
    in.close();
    Fault::lift();
    return say{amount(got), in.open("f") && in.read(more) == sample.size() && in.close()};
}

static string ask(bool (*question)(zqifstream&))
{
    zqifstream in("f");
    string got;
    in.skip(70000);
    const bool answer = question(in);
    const long at = in.tell();
    Fault::lift();
    return say{answer, at, in.read(got), in.open("f") && in.read(got) == sample.size()};
}
static string size()
{
    return ask([](zqifstream& in) { return in.size() == sample.size(); });
}
static string seek()
{
    return ask([](zqifstream& in) { return in.seek(150000); });
}

static string write()
{
    zqofstream out("o");
    const zqsize_t written = out.write(sample);
    const bool flushed = out.flush();
    out.close();
    Fault::lift();
    const string kept = amount(readFile("o"));
    return say{written, flushed, kept, out.open("o") && out.write(sample) && out.flush()};
}

static string append()
{
    zqofstream out("o");
    out << sample.substr(0, 10);
    const bool opened = out.append("o");
    out << sample.substr(10, 10) << zqflush;
    Fault::lift();
    return say{opened, readFile("o").size(), out.append("o")};
}

static string positioned()
{
    zqiofstream both("o");
    both << "0123456789" << zqflush;
    char at[4] = "", again[4] = "";
    const long got = both.pread(at, 3, 4);
    Fault::lift();
    return say{got, at, both.pread(again, 3, 4)};
}

static string standard()
{
    zqifstream in;
    in.openfd(0, false);
    in.openfd(-1, true);
    zqofstream(2) << "x";
    zqofstream(2).append("o");
    return say{in.close()};
}

static string readName()
{
    std::unique_ptr<zqistream> in(ZQOpenIStream("f"));
    if (!in) return "null";
    string got;
    in->read(got);
    const bool packed = dynamic_cast<zqigzstream*>(in.get());
    ZQCloseIStream(in.get());
    in.release();
    return say{packed ? "gzip" : "file", amount(got)};
}

static string writeName()
{
    std::unique_ptr<zqostream> out(ZQOpenOStream("o.gz"));
    if (!out) return "null";
    const zqsize_t written = out->write(sample);
    ZQCloseOStream(out.get());
    out.release();
    Fault::lift();
    return say{written, amount(readFile("o.gz"), packedSample("gz"))};
}

static string inflate()
{
    zqigzstream in(new zqifstream("f.gz"), true);
    string got, more;
    in.read(got);
    in.clear();
    Fault::lift();
    return say{amount(got), in.set(new zqifstream("f.gz"), true) && in.read(more) == sample.size()};
}

static string deflate()
{
    zqofstream file("o");
    zqogzstream out(&file, false);
    const zqsize_t written = out.write(sample);
    out.clear();
    Fault::lift();
    return say{written, amount(readFile("o"), packedSample("gz")), out.set(&file, false)};
}

// On a thread of its own, which has no contexts yet.
static string zstd()
{
    string packed = "old", got, again, result;
    const string& frame = packedSample("zstd");
    const auto work = [&, fault = Fault::current] {
        Fault::current = fault;
        try {
            const bool done = ZQCompress(packed, sample, "zstd");
            const bool undone = ZQUncompress(got, frame, "zstd");
            Fault::lift();
            result = say{done, packed.size() > 3, undone, amount(got)};
            const bool redone = ZQCompress(packed, sample, "zstd") && packed == frame;
            result = say{result, redone && ZQUncompress(again, packed, "zstd") && again == sample};
        } catch (const std::bad_alloc&) {
            result = (Fault::lift(), "bad_alloc");
        }
    };
    std::thread(work).join();
    return result;
}

static string query()
{
    ZQFile file("f");
    const string first = say{file.Exists(), file.Size(), file.IsLink(), file.IsNamedPipe()};
    Fault::lift();
    return say{first, file.Exists(), file.Refresh() && file.Exists()};
}

static string list()
{
    const size_t names = ZQFile("d").DirContents().size();
    ZQDirectoryScan scan("d");
    int entries = 0;
    while (scan.Next()) ++entries;
    Fault::lift();
    return say{names, entries, bool(scan), ZQFile("d").DirContents().size()};
}

static string change()
{
    const bool made = ZQFileCreate("new", 0600).Exists(), dir = ZQCreateDirectory("n");
    const bool renamed = ZQRenameFile("new", "old"), gone = ZQUnlinkDirectory("n");
    const string done = say{made, dir, renamed, gone, ZQUnlink("old"), ZQFileDelete("g")};
    writeFile("g", "");
    for (const char* name : {"new", "old", "n"}) std::filesystem::remove(name);
    return done;
}

static string path()
{
    const string dir = ZQGetCurrentWorkingDirectory();
    return say{dir.size() > 1, ZQGetAbsolutePath("f").size() > 3};
}

static string temporary()
{
    string name;
    const int fd = ZQFileTempDescriptor(name);
    const string dir = ZQFileTempDirectory();
    const string result = say{fd != -1, name.size() > 10, dir.size() > 10};
    ::close(fd);
    ZQUnlink(name);
    ZQUnlinkDirectory(dir);
    return result;
}

static string tell()
{
    struct tm tm;
    struct timeval now;
    const bool local = ZQLocalTime(&tm, 0);
    return say{local, ZQCurrentTime(&tm), ZQCurrentTime().size(), ZQGetTimeOfDay(&now)};
}

static string machine()
{
    unsigned long size, resident;
    ZQGetProcessMemUsage(size, resident);
    const string home = ZQProcessFileName("~root/x"), kind = ZQGetProcessorInfo();
    const bool user = ZQGetUserName() != "", system = ZQGetPlatformInfo().find('(') != string::npos;
    return say{user, home, kind, system, ZQGetNumProcessors() > 0, size > 0, resident > 0};
}

struct Idle : ZQThread {
    void* Run(void* arg) override { return arg; }
};

static string thread()
{
    Idle idle;
    errno = 0;
    idle.SetStackSize(1 << 20);
    const bool started = idle.Start(&idle);
    const bool joined = !started || idle.Join() == &idle;
    Fault::lift();
    return say{started, joined, idle.Start(&idle) && idle.Join()};
}

static string condition()
{
    errno = 0;
    ZQCondition condition;
    condition.Acquire();
    const std::string_view failing = Fault::current->first == 1 ? Fault::current->function : "";
    if (failing == "pthread_cond_wait") condition.Wait();  // nobody would wake it
    if (failing != "pthread_mutex_lock") condition.Release();
    condition.Signal();
    condition.Broadcast();
    return "";
}

// ---- What else takes memory

static string memory()
{
    zqisstream in, line;
    zqosstream out("ab"), copy;
    string text, word;
    out << sample << zqflush;
    in.set(out.str());
    line.set("a line\nb c", 10, false);
    line.getline(text, 9999);
    line.gettoken(word, 9999);
    copy = out;
    in.read(text, 100000);
    line >> text;
    return say{text, word, copy.str().size(), in.count()};
}

static string standardObjects()
{
    zqistdstream in(new std::istringstream("some text of a string"), true);
    zqostdstream out(new std::ostringstream, true);
    zqiwrapperstream source;
    zqosstream text;
    zqmultiostream fan;
    string word;
    source.set(&in, false);
    fan.addstream(&text, false);
    fan.addstream(&out, false);
    source.gettoken(word, 5000);
    fan << word << 1.5 << zqendl;
    return text.str();
}

static string binary()
{
    zqosstream out;
    zqisstream in;
    const std::vector<unsigned int> words(5000, 7);
    const std::vector<float> values(5000, 7);
    std::vector<float> back(5000);
    string text;
    ZQ_io_write_binary(out, sample);
    ZQ_io_write_binary_compressed(out, words.data(), 7, 5000);
    ZQ_io_write_binary_compressed(out, values.data(), 7, 5000);
    in.set(out.str());
    ZQ_io_read_binary(in, text);
    ZQ_io_read_binary_compressed(in, back.data(), 7, 5000);
    return say{amount(text), back[0] == back[4999]};
}

static string buffers()
{
    string packed, text;
    ZQCompress(packed, sample, "gz");
    ZQUncompress(text, packed, "gz");
    return say{amount(text)};
}

static string names()
{
    zqosstream versions;
    const ZQFile file("a/long/directory/name", "f");
    ZQFile other(file);
    other = file;
    ZQRegisterIStream("name of a stream", nullptr, nullptr);
    ZQRegisterOStream("name of a stream", nullptr, nullptr);
    ZQGetVersions(versions);
    const string home = ZQGetUserHomeDir() + ZQToolkitsGetRelease() + ZQFileTempPath();
    const string cleaned = ZQProcessFileName("~/a/long/name/of/a/file");
    return say{other.AbsPath(), cleaned.size() > 20, ZQProcessSystemCommand("a long \"command\"")};
}

// ---- The sweep

static int cases = 0;

// What the operation says, and behind it what went to descriptor 2, while the calls from number n
// on fail; 'hit' becomes true where there were so many. Nothing is left behind.
static string outcome(string (*operation)(), const string& call = "", long how = 0, int n = 0,
                      int times = 0, bool* hit = nullptr)
{
    const long blocks = heapBlocks, descriptors = openDescriptors();
    CaptureErr err;
    string result;
    Fault fault(call.c_str(), how, n, n - 1 + times);
    try {
        result = operation();
    } catch (const std::bad_alloc&) {
        result = "bad_alloc";
    } catch (const std::system_error& error) {
        result = error.code().message();
    }
    Fault::lift();
    result += err.text();
    EXPECT_TRUE(openDescriptors() == descriptors && fault.wrongCloses == 0) << call << n;
    const bool mayKeep = operation == zstd || n == 0;  // contexts; what is built on first use
    EXPECT_TRUE(mayKeep || heapBlocks - blocks == long(result.capacity() > 15)) << call << n;
    if (hit) cases += * hit = fault.calls >= n;
    return result;
}

// The outcomes with the first call failing, the second, and so on, each that differs from the one
// before it; 'times' calls fail in a row.
static string outcomes(string (*operation)(), const string& call, long how, int times)
{
    string all, last;
    bool hit = true;
    for (int n = 1; hit; ++n) {
        string now = outcome(operation, call, how, n, times, &hit);
        std::replace(now.begin(), now.end(), '\n', ';');
        if (hit && now != last) all += (n > 1 ? "|" : "") + now;
        last = now;
    }
    return all;
}

using Operations = std::map<string, string (*)()>;
#define ZQ_NAMED(operation) Operations::value_type(#operation, operation)
static const Operations operations{
    ZQ_NAMED(append),     ZQ_NAMED(binary),    ZQ_NAMED(buffers),  ZQ_NAMED(change),
    ZQ_NAMED(condition),  ZQ_NAMED(deflate),   ZQ_NAMED(inflate),  ZQ_NAMED(list),
    ZQ_NAMED(machine),    ZQ_NAMED(memory),    ZQ_NAMED(names),    ZQ_NAMED(path),
    ZQ_NAMED(positioned), ZQ_NAMED(query),     ZQ_NAMED(read),     ZQ_NAMED(readName),
    ZQ_NAMED(seek),       ZQ_NAMED(size),      ZQ_NAMED(standard), ZQ_NAMED(standardObjects),
    ZQ_NAMED(tell),       ZQ_NAMED(temporary), ZQ_NAMED(thread),   ZQ_NAMED(write),
    ZQ_NAMED(writeName),  ZQ_NAMED(zstd)};

// The number of an error, or what 'name' says in figures or words.
static long numberOf(const string& name)
{
    for (int error = 1; error < 134; ++error)
        if (const char* known = ::strerrorname_np(error); known && name == known) return error;
    return name == "half" ? Fault::half : name == "none" ? Fault::none : std::stol(name);
}

struct Faults : testing::Test {
    Faults()
    {
        std::filesystem::create_directory("d");
        for (const char* name : {"g", "d/1", "d/2"}) writeFile(name, "");
        writeFile("f", sample);
        writeFile("f.gz", packedSample("gz"));
    }
    WorkingDir dir;
};

TEST_F(Faults, AreReportedAsDocumentedAndLeaveNothingBehind)
{
    std::ifstream table(ZQPLATFORM_TEST_DATA "/faults.txt");
    string name, call, kinds, often, sign, expected;
    for (string line; std::getline(table, line);) {
        if (line.empty() || line[0] == '#') continue;
        std::istringstream row(line);
        row >> name >> call >> kinds >> often >> sign >> std::ws;
        std::getline(row, expected);
        const auto operation = operations.at(name);
        const string clean = outcome(operation);
        std::istringstream list(kinds);
        for (string kind; std::getline(list, kind, ',');)
            for (const int times : {1, kind == "EINTR" ? 1000 : INT_MAX / 2}) {
                if (often == (times == 1 ? "always" : "once")) continue;
                EXPECT_EQ(outcomes(operation, call, numberOf(kind), times), expected)
                    << line << kind << times;
            }
        EXPECT_EQ(outcome(operation), clean) << line;
    }
    EXPECT_GE(cases, 160);
    RecordProperty("cases", cases);
}

TEST_F(Faults, OfMemoryThrowOrGiveTheDocumentedResult)
{
    const std::map<string, string> withResults = {
        {"zstd", "bad_alloc|0 0 1 all 1|bad_alloc|1 1 0 none 1|bad_alloc"},
        {"machine", "bad_alloc|1 /root/x x86_64 1 1 0 0|bad_alloc"}};
    for (const auto& [name, operation] : operations) {
        const string clean = outcome(operation), all = outcomes(operation, "operator new", 0, 1);
        const auto other = withResults.find(name);
        const string expected = other != withResults.end() ? other->second : "bad_alloc";
        EXPECT_TRUE(all.empty() || all == expected) << name << ": " << all;
        EXPECT_EQ(outcome(operation), clean) << name;
    }
}
