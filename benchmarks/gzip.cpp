// Gzip streams, compressed buffers, and the commands that do the same.

#include "streams.h"

#include <zlib.h>
#include <zstd.h>

namespace {

constexpr size_t fragment = 4096;
constexpr int rawDeflate = -15, gzipFormat = 15 + 16;

Bytef* bytes(const char* p) { return reinterpret_cast<Bytef*>(const_cast<char*>(p)); }

void startDeflate(z_stream& stream)
{
    deflateInit2(&stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, gzipFormat, 8, Z_DEFAULT_STRATEGY);
}

// All of 'in' to 'out' in one call; returns the bytes there.
size_t zlibAtOnce(string& out, const string& in, bool packs)
{
    z_stream stream = {};
    stream.next_in = bytes(in.data());
    stream.avail_in = in.size();
    stream.next_out = bytes(out.data());
    stream.avail_out = out.size();
    packs ? startDeflate(stream) : void(inflateInit2(&stream, gzipFormat));
    packs ? ::deflate(&stream, Z_FINISH) : ::inflate(&stream, Z_FINISH);
    packs ? ::deflateEnd(&stream) : ::inflateEnd(&stream);
    return stream.total_out;
}

string zlibAtOnce(const string& in, bool packs, size_t room)
{
    string out(room, '\0');
    out.resize(zlibAtOnce(out, in, packs));
    return out;
}

string zipped(const string& text)
{
    return zlibAtOnce(text, true, ::compressBound(text.size()) + 32);
}

// ---- files: each reads or writes

template <class File> struct Holder {
    explicit Holder(const string& path) : file(path) {}
    File file;
};
template <class File, class Gzip> struct Over : private Holder<File>, Gzip {
    explicit Over(const string& path) : Holder<File>(path), Gzip(&this->file, false) {}
};

template <int flags> struct GzFile {
    explicit GzFile(const string& path)
        : file(::gzdopen(::open(path.c_str(), flags), flags == O_RDONLY ? "r" : "w"))
    {
        ::gzbuffer(file, 2 * blockSize);
    }
    ~GzFile() { ::gzclose(file); }
    bool line(string& s)
    {
        return ::gzgets(file, array, 1024) && (s.assign(array, std::strlen(array) - 1), true);
    }
    bool get(char* to, size_t n) { return ::gzread(file, to, n) == int(n); }
    void put(const char* from, size_t n) { ::gzwrite(file, from, n); }
    gzFile file;
    char array[1024];
};

// The limits: inflate and crc, 16 KiB at a time; deflate.
class InflateSource : public Source {
public:
    explicit InflateSource(const string& path) : Source(path)
    {
        inflateInit2(&_stream, rawDeflate);
        ::lseek(fd(), 10, SEEK_SET);  // behind the header
    }
    ~InflateSource() override { ::inflateEnd(&_stream); }

private:
    static constexpr size_t chunk = 16384;
    ssize_t bring(char* to) override
    {
        _stream.next_out = bytes(to);
        _stream.avail_out = chunk;
        for (int result = Z_OK; result == Z_OK && _stream.avail_out != 0;) {
            if (_stream.avail_in == 0) {
                _stream.next_in = bytes(_in);
                _stream.avail_in = ::read(fd(), _in, chunk);
            }
            result = ::inflate(&_stream, Z_NO_FLUSH);
        }
        const size_t n = chunk - _stream.avail_out;
        _sum = ::crc32(_sum, bytes(to), n);
        return n;
    }
    z_stream _stream = {};
    uLong _sum = 0;
    char _in[chunk];
};

struct DeflateSink : Sink {
    explicit DeflateSink(const string& path) : Sink(path) { startDeflate(stream); }
    ~DeflateSink()
    {
        put(nullptr, 0);
        ::deflateEnd(&stream);
    }
    void put(const char* from, size_t n)
    {
        stream.next_in = bytes(from);
        stream.avail_in = n;
        do {
            stream.next_out = bytes(room(fragment));
            stream.avail_out = fragment;
            ::deflate(&stream, n == 0 ? Z_FINISH : Z_NO_FLUSH);
            used(reinterpret_cast<char*>(stream.next_out));
        } while (stream.avail_out == 0);
    }
    z_stream stream = {};
};

template <class Body> void gzipRead(const char* name, Goals goals, Body body)
{
    goals.remark =
        "no more than 16 KiB is uncompressed ahead of the reader, which takes zlib a tenth longer "
        "than 64 KiB at a time";
    row(name, goals, [=](Race& race) {
        const string path = scratchFile("text.gz", zipped(proseOf(1 << 20)));
        race.ours(with<Ours<Over<zqifstream, zqigzstream>>>(path, body));
        race.peer("zlib gz*", with<GzFile<O_RDONLY>>(path, body));
        race.limit(with<InflateSource>(path, body));
        race.run(1024);
    });
}

void gzipWritten()
{
    row("gzip/KiB of a gzip file, written", {1.04, 1.03}, [](Race& race) {
        const string text = proseOf(1 << 18), path = scratchFile("out.gz", "");
        race.leaves([=] { return zlibAtOnce(slurp(path), false, text.size() + 1); },
                    [=] { scratchFile("out.gz", ""); });
        const auto body = [&](auto& out) {
            for (size_t i = 0; i < text.size(); i += fragment) out.put(text.data() + i, fragment);
        };
        race.ours(with<Ours<Over<OutFile, zqogzstream>>>(path, body));
        race.peer("zlib gz*", with<GzFile<O_WRONLY>>(path, body));
        race.limit(with<DeflateSink>(path, body));
        race.run(256);
    });
}

// ---- buffers

struct Method {
    const char *name, *peerName;
    // Both are told which way, and the size of the text.
    void (*peer)(string& out, const string& in, bool packs, size_t size);
    void (*limit)(string& out, const string& in, bool packs, size_t size);
};

void gzPeer(string& out, const string& in, bool packs, size_t size)
{
    out = packs ? zipped(in) : zlibAtOnce(in, false, size + 1);
}
void gzLimit(string& out, const string& in, bool packs, size_t size)
{
    static string block;
    block.resize(::compressBound(size) + 32);
    out.assign(block, 0, zlibAtOnce(block, in, packs));
}

constexpr int zstdLevel = 7;
ZSTD_CCtx* const compressor = ::ZSTD_createCCtx();
ZSTD_DCtx* const uncompressor = ::ZSTD_createDCtx();

void zstdPeer(string& out, const string& in, bool packs, size_t size)
{
    const size_t room = packs ? ::ZSTD_compressBound(size) : size;
    out.resize(room);
    out.resize(
        packs ? ::ZSTD_compressCCtx(compressor, out.data(), room, in.data(), in.size(), zstdLevel)
              : ::ZSTD_decompressDCtx(uncompressor, out.data(), room, in.data(), in.size()));
}
void zstdLimit(string& out, const string& in, bool packs, size_t)
{
    static std::vector<char> block(::ZSTD_CStreamOutSize());
    ZSTD_inBuffer from = {in.data(), in.size(), 0};
    out.clear();
    packs ? ::ZSTD_initCStream(compressor, zstdLevel) : ::ZSTD_initDStream(uncompressor);
    for (bool last = false; !last;) {
        ZSTD_outBuffer to = {block.data(), block.size(), 0};
        if (!packs) ::ZSTD_decompressStream(uncompressor, &to, &from);
        last = from.pos == from.size;
        if (packs)
            last ? ::ZSTD_endStream(compressor, &to)
                 : ::ZSTD_compressStream(compressor, &to, &from);
        out.append(block.data(), to.pos);
    }
}

// One way of one method, on a buffer of 'size' bytes of text.
void buffers(const Method& method, size_t size, bool packs, Goals goals)
{
    const string length = size < 1024      ? std::to_string(size) + " bytes"
                          : size < 1 << 20 ? std::to_string(size / 1024) + " KiB"
                                           : "1 MiB";
    if (size < 65536)
        goals.remark = "two streams with their buffers are made for each call";
    else if (!packs)
        goals.remark =
            "uncompressed in blocks, as the limit does it (gz: 16 KiB), not at once: the "
            "size of the result is not known before";
    row("gzip/buffer of " + length + (packs ? ", compressed, " : ", uncompressed, ") + method.name,
        goals, [=](Race& race) {
            string in = proseOf(size), out;
            const string text = in;
            if (!packs) ZQCompress(in, text, method.name);
            const auto product = [&] {
                string result;
                return packs && ZQUncompress(result, out, method.name) ? result : out;
            };
            race.leaves(product, [&] { out.clear(); });
            race.ours([&] {
                out.clear();
                packs ? ZQCompress(out, in, method.name) : ZQUncompress(out, in, method.name);
            });
            race.peer(method.peerName, [&] { method.peer(out, in, packs, size); });
            race.limit([&] { method.limit(out, in, packs, size); });
            race.run(1);
        });
}

// ---- commands

#ifdef BENCH_ZQCAT
void commands(const char* name, Goals goals, double (*clock)())
{
    row(name, goals, [=](Race& race) {
        const string path = scratchFile("large.gz", zipped(proseOf(16 << 20)));
        const string output = scratchFile("large", "");
        race.leavesFile(output);
        const auto command = [=](const char* words) {
            return [=] { return execute(string(words) + " " + path, output); };
        };
        race.ours(command(BENCH_ZQCAT));
        race.peer("gzip -dc", command("gzip -dc"));
        if (execute("pigz --version", output)) race.peer("pigz -dc", command("pigz -dc"));
        race.run(1, clock);
    });
}
#endif

}  // namespace

