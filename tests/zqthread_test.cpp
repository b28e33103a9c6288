#include "support/interpose.h"
#include "support/streams.h"

#include <thread>

ZQ_INTERPOSE4(pthread_attr_getstacksize, pthread_attr_init, pthread_create, pthread_join)
ZQ_INTERPOSE4(pthread_mutex_destroy, pthread_mutex_init, pthread_mutex_lock, pthread_mutex_unlock)
ZQ_INTERPOSE4(pthread_cond_destroy, pthread_cond_init, pthread_cond_signal, pthread_cond_wait)
ZQ_INTERPOSE(pthread_cond_broadcast)

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
        ASSERT_TRUE(echo.Start(&echo));
        echo.condition.Acquire();
        while (!echo.waits) echo.condition.Wait();
        echo.waits = false;
        echo.condition.Release();
        (echo.condition.*wake)();
        EXPECT_EQ(echo.Join(), &echo);
    }
}

TEST(ThreadAndCondition, PrintEachFailureWithTheErrnoThatStoodAndGoOn)
{
    CaptureErr captured;
    Echo echo;
    echo.SetStackSize(1);
    errno = 0;
    for (const char* call : {"pthread_attr_i", "pthread_attr_g", "none", "pthread_c"}) {
        Fault fault(call, EINVAL);
        EXPECT_FALSE(echo.Start(&echo) || echo.GetArg() != &echo);
        echo.SetStackSize(*call == 'n' ? 0 : 1);
    }
    {
        Fault fault("pthread_", EINVAL);
        EXPECT_EQ(echo.Join(), nullptr);
        EXPECT_THROW(ZQMutex().Acquire(), std::system_error);
        ZQCondition condition;
        condition.Acquire(), condition.Wait(), condition.Release();
        condition.Signal(), condition.Broadcast();
    }
    EXPECT_EQ(captured.text(),
              "pthread_attr_init failed: Success\npthread_attr_getstacksize failed: Success\n"
              "pthread_attr_setstacksize failed: Success\nCannot start ZQThread: Success\n"
              "Could not wait for the ZQThread: Success\n"
              "Unable to initialize mutex in ZQCondition: Success\n"
              "Unable to initialize cond in ZQCondition: Success\n"
              "Problem occured acquiring an ZQCondition: Success\n"
              "Problem occured waiting on ZQCondition: Success\n"
              "Problem occured releasing an ZQCondition: Success\n"
              "Problem occured signaling an ZQCondition: Success\n"
              "Problem occured broadcasting an ZQCondition: Success\n"
              "Unable to destroy cond in ZQCondition: Success\n"
              "Unable to destroy mutex in ZQCondition: Success\n");
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
