#include "support/streams.h"

#include <thread>

// Gives its argument back once it was made to wait and was woken.
struct Echo : ZQThread {
    void* Run(void* arg) override
    {
        SetReturn(nullptr);
        condition.Acquire();
        waits = true;
        condition.Signal();
        while (waits) condition.Wait();
        condition.Release();
        return arg;
    }
    // Returns when the thread waits.
    bool startAndAwait()
    {
        const bool started = Start(this);
        condition.Acquire();
        while (started && !waits) condition.Wait();
        condition.Release();
        return started;
    }
    bool waits = false;
    ZQCondition condition;
};

struct FailsOnce {
    using value_type = std::unique_ptr<int>;  // cannot be copied
    value_type operator()() { return ++calls == 1 ? throw 1 : std::make_unique<int>(calls); }
    static inline int calls = 0;
};

TEST(ThreadAndCondition, HandThingsOver)
{
    for (const auto wake : {&ZQCondition::Signal, &ZQCondition::Broadcast}) {
        Echo echo;
        echo.SetStackSize(1 << 20);
        ASSERT_TRUE(echo.startAndAwait());
        echo.condition.Acquire();
        echo.waits = false;
        echo.condition.Release();
        (echo.condition.*wake)();
        EXPECT_EQ(echo.Join(), &echo);
    }
}

TEST(ThreadAndCondition, LetTheProcessEndWhileAThreadWaits)
{
    const auto child = runChild([] { std::exit(!(new Echo)->startAndAwait()); });
    EXPECT_TRUE(child.status == 0 && child.err.empty()) << child.err;
}

TEST(Once, BuildsAgainAfterAnExceptionAndThenOnceForAllThreads)
{
    static_assert(std::is_trivially_destructible_v<ZQOnce<ZQMutex>>);
    [[maybe_unused]] static constexpr ZQMutex initialisedAtCompileTime;
    EXPECT_EQ(ZQOnce<string>().Get(), "");  // has a value_type, but is no builder
    const auto value = [] {
        static ZQOnce<FailsOnce> once;
        return *once.Get();
    };
    EXPECT_THROW(value(), int);
    std::vector<std::thread> threads;
    for (int i = 0; i < 16; ++i) threads.emplace_back([&] { EXPECT_EQ(value(), 2); });
    for (std::thread& thread : threads) thread.join();
}
