// The right-hand column of docs/from-iostreams.md, at work.

#include "expect.h"

#include <zqplatform/zqplatform.h>

#include <cerrno>
#include <cstdio>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

using namespace ZQPlatform;

namespace {

// ---- files and text

void writing()
{
    const std::string name = "text";
    const double x = 0.1;
    const int n = 255;
    char text[32];

    zqofstream out(name);
    expect(!out.eof(), "opened");
    out << 42 << zqendl;
    out << "word " << true << zqflush;
    std::snprintf(text, sizeof text, "%.17g", x);
    out << text;
    std::snprintf(text, sizeof text, "%x", n);
    out << text << '\n';
    bool written = out.write("a\0b", 3) == 3;
    written = out.flush();
    out.close();
    expect(written && ZQFileSize(name) == 34, "written");

    out.append(name);
    out.openfd(::dup(1), false);
    out.close();
}

void reading()
{
    const std::string name = "text";
    std::string line, word, text;
    char block[4], c = 0;
    int number = 0;

    zqifstream in(name);
    expect(!in.eof(), "opened");
    in >> number;
    expect(number == 42, "number");
    in.gettoken(word, 256);
    expect(word == "word", "word");
    const bool got = in.read(&c, 1) == 1;
    expect(got && c == '1', "c");
    in.skipline();
    expect(in.tell() == 31 && in.read(block, sizeof block) == 3, "block");
    in.seek(3);
    const bool one = in.getline(line);
    expect(one && line.substr(0, 6) == "word 1", "line");
    in.seek(0);
    in.skip(3);
    in.read(text);
    expect(text.size() == 31 && in.size() == 34, "text");
    expect(in.pread(block, sizeof block, 0) == 4 && block[1] == '2', "pread");

    zqiofstream both("both");
    both << "text" << zqflush;
    expect(both.pread(block, sizeof block, 0) == 4, "both");
}

// ---- memory and other streams

void memory()
{
    std::string text = "7 8";
    unsigned char block[16];
    int number = 0;

    zqosstream out;
    out << "x = " << 42;
    text = out.str();
    expect(text == "x = 42", "string");

    zqisstream in;
    in.set("7 8");
    in >> number;
    expect(number == 7, "from a string");
    in.set(text.data(), text.size(), false);
    in.reset();
    expect(in.size() == 6, "borrowed");

    zqostream memory;
    memory.open(block, sizeof block);
    expect(memory.write("text") == 4 && block[3] == 't', "memory");

    std::istringstream standardIn("one\ntwo");
    std::ostringstream standardOut;
    zqistdstream from(&standardIn, false);
    zqostdstream to(&standardOut, false);
    to << from;
    to.close();
    expect(standardOut.str() == "one\ntwo", "standard streams");

    zqosstream log;
    zqmultiostream tee;
    tee.addstream(&out, false);
    tee.addstream(&log, false);
    tee << "more" << zqflush;
    expect(log.str() == "more" && out.str() == "x = 42more", "tee");
    in.reset();
    log << in;
    expect(log.str() == "morex = 42", "copied");
    out.clear();
    out << "abc";
    out.seek(1);
    expect(out.str() == "a", "moved back");
    zqnul << "dropped";
    zqowrapperstream through;
    through.set(&log, false);
    through.close();
    zqiwrapperstream reader;
    in.reset();
    reader.set(&in, false);
}

// ---- compression and names

zqistream* openZeros(const char*)
{
    return new zqifstream("/dev/zero");
}

void closeZeros(zqistream* zeros)
{
    delete zeros;
}

void compression()
{
    std::string packed, text, line;
    const std::string bytes = "some text";

    zqofstream file("text.gz");
    zqogzstream gzip(&file, false);
    gzip << "line\n";
    gzip.close();
    file.close();

    zqifstream source("text.gz");
    zqigzstream plain(&source, false);
    plain.getline(line);
    expect(line == "line", "gzip");

    bool good = ZQCompress(packed, bytes, "gz");
    good = ZQUncompress(text, packed, "gz");
    expect(good && text == bytes, "gz");
    good = ZQCompress(packed, bytes, "zstd");
    text.clear();
    good = ZQUncompress(text, packed, "zstd");
    expect(good && text == bytes, "zstd");

    zqostream* result = ZQOpenOStream("result.gz");
    *result << "line\n";
    ZQCloseOStream(result);
    zqistream* input = ZQOpenIStream("result");
    input->getline(line);
    ZQCloseIStream(input);
    expect(line == "line", "names");

    ZQRegisterIStream("zeros", openZeros, closeZeros);
    input = ZQOpenIStream("zeros:any");
    expect(input && input->skip(65536), "a prefix");
    ZQCloseIStream(input);
}

// ---- bytes

class Point : public ZQBinaryIO {
public:
    unsigned int x = 0;

