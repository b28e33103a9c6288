// What has to stay the same, whatever the size: calls of the platform, allocations, times.

#include "streams.h"

#include <algorithm>
#include <malloc.h>
#include <new>

// ---- every allocation of the program, counted

static long allocations;

void* operator new(size_t n)
{
    ++allocations;
    if (void* block = std::malloc(n)) return block;
    throw std::bad_alloc();
}
void* operator new(size_t n, std::align_val_t alignment)
{
    ++allocations;
    if (void* block = ::memalign(size_t(alignment), n)) return block;
    throw std::bad_alloc();
}
void operator delete(void* block) noexcept { std::free(block); }
void operator delete(void* block, std::align_val_t) noexcept { std::free(block); }
void operator delete(void* block, size_t, std::align_val_t) noexcept { std::free(block); }
void operator delete(void* block, size_t) noexcept { std::free(block); }

namespace {

string remarks;  // on goals that are missed

void fact(const char* what, double value, double goal, const char* unit = "",
          const char* remark = "")
{
    if (value > goal && *remark) remarks += string("- ") + what + ": " + remark + "\n";
    std::printf("| %s | %.*f%s | %g%s | %s |\n", what, value < 10 && value != 0 ? 2 : 0, value,
                unit, goal, unit, value <= goal ? "met" : "**missed**");
}

template <class Work> double allocationsOf(Work work)
{
    const long before = allocations;
    work();
    return allocations - before;
}

// How often 'work' calls read ("syscr: ") or write ("syscw: ").
template <class Work> double callsOf(const char* counter, Work work)
{
    const auto soFar = [=] {
        const string counters = slurp("/proc/self/io");
        return std::atol(counters.c_str() + counters.find(counter) + std::strlen(counter));
    };
    const long idle = soFar(), before = soFar();
    work();
    return soFar() - before - (before - idle);
}

// Nanoseconds of one of 'count' calls, in the fastest of several series.
template <class Work> double nanoseconds(int count, Work work)
{
    double fastest = 1;
    for (int series = 0; series < 31; ++series) {
        const double before = threadSeconds();
        for (int i = 0; i < count; ++i) work();
        fastest = std::min(fastest, (threadSeconds() - before) / count);
    }
    return fastest * 1e9;
}

// Nanoseconds for a KiB of a file of this size, read as lines.
double costOfLines(size_t size)
{
    string content;
    while (content.size() < size) content += "a line of text with forty bytes, no more\n";
    const string path = scratchFile("sized", content);
    return nanoseconds(size < 1 << 20 ? 64 : 1, with<OurInput>(path, eachLine)) / content.size() *
           1024;
}

double costOfOpening(const string& path)
{
    return nanoseconds(1000, [&] { ZQCloseIStream(ZQOpenIStream(path)); });
}

// What starting a program with the library costs more than starting it with zlib and zstd.
double millisecondsOfStarting()
{
    const char* const programs[] = {BENCH_START_OURS, BENCH_START_THEIRS};
    double fastest[] = {1, 1};
    for (int turn = 0; turn < 202; ++turn) {
        const double before = wallSeconds();
        execute(programs[turn % 2], "/dev/null");
        fastest[turn % 2] = std::min(fastest[turn % 2], wallSeconds() - before);
    }
    return (fastest[0] - fastest[1]) * 1000;
}

double kilobytesOfCode()
{
    const string output = scratchFile("size", "");
    execute("size -B " BENCH_LIBRARY " | tail -n 1", output);
    return std::atof(slurp(output).c_str()) / 1000;
}

}  // namespace

void printScale()
{
    constexpr size_t mebibyte = 1 << 20;
    const string path = scratchFile("mebibyte", string(mebibyte, 'x'));
    string lines;
    for (int i = 0; i < 100000; ++i) lines += "line " + std::to_string(i) + "\n";
    lines = scratchFile("lines", lines);
    std::puts("\n| what stays the same | measured | at most | goals |\n|---|--:|--:|---|");

    static char block[1024];
    fact("calls of write for a MiB",
         callsOf("syscw: ", with<OurOutput>(path,
                                            [&](auto& out) {
                                                for (size_t i = 0; i < mebibyte; i += sizeof block)
                                                    out.put(block, sizeof block);
                                            })),
         16);
    fact("calls of read for a MiB",
         callsOf("syscr: ", with<OurInput>(path,
                                           [&](auto& in) {
                                               for (size_t i = 0; i < mebibyte; i += sizeof block)
                                                   in.get(block, sizeof block);
                                           })),
         16);

    zqifstream again(path);
    zqistream* in = nullptr;
    fact("allocations to open a stream again", allocationsOf([&] { again.open(path); }), 0);
    fact("allocations of ZQOpenIStream", allocationsOf([&] { in = ZQOpenIStream(path.c_str()); }),
         1);
    ZQCloseIStream(in);
    again.open(lines);
    fact("allocations for 1000 lines", allocationsOf([&] {
                                           for (string line; again.getline(line);) {}
                                       }) / 100,
         0.1);

    // On the stack, a caller with probed stacks would pay for the probing, too.
    alignas(zqifstream) static unsigned char place[sizeof(zqifstream)];
    fact("construct and destroy a stream",
         nanoseconds(10000,
                     [] {
                         auto* const stream = new (place) zqifstream;
                         benchmark::DoNotOptimize(stream);
                         stream->~zqifstream();
                     }),
         15, " ns", "51 instructions; the same take 11 ns while the processor runs fast");
    fact("a KiB of a file of 64 MiB, against one of 64 KiB",
         costOfLines(64 * mebibyte) / costOfLines(65536), 1.1, "",
         "the larger file does not fit the caches");
    const double before = costOfOpening(path);
    for (int i = 0; i < 1000; ++i)
        ZQRegisterIStream(("prefix-" + std::to_string(i)).c_str(),
                          [](const char*) -> zqistream* { return nullptr; }, nullptr);
    fact("opening with 1000 prefixes, against none", costOfOpening(path) / before, 1.1);
    fact("size of the library's code", kilobytesOfCode(), 300, " KB");
    fact("start of a program, beyond that of zlib and zstd", millisecondsOfStarting(), 0.3, " ms",
         "a third of it sets up the standard streams of C++, which a program with iostreams has "
         "to do anyway");
    if (!remarks.empty()) std::printf("\n%s", remarks.c_str());
}
