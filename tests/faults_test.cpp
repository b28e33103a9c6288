// Every call of the platform and of the compression libraries that can fail does so, one at a time,
// while an operation below runs. data/faults.txt says what fails, and what comes of it.

#include "support/interpose.h"
#include "support/streams.h"

#include <map>
#include <random>
#include <thread>

// Two and a bit buffers, packed one and a bit; quickly packed.
static const string sample = [] {
    string bytes(150000, 'x');
    std::generate_n(bytes.begin(), 70000, std::mt19937());
    return bytes;
}();

// The sample, packed; first asked for while nothing fails.
static const string& packed(const char* method)
{
    static std::map<string, string> made;
    string& bytes = made[method];
    if (bytes.empty()) ZQCompress(bytes, sample, method);
    return bytes;
}

static string amount(const string& got, const string& whole = sample)
{
    if (whole.compare(0, got.size(), got) != 0) return "wrong";
    return got.empty() ? "none" : got.size() < whole.size() ? "part" : "all";
}

// What an operation says of itself. While it is noted, nothing fails; after then(), nothing more.
struct Report {
    template <class Value> Report& operator<<(const Value& value)
    {
        Fault* const fault = std::exchange(Fault::current, nullptr);
        text << value << '\n';
        Fault::current = fault;
        return *this;
    }
    Report& then() { return Fault::lift(), *this; }
    std::ostringstream text;
};

struct Idle : ZQThread {
    void* Run(void* arg) override { return arg; }
};

