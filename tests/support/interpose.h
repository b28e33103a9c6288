// Makes calls of the platform and of the compression libraries, and operator new, fail on demand.
// interpose.cpp lists the functions.

#pragma once

#include <atomic>
#include <cerrno>
#include <climits>

// While it lives, the calls of 'function' in this thread from number 'first' to 'last', counted
// from 1, fail: with this error number; by returning it, where a function returns codes; with half
// of the bytes; or with none.
struct Fault {
    static constexpr long half = -1001, none = -1002;

    Fault(const char* name, long kind, int from = 1, int to = INT_MAX)
        : function(name), how(kind), first(from), last(to)
    {
        current = this;
    }
    ~Fault() { lift(); }
    static void lift() { current = nullptr; }
    static const Fault* hit(const char* name);

    const char* function;
    long how;
    int first, last;
    int calls = 0;
    int wrongCloses = 0;  // of a descriptor that is not open, or of a standard one
    static inline thread_local Fault* current = nullptr;
};

extern std::atomic<long> heapBlocks;  // that operator new has given out
