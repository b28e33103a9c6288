// Threads, mutexes, conditions and objects that are built once.
//
// A thread is a class whose Run is its body:
//
//   class Reader : public ZQPlatform::ZQThread {
//       void* Run(void* name) override { ... }
//   };
//   Reader reader;
//   if (reader.Start(name)) ... reader.Join();
//
// A lock for a table, and the table itself, built by whoever asks first:
//
//   Table& table()
//   {
//       static ZQPlatform::ZQOnce<Table> once;
//       return once.Get();
//   }
//   ZQPlatform::ZQMutex tableLock;
//   ...
//   ZQPlatform::ZQMutexGuard guard(tableLock);  // released on every way out of the scope
//   table().add(name);
//
// Thin layers over POSIX threads, which report failures each in its own way: ZQThread prints and
// returns false, ZQMutex throws, ZQCondition prints and goes on, the once templates pass on what
// the construction throws. What is printed is a fixed message, through perror. Deliberate: the
// error text behind the message is that of errno as it stood before, because the thread calls
// return their error and leave errno alone.

#ifndef ZQPLATFORM_ZQTHREAD_H
#define ZQPLATFORM_ZQTHREAD_H

#include "zqexport.h"

#include <cstddef>
#include <memory>
#include <mutex>
#include <pthread.h>
#include <type_traits>
#include <utility>

// Where every ZQThread starts, with the object as its parameter: calls Run with GetArg(), keeps
// the result with SetReturn, and returns GetReturn().
extern "C" ZQPLATFORM_EXPORT void* ThreadEntry(void* thread);

namespace ZQPlatform {

using ::ThreadEntry;

// ---- Thread

// A thread whose body is the Run of a derived class. One thread owns the object and calls Start
// and Join; there is no detaching and no cancelling. After Join it may be started again.
class ZQPLATFORM_EXPORT ZQThread {
public:
    // Nothing runs until Start.
    ZQThread() = default;

    // Neither waits for a running thread nor detaches it: Join first.
    virtual ~ZQThread();

    ZQThread(const ZQThread&) = delete;
    ZQThread& operator=(const ZQThread&) = delete;

    // The body.
    //   Called    on the new thread, once for each Start that succeeded, with the argument of
    //             Start (or of a SetArg that came before the thread ran).
    //   Result    what Join returns; it replaces what SetReturn stored meanwhile. An exception
    //             that leaves Run ends the process.
    virtual void* Run(void* arg) = 0;

    // Keeps 'arg', even on failure, and starts the thread. False, with a message, if it could
    // not be started; a stack size below the platform's minimum is one reason.
    bool Start(void* arg = nullptr);

    // Waits for the thread to end and returns what Run returned. If waiting fails, prints a
    // message and returns GetReturn() as it is. To be called once after each Start that
    // succeeded; anything else is undefined.
    void* Join();

    // The argument of Run: null until Start or SetArg.
    void* GetArg() const { return _arg; }
    void SetArg(void* arg) { _arg = arg; }

    // The result of Run: null until it or SetReturn stored one. The owner may read it after Join.
    void* GetReturn() const { return _return; }
    void SetReturn(void* value) { _return = value; }

    // The stack of the threads to be started, in bytes; 0, as in the beginning: the platform's.
    unsigned int GetStackSize() const { return _stackSize; }
    void SetStackSize(unsigned int size) { _stackSize = size; }

private:
    pthread_t _thread = 0;  // the one started last
    void* _arg = nullptr;
    void* _return = nullptr;
    unsigned int _stackSize = 0;
};

// ---- Mutex

// A lock for process-wide tables. Not recursive: acquiring it twice from one thread is undefined.
//
// One with static storage may be used before any constructor has run, and to the very end of the
// process: it is initialised at compile time and never torn down.
class ZQPLATFORM_EXPORT ZQMutex {
public:
    // Nobody holds it.
    constexpr ZQMutex() = default;

