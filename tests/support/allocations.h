// Counts the program's calls of operator new, the library's included.

#ifndef ZQPLATFORM_TESTS_ALLOCATIONS_H
#define ZQPLATFORM_TESTS_ALLOCATIONS_H

#include <atomic>

extern std::atomic<int> allocations;

#endif
