// zqcat: copies what stands behind names to one output, whatever each of them is: a file, a gzip
// file, standard input, or a text given on the spot.
//
//   zqcat -o all.gz monday.log tuesday text:"and that was it"
//
// A gzip file that is damaged is copied up to the damage.

#include "platform/zqplatform.h"

#include <cctype>
#include <cstring>
#include <filesystem>
#include <getopt.h>
#include <memory>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

using namespace ZQPlatform;

namespace {

const char usage[] =
    R"(Usage: zqcat [-n] [-o NAME] [NAME...]
       zqcat -c|-k [-o NAME] [NAME...]
Copies what stands behind each NAME, unpacked where it is gzip data.

A NAME is a file, found as NAME.gz too; text:WORDS stands for these words; the empty NAME,
or none at all, is standard input.

  -n, --number        number the lines; each of them ends with a line feed then
  -c, --count         instead of the data, print its lines, words and bytes
  -k, --kind          instead of the data, print what kind of stream each NAME became
  -o, --output=NAME   write to the file NAME, as gzip if there is a ".gz" in it
      --help          print this
      --version       print the version

The exit code is 0; 1 if something could not be opened or written; 2 for a wrong option.
)";

constexpr int exitFailed = 1;
constexpr int exitUsage = 2;

// ---- the streams that this program registers for names of its own

constexpr char textPrefix[] = "text";
constexpr char outputPrefix[] = "output";

// Reads a text that it keeps.
class TextStream : public zqistream {
public:
    explicit TextStream(std::string text) : _text(std::move(text))
    {
        open(reinterpret_cast<unsigned char*>(_text.data()), _text.size());
    }

private:
    std::string _text;
};

zqistream* openText(const char* name)
{
    // A name without any colon comes here too if it equals the prefix: a file of that name.
    const char* colon = std::strchr(name, ':');
    if (!colon)
        return new zqifstream(name);
    return new TextStream(colon + 1);
}

// The output file. It remembers that a write failed, because a gzip stream over it writes its
// last bytes while it is closed, and closing has no result.
class OutputFile : public zqofstream {
public:
    static bool failed;

protected:
    bool _zqflush() override
    {
        const bool flushed = zqofstream::_zqflush();
        if (!flushed && fd != -1)
            failed = true;
        return flushed;
    }
};
bool OutputFile::failed = false;

zqostream* openOutputFile(const char* name)
{
    auto file = std::make_unique<OutputFile>();
    file->open(std::strchr(name, ':') + 1);  // result ignored: the manager looks at the stream
    return file.release();
}

template <class Stream> void deleteStream(Stream* stream)
{
    delete stream;
}

struct Close {
    void operator()(zqistream* in) const { ZQCloseIStream(in); }
    void operator()(zqostream* out) const { ZQCloseOStream(out); }
};

// ---- what is done with each input

struct Options {
    bool number = false;
    bool count = false;
    bool kind = false;
    std::string output;              // empty: standard output
    std::vector<std::string> names;  // empty name: standard input
};

bool complain(const std::string& name, const char* standard, const char* problem)
{
    zqerr << "zqcat: " << (name.empty() ? standard : name.c_str()) << ": " << problem << zqendl;
    return false;
}

// The bytes go through write(): << and >> between streams stop early where the output is gzip.
// False if a write failed, here and below.
bool copyBytes(zqistream& in, zqostream& out)
{
    char block[ZQ_STREAM_BUFSIZE];
    while (const zqsize_t n = in.read(block, sizeof block))
        if (out.write(block, n) != n)
            return false;
    return true;
}

// 'number' goes on where the input before this one ended.
bool copyLines(zqistream& in, zqostream& out, unsigned long& number)
{
    constexpr std::size_t numberWidth = 6;
    std::string line, numbered;
    while (in.getline(line)) {
        numbered = std::to_string(++number);
        if (numbered.size() < numberWidth)
            numbered.insert(0, numberWidth - numbered.size(), ' ');
        numbered += '\t';
        numbered += line;
        numbered += '\n';
        if (out.write(numbered) != numbered.size())
            return false;
    }
    return true;
}

