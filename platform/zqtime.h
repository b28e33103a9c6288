// Clocks, calendar time and error texts.
//
// Every function may be called from any thread: only re-entrant platform calls and the caller's
// own buffers are used.

#ifndef ZQPLATFORM_ZQTIME_H
#define ZQPLATFORM_ZQTIME_H

#include "zqexport.h"

#include <cstddef>

namespace ZQPlatform {

// Writes the text of the calling thread's errno into 'buffer' of 'length' bytes: POSIX
// strerror_r. Returns 0, or an error number where errno is unknown or the buffer too small.
ZQPLATFORM_EXPORT int ZQInternalStrError(char* buffer, std::size_t length);

}  // namespace ZQPlatform

#endif
