// Makes calls of the C library fail on demand.
//
// ZQ_INTERPOSE(usleep) defines that function in the test program, so that the library under test
// calls this one. It passes on to the real one, unless a Fault says otherwise.

#pragma once

#include <cstring>
#include <dlfcn.h>

// While it lives, interposed functions whose names begin with 'names' return 'value' in this
// thread, without running.
struct Fault {
    Fault(const char* names, long value) : prefix(names), result(value) { current = this; }
    ~Fault() { current = nullptr; }
    static bool hits(const char* function)
    {
        return std::strncmp(function, current->prefix, strlen(current->prefix)) == 0;
    }
    static inline thread_local const Fault* current = nullptr;
    const char* prefix;
    long result;
};

// Registers carry the first four integers or pointers of any call on x86-64, and its result.
// Sanitizers call some of these functions on threads that they have not prepared yet.
#define ZQ_INTERPOSE(function)                                                                     \
    extern "C" long function##Fault(long a, long b, long c, long d) __asm__(#function);            \
    __attribute__((no_sanitize("thread"))) long function##Fault(long a, long b, long c, long d)    \
    {                                                                                              \
        using Function = long (*)(long, long, long, long);                                         \
        if (Fault::current && Fault::hits(#function)) return Fault::current->result;               \
        return reinterpret_cast<Function>(::dlsym(RTLD_NEXT, #function))(a, b, c, d);              \
    }

#define ZQ_INTERPOSE4(a, b, c, d) ZQ_INTERPOSE(a) ZQ_INTERPOSE(b) ZQ_INTERPOSE(c) ZQ_INTERPOSE(d)
