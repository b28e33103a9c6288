// Files opened and closed, and questions about them.

#include "streams.h"

#include <dirent.h>
#include <filesystem>
#include <sys/stat.h>

namespace fs = std::filesystem;

namespace {

void firstLine(bool byManager)
{
    row("files", byManager ? "open by the manager, read a line, close" : "open, read a line, close",
        byManager ? Goals{0.9, 1.13} : Goals{0.85, 1.08}, [=](Race& race) {
            const string path = scratchFile("short", "a line\nand another\n");
            string line;
            if (byManager)
                race.ours([&] {
                    zqistream* in = ZQOpenIStream(path);
                    in->getline(line);
                    ZQCloseIStream(in);
                    return sumOf(line);
                });
            else
                race.ours([&] {
                    zqifstream in(path);
                    in.getline(line);
                    return sumOf(line);
                });
            race.peer("iostreams", [&] {
                std::ifstream in(path);
                std::getline(in, line);
                return sumOf(line);
            });
            race.peer("stdio", [&] {
                std::FILE* file = std::fopen(path.c_str(), "r");
                char buffer[256];
                line = std::fgets(buffer, sizeof buffer, file);
                line.pop_back();
                std::fclose(file);
                return sumOf(line);
            });
            race.limit([&] {
                alignas(64) static char block[blockSize];
                const int fd = ::open(path.c_str(), O_RDONLY);
                const ssize_t n = ::read(fd, block, sizeof block);
                line.assign(block, static_cast<char*>(
                                       std::memchr(block, '\n', static_cast<std::size_t>(n))));
                ::close(fd);
                return sumOf(line);
            });
            race.run(1);
        });
}

void fourQueries()
{
    row("files", "four questions about one file", {0.5, 1.15}, [](Race& race) {
        const string path = scratchFile("short", "a line\nand another\n");
        race.ours([&] {
            const ZQFile file(path);
            return file.Exists() && file.IsFile() && file.IsReadable()
                       ? static_cast<std::uint64_t>(file.Size())
                       : 0;
        });
        race.peer("filesystem", [&] {
            return fs::exists(path) && fs::is_regular_file(path) &&
                           (fs::status(path).permissions() & fs::perms::owner_read) !=
                               fs::perms::none
                       ? fs::file_size(path)
                       : 0;
        });
        race.limit([&] {
            struct stat status;
            return ::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
                           (status.st_mode & S_IRUSR)
                       ? static_cast<std::uint64_t>(status.st_size)
                       : 0;
        });
        race.run(1);
    });
}

void listing()
{
    row("files", "directory of 1000 entries, listed", {0.6, 1.15}, [](Race& race) {
        const string path = scratch() + "/directory";
        fs::create_directory(path);
        for (int i = 0; i < 1000; ++i)
            scratchFile("directory/entry-" + std::to_string(i) + ".dat", "");
        const auto sumOfNames = [](const std::vector<string>& names) {
            std::uint64_t sum = 0;
            for (const string& name : names) sum += sumOf(name);
            return sum;
        };
        race.ours([&] { return sumOfNames(ZQFile(path).DirContents()); });
        race.peer("filesystem", [&] {
            std::vector<string> names;
            for (const auto& entry : fs::directory_iterator(path))
                names.push_back(entry.path().filename());
            return sumOfNames(names);
        });
        race.limit([&] {
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
}

void pathSplit()
{
    row("files", "path, split into directory and name", {0.45, 1.8}, [](Race& race) {
        std::vector<string> paths(1000);
        for (string& path : paths)
            path = "/data/run-" + std::to_string(randomNumber() % 100000) + "/part/detector.dat";
        string directory, name;
        const auto each = [&](auto split) {
            std::uint64_t sum = 0;
            for (const string& path : paths) split(path), sum += sumOf(directory) + sumOf(name);
            return sum;
        };
        race.ours([&] {
            return each(
                [&](const string& path) { ZQFileDeterminePathAndName(path, directory, name); });
        });
        race.peer("filesystem", [&] {
            return each([&](const string& path) {
                const fs::path parts(path);
                directory = parts.parent_path();
                name = parts.filename();
            });
        });
        race.limit([&] {
            return each([&](const string& path) {
                const char *first = path.data(), *last = first + path.size();
                const auto slash = static_cast<const char*>(::memrchr(first, '/', path.size()));
                directory.assign(first, slash);
                name.assign(slash + 1, last);
            });
        });
        race.run(1000);
    });
}

void temporaryFile()
{
    row("files", "temporary file, made and removed", {0.9, 1.04}, [](Race& race) {
        const auto remove = [](int fd, const char* name) {
            ::close(fd);
            return ::unlink(name);
        };
        race.ours([&] {
            string name;
            const int fd = ZQFileTempDescriptor(name);
            return remove(fd, name.c_str());
        });
        race.peer("filesystem + mkstemp", [&] {
            string name = fs::temp_directory_path() / "ZQ_XXXXXX";
            const int fd = ::mkstemp(name.data());
            return remove(fd, name.c_str());
        });
        race.peer("stdio", [&] {
            std::FILE* file = std::tmpfile();
            return std::fclose(file);
        });
        const string pattern = scratch() + "/ZQ_XXXXXX";
        race.limit([&] {
            char name[256];
            std::strcpy(name, pattern.c_str());
            const int fd = ::mkstemp(name);
            return remove(fd, name);
        });
        race.run(1);
    });
}

}  // namespace

void fileRows()
{
    firstLine(false);
    firstLine(true);
    fourQueries();
    listing();
    pathSplit();
    temporaryFile();
}
