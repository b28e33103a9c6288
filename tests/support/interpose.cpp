#include "support/interpose.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <new>

// Sanitizers call some of these functions on threads that they have not prepared yet.
#define ZQ_UNPREPARED __attribute__((no_sanitize("thread")))

ZQ_UNPREPARED const Fault* Fault::hit(const char* name)
{
    Fault* fault = current;
    if (!fault || std::strcmp(name, fault->function) != 0) return nullptr;
    const int call = ++fault->calls;
    return call >= fault->first && call <= fault->last ? fault : nullptr;
}

using Call = long (*)(long, long, long, long, long, long, long, long);

// What a function that fails returns, and whether it does its work nevertheless.
enum Failing { minusOne, null, code, minusOneAfter, codeAfter };

// Registers carry the first six integers or pointers of any call on x86-64, and its result; the
// rest is on the stack. A function with fewer is given what happens to be there.
#define ZQ_INTERPOSE(failing, function)                                                            \
    extern "C" long function##Fault(long, long, long, long, long, long, long,                      \
                                    long) __asm__(#function);                                      \
    ZQ_UNPREPARED long function##Fault(long a, long b, long c, long d, long e, long f, long g,     \
                                       long h)                                                     \
    {                                                                                              \
        static Call real;                                                                          \
        if (!real) real = reinterpret_cast<Call>(::dlsym(RTLD_NEXT, #function));                   \
        const Fault* fault = Fault::hit(#function);                                                \
        if (fault && fault->how == Fault::half) return real(a, b, (c + 1) / 2, d, e, f, g, h);     \
        if (fault && failing < minusOneAfter) return failed(failing, *fault);                      \
        const long result = real(a, b, c, d, e, f, g, h);                                          \
        if (Fault::current && std::strcmp(#function, "close") == 0)                                \
            Fault::current->wrongCloses += int(result) != 0 || int(a) <= 2;                        \
        return fault ? failed(failing, *fault) : result;                                           \
    }
#define ZQ_INTERPOSE2(how, a, b) ZQ_INTERPOSE(how, a) ZQ_INTERPOSE(how, b)
#define ZQ_INTERPOSE3(how, a, b, c) ZQ_INTERPOSE2(how, a, b) ZQ_INTERPOSE(how, c)
#define ZQ_INTERPOSE4(how, a, b, c, d) ZQ_INTERPOSE2(how, a, b) ZQ_INTERPOSE2(how, c, d)

ZQ_UNPREPARED static long failed(Failing failing, const Fault& fault)
{
    if (fault.how == Fault::none) return 0;
    if (failing == code || failing == codeAfter) return fault.how;
    errno = int(fault.how);
    return failing == null ? 0 : -1;
}

ZQ_INTERPOSE4(minusOne, open, read, write, pread)
ZQ_INTERPOSE4(minusOne, lseek, stat, lstat, mkstemp)
ZQ_INTERPOSE4(minusOne, unlink, rename, mkdir, rmdir)
ZQ_INTERPOSE3(minusOne, remove, uname, gettimeofday)
ZQ_INTERPOSE2(minusOneAfter, close, closedir)
ZQ_INTERPOSE4(null, opendir, readdir, realpath, getcwd)
ZQ_INTERPOSE4(null, mkdtemp, getpwuid, getpwnam, localtime_r)
ZQ_INTERPOSE2(null, ZSTD_createCStream, ZSTD_createDStream)
ZQ_INTERPOSE4(code, time, sysconf, pthread_create, pthread_mutex_lock)
ZQ_INTERPOSE4(code, pthread_attr_init, pthread_attr_getstacksize, pthread_attr_setstacksize,
              pthread_mutex_init)
ZQ_INTERPOSE3(code, pthread_cond_init, pthread_cond_signal, pthread_cond_broadcast)
ZQ_INTERPOSE4(code, inflateInit2_, inflate, deflateInit2_, deflate)
ZQ_INTERPOSE3(code, ZSTD_initCStream, ZSTD_compressStream, ZSTD_endStream)
ZQ_INTERPOSE3(code, ZSTD_initDStream, ZSTD_decompressStream, pthread_cond_wait)
ZQ_INTERPOSE3(codeAfter, pthread_join, pthread_mutex_unlock, pthread_mutex_destroy)
ZQ_INTERPOSE3(codeAfter, pthread_cond_destroy, inflateEnd, deflateEnd)

// ---- operator new

std::atomic<long> heapBlocks;

static void* allocate(size_t n, size_t alignment)
{
    // Sanitizers stop at sizes that the C library has no block for.
    if (n < size_t{1} << 47 && !Fault::hit("operator new"))
        if (void* block = std::aligned_alloc(alignment, (n | (alignment - 1)) + 1))
            return ++heapBlocks, block;
    throw std::bad_alloc();
}

static void release(void* block)
{
    if (block) --heapBlocks;
    std::free(block);
}

void* operator new(size_t n) { return allocate(n, alignof(std::max_align_t)); }
void* operator new[](size_t n) { return allocate(n, alignof(std::max_align_t)); }
void* operator new(size_t n, std::align_val_t to) { return allocate(n, size_t(to)); }
void* operator new[](size_t n, const std::nothrow_t&) noexcept
{
    return Fault::hit("operator new") ? nullptr : (++heapBlocks, std::malloc(n));
}
void* operator new(size_t n, const std::nothrow_t& flag) noexcept
{
    return ::operator new[](n, flag);
}
void operator delete(void* block) noexcept { release(block); }
void operator delete[](void* block) noexcept { release(block); }
void operator delete[](void* block, size_t) noexcept { release(block); }
void operator delete(void* block, size_t) noexcept { release(block); }
void operator delete(void* block, std::align_val_t) noexcept { release(block); }
void operator delete(void* block, size_t, std::align_val_t) noexcept { release(block); }
