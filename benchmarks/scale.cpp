// What has to stay the same, whatever the size: calls of the platform, allocations, times.

#include "streams.h"

#include <algorithm>
#include <cstdlib>
#include <new>

// ---- every allocation of the program, counted

static long allocations;

void* operator new(std::size_t n)
{
    ++allocations;
    if (void* block = std::malloc(n)) return block;
    throw std::bad_alloc();
}
void* operator new(std::size_t n, std::align_val_t alignment)
{
    ++allocations;
    const auto to = static_cast<std::size_t>(alignment);
    if (void* block = std::aligned_alloc(to, (n + to - 1) / to * to)) return block;
    throw std::bad_alloc();
}
void operator delete(void* block) noexcept { std::free(block); }
void operator delete(void* block, std::align_val_t) noexcept { std::free(block); }
void operator delete(void* block, std::size_t, std::align_val_t) noexcept { std::free(block); }
void operator delete(void* block, std::size_t) noexcept { std::free(block); }

namespace {

template <class Work> double allocationsOf(Work work)
{
    const long before = allocations;
    work();
    return static_cast<double>(allocations - before);
}

// How often the process has called read (or write) so far.
long callsSoFar(const char* counter)
{
    const string counters = slurp("/proc/self/io");
    return std::atol(counters.c_str() + counters.find(counter) + std::strlen(counter));
}

template <class Work> double callsOf(const char* counter, Work work)
{
    const long idle = callsSoFar(counter), before = callsSoFar(counter);
    work();
    return static_cast<double>(callsSoFar(counter) - before - (before - idle));
}

// Nanoseconds of one of 'count' calls, in the fastest of several series.
template <class Work> double nanoseconds(int count, Work work)
{
    std::vector<double> times;
    for (int series = 0; series < 31; ++series) {
        const double before = seconds();
        for (int i = 0; i < count; ++i) work();
        times.push_back((seconds() - before) / count * 1e9);
    }
    return *std::min_element(times.begin(), times.end());
}

void fact(const char* what, double value, double goal, const char* unit)
{
    std::printf("| %s | %.*f%s | %g%s | %s |\n", what, value < 10 && value != 0 ? 2 : 0, value,
                unit, goal, unit, value <= goal ? "met" : "**missed**");
}

// Nanoseconds for a KiB of a file of this size, read as lines.
double costOfLines(std::size_t size)
{
    string content;
    while (content.size() < size) content += "a line of text with forty bytes, no more\n";
    const string path = scratchFile("sized", content);
    string line;
    return nanoseconds(size < 1 << 20 ? 64 : 1,
                       [&] {
                           zqifstream in(path);
                           while (in.getline(line)) {}
                       }) /
           static_cast<double>(content.size()) * 1024;
}

double costOfOpening(const string& path)
{
    return nanoseconds(1000, [&] { ZQCloseIStream(ZQOpenIStream(path)); });
}

double libraryText()
{
    std::FILE* size = ::popen("size -B " BENCH_LIBRARY " | tail -n 1", "r");
    double text = 0;
    if (std::fscanf(size, "%lf", &text) != 1) text = 0;
    ::pclose(size);
    return text / 1000;
}

// What starting a program with the library costs more than starting it with zlib and zstd.
double startUp()
{
    double ours = 1, theirs = 1;
    for (int i = 0; i < 101; ++i)
        for (auto [program, fastest] :
             {std::pair(BENCH_START_OURS, &ours), {BENCH_START_THEIRS, &theirs}}) {
            const double before = seconds(CLOCK_MONOTONIC);
            if (!spawn({program}, "/dev/null")) std::abort();
            *fastest = std::min(*fastest, seconds(CLOCK_MONOTONIC) - before);
        }
    return (ours - theirs) * 1000;
}

}  // namespace

void printScale()
{
    constexpr std::size_t mebibyte = 1 << 20;
    const string path = scratchFile("mebibyte", string(mebibyte, 'x'));
    const string lines = scratchFile("lines", [] {
        string text;
        for (int i = 0; i < 100000; ++i) text += "line " + std::to_string(i) + "\n";
        return text;
    }());
    std::puts("\n| what stays the same | measured | at most | goals |\n|---|--:|--:|---|");

    char block[1024];
    std::memset(block, 'x', sizeof block);
    fact("calls of write for a MiB",
         callsOf("syscw: ",
                 [&] {
                     zqofstream out(path);
                     for (std::size_t i = 0; i < mebibyte; i += sizeof block)
                         out.write(block, sizeof block);
                 }),
         16, "");
    fact("calls of read for a MiB",
         callsOf("syscr: ",
                 [&] {
                     zqifstream in(path);
                     for (std::size_t i = 0; i < mebibyte; i += sizeof block)
                         in.read(block, sizeof block);
                 }),
         16, "");

    zqifstream again(path);
    fact("allocations to open a stream again", allocationsOf([&] { again.open(path); }), 0, "");
    zqistream* in = nullptr;
    fact("allocations of ZQOpenIStream", allocationsOf([&] { in = ZQOpenIStream(path.c_str()); }),
         1, "");
    ZQCloseIStream(in);
    fact("allocations for 1000 lines", allocationsOf([&] {
                                           zqifstream file(lines);
                                           for (string line; file.getline(line);) {}
                                       }) / 100,
         0.1, "");

    // On the stack, a caller with probed stacks would pay for the probing, too.
    alignas(zqifstream) static unsigned char place[sizeof(zqifstream)];
    fact("construct and destroy a stream",
         nanoseconds(10000,
                     [] {
                         auto* const stream = new (place) zqifstream;
                         benchmark::DoNotOptimize(stream);
                         stream->~zqifstream();
                     }),
         15, " ns");
    fact("a KiB of a file of 64 MiB, against one of 64 KiB",
         costOfLines(64 * mebibyte) / costOfLines(65536), 1.1, "");
    const double before = costOfOpening(path);
    for (int i = 0; i < 1000; ++i)
        ZQRegisterIStream(("prefix-" + std::to_string(i)).c_str(),
                          [](const char*) -> zqistream* { return nullptr; }, nullptr);
    fact("opening with 1000 prefixes, against none", costOfOpening(path) / before, 1.1, "");
    fact("size of the library's code", libraryText(), 300, " KB");
    fact("start of a program, beyond that of zlib and zstd", startUp(), 0.3, " ms");
}
