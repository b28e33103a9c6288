#include "allocations.h"

#include <cstddef>
#include <cstdlib>
#include <new>

std::atomic<int> allocations;

namespace {

constexpr std::size_t addressSpace = std::size_t{1} << 47;

void* allocate(std::size_t n, std::size_t alignment)
{
    ++allocations;
    // Sanitizers stop at such sizes; the C library has no block for them.
    void* block = n < addressSpace
                      ? std::aligned_alloc(alignment, (n + alignment - 1) & ~(alignment - 1))
                      : nullptr;
    if (!block)
        throw std::bad_alloc();
    return block;
}

}  // namespace

void* operator new(std::size_t n)
{
    return allocate(n, alignof(max_align_t));
}
void* operator new(std::size_t n, std::align_val_t alignment)
{
    return allocate(n, static_cast<std::size_t>(alignment));
}
void operator delete(void* block) noexcept
{
    std::free(block);
}
void operator delete(void* block, std::size_t) noexcept
{
    std::free(block);
}
void operator delete(void* block, std::align_val_t) noexcept
{
    std::free(block);
}
void operator delete(void* block, std::size_t, std::align_val_t) noexcept
{
    std::free(block);
}
