#include "hostinfo_common.h"

#include "file.h"
#include "zqstream.h"
#include "zqthread.h"

#include <algorithm>
#include <cstring>
#include <ifaddrs.h>
#include <memory>
#include <netdb.h>
#include <netinet/in.h>
#include <string_view>
#include <sys/utsname.h>
#include <unistd.h>

namespace ZQPlatform {

namespace {

constexpr std::size_t nameSize = 128;  // with the NUL

// Each is written once, by the function below that its query passes to ZQCallOnce.
char hostName[nameSize];                 // empty: unknown
char domainName[nameSize];               // empty: unknown
unsigned char ipAddress[4];              // first byte 0: unknown
constexpr unsigned char loopback = 127;  // first byte of the loopback addresses

using Query = int (*)(char*, std::size_t);

// Asks the platform for a name of at most nameSize - 1 bytes; it does not terminate a longer one.
bool askForName(Query query, char* out)
{
    const bool known = query(out, nameSize) == 0;
    out[nameSize - 1] = '\0';
    return known;
}

void ZQSplitHostName(char* out, const char* in)
{
    while (*in != '\0' && *in != '.')
        *out++ = *in++;
    *out = '\0';
}

// Deliberate: empties 'out' before it reads 'in', so that it fails where both are one buffer.
bool ZQSplitDomainName(char* out, const char* in)
{
    *out = '\0';
    const char* dot = std::strchr(in, '.');
    if (!dot)
        return false;
    const std::size_t length = std::min(std::strlen(dot + 1), nameSize - 1);
    std::memcpy(out, dot + 1, length);
    out[length] = '\0';
    return true;
}

void ZQInitHostName()
{
    if (!askForName(::gethostname, hostName))
        hostName[0] = '\0';
    ZQSplitHostName(hostName, hostName);
}

void ZQInitDomainName()
{
    if (askForName(::getdomainname, domainName) && domainName[0] != '\0' &&
        std::strcmp(domainName, "(none)") != 0)
        return;
    // Deliberate: the split fails and leaves an empty name for the resolver, which may know one.
    if (askForName(::gethostname, domainName) && ZQSplitDomainName(domainName, domainName))
        return;
    const hostent* entry = ::gethostbyname(domainName);
    if (entry && entry->h_name && ZQSplitDomainName(domainName, entry->h_name))
        return;
    domainName[0] = '\0';
}

void ZQInitIPAddress()
{
    ifaddrs* first = nullptr;
    if (::getifaddrs(&first) != 0)
        return;
    const std::unique_ptr<ifaddrs, decltype(&::freeifaddrs)> list(first, ::freeifaddrs);
    for (const ifaddrs* entry = first; entry; entry = entry->ifa_next) {
        if (!entry->ifa_addr || entry->ifa_addr->sa_family != AF_INET)
            continue;
        const auto* address = reinterpret_cast<const sockaddr_in*>(entry->ifa_addr);
        std::memcpy(ipAddress, &address->sin_addr, sizeof ipAddress);
        if (ipAddress[0] != loopback)
            return;
    }
}

// The receive callback of a data-transfer library: adds the block to the string 'target'.
[[maybe_unused]] std::size_t write_callback(const char* data, std::size_t size, std::size_t count,
                                            void* target)
{
    static_cast<std::string*>(target)->append(data, size * count);
    return size * count;
}

// Calls 'use' with each line of a file. The stream is too large for a small thread's stack.
template <class Use> void forEachLine(const char* name, Use use)
{
    const auto file = std::make_unique<zqifstream>(name);
    std::string line;
    while (file->getline(line))
        use(line);
}

bool startsWith(const std::string& line, std::string_view start)
{
    return line.compare(0, start.size(), start) == 0;
}

// A field of the kernel's identification record, which it may fill to the last byte.
std::string fieldText(const char* field)
{
    return std::string(field, ::strnlen(field, sizeof utsname::sysname));
}

}  // namespace

const char* ZQGetHostName()
{
    ZQCallOnce<&ZQInitHostName>();
    return hostName[0] != '\0' ? hostName : nullptr;
}

const char* ZQGetDomainName()
{
    ZQCallOnce<&ZQInitDomainName>();
    return domainName[0] != '\0' ? domainName : nullptr;
}

const unsigned char* ZQGetIPAddress()
{
    ZQCallOnce<&ZQInitIPAddress>();
    return ipAddress[0] != 0 ? ipAddress : nullptr;
}

unsigned int ZQGetNumProcessors()
{
    for (const int which : {_SC_NPROCESSORS_ONLN, _SC_NPROCESSORS_CONF}) {
        const auto processors = static_cast<unsigned int>(::sysconf(which));
        if (processors != 0)
            return processors;
    }
    unsigned int listed = 0;
    if (ZQFileExists("/proc/cpuinfo")) {
        forEachLine("/proc/cpuinfo", [&](const std::string& line) {
            if (startsWith(line, "processor"))
                ++listed;
        });
    }
    return listed;
}

std::string ZQGetMachineName()
{
    return std::string();
}

std::string ZQGetPlatformInfo()
{
    utsname kernel = {};
    ::uname(&kernel);  // result ignored: the fields stay empty
    std::string info = fieldText(kernel.sysname);
    if (ZQFileIsReadable("/etc/lsb-release")) {
        constexpr std::string_view key = "DISTRIB_DESCRIPTION=";
        forEachLine("/etc/lsb-release", [&](const std::string& line) {
            if (line.size() > key.size() && startsWith(line, key))
                info = line.substr(key.size());
        });
    }
    const std::string release = fieldText(kernel.release);
    return release.empty() ? info : info + " (" + release + ")";
}

std::string ZQGetProcessorInfo()
{
    utsname kernel = {};
    ::uname(&kernel);  // result ignored: the field stays empty
    return fieldText(kernel.machine);
}

}  // namespace ZQPlatform
