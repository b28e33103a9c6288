// Gzip data put together from the input, and what a gzip stream makes of it by its header's rules.

#pragma once

#include "fuzz.h"

#include <zlib.h>

constexpr size_t gzipChunk = 16384;

inline string littleEndian(unsigned long value)
{
    string bytes;
    for (int shift = 0; shift < 32; shift += 8) bytes += static_cast<char>(value >> shift & 0xFF);
    return bytes;
}

// A member with the header fields that 'flags' names.
inline string gzipMember(const string& text, int level, unsigned int flags)
{
    z_stream z = {};
    CHECK(deflateInit2(&z, level, Z_DEFLATED, -15, 8, Z_DEFAULT_STRATEGY) == Z_OK);
    string data(deflateBound(&z, text.size()), '\0');
    z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
    z.avail_in = static_cast<uInt>(text.size());
    z.next_out = reinterpret_cast<Bytef*>(data.data());
    z.avail_out = static_cast<uInt>(data.size());
    CHECK(deflate(&z, Z_FINISH) == Z_STREAM_END);
    data.resize(z.total_out);
    deflateEnd(&z);
    string header = string("\x1F\x8B\x08", 3) + static_cast<char>(flags & 0x1F) + "mtimex";
    header += (flags & 4) ? string("\3\0abc", 5) : "";
    header += (flags & 8) ? string("name\0", 5) : "";
    header += (flags & 16) ? string("\0", 1) : "";
    header += (flags & 2) ? "hc" : "";
    const auto* bytes = reinterpret_cast<const Bytef*>(text.data());
    return header + data + littleEndian(crc32(0, bytes, static_cast<uInt>(text.size()))) +
           littleEndian(text.size());
}

// Raw bytes of the input, or members, plain text and such bytes in a row, perhaps damaged or cut.
inline string gzipData(Input& input)
{
    if (input.upTo(3) == 3) return input.rest();
    string data;
    for (size_t pieces = 1 + input.upTo(3); pieces > 0; --pieces) switch (input.upTo(3)) {
        case 0: data += input.bytes(input.byte()); break;
        case 1: data += input.text(40000); break;
        default:
            const int level = static_cast<int>(input.upTo(9));
            const unsigned int flags = input.byte();
            data += gzipMember(input.text(40000), level, (flags & 0x80) ? flags : 0);
        }
    for (size_t damages = input.upTo(5); damages > 3 && !data.empty(); --damages)
        data[input.upTo(65535) % data.size()] ^= static_cast<char>(input.byte());
    return input.upTo(3) == 3 ? data.substr(0, input.upTo(65535)) : data;
}

struct GzipModel {
    string bytes;             // what a reader gets
    string printed;           // and sees on zqerr
    bool isGzip = false;      // begins as such
    bool hasMembers = false;  // somewhere

    explicit GzipModel(const string& data) : _data(data)
    {
        isGzip = hasMagic();
        bool plain = false, behindMember = false;
        while (_at < _data.size()) {
            if (hasMagic()) {
                if (!takeHeader()) return;
                hasMembers = true;
                if (!takeMember()) return;
                behindMember = true;
            } else if (_data.size() - _at == 1 && _data[_at] == '\x1F' &&
                       (behindMember || !plain)) {
                return;  // a lone byte of the magic
            } else {
                // Looked at anew with every chunk, but for what stands behind a member.
                const size_t end = behindMember ? _data.size() : chunkEnd();
                bytes.append(_data, _at, end - _at);
                _at = end;
                plain = true;
            }
        }
    }

private:
    bool hasMagic() const { return _data.compare(_at, 2, "\x1F\x8B") == 0; }
    size_t chunkEnd() const { return std::min(_data.size(), (_at / gzipChunk + 1) * gzipChunk); }
    unsigned int byte()
    {
        const bool there = _at < _data.size();
        _cut = _cut || !there;
        return there ? static_cast<unsigned char>(_data[_at++]) : 0;
    }
    bool takeHeader()
    {
        _at += 2;
        const unsigned int method = byte(), flags = byte();
        if (method != 8 || (flags & 0xE0) != 0) return false;
        for (int i = 0; i < 6; ++i) byte();
        if (flags & 4) {
            const unsigned int low = byte();
            for (unsigned int n = byte() * 256 + low; n > 0 && !_cut; --n) byte();
        }
        for (unsigned int field = 8; field <= 16; field *= 2)
            while ((flags & field) && byte() != 0) {}
        if (flags & 2) byte(), byte();
        return !_cut;
    }
    bool takeMember()
    {
        z_stream z = {};
        CHECK(inflateInit2(&z, -15) == Z_OK);
        const size_t start = bytes.size();
        int result = Z_OK;
        while (result == Z_OK) {
            Bytef block[gzipChunk];
            z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(_data.data())) + _at;
            const size_t given = chunkEnd() - _at;
            z.avail_in = static_cast<uInt>(given);
            z.next_out = block;
            z.avail_out = gzipChunk;
            result = inflate(&z, Z_NO_FLUSH);
            _at += given - z.avail_in;
            // What the call that finds the damage decodes is lost.
            if (result == Z_OK || result == Z_STREAM_END)
                bytes.append(reinterpret_cast<char*>(block), gzipChunk - z.avail_out);
        }
        if (result != Z_STREAM_END)
            printed = string("zqigzstream fill error") + (z.msg ? ": " : "") +
                      (z.msg ? z.msg : "") + "\n";
        inflateEnd(&z);
        if (result != Z_STREAM_END) return false;
        const auto* text = reinterpret_cast<const Bytef*>(bytes.data()) + start;
        const auto crc = crc32(0, text, static_cast<uInt>(bytes.size() - start));
        const bool matches = _data.compare(_at, 4, littleEndian(crc)) == 0;
        _at = std::min(_at + 8, _data.size());  // the length is not looked at
        return matches;
    }

    const string& _data;
    size_t _at = 0;
    bool _cut = false;
};
