#include "platform/zqplatform.h"
#include "support/streams.h"

using namespace ZQPlatform;

namespace {

std::string versionReport()
{
    FailingSink sink(1 << 20);
    ZQGetVersions(sink);
    return sink.taken;
}

}  // namespace

TEST(Versions, AreListedByGroupAndThenByLine)
{
    static int calls = 0;
    EXPECT_EQ(versionReport(), "");
    ZQRegisterVersion([] { return ZQVersion{"Toolkit", "beta", "1.2"}; });
    ZQRegisterVersion([] { return ZQVersion{"Toolkit", "alpha", "3.0"}; });
    ZQRegisterVersion([] { return ZQVersion{"Extras", "gamma", "0.9"}; });
    ZQRegisterVersion([] { return ZQVersion{"", "lone", std::to_string(++calls)}; });
    const std::string groups = "========== Extras ========== \ngamma Version: 0.9\n\n"
                               "========== Toolkit ========== \n"
                               "alpha Version: 3.0\nbeta Version: 1.2\n";
    EXPECT_EQ(versionReport(), "lone Version: 1\n" + groups);

    std::string many = "lone Version: 2\n" + groups;
    for (int i = 0; i < 1500; ++i) {
        ZQRegisterVersion([] { return ZQVersion{"\xFF", "", ""}; });
        many += i == 0 ? "\n========== \xFF ========== \n" : "";
        many += " Version: \n";
    }
    EXPECT_EQ(versionReport(), many);
}