void printCounts(zqistream& in, zqostream& out)
{
    unsigned long lines = 0, words = 0, bytes = 0;
    bool inWord = false;
    char block[ZQ_STREAM_BUFSIZE];
    while (const zqsize_t n = in.read(block, sizeof block)) {
        bytes += n;
        for (zqsize_t i = 0; i < n; ++i) {
            const bool space = std::isspace(static_cast<unsigned char>(block[i])) != 0;
            lines += block[i] == '\n';
            words += !space && !inWord;
            inWord = !space;
        }
    }
    out << lines << ' ' << words << ' ' << bytes << ' ';
}

const char* kindOf(const zqistream& in)
{
    if (dynamic_cast<const zqigzstream*>(&in))
        return "gzip data";
    if (dynamic_cast<const zqiwrapperstream*>(&in))
        return "standard input";
    if (dynamic_cast<const zqifstream*>(&in))
        return "plain file";
    return "text in the name";
}

// A directory opens like a file; there is nothing to read in it.
bool isDirectory(const zqistream& in, const std::string& name)
{
    std::error_code ignored;
    return dynamic_cast<const zqifstream*>(&in) && std::filesystem::is_directory(name, ignored);
}

// Copies one input or reports on it.
bool handle(zqistream& in, const std::string& name, const Options& options, zqostream& out,
            unsigned long& number)
{
    if (options.count || options.kind) {
        if (options.count)
            printCounts(in, out);
        out.write(name.empty() ? "-" : name);
        if (options.kind)
            out << ": " << kindOf(in);
        out << '\n';
        return true;
    }
    return options.number ? copyLines(in, out, number) : copyBytes(in, out);
}

// Handles all names. False if one of them cannot be opened, or a write failed, which ends it.
bool handleAll(const Options& options, zqostream& out)
{
    bool complete = true;
    unsigned long number = 0;
    for (const std::string& name : options.names) {
        const std::unique_ptr<zqistream, Close> in(ZQOpenIStream(name));
        if (!in)
            complete = complain(name, "standard input", "cannot be opened");
        else if (isDirectory(*in, name))
            complete = complain(name, "standard input", "is a directory");
        else if (!handle(*in, name, options, out, number))
            return false;
    }
    return complete;
}

bool run(const Options& options)
{
    const std::string target = options.output.empty() ? "" : outputPrefix + (':' + options.output);
    std::unique_ptr<zqostream, Close> out(ZQOpenOStream(target));
    if (!out)
        return complain(options.output, "standard output", "cannot be opened");

    const bool complete = handleAll(options, *out);
    const bool flushed = out->flush();
    out.reset();
    if (!flushed || OutputFile::failed)
        return complain(options.output, "standard output", "a write failed");
    return complete;
}

// ---- options

// Prints what an option asks for, instead of any data. Returns the exit code.
int answer(const std::string& text)
{
    if (zqout.write(text) == text.size() && zqout.flush())
        return 0;
    complain("", "standard output", "a write failed");
    return exitFailed;
}

// The exit code, where the options end the program; else -1.
int readOptions(int argc, char** argv, Options& options)
{
    static const option longOptions[] = {
        {"number", no_argument, nullptr, 'n'}, {"count", no_argument, nullptr, 'c'},
        {"kind", no_argument, nullptr, 'k'},   {"output", required_argument, nullptr, 'o'},
        {"help", no_argument, nullptr, 'h'},   {"version", no_argument, nullptr, 'v'},
        {nullptr, no_argument, nullptr, 0},
    };
    for (int c; (c = ::getopt_long(argc, argv, "ncko:", longOptions, nullptr)) != -1;) {
        switch (c) {
        case 'n':
            options.number = true;
            break;
        case 'c':
            options.count = true;
            break;
        case 'k':
            options.kind = true;
            break;
        case 'o':
            options.output = optarg;
            break;
        case 'h':
            return answer(usage);
        case 'v':
            return answer("zqcat " + ZQToolkitsGetRelease() + '\n');
        default:
            zqerr << "Try 'zqcat --help'." << zqendl;
            return exitUsage;
        }
    }
    options.names.assign(argv + optind, argv + argc);
    if (options.names.empty())
        options.names.emplace_back();
    return -1;
}

}  // namespace

int main(int argc, char** argv)
{
    Options options;
    const int code = readOptions(argc, argv, options);
    if (code != -1)
        return code;

    ZQRegisterIStream(textPrefix, openText, deleteStream);
    ZQRegisterOStream(outputPrefix, openOutputFile, deleteStream);
    return run(options) ? 0 : exitFailed;
}