    ZQMutex(const ZQMutex&) = delete;
    ZQMutex& operator=(const ZQMutex&) = delete;

    // Waits for the lock. Throws std::system_error, with the error number in the generic
    // category, where the platform refuses it.
    void Acquire()
    {
        if (const int error = ::pthread_mutex_lock(&_mutex))
            refused(error);
    }

    // Never throws; a failure of the platform goes unnoticed.
    void Release() noexcept { ::pthread_mutex_unlock(&_mutex); }

    // The same two, under the names that the standard's guards call.
    void lock() { Acquire(); }
    void unlock() noexcept { Release(); }

private:
    [[noreturn]] static void refused(int error);

    pthread_mutex_t _mutex = PTHREAD_MUTEX_INITIALIZER;
};

// Holds a ZQMutex for a scope. Prefer it to Acquire and Release, which an exception can part.
using ZQMutexGuard = std::lock_guard<ZQMutex>;

// ---- Condition

// A mutex and a condition variable in one object, to hand something from thread to thread:
//
//   condition.Acquire();          condition.Acquire();
//   while (!ready)                ready = true;
//       condition.Wait();         condition.Release();
//   condition.Release();          condition.Signal();
//
// A call that the platform refuses prints its message and goes on as if it had succeeded.
class ZQPLATFORM_EXPORT ZQCondition {
public:
    // Nobody holds the mutex or waits.
    ZQCondition();

    // Nobody may hold the mutex or wait.
    ~ZQCondition();

    ZQCondition(const ZQCondition&) = delete;
    ZQCondition& operator=(const ZQCondition&) = delete;

    // Take the mutex and let go of it. Not recursive.
    void Acquire();
    void Release();

    // Lets go of the mutex, which the caller holds, until it is woken, and holds it again on
    // return. It may wake up for no reason: test what you wait for in a loop.
    void Wait();

    // Wake one waiter or all of them, with or without the mutex held.
    void Signal();
    void Broadcast();

private:
    struct Block;
    std::unique_ptr<Block> _block;
};

// ---- Once

// An object of the whole process, built by the first thread that asks for it. Make it a static
// of the one function that hands it out:
//
//   struct BuildHome {                        std::string home()
//       using value_type = std::string;       {
//       std::string operator()();                 static ZQOnce<BuildHome> once;
//   };                                            return once.Get();
//                                         }
//
// The held object is what one call of a default-constructed T returned where T is a builder, a
// class with a member type value_type and an operator() that returns it; else it is a
// default-constructed T. While it is built, other threads that ask for it wait, and other once
// objects stay free to be built: a builder may use them, but not ask for its own. If building
// throws, the next call builds again. It is destroyed when the process exits or its library is
// unloaded; asking for it later than that is not supported.
template <class T> class ZQPLATFORM_EXPORT ZQOnce {
public:
    // Builds the object, and throws what building it throws.
    ZQOnce() : _held(build<T>(nullptr)) {}

    ZQOnce(const ZQOnce&) = delete;
    ZQOnce& operator=(const ZQOnce&) = delete;

    // The held object, for any thread; what it does about threads is its own matter.
    auto& Get() { return _held; }

private:
    // What calling a U gives, where that is its value_type; elsewhere there is no such type.
    template <class U, class Result = decltype(std::declval<U&>()())>
    using Built = std::enable_if_t<std::is_same_v<typename U::value_type, Result>, Result>;

    template <class U> static Built<U> build(std::nullptr_t)
    {
        U builder;
        return builder();
    }
    template <class U> static U build(const void*) { return U(); }

    decltype(build<T>(nullptr)) _held;
};

// Runs F, a function without parameters, at the first call in the process; every other call
// returns when that one is done. What F returns is dropped. If F throws, the exception passes to
// the caller and the next call runs F again.
template <auto F> ZQPLATFORM_EXPORT void ZQCallOnce()
{
    static const struct Once {
        Once() { static_cast<void>(F()); }
    } once;
}

}  // namespace ZQPlatform

#endif
