#include "support/interpose.h"
#include "support/streams.h"

#include <set>
#include <sys/stat.h>

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
    EXPECT_EQ((Fault("getcwd", ERANGE, 1, 2), ZQGetCurrentWorkingDirectory()), dir.path);
    std::filesystem::remove_all(dir.path);
    EXPECT_EQ(ZQGetCurrentWorkingDirectory() + ZQGetAbsolutePath("home"), ".");
}

TEST(File, LosesTheRootWhenCopiedOrRefreshed)
{
    auto all = [](const ZQFile& f) { return f.DirPath() + "|" + f.FileName() + "|" + f.AbsPath(); };
    const ZQFile pair("d\\", "sub/f//"), root("/x");
    EXPECT_EQ(all(pair) + " " + all(root), "d/sub|f|d/sub/f /|x|//x");
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
    bool (*const questions[])(const string&) = {ZQFileExists,     ZQFileIsDirectory, ZQFileIsFile,
                                                ZQFileIsReadable, ZQFileIsWritable,  ZQFileIsLink,
                                                ZQFileIsNamedPipe};
    const string rows[][2] = {{"file", "E-F-w--5-"},         {dir / "\\link\\", "E-F-wL-5-"},
                              {"/dev/null", "E--rw--0-"},    {"pipe", "E--r--P0-"},
                              {"missing/pipe", "------P0-"}, {"socket", "EDF----0x"}};
    for (const auto& [path, expected] : rows) {
        string answers;
        for (size_t i = 0; i < std::size(questions); ++i)
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
    const std::set<string> names{"\x01\xFF\n", "...", "a\\b", "f"}, none;
    for (const string& name : names) writeFile("d/" + name, "");
    for (const string path : {"d", "d/f", "d/missing", "missing", "f/x", ""}) {
        const auto list = ZQFile(path).DirContents();
        EXPECT_EQ(std::set(list.begin(), list.end()), path[0] == 'd' ? names : none) << path;
    }
    std::filesystem::current_path("d");
    ZQDirectoryScan scan(nullptr), missing("missing");
    for (size_t left = names.size() + 2; left > 0; --left) EXPECT_TRUE(scan && scan.Next());
    EXPECT_FALSE(scan.Next() || scan || scan.Next() || missing || missing.Next());
    EXPECT_EQ(openDescriptors(), open);
    for (const string& name : names) EXPECT_TRUE(ZQRenameFile(name, "z") && ZQUnlink("z"));
    EXPECT_TRUE(ZQUnlinkDirectory("../d"));
    EXPECT_FALSE(ZQUnlink(nullptr) || ZQRenameFile(nullptr, "") || ZQRenameFile("", nullptr) ||
                 ZQCreateDirectory(nullptr) || ZQUnlinkDirectory(nullptr));
}

// A suite of this name runs first: the directory is decided once in a process, which its children
// take over.
TEST(TemporaryFilesDeathTest, GoWhereTmpdirPointsIfItIsThere)
{
    const auto made = [](const char* tmpdir) {
        const ScopedEnv env("TMPDIR", tmpdir);
        const ChildResult child = runChild([] {
            string name;
            const int fd = ZQFileTempDescriptor(name);
            ::setenv("TMPDIR", ".", 1);  // too late
            const string inner = ZQFileTempDirectory();
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
    const ChildResult bare = runChild([&] {  // only root may do that
        if (::chroot(dir.path.c_str()) == 0)
            for (const string& name : {ZQFileTempDirectory(), ZQFileTempDirectory("/")})
                std::cerr << ZQFileTempPath() << name.substr(0, 3) << ZQUnlinkDirectory(name);
    });
    EXPECT_TRUE(bare.err.empty() || bare.err == "ZQ_1/ZQ1") << bare.err;
}

TEST(RandomName, WarnsOnceAndIsTheTimeAndARandomNumber)
{
    CaptureErr err;
    Fault noon("time", 43200);
    std::srand(3);
    const string name = "43200" + std::to_string(std::rand() % 100);
    std::srand(3);
    EXPECT_TRUE(ZQFileRandomName() == name && ZQFileRandomName() != "");
    EXPECT_EQ(err.text(), "ZQFileRandomName is deprecated as of Tavok 1.9.1 (2013.Feb):\n"
                          "  Use ZQFileTempDescriptor or ZQFileTempDirectory instead to avoid\n"
                          "  race conditions and security vulnerabilities.\n");
}
