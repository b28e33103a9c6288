// Files opened and closed, and questions about them.

#include "streams.h"

#include <dirent.h>
#include <filesystem>
#include <sys/stat.h>

namespace fs = std::filesystem;

namespace {

std::uint64_t firstLine(zqistream& in)
{
    string line;
    in.getline(line);
    return sumOf(line);
}

void firstLines(const char* name, Goals goals, std::uint64_t (*ours)(const string& path))
{
    row(name, goals, [=](Race& race) {
        const string path = scratchFile("short", "a line\nand another\n");
        race.ours([=] { return ours(path); });
        race.peer("iostreams", [=] {
            std::ifstream in(path);
            string line;
            std::getline(in, line);
            return sumOf(line);
        });
        race.limit([=] {
            static Block memory;
            const int fd = ::open(path.c_str(), O_RDONLY);
            const ssize_t n = ::read(fd, memory.block, blockSize);
            const auto stop = static_cast<char*>(std::memchr(memory.block, '\n', n));
            const string line(memory.block, stop);
            ::close(fd);
            return sumOf(line);
        });
        race.run(1);
    });
}

std::uint64_t sumOfNames(const std::vector<string>& names)
{
    std::uint64_t sum = 0;
    for (const string& name : names) sum += sumOf(name);
    return sum;
}

std::uint64_t remove(int fd, const string& name) { return ::close(fd) + ::unlink(name.c_str()); }

}  // namespace

void fileRows()
{
    firstLines("files/open, read a line, close", {0.85, 1.08}, [](const string& path) {
        zqifstream in(path);
        return firstLine(in);
    });
    firstLines("files/open by the manager, read a line, close", {0.9, 1.13},
               [](const string& path) {
                   zqistream* in = ZQOpenIStream(path);
                   const std::uint64_t sum = firstLine(*in);
                   ZQCloseIStream(in);
                   return sum;
               });
    row("files/four questions about one file", {0.5, 1.15}, [](Race& race) {
        const string path = scratchFile("short", "a line\nand another\n");
        race.ours([=] {
            const ZQFile file(path);
            return file.Exists() && file.IsFile() && file.IsReadable() ? file.Size() : 0;
        });
        race.peer("filesystem", [=] {
            const auto readable = fs::perms::owner_read;
            return fs::exists(path) && fs::is_regular_file(path) &&
                           (fs::status(path).permissions() & readable) == readable
                       ? fs::file_size(path)
                       : 0;
        });
        race.limit([=] {
            struct stat status;
            return ::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
                           (status.st_mode & S_IRUSR)
                       ? status.st_size
                       : 0;
        });
        race.run(1);
    });
    row("files/directory of 1000 entries, listed", {0.6, 1.15}, [](Race& race) {
        const string path = scratch() + "/directory";
        fs::create_directory(path);
        for (int i = 0; i < 1000; ++i) scratchFile("directory/entry-" + std::to_string(i), "");
        race.ours([=] { return sumOfNames(ZQFile(path).DirContents()); });
        race.peer("filesystem", [=] {
            std::vector<string> names;
            for (const auto& entry : fs::directory_iterator(path))
                names.push_back(entry.path().filename());
            return sumOfNames(names);
        });
        race.limit([=] {
            std::vector<string> names;
            DIR* const directory = ::opendir(path.c_str());
            while (const dirent* entry = ::readdir(directory))
                if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0)
                    names.push_back(entry->d_name);
            ::closedir(directory);
            return sumOfNames(names);
        });
        race.run(1);
    });
    row("files/path, split into directory and name", {0.45, 1.8}, [](Race& race) {
        std::vector<string> paths(1000);
        for (string& path : paths)
            path = "/data/run-" + std::to_string(randomNumber() % 100000) + "/part/detector.dat";
        string directory, name;
        const auto each = [&](auto split) {
            return [&, split] {
                std::uint64_t sum = 0;
                for (const string& path : paths) split(path), sum += sumOf(directory) + sumOf(name);
                return sum;
            };
        };
        race.ours(each([&](auto& path) { ZQFileDeterminePathAndName(path, directory, name); }));
        race.peer("filesystem", each([&](const fs::path& path) {
                      directory = path.parent_path();
                      name = path.filename();
                  }));
        race.limit(each([&](const string& path) {
            const char *first = path.data(), *last = first + path.size();
            const auto slash = static_cast<const char*>(::memrchr(first, '/', path.size()));
            directory.assign(first, slash);
            name.assign(slash + 1, last);
        }));
        race.run(1000);
    });
    row("files/temporary file, made and removed", {0.9, 1.04}, [](Race& race) {
        race.ours([] {
            string name;
            const int fd = ZQFileTempDescriptor(name);
            return remove(fd, name);
        });
        race.peer("filesystem + mkstemp", [] {
            string name = fs::temp_directory_path() / "ZQ_XXXXXX";
            const int fd = ::mkstemp(name.data());
            return remove(fd, name);
        });
        race.limit([pattern = scratch() + "/ZQ_XXXXXX"] {
            string name = pattern;
            const int fd = ::mkstemp(name.data());
            return remove(fd, name);
        });
        race.run(1);
    });
}
