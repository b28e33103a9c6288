#include "platform/file.h"

#include "support/interpose.h"
#include "support/process.h"

#include <algorithm>
#include <set>
#include <sys/stat.h>

using namespace ZQPlatform;

ZQ_INTERPOSE(readdir)
ZQ_INTERPOSE(realpath)

// Stands in for the platform's getcwd in the whole test program.
static int shortBuffers = 0;  // how many of the next calls find their buffer too small
extern "C" char* testedGetcwd(char* buffer, std::size_t size) __asm__("getcwd");
char* testedGetcwd(char* buffer, std::size_t size)
{
    static const auto real = (char* (*)(char*, std::size_t))::dlsym(RTLD_NEXT, "getcwd");
    errno = ERANGE;
    return shortBuffers-- > 0 ? nullptr : real(buffer, size);
}

// A temporary directory that is the current one for the scope.
struct WorkingDir : TempDir {
    WorkingDir() { std::filesystem::current_path(path = std::filesystem::canonical(path)); }
    ~WorkingDir() { std::filesystem::current_path("/"); }
};

TEST(Paths, AreSplitByTheSameRulesWhateverTheirSeparators)
{
    auto trim = [](std::string p) { return p.substr(0, p.size() - (p.size() && p.back() == '/')); };
    std::vector<std::string> paths{""};
    for (std::size_t i = 0; i < paths.size(); ++i) {
        const std::string path = paths[i];
        for (const char c : {'/', '\\', 'a', '.'})
            if (path.size() < 7) paths.push_back(path + c);
        // The rules, step by step on a copy.
        std::string all = path;
        std::replace(all.begin(), all.end(), '\\', '/');
        all = trim(all);
        const std::size_t cut = all.size() < 2 ? all.npos : all.rfind('/', all.size() - 2);
        const std::string upTo = all.substr(0, cut + 1), name = trim(all.substr(cut + 1));
        const std::string dir = upTo == "/" ? upTo : trim(upTo);

        std::string corrected = path, gotDir = path, gotName = path;
        ZQFileCorrectSeparators(corrected);
        ZQFileDeterminePathAndName(i % 2 ? gotDir : gotName, gotDir, gotName);
        ASSERT_EQ(corrected + "|" + gotDir + "|" + gotName, all + "|" + dir + "|" + name) << path;
        ASSERT_EQ(ZQFileDeterminePath(path) + "|" + ZQFileDetermineName(path), dir + "|" + name);
    }
}

TEST(Paths, BecomeAbsoluteWithTheHomeDirectoryForATilde)
{
    const WorkingDir dir;
    writeFile("~x", "");
    std::filesystem::create_directory("home");
    std::filesystem::create_symlink("home", "link");
    const char* const rows[][3] = {{"link", "~", "home"},  {"link", "~/../~x", "~x"},
                                   {"ho", "~me", "home"},  {nullptr, "~x", "~x"},
                                   {"link", "./~x", "~x"}, {"link", "~/", "home"}};
    for (const auto& [home, path, result] : rows) {
        const ScopedEnv env("HOME", home);
        EXPECT_EQ(ZQGetAbsolutePath(path), dir / result) << path;
    }
    EXPECT_EQ((Fault("realpath", 0), ZQGetAbsolutePath("home")), "");
    shortBuffers = 2;
    EXPECT_EQ(ZQGetCurrentWorkingDirectory(), dir.path);
    std::filesystem::remove_all(dir.path);
    EXPECT_EQ(ZQGetCurrentWorkingDirectory() + ZQGetAbsolutePath("home"), ".");
}

TEST(File, LosesTheRootWhenCopiedOrRefreshed)
{
    auto all = [](const ZQFile& f) { return f.DirPath() + "|" + f.FileName() + "|" + f.AbsPath(); };
    const ZQFile pair("d\\", "sub/f//"), root("/x");
    EXPECT_EQ(all(pair), "d/sub|f|d/sub/f");
    EXPECT_EQ(all(root), "/|x|//x");
    EXPECT_EQ(all(ZQFile(root)) + " " + all(ZQFile("other") = root), "|x|x |x|x");
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
        ZQFileExists,     ZQFileIsDirectory, ZQFileIsFile,     ZQFileIsReadable,
        ZQFileIsWritable, ZQFileIsLink,      ZQFileIsNamedPipe};
    const std::string rows[][2] = {{"file", "E-F-w--5-"},         {dir / "\\link\\", "E-F-wL-5-"},
                                   {"/dev/null", "E--rw--0-"},    {"pipe", "E--r--P0-"},
                                   {"missing/pipe", "------P0-"}, {"socket", "EDF----0x"}};
    for (const auto& [path, expected] : rows) {
        std::string answers;
        for (std::size_t i = 0; i < std::size(questions); ++i)
            answers += questions[i](path) ? "EDFrwLP"[i] : '-';
        answers += std::to_string(ZQFileSize(path)) + (ZQFile(path).IsExecutable() ? "x" : "-");
        EXPECT_EQ(answers, expected) << path;
    }
}

