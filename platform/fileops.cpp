#include "file.h"

#include "zqstream.h"
#include "zqthread.h"

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace ZQPlatform {

namespace {

// Owns a descriptor; -1: none.
class Descriptor {
public:
    explicit Descriptor(int fd) : _fd(fd) {}
    ~Descriptor()
    {
        if (valid())
            ::close(_fd);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    bool valid() const { return _fd != -1; }

private:
    int _fd;
};

struct CloseDirectory {
    void operator()(DIR* directory) const { ::closedir(directory); }
};

// mkstemp and mkdtemp replace the last six characters.
constexpr char namePattern[] = "ZQ_XXXXXX";

// Decides on the directory of temporary files.
struct GetTempPath {
    using value_type = std::string;

    std::string operator()() const
    {
        const char* chosen = std::getenv("TMPDIR");
        if (chosen && ZQFileExists(chosen))
            return chosen;
        return ZQFileExists("/tmp") ? "/tmp" : "";
    }
};

void warnOfRandomNames()
{
    zqerr << "ZQFileRandomName is deprecated as of Tavok 1.9.1 (2013.Feb):" << zqendl;
    zqerr << "  Use ZQFileTempDescriptor or ZQFileTempDirectory instead to avoid" << zqendl;
    zqerr << "  race conditions and security vulnerabilities." << zqendl;
}

}  // namespace

// ---- Creation and deletion

bool ZQFileDelete(const std::string& path)
{
    return ::remove(path.c_str()) == 0;
}

bool ZQFileDelete(ZQFile& file)
{
    return ZQFileDelete(file.AbsPath()) && file.Refresh();
}

ZQFile ZQFileCreate(const std::string& path, int mode)
{
    ZQFile file(path);
    if (file.Exists())
        return file;
    const Descriptor created(::open(file.AbsPath().c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                    static_cast<mode_t>(mode)));  // the same bits, unsigned
    if (created.valid())
        file.Refresh();
    return file;
}

// ---- Temporary files and directories

std::string ZQFileTempPath()
{
    static ZQOnce<GetTempPath> tempPath;
    return tempPath.Get();
}

int ZQFileTempDescriptor(std::string& name)
{
    std::string path = ZQFileTempPath() + ZQFile::Separator + namePattern;
    const int fd = ::mkstemp(path.data());
    if (fd == -1)
        std::perror("mkstemp failed");
    name = std::move(path);
    return fd;
}

std::string ZQFileTempDirectory(const std::string& dir)
{
    std::string path = dir.empty() ? ZQFileTempPath() : dir;
    if (!path.empty() && path.back() != ZQFile::Separator)
        path += ZQFile::Separator;
    path += namePattern;
    if (::mkdtemp(path.data()))
        return path;
    std::perror("mkdtemp failed");
    return std::string();
}

std::string ZQFileRandomName()
{
    ZQCallOnce<&warnOfRandomNames>();
    const std::string seconds = std::to_string(static_cast<int>(std::time(nullptr)));  // 32 bits
    return seconds + std::to_string(std::rand() % 100);
}

// ---- ZQDirectoryScan

struct ZQDirectoryScan::Record {
    std::unique_ptr<DIR, CloseDirectory> handle;  // null: closed
};

ZQDirectoryScan::ZQDirectoryScan(const char* path) : _record(std::make_unique<Record>())
{
    _record->handle.reset(::opendir(path ? path : "."));
}

ZQDirectoryScan::ZQDirectoryScan(const std::string& path) : ZQDirectoryScan(path.c_str()) {}

ZQDirectoryScan::~ZQDirectoryScan() = default;

const char* ZQDirectoryScan::Next()
{
    if (!_record->handle)
        return nullptr;
    if (const dirent* entry = ::readdir(_record->handle.get()))
        return entry->d_name;
    Close();
    return nullptr;
}

void ZQDirectoryScan::Close()
{
    _record->handle.reset();
}

ZQDirectoryScan::operator bool() const
{
    return _record->handle != nullptr;
}

// ---- Single calls of the platform

bool ZQUnlink(const char* path)
{
    return path && ::unlink(path) == 0;
}

bool ZQRenameFile(const char* from, const char* to)
{
    return from && to && ::rename(from, to) == 0;
}

bool ZQCreateDirectory(const char* path)
{
    return path && ::mkdir(path, 0755) == 0;
}

bool ZQUnlinkDirectory(const char* path)
{
    return path && ::rmdir(path) == 0;
}

}  // namespace ZQPlatform
