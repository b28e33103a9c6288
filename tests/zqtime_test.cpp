#include "platform/zqplatform.h"
#include "support/interpose.h"
#include "support/process.h"

#include <climits>

using namespace ZQPlatform;

ZQ_INTERPOSE(time)

namespace {
unsigned int slept = 0;
}

extern "C" int usleep(useconds_t micros)
{
    slept = micros;
    return 0;
}

TEST(Time, IsTextOf25CharactersWithItsNewline)
{
    ScopedEnv zone("TZ", "XYZ-5:30");
    ::tzset();
    Fault past("time", 1009);
    EXPECT_EQ(ZQCurrentTime(), "Thu Jan  1 05:46:49 1970\n");
}

TEST(Time, ThatCannotBeToldIsEmpty)
{
    CaptureErr captured;
    struct tm tm;
    for (const long now : {-1L, LONG_MAX}) {
        Fault fault("time", now);
        EXPECT_EQ(ZQCurrentTime(), "");
    }
    EXPECT_FALSE(ZQLocalTime(tm, LONG_MIN));
    const std::string line =
        "ZQCurrentTime received error from localtime_r: " + std::string(std::strerror(EOVERFLOW)) +
        "\n";
    EXPECT_EQ(captured.text(), line + line);
}

TEST(Time, SleepAndCyclesAreCountedIn32Bits)
{
    const struct {
        unsigned long milliseconds;
        unsigned int micros;
    } rows[] = {{7, 7000}, {4294967, 4294967000}, {4294968, 704}, {(1ul << 32) + 3, 3000}};
    for (const auto& row : rows) {
        ZQSleep(row.milliseconds);
        EXPECT_EQ(slept, row.micros);
    }
    EXPECT_EQ(ZQCycleTime() >> 32, 0u);
}