TEST(File, KeepsItsFirstAnswersUntilItIsRefreshed)
{
    const WorkingDir dir;
    ZQFile file = ZQFileCreate("d/f", 0600);
    std::filesystem::create_directory("d");
    const ZQFile made = ZQFileCreate("d/f", 0251);
    EXPECT_TRUE(!file.Exists() && made.IsWritable() && !made.IsReadable());
    writeFile("d/f", "12");
    const ZQFile copied = file, moved = std::move(file), old = ZQFileCreate("d/f", 0);
    EXPECT_TRUE(copied.Size() == 2 && moved.Size() == 0 && old.Size() == 2);
    // What was moved from is still there to be asked, copied and set.
    EXPECT_FALSE(file.IsFile() || file.IsLink() || ZQFile(file).AbsPath() != "");
    EXPECT_TRUE(file.Refresh() && file.Set("d", "f") && file.IsFile() && !ZQFileDelete("d"));
    EXPECT_TRUE(ZQFileDelete("d/f") && !ZQFileDelete(file) && file.Exists() && old.Exists());
    EXPECT_TRUE(ZQFileCreate("d/f", 0600).Exists() && ZQFileDelete(file) && !file.Exists());
}

TEST(Directories, AreListedAndLeftClosed)
{
    const WorkingDir dir;
    const int open = openDescriptors();
    EXPECT_TRUE(ZQCreateDirectory("d") && !ZQCreateDirectory("d"));
    const std::set<std::string> names{"\x01\xFF\n", "...", "a\\b", "f"}, none;
    for (const std::string& name : names) writeFile("d/" + name, "");
    for (const std::string path : {"d", "d/f", "d/missing", "missing", "f/x", ""}) {
        const auto list = ZQFile(path).DirContents();
        EXPECT_EQ(std::set(list.begin(), list.end()), path[0] == 'd' ? names : none) << path;
    }
    EXPECT_TRUE((Fault("readdir", 0), ZQFile("d").DirContents().empty()));
    std::filesystem::current_path("d");
    ZQDirectoryScan scan(nullptr), missing("missing");
    for (std::size_t left = names.size() + 2; left > 0; --left) EXPECT_TRUE(scan && scan.Next());
    EXPECT_FALSE(scan.Next() || scan || scan.Next() || missing || missing.Next());
    EXPECT_EQ(openDescriptors(), open);
    for (const std::string& name : names) EXPECT_TRUE(ZQRenameFile(name, "z") && ZQUnlink("z"));
    EXPECT_TRUE(ZQUnlinkDirectory("../d"));
    EXPECT_FALSE(ZQUnlink(nullptr) || ZQRenameFile(nullptr, "") || ZQRenameFile("", nullptr) ||
                 ZQCreateDirectory(nullptr) || ZQUnlinkDirectory(nullptr));
}

TEST(TemporaryFiles, GoWhereTmpdirPointsIfItIsThere)
{
    const auto made = [](const char* tmpdir) {
        const ScopedEnv env("TMPDIR", tmpdir);
        const ChildResult child = runChild([] {
            std::string name;
            const int fd = ZQFileTempDescriptor(name);
            ::setenv("TMPDIR", ".", 1);  // too late
            const std::string inner = ZQFileTempDirectory();
            std::cerr << ZQFileTempPath() + " " + name.substr(0, name.size() - 6) + " "
                      << inner.substr(0, inner.rfind("ZQ_"))
                      << (::close(fd) == 0 && ZQUnlink(name) && ZQUnlinkDirectory(inner));
        });
        return child.err;
    };
    const TempDir dir;
    EXPECT_EQ(made(nullptr), "/tmp /tmp/ZQ_ /tmp/1");
    EXPECT_EQ(made((dir / "missing").c_str()), "/tmp /tmp/ZQ_ /tmp/1");
    EXPECT_EQ(made((dir / "").c_str()), dir / " " + (dir / "/ZQ_ ") + (dir / "1"));
    EXPECT_EQ(made("/dev/null"),
              "mkstemp failed: Not a directory\nmkdtemp failed: Not a directory\n"
              "/dev/null /dev/null/ZQ_ 0");
}

TEST(RandomName, WarnsOnceAndIsTheTimeAndARandomNumber)
{
    CaptureErr err;
    std::srand(3);
    const std::string digits = std::to_string(std::rand() % 100);
    std::srand(3);
    const std::string before = std::to_string(std::time(nullptr)), name = ZQFileRandomName();
    EXPECT_TRUE(name == before + digits || name == std::to_string(std::time(nullptr)) + digits);
    EXPECT_NE(ZQFileRandomName(), "");
    EXPECT_EQ(err.text(), "ZQFileRandomName is deprecated as of Tavok 1.9.1 (2013.Feb):\n"
                          "  Use ZQFileTempDescriptor or ZQFileTempDirectory instead to avoid\n"
                          "  race conditions and security vulnerabilities.\n");
}