    void Write(zqostream& out) const override
    {
        ZQ_io_write_binary(out, reinterpret_cast<const unsigned char*>(&x), sizeof x, 1);
    }
    unsigned int Read(zqistream& in) override
    {
        auto* bytes = reinterpret_cast<unsigned char*>(&x);
        return static_cast<unsigned int>(ZQ_io_read_binary(in, bytes, sizeof x, 1));
    }
    unsigned int GetSize() const override { return sizeof x; }
};

void bytes()
{
    std::string name = "run 7";
    unsigned int values[] = {5, 1, 7, 2}, back[4];
    const auto* src = reinterpret_cast<const unsigned char*>(values);
    auto* dst = reinterpret_cast<unsigned char*>(back);
    zqosstream out;
    zqisstream in;

    ZQ_io_write_binary(out, src, sizeof values[0], 4);
    ZQ_io_write_binary(out, name);
    const unsigned int width = ZQ_io_util_calc_NumBits(values, 4);
    ZQ_io_write_binary_compressed(out, values, width, 4);
    Point point;
    point.x = 3;
    out << point;

    in.set(out.str());
    ZQ_io_read_binary(in, dst, sizeof back[0], 4);
    expect(back[2] == 7, "numbers");
    ZQ_io_read_binary(in, name);
    expect(name == "run 7", "a string");
    ZQ_io_read_binary_compressed(in, back, width, 4);
    expect(back[2] == 7, "packed");
    point.x = 0;
    in >> point;
    expect(point.x == 3, "a record");

    const ZQHalfFloat half(1.5f);
    expect(half.bits == 0x3E00 && float(half) == 1.5f, "half");
    expect(ZQIsNormalNum(0.5) && !ZQIsNaN(0.5) && !ZQBigEndian(), "finite");
}

// ---- files and directories

void files()
{
    std::string scratch;

    const bool made = ZQCreateDirectory("dir");
    ZQFile("dir/new").Refresh();
    const bool moved = ZQRenameFile("text", "dir/text");
    expect(made && moved, "made and moved");
    expect(ZQFileExists("dir/text") && ZQFileIsFile("dir/text"), "a file");
    expect(ZQFileIsDirectory("dir") && !ZQFileIsLink("dir"), "a directory");
    expect(ZQFileIsReadable("dir") && ZQFileIsWritable("dir"), "modes");
    expect(!ZQFileIsNamedPipe("pipe"), "no pipe");
    expect(ZQFileSize("dir/text") == 34, "size");
    expect(ZQFileDetermineName("dir/text") == "text", "name");
    expect(ZQFileDeterminePath("dir/text") == "dir", "path");
    expect(ZQGetAbsolutePath("dir") == ZQGetCurrentWorkingDirectory() + "/dir", "absolute");
    for (const std::string& entry : ZQFile("dir").DirContents())
        expect(entry == "text", "contents");
    ZQDirectoryScan scan("dir");
    while (const char* entry = scan.Next())
        expect(*entry != '\0', "an entry");
    ZQFileCreate("empty", 0600);
    const bool removed = ZQFileDelete("empty") && ZQUnlink("dir/text") && ZQUnlinkDirectory("dir");
    expect(removed, "removed");

    const int fd = ZQFileTempDescriptor(scratch);
    zqofstream out(fd);
    ZQUnlink(scratch);
    const std::string dir = ZQFileTempDirectory();
    expect(fd != -1 && dir.rfind(ZQFileTempPath(), 0) == 0, "temporary");
    ZQUnlinkDirectory(dir);
}

// ---- threads

ZQMutex lock;
int calls = 0;

class Worker : public ZQThread {
    void* Run(void* arg) override
    {
        ZQMutexGuard guard(lock);
        return arg;
    }
};

void setUp()
{
    ++calls;
}

struct Table {
    std::vector<int> rows;
};

Table& table()
{
    static ZQOnce<Table> once;
    return once.Get();
}

class Handover : public ZQThread {
public:
    void put()
    {
        condition.Acquire();
        ready = true;
        condition.Release();
        condition.Signal();
    }

private:
    void* Run(void*) override
    {
        condition.Acquire();
        while (!ready)
            condition.Wait();
        condition.Release();
        return this;
    }

    ZQCondition condition;
    bool ready = false;
};

void threads()
{
    int argument = 0;
    Worker worker;
    const bool started = worker.Start(&argument);
    void* result = worker.Join();
    expect(started && result == &argument, "a thread");
    Handover handover;
    handover.Start();
    handover.put();
    expect(handover.Join() == &handover, "a condition");
    ZQCallOnce<setUp>();
    ZQCallOnce<setUp>();
    expect(calls == 1 && table().rows.empty(), "once");
}

// ---- time and the machine

ZQVersion describe()
{
    return {"", "docs", "1"};
}

void machine()
{
    struct tm now;
    struct timeval tv;
    char message[64];
    unsigned long virtualKiB = 0, residentKiB = 0;

    expect(ZQCurrentTime(&now) && now.tm_year > 100, "the time");
    expect(ZQLocalTime(&now, 0) && ZQGetTimeOfDay(&tv), "a time");
    expect(ZQCurrentTime().size() == 25, "the time as text");
    ZQSleep(1);
    errno = ENOENT;
    ZQInternalStrError(message, sizeof message);
    expect(std::string(message) == "No such file or directory", "message");
    ZQGetProcessMemUsage(virtualKiB, residentKiB);
    expect(residentKiB > 0 && virtualKiB > residentKiB, "memory");
    const char* host = ZQGetHostName();
    expect(!host || *host, "host");
    expect(ZQGetNumProcessors() > 0 && !ZQGetProcessorInfo().empty(), "processors");
    const unsigned char* address = ZQGetIPAddress();
    expect(!address || address[0] != 0, "address");
    const unsigned long cycles = ZQCycleTime();
    expect(cycles <= 0xFFFFFFFF, "cycles");
    expect(ZQProcessFileName("~/data").find('~') == std::string::npos, "a typed name");
    zqosstream out;
    ZQRegisterVersion(describe);
    ZQGetVersions(out);
    expect(out.str().find("docs Version: 1\n") != std::string::npos, "versions");
    const std::string user = ZQGetUserName(), home = ZQGetUserHomeDir();
    expect(home.empty() || ZQFileIsDirectory(home), "home");
}

}  // namespace

int main()
{
    writing();
    reading();
    memory();
    compression();
    bytes();
    files();
    threads();
    machine();
    zqout << "all done" << zqendl;
}
