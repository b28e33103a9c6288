#include "zqmemory.h"

#include <fstream>
#include <string>
#include <unistd.h>

namespace ZQPlatform {

void ZQGetProcessMemUsage(unsigned long& virtualKiB, unsigned long& residentKiB)
{
    virtualKiB = residentKiB = 0;
    std::ifstream stat("/proc/self/stat");
    stat.imbue(std::locale::classic());
    std::string skipped;
    constexpr int fieldsBefore = 22;  // the process id up to the start time
    for (int i = 0; i < fieldsBefore; ++i)
        stat >> skipped;

    unsigned long bytes;
    long pages;
    if (!(stat >> bytes >> pages))
        return;
    virtualKiB = bytes >> 10;
    const auto pageKiB = static_cast<unsigned long>(::sysconf(_SC_PAGESIZE) / 1024);
    residentKiB = pageKiB * static_cast<unsigned long>(pages);
}

}  // namespace ZQPlatform
