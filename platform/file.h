// Paths, questions about files, temporary files, directories.
//
//   std::string dir, name;
//   ZQFileDeterminePathAndName("data\\run/7.txt", dir, name);  // "data/run" and "7.txt"
//
//   ZQFile file(dir, name);
//   if (file.IsFile() && file.Size() > 0)  // one question to the platform, two answers
//       ...
//
//   std::string scratch;
//   int fd = ZQFileTempDescriptor(scratch);  // "/tmp/ZQ_x3Fk9b", open, the caller's to remove
//
// A path is a string of bytes, without an encoding. Where a path is split, both '/' and '\'
// separate, and only '/' comes out. Failure travels in the results, and nothing throws but
// std::bad_alloc. The functions may be called from any thread; an object belongs to one thread at
// a time.

#ifndef ZQPLATFORM_FILE_H
#define ZQPLATFORM_FILE_H

#include "zqexport.h"

#include <memory>
#include <string>
#include <vector>

namespace ZQPlatform {

// ---- Paths. The first four work on the text alone and ask nothing of the platform.

// Turns every '\' into '/', then removes one '/' from the end.
// Deliberate: one only, so "a//" becomes "a/"; and "/" becomes empty, so that the root alone
// cannot be named to anything below that corrects its path.
ZQPLATFORM_EXPORT void ZQFileCorrectSeparators(std::string& path);

// The last component of a path and the directory before it, of the path corrected as above:
//
//   path              directory   name
//   "file.txt"        ""          "file.txt"
//   "/file.txt"       "/"         "file.txt"
//   "dir\\sub\\file"  "dir/sub"   "file"
//   "dir/sub/"        "dir"       "sub"
//   "a/b//"           "a"         "b"
//   "a//b"            "a/"        "b"
//   "/" and "//"      ""          ""
//
// Deliberate: one separator more is removed from the end of each part, never all of them, so
// directories keep doubled separators, and "a///" has the directory "a" and an empty name.
ZQPLATFORM_EXPORT std::string ZQFileDetermineName(const std::string& path);
ZQPLATFORM_EXPORT std::string ZQFileDeterminePath(const std::string& path);
// Both at once; 'dir' or 'name' may be 'path' itself.
ZQPLATFORM_EXPORT void ZQFileDeterminePathAndName(const std::string& path, std::string& dir,
                                                  std::string& name);

// The absolute path of an entry that exists, without links, "." and "..". Empty on failure, and
// where that path has more than 4095 bytes.
// A '~' at the start becomes the value of HOME, if that is set. Deliberate: whatever follows is
// put right behind it, so "~x" is no other user's home. Backslashes stay what they are.
ZQPLATFORM_EXPORT std::string ZQGetAbsolutePath(const std::string& path);

// The current directory, however long; "." if the platform cannot tell, as after its removal.
ZQPLATFORM_EXPORT std::string ZQGetCurrentWorkingDirectory();

// ---- One entry of the file system, named by its directory and its name.
//
// The first question about the entry asks the platform for its status, with links followed; all
// later ones are answered from that, whatever happens on disk, until Set, Refresh or a deletion
// through the object. False, 0 and an empty list also stand for "could not tell".
class ZQPLATFORM_EXPORT ZQFile {
public:
    // What to join the parts of a path with.
    static constexpr char Separator = '/';

    // Names the entry, as Set does. Asks the platform nothing yet.
    explicit ZQFile(const std::string& path);
    ZQFile(const std::string& dir, const std::string& name);
    // Copies name the same entry, as Refresh() would, and ask again.
    ZQFile(const ZQFile& other);
    ZQFile& operator=(const ZQFile& other);
    // Moves keep what is known of the entry. What was moved from has no name, and answers false.
    ZQFile(ZQFile&& other) noexcept;
    ZQFile& operator=(ZQFile&& other) noexcept;
    // Leaves the entry alone.
    ~ZQFile();

    // Names another entry and forgets what was known: directory and name are those of 'path' as
    // ZQFileDeterminePathAndName finds them. Always true.
    bool Set(const std::string& path);
    // The same for 'dir' and 'name', both corrected, joined by a separator; an empty 'dir' counts
    // for nothing. Separators in 'name' move what is before them into the directory. Always true.
    // Deliberate: "/" is corrected to an empty 'dir', so the entry then belongs to the current
    // directory, not to the root.
    bool Set(const std::string& dir, const std::string& name);
    // Forgets what is known of the entry, so that the next question asks again. Always true.
    // Deliberate: as Set(DirPath(), FileName()), so an entry of the root is from now on one of the
    // current directory; so is a copy of it.
    bool Refresh();

    // Directory, separator and name; the name alone if the directory is empty. Not made absolute:
    // that is ZQGetAbsolutePath. An entry of the root has two separators ("//x").
    std::string AbsPath() const;
    // Its two parts, as Set corrected them. Either may be empty.
    std::string DirPath() const;
    std::string FileName() const;

    // False for a link that leads nowhere, too.
    bool Exists() const;
    // Is it a directory, is it a regular file? Deliberate: each of the two tests one bit of the
    // type, so a block device is a directory, too, and a socket is both.
    bool IsDirectory() const;
    bool IsFile() const;
    // The owner's permission bits, whoever the owner is. They do not tell what this process may
    // do, and are nothing to base security on: open the file and see.
    bool IsReadable() const;
    bool IsWritable() const;
    bool IsExecutable() const;
    // In bytes; 0 for what does not exist.
    long Size() const;

