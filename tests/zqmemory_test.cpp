#include "support/streams.h"

TEST(ProcessMemory, IsThatOfTheKernelInKiB)
{
    unsigned long pages, residentPages, size, resident;
    std::istringstream(readFile("/proc/self/statm")) >> pages >> residentPages;
    ZQGetProcessMemUsage(size, resident);
    EXPECT_NEAR(size, 4 * pages, 1024);
    EXPECT_NEAR(resident, 4 * residentPages, 1024);
}
