#include "support/streams.h"

TEST(ProcessHelpers, TakeNothingForAnEmptyText)
{
    EXPECT_EQ(ZQProcessFileName(nullptr) + ZQProcessSystemCommand(nullptr), "");
}
