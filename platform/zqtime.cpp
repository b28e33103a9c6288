#include "zqtime.h"

#include <cassert>
#include <cerrno>
#include <cstdio>
#include <unistd.h>
#include <x86intrin.h>

// strerror_r has two forms; with the extensions that g++ always switches on, <cstring> declares
// the one that returns a pointer. This is the C library's name for the one that POSIX describes.
extern "C" int __xpg_strerror_r(int number, char* buffer, std::size_t length) noexcept;

namespace ZQPlatform {

bool ZQLocalTime(struct tm* tm, long seconds)
{
    if (::localtime_r(&seconds, tm))
        return true;
    std::perror("ZQCurrentTime received error from localtime_r");
    return false;
}

bool ZQCurrentTime(struct tm* tm)
{
    const std::time_t now = ::time(nullptr);
    return now != -1 && ZQLocalTime(tm, now);
}

std::string ZQCurrentTime()
{
    struct tm now;
    if (!ZQCurrentTime(&now))
        return std::string();

    char buf[32] = {};
    const char* tmp_buff = ::asctime_r(&now, buf);
    assert(tmp_buff != 0);
    if (!tmp_buff)
        return std::string();
    assert(buf[25] == '\0');
    return buf;
}

void ZQSleep(unsigned long milliseconds)
{
    ::usleep(static_cast<unsigned int>(milliseconds) * 1000);
}

unsigned long ZQCycleTime()
{
    return static_cast<unsigned int>(__rdtsc());
}

bool ZQGetTimeOfDay(struct timeval* tv)
{
    return ::gettimeofday(tv, nullptr) == 0;
}

int ZQInternalStrError(char* buffer, std::size_t length)
{
    return __xpg_strerror_r(errno, buffer, length);
}

}  // namespace ZQPlatform
