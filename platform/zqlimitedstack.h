// The limit below which the library places a temporary buffer on the stack.
//
// A process-wide number without a lock: set it once, at start-up.

#ifndef ZQPLATFORM_ZQLIMITEDSTACK_H
#define ZQPLATFORM_ZQLIMITEDSTACK_H

#include "zqexport.h"

namespace ZQPlatform {

// The limit in bytes, 4096 unless it was lowered. A buffer counts 16 bytes more than it holds.
ZQPLATFORM_EXPORT unsigned long ZQGetAllocaThreshold();

// Sets the limit, 0 (everything on the heap) to 4096 bytes. Any other size leaves it as it is
// and prints "ZQSetAllocaThreshold() SIZE invalid alloca threshold size" on std::cout.
ZQPLATFORM_EXPORT void ZQSetAllocaThreshold(unsigned long size);

}  // namespace ZQPlatform

#endif
