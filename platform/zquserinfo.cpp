#include "zquserinfo.h"

#include "file.h"

#include <cstdlib>
#include <pwd.h>
#include <unistd.h>

namespace ZQPlatform {

std::string ZQGetUserName()
{
    const passwd* entry = ::getpwuid(::getuid());
    return entry && entry->pw_name ? entry->pw_name : "";
}

std::string ZQGetUserHomeDir()
{
    const char* home = std::getenv("HOME");
    return home && *home != '\0' && ZQFileIsDirectory(home) ? home : "";
}

std::string ZQGetUserAppDataDir()
{
    return ZQGetUserHomeDir();
}

std::string ZQGetUserDocumentsDir()
{
    return ZQGetUserHomeDir();
}

}  // namespace ZQPlatform
