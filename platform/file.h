// Paths, and questions about files.
//
//   std::string dir, name;
//   ZQFileDeterminePathAndName("data\\run/7.txt", dir, name);  // "data/run" and "7.txt"
//
//   ZQFile file(dir, name);
//   if (file.IsFile() && file.Size() > 0)  // one question to the platform, two answers
//       ...
//
// A path is a string of bytes, without an encoding. Both '/' and '\' separate on the way in; only
// '/' comes out. Failure travels in the results; nothing here prints, and nothing throws but
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

// The absolute path of an entry that exists, without links, "." and "..". Empty on failure, which
// a result of more than 4095 bytes is, too.
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

    explicit ZQFile(const std::string& path);
    ZQFile(const std::string& dir, const std::string& name);
    // Copies name the same entry, as Refresh() would, and ask again.
    ZQFile(const ZQFile& other);
    ZQFile& operator=(const ZQFile& other);
    // Moves keep what is known of the entry. What was moved from has no name, and answers false.
    ZQFile(ZQFile&& other) noexcept;
    ZQFile& operator=(ZQFile&& other) noexcept;
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
    std::string DirPath() const;
    std::string FileName() const;

    bool Exists() const;
    // Deliberate: these two test one bit of the type each, so a block device is a directory, too,
    // and a socket is both.
    bool IsDirectory() const;
    bool IsFile() const;
    // The owner's permission bits, whoever the owner is. They do not tell what this process may
    // do, and are nothing to base security on: open the file and see.
    bool IsReadable() const;
    bool IsWritable() const;
    bool IsExecutable() const;
    // In bytes; 0 for what does not exist.
    long Size() const;

    // These two ask the platform each time, and leave what is known of the entry alone.
    bool IsLink() const;
    // Deliberate: asks for the name without its directory, so it answers for an entry of the
    // current directory.
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

}  // namespace ZQPlatform

#endif
