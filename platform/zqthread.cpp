#include "zqthread.h"

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

}  // namespace

// ---- ZQMutex

void ZQMutex::Acquire()
{
    const int error = ::pthread_mutex_lock(&_mutex);
    if (error != 0)
        throw std::system_error(error, std::generic_category());
}

void ZQMutex::Release() noexcept
{
    ::pthread_mutex_unlock(&_mutex);
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
    if (!_block)
        return;
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
