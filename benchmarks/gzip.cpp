// Gzip streams, compressed buffers, and the commands that do the same.

#include "streams.h"

#include <algorithm>
#include <zlib.h>
#include <zstd.h>

#ifdef BENCH_BOOST
#include <boost/iostreams/filter/gzip.hpp>
#include <boost/iostreams/filtering_stream.hpp>
#endif

namespace {

constexpr std::size_t fragment = 4096;
constexpr int rawDeflate = -15, gzipFormat = 15 + 16;

Bytef* bytes(const char* p) { return reinterpret_cast<Bytef*>(const_cast<char*>(p)); }

// ---- one-shot zlib: all of 'in' to 'out' in one call; returns the bytes there

template <class Work> std::size_t oneShot(const string& in, string& out, Work work)
{
    z_stream stream = {};
    stream.next_in = bytes(in.data());
    stream.avail_in = static_cast<uInt>(in.size());
    stream.next_out = bytes(out.data());
    stream.avail_out = static_cast<uInt>(out.size());
    work(&stream);
    return stream.total_out;
}
void startDeflate(z_stream* stream)
{
    deflateInit2(stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, gzipFormat, 8, Z_DEFAULT_STRATEGY);
}
std::size_t deflateAll(const string& in, string& out)
{
    return oneShot(in, out, [](z_stream* stream) {
        startDeflate(stream);
        ::deflate(stream, Z_FINISH);
        ::deflateEnd(stream);
    });
}
std::size_t inflateAll(const string& in, string& out)
{
    return oneShot(in, out, [](z_stream* stream) {
        inflateInit2(stream, gzipFormat);
        ::inflate(stream, Z_FINISH);
        ::inflateEnd(stream);
    });
}
string zipped(const string& text)
{
    string out(::compressBound(text.size()) + 32, '\0');
    out.resize(deflateAll(text, out));
    return out;
}
string unzipped(const string& data, std::size_t size)
{
    string text(size + 1, '\0');
    text.resize(inflateAll(data, text));
    return text;
}

// ---- files

struct OurGzip {
    explicit OurGzip(const string& path) : file(path), in(&file, false) {}
    zqifstream file;
    zqigzstream in;
};

struct GzReader {
    explicit GzReader(const string& path) : file(::gzopen(path.c_str(), "r"))
    {
        ::gzbuffer(file, 2 * blockSize);
    }
    ~GzReader() { ::gzclose(file); }
    bool line(string& s)
    {
        if (!::gzgets(file, buffer, sizeof buffer)) return false;
        s.assign(buffer, std::strlen(buffer) - 1);
        return true;
    }
    bool read(char* to, std::size_t n)
    {
        return ::gzread(file, to, static_cast<uInt>(n)) == int(n);
    }
    gzFile file;
    char buffer[1024];
};

#ifdef BENCH_BOOST
struct BoostGzip {
    explicit BoostGzip(const string& path)
    {
        in.push(io::gzip_decompressor(), blockSize);
        in.push(io::file_descriptor_source(path), blockSize);
    }
    io::filtering_istream in;
};
#endif

// The limit: inflate and crc, 16 KiB at a time.
class InflateSource : public Source {
public:
    explicit InflateSource(const string& path) : Source(path)
    {
        inflateInit2(&_stream, rawDeflate);
        ::lseek(fd(), 10, SEEK_SET);  // behind the header
    }
    ~InflateSource() override { ::inflateEnd(&_stream); }

private:
    static constexpr uInt chunk = 16384;
    ssize_t bring(char* to) override
    {
        _stream.next_out = bytes(to);
        _stream.avail_out = chunk;
        for (int result = Z_OK; result == Z_OK && _stream.avail_out != 0;) {
            if (_stream.avail_in == 0) {
                _stream.next_in = bytes(_in);
                _stream.avail_in = static_cast<uInt>(::read(fd(), _in, chunk));
            }
            result = ::inflate(&_stream, Z_NO_FLUSH);
        }
        const uInt n = chunk - _stream.avail_out;
        _sum = ::crc32(_sum, bytes(to), n);
        return n;
    }
    z_stream _stream = {};
    uLong _sum = 0;
    char _in[chunk];
};

template <class Body> void gzipRead(const char* job, Goals goals, Body body, const char* remark)
{
    row(
        "gzip", job, goals,
        [=](Race& race) {
            const string text = proseOf(1 << 20), path = scratchFile("text.gz", zipped(text));
            race.ours(reading<OurReader<OurGzip>>(path, body));
            race.peer("zlib gz*", reading<GzReader>(path, body));
#ifdef BENCH_BOOST
            race.peer("boost", reading<StandardReader<BoostGzip>>(path, body));
#endif
            race.limit(reading<InflateSource>(path, body));
            race.run(1024);
        },
        remark);
}

void filesRead()
{
    const char* const remark = "no more than 16 KiB is uncompressed ahead of the reader";
    gzipRead(
        "KiB of a gzip file, read", {1.15, 1.05},
        [](auto& in) {
            std::uint64_t sum = 0;
            for (char block[fragment]; in.read(block, sizeof block);) sum = sum * 3 + block[7];
            return sum;
        },
        remark);
    gzipRead(
        "KiB of a gzip file, read as lines", {0.95, 1.05},
        [](auto& in) {
            std::uint64_t sum = 0;
            for (string line; in.line(line);) sum += sumOf(line);
            return sum;
        },
        remark);
}

void fileWritten()
{
    row("gzip", "KiB of a gzip file, written", {1.04, 1.03}, [](Race& race) {
        const string text = proseOf(1 << 18), path = scratchFile("out.gz", "");
        race.leaves([=] { return unzipped(slurp(path), text.size()); },
                    [=] { scratchFile("out.gz", ""); });
        const auto each = [&](auto write) {
            for (std::size_t i = 0; i < text.size(); i += fragment) write(text.data() + i);
            return 0;
        };
        race.ours([&] {
            zqofstream file(openToWrite(path));
            zqogzstream out(&file, false);
            return each([&](const char* from) { out.write(from, fragment); });
        });
        race.peer("zlib gz*", [&] {
            const gzFile file = ::gzdopen(openToWrite(path), "w");
            ::gzbuffer(file, 2 * blockSize);
            each([&](const char* from) { ::gzwrite(file, from, fragment); });
            return ::gzclose(file);
        });
#ifdef BENCH_BOOST
        race.peer("boost", [&] {
            io::filtering_ostream out;
            out.push(io::gzip_compressor(), blockSize);
            out.push(io::file_descriptor_sink(openToWrite(path), io::close_handle));
            return each([&](const char* from) { out.write(from, fragment); });
        });
#endif
        race.limit([&] {
            Sink sink(path);
            z_stream stream = {};
            startDeflate(&stream);
            for (std::size_t i = 0; i <= text.size(); i += blockSize) {
                stream.next_in = bytes(text.data() + i);
                stream.avail_in = static_cast<uInt>(std::min(blockSize, text.size() - i));
                do {
                    stream.next_out = bytes(sink.room(fragment));
                    stream.avail_out = fragment;
                    ::deflate(&stream, i == text.size() ? Z_FINISH : Z_NO_FLUSH);
                    sink.used(reinterpret_cast<char*>(stream.next_out));
                } while (stream.avail_out == 0);
            }
            return ::deflateEnd(&stream);
        });
        race.run(256);
    });
}

// ---- buffers

using Convert = std::function<bool(string& out, const string& in)>;

// One way of one method, on a buffer of 'size' bytes of text.
void buffers(const string& job, std::size_t size, Goals goals, const char* method, bool packs,
             const char* peerName, Convert peer, Convert limit)
{
    const string length = size < 1024      ? std::to_string(size) + " bytes"
                          : size < 1 << 20 ? std::to_string(size / 1024) + " KiB"
                                           : "1 MiB";
    row(
        "gzip", "buffer of " + length + ", " + job, goals,
        [=](Race& race) {
            const string text = proseOf(size);
            string packed, out;
            ZQCompress(packed, text, method);
            race.leaves(
                [&] {
                    string result;
                    return packs && ZQUncompress(result, out, method) ? result : out;
                },
                [&] { out.clear(); });
            const string& in = packs ? text : packed;
            race.ours([&] {
                return packs ? ZQCompress(out, in, method)
                             : (out.clear(), ZQUncompress(out, in, method));
            });
            race.peer(peerName, [&] { return peer(out, in); });
            race.limit([&] { return limit(out, in); });
            race.run(1);
        },
        packs ? "" : "the size of the result is not known before, so the string grows as it comes");
}

void gzipBuffers(std::size_t size)
{
    const Goals goals = {1.03, 1.08};
    const auto block = std::make_shared<string>(::compressBound(size) + 32, '\0');
    buffers(
        "compressed, gz", size, goals, "gz", true, "one-shot zlib",
        [](string& out, const string& in) { return out = zipped(in), true; },
        [=](string& out, const string& in) {
            return out.assign(*block, 0, deflateAll(in, *block)), true;
        });
    buffers(
        "uncompressed, gz", size, goals, "gz", false, "one-shot zlib",
        [=](string& out, const string& in) { return out = unzipped(in, size), true; },
        [=](string& out, const string& in) {
            return out.assign(*block, 0, inflateAll(in, *block)), true;
        });
}

void zstdBuffers(std::size_t size)
{
    constexpr int level = 7;
    const Goals goals = {size < 1 << 20 ? 1.25 : 1.05, 1.03};
    static ZSTD_CCtx* const compressor = ::ZSTD_createCCtx();
    static ZSTD_DCtx* const uncompressor = ::ZSTD_createDCtx();
    static std::vector<char> block(::ZSTD_CStreamOutSize());
    buffers(
        "compressed, zstd", size, goals, "zstd", true, "zstd at once",
        [](string& out, const string& in) {
            out.resize(::ZSTD_compressBound(in.size()));
            out.resize(::ZSTD_compressCCtx(compressor, out.data(), out.size(), in.data(), in.size(),
                                           level));
            return true;
        },
        [](string& out, const string& in) {
            ::ZSTD_initCStream(compressor, level);
            ZSTD_inBuffer from = {in.data(), in.size(), 0};
            out.clear();
            for (bool last = false; !last;) {
                last = from.pos == from.size;
                ZSTD_outBuffer to = {block.data(), block.size(), 0};
                last ? ::ZSTD_endStream(compressor, &to)
                     : ::ZSTD_compressStream(compressor, &to, &from);
                out.append(block.data(), to.pos);
            }
            return true;
        });
    buffers(
        "uncompressed, zstd", size, goals, "zstd", false, "zstd at once",
        [=](string& out, const string& in) {
            out.resize(size);
            return ::ZSTD_decompressDCtx(uncompressor, out.data(), size, in.data(), in.size()) ==
                   size;
        },
        [](string& out, const string& in) {
            ::ZSTD_initDStream(uncompressor);
            ZSTD_inBuffer from = {in.data(), in.size(), 0};
            out.clear();
            while (from.pos < from.size) {
                ZSTD_outBuffer to = {block.data(), ::ZSTD_DStreamOutSize(), 0};
                ::ZSTD_decompressStream(uncompressor, &to, &from);
                out.append(block.data(), to.pos);
            }
            return true;
        });
}

// ---- commands

#ifdef BENCH_ZQCAT
void commands()
{
    row(
        "gzip", "gzip file of 16 MiB, uncompressed by a command", {0.9, 0},
        [](Race& race) {
            const string path = scratchFile("large.gz", zipped(proseOf(16 << 20)));
            const string output = scratchFile("large", "");
            race.leavesFile(output);
            const auto command = [=](std::vector<string> words) {
                return [=] { return spawn(words, output); };
            };
            race.ours(command({BENCH_ZQCAT, path}));
            race.peer("gzip -dc", command({"gzip", "-dc", path}));
            if (std::system("pigz --version >/dev/null 2>&1") == 0)
                race.peer("pigz -dc", command({"pigz", "-dc", path}));
            race.run(1, CLOCK_MONOTONIC);
        },
        "one thread does what pigz spreads over several");
}
#endif

}  // namespace

void gzipRows()
{
    filesRead();
    fileWritten();
    for (std::size_t size : {256, 4096, 65536, 1 << 20}) gzipBuffers(size);
    for (std::size_t size : {65536, 1 << 18, 1 << 20}) zstdBuffers(size);
#ifdef BENCH_ZQCAT
    commands();
#endif
}
