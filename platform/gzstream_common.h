// Compression of whole buffers, by the name of a method: "gz" or "zstd".
//
//   std::string packed, text;
//   if (ZQCompress(packed, bytes, "zstd") && ZQUncompress(text, packed, "zstd")) ...
//
// Method names are compared exactly. Every function may be called from any thread. A thread's
// first ZQCompress creates its context for compressing with zstd, its first ZQUncompress the other
// one, whatever the method; they stay until the process ends. The first takes about 9 MB once it
// is used. The other takes 3 MB for what ZQCompress writes, and as much as a frame's header asks
// for elsewhere, 128 MiB at most. Nothing is thrown but std::bad_alloc; the gzip streams print
// zlib's errors on zqerr.

#ifndef ZQPLATFORM_GZSTREAM_COMMON_H
#define ZQPLATFORM_GZSTREAM_COMMON_H

#include "gzstream_zlib.h"

#include <cstddef>
#include <string>

namespace ZQPlatform {

// Replaces 'out' by the compressed bytes: one gzip member (RFC 1952), or one zstd frame at level
// 7. Null data counts as no bytes. False, and an empty 'out', for null and other methods; false,
// and 'out' as it was, for an error of zstd.
ZQPLATFORM_EXPORT bool ZQCompress(std::string& out, const char* data, std::size_t length,
                                  const char* method);
ZQPLATFORM_EXPORT bool ZQCompress(std::string& out, const std::string& data, const char* method);

// Appends the uncompressed bytes to 'out', which is emptied only where the method is null or
// unknown (false).
//
// "gz": always true. Plain bytes come back as they are, and damaged ones end the data early.
// "zstd": false for damaged data; the bytes before the damage are in 'out'. Deliberate: a frame
// that is cut, or looks cut by its damage, is no error, and the thread's next call continues it.
ZQPLATFORM_EXPORT bool ZQUncompress(std::string& out, const char* data, std::size_t length,
                                    const char* method);
ZQPLATFORM_EXPORT bool ZQUncompress(std::string& out, const std::string& data, const char* method);

// Deliberate: true for every name that begins with "gz", false for "zstd" and for null.
ZQPLATFORM_EXPORT bool ZQCompressionAvailable(const char* method);

}  // namespace ZQPlatform

#endif
