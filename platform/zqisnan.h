// Tells finite numbers from the others.
//
//   if (ZQIsNaN(value))
//       return false;  // neither a NaN nor an infinity gets past here
//
// The answers do not depend on the caller's compiler options (-ffast-math and its kind).

#ifndef ZQPLATFORM_ZQISNAN_H
#define ZQPLATFORM_ZQISNAN_H

#include "zqbyteorder.h"
#include "zqexport.h"

namespace ZQPlatform {

// True for every finite number: zero and subnormal numbers count, in spite of the name.
ZQPLATFORM_EXPORT bool ZQIsNormalNum(double x);
ZQPLATFORM_EXPORT bool ZQIsNormalNum(float x);

// The opposite of ZQIsNormalNum. Deliberate: true for NaN and for both infinities, whereas the
// overload for half floats (zqhalffloat.h) is true for NaN alone.
ZQPLATFORM_EXPORT bool ZQIsNaN(double x);
ZQPLATFORM_EXPORT bool ZQIsNaN(float x);

}  // namespace ZQPlatform

#endif
