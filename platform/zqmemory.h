// The memory that the calling process uses.

#ifndef ZQPLATFORM_ZQMEMORY_H
#define ZQPLATFORM_ZQMEMORY_H

#include "zqexport.h"

namespace ZQPlatform {

// Stores the sizes of the process's address space and of its part in memory, in KiB. Both are 0
// if "/proc/self/stat" cannot be read or makes no sense.
//
// Deliberate: the fields of that file are split at white space, so a program whose file name
// contains blanks gets numbers that mean something else.
ZQPLATFORM_EXPORT void ZQGetProcessMemUsage(unsigned long& virtualKiB, unsigned long& residentKiB);

}  // namespace ZQPlatform

#endif
