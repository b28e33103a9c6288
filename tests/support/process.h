// Temporary directories, captured descriptors, environment variables, child processes.

#pragma once

#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <optional>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

using std::string;

inline string readFile(const string& path)
{
    std::ostringstream bytes;
    bytes << std::ifstream(path, std::ios::binary).rdbuf();
    return bytes.str();
}

inline void writeFile(const string& path, const string& bytes)
{
    std::ofstream(path, std::ios::binary) << bytes;
}

// A directory that goes, with all it holds, at the end of the scope.
struct TempDir {
    TempDir()
    {
        path = (std::filesystem::temp_directory_path() / "zqtest_XXXXXX").string();
        if (!::mkdtemp(path.data())) throw std::filesystem::filesystem_error(path, {});
    }
    ~TempDir() { std::filesystem::remove_all(path); }
    string operator/(const string& name) const { return path + "/" + name; }

    string path;
};

// A temporary directory that is the current one for the scope.
struct WorkingDir : TempDir {
    WorkingDir() { std::filesystem::current_path(path = std::filesystem::canonical(path)); }
    ~WorkingDir() { std::filesystem::current_path("/"); }
};

// Collects what goes to descriptor 2 (1 with CaptureOut) until text() is called, once.
struct CaptureErr {
    CaptureErr() { testing::internal::CaptureStderr(); }
    string text() { return testing::internal::GetCapturedStderr(); }
};
struct CaptureOut {
    CaptureOut() { testing::internal::CaptureStdout(); }
    string text() { return testing::internal::GetCapturedStdout(); }
};

// Sets (or, with null, unsets) an environment variable for the scope.
struct ScopedEnv {
    ScopedEnv(const char* name, const char* value) : _name(name)
    {
        if (const char* old = std::getenv(name)) _old = old;
        assign(value);
    }
    ~ScopedEnv() { assign(_old ? _old->c_str() : nullptr); }
    void assign(const char* value) { value ? ::setenv(_name, value, 1) : ::unsetenv(_name); }
    const char* _name;
    std::optional<string> _old;
};

struct ChildResult {
    int status = 0;  // as waitpid gives it
    string err;      // what it wrote to descriptor 2
};

#ifdef ZQPLATFORM_COVERAGE
// Writes what was counted, in the root of before: the working directory lies outside of another.
constexpr auto endChild = [](int s) {
    std::exit((::chdir("../../../../../../../../../.."), ::chroot("."), s));
};
#else
constexpr auto endChild = ::_exit;
#endif

// Runs 'body' in a child process, which ends after it with status 0 or as body ends it.
template <class Body> ChildResult runChild(Body body)
{
    CaptureErr captured;
    ChildResult result;
    const pid_t child = ::fork();
    if (child == 0) {
#ifdef ZQPLATFORM_COVERAGE
        std::signal(SIGABRT, [](int) { ::fork() == 0 ? std::exit(0) : void(::wait(nullptr)); });
#endif
        endChild((body(), 0));
    }
    EXPECT_EQ(::waitpid(child, &result.status, 0), child);
    result.err = captured.text();
    return result;
}

// How many descriptors the process has open.
inline long openDescriptors()
{
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}
