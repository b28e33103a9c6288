#include "zqthread.h"

#include <cassert>
#include <cstdio>
#include <system_error>

namespace ZQPlatform {

namespace {

// True where a thread call returned no error; else prints the message, with errno left as it is.
bool check(int error, const char* message)
{
    if (error != 0)
        std::perror(message);
    return error == 0;
}

// Prepares 'attributes', which need no destruction: on this platform they own nothing.
bool setStackSize(pthread_attr_t* attributes, std::size_t size)
{
    std::size_t platformSize;  // unused: reading it shows that the attributes work
    return check(::pthread_attr_init(attributes), "pthread_attr_init failed") &&
           check(::pthread_attr_getstacksize(attributes, &platformSize),
                 "pthread_attr_getstacksize failed") &&
           check(::pthread_attr_setstacksize(attributes, size), "pthread_attr_setstacksize failed");
}

}  // namespace

// ---- ZQThread

ZQThread::~ZQThread() = default;

bool ZQThread::Start(void* arg)
{
    SetArg(arg);
    pthread_attr_t attributes;
    if (_stackSize != 0 && !setStackSize(&attributes, _stackSize))
        return false;
    return check(
        ::pthread_create(&_thread, _stackSize != 0 ? &attributes : nullptr, ThreadEntry, this),
        "Cannot start ZQThread");
}

void* ZQThread::Join()
{
    void* ret = nullptr;
    if (check(::pthread_join(_thread, &ret), "Could not wait for the ZQThread"))
        assert(ret == GetReturn());
    return GetReturn();
}

// ---- ZQMutex

void ZQMutex::refused(int error)
{
    throw std::system_error(error, std::generic_category());
}

// ---- ZQCondition

struct ZQCondition::Block {
    pthread_mutex_t mutex;
    pthread_cond_t cond;
};

// Zeroed, which is a valid state of both: what could not be initialised can still be destroyed.
ZQCondition::ZQCondition() : _block(new Block())
{
    check(::pthread_mutex_init(&_block->mutex, nullptr),
          "Unable to initialize mutex in ZQCondition");
    check(::pthread_cond_init(&_block->cond, nullptr), "Unable to initialize cond in ZQCondition");
}

ZQCondition::~ZQCondition()
{
    check(::pthread_cond_destroy(&_block->cond), "Unable to destroy cond in ZQCondition");
    check(::pthread_mutex_destroy(&_block->mutex), "Unable to destroy mutex in ZQCondition");
}

void ZQCondition::Acquire()
{
    check(::pthread_mutex_lock(&_block->mutex), "Problem occured acquiring an ZQCondition");
}

void ZQCondition::Release()
{
    check(::pthread_mutex_unlock(&_block->mutex), "Problem occured releasing an ZQCondition");
}

void ZQCondition::Wait()
{
    check(::pthread_cond_wait(&_block->cond, &_block->mutex),
          "Problem occured waiting on ZQCondition");
}

void ZQCondition::Signal()
{
    check(::pthread_cond_signal(&_block->cond), "Problem occured signaling an ZQCondition");
}

void ZQCondition::Broadcast()
{
    check(::pthread_cond_broadcast(&_block->cond), "Problem occured broadcasting an ZQCondition");
}

}  // namespace ZQPlatform

void* ThreadEntry(void* thread)
{
    auto* self = static_cast<ZQPlatform::ZQThread*>(thread);
    self->SetReturn(self->Run(self->GetArg()));
    return self->GetReturn();
}
