#include "platform/zqplatform.h"
#include "support/process.h"

#include <sys/prctl.h>
#include <sys/resource.h>

using namespace ZQPlatform;

TEST(ProcessMemory, IsThatOfTheKernelInKiB)
{
    unsigned long pages, residentPages, size, resident, other;
    std::istringstream(readFile("/proc/self/statm")) >> pages >> residentPages;
    ZQGetProcessMemUsage(size, resident);
    EXPECT_NEAR(size, 4 * pages, 1024);
    EXPECT_NEAR(resident, 4 * residentPages, 1024);

    ::prctl(PR_SET_NAME, "a blank");  // moves the fields on by one
    ZQGetProcessMemUsage(other, resident);
    EXPECT_NEAR(resident, 4 * 1024 * size, 4 * 1024 * 1024);

    rlimit limit;
    ::getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit noFiles = {0, limit.rlim_max};
    ::setrlimit(RLIMIT_NOFILE, &noFiles);
    ZQGetProcessMemUsage(size, resident);
    ::setrlimit(RLIMIT_NOFILE, &limit);
    EXPECT_EQ(size + resident, 0u);
}
