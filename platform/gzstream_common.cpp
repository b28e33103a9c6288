#include "gzstream_common.h"

#include "zqsstream.h"

#include <atomic>
#include <cstring>
#include <memory>
#include <new>
#include <zstd.h>

namespace ZQPlatform {

namespace {

constexpr int zstdLevel = 7;
constexpr std::size_t gzipBlockSize = 2048;

// ---- zstd contexts

// What one thread keeps for one direction. The list through 'next' keeps the contexts of ended
// threads reachable: they live until the process ends.
template <class Stream> struct Context {
    Stream* stream;
    std::size_t bufferSize;
    std::unique_ptr<char[]> buffer;
    Context* next;
};

template <class Stream> std::atomic<Context<Stream>*> contexts;

std::size_t reset(ZSTD_CStream* stream)
{
    return ZSTD_initCStream(stream, zstdLevel);
}

std::size_t reset(ZSTD_DStream* stream)
{
    return ZSTD_initDStream(stream);
}

// Null if there is no memory for it.
template <class Stream>
Context<Stream>* createContext(Stream* (*create)(), std::size_t (*release)(Stream*),
                               std::size_t bufferSize)
{
    std::unique_ptr<Stream, std::size_t (*)(Stream*)> stream(create(), release);
    std::unique_ptr<char[]> buffer(new (std::nothrow) char[bufferSize]);
    if (!stream || !buffer || ZSTD_isError(reset(stream.get())))
        return nullptr;
    auto context = new (std::nothrow)
        Context<Stream>{stream.get(), bufferSize, std::move(buffer), contexts<Stream>.load()};
    if (!context)
        return nullptr;
    static_cast<void>(stream.release());  // the context's now
    while (!contexts<Stream>.compare_exchange_weak(context->next, context)) {
    }
    return context;
}

// Leaves the session as new, so that what went wrong in one call does not reach the next, unless
// the call keeps it.
template <class Stream> class SessionReset {
public:
    explicit SessionReset(Stream* stream) : _stream(stream) {}
    ~SessionReset()
    {
        if (_stream)
            reset(_stream);  // result ignored: it has succeeded before, and allocates nothing
    }
    SessionReset(const SessionReset&) = delete;
    SessionReset& operator=(const SessionReset&) = delete;

    void keep() { _stream = nullptr; }

private:
    Stream* _stream;
};

// ---- zstd

bool compressZstd(std::string& out, ZSTD_inBuffer in, Context<ZSTD_CStream>& context)
{
    SessionReset<ZSTD_CStream> session(context.stream);
    std::string collected;
    for (bool last = false; !last;) {
        last = in.pos >= in.size;
        ZSTD_outBuffer block = {context.buffer.get(), context.bufferSize, 0};
        const std::size_t result = last ? ZSTD_endStream(context.stream, &block)
                                        : ZSTD_compressStream(context.stream, &block, &in);
        if (ZSTD_isError(result))
            return false;
        collected.append(context.buffer.get(), block.pos);
    }
    session.keep();
    out.swap(collected);
    return true;
}

bool uncompressZstd(std::string& out, ZSTD_inBuffer in, Context<ZSTD_DStream>& context)
{
    SessionReset<ZSTD_DStream> session(context.stream);
    while (in.pos < in.size) {
        const std::size_t before = in.pos;
        ZSTD_outBuffer block = {context.buffer.get(), context.bufferSize, 0};
        if (ZSTD_isError(ZSTD_decompressStream(context.stream, &block, &in)))
            return false;
        out.append(context.buffer.get(), block.pos);
        if (in.pos == before)
            return false;
    }
    session.keep();
    return true;
}

// ---- gzip; the streams are too large for a small stack, and take one allocation together

struct GzipWriter {
    GzipWriter() { gzip.set(&text, false); }

    zqosstream text;
    zqogzstream gzip;
};

struct GzipReader {
    GzipReader(const char* data, std::size_t length)
    {
        source.set(data, length, false);
        gzip.set(&source, false);
    }

    zqisstream source;
    zqigzstream gzip;
};

bool compressGzip(std::string& out, const char* data, std::size_t length)
{
    const auto writer = std::make_unique<GzipWriter>();
    writer->gzip.write(data, length);
    writer->gzip.clear();
    out = writer->text.str();
    return true;
}

bool uncompressGzip(std::string& out, const char* data, std::size_t length)
{
    const auto reader = std::make_unique<GzipReader>(data, length);
    char block[gzipBlockSize];
    zqsize_t got;
    do {
        got = reader->gzip.read(block, sizeof block);
        out.append(block, got);
    } while (got == sizeof block);
    return true;
}

bool is(const char* method, const char* name)
{
    return std::strcmp(method, name) == 0;
}

bool refuse(std::string& out)
{
    out.clear();
    return false;
}

}  // namespace

bool ZQCompress(std::string& out, const char* data, std::size_t length, const char* method)
{
    static thread_local Context<ZSTD_CStream>* cstream = nullptr;
    if (!cstream)
        cstream = createContext(ZSTD_createCStream, ZSTD_freeCStream, ZSTD_CStreamOutSize());
    if (!method)
        return refuse(out);
    if (!data)
        length = 0;
    if (is(method, "gz"))
        return compressGzip(out, data, length);
    if (is(method, "zstd"))
        return cstream && compressZstd(out, {data, length, 0}, *cstream);
    return refuse(out);
}

bool ZQCompress(std::string& out, const std::string& data, const char* method)
{
    return ZQCompress(out, data.data(), data.size(), method);
}

bool ZQUncompress(std::string& out, const char* data, std::size_t length, const char* method)
{
    static thread_local Context<ZSTD_DStream>* dstream = nullptr;
    if (!dstream)
        dstream = createContext(ZSTD_createDStream, ZSTD_freeDStream, ZSTD_DStreamOutSize());
    if (!method)
        return refuse(out);
    if (!data)
        length = 0;
    if (is(method, "gz"))
        return uncompressGzip(out, data, length);
    if (is(method, "zstd"))
        return dstream && uncompressZstd(out, {data, length, 0}, *dstream);
    return refuse(out);
}

bool ZQUncompress(std::string& out, const std::string& data, const char* method)
{
    if (&out == &data)  // appending to 'out' would move the bytes that are read
        return ZQUncompress(out, std::string(data), method);
    return ZQUncompress(out, data.data(), data.size(), method);
}

bool ZQCompressionAvailable(const char* method)
{
    return method && method[0] == 'g' && method[1] == 'z';
}

}  // namespace ZQPlatform
