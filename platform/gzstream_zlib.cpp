#include "gzstream_zlib.h"

#include <algorithm>
#include <zlib.h>

namespace ZQPlatform {

namespace {

constexpr unsigned int chunkSize = 16384;  // of compressed input, and of what one fill decodes
constexpr unsigned int pushBackSize = 2;   // the bytes of a header's magic
constexpr int rawDeflate = -15;            // 32 KiB window, no zlib header
constexpr int memoryLevel = 8;
// What this code was written against; zlib checks both.
constexpr char zlibVersion[] = "1.2.7";
constexpr int zlibRecordSize = 112;
static_assert(sizeof(z_stream) == zlibRecordSize);

constexpr int endOfData = -1;
constexpr unsigned char magic[] = {0x1F, 0x8B};

// RFC 1952, 2.3.1: the flags of a member header.
enum HeaderFlag {
    headerCrc = 0x02,
    extraField = 0x04,
    originalName = 0x08,
    comment = 0x10,
    reservedFlags = 0xE0
};
constexpr int modificationTimeToSystem = 6;  // bytes: MTIME, XFL, OS

// No name, no time, system 3 (Unix): the header of every member that is written.
constexpr unsigned int memberHeaderSize = 10;
constexpr unsigned char memberHeader[memberHeaderSize] = {0x1F, 0x8B, 8, 0, 0, 0, 0, 0, 0, 3};

}  // namespace

struct gz_stream {
    z_stream zstream = {};
    int zerr = Z_OK;  // latest result of zlib or of the header parser
    int at_eof = 0;   // input: the source has delivered nothing more
    bool initialised = false;
    bool header_ok = false;
    unsigned char* in_buffer = nullptr;   // input: chunkSize compressed bytes; output: _buf
    unsigned char* out_buffer = nullptr;  // input: _buf; output: chunkSize compressed bytes
    long header_length = 0;
    int transparent = 0;                 // input: the data is not gzip and is passed through
    uLong crc = ::crc32(0, nullptr, 0);  // of the member's data so far
    bool ended = false;                  // input: a fill has found nothing more

