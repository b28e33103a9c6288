// Locks, objects that are built once, and the time of day.

#include "race.h"

#include <atomic>
#include <mutex>

namespace {

constexpr int calls = 100000;

template <class Call> auto repeat(Call call)
{
    return [=] {
        int sum = 0;
        for (int i = 0; i < calls; ++i) sum += call();
        return sum;
    };
}

template <class Mutex> int lockAndUnlock()
{
    static Mutex mutex;
    mutex.lock();
    mutex.unlock();
    return 1;
}

struct SpinLock {
    std::atomic<int> taken{0};
    void lock()
    {
        for (int free = 0; !taken.compare_exchange_strong(free, 1);) free = 0;
    }
    void unlock() { taken.exchange(0); }
};

struct Table {
    int rows = 7;
};

[[gnu::noinline]] int byOnce()
{
    static ZQOnce<Table> once;
    return once.Get().rows;
}
[[gnu::noinline]] int byStatic()
{
    static Table* const table = new Table;
    return table->rows;
}
[[gnu::noinline]] int byAtomic()
{
    static std::atomic<Table*> table;
    Table* found = table.load(std::memory_order_acquire);
    if (!found) table = found = new Table;
    return found->rows;
}

}  // namespace

void threadRows()
{
    const char* const same = "the two calls are those of std::mutex";
    row("threads/mutex, locked and unlocked", {1.05, 2.0, same}, [](Race& race) {
        race.ours(repeat(lockAndUnlock<ZQMutex>));
        race.peer("std::mutex", repeat(lockAndUnlock<std::mutex>));
        race.limit(repeat(lockAndUnlock<SpinLock>));
        race.run(calls);
    });
    const char* const guard = "the five instructions are those of a static local";
    row("threads/object built once, asked for", {1.05, 1.1, guard}, [](Race& race) {
        race.ours(repeat(byOnce));
        race.peer("static local", repeat(byStatic));
        race.limit(repeat(byAtomic));
        race.run(calls);
    });
    // The results differ with the second in which they are made; their length does not.
    const char* const remark = "the text is that of asctime_r, which is slower than strftime";
    row("threads/current time, as text", {0.6, 2.0, remark}, [](Race& race) {
        race.ours([] { return ZQCurrentTime().size(); });
        race.peer("strftime", [] {
            char text[32];
            const std::time_t now = std::time(nullptr);
            struct tm parts;
            std::strftime(text, sizeof text, "%a %b %e %H:%M:%S %Y\n", ::localtime_r(&now, &parts));
            return string(text).size();
        });
        race.bareLimit([] {
            const std::time_t now = std::time(nullptr);
            struct tm parts;
            return ::localtime_r(&now, &parts)->tm_year;
        });
        race.run(1);
    });
}
