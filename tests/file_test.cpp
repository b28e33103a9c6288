#include "platform/file.h"

#include "support/process.h"

#include <algorithm>
#include <sys/stat.h>

using namespace ZQPlatform;

// A temporary directory that is the current one for the scope.
struct WorkingDir : TempDir {
    WorkingDir() { std::filesystem::current_path(path = std::filesystem::canonical(path)); }
    ~WorkingDir() { std::filesystem::current_path("/"); }
};

// The corrected path, its directory and its name.
static std::string splitByTheRules(std::string path)
{
    const auto trim = [](const std::string& text) {
        return !text.empty() && text.back() == '/' ? text.substr(0, text.size() - 1) : text;
    };
    std::replace(path.begin(), path.end(), '\\', '/');
    path = trim(path);
    const std::size_t cut = path.size() < 2 ? path.npos : path.rfind('/', path.size() - 2);
    const std::string dir = path.substr(0, cut + 1), name = path.substr(cut + 1);
    return path + "|" + (dir == "/" ? dir : trim(dir)) + "|" + trim(name);
}

TEST(Paths, AreSplitByTheSameRulesWhateverTheirSeparators)
{
    std::vector<std::string> paths{""};
    for (std::size_t i = 0; i < paths.size(); ++i) {
        const std::string path = paths[i], model = splitByTheRules(path);
        for (const char c : {'/', '\\', 'a', '.'})
            if (path.size() < 7)
                paths.push_back(path + c);
        std::string all = path, dir = path, name = path, otherDir, otherName;
        ZQFileCorrectSeparators(all);
        ASSERT_EQ(all + "|" + ZQFileDeterminePath(path) + "|" + ZQFileDetermineName(path), model);
        ZQFileDeterminePathAndName(dir, dir, otherName);
        ZQFileDeterminePathAndName(name, otherDir, name);
        ASSERT_EQ(all + "|" + dir + "|" + otherName, model);
        ASSERT_EQ(all + "|" + otherDir + "|" + name, model);
    }
}

static std::string parts(const ZQFile& file)
{
    return file.DirPath() + "|" + file.FileName() + "|" + file.AbsPath();
}

TEST(File, LosesTheRootWhenCopiedOrRefreshed)
{
    const std::tuple<ZQFile, const char*, const char*> rows[] = {
        {ZQFile("\\tmp\\a.txt"), "/tmp|a.txt|/tmp/a.txt", "/tmp|a.txt|/tmp/a.txt"},
        {ZQFile("d\\", "sub/f//"), "d/sub|f|d/sub/f", "d/sub|f|d/sub/f"},
        {ZQFile("/\\/"), "/||//", "||"},
        {ZQFile("a//b"), "a/|b|a//b", "a|b|a/b"},
        {ZQFile("/x"), "/|x|//x", "|x|x"},
        {ZQFile("//"), "||", "||"},
    };
    for (const auto& [file, made, refreshed] : rows) {
        EXPECT_EQ(parts(file), made);
        EXPECT_EQ(parts(ZQFile(file)), refreshed);
        ZQFile assigned("other");
        EXPECT_EQ(parts(assigned = file), refreshed);
    }
}

TEST(Paths, BecomeAbsoluteWithTheHomeDirectoryForATilde)
{
    const WorkingDir dir;
    writeFile("~x", "");
    std::filesystem::create_directory("home");
    std::filesystem::create_symlink("home", "link");
    const char* const rows[][3] = {{"link", "~", "/home"},
                                   {"link", "~/../~x", "/~x"},
                                   {"ho", "~me", "/home"},
                                   {nullptr, "~x", "/~x"},
                                   {"link", "link/~", ""},
                                   {"", "~", ""},
                                   {"", "", ""}};
    for (const auto& [home, path, result] : rows) {
        const ScopedEnv env("HOME", home);
        EXPECT_EQ(ZQGetAbsolutePath(path), *result ? dir.path + result : "") << path;
    }
    std::filesystem::remove_all(dir.path);
    EXPECT_EQ(ZQGetCurrentWorkingDirectory(), ".");
}

TEST(File, AnswersFromSingleBitsOfTheMode)
{
    const WorkingDir dir;
    writeFile("file", "12345");
    ::chmod("file", 0245);  // what others may do does not count
    ::mkfifo("pipe", 0400);
    ::mknod("socket", S_IFSOCK | 0100, 0);
    std::filesystem::create_symlink("file", "link");
    bool (*const questions[])(const std::string&) = {
        ZQFileExists,      ZQFileIsDirectory,
        ZQFileIsFile,      ZQFileIsReadable,
        ZQFileIsWritable,  ZQFileIsLink,
        ZQFileIsNamedPipe, [](const std::string& path) { return ZQFile(path).IsExecutable(); }};
    const std::string rows[][2] = {{"file", "E-F-w---5"},         {dir / "\\link\\", "E-F-wL--5"},
                                   {"/dev/null", "E--rw---0"},    {"pipe", "E--r--P-0"},
                                   {"missing/pipe", "------P-0"}, {"socket", "EDF----x0"}};
    for (const auto& [path, expected] : rows) {
        std::string answers;
        for (std::size_t i = 0; i < std::size(questions); ++i)
            answers += questions[i](path) ? "EDFrwLPx"[i] : '-';
        answers += std::to_string(ZQFileSize(path));
        EXPECT_EQ(answers, expected) << path;
    }
}

TEST(File, KeepsItsFirstAnswersUntilItIsRefreshed)
{
    const WorkingDir dir;
    ZQFile file("f");
    EXPECT_FALSE(file.Exists());
    writeFile("f", "12");
    const ZQFile copied = file, moved = std::move(file);
    EXPECT_TRUE(copied.Size() == 2 && moved.Size() == 0);
    EXPECT_EQ(parts(file) + parts(ZQFile(file)), "||||");  // moved from, and still usable
    EXPECT_FALSE(file.IsFile() || file.IsLink() || ZQFileDelete(file));
    EXPECT_TRUE(file.Refresh() && file.Set("", "f") && file.IsFile());
    EXPECT_TRUE(ZQFileDelete("f") && !ZQFileDelete(file) && file.Exists());
    writeFile("f", "");
    EXPECT_TRUE(ZQFileDelete(file) && !file.Exists());
}