void gzipRows()
{
    gzipRead("gzip/KiB of a gzip file, read", {1.15, 1.05}, [](auto& in) {
        std::uint64_t sum = 0;
        for (char block[fragment]; in.get(block, fragment);) sum = sum * 3 + block[7];
        return sum;
    });
    gzipRead("gzip/KiB of a gzip file, read as lines", {0.95, 1.05}, eachLine);
    gzipWritten();
    for (size_t size : {256, 4096, 65536, 1 << 20})
        for (bool packs : {true, false})
            buffers({"gz", "one-shot zlib", gzPeer, gzLimit}, size, packs, {1.03, 1.08});
    for (size_t size : {65536, 1 << 18, 1 << 20})
        for (bool packs : {true, false})
            buffers({"zstd", "zstd at once", zstdPeer, zstdLimit}, size, packs,
                    {size < 1 << 20 ? 1.25 : 1.05, 1.03});
#ifdef BENCH_ZQCAT
    commands("gzip/gzip file of 16 MiB, uncompressed by a command, processor time",
             {0.9, 0, "four fifths of it are zlib's, in pieces of 16 KiB"}, commandSeconds);
    commands("gzip/gzip file of 16 MiB, uncompressed by a command",
             {0.9, 0, "one thread does what pigz spreads over several"}, wallSeconds);
#endif
}
