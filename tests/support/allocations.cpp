#include "allocations.h"

#include <cstddef>
#include <cstdlib>
#include <new>

std::atomic<int> allocations;

static void* allocate(std::size_t n, std::size_t alignment)
{
    ++allocations;
    // Sanitizers stop at sizes that the C library has no block for.
    if (n < std::size_t{1} << 47)
        if (void* block = std::aligned_alloc(alignment, (n | (alignment - 1)) + 1)) return block;
    throw std::bad_alloc();
}

void* operator new(std::size_t n) { return allocate(n, alignof(max_align_t)); }
void* operator new[](std::size_t n) { return allocate(n, alignof(max_align_t)); }
void* operator new(std::size_t n, std::align_val_t to) { return allocate(n, std::size_t(to)); }
void operator delete(void* block) noexcept { std::free(block); }
void operator delete[](void* block) noexcept { std::free(block); }
void operator delete[](void* block, std::size_t) noexcept { std::free(block); }
void operator delete(void* block, std::size_t) noexcept { std::free(block); }
void operator delete(void* block, std::align_val_t) noexcept { std::free(block); }
void operator delete(void* block, std::size_t, std::align_val_t) noexcept { std::free(block); }
