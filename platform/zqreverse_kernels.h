// Copies arrays of numbers with the bytes of each number in reversed order. Internal to the
// library.
//
// Every form does the same: 'count' elements of 2, 4 or 8 bytes ('size'), nothing outside of them
// loaded or stored. dst and src may be the same, but may not overlap otherwise.

#ifndef ZQPLATFORM_ZQREVERSE_KERNELS_H
#define ZQPLATFORM_ZQREVERSE_KERNELS_H

#include "zqstreambase.h"

namespace ZQPlatform {

using ReverseForm = void (*)(unsigned char* dst, const unsigned char* src, zqsize_t size,
                             zqsize_t count);

void reversePlain(unsigned char* dst, const unsigned char* src, zqsize_t size, zqsize_t count);
// For processors with SSSE3, or AVX2.
void reverseSsse3(unsigned char* dst, const unsigned char* src, zqsize_t size, zqsize_t count);
void reverseAvx2(unsigned char* dst, const unsigned char* src, zqsize_t size, zqsize_t count);

// The fastest form for this processor.
void reverseElements(unsigned char* dst, const unsigned char* src, zqsize_t size, zqsize_t count);

}  // namespace ZQPlatform

#endif
