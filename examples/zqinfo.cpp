// zqinfo: what to paste into a bug report. Prints the release of the toolkit, the machine and the
// user it runs for, and the versions of all components that are loaded.
//
//   zqinfo > report.txt

#include "platform/zqplatform.h"

#include <gnu/libc-version.h>
#include <string>

using namespace ZQPlatform;

namespace {

const char usage[] = R"(Usage: zqinfo [--help | --version]
Prints what to paste into a bug report: release, machine, user and component versions.
What is not known is printed as "-".

The exit code is 0; 1 if the output could not be written; 2 for a wrong option.
)";

constexpr int exitFailed = 1;
constexpr int exitUsage = 2;

// ---- the components that this program brings along

ZQVersion program()
{
    return {"Programs", "zqinfo", ZQToolkitsGetRelease()};
}

ZQVersion compiler()
{
    return {"Built with", "C++ compiler", __VERSION__};
}

ZQVersion systemLibrary()
{
    return {"Runs on", "C library", ::gnu_get_libc_version()};
}

void registerComponents()
{
    for (const auto component : {program, compiler, systemLibrary})
        ZQRegisterVersion(component);
}

// ---- one line for each fact

void print(zqostream& out, const char* label, const std::string& value)
{
    constexpr std::size_t labelWidth = 14;
    std::string line = label;
    line.resize(labelWidth, ' ');
    out << line << (value.empty() ? "-" : value) << '\n';
}

void print(zqostream& out, const char* label, const char* value)
{
    print(out, label, std::string(value ? value : ""));
}

std::string addressText()
{
    const unsigned char* address = ZQGetIPAddress();
    if (!address)
        return std::string();
    std::string text = std::to_string(address[0]);
    for (int i = 1; i < 4; ++i)
        text += '.' + std::to_string(address[i]);
    return text;
}

std::string processorsText()
{
    const unsigned int processors = ZQGetNumProcessors();
    return processors == 0 ? std::string() : std::to_string(processors);
}

std::string memoryText()
{
    unsigned long size, resident;
    ZQGetProcessMemUsage(size, resident);
    if (size == 0)
        return std::string();
    return std::to_string(size) + " KiB, " + std::to_string(resident) + " KiB of it resident";
}

void printReport(zqostream& out)
{
    print(out, "Release", ZQToolkitsGetRelease());
    const std::string now = ZQCurrentTime();
    print(out, "Time", now.substr(0, now.find('\n')));
    out << '\n';
    print(out, "Host", ZQGetHostName());
    print(out, "Domain", ZQGetDomainName());
    print(out, "Address", addressText());
    print(out, "Processors", processorsText());
    print(out, "Architecture", ZQGetProcessorInfo());
    print(out, "Platform", ZQGetPlatformInfo());
    out << '\n';
    print(out, "User", ZQGetUserName());
    print(out, "Home", ZQGetUserHomeDir());
    print(out, "Temporary", ZQFileTempPath());
    print(out, "Memory", memoryText());
    out << '\n';
    ZQGetVersions(out);
}

// Returns the exit code.
int writeOut(const std::string& text)
{
    if (zqout.write(text) == text.size() && zqout.flush())
        return 0;
    zqerr << "zqinfo: standard output: a write failed" << zqendl;
    return exitFailed;
}

}  // namespace

int main(int argc, char** argv)
{
    const std::string option = argc > 1 ? argv[1] : "";
    if (argc > 2 || (argc == 2 && option != "--help" && option != "--version")) {
        zqerr << "zqinfo: wrong arguments. Try 'zqinfo --help'." << zqendl;
        return exitUsage;
    }
    zqosstream text;
    if (option == "--help") {
        text << usage;
    } else if (option == "--version") {
        text << "zqinfo " << ZQToolkitsGetRelease() << '\n';
    } else {
        registerComponents();
        printReport(text);
    }
    return writeOut(text.str());
}
