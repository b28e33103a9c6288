#include "zqtime.h"

#include <cerrno>

// strerror_r has two forms; with the extensions that g++ always switches on, <cstring> declares
// the one that returns a pointer. This is the C library's name for the one that POSIX describes.
extern "C" int __xpg_strerror_r(int number, char* buffer, std::size_t length) noexcept;

namespace ZQPlatform {

int ZQInternalStrError(char* buffer, std::size_t length)
{
    return __xpg_strerror_r(errno, buffer, length);
}

}  // namespace ZQPlatform
