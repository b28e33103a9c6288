#include "race.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <malloc.h>
#include <map>
#include <random>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int rounds = 51;
constexpr double turn = 0.0005;  // seconds

struct Row {
    string group, job;
    Goals goals;
    string remark;
};
std::map<string, Row> rows;  // by the name of the benchmark

void wrong(const string& job, const string& contestant, const char* what)
{
    std::fprintf(stderr, "%s, %s: another %s than ours\n", job.c_str(), contestant.c_str(), what);
    std::exit(1);
}

// ---- the table

string time(double nanoseconds)
{
    const struct {
        double unit;
        const char* name;
    } units[] = {{1e6, "ms"}, {1e3, "µs"}, {1, "ns"}};
    for (const auto& unit : units)
        if (nanoseconds >= unit.unit || unit.unit == 1) {
            const double value = nanoseconds / unit.unit;
            char text[32];
            std::snprintf(text, sizeof text, "%.*f %s",
                          value < 10    ? 2
                          : value < 100 ? 1
                                        : 0,
                          value, unit.name);
            return text;
        }
    return {};
}

// A ratio beside its goal; a missed one stands out.
string against(double ratio, double goal, bool& met)
{
    if (ratio == 0) return "";
    char text[32];
    const bool isMet = goal == 0 || ratio <= goal + 0.005;
    std::snprintf(text, sizeof text,
                  goal == 0 ? "%.2f"
                  : isMet   ? "%.2f ≤ %.2f"
                            : "**%.2f** > %.2f",
                  ratio, goal);
    met = met && isMet;
    return text;
}

// Prints a row as soon as it has been run, and the remarks at the end.
class Table : public benchmark::BenchmarkReporter {
public:
    bool ReportContext(const Context&) override { return true; }

    void ReportRuns(const std::vector<Run>& runs) override
    {
        for (const Run& run : runs) print(rows.at(run.run_name.function_name), run.counters);
        std::fflush(stdout);
    }

    void Finalize() override
    {
        if (!_remarks.empty()) std::printf("\n%s", _remarks.c_str());
    }

private:
    void print(const Row& row, const benchmark::UserCounters& times)
    {
        std::vector<std::pair<double, string>> peers;
        double ours = 0, limit = 0;
        for (const auto& [name, counter] : times)
            if (name == "ours")
                ours = counter.value;
            else if (name == "limit")
                limit = counter.value;
            else
                peers.emplace_back(counter.value, name);
        std::sort(peers.begin(), peers.end());
        if (row.group != _group) heading(row.group);

        string list;
        for (const auto& [nanoseconds, name] : peers)
            list += (list.empty() ? "" : ", ") + name + " " + time(nanoseconds);
        bool met = true;
        const double toPeer = peers.empty() ? 0 : ours / peers[0].first;
        const string cells[] = {row.job,
                                time(ours),
                                list,
                                limit == 0 ? "" : time(limit),
                                against(toPeer, row.goals.peer, met),
                                against(limit == 0 ? 0 : ours / limit, row.goals.limit, met)};
        for (const string& cell : cells) std::printf("| %s ", cell.c_str());
        std::printf("| %s |\n", met ? "met" : "**missed**");
        if (!row.remark.empty() && (toPeer > 1 || !met))
            _remarks += "- " + row.job + ": " + row.remark + "\n";
    }
    void heading(const string& group)
    {
        if (_group.empty())
            std::puts("| job | ours | peers, the best first | limit | ours / best peer "
                      "| ours / limit | goals |\n|---|--:|---|--:|--:|--:|---|");
        std::printf("| **%s** |||||||\n", group.c_str());
        _group = group;
    }

    string _group, _remarks;
};

}  // namespace

// ---- the race

