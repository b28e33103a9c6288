#include "support/streams.h"

TEST(ProcessHelpers, ExpandTheHomeAndDropWhatAShellWouldRead)
{
    const char* const rows[][4] = {
        // text, HOME, as a file name, as a command
        {nullptr, "/u", "", ""},
        {" \t\n\v\f\r", "/u", "", ""},
        {"  ~/data/(x)  more", "/a (b)", "/a (b)/data/x", "~/data/xmore"},
        {"~\fx", nullptr, ".", "~\fx"},
        {"~root/f", "/u", "/root/f", "~root/f"},
        {"~no;such(user)/f;", "/u", "~no;such(user)/f", "~nosuchuser/f"},
        {"a\"&'();<>[]{|}$`*?\\~", "/u", "a$`*?\\~", "a$`*?\\~"},
        {"rm -rf; ls\r| \t\nwc", "/u", "rm", "rm-rfls\rwc"}};
    for (const auto& [text, home, fileName, command] : rows) {
        ScopedEnv variable("HOME", home);
        EXPECT_EQ(ZQProcessFileName(text), fileName);
        EXPECT_EQ(ZQProcessSystemCommand(text), command);
    }
}
