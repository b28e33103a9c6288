// Locks, objects that are built once, and the time of day.

#include "race.h"

#include <atomic>
#include <mutex>

#ifdef BENCH_FMT
#include <fmt/chrono.h>
#endif

namespace {

constexpr int calls = 100000;

template <class Call> std::uint64_t repeat(Call call)
{
    std::uint64_t sum = 0;
    for (int i = 0; i < calls; ++i) sum += static_cast<std::uint64_t>(call());
    return sum;
}

template <class Mutex> std::uint64_t lockAndUnlock()
{
    static Mutex mutex;
    return repeat([] {
        mutex.lock();
        mutex.unlock();
        return 1;
    });
}

void mutexPair()
{
    row("threads", "mutex, locked and unlocked", {1.05, 2.0}, [](Race& race) {
        race.ours(lockAndUnlock<ZQMutex>);
        race.peer("std::mutex", lockAndUnlock<std::mutex>);
        race.limit([] {
            static std::atomic<int> taken;
            return repeat([] {
                for (int expected = 0; !taken.compare_exchange_strong(expected, 1);) expected = 0;
                taken.exchange(0);
                return 1;
            });
        });
        race.run(calls);
    });
}

struct Table {
    int rows = 7;
};

[[gnu::noinline]] int rowsByOnce()
{
    static ZQOnce<Table> once;
    return once.Get().rows;
}
[[gnu::noinline]] int rowsByStatic()
{
    static Table* const table = new Table;
    return table->rows;
}
[[gnu::noinline]] int rowsByCallOnce()
{
    static std::once_flag flag;
    static Table* table;
    std::call_once(flag, [] { table = new Table; });
    return table->rows;
}
[[gnu::noinline]] int rowsByAtomic()
{
    static std::atomic<Table*> table;
    Table* const found = table.load(std::memory_order_acquire);
    if (found) return found->rows;
    table = new Table;
    return table.load()->rows;
}

void once()
{
    row("threads", "object built once, asked for", {1.05, 1.1}, [](Race& race) {
        race.ours([] { return repeat(rowsByOnce); });
        race.peer("static local", [] { return repeat(rowsByStatic); });
        race.peer("std::call_once", [] { return repeat(rowsByCallOnce); });
        race.limit([] { return repeat(rowsByAtomic); });
        race.run(calls);
    });
}

void currentTime()
{
    // The results differ with the second in which they are made; their length does not.
    row("threads", "current time, as text", {0.6, 2.0}, [](Race& race) {
        race.ours([] { return ZQCurrentTime().size(); });
        race.peer("ctime_r", [] {
            char text[32];
            const std::time_t now = std::time(nullptr);
            return string(::ctime_r(&now, text)).size();
        });
        race.peer("strftime", [] {
            char text[32];
            const std::time_t now = std::time(nullptr);
            struct tm parts;
            std::strftime(text, sizeof text, "%a %b %e %H:%M:%S %Y\n", ::localtime_r(&now, &parts));
            return string(text).size();
        });
#ifdef BENCH_FMT
        race.peer("fmt", [] {
            return fmt::format("{:%a %b %e %H:%M:%S %Y}\n", fmt::localtime(std::time(nullptr)))
                .size();
        });
#endif
        race.bareLimit([] {
            const std::time_t now = std::time(nullptr);
            struct tm parts;
            ::localtime_r(&now, &parts);
            return parts.tm_year;
        });
        race.run(1);
    });
}

}  // namespace

void threadRows()
{
    mutexPair();
    once();
    currentTime();
}
