// What docs/surprises.md advises, at work.

#include "expect.h"

#include <zqplatform/zqplatform.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <vector>

using namespace ZQPlatform;

namespace {

void words()
{
    zqisstream in;
    in.set("  12\n\n 7  -3");
    std::vector<long> numbers;
    //! [words]
    std::string word;
    while (in.gettoken(word, 256))
        if (!word.empty())  // two separators in a row enclose an empty one
            numbers.push_back(std::strtol(word.c_str(), nullptr, 10));
    //! [words]
    expect(numbers == std::vector<long>{12, 7, -3}, "words");

    in.set("99999999999999999999 5");
    long number = 1, next = 1;
    //! [errno]
    errno = 0;
    in >> number;
    const bool tooLarge = errno == ERANGE;
    errno = 0;  // or the next number reads as 0, too
    in >> next;
    //! [errno]
    expect(tooLarge && number == 0 && next == 5, "errno");
}

void digits()
{
    zqosstream out;
    const double value = 1e-9;
    //! [digits]
    char text[32];
    const int length = std::snprintf(text, sizeof text, "%.17g", value);
    out.write(text, zqsize_t(length));
    //! [digits]
    expect(out.str() == "1.0000000000000001e-09", "digits");
}

void delivery()
{
    zqofstream file("delivery.gz");
    zqogzstream gzip(&file, false);
    gzip << "some text";
    expect(gzip.flush() && ZQFileSize("delivery.gz") == 0, "a flush passes nothing on");
    //! [delivery]
    gzip.close();                       // finishes the member, and flushes the file
    const bool written = file.flush();  // false if anything was lost since it was opened
    file.close();
    //! [delivery]
    expect(written && ZQFileSize("delivery.gz") == 29, "delivery");
}

void copy()
{
    zqisstream in;
    in.set(std::string(100000, 'x'));
    zqosstream text;
    zqogzstream out(&text, false);
    //! [copy]
    char block[4096];
    while (const zqsize_t n = in.read(block, sizeof block))
        out.write(block, n);
    //! [copy]
    out.close();
    std::string back;
    ZQUncompress(back, text.str(), "gz");
    expect(back == std::string(100000, 'x'), "copy");
}

//! [whole]
// The 'length' bytes that were compressed to 'packed', or false and no text.
bool uncompressed(std::string& text, const std::string& packed, zqsize_t length)
{
    text.clear();  // ZQUncompress appends
    if (ZQUncompress(text, packed, "zstd") && text.size() == length)
        return true;
    // No frame can go on like this: ends one that was cut, so that the next call starts anew.
    while (ZQUncompress(text, std::string(65536, '\xFF'), "zstd"))
        text.clear();
    text.clear();
    return false;
}
//! [whole]

void whole()
{
    std::string packed, text;
    ZQCompress(packed, "some text", "zstd");
    for (std::size_t length = 0; length < packed.size(); ++length)
        expect(!uncompressed(text, packed.substr(0, length), 9) && text.empty(), "a cut frame");
    expect(uncompressed(text, packed, 9) && text == "some text", "whole");
}

void names()
{
    const std::string name = "run:7.gz";
    //! [names]
    zqofstream file(name);  // a file of this very name, whatever it looks like
    file << "plain";
    //! [names]
    file.close();
    expect(ZQFileSize("run:7.gz") == 5, "names");
}

void temporary()
{
    //! [temporary]
    std::string name;
    zqofstream scratch(ZQFileTempDescriptor(name));  // nobody else had or can read it
    if (scratch.eof())
        return;
    scratch << "secret";
    scratch.close();
    ZQUnlink(name);
    //! [temporary]
    expect(!ZQFileExists(name), "temporary");
}

void mode()
{
    //! [mode]
    const int fd = ::open("key", O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    zqofstream key(fd);  // closes the descriptor later
    //! [mode]
    struct stat status = {};
    expect(!key.eof() && ::fstat(fd, &status) == 0 && (status.st_mode & 0777) == 0600, "mode");
}

void notANumber()
{
    const double value = HUGE_VAL;
    //! [nan]
    if (std::isnan(value))
        std::exit(1);
    //! [nan]
    expect(ZQIsNaN(value) && !ZQIsNaN(ZQHalfFloat(value)), "infinity");
}

}  // namespace

int main()
{
    words();
    digits();
    delivery();
    copy();
    whole();
    names();
    temporary();
    mode();
    notANumber();
}
