#include "zqlimitedstack.h"

#include "zqstackblock.h"

#include <iostream>
#include <string>

namespace ZQPlatform {

namespace {

unsigned long threshold = StackBlock::capacity;

}  // namespace

unsigned long ZQGetAllocaThreshold()
{
    return threshold;
}

void ZQSetAllocaThreshold(unsigned long size)
{
    if (size <= StackBlock::capacity) {
        threshold = size;
        return;
    }
    // As text, so that the format flags a program gave std::cout cannot change the number.
    std::cout << "ZQSetAllocaThreshold() " << std::to_string(size)
              << " invalid alloca threshold size" << std::endl;
}

}  // namespace ZQPlatform
