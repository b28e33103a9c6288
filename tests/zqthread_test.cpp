#include "platform/zqplatform.h"
#include "support/interpose.h"
#include "support/process.h"

#include <atomic>
#include <functional>
#include <memory>
#include <system_error>
#include <thread>
#include <vector>

using namespace ZQPlatform;

ZQ_INTERPOSE(pthread_attr_getstacksize)
ZQ_INTERPOSE(pthread_attr_init)
ZQ_INTERPOSE(pthread_attr_setstacksize)
ZQ_INTERPOSE(pthread_cond_broadcast)
ZQ_INTERPOSE(pthread_cond_destroy)
ZQ_INTERPOSE(pthread_cond_init)
ZQ_INTERPOSE(pthread_cond_signal)
ZQ_INTERPOSE(pthread_cond_wait)
ZQ_INTERPOSE(pthread_create)
ZQ_INTERPOSE(pthread_join)
ZQ_INTERPOSE(pthread_mutex_destroy)
ZQ_INTERPOSE(pthread_mutex_init)
ZQ_INTERPOSE(pthread_mutex_lock)
ZQ_INTERPOSE(pthread_mutex_unlock)

namespace {

class Echo : public ZQThread {
public:
    std::size_t stack = 0;  // of the thread that ran last
    void* Run(void* arg) override
    {
        pthread_attr_t attributes;
        ::pthread_getattr_np(::pthread_self(), &attributes);
        ::pthread_attr_getstacksize(&attributes, &stack);
        ::pthread_attr_destroy(&attributes);
        SetReturn(nullptr);
        return arg;
    }
};

// Runs 'body' on 16 threads at once.
void race(const std::function<void()>& body)
{
    std::vector<std::thread> threads;
    for (int i = 0; i < 16; ++i) threads.emplace_back(body);
    for (std::thread& thread : threads) thread.join();
}

std::atomic<int> built{0};

struct FailsOnce {
    using value_type = std::unique_ptr<int>;  // cannot be copied
    value_type operator()() { return built++ == 0 ? throw 1 : std::make_unique<int>(42); }
};

// Neither copied nor a builder, though it has a value_type and can be called.
struct Ordinary {
    using value_type = long;
    int operator()() { return 0; }
    const std::unique_ptr<int> answer = std::make_unique<int>(++built);
};

template <class T> ZQOnce<T>& once()
{
    static ZQOnce<T> held;
    return held;
}

void countCall() { ++built; }

}  // namespace

TEST(Thread, HandsItsArgumentInAndItsResultOut)
{
    Echo echo;
    for (const unsigned int size : {64u << 20, 128u << 20}) {
        echo.SetStackSize(size);
        ASSERT_TRUE(echo.Start(&echo));
        EXPECT_EQ(echo.Join(), &echo);
        EXPECT_EQ(echo.GetReturn(), &echo);
        EXPECT_EQ(echo.stack, size);
    }
}

TEST(Thread, SaysWhyItDoesNotStartOrJoin)
{
    Echo echo;
    echo.SetStackSize(1 << 20);
    echo.SetReturn(&echo);
    CaptureErr captured;
    errno = 0;
    for (const char* call : {"pthread_attr_i", "pthread_attr_g", "pthread_attr_s", "pthread_c"}) {
        Fault fault(call, EINVAL);
        EXPECT_FALSE(echo.Start(&echo));
        EXPECT_EQ(echo.GetArg(), &echo);
    }
    echo.SetStackSize(1);
    EXPECT_FALSE(echo.Start());
    Fault fault("pthread_join", ESRCH);
    EXPECT_EQ(echo.Join(), &echo);
    EXPECT_EQ(captured.text(), "pthread_attr_init failed: Success\n"
                               "pthread_attr_getstacksize failed: Success\n"
                               "pthread_attr_setstacksize failed: Success\n"
                               "Cannot start ZQThread: Success\n"
                               "pthread_attr_setstacksize failed: Success\n"
                               "Could not wait for the ZQThread: Success\n");
}

TEST(Mutex, NeedsNoConstructorAndThrowsOnlyFromAcquire)
{
    [[maybe_unused]] static constexpr ZQMutex initialisedAtCompileTime;
    static_assert(std::is_trivially_destructible_v<ZQMutex>);
    ZQMutex mutex;
    int count = 0;
    race([&] {
        ZQMutexGuard guard(mutex);
        ++count;
    });
    EXPECT_EQ(count, 16);
    Fault fault("pthread_mutex_", EDEADLK);
    EXPECT_NO_THROW(mutex.Release());
    try {
        ZQMutexGuard guard(mutex);
        ADD_FAILURE() << "no exception";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code(), std::error_code(EDEADLK, std::generic_category()));
    }
}

TEST(Condition, WakesWhoWaits)
{
    for (const auto wake : {&ZQCondition::Signal, &ZQCondition::Broadcast}) {
        ZQCondition condition;
        int arrived = 0;
        race([&] {
            condition.Acquire();
            ++arrived;
            while (arrived < 16) condition.Wait();
            condition.Release();
            (condition.*wake)();
        });
    }
}

TEST(Condition, PrintsEachFailureWithTheErrorNumberThatStoodAndGoesOn)
{
    CaptureErr captured;
    {
        Fault fault("pthread_", EINVAL);
        errno = ENOENT;
        ZQCondition condition;
        condition.Acquire();
        condition.Wait();
        condition.Release();
        condition.Signal();
        condition.Broadcast();
    }
    EXPECT_EQ(captured.text(),
              "Unable to initialize mutex in ZQCondition: No such file or directory\n"
              "Unable to initialize cond in ZQCondition: No such file or directory\n"
              "Problem occured acquiring an ZQCondition: No such file or directory\n"
              "Problem occured waiting on ZQCondition: No such file or directory\n"
              "Problem occured releasing an ZQCondition: No such file or directory\n"
              "Problem occured signaling an ZQCondition: No such file or directory\n"
              "Problem occured broadcasting an ZQCondition: No such file or directory\n"
              "Unable to destroy cond in ZQCondition: No such file or directory\n"
              "Unable to destroy mutex in ZQCondition: No such file or directory\n");
}

TEST(Once, BuildsAgainAfterAnExceptionAndThenOnceForAllThreads)
{
    static_assert(sizeof(ZQOnce<FailsOnce>) == sizeof(FailsOnce::value_type));
    EXPECT_THROW(once<FailsOnce>(), int);
    race([] { EXPECT_EQ(*once<FailsOnce>().Get(), 42); });
    EXPECT_EQ(built, 2);
    race([] { EXPECT_EQ(*once<Ordinary>().Get().answer, 3); });
    race([] { ZQCallOnce<&countCall>(); });
    EXPECT_EQ(built, 4);
}
