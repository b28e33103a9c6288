#include "file.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <sys/stat.h>

// The C library's own names for the plain calls. With _FORTIFY_SOURCE its headers turn the usual
// spelling into calls of checking variants, which programs that put themselves in place of
// realpath or getcwd would not see.
extern "C" char* plainGetcwd(char* buffer, std::size_t size) noexcept __asm__("getcwd");
extern "C" char* plainRealpath(const char* path, char* resolved) noexcept __asm__("realpath");

namespace ZQPlatform {

namespace ZQPrivateFile {

constexpr char WrongSeparator = '\\';
constexpr char RightSeparator = '/';

}  // namespace ZQPrivateFile

namespace {

using ZQPrivateFile::RightSeparator;
using ZQPrivateFile::WrongSeparator;

bool isSeparator(char c)
{
    return c == RightSeparator || c == WrongSeparator;
}

// The path without the one separator that may end it.
std::string_view trimmed(std::string_view path)
{
    if (!path.empty() && isSeparator(path.back()))
        path.remove_suffix(1);
    return path;
}

bool hasWrongSeparator(const std::string& path)
{
    return path.find(WrongSeparator) != path.npos;
}

// The path with the right separators, all of which it keeps.
std::string withRightSeparators(std::string path)
{
    std::replace(path.begin(), path.end(), WrongSeparator, RightSeparator);
    return path;
}

// The two parts of a path with the right separators, as they stand in it.
struct Parts {
    std::string_view dir;
    std::string_view name;
};

Parts split(std::string_view path)
{
    path = trimmed(trimmed(path));  // correcting removes one separator, the end of a part another
    const char* const first = path.data();
    const auto* const slash =
        static_cast<const char*>(::memrchr(first, RightSeparator, path.size()));
    if (!slash)
        return {path.substr(0, 0), path};
    const auto start = static_cast<std::size_t>(slash + 1 - first);
    const std::size_t dirLength = start > 1 ? start - 1 : start;  // the root keeps its separator
    return {{first, dirLength}, {slash + 1, path.size() - start}};
}

bool isSelfOrParent(const char* name)
{
    return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0;
}

}  // namespace

// ---- Paths

void ZQFileCorrectSeparators(std::string& path)
{
    path = withRightSeparators(std::move(path));
    if (!path.empty() && path.back() == RightSeparator)
        path.pop_back();
}

std::string ZQFileDetermineName(const std::string& path)
{
    return std::string(split(withRightSeparators(path)).name);
}

std::string ZQFileDeterminePath(const std::string& path)
{
    return std::string(split(withRightSeparators(path)).dir);
}

void ZQFileDeterminePathAndName(const std::string& path, std::string& dir, std::string& name)
{
    if (hasWrongSeparator(path) || &path == &dir || &path == &name)
        return ZQFileDeterminePathAndName(withRightSeparators(path), dir, name);
    const Parts parts = split(path);
    dir = parts.dir;
    name = parts.name;
}

std::string ZQGetAbsolutePath(const std::string& path)
{
    std::string expanded = path;
    if (!path.empty() && path.front() == '~')
        if (const char* home = std::getenv("HOME"))
            expanded.replace(0, 1, home);

    char resolved[PATH_MAX];
    return plainRealpath(expanded.c_str(), resolved) ? std::string(resolved) : std::string();
}

std::string ZQGetCurrentWorkingDirectory()
{
    for (std::size_t size = 10240;; size *= 2) {
        const std::unique_ptr<char[]> buffer(new char[size]);
        if (plainGetcwd(buffer.get(), size))
            return buffer.get();
        if (errno != ERANGE)
            return ".";
    }
}

// ---- ZQFile

struct ZQFile::Record {
    std::string path;           // directory, separator and name, or the name alone
    std::size_t dirLength = 0;  // 0: no directory
    bool known = false;         // the platform was asked for the status
    bool exists = false;        // and gave it
    struct stat status;

    // The path has the right separators.
    explicit Record(std::string_view given)
    {
        const auto [dir, name] = split(given);
        dirLength = dir.size();
        path.assign(given.data(), name.data() + name.size());
        if (dirLength != 0 && name.data() == dir.data() + dirLength)  // "/name" loses no separator
            path.insert(dirLength, 1, Separator);
    }