static const auto operations = [] {
    std::map<string, void (*)(Report&)> all;
    all["input"] = [](Report& say) {
        zqifstream in("f");
        string got, again;
        say << in.skip(70000) << in.size() << in.seek(1000) << in.read(got) << in.close();
        say.then() << amount(got, sample.substr(1000)) << in.open("f") << in.read(again);
    };
    all["output"] = [](Report& say) {
        zqofstream out("o");
        say << out.write(sample) << out.flush();
        out.close();
        say << out.append("o") << out.write("more") << out.flush();
        say.then() << amount(readFile("o"), sample + "more");
        say << out.open("o") << out.write(sample) << out.flush();
    };
    all["descriptors"] = [](Report& say) {
        zqiofstream both("o");
        zqofstream err(2);
        zqifstream in;
        char at[4] = "";
        both << "0123456789" << zqflush;
        say << both.pread(at, 3, 4) << at << in.openfd(0, false) << in.openfd(-1, true);
        say << err.write("x") << err.append("o");
        say.then() << in.close() << both.pread(at, 3, 4);
    };
    all["names"] = [](Report& say) {
        std::unique_ptr<zqistream> in(ZQOpenIStream("f"));
        std::unique_ptr<zqostream> out(ZQOpenOStream("o.gz"));
        string got;
        say << bool(dynamic_cast<zqigzstream*>(in.get())) << (in ? in->read(got) : 0);
        say << (out ? out->write(sample) : 0);
        ZQCloseIStream(in.get()), in.release();
        ZQCloseOStream(out.get()), out.release();
        say << ZQRegisterIStream("name of a stream", nullptr, nullptr);
        say << ZQRegisterOStream("name of a stream", nullptr, nullptr);
        ZQGetVersions(*std::make_unique<zqosstream>());
        say << ZQProcessSystemCommand("a long \"command\" of a user") << ZQGetUserHomeDir();
        say << ZQToolkitsGetRelease();
        say.then() << amount(got) << amount(readFile("o.gz"), packed("gz"));
    };
    all["gzip"] = [](Report& say) {
        zqigzstream in(new zqifstream("two.gz"), true);
        zqofstream file("o");
        zqogzstream out(&file, false);
        string got, again;
        in.read(got);
        say << out.write(sample);
        in.clear();
        out.clear();
        say.then() << amount(got, sample + sample) << amount(readFile("o"), packed("gz"));
        say << in.set(new zqifstream("f.gz"), true) << in.read(again) << out.set(&file, false);
    };
    all["zstd"] = [](Report& say) {
        Fault* const fault = std::exchange(Fault::current, nullptr);
        const auto work = [&] {
            string out = "old", got;
            Fault::current = fault;
            try {
                say << ZQCompress(out, sample, "zstd") << (out == packed("zstd"));
                say << ZQUncompress(got, packed("zstd"), "zstd") << amount(got);
            } catch (const std::bad_alloc& error) {
                say << error.what();
            }
            say.then() << (ZQCompress(out, sample, "zstd") && out == packed("zstd"));
            say << (ZQUncompress(got = "", out, "zstd") && got == sample);
        };
        std::thread(work).join();  // a thread that has no contexts yet
    };
    all["files"] = [](Report& say) {
        ZQFile file("f"), other("a/long/directory/name", "f");
        ZQDirectoryScan scan("d");
        file = ZQFile(other = file);
        say << other.AbsPath() << ZQFileTempPath() << file.Exists() << file.Size() << file.IsLink()
            << file.IsNamedPipe();
        say << ZQFile("d").DirContents().size() << bool(scan.Next()) << bool(scan);
        say.then() << file.Exists() << (file.Refresh() && file.Exists());
    };
    all["changes"] = [](Report& say) {
        string name, dir;
        say << ZQFileCreate("new", 0600).Exists() << ZQFileCreate("g", 0600).Exists();
        say << ZQCreateDirectory("n") << ZQRenameFile("new", "old") << ZQUnlinkDirectory("n");
        say << ZQUnlink("old") << ZQFileDelete("g") << ((dir = ZQFileTempDirectory()) != "");
        const int fd = ZQFileTempDescriptor(name);
        say.then() << (fd != -1) << ::close(fd);
        for (const string& left : {name, dir, string("new"), string("old"), string("n")})
            std::filesystem::remove(left);
    };
    all["system"] = [](Report& say) {
        struct tm tm;
        struct timeval now;
        unsigned long size, resident;
        ZQGetProcessMemUsage(size, resident);
        say << (size > 0) << (resident > 0) << ZQGetNumProcessors() << ZQGetUserName();
        say << (ZQGetCurrentWorkingDirectory() != ".") << ZQGetAbsolutePath("f").size();
        say << ZQProcessFileName("~root/any/long/name") << ZQGetProcessorInfo()
            << ZQGetPlatformInfo();
        say << ZQGetTimeOfDay(&now) << ZQLocalTime(&tm, 0) << ZQCurrentTime().size();
    };
    all["thread"] = [](Report& say) {
        Idle idle;
        idle.SetStackSize(1 << 20);
        const bool started = idle.Start(&idle);
        say << started << (!started || idle.Join() == &idle);
        say.then() << (idle.Start(&idle) && idle.Join());
    };
    all["condition"] = [](Report&) {
        const string fails = Fault::current->first == 1 ? Fault::current->function : "";
        ZQCondition condition;
        condition.Acquire();
        if (fails == "pthread_cond_wait") condition.Wait();  // nobody would wake it
        if (fails != "pthread_mutex_lock") condition.Release();
        condition.Signal();
        condition.Broadcast();
    };
    all["memory"] = [](Report& say) {
        Fault* fault = std::exchange(Fault::current, nullptr);
        const string path = "d/../d/../d/../f", text = "a_word_of_some_length";
        string got;
        zqisstream in, copy, zipped;
        zqosstream out, twin;
        ZQFile file(path), other(path);
        zipped.set(packed("gz"));
        const auto prepare = [&] {
            string().swap(got);
            in.reset(), copy.reset(), zipped.reset(), out.clear();
        };
        // Where memory is missing, the same objects do the same once more.
        const auto step = [&](auto work) {
            prepare();
            Fault::current = fault;
            try {
                work();
            } catch (const std::bad_alloc&) {
                Fault::lift(), fault = nullptr;
                prepare();
                work();
            }
            Fault::lift();
            say << got;
        };
        step([&] { in.set(text); });
        step([&] { copy.set(text.data(), text.size(), true); });
        step([&] { copy = in, copy.getbuffer(got); });
        step([&] { zqisstream(in).getbuffer(got); });
        step([&] { in.read(got); });
        step([&] { in >> got; });
        step([&] { in.getline(got); });
        step([&] { in.getline(got, 9999); });
        step([&] { in.gettoken(got, 9999); });
        step([&] { in >> out, got = out.str(); });
        step([&] { out << in, got = out.str(); });
        step([&] { out.set(text), got = out.str(); });
        step([&] { got = zqosstream(text).str(); });
        step([&] { twin.set(text.c_str()), out = twin, got = out.str(); });
        step([&] { got = zqosstream(twin).str(); });
        step([&] { out.write(sample), out << zqendl, got = amount(out.str(), sample + "\n"); });
        step([&] { (zqogzstream(&out, false) << text).close(), got = hex(out.str()); });
        step([&] { zqigzstream(&zipped, false).read(got), got = amount(got); });
        step([&] { ZQCompress(got, sample, "gz"), got = amount(got, packed("gz")); });
        step([&] { ZQUncompress(got, packed("gz"), "gz"), got = amount(got); });
        step([&] { ZQ_io_write_binary(out, text), copy.set(out.str()); });
        step([&] { ZQ_io_read_binary(copy, got); });
        step([&] { file.Set(path), got = file.DirPath(); });
        step([&] { file.Set(path, text), got = file.AbsPath() + file.FileName(); });
        step([&] { other = file, got = ZQFile(other).FileName(); });
        step([&] { got = "01"[file.Refresh()]; });
        for (const auto ask : {ZQFileExists, ZQFileIsDirectory, ZQFileIsFile, ZQFileIsReadable,
                               ZQFileIsWritable, ZQFileIsLink, ZQFileIsNamedPipe})
            step([&] { got = "01"[ask(path)]; });
        for (const auto make : {ZQFileDetermineName, ZQFileDeterminePath, ZQGetAbsolutePath})
            step([&] { got = make(path + text); });
        step([&] { ZQFileCreate(path, 0600), got = std::to_string(ZQFileSize(path)); });
        step([&] {
            zqmultiostream fan;
            fan.addstream(&out, false), fan.write(sample), fan.flush(), got = amount(out.str());
        });
    };
    return all;
}();

