#include "zqisnan.h"

#include <cmath>

namespace ZQPlatform {

bool ZQIsNormalNum(double x)
{
    return std::isfinite(x);
}

bool ZQIsNormalNum(float x)
{
    return std::isfinite(x);
}

bool ZQIsNaN(double x)
{
    return !ZQIsNormalNum(x);
}

bool ZQIsNaN(float x)
{
    return !ZQIsNormalNum(x);
}

}  // namespace ZQPlatform
