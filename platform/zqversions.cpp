#include "zqversions.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace ZQPlatform {

namespace {

using VersionFunction = ZQVersion (*)();

constexpr char BUILD_ID[] = ZQPLATFORM_BUILD_ID;
constexpr std::size_t firstCapacity = 1024;

// Built by the first registration, which may come before this library's own globals are built,
// and never destroyed, because a report may be asked for as late as in an exit handler.
std::vector<VersionFunction>& registry()
{
    static auto* const functions = new std::vector<VersionFunction>();
    return *functions;
}

}  // namespace

void ZQRegisterVersion(ZQVersion (*function)())
{
    if (registry().empty())
        registry().reserve(firstCapacity);
    registry().push_back(function);
}

void ZQGetVersions(zqostream& out)
{
    if (BUILD_ID[0] != '\0')
        out << "Build ID: " << BUILD_ID << zqendl << zqendl;

    std::vector<std::pair<std::string, std::string>> entries;  // group, line
    const std::size_t count = registry().size();  // those that register meanwhile come next time
    for (std::size_t i = 0; i < count; ++i) {
        const ZQVersion component = registry()[i]();
        entries.emplace_back(component.group, component.name + " Version: " + component.version);
    }
    std::sort(entries.begin(), entries.end());

    std::string heading;
    for (const auto& [group, line] : entries) {
        if (group != heading) {
            if (!heading.empty())
                out << zqendl;
            heading = group;
            out << "========== " << group << " ========== " << zqendl;
        }
        out << line << zqendl;
    }
}

std::string ZQToolkitsGetRelease()
{
    return "2020.1.0";
}

}  // namespace ZQPlatform
