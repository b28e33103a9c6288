// Temporary directories, captured descriptors, environment variables, child processes.

#ifndef ZQPLATFORM_TESTS_PROCESS_H
#define ZQPLATFORM_TESTS_PROCESS_H

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <optional>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

inline std::string readFile(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

inline void writeFile(const std::string& path, const std::string& bytes)
{
    std::ofstream(path, std::ios::binary) << bytes;
}

// A directory that goes, with all it holds, at the end of the scope.
class TempDir {
public:
    TempDir()
    {
        std::string name = (std::filesystem::temp_directory_path() / "zqtest_XXXXXX").string();
        path = ::mkdtemp(name.data()) ? name : "";
        EXPECT_FALSE(path.empty());
    }
    ~TempDir() { std::filesystem::remove_all(path); }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    std::string operator/(const std::string& name) const { return path + "/" + name; }

    std::string path;
};

// Collects what goes to a descriptor until text() is called, once.
class CaptureFd {
public:
    explicit CaptureFd(int fd) : _fd(fd), _saved(::dup(fd)), _file(::tmpfile())
    {
        std::fflush(nullptr);  // what was printed before goes where it was meant to go
        ::dup2(::fileno(_file), _fd);
    }
    ~CaptureFd() { restore(); }
    CaptureFd(const CaptureFd&) = delete;
    CaptureFd& operator=(const CaptureFd&) = delete;

    std::string text()
    {
        std::string all(static_cast<std::size_t>(::lseek(_fd, 0, SEEK_END)), 0);
        EXPECT_EQ(::pread(_fd, all.data(), all.size(), 0), static_cast<ssize_t>(all.size()));
        restore();
        return all;
    }

private:
    void restore()
    {
        if (!_file) return;
        ::dup2(_saved, _fd);
        ::close(_saved);
        std::fclose(std::exchange(_file, nullptr));
    }
    int _fd, _saved;
    FILE* _file;
};

struct CaptureErr : CaptureFd {
    CaptureErr() : CaptureFd(2) {}
};

// Sets (or, with null, unsets) an environment variable for the scope.
class ScopedEnv {
public:
    ScopedEnv(const char* name, const char* value) : _name(name)
    {
        if (const char* old = std::getenv(name)) _old = old;
        assign(value);
    }
    ~ScopedEnv() { assign(_old ? _old->c_str() : nullptr); }
    ScopedEnv(const ScopedEnv&) = delete;
    ScopedEnv& operator=(const ScopedEnv&) = delete;

private:
    void assign(const char* value) { value ? ::setenv(_name, value, 1) : ::unsetenv(_name); }
    const char* _name;
    std::optional<std::string> _old;
};

struct ChildResult {
    int status = 0;   // as waitpid gives it
    std::string err;  // what it wrote to descriptor 2
};

// Runs 'body' in a child process, which ends after it with status 0 or as body ends it.
template <class Body> ChildResult runChild(Body body)
{
    CaptureErr captured;
    ChildResult result;
    const pid_t child = ::fork();
    if (child == 0) {
        body();
        ::_exit(0);
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

#endif