    std::string dir() const { return path.substr(0, dirLength); }
    std::string name() const { return path.substr(dirLength == 0 ? 0 : dirLength + 1); }

    bool query()
    {
        if (!known) {
            exists = ::stat(path.c_str(), &status) == 0;
            known = true;
        }
        return exists;
    }

    bool modeHas(unsigned int bit) { return query() && (status.st_mode & bit) != 0; }
};

ZQFile::ZQFile(const std::string& path)
{
    Set(path);
}

ZQFile::ZQFile(const std::string& dir, const std::string& name)
{
    Set(dir, name);
}

ZQFile::ZQFile(const ZQFile& other)
{
    Set(other.DirPath(), other.FileName());
}

ZQFile& ZQFile::operator=(const ZQFile& other)
{
    if (this != &other)
        Set(other.DirPath(), other.FileName());
    return *this;
}

ZQFile::ZQFile(ZQFile&&) noexcept = default;

ZQFile& ZQFile::operator=(ZQFile&&) noexcept = default;

ZQFile::~ZQFile() = default;

bool ZQFile::Set(const std::string& path)
{
    _record = hasWrongSeparator(path) ? std::make_unique<Record>(withRightSeparators(path))
                                      : std::make_unique<Record>(path);
    return true;
}

bool ZQFile::Set(const std::string& dir, const std::string& name)
{
    const std::string_view parent = trimmed(dir);
    std::string path;
    path.reserve(parent.size() + 1 + name.size());
    if (!parent.empty())
        path.append(parent).append(1, Separator);
    path.append(trimmed(name));
    return Set(path);  // which corrects the separators inside
}

bool ZQFile::Refresh()
{
    return Set(DirPath(), FileName());
}

std::string ZQFile::AbsPath() const
{
    return _record ? _record->path : std::string();
}

std::string ZQFile::DirPath() const
{
    return _record ? _record->dir() : std::string();
}

std::string ZQFile::FileName() const
{
    return _record ? _record->name() : std::string();
}

bool ZQFile::Exists() const
{
    return _record && _record->query();
}

bool ZQFile::IsDirectory() const
{
    return _record && _record->modeHas(S_IFDIR);
}

bool ZQFile::IsFile() const
{
    return _record && _record->modeHas(S_IFREG);
}

bool ZQFile::IsReadable() const
{
    return _record && _record->modeHas(S_IRUSR);
}

bool ZQFile::IsWritable() const
{
    return _record && _record->modeHas(S_IWUSR);
}

bool ZQFile::IsExecutable() const
{
    return _record && _record->modeHas(S_IXUSR);
}

long ZQFile::Size() const
{
    return Exists() ? _record->status.st_size : 0;
}

bool ZQFile::IsLink() const
{
    struct stat fresh;
    return ::lstat(AbsPath().c_str(), &fresh) == 0 && S_ISLNK(fresh.st_mode);
}

bool ZQFile::IsNamedPipe() const
{
    struct stat fresh;
    return ::stat(FileName().c_str(), &fresh) == 0 && S_ISFIFO(fresh.st_mode);
}

std::vector<std::string> ZQFile::DirContents() const
{
    std::vector<std::string> names;
    ZQDirectoryScan entries(IsDirectory() ? AbsPath() : DirPath());
    while (const char* name = entries.Next())
        if (!isSelfOrParent(name))
            names.emplace_back(name);
    return names;
}

// ---- Questions about a path

bool ZQFileExists(const std::string& path)
{
    return ZQFile(path).Exists();
}

bool ZQFileIsDirectory(const std::string& path)
{
    return ZQFile(path).IsDirectory();
}

bool ZQFileIsFile(const std::string& path)
{
    return ZQFile(path).IsFile();
}

bool ZQFileIsLink(const std::string& path)
{
    return ZQFile(path).IsLink();
}

bool ZQFileIsNamedPipe(const std::string& path)
{
    return ZQFile(path).IsNamedPipe();
}

bool ZQFileIsReadable(const std::string& path)
{
    return ZQFile(path).IsReadable();
}

bool ZQFileIsWritable(const std::string& path)
{
    return ZQFile(path).IsWritable();
}

long ZQFileSize(const std::string& path)
{
    return ZQFile(path).Size();
}

}  // namespace ZQPlatform
