#include "race.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <malloc.h>
#include <map>
#include <random>
#include <sys/resource.h>
#include <unistd.h>

// ---- the table

namespace {

std::map<string, Goals> goalsOf;  // by the name of the row
int rounds = 51;
double turn = 0.0005;  // seconds

template <class... Values> string text(const char* format, Values... values)
{
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, format, values...);
    return buffer;
}

string time(double value)
{
    const char* unit = "ns";
    for (const char* larger : {"µs", "ms"})
        if (value >= 1000) value /= 1000, unit = larger;
    return text("%.*f %s", (value < 10) + (value < 100), value, unit);
}

// A ratio beside its goal; a missed one stands out.
string against(double ratio, double goal, bool& met)
{
    if (ratio == 0) return "";
    if (goal == 0) return text("%.2f", ratio);
    if (ratio <= goal + 0.005) return text("%.2f ≤ %.2f", ratio, goal);
    met = false;
    return text("**%.2f** > %.2f", ratio, goal);
}

// Prints a row as soon as it has been run, and the remarks at the end.
class Table : public benchmark::BenchmarkReporter {
public:
    bool ReportContext(const Context&) override { return true; }
    void ReportRuns(const std::vector<Run>& runs) override
    {
        for (const Run& run : runs) print(run.run_name.function_name, run.counters);
        std::fflush(stdout);
    }
    void Finalize() override
    {
        if (!_remarks.empty()) std::printf("\n%s", _remarks.c_str());
    }

private:
    void print(const string& name, const benchmark::UserCounters& times)
    {
        const auto slash = name.find('/');
        const string group = name.substr(0, slash), job = name.substr(slash + 1);
        if (group != _group) heading(group);
        _group = group;

        double ours = 0, limit = 0;
        std::vector<std::pair<double, string>> peers;
        for (const auto& [contestant, nanoseconds] : times)
            if (contestant == "ours")
                ours = nanoseconds;
            else if (contestant == "limit")
                limit = nanoseconds;
            else
                peers.emplace_back(nanoseconds, contestant);
        std::sort(peers.begin(), peers.end());
        string list;
        for (const auto& [nanoseconds, peer] : peers)
            list += (list.empty() ? "" : ", ") + peer + " " + time(nanoseconds);

        const Goals& goals = goalsOf[name];
        const double toPeer = peers.empty() ? 0 : ours / peers[0].first;
        bool met = true;
        for (const string& cell : {job, time(ours), list, limit == 0 ? "" : time(limit),
                                   against(toPeer, goals.peer, met),
                                   against(limit ? ours / limit : 0, goals.limit, met)})
            std::printf("| %s ", cell.c_str());
        std::printf("| %s |\n", met ? "met" : "**missed**");
        if (*goals.remark && (toPeer > 1 || !met))
            _remarks += "- " + job + ": " + goals.remark + "\n";
    }
    void heading(const string& group)
    {
        if (_group.empty())
            std::puts("| job | ours | peers, the best first | limit | ours / best peer "
                      "| ours / limit | goals |\n|---|--:|---|--:|--:|--:|---|");
        std::printf("| **%s** |||||||\n", group.c_str());
    }

    string _group, _remarks;
};

}  // namespace

// ---- the race

void row(const string& name, Goals goals, std::function<void(Race&)> body)
{
    goalsOf[name] = goals;
    const auto run = [=](benchmark::State& state) {
        Race race(state, name);
        body(race);
    };
    benchmark::RegisterBenchmark(name.c_str(), run)->Iterations(rounds)->UseManualTime();
}

void Race::leaves(std::function<string()> product, std::function<void()> wipe)
{
    _product = product;
    _wipe = wipe;
}

void Race::leavesFile(const string& path)
{
    leaves([=] { return slurp(path); }, [=] { std::filesystem::resize_file(path, 0); });
}

// Runs every contestant once; that is its warm-up, too.
void Race::compare()
{
    std::uint64_t sum = 0;
    string product;
    for (const Contestant& each : _contestants) {
        _wipe();
        const std::uint64_t itsSum = each.pass();
        const string its = _product();
        if (&each == &_contestants[0]) sum = itsSum, product = its;
        if (!each.isCompared || (itsSum == sum && its == product)) continue;
        std::fprintf(stderr, "%s, %s: another %s than ours\n", _job.c_str(), each.name.c_str(),
                     itsSum == sum ? "product" : "checksum");
        std::exit(1);
    }
}

