// A temporary block of bytes, on the stack up to ZQGetAllocaThreshold(), else on the heap.
// Internal to the library.

#ifndef ZQPLATFORM_ZQSTACKBLOCK_H
#define ZQPLATFORM_ZQSTACKBLOCK_H

#include "zqlimitedstack.h"

#include <cstring>
#include <new>

namespace ZQPlatform {

// Lives in the frame of the function that needs the bytes; they are not initialised.
class StackBlock {
public:
    static constexpr unsigned long capacity = 4096;  // the most that goes on the stack

    // A block of 'bytes' usable bytes, and one for the NUL that even a reader with no room
    // writes. Throws std::bad_alloc where there is no such block.
    explicit StackBlock(unsigned long bytes)
    {
        const unsigned long total = bytes + headerSize;
        if (total + 1 < bytes)
            throw std::bad_alloc();
        const bool onStack = total <= ZQGetAllocaThreshold();
        _block = onStack ? _frame : static_cast<char*>(::operator new(total + 1));
        const unsigned int tag = onStack ? stackTag : heapTag;
        std::memcpy(_block, &tag, sizeof tag);
    }
    ~StackBlock()
    {
        unsigned int tag;
        std::memcpy(&tag, _block, sizeof tag);
        if (tag == heapTag)
            ::operator delete(_block);  // NOLINT(clang-analyzer-cplusplus.NewDelete): tagged above
    }

    StackBlock(const StackBlock&) = delete;
    StackBlock& operator=(const StackBlock&) = delete;

    char* data() { return _block + headerSize; }

private:
    // A header of 16 bytes that begins with the tag keeps the usable bytes aligned.
    static constexpr unsigned long headerSize = 16;
    static constexpr unsigned int stackTag = 0xCCCC;
    static constexpr unsigned int heapTag = 0xDDDD;

    alignas(16) char _frame[capacity + 1];
    char* _block;
};

}  // namespace ZQPlatform

#endif
