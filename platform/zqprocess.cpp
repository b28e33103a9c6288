#include "zqprocess.h"

#include <cctype>
#include <cstdlib>
#include <pwd.h>
#include <string_view>

namespace ZQPlatform {

namespace {

bool isSpace(char c)
{
    return std::isspace(static_cast<unsigned char>(c)) != 0;
}

bool isDropped(char c)
{
    constexpr std::string_view dropped = "\t\n \"&'();<>[]{|}";
    return dropped.find(c) != dropped.npos;
}

const char* skipSpace(const char* text)
{
    while (isSpace(*text))
        ++text;
    return text;
}

// What "~user" stands for; an empty 'user' is the caller's own.
std::string homeOf(const std::string& user)
{
    if (user.empty()) {
        const char* home = std::getenv("HOME");
        return home ? home : ".";
    }
    const passwd* entry = ::getpwnam(user.c_str());
    if (!entry)
        return "~" + user;
    std::string home = entry->pw_dir ? entry->pw_dir : "";
    ::endpwent();
    return home;
}

}  // namespace

std::string ZQProcessFileName(const char* name)
{
    std::string out;
    if (!name)
        return out;

    const char* p = skipSpace(name);
    if (*p == '~') {
        const char* user = ++p;
        while (*p != '\0' && *p != '/' && !isSpace(*p))
            ++p;
        out = homeOf(std::string(user, p));
    }
    for (; *p != '\0' && !isSpace(*p); ++p) {
        if (!isDropped(*p))
            out += *p;
    }
    return out;
}

std::string ZQProcessSystemCommand(const char* command)
{
    std::string out;
    if (!command)
        return out;

    for (const char* p = skipSpace(command); *p != '\0'; ++p) {
        if (!isDropped(*p))
            out += *p;
    }
    return out;
}

}  // namespace ZQPlatform