    // Input: in_buffer, with room for pushed-back bytes in front of it. Output: out_buffer.
    std::unique_ptr<unsigned char[]> block;
};

namespace {

std::unique_ptr<gz_stream> inputRecord(unsigned char* out)
{
    auto gz = std::make_unique<gz_stream>();
    gz->block.reset(new unsigned char[pushBackSize + chunkSize]);
    gz->in_buffer = gz->block.get() + pushBackSize;
    gz->out_buffer = out;
    return gz;
}

std::unique_ptr<gz_stream> outputRecord(unsigned char* in)
{
    auto gz = std::make_unique<gz_stream>();
    gz->block.reset(new unsigned char[chunkSize]);
    gz->in_buffer = in;
    gz->out_buffer = gz->block.get();
    return gz;
}

void report(const char* what, const gz_stream& gz)
{
    zqerr << what;
    if (gz.zstream.msg)
        zqerr << ": " << gz.zstream.msg;
    zqerr << zqendl;
}

// ---- input: bytes of the source

// The next chunk of the source. False, and nothing to read, where it has no more.
bool readChunk(gz_stream& gz, zqistream* source)
{
    source->read(gz.in_buffer, chunkSize);
    gz.zstream.next_in = gz.in_buffer;
    gz.zstream.avail_in = static_cast<uInt>(source->count());
    return gz.zstream.avail_in != 0;
}

int nextByte(gz_stream& gz, zqistream* source)
{
    if (gz.at_eof)
        return endOfData;
    if (gz.zstream.avail_in == 0 && !readChunk(gz, source)) {
        gz.at_eof = 1;
        return endOfData;
    }
    --gz.zstream.avail_in;
    return *gz.zstream.next_in++;
}

// Puts 'byte' back in front of the input. The chunk may be a new one, so it is stored again.
void pushBack(gz_stream& gz, unsigned char byte)
{
    auto* in = const_cast<Bytef*>(gz.zstream.next_in);
    *--in = byte;
    gz.zstream.next_in = in;
    ++gz.zstream.avail_in;
}

unsigned int getLong(gz_stream& gz, zqistream* source)
{
    unsigned int value = 0;
    int byte = 0;
    for (unsigned int shift = 0; shift < 32; shift += 8) {
        byte = nextByte(gz, source);
        value |= static_cast<unsigned int>(byte & 0xFF) << shift;
    }
    if (byte == endOfData)
        gz.zerr = Z_DATA_ERROR;
    return value;
}

// ---- input: member headers

void skipBytes(gz_stream& gz, zqistream* source, int n)
{
    while (n-- > 0 && nextByte(gz, source) != endOfData) {
    }
}

void skipText(gz_stream& gz, zqistream* source)
{
    while (nextByte(gz, source) > 0) {
    }
}

// Consumes the two bytes that begin a member. What begins otherwise is put back.
bool takeMagic(gz_stream& gz, zqistream* source)
{
    for (unsigned int i = 0; i < sizeof magic; ++i) {
        const int byte = nextByte(gz, source);
        if (byte == magic[i])
            continue;
        if (byte != endOfData) {
            pushBack(gz, static_cast<unsigned char>(byte));
            gz.transparent = 1;
        }
        if (i != 0)
            pushBack(gz, magic[0]);
        gz.zerr = gz.zstream.avail_in == 0 ? Z_STREAM_END : Z_OK;
        return false;
    }
    return true;
}

// Parses a member header (RFC 1952, 2.3). False if there is none: zerr then tells whether other
// data follows (0), none (1), or a damaged header (-3).
bool check_header(gz_stream& gz, zqistream* source)
{
    if (!takeMagic(gz, source))
        return false;
    const int method = nextByte(gz, source);
    const int flags = nextByte(gz, source);
    if (method != Z_DEFLATED || (flags & reservedFlags) != 0) {
        gz.zerr = Z_DATA_ERROR;
        return false;
    }
    skipBytes(gz, source, modificationTimeToSystem);
    if (flags & extraField) {
        const int low = nextByte(gz, source);
        const int high = nextByte(gz, source);
        skipBytes(gz, source, high == endOfData ? 0 : low + 256 * high);
    }
    if (flags & originalName)
        skipText(gz, source);
    if (flags & comment)
        skipText(gz, source);
    if (flags & headerCrc)
        skipBytes(gz, source, 2);
    gz.zerr = gz.at_eof ? Z_DATA_ERROR : Z_OK;
    return !gz.at_eof;
}

// ---- input: the inflater

// Ends an inflater that gzi_clear() leaves alone by its rule, without a word.
void endOrphan(gz_stream& gz)
{
    if (gz.zstream.state)
        ::inflateEnd(&gz.zstream);  // result ignored: nothing else can be done with it
}

void gzi_clear(gz_stream& gz)
{
    // Deliberate: the inflater of plain data (header_ok false) is not ended here.
    if (gz.initialised && gz.header_ok && ::inflateEnd(&gz.zstream) != Z_OK)
        report("zqigzstream clear error", gz);
    gz.initialised = false;
    gz.header_ok = false;
}

// As new, but for an inflater that is still to be ended.
void resetRecord(gz_stream& gz)
{
    gz.zstream.avail_in = gz.zstream.avail_out = 0;
    gz.zstream.next_in = gz.in_buffer;
    gz.zstream.next_out = gz.out_buffer;
    gz.crc = ::crc32(0, nullptr, 0);
    gz.zerr = Z_OK;
    gz.at_eof = 0;
    gz.initialised = gz.header_ok = false;
    gz.transparent = 0;
    gz.header_length = 0;
    gz.ended = false;
}

// Plain data was taken from the source and is still to be delivered.
bool holdsPlainData(const gz_stream& gz)
{
    return gz.transparent && gz.zstream.avail_in != 0;
}

// Begins to read at the source's position. True if a member header stands there.
bool gzi_init(zqistream* source, gz_stream& gz)
{
    if (!source || source->eof())  // a source may let go of its reader while it seeks
        return false;
    const bool wasPlain = gz.transparent != 0;
    endOrphan(gz);
    gz.zstream = {};
    resetRecord(gz);
    if (!readChunk(gz, source))
        return false;

    gz.initialised = gz.header_ok = true;
    gz.zerr = ::inflateInit2_(&gz.zstream, rawDeflate, zlibVersion, zlibRecordSize);
    if (gz.zerr != Z_OK) {
        report("zqigzstream init error", gz);
        gzi_clear(gz);
        return false;
    }
    gz.header_ok = check_header(gz, source);
    // A lone 0x1F at the end is dropped, unless plain data stands before it.
    if (!gz.header_ok && wasPlain && gz.zstream.avail_in != 0)
        gz.transparent = 1;
    return gz.header_ok;
}

// Behind the last byte of a member's data: compares the checksum and begins the next member.
void endMember(gz_stream& gz, zqistream* source)
{
    if (getLong(gz, source) != gz.crc) {
        gz.zerr = Z_DATA_ERROR;
        return;
    }
    getLong(gz, source);  // the length, which is not compared
    check_header(gz, source);
    if (gz.zerr != Z_OK)
        return;
    const uLong totalIn = gz.zstream.total_in;
    const uLong totalOut = gz.zstream.total_out;
    ::inflateReset(&gz.zstream);
    gz.zstream.total_in = totalIn;
    gz.zstream.total_out = totalOut;
    gz.crc = ::crc32(0, nullptr, 0);
}

// Copies plain bytes to the output buffer.
void passThrough(gz_stream& gz)
{
    const uInt n = std::min(gz.zstream.avail_in, chunkSize);
    std::memcpy(gz.out_buffer, gz.zstream.next_in, n);
    gz.zstream.next_in += n;
    gz.zstream.avail_in -= n;
    gz.zstream.total_in += n;
    gz.zstream.next_out += n;
    gz.zstream.avail_out -= n;
    gz.zstream.total_out += n;
}

// Inflates into the output buffer. False, after a message, where nothing more can come.
bool inflateChunk(gz_stream& gz, zqistream* source)
{
    gz.zerr = ::inflate(&gz.zstream, Z_NO_FLUSH);
    // Cut data: once the bytes that inflate still held are out, it asks for more (Z_BUF_ERROR).
    if (gz.zerr != Z_OK && gz.zerr != Z_STREAM_END) {
        report("zqigzstream fill error", gz);
        return false;
    }
    gz.crc = ::crc32(gz.crc, gz.out_buffer, chunkSize - gz.zstream.avail_out);
    if (gz.zerr == Z_STREAM_END)
        endMember(gz, source);
    return true;
}

}  // namespace

// ---- zqigzstream

zqigzstream::zqigzstream() : _gz(inputRecord(_buf)) {}

zqigzstream::zqigzstream(zqistream* source, bool ownSource)
{
    set(source, ownSource);
    _gz = inputRecord(_buf);
}

zqigzstream::~zqigzstream()
{
    gzi_clear(*_gz);
    endOrphan(*_gz);
}

void zqigzstream::_zqclear()
{
    if (!_gz)
        return;
    gzi_clear(*_gz);
    resetRecord(*_gz);
}

bool zqigzstream::_zqset(zqistream*)
{
    if (!_gz || !(_gz->ended || (_gz->at_eof && !holdsPlainData(*_gz))))
        return true;
    // The same source again, with new data after it had ended.
    zqigzstream::_zqclear();
    if (_ptr == _end) {
        _ptr = _end = _buf;
        _offset = 0;
    }
    _size = 0;
    _sizeknown = false;
    return true;
}

bool zqigzstream::_zqfill()
{
    if (stream) {
        if (fillChunk())
            return true;
        _gz->ended = true;
    }
    _ptr = _end;
    _eof = true;
    return false;
}

// Decodes up to chunkSize bytes into the empty buffer. False at the end of the data.
bool zqigzstream::fillChunk()
{
    gz_stream& gz = *_gz;
    if (!gz.header_ok && gz.zerr == Z_OK && !holdsPlainData(gz))
        gzi_init(stream, gz);
    if (gz.at_eof && !holdsPlainData(gz))
        return false;

    moveOffset(_ptr - _buf);
    _ptr = _end = _buf;
    while (gz.zerr == Z_OK) {
        const bool starved = gz.zstream.avail_in == 0 && (stream->eof() || !readChunk(gz, stream));
        if (starved && (gz.transparent || !gz.header_ok))
            return false;
        gz.zstream.next_out = gz.out_buffer;
        gz.zstream.avail_out = chunkSize;
        if (gz.transparent)
            passThrough(gz);
        else if (!inflateChunk(gz, stream))
            return false;
        _end = _buf + (chunkSize - gz.zstream.avail_out);
        if (_end != _buf) {
            _eof = false;
            return true;
        }
        if (gz.at_eof)
            return false;
    }
    return false;
}

bool zqigzstream::_zqseek(long pos)
{
    if (!stream || pos < 0)
        return false;
    const bool hasBadStart = _offset == 0 && _end == _buf && _gz->zerr < 0;
    if (pos < _offset || hasBadStart) {
        if (!stream->seek(0))
            return false;
        zqigzstream::_zqclear();
        gzi_init(stream, *_gz);
        _offset = 0;
        _eof = false;
        _ptr = _end = _buf;
    }
    while (pos - _offset >= _end - _buf) {
        _ptr = _end;
        if (!_zqfill())
            return false;
    }
    _ptr = _buf + (pos - _offset);
    _eof = false;
    return true;
}

zqsize_t zqigzstream::_zqsize()
{
    if (!stream)
        return 0;
    gz_stream& gz = *_gz;
    if (!gz.header_ok && (gz.zerr != Z_OK || gz.transparent || !gzi_init(stream, gz)))
        return 0;

    const long position = _zqtell();
    do
        _ptr = _end;
    while (zqigzstream::_zqfill());
    moveOffset(_end - _buf);
    _ptr = _end = _buf;
    _size = static_cast<zqsize_t>(_offset);
    _sizeknown = true;
    _zqseek(position);  // result ignored: at the end of the data there is nothing to go back to
    return _size;
}

// ---- zqogzstream

namespace {

void resetOutput(gz_stream& gz)
{
    gz.zstream.next_out = gz.out_buffer;
    gz.zstream.avail_out = chunkSize;
}

// Writes the compressed bytes that have collected. False if the destination took fewer.
bool writeOutput(gz_stream& gz, zqostream& destination)
{
    const zqsize_t n = chunkSize - gz.zstream.avail_out;
    if (n != 0 && destination.write(gz.out_buffer, n) != n) {
        gz.zerr = -1;
        return false;
    }
    resetOutput(gz);
    return true;
}

// Four bytes, least significant first, into the destination's own buffer. A byte for which no
// room can be made is dropped.
void putLong(zqostream& destination, uLong value)
{
    for (unsigned int shift = 0; shift < 32; shift += 8)
        destination.zqostream::operator<<(static_cast<unsigned char>(value >> shift & 0xFF));
}

// Ends the deflate data. False if it could not be written.
bool finishData(gz_stream& gz, zqostream& destination)
{
    gz.zstream.avail_in = 0;
    for (bool done = false;;) {
        const bool pending = gz.zstream.avail_out != chunkSize;
        if (!writeOutput(gz, destination))
            return false;
        if (done)
            return true;
        gz.zerr = ::deflate(&gz.zstream, Z_FINISH);
        if (!pending && gz.zerr == Z_BUF_ERROR)
            gz.zerr = Z_OK;
        done = gz.zstream.avail_out != 0 || gz.zerr == Z_STREAM_END;
        if (gz.zerr < 0)
            return true;
    }
}

// Finishes the member: the rest of the data, then the trailer.
void gzo_clear(zqostream* destination, gz_stream& gz)
{
    if (destination && finishData(gz, *destination)) {
        putLong(*destination, gz.crc);
        putLong(*destination, gz.zstream.total_in);
    }
    if (::deflateEnd(&gz.zstream) != Z_OK)
        report("zqogzstream clear error", gz);
    gz.initialised = false;
}

}  // namespace

zqogzstream::zqogzstream() : _gz(outputRecord(_buf)), finishing(false) {}

zqogzstream::zqogzstream(zqostream* destination, bool ownDestination) : finishing(false)
{
    set(destination, ownDestination);
    _gz = outputRecord(_buf);
}

zqogzstream::~zqogzstream()
{
    try {
        finish();
    } catch (const ZQIOError& error) {
        zqerr << "Caught ZQIOError during zqogzstream destruction: " << error.what() << zqendl;
    }
    if (_gz->initialised)
        ::deflateEnd(&_gz->zstream);  // result ignored: an exception has cut the member short
}

void zqogzstream::finish()
{
    const std::unique_ptr<bool, void (*)(bool*)> mark(&finishing, [](bool* set) { *set = false; });
    finishing = true;
    _zqflush();  // result ignored: an empty buffer reports false, and the member is whole
    if (_gz->initialised)
        gzo_clear(stream, *_gz);
}

void zqogzstream::_zqclear()
{
    if (stream)
        finish();
}

bool zqogzstream::_zqset(zqostream*)
{
    return true;
}

// Sets up the compressor and the member's header.
bool zqogzstream::startMember()
{
    gz_stream& gz = *_gz;
    gz.zstream.avail_in = 0;
    gz.zstream.next_in = _buf;
    resetOutput(gz);
    gz.zerr = ::deflateInit2_(&gz.zstream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, rawDeflate,
                              memoryLevel, Z_DEFAULT_STRATEGY, zlibVersion, zlibRecordSize);
    if (gz.zerr != Z_OK) {
        report("zqogzstream init error", gz);
        return false;
    }
    std::memcpy(gz.out_buffer, memberHeader, memberHeaderSize);
    gz.zstream.next_out += memberHeaderSize;
    gz.zstream.avail_out -= memberHeaderSize;
    gz.header_length = memberHeaderSize;
    gz.initialised = gz.header_ok = true;
    return true;
}

// Compresses the bytes from _buf to _ptr. False if the destination failed.
bool zqogzstream::compressBuffer()
{
    gz_stream& gz = *_gz;
    const auto pending = static_cast<uInt>(_ptr - _buf);
    gz.zstream.next_in = _buf;
    gz.zstream.avail_in = pending;
    while (gz.zstream.avail_in != 0) {
        if (gz.zstream.avail_out == 0 && !writeOutput(gz, *stream))
            return false;
        gz.zerr = ::deflate(&gz.zstream, Z_NO_FLUSH);
        if (gz.zerr != Z_OK) {
            report("zqogzstream flush error", gz);
            break;
        }
    }
    gz.crc = ::crc32(gz.crc, _buf, pending);
    return true;
}

bool zqogzstream::_zqflush()
{
    if (!stream)
        return refuseFlush();
    if ((!_gz->header_ok && !startMember()) || !_gz->initialised)
        return false;
    if (_ptr != _end && !finishing)
        return true;
    moveOffset(_ptr - _buf);
    if (_ptr == _buf || !compressBuffer()) {
        _ptr = _end;
        _eof = true;
        return false;
    }
    if (_gz->zstream.avail_out == 0)
        _eof = true;  // Deliberate, and the call still succeeds.
    _ptr = _buf;
    return true;
}

bool zqogzstream::_zqseek(long)
{
    return false;
}

zqsize_t zqogzstream::_zqsize()
{
    return static_cast<zqsize_t>(_zqtell());
}

}  // namespace ZQPlatform
