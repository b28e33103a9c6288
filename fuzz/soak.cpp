// Four threads do mixed work for a while (180 seconds, or as many as the argument says). Resident
// memory, open descriptors and temporary files are looked at every second and printed every ten.
//
// Fails where the line of least squares through the second half of the looks rises, over that
// half, by more than 2048 KiB, 2 descriptors or 2 files; where anything read back differs; and
// where descriptors or files are left at the end.

#include "platform/zqplatform.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

using namespace ZQPlatform;
using std::string;

namespace {

constexpr double limits[] = {2048, 2, 2};
const char* const names[] = {"resident KiB", "descriptors", "files"};

std::atomic<bool> stop;
std::atomic<unsigned long> rounds;

void require(bool condition, const char* what)
{
    if (condition) return;
    std::printf("FAILED: %s\n", what);
    std::fflush(stdout);
    std::_Exit(1);
}

string sample(unsigned int& state, size_t length)
{
    string text(length, ' ');
    for (char& c : text)
        c = "etaoin shrdlu\n012"[(state = state * 1103515245u + 12345u) >> 16 & 15];
    return text;
}

void files(const string& name, const string& text)
{
    zqostream* out = ZQOpenOStream(name);
    require(out && out->write(text) == text.size(), "writing a file");
    ZQCloseOStream(out);
    zqistream* in = ZQOpenIStream(name);
    string back, line;
    require(in && in->getline(line) && in->seek(0), "opening it again");
    in->read(back);
    ZQCloseIStream(in);
    require(back == text, "reading it back");
}

void buffers(const string& text)
{
    string packed, back;
    for (const char* method : {"gz", "zstd"}) {
        require(ZQCompress(packed, text, method), "compressing");
        back.clear();
        require(ZQUncompress(back, packed, method) && back == text, "uncompressing");
    }
    // Damage may look like a cut, which the next call continues; this is no part of any frame.
    packed[packed.size() / 2] ^= 0x55;
    ZQUncompress(back, packed, "zstd");  // result ignored: whatever it is, it is got over
    while (ZQUncompress(back, string(65536, '\xFF'), "zstd")) back.clear();
}

void arrays(const string& text)
{
    std::vector<unsigned int> values(text.begin(), text.end()), back(values.size());
    const auto count = static_cast<unsigned int>(values.size());
    const unsigned int width = ZQ_io_util_calc_NumBits(values.data(), count);
    zqosstream out;
    ZQ_io_write_binary_compressed(out, values.data(), width, count);
    zqisstream in;
    in.set(out.str());
    ZQ_io_read_binary_compressed(in, back.data(), width, count);
    require(back == values, "packed arrays");
}

void temporaries(const string& directory)
{
    string name;
    const int fd = ZQFileTempDescriptor(name);
    {
        zqofstream out(fd);
        out << "temporary" << zqendl;
    }
    require(fd != -1 && ZQFileSize(name) == 10 && ZQUnlink(name), "a temporary file");
    const string inner = ZQFileTempDirectory(directory);
    int entries = 0;
    for (ZQDirectoryScan scan(directory); scan.Next();) ++entries;
    require(entries >= 3 && ZQUnlinkDirectory(inner), "a temporary directory");
}

struct Counter : ZQThread {
    void* Run(void* lock) override
    {
        const ZQMutexGuard guard(*static_cast<ZQMutex*>(lock));
        ++count;
        return this;
    }
    static inline int count = 0;
};

void threads()
{
    static ZQMutex lock;
    Counter counters[2];
    for (Counter& counter : counters) require(counter.Start(&lock), "starting a thread");
    for (Counter& counter : counters) require(counter.Join() == &counter, "joining it");
}

struct Worker : ZQThread {
    void* Run(void* seed) override
    {
        auto state = static_cast<unsigned int>(reinterpret_cast<std::size_t>(seed));
        const string directory = ZQFileTempDirectory();
        while (!stop) {
            state = state * 69069u + 1;
            const string text = sample(state, state >> 15) + '\n';
            files(directory + "/plain", text);
            files(directory + "/packed.gz", text);
            buffers(text);
            arrays(text);
            temporaries(directory);
            threads();
            ++rounds;
        }
        std::filesystem::remove_all(directory);
        return nullptr;
    }
};

std::vector<double> look()
{
    unsigned long total = 0, resident = 0;
    ZQGetProcessMemUsage(total, resident);
    double counts[] = {0, 0};
    for (ZQDirectoryScan scan("/proc/self/fd"); scan.Next();) ++counts[0];
    for (ZQDirectoryScan scan(ZQFileTempPath()); scan.Next();) ++counts[1];
    return {double(resident), counts[0], counts[1]};
}

// By how much the line through the second half of the looks rises over that half.
double rise(const std::vector<std::vector<double>>& looks, size_t column)
{
    double n = 0, x = 0, y = 0, xx = 0, xy = 0;
    for (size_t i = looks.size() / 2; i < looks.size(); ++i) {
        const double at = double(i), value = looks[i][column];
        n += 1, x += at, y += value, xx += at * at, xy += at * value;
    }
    return (n * xy - x * y) / (n * xx - x * x) * n;
}

}  // namespace

int main(int argc, char** argv)
{
    const int seconds = argc > 1 ? std::atoi(argv[1]) : 180;
    require(seconds >= 4, "at least 4 seconds");
    string own = "/tmp/soak_XXXXXX";  // before the library looks for a place of its own
    require(::mkdtemp(own.data()) && ::setenv("TMPDIR", own.c_str(), 1) == 0, "a place for files");
    std::vector<std::vector<double>> looks;
    const auto before = look();
    Worker workers[4];
    for (size_t i = 0; i < 4; ++i) workers[i].Start(reinterpret_cast<void*>(i + 1));
    std::printf("%8s %8s %13s %12s %6s\n", "seconds", "rounds", names[0], names[1], names[2]);
    for (int second = 1; second <= seconds; ++second) {
        ZQSleep(1000);
        looks.push_back(look());
        if (second % 10 == 0)
            std::printf("%8d %8lu %13.0f %12.0f %6.0f\n", second, rounds.load(), looks.back()[0],
                        looks.back()[1], looks.back()[2]);
        std::fflush(stdout);
    }
    stop = true;
    for (Worker& worker : workers) worker.Join();
    const auto after = look();
    bool level = true;
    for (size_t i = 0; i < 3; ++i) {
        std::printf("%-13s rise over the second half %8.1f (at most %.0f)\n", names[i],
                    rise(looks, i), limits[i]);
        level = level && rise(looks, i) <= limits[i];
    }
    require(level, "level memory, descriptors and files");
    require(after[1] == before[1] && after[2] <= before[2], "nothing left at the end");
    std::filesystem::remove_all(own);
}
