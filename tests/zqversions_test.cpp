#include "support/streams.h"

TEST(Versions, AreListedByGroupAndThenByLine)
{
    zqosstream out;
    ZQGetVersions(out);  // nothing, or the identifier of this build
    const string head = out.str() + out.str();
    ZQRegisterVersion([] { return ZQVersion{"Toolkit", "beta", "1.2"}; });
    ZQRegisterVersion([] { return ZQVersion{"Toolkit", "alpha", "3.0"}; });
    ZQRegisterVersion([] { return ZQVersion{"Extras", "gamma", "0.9"}; });
    ZQRegisterVersion([] { return ZQVersion{"", "lone", "2"}; });
    string report = "lone Version: 2\n========== Extras ========== \ngamma Version: 0.9\n\n"
                    "========== Toolkit ========== \nalpha Version: 3.0\nbeta Version: 1.2\n\n"
                    "========== \xFF ========== \n";
    for (int i = 0; i < 1500; ++i) {
        ZQRegisterVersion([] { return ZQVersion{"\xFF", "", ""}; });
        report += " Version: \n";
    }
    ZQGetVersions(out);
    EXPECT_TRUE(out.str() == head + report) << out.str().substr(0, 300);
}
