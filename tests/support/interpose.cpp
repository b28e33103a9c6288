#include "support/interpose.h"

#include <cstddef>
#include <cstring>
#include <dlfcn.h>
#include <malloc.h>
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

// What a function that fails returns, and whether it does its work nevertheless.
enum Failing { minusOne, null, code, minusOneAfter, codeAfter };

ZQ_UNPREPARED static long failed(Failing failing, const Fault& fault)
{
    if (fault.how == Fault::none) return 0;
    if (failing == code || failing == codeAfter) return fault.how;
    errno = int(fault.how);
    return failing == null ? 0 : -1;
}

// Registers carry the first six integers or pointers of any call on x86-64, and its result; the
// rest is on the stack. A function with fewer is given what happens to be there.
using Call = long(long, long, long, long, long, long, long, long);
#define ZQ_INTERPOSE(failing, function)                                                            \
    extern "C" Call function##Fault __asm__(#function);                                            \
    ZQ_UNPREPARED long function##Fault(long a, long b, long c, long d, long e, long f, long g,     \
                                       long h)                                                     \
    {                                                                                              \
        static Call* real;                                                                         \
        if (!real) real = reinterpret_cast<Call*>(::dlsym(RTLD_NEXT, #function));                  \
        const Fault* fault = Fault::hit(#function);                                                \
        if (fault && fault->how == Fault::half) return real(a, b, (c + 1) / 2, d, e, f, g, h);     \
        if (fault && failing < minusOneAfter) return failed(failing, *fault);                      \
        const long result = real(a, b, c, d, e, f, g, h);                                          \
        if (Fault::current && failing == minusOneAfter)                                            \
            Fault::current->wrongCloses += int(result) != 0 || (a >= 0 && a <= 2);                 \
        return fault ? failed(failing, *fault) : result;                                           \
    }
#define ZQ_INTERPOSE2(how, a, b) ZQ_INTERPOSE(how, a) ZQ_INTERPOSE(how, b)
#define ZQ_INTERPOSE5(how, a, b, c, d, e)                                                          \
    ZQ_INTERPOSE2(how, a, b) ZQ_INTERPOSE2(how, c, d) ZQ_INTERPOSE(how, e)

ZQ_INTERPOSE5(minusOne, open, read, write, pread, lseek)
ZQ_INTERPOSE5(minusOne, stat, lstat, mkstemp, unlink, rename)
ZQ_INTERPOSE5(minusOne, mkdir, rmdir, remove, uname, gettimeofday)
ZQ_INTERPOSE2(minusOneAfter, close, closedir)
ZQ_INTERPOSE5(null, opendir, readdir, realpath, getcwd, mkdtemp)
ZQ_INTERPOSE5(null, getpwuid, getpwnam, localtime_r, ZSTD_createCStream, ZSTD_createDStream)
ZQ_INTERPOSE5(code, time, sysconf, pthread_create, pthread_attr_init, pthread_mutex_init)
ZQ_INTERPOSE2(code, pthread_attr_getstacksize, pthread_attr_setstacksize)
ZQ_INTERPOSE2(code, pthread_mutex_lock, pthread_cond_init)
ZQ_INTERPOSE5(code, pthread_cond_wait, pthread_cond_signal, pthread_cond_broadcast, inflate,
              deflate)
ZQ_INTERPOSE5(code, inflateInit2_, inflateReset, deflateInit2_, ZSTD_initCStream, ZSTD_initDStream)
ZQ_INTERPOSE2(code, ZSTD_compressStream, ZSTD_endStream)
ZQ_INTERPOSE(code, ZSTD_decompressStream)
ZQ_INTERPOSE5(codeAfter, pthread_join, pthread_mutex_unlock, pthread_mutex_destroy,
              pthread_cond_destroy, inflateEnd)
ZQ_INTERPOSE(codeAfter, deflateEnd)

// ---- operator new, which the C++ library's other forms call; a sanitizer's forms do not

std::atomic<long> heapBlocks;

static void* allocate(size_t n, size_t alignment = alignof(::max_align_t)) noexcept
{
    // Sanitizers stop at sizes that the C library has no block for.
    void* block = n >> 47 || Fault::hit("operator new") ? nullptr : ::memalign(alignment, n);
    heapBlocks += block != nullptr;
    return block;
}

static void* orThrow(void* block) { return block ? block : throw std::bad_alloc(); }

static void release(void* block)
{
    heapBlocks -= block != nullptr;
    ::free(block);
}

void* operator new(size_t n) { return orThrow(allocate(n)); }
void* operator new[](size_t n) { return orThrow(allocate(n)); }
void* operator new(size_t n, std::align_val_t to) { return orThrow(allocate(n, size_t(to))); }
void* operator new(size_t n, const std::nothrow_t&) noexcept { return allocate(n); }
void* operator new[](size_t n, const std::nothrow_t&) noexcept { return allocate(n); }
void operator delete(void* block) noexcept { release(block); }
void operator delete[](void* block) noexcept { release(block); }
void operator delete[](void* block, size_t) noexcept { release(block); }
void operator delete(void* block, size_t) noexcept { release(block); }
void operator delete(void* block, std::align_val_t) noexcept { release(block); }
void operator delete(void* block, size_t, std::align_val_t) noexcept { release(block); }
