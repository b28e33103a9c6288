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

ZQ_INTERPOSE(int, pthread_mutex_init,
             (pthread_mutex_t * mutex, const pthread_mutexattr_t* attributes) noexcept,
             (mutex, attributes))
ZQ_INTERPOSE(int, pthread_mutex_destroy, (pthread_mutex_t * mutex) noexcept, (mutex))
ZQ_INTERPOSE(int, pthread_mutex_lock, (pthread_mutex_t * mutex) noexcept, (mutex))
ZQ_INTERPOSE(int, pthread_mutex_unlock, (pthread_mutex_t * mutex) noexcept, (mutex))
ZQ_INTERPOSE(int, pthread_cond_init,
             (pthread_cond_t * cond, const pthread_condattr_t* attributes) noexcept,
             (cond, attributes))
ZQ_INTERPOSE(int, pthread_cond_destroy, (pthread_cond_t * cond) noexcept, (cond))
ZQ_INTERPOSE(int, pthread_cond_wait, (pthread_cond_t * cond, pthread_mutex_t* mutex), (cond, mutex))
ZQ_INTERPOSE(int, pthread_cond_signal, (pthread_cond_t * cond) noexcept, (cond))
ZQ_INTERPOSE(int, pthread_cond_broadcast, (pthread_cond_t * cond) noexcept, (cond))

namespace {

// Runs 'body' on 16 threads at once.
void race(const std::function<void()>& body)
{
    std::vector<std::thread> threads;
    for (int i = 0; i < 16; ++i)
        threads.emplace_back(body);
    for (std::thread& thread : threads)
        thread.join();
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

void countCall()
{
    ++built;
}

}  // namespace

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

TEST(Condition, HandsOverBetweenThreads)
{
    for (const auto wake : {&ZQCondition::Signal, &ZQCondition::Broadcast}) {
        ZQCondition condition;
        int ball = 0;  // an even one is the other thread's
        const auto play = [&](int parity) {
            for (int i = 0; i < 100; ++i) {
                condition.Acquire();
                while (ball % 2 != parity)
                    condition.Wait();
                ++ball;
                condition.Release();
                (condition.*wake)();
            }
        };
        std::thread other(play, 0);
        play(1);
        other.join();
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
