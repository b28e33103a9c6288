// The byte order of the machine the program runs on.

#ifndef ZQPLATFORM_ZQBYTEORDER_H
#define ZQPLATFORM_ZQBYTEORDER_H

#include "zqexport.h"

namespace ZQPlatform {

// True if the host stores the most significant byte of an integer first; false on x86-64.
// Found out on the first call and remembered. Safe to call from any thread.
ZQPLATFORM_EXPORT bool ZQBigEndian();

}  // namespace ZQPlatform

#endif
