#include "support/interpose.h"
#include "support/streams.h"

#include <climits>

static useconds_t slept = 0;

extern "C" int usleep(useconds_t micros) { return slept = micros, 0; }

TEST(Time, IsTextOf25CharactersOrCannotBeTold)
{
    ScopedEnv zone("TZ", "XYZ-5:30");
    ::tzset();
    CaptureErr captured;
    const std::pair<long, const char*> rows[] = {
        {1009, "Thu Jan  1 05:46:49 1970\n"}, {-1, ""}, {LONG_MAX, ""}};
    for (const auto& [now, text] : rows) {
        Fault clock("time", now);
        EXPECT_EQ(ZQCurrentTime(), text);
    }
    const string message = "ZQCurrentTime received error from localtime_r: ";
    EXPECT_EQ(captured.text(), message + std::strerror(EOVERFLOW) + "\n");
}

TEST(Time, SleepAndCyclesAreCountedIn32Bits)
{
    ZQSleep(4294968 + (1ul << 32));
    EXPECT_TRUE(slept == 704 && ZQCycleTime() >> 32 == 0);
}