void row(const char* group, const string& job, Goals goals, std::function<void(Race&)> body,
         const char* remark)
{
    const string name = string(group) + "/" + job;
    rows[name] = {group, job, goals, remark};
    benchmark::RegisterBenchmark(name.c_str(),
                                 [=](benchmark::State& state) {
                                     Race race(state, name);
                                     body(race);
                                 })
        ->Iterations(rounds)
        ->UseManualTime();
}

void Race::leavesFile(const string& path)
{
    leaves([path] { return slurp(path); }, [path] { std::filesystem::resize_file(path, 0); });
}

// Runs every contestant once; that is its warm-up, too.
void Race::compare()
{
    std::uint64_t sum = 0;
    string product;
    for (Contestant& each : _contestants) {
        _wipe();
        const std::uint64_t itsSum = each.pass();
        const string its = _product();
        if (&each == &_contestants[0]) sum = itsSum, product = its;
        if (!each.isCompared) continue;
        if (itsSum != sum) wrong(_job, each.name, "checksum");
        if (its != product) wrong(_job, each.name, "product");
    }
}

void Race::run(double units, clockid_t clock)
{
    compare();
    for (Contestant& each : _contestants) {
        const double before = seconds(clock);
        each.pass();
        each.repeats = std::max(1, static_cast<int>(turn / (seconds(clock) - before)));
    }
    std::size_t first = 0;
    for (auto _ : _state) {
        double round = 0;
        for (std::size_t i = 0; i < _contestants.size(); ++i) {
            Contestant& each = _contestants[(first + i) % _contestants.size()];
            const double before = seconds(clock);
            for (int repeat = 0; repeat < each.repeats; ++repeat)
                benchmark::DoNotOptimize(each.pass());
            each.times.push_back((seconds(clock) - before) / each.repeats);
            round += each.times.back();
        }
        ++first;
        _state.SetIterationTime(round);
    }
    for (Contestant& each : _contestants)
        _state.counters[each.name] = median(each.times) / units * 1e9;
}

// ---- what the families share

double median(std::vector<double> values)
{
    std::nth_element(values.begin(), values.begin() + values.size() / 2, values.end());
    return values[values.size() / 2];
}

double seconds(clockid_t clock)
{
    struct timespec now;
    ::clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

std::uint64_t randomNumber()
{
    static std::mt19937_64 numbers(1);
    return numbers();
}

const string& scratch()
{
    static const struct Directory {
        Directory()
        {
            if (!::mkdtemp(path.data())) std::exit(1);
        }
        ~Directory() { std::filesystem::remove_all(path); }
        string path = (std::filesystem::exists("/dev/shm")
                           ? string("/dev/shm")
                           : std::filesystem::temp_directory_path().string()) +
                      "/zqbench_XXXXXX";
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
        const double place = static_cast<double>(randomNumber() >> 11) * 0x1p-53;
        text += vocabulary[static_cast<std::size_t>(4000 * place * place * place)];
        text += words % 10 == 0 ? '\n' : ' ';
    }
    text.resize(size - 2);
    return text + "s\n";
}

bool spawn(std::vector<string> command, const string& output)
{
    std::vector<char*> arguments;
    for (string& word : command) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, output.c_str(), O_WRONLY, 0);
    pid_t child;
    int status = ::posix_spawnp(&child, arguments[0], &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    return status == 0 && ::waitpid(child, &status, 0) == child && status == 0;
}

int main(int argc, char** argv)
{
    ::setenv("TMPDIR", scratch().c_str(), 1);
    // Memory once taken is kept: pages new from the system would cost more than what is compared.
    ::mallopt(M_MMAP_THRESHOLD, 1 << 30);
    ::mallopt(M_TRIM_THRESHOLD, 1 << 30);
    benchmark::Initialize(&argc, argv);
    textRows();
    binaryRows();
    packedRows();
    gzipRows();
    fileRows();
    threadRows();
    Table table;
    benchmark::RunSpecifiedBenchmarks(&table);
    if (benchmark::GetBenchmarkFilter().empty()) printScale();
}
