// Paths against the rules of their header, taken one after the other, and against the platform.

#include "fuzz.h"

#include <climits>
#include <sys/stat.h>

namespace {

string corrected(string path)
{
    for (char& c : path) c = c == '\\' ? '/' : c;
    if (!path.empty() && path.back() == '/') path.pop_back();
    return path;
}

// Where the last separator stands that has something behind it or is not the last character.
size_t lastSeparator(const string& path)
{
    const size_t last = path.rfind('/');
    if (last != string::npos && last + 1 == path.size())
        return last == 0 ? string::npos : path.rfind('/', last - 1);
    return last;
}

string nameOf(const string& path)
{
    const size_t at = lastSeparator(path);
    string name = at == string::npos ? path : path.substr(at + 1);
    if (!name.empty() && name.back() == '/') name.pop_back();
    return name;
}

string directoryOf(const string& path)
{
    const size_t at = lastSeparator(path);
    string dir = at == string::npos ? string() : path.substr(0, at + 1);
    if (dir != "/" && !dir.empty() && dir.back() == '/') dir.pop_back();
    return dir;
}

string joined(const string& dir, const string& name)
{
    return dir.empty() ? name : dir + '/' + name;
}

void checkFile(const ZQFile& file, const string& dir, const string& name)
{
    CHECK(file.DirPath() == dir && file.FileName() == name && file.AbsPath() == joined(dir, name));
    struct stat status;
    const bool exists = ::stat(joined(dir, name).c_str(), &status) == 0;
    CHECK(file.Exists() == exists && file.Size() == (exists ? status.st_size : 0));
    CHECK(file.IsDirectory() == (exists && (status.st_mode & S_IFDIR) != 0));
    const auto has = [&](unsigned int bit) { return exists && (status.st_mode & bit) != 0; };
    CHECK(file.IsWritable() == has(S_IWUSR) && file.IsReadable() == has(S_IRUSR));
    CHECK(file.IsExecutable() == has(S_IXUSR));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* bytes, size_t size)
{
    Input input(bytes, size);
    const string first = input.bytes(input.byte()), path = input.rest();
    string dir, name, both = path;
    const string whole = corrected(path);
    ZQFileCorrectSeparators(both);
    CHECK(both == whole);
    ZQFileDeterminePathAndName(path, dir, name);
    CHECK(name == nameOf(whole) && dir == directoryOf(whole));
    CHECK(ZQFileDetermineName(path) == name && ZQFileDeterminePath(path) == dir);
    both = path;
    ZQFileDeterminePathAndName(both, both, name);
    CHECK(both == dir);
    both = path;
    ZQFileDeterminePathAndName(both, dir, both);
    CHECK(both == name);
    checkFile(ZQFile(path), dir, name);

    const string pair = corrected(joined(corrected(first), corrected(path)));
    ZQFile file(first, path);
    checkFile(file, directoryOf(pair), nameOf(pair));
    const string again = corrected(joined(corrected(file.DirPath()), corrected(file.FileName())));
    const ZQFile& same = file;
    file = same;
    CHECK(file.Refresh());
    checkFile(file, directoryOf(again), nameOf(again));
    const ZQFile moved = std::move(file);
    checkFile(moved, directoryOf(again), nameOf(again));
    checkFile(file, "", "");  // NOLINT(bugprone-use-after-move): deliberate

    char resolved[PATH_MAX];
    ::setenv("HOME", "/usr", 1);
    const string expanded = path[0] == '~' ? "/usr" + path.substr(1) : path;
    const char* there = ::realpath(expanded.c_str(), resolved);
    CHECK(ZQGetAbsolutePath(path) == (there ? there : ""));
    return 0;
}
