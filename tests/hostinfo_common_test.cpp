#include "support/interpose.h"
#include "support/streams.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <iostream>
#include <netdb.h>
#include <sys/utsname.h>

// What the platform answers; null: the call fails.
static struct Machine {
    const char *host, *domain, *resolved;
    std::vector<const char*> addresses;  // null: an interface without one
    string told;                         // host, domain, address, what the resolver was asked
} machine;
static string asked = "nobody";

static int answer(const char* text, char* name, size_t size)
{
    return text ? (std::strncpy(name, text, size), 0) : -1;
}
extern "C" int gethostname(char* n, size_t s) noexcept { return answer(machine.host, n, s); }
extern "C" int getdomainname(char* n, size_t s) noexcept { return answer(machine.domain, n, s); }

extern "C" hostent* gethostbyname(const char* name)
{
    static hostent entry;
    asked = name;
    entry.h_name = const_cast<char*>(machine.resolved);
    return machine.resolved ? &entry : nullptr;
}

extern "C" int getifaddrs(ifaddrs** list) noexcept
{
    static ifaddrs entries[4];
    static sockaddr_in addresses[4];
    *list = nullptr;
    for (size_t i = machine.addresses.size(); i-- > 0; *list = &entries[i]) {
        const char* text = machine.addresses[i];
        const bool ipv4 = text && ::inet_aton(text, &addresses[i].sin_addr) != 0;
        addresses[i].sin_family = ipv4 ? AF_INET : AF_INET6;
        entries[i].ifa_addr = text ? reinterpret_cast<sockaddr*>(&addresses[i]) : nullptr;
        entries[i].ifa_next = *list;
    }
    return *list ? 0 : -1;
}

extern "C" void freeifaddrs(ifaddrs*) noexcept { asked += " freed"; }

static string tell()
{
    const char *host = ZQGetHostName(), *domain = ZQGetDomainName();
    const auto* address = reinterpret_cast<const in_addr*>(ZQGetIPAddress());
    return string(host ? host : "-") + "|" + (domain ? domain : "-") + "|" +
           (address ? ::inet_ntoa(*address) : "-") + "|" + asked;
}

TEST(HostInfo, KeepsTheNamesAndTheAddressOfTheFirstCall)
{
    const string h128(128, 'h'), d200(200, 'd'), full = "h." + d200;
    const Machine rows[] = {
        {"a.b.c", "nis.dom", "h.x", {"10.1.2.3"}, "a|nis.dom|10.1.2.3|nobody freed"},
        {".a", "(none)", "x.y", {"127.0.0.1", nullptr, "1.1.1.1", "2.2.2.2"}, "-|y|1.1.1.1| freed"},
        {"", "", "plain", {"::1", "127.0.0.1", "127.9.9.9", "::2"}, "-|-|127.9.9.9| freed"},
        {nullptr, "(none)", "h.", {}, "-|-|-|(none)"},
        {h128.c_str(), d200.c_str(), "", {}, h128.substr(1) + "|" + d200.substr(73) + "|-|nobody"},
        {"h", nullptr, full.c_str(), {"0.1.1.1"}, "h|" + d200.substr(73) + "|-| freed"}};
    for (const Machine& row : rows) {
        machine = row;
        const auto child = runChild([] {
            const string first = tell();
            machine = {"other", "other", nullptr, {"1.1.1.1"}, ""};
            std::cerr << (tell() == first ? first : "changed");
        });
        EXPECT_EQ(child.err, row.told);
    }
}

TEST(HostInfo, CountsProcessorsAndDescribesThePlatform)
{
    for (const long online : {3L, -1L})
        EXPECT_EQ((Fault("sysconf", online), ZQGetNumProcessors()), (unsigned int)online);
    TempDir root;
    for (const char* name : {"etc", "proc"}) std::filesystem::create_directory(root / name);
    writeFile(root / "proc/cpuinfo", "processor : 0\nprocessor\nx processor\nprocessors");
    writeFile(root / "etc/lsb-release", "DISTRIB_DESCRIPTION=no\nxDISTRIB_DESCRIPTION=no\n"
                                        "DISTRIB_DESCRIPTION=\"Q  1\" \nDISTRIB_DESCRIPTION=\n");
    utsname kernel;
    ::uname(&kernel);
    const auto child = runChild([&] {
        if (::chroot(root.path.c_str()) != 0) return;
        Fault noneTold("sysconf", 0);
        std::cerr << ZQGetPlatformInfo() << ZQGetMachineName() << ZQGetNumProcessors()
                  << ZQUnlink("/proc/cpuinfo") << ZQGetNumProcessors();
    });
    if (child.err.empty()) GTEST_SKIP() << "only root may change the root";
    EXPECT_EQ(child.err, "\"Q  1\"  (" + string(kernel.release) + ")310");
}

TEST(UserInfo, HasAHomeWhereHomeIsADirectory)
{
    for (const char* value : {"", "/etc/passwd", "/etc/", (const char*)nullptr})
        for (const auto directory : {ZQGetUserHomeDir, ZQGetUserAppDataDir, ZQGetUserDocumentsDir})
            EXPECT_EQ((ScopedEnv("HOME", value), directory()),
                      value && value == string("/etc/") ? value : "");
}
