// Makes calls of the C library fail on demand.
//
// ZQ_INTERPOSE defines a function of the C library in the test program, so that the library under
// test calls this one. It passes on to the real one, unless a Fault says otherwise:
//
//   ZQ_INTERPOSE(int, usleep, (useconds_t micros), (micros))

#ifndef ZQPLATFORM_TESTS_INTERPOSE_H
#define ZQPLATFORM_TESTS_INTERPOSE_H

#include <cstring>
#include <dlfcn.h>

// While it lives, interposed functions whose names begin with 'names' return 'value' in this
// thread, without running.
struct Fault {
    Fault(const char* names, long value) : prefix(names), result(value) { current = this; }
    ~Fault() { current = nullptr; }
    static bool hits(const char* function)
    {
        return current && std::strncmp(function, current->prefix, strlen(current->prefix)) == 0;
    }
    static inline thread_local const Fault* current = nullptr;
    const char* prefix;
    long result;
};

#define ZQ_INTERPOSE(Result, function, parameters, arguments)                                      \
    extern "C" Result function parameters                                                          \
    {                                                                                              \
        static const auto real = (Result(*) parameters)::dlsym(RTLD_NEXT, #function);              \
        return Fault::hits(#function) ? (Result)Fault::current->result : real arguments;           \
    }

#endif
