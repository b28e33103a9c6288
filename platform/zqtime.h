// Clocks, calendar time and error texts.
//
//   zqout << "started at " << ZQPlatform::ZQCurrentTime();  // ends its line itself
//
// Every function may be called from any thread: only re-entrant platform calls and the caller's
// own buffers are used.

#ifndef ZQPLATFORM_ZQTIME_H
#define ZQPLATFORM_ZQTIME_H

#include "zqexport.h"

#include <cstddef>
#include <ctime>
#include <string>
#include <sys/time.h>

namespace ZQPlatform {

// Fills 'tm' with the local time of 'seconds' since the epoch. False, with a message on standard
// error, where the platform cannot convert it (a year beyond its range). Deliberate: the message
// is "ZQCurrentTime received error from localtime_r" here too.
ZQPLATFORM_EXPORT bool ZQLocalTime(struct tm* tm, long seconds);
inline bool ZQLocalTime(struct tm& tm, long seconds)
{
    return ZQLocalTime(&tm, seconds);
}

// Fills 'tm' with the local time of now. False if the clock cannot be read (no message) or its
// time cannot be converted (see ZQLocalTime).
ZQPLATFORM_EXPORT bool ZQCurrentTime(struct tm* tm);
inline bool ZQCurrentTime(struct tm& tm)
{
    return ZQCurrentTime(&tm);
}

// The local time of now in 25 characters, such as "Sun Nov 15 05:58:45 2026\n". Deliberate: the
// newline belongs to it. Empty if there is no time or it cannot be formatted.
ZQPLATFORM_EXPORT std::string ZQCurrentTime();

// Suspends the calling thread. Deliberate: the microseconds are counted in 32 bits, so from
// 4294968 milliseconds (71.6 minutes) on the sleep wraps to a shorter one.
ZQPLATFORM_EXPORT void ZQSleep(unsigned long milliseconds);

// The processor's time-stamp counter, to measure short intervals. Deliberate: only its low 32
// bits, so subtract in 32 bits; it wraps about once a second.
ZQPLATFORM_EXPORT unsigned long ZQCycleTime();

// Fills 'tv' with seconds and microseconds since the epoch. False if the clock cannot be read.
ZQPLATFORM_EXPORT bool ZQGetTimeOfDay(struct timeval* tv);
inline bool ZQGetTimeOfDay(struct timeval& tv)
{
    return ZQGetTimeOfDay(&tv);
}

// Writes the text of the calling thread's errno into 'buffer' of 'length' bytes: POSIX
// strerror_r. Returns 0, or an error number where errno is unknown or the buffer too small.
ZQPLATFORM_EXPORT int ZQInternalStrError(char* buffer, std::size_t length);

}  // namespace ZQPlatform

#endif
