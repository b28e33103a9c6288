#include "zqstreammanager.h"

#include "gzstream_zlib.h"
#include "zqthread.h"

#include <cstring>
#include <map>
#include <memory>
#include <string_view>
#include <utility>

namespace ZQPlatform {

// What one direction registers and hands out.
template <class Stream> struct StreamTables {
    using Opener = Stream* (*)(const char*);
    using Closer = void (*)(Stream*);

    std::map<std::string, std::pair<Opener, Closer>, std::less<>> openers;  // by prefix
    std::map<Stream*, Closer> opened;  // what openers returned, and who releases it
    ZQMutex lock;                      // guards both
};

class ZQStreamManager {
public:
    StreamTables<zqistream> input;
    StreamTables<zqostream> output;

    // Puts the gzip stream that 'stream' needs over it; 'stream' stands at its start.
    static std::unique_ptr<zqistream> decoded(std::unique_ptr<zqistream> stream);

private:
    static bool beginsLikeGzip(zqistream& stream);
    static void putBack(zqistream& stream, unsigned char byte, long offset);
};

namespace {

constexpr unsigned char gzipMagic[] = {0x1F, 0x8B};

ZQStreamManager& ZQStreamMngr()
{
    static ZQOnce<ZQStreamManager> zqsmgr;
    return zqsmgr.Get();
}

std::string_view prefixOf(std::string_view name)
{
    return name.substr(0, name.find(':'));
}

// Opens a file, or what the name's prefix is registered for.
template <class FileStream, class Stream>
std::unique_ptr<Stream> openNamed(StreamTables<Stream>& tables, const char* name)
{
    const std::string_view prefix = prefixOf(name);
    if (prefix.empty())
        return std::make_unique<FileStream>(name);

    const ZQMutexGuard guard(tables.lock);
    const auto found = tables.openers.find(prefix);
    if (found == tables.openers.end())
        return std::make_unique<FileStream>(name);

    const auto [opener, closer] = found->second;
    std::unique_ptr<Stream, void (*)(Stream*)> stream(opener(name), closer);
    tables.opened[stream.get()] = closer;
    return std::unique_ptr<Stream>(stream.release());
}

template <class Stream> void closeStream(StreamTables<Stream>& tables, Stream* stream)
{
    if (!stream)
        return;
    stream->close();  // result ignored: the stream is released either way
    const ZQMutexGuard guard(tables.lock);
    const auto found = tables.opened.find(stream);
    if (found == tables.opened.end())
        delete stream;
    else
        found->second(stream);  // Deliberate: the record stays.
}

template <class Stream>
bool registerPrefix(StreamTables<Stream>& tables, const char* prefix,
                    typename StreamTables<Stream>::Opener opener,
                    typename StreamTables<Stream>::Closer closer)
{
    const ZQMutexGuard guard(tables.lock);
    tables.openers.insert_or_assign(prefix ? prefix : "", std::make_pair(opener, closer));
    return true;
}

template <class Wrapper, class Stream> std::unique_ptr<Wrapper> borrow(Stream& standard)
{
    auto wrapper = std::make_unique<Wrapper>();
    wrapper->set(&standard, false);
    return wrapper;
}

}  // namespace

// ---- looking at the content

// Makes 'byte', which a refill has pushed out, readable again in front of what the refill brought;
// 'offset' is the byte's position. There is no place for it in a full buffer.
void ZQStreamManager::putBack(zqistream& stream, unsigned char byte, long offset)
{
    const auto unread = static_cast<zqsize_t>(stream._end - stream._ptr);
    if (unread >= ZQ_STREAM_BUFSIZE)
        return;
    std::memmove(stream._buf + 1, stream._ptr, unread);
    stream._buf[0] = byte;
    stream._begin = stream._ptr = stream._buf;
    stream._end = stream._buf + 1 + unread;
    stream._offset = offset;
}

// Whether the readable bytes begin with the magic of gzip. The stream stands at its start again
// afterwards, or where it stood if it cannot go there.
bool ZQStreamManager::beginsLikeGzip(zqistream& stream)
{
    if (*stream._ptr != gzipMagic[0])
        return false;
    if (stream._end - stream._ptr > 1) {
        const bool matches = stream._ptr[1] == gzipMagic[1];
        stream.seek(0);  // result ignored: the bytes are still in the span
        return matches;
    }
    const long offset = stream._offset + (stream._ptr - stream.spanStart());
    ++stream._ptr;
    const bool matches = stream.more() && *stream._ptr == gzipMagic[1];
    if (!stream.seek(0))
        putBack(stream, gzipMagic[0], offset);
    return matches;
}

std::unique_ptr<zqistream> ZQStreamManager::decoded(std::unique_ptr<zqistream> stream)
{
    if (!stream->more() || !beginsLikeGzip(*stream))
        return stream;
    auto gzip = std::make_unique<zqigzstream>();
    gzip->set(stream.release(), true);
    return gzip;
}

// ---- public functions

zqistream* ZQOpenIStream(const char* name)
{
    ZQStreamManager& manager = ZQStreamMngr();
    if (!name)
        name = "";
    std::unique_ptr<zqistream> stream =
        *name ? openNamed<zqifstream>(manager.input, name) : borrow<zqiwrapperstream>(zqin);
    if (!stream)
        return nullptr;
    if (stream->eof()) {
        stream->open(std::string(name) + ".gz");  // result ignored: eof() tells
        if (stream->eof())
            return nullptr;
    }
    return ZQStreamManager::decoded(std::move(stream)).release();
}

zqostream* ZQOpenOStream(const char* name)
{
    ZQStreamManager& manager = ZQStreamMngr();
    if (!name)
        name = "";
    std::unique_ptr<zqostream> stream =
        *name ? openNamed<zqofstream>(manager.output, name) : borrow<zqowrapperstream>(zqout);
    if (!stream || stream->eof())
        return nullptr;
    if (!std::strstr(name, ".gz"))
        return stream.release();
    auto gzip = std::make_unique<zqogzstream>();
    gzip->set(stream.release(), true);
    return gzip.release();
}

void ZQCloseIStream(zqistream* stream)
{
    closeStream(ZQStreamMngr().input, stream);
}

void ZQCloseOStream(zqostream* stream)
{
    closeStream(ZQStreamMngr().output, stream);
}

bool ZQRegisterIStream(const char* prefix, zqistream* (*opener)(const char*),
                       void (*closer)(zqistream*))
{
    return registerPrefix(ZQStreamMngr().input, prefix, opener, closer);
}

bool ZQRegisterOStream(const char* prefix, zqostream* (*opener)(const char*),
                       void (*closer)(zqostream*))
{
    return registerPrefix(ZQStreamMngr().output, prefix, opener, closer);
}

}  // namespace ZQPlatform
