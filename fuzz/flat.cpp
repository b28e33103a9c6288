// Memory and time that do not grow with the input, measured: every call of the library here runs on
// a thread with a stack of 128 KiB. Fails where a bound printed beside a figure is exceeded.

#include "platform/zqplatform.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace ZQPlatform;
using std::string;

namespace {

constexpr unsigned int stackSize = 128 * 1024;
constexpr zqsize_t mebibyte = 1024 * 1024;
constexpr double growthLimit = 1024;  // KiB above what the same work on little data took
constexpr double ratioLimit = 6;      // of the times for four times the data
int failures = 0;

void report(const char* what, double value, const char* unit, double limit)
{
    std::printf("%-48s %10.1f %-8s (at most %.0f)%s\n", what, value, unit, limit,
                value <= limit ? "" : "  FAILED");
    std::fflush(stdout);
    failures += value > limit;
}

double seconds()
{
    timeval now;
    ZQGetTimeOfDay(&now);
    return double(now.tv_sec) + double(now.tv_usec) / 1e6;
}

double statusKiB(const string& field)
{
    std::ifstream status("/proc/self/status");
    for (string line; std::getline(status, line);)
        if (line.compare(0, field.size(), field) == 0)
            return std::atof(line.c_str() + field.size());
    return 0;
}

long descriptors()
{
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

// Runs 'work' and returns the seconds; 'growth' becomes the highest resident memory meanwhile, in
// KiB above that of the start.
template <class Work> double measured(double& growth, Work work)
{
    std::ofstream("/proc/self/clear_refs") << 5;  // forgets the highest so far
    const double before = statusKiB("VmRSS:"), start = seconds();
    work();
    const double took = seconds() - start;
    growth = statusKiB("VmHWM:") - before;
    return took;
}

zqsize_t readAll(zqistream& in)
{
    const auto block = std::make_unique<char[]>(4096);
    zqsize_t total = 0;
    while (const zqsize_t n = in.read(block.get(), 4096)) total += n;
    return total;
}

zqsize_t readFile(const string& name)
{
    zqistream* in = ZQOpenIStream(name);
    const zqsize_t total = in ? readAll(*in) : 0;
    ZQCloseIStream(in);
    return total;
}

// Members of 'size' zeros each.
void writeMembers(const string& name, int members, zqsize_t size)
{
    const string block(std::min<zqsize_t>(size, 65536), '\0');
    zqosstream member;
    {
        const auto gzip = std::make_unique<zqogzstream>(&member, false);
        for (zqsize_t left = size; left > 0; left -= std::min<zqsize_t>(left, block.size()))
            gzip->write(block, left);
    }
    const auto file = std::make_unique<zqofstream>(name);
    for (const string bytes = member.str(); members > 0; --members) file->write(bytes);
}

// 'size' bytes of plain text that come through a pipe.
zqsize_t readPipe(zqsize_t size)
{
    int ends[2];
    if (::pipe(ends) != 0) return 0;
    std::thread writer([&] {
        const string block(65536, 'p');
        for (zqsize_t sent = 0; sent < size; sent += block.size())
            if (::write(ends[1], block.data(), block.size()) < 0) break;
        ::close(ends[1]);
    });
    auto pipe = std::make_unique<zqifstream>();
    pipe->openfd(ends[0], true);
    const zqsize_t total = readAll(*std::make_unique<zqigzstream>(pipe.release(), true));
    writer.join();
    return total;
}

// The same work on little data, on some and on four times as much.
template <class Work> void flat(const char* what, zqsize_t little, zqsize_t some, Work work)
{
    double growth = 0;
    measured(growth, [&] { work(little); });
    const double once = measured(growth, [&] { work(some); });
    const double fourfold = measured(growth, [&] { work(4 * some); });
    report((string(what) + ": memory").c_str(), growth, "KiB", growthLimit);
    report((string(what) + ": time for 4 times as much").c_str(), fourfold / once, "times",
           ratioLimit);
}

void expect(bool condition, const char* what)
{
    if (!condition) report(what, 1, "", 0);
}

// A call of everything that may want much stack.
void everything(const string& directory)
{
    string text, packed, name(3000, 'n');
    std::vector<float> floats(100000, 1.5f);
    floats[0] = 0;
    zqosstream* out = new zqosstream;
    const std::unique_ptr<zqosstream> owner(out);
    ZQ_io_write_binary_compressed(*out, floats.data(), 12, 100000);
    const auto in = std::make_unique<zqisstream>();
    in->set(out->str());
    ZQ_io_read_binary_compressed(*in, floats.data(), 12, 100000);
    in->set(string(100000, '7') + " 1.5");
    *in >> floats[0];
    in->set(string(100000, 'x'));
    in->getline(text, 100000);
    *out << 1.7976931348623157e308;
    for (const char* method : {"gz", "zstd"})
        expect(ZQCompress(packed, out->str(), method) && ZQUncompress(text, packed, method),
               method);
    ZQGetVersions(*out);
    ZQGetAbsolutePath(directory);
    ZQGetCurrentWorkingDirectory();
    ZQGetHostName(), ZQGetDomainName(), ZQGetIPAddress(), ZQGetPlatformInfo(), ZQGetProcessorInfo();
    ZQGetUserName(), ZQGetUserHomeDir(), ZQCurrentTime(), ZQToolkitsGetRelease();
    ZQProcessFileName(("~root/" + name).c_str());
    expect(ZQFile(directory).IsDirectory() && ZQFile(directory, name).DirContents().empty(),
           "file");
}

struct Flat : ZQThread {
    void* Run(void* place) override
    {
        const string directory = static_cast<const char*>(place), file = directory + "/f";
        everything(directory);
        flat("bomb of 64 MiB", mebibyte, 16 * mebibyte, [&](zqsize_t size) {
            writeMembers(file, 1, size);
            expect(readFile(file) == size, "bomb");
        });
        flat("20,000 members of 100 bytes", 100, 5000, [&](zqsize_t members) {
            writeMembers(file, int(members), 100);
            expect(readFile(file) == 100 * members, "members");
        });
        flat("20,000 empty members", 100, 5000, [&](zqsize_t members) {
            writeMembers(file, int(members), 0);
            expect(readFile(file) == 0, "empty members");
        });
        flat("4 GiB of plain data through a pipe", mebibyte, 1024 * mebibyte,
             [&](zqsize_t size) { expect(readPipe(size) == size, "pipe"); });
        const long before = descriptors();
        flat("1,000,000 times open, read, close", 1000, 250000, [&](zqsize_t times) {
            writeMembers(file, 1, 100);
            std::ofstream(directory + "/p") << "plain";
            for (zqsize_t i = 0; i < times; i += 2)
                expect(readFile(file) == 100 && readFile(directory + "/p") == 5, "open");
        });
        report("descriptors left", double(descriptors() - before), "", 0);
        return nullptr;
    }
};

}  // namespace

int main()
{
    string directory = "/tmp/flat_XXXXXX";
    if (!::mkdtemp(directory.data())) return 1;
    Flat work;
    work.SetStackSize(stackSize);
    if (!work.Start(directory.data())) return 1;
    work.Join();
    std::filesystem::remove_all(directory);
    return failures != 0;
}