void Race::run(double units, double (*clock)())
{
    const auto timed = [=](const Contestant& each) {
        const double before = clock();
        for (int i = 0; i < each.repeats; ++i) benchmark::DoNotOptimize(each.pass());
        return (clock() - before) / each.repeats;
    };
    compare();
    for (Contestant& each : _contestants)
        each.repeats = static_cast<int>(std::max(1.0, turn / timed(each)));
    for (auto _ : _state) {
        double round = 0;
        for (Contestant& each : _contestants) {
            each.times.push_back(timed(each));
            round += each.times.back();
        }
        _state.SetIterationTime(round);
        std::rotate(_contestants.begin(), _contestants.begin() + 1, _contestants.end());
    }
    for (auto& [name, pass, isCompared, repeats, times] : _contestants) {
        const auto middle = times.begin() + times.size() / 2;
        std::nth_element(times.begin(), middle, times.end());
        _state.counters[name] = *middle / units * 1e9;
    }
}

// ---- what the groups share

static double secondsOf(clockid_t clock)
{
    struct timespec now;
    ::clock_gettime(clock, &now);
    return now.tv_sec + now.tv_nsec * 1e-9;
}
double threadSeconds() { return secondsOf(CLOCK_THREAD_CPUTIME_ID); }
double wallSeconds() { return secondsOf(CLOCK_MONOTONIC); }
double commandSeconds()
{
    struct rusage used;
    ::getrusage(RUSAGE_CHILDREN, &used);
    return used.ru_utime.tv_sec + used.ru_stime.tv_sec +
           (used.ru_utime.tv_usec + used.ru_stime.tv_usec) * 1e-6;
}

std::uint64_t randomNumber()
{
    static std::mt19937_64 numbers(1);
    return numbers();
}

const string& scratch()
{
    namespace fs = std::filesystem;
    static const struct Directory {
        Directory()
        {
            if (!::mkdtemp(path.data())) std::exit(1);
        }
        ~Directory() { fs::remove_all(path); }
        string path =
            (fs::exists("/dev/shm") ? "/dev/shm" : fs::temp_directory_path()) / "zqbench_XXXXXX";
    } directory;
    return directory.path;
}

string scratchFile(const string& name, const string& content)
{
    const string path = scratch() + "/" + name;
    std::ofstream(path, std::ios::binary) << content;
    return path;
}

string slurp(const string& path)
{
    std::ifstream file(path, std::ios::binary);
    return string(std::istreambuf_iterator<char>(file), {});
}

string proseOf(std::size_t size)
{
    std::vector<string> vocabulary(4000);
    for (string& word : vocabulary)
        for (auto letters = 2 + randomNumber() % 9; letters != 0; --letters)
            word += static_cast<char>('a' + randomNumber() % 26);
    string text;
    for (int words = 1; text.size() < size; ++words) {
        // Few words are frequent, most are rare.
        const double place = (randomNumber() >> 11) * 0x1p-53;
        text += vocabulary[static_cast<std::size_t>(4000 * place * place * place)];
        text += words % 10 == 0 ? '\n' : ' ';
    }
    text.resize(size - 2);
    return text + "s\n";
}

bool execute(const string& command, const string& output)
{
    return std::system(("exec " + command + " >" + output).c_str()) == 0;
}

// "check" compares the results, and takes the times of one pass each.
int main(int argc, char** argv)
{
    ::setenv("TMPDIR", scratch().c_str(), 1);
    // Memory once taken is kept: pages new from the system would cost more than what is compared.
    ::mallopt(M_MMAP_THRESHOLD, 1 << 30);
    ::mallopt(M_TRIM_THRESHOLD, 1 << 30);
    benchmark::Initialize(&argc, argv);
    const bool onlyCompares = argc > 1 && argv[1] == string("check");
    if (onlyCompares) rounds = 1, turn = 0;
    for (const auto addRows : {textRows, binaryRows, packedRows, gzipRows, fileRows, threadRows})
        addRows();
    Table table;
    benchmark::RunSpecifiedBenchmarks(&table);
    if (!onlyCompares && benchmark::GetBenchmarkFilter().empty()) printScale();
}