static int cases = 0;

// What the operation says, and what went to descriptor 2, while its n-th call and the calls behind
// it, as many as 'times', fail; nothing else where it makes less than n. Nothing is left behind.
static string outcome(const string& name, const string& call, long how, int n, int times)
{
    const long blocks = heapBlocks, descriptors = openDescriptors();
    CaptureErr err;
    Fault fault(call.c_str(), how, n, n - 1 + times);
    string text;
    errno = 0;
    try {
        Report report;
        operations.at(name)(report);
        text = report.then().text.str();
    } catch (const std::exception& error) {
        Fault::lift();
        text = string(error.what()) + "\n";
    }
    text += err.text();
    cases += fault.calls >= n;
    EXPECT_TRUE(openDescriptors() == descriptors && fault.wrongCloses == 0) << name << call << n;
    const bool mayKeep = name == "zstd" || n == 0;  // contexts; what is built on first use
    EXPECT_TRUE(mayKeep || heapBlocks - blocks == long(text.capacity() > 15)) << name << call << n;
    return text;
}

// The outcomes with the first call failing, the second, and so on, each that differs from the one
// before: their lines, with a dot for each that is as without a fault.
static string outcomes(const string& name, const string& call, long how, int times)
{
    const string usual = outcome(name, "", 0, 1, 0);
    string all, last;
    for (int n = 1, before = cases;; ++n, before = cases) {
        const string text = outcome(name, call, how, n, times);
        if (cases == before) return text == usual ? all : all + " | then " + text;
        if (text == last) continue;
        all += n > 1 ? " |" : "";
        std::istringstream lines(last = text), others(usual);
        for (string line, other; text != usual && std::getline(lines, line);)
            all += " " + (std::getline(others, other) && line == other ? "." : line);
        if (text == usual) all += " same";
    }
}

TEST(Faults, AreReportedAsDocumentedAndLeaveNothingBehind)
{
    WorkingDir dir;
    ::pthread_setname_np(::pthread_self(), "fifteen_letters");  // a block where it is read
    std::filesystem::create_directory("d");
    for (const char* name : {"d/1", "d/2"}) writeFile(name, "");
    writeFile("f", sample);
    writeFile("f.gz", packed("gz"));
    writeFile("two.gz", packed("gz") + packed("gz"));
    for (const auto& operation : operations) outcome(operation.first, "", 0, 0, 0);
    cases = 0;
    std::map<string, long> numbers{{"half", Fault::half}, {"none", Fault::none}};
    for (int error = 1; error < 134; numbers[std::to_string(-error)] = -error, ++error)
        if (const char* known = ::strerrorname_np(error)) numbers[known] = error;

    std::ifstream table(ZQPLATFORM_TEST_DATA "/faults.txt");
    string name, call, kinds, often, kind, expected;
    for (string line; std::getline(table, line);) {
        std::istringstream row(line);
        row >> name >> call >> kinds >> often;
        std::getline(row, expected, '=');
        if (name == "#" || !std::getline(row, expected)) continue;
        std::istringstream list(kinds);
        while (std::getline(list, kind, ','))
            for (const int times : {1, kind == "EINTR" ? 1000 : INT_MAX / 2}) {
                if (often == (times == 1 ? "always" : "once")) continue;
                EXPECT_EQ(
                    outcomes(name, call == "new" ? "operator new" : call, numbers.at(kind), times),
                    expected)
                    << line << ' ' << kind << ' ' << times;
            }
    }
    EXPECT_GE(cases, 160);
    RecordProperty("cases", cases);
}
