#include "platform/zqplatform.h"
#include "support/process.h"

using namespace ZQPlatform;

TEST(ProcessHelpers, ExpandTheHomeAndDropWhatAShellWouldRead)
{
    const struct {
        const char *text, *home, *fileName, *command;
    } rows[] = {
        {nullptr, "/u", "", ""},
        {" \t\n\v\f\r", "/u", "", ""},
        {"  ~/data/x.txt  more", "/home/u", "/home/u/data/x.txt", "~/data/x.txtmore"},
        {"~", nullptr, ".", "~"},
        {"~\fx", "", "", "~\fx"},
        {"~/(x)", "/a b(c)", "/a b(c)/x", "~/x"},
        {"~root/f", "/u", "/root/f", "~root/f"},
        {"~no;such(user)/f;", "/u", "~no;such(user)/f", "~nosuchuser/f"},
        {"a~(b);$c*", "/u", "a~b$c*", "a~b$c*"},
        {"rm -rf; ls\r| wc", "/u", "rm", "rm-rfls\rwc"},
    };
    for (const auto& row : rows) {
        ScopedEnv home("HOME", row.home);
        EXPECT_EQ(ZQProcessFileName(row.text), row.fileName);
        EXPECT_EQ(ZQProcessSystemCommand(row.text), row.command);
    }
    std::string all = "x";
    for (char c = 0; ++c != 0;) all += c;
    EXPECT_EQ(ZQProcessSystemCommand(all.c_str()).size(), all.size() - 16);
}