    // Is it a symbolic link? Like IsNamedPipe, asks the platform each time, and leaves what is
    // known of the entry alone.
    bool IsLink() const;
    // Is it a named pipe? Deliberate: asks for the name without its directory, so it answers for an
    // entry of the current directory.
    bool IsNamedPipe() const;

    // The names of all entries but "." and "..", as the platform orders them, of the entry if it
    // is a directory (as in IsDirectory), else of the directory it stands in. Empty if that cannot
    // be read, and for what is no directory and was named without one.
    std::vector<std::string> DirContents() const;

private:
    struct Record;
    std::unique_ptr<Record> _record;  // null: moved from
};

// One question each about ZQFile(path).
ZQPLATFORM_EXPORT bool ZQFileExists(const std::string& path);
ZQPLATFORM_EXPORT bool ZQFileIsDirectory(const std::string& path);
ZQPLATFORM_EXPORT bool ZQFileIsFile(const std::string& path);
ZQPLATFORM_EXPORT bool ZQFileIsLink(const std::string& path);
ZQPLATFORM_EXPORT bool ZQFileIsNamedPipe(const std::string& path);
ZQPLATFORM_EXPORT bool ZQFileIsReadable(const std::string& path);
ZQPLATFORM_EXPORT bool ZQFileIsWritable(const std::string& path);
ZQPLATFORM_EXPORT long ZQFileSize(const std::string& path);

// Removes a file or an empty directory; true on success. The path is taken as it stands.
ZQPLATFORM_EXPORT bool ZQFileDelete(const std::string& path);
// Removes file.AbsPath(), and on success refreshes the object.
ZQPLATFORM_EXPORT bool ZQFileDelete(ZQFile& file);

// Makes an empty file with these permission bits, less those of the process's mask, unless the
// entry exists already, which is then left alone. The result answers from what was found: it was
// there, or it could not be made; what was made is asked anew, and is a refreshed ZQFile, so in
// the root it has lost the root.
ZQPLATFORM_EXPORT ZQFile ZQFileCreate(const std::string& path, int mode);

// ---- Temporary files and directories

// Where they are made: the value of TMPDIR if ZQFileExists finds it (so not "/"), else "/tmp" if
// it is there, else empty. Decided at the first need in the process, and kept from then on.
ZQPLATFORM_EXPORT std::string ZQFileTempPath();

// Makes a file that nobody had before, open for reading and writing by its owner alone, and puts
// its path into 'name': the directory above, '/' and "ZQ_" with six more characters. Returns its
// descriptor, to be closed by the caller, who also removes the file. On failure prints "mkstemp
// failed" with the error's text on standard error and returns -1; 'name' is of no use then.
// Deliberate: the '/' is always added, so a directory that ends in one gives two, and an empty
// one gives a file in the root.
ZQPLATFORM_EXPORT int ZQFileTempDescriptor(std::string& name);

// Makes a directory that nobody had before, for its owner alone, inside 'dir' or, if that is
// empty, the directory above. Returns its path, to be removed by the caller. On failure prints
// "mkdtemp failed" with the error's text on standard error and returns an empty string.
// Deliberate: '/' is added only where there is none yet, and where no directory is known the new
// one belongs to the current one.
ZQPLATFORM_EXPORT std::string ZQFileTempDirectory(const std::string& dir = std::string());

// Deprecated, as the first call in the process says on zqerr. A name made of the time in seconds
// and one or two digits of std::rand(). It can be guessed and may be in use: no base for anything
// that has to be safe.
ZQPLATFORM_EXPORT std::string ZQFileRandomName();

// ---- Directories, entry by entry
//
//   ZQDirectoryScan scan("data");
//   while (const char* name = scan.Next())
//       ...
class ZQPLATFORM_EXPORT ZQDirectoryScan {
public:
    // Opens the directory; null: the current one. The boolean test tells whether that worked.
    explicit ZQDirectoryScan(const char* path);
    explicit ZQDirectoryScan(const std::string& path);
    // Closes the directory.
    ~ZQDirectoryScan();

    ZQDirectoryScan(const ZQDirectoryScan&) = delete;
    ZQDirectoryScan& operator=(const ZQDirectoryScan&) = delete;

    // The name of the next entry, "." and ".." included, in the platform's order; it is valid
    // until the next call of Next() or Close(). Null, with the directory closed, at the end and
    // on errors.
    const char* Next();

    // From now on there is nothing more to come. May be called again.
    void Close();

    // True while the directory is open.
    operator bool() const;

private:
    struct Record;
    std::unique_ptr<Record> _record;
};

// ---- Single calls of the platform: true on success, false for null. Paths are taken as they
// stand.

// Removes a name that is no directory's.
ZQPLATFORM_EXPORT bool ZQUnlink(const char* path);
// Replaces what is called 'to', as far as the platform allows.
ZQPLATFORM_EXPORT bool ZQRenameFile(const char* from, const char* to);
// Mode 0755, less the process's mask; makes no parents, and fails if the name is in use.
ZQPLATFORM_EXPORT bool ZQCreateDirectory(const char* path);
// Removes an empty directory.
ZQPLATFORM_EXPORT bool ZQUnlinkDirectory(const char* path);

inline bool ZQUnlink(const std::string& path)
{
    return ZQUnlink(path.c_str());
}

inline bool ZQRenameFile(const std::string& from, const std::string& to)
{
    return ZQRenameFile(from.c_str(), to.c_str());
}

inline bool ZQCreateDirectory(const std::string& path)
{
    return ZQCreateDirectory(path.c_str());
}

inline bool ZQUnlinkDirectory(const std::string& path)
{
    return ZQUnlinkDirectory(path.c_str());
}

}  // namespace ZQPlatform

#endif
