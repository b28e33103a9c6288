// File names and commands that a user typed, character by character.

#include "fuzz.h"

#include <cctype>
#include <cstring>
#include <pwd.h>

namespace {

bool isSpace(char c) { return c != '\0' && std::strchr(" \t\n\v\f\r", c); }

bool isDropped(char c) { return c != '\0' && std::strchr("\t\n \"&'();<>[]{|}", c); }

string home(const string& user)
{
    const char* own = std::getenv("HOME");
    if (user.empty()) return own ? own : ".";
    const passwd* entry = ::getpwnam(user.c_str());
    return entry ? entry->pw_dir : '~' + user;
}

// The text from the first character that is no white space on, up to a NUL.
string trimmed(const string& text)
{
    size_t start = 0;
    while (start < text.size() && isSpace(text[start])) ++start;
    return text.c_str() + std::min(start, std::strlen(text.c_str()));
}

string fileName(const string& text)
{
    string name, user;
    size_t i = 0;
    const string typed = trimmed(text);
    if (typed[0] == '~') {
        for (i = 1; i < typed.size() && typed[i] != '/' && !isSpace(typed[i]); ++i)
            user += typed[i];
        name = home(user);
    }
    for (; i < typed.size() && !isSpace(typed[i]); ++i)
        name += isDropped(typed[i]) ? "" : string(1, typed[i]);
    return name;
}

string command(const string& text)
{
    string kept;
    for (char c : trimmed(text)) kept += isDropped(c) ? "" : string(1, c);
    return kept;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* bytes, size_t size)
{
    Input input(bytes, size);
    input.flag() ? ::setenv("HOME", input.bytes(input.upTo(20)).c_str(), 1) : ::unsetenv("HOME");
    const string text = input.rest();
    CHECK(ZQProcessFileName(text.c_str()) == fileName(text));
    CHECK(ZQProcessSystemCommand(text.c_str()) == command(text));
    return 0;
}
