#include "support/streams.h"

std::atomic<int> allocations;

static void* allocate(size_t n, size_t alignment)
{
    ++allocations;
    // Sanitizers stop at sizes that the C library has no block for.
    if (n < size_t{1} << 47)
        if (void* block = std::aligned_alloc(alignment, (n | (alignment - 1)) + 1)) return block;
    throw std::bad_alloc();
}

void* operator new(size_t n) { return allocate(n, alignof(max_align_t)); }
void* operator new[](size_t n) { return allocate(n, alignof(max_align_t)); }
void* operator new(size_t n, std::align_val_t to) { return allocate(n, size_t(to)); }
void operator delete(void* block) noexcept { std::free(block); }
void operator delete[](void* block) noexcept { std::free(block); }
void operator delete[](void* block, size_t) noexcept { std::free(block); }
void operator delete(void* block, size_t) noexcept { std::free(block); }
void operator delete(void* block, std::align_val_t) noexcept { std::free(block); }
void operator delete(void* block, size_t, std::align_val_t) noexcept { std::free(block); }
