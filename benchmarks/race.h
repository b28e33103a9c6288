// Races: this library, what a user would pick instead, and what the machine allows at best.
//
//   row("text/line of 40 bytes, from a file into a string", {0.85, 1.5}, [](Race& race) {
//       ... the input ...
//       race.ours([&] { ...; return checksum; });
//       race.peer("getline(3)", [&] { ...; return checksum; });
//       race.limit([&] { ...; return checksum; });
//       race.run(lines);
//   });
//
// The contestants take turns, half a millisecond or more each, so that whatever the machine does
// meets all of them; their times are medians. A contestant whose result is another than ours ends
// the program.

#pragma once

#include "zqplatform.h"

#include <benchmark/benchmark.h>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <functional>
#include <string>
#include <vector>

using namespace ZQPlatform;
using std::string;

// The work of this thread, that of commands that it ran, and the time of the wall's clock.
double threadSeconds();
double commandSeconds();
double wallSeconds();

class Race {
public:
    Race(benchmark::State& state, const string& job) : _state(state), _job(job) {}

    // 'work' does the work once, and returns a checksum of what came out, or nothing.
    template <class Work> void ours(Work work) { add("ours", work, true); }
    template <class Work> void peer(const char* name, Work work) { add(name, work, true); }
    template <class Work> void limit(Work work) { add("limit", work, true); }
    // A limit that does less, such as moving the bytes unchanged: its result is not compared.
    template <class Work> void bareLimit(Work work) { add("limit", work, false); }

    // For contestants that write: how to read back what one of them has left, and how to take it
    // away before the next.
    void leaves(std::function<string()> product, std::function<void()> wipe);
    void leavesFile(const string& path);
    template <class Values> void leavesValues(Values& values)
    {
        char* const first = reinterpret_cast<char*>(values.data());
        const std::size_t size = values.size() * sizeof values[0];
        leaves([=] { return string(first, size); }, [=] { std::memset(first, 0, size); });
    }

    // 'units': what one call of each handles. The default clock is that of this thread's work, so
    // that other programs on the machine do not count.
    void run(double units, double (*clock)() = threadSeconds);

private:
    using Pass = std::function<std::uint64_t()>;
    struct Contestant {
        string name;
        Pass pass;
        bool isCompared;
        int repeats = 1;
        std::vector<double> times = {};
    };
    template <class Work> void add(const char* name, Work work, bool isCompared)
    {
        if constexpr (std::is_void_v<decltype(work())>)
            _contestants.push_back({name, [=] { return work(), 0; }, isCompared});
        else
            _contestants.push_back({name, work, isCompared});
    }
    void compare();

    std::vector<Contestant> _contestants;
    std::function<string()> _product = [] { return string(); };
    std::function<void()> _wipe = [] {};
    benchmark::State& _state;
    const string _job;
};

// At most these ratios of our time to the best peer's and to the limit's; 0: none. The remark is
// printed where ours is not first or misses one.
struct Goals {
    double peer, limit;
    const char* remark = "";
};

// Adds a row to the table; 'name' is its group, a slash, and its job.
void row(const string& name, Goals goals, std::function<void(Race&)> race);

// ---- the groups, each in its own file

void textRows();
void binaryRows();
void packedRows();
void gzipRows();
void fileRows();
void threadRows();
// Prints the second table: what stays the same whatever the size.
void printScale();

// ---- what they share

// A directory in memory that goes at the end of the program.
const string& scratch();
// A file there with this content.
string scratchFile(const string& name, const string& content);
string slurp(const string& path);
std::uint64_t randomNumber();      // the same sequence in every run
string proseOf(std::size_t size);  // compresses as text does
// Runs a command of the shell with its output to a file. False where it failed.
bool execute(const string& command, const string& output);
