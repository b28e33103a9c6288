// From a name to an open stream.
//
//   if (zqistream* in = ZQOpenIStream("data.txt")) {   // or data.txt.gz, found by itself
//       while (in->getline(line)) ...
//       ZQCloseIStream(in);
//   }
//
// A name is a file, unless the text before its first colon (all of it, in a name without one) is
// a registered prefix. Null and the empty name are standard input and output. A name that begins
// with a colon is a file. Every function may be called from several threads at once; openers,
// closers and the opening and deleting of streams run under a lock, one for input and one for
// output. Registered functions must not call this header's functions of their own side.

#ifndef ZQPLATFORM_ZQSTREAMMANAGER_H
#define ZQPLATFORM_ZQSTREAMMANAGER_H

#include "zqstream.h"

#include <string>

namespace ZQPlatform {

// Opens 'name' for reading; NAME.gz where there is no NAME. Gzip data is recognised by its
// content and decoded, whatever the name. Returns a stream that is the caller's until it goes to
// ZQCloseIStream, or null if there is nothing to open; an empty file is open.
//
// The first two bytes are looked at and put back, also where the stream cannot seek. One byte is
// lost if all of this comes together: the first read of such a stream delivers the single byte
// 0x1F, and the second one fills the whole buffer.
ZQPLATFORM_EXPORT zqistream* ZQOpenIStream(const char* name);

// Opens 'name' for writing; creates or truncates a file. Deliberate: with ".gz" anywhere in the
// name, directories included, the stream writes gzip. Null if it cannot be opened.
ZQPLATFORM_EXPORT zqostream* ZQOpenOStream(const char* name);

// Closes a stream that ZQOpenIStream or ZQOpenOStream returned, and releases it: with the closer of
// its prefix, or by deleting it. Null does nothing.
ZQPLATFORM_EXPORT void ZQCloseIStream(zqistream* stream);
ZQPLATFORM_EXPORT void ZQCloseOStream(zqostream* stream);

// Makes 'opener' and 'closer' serve the names with this prefix, in place of earlier ones, until
// the process ends. Null counts as the empty prefix. Returns true.
//
//   opener   gets the whole name, prefix and colon included; returns a stream on the heap, or
//            null. Where that stream turns out to have failed, its open() is tried with ".gz"
//            added to the name; if that fails, too, it is deleted.
//   closer   gets the stream after it was closed, and must do no more than delete it: the manager
//            remembers the address for good, so a later stream that happens to stand there is
//            handed to the same closer. It is not called for a stream that holds gzip data: the
//            gzip stream that was returned in its place deletes it.
ZQPLATFORM_EXPORT bool ZQRegisterIStream(const char* prefix, zqistream* (*opener)(const char*),
                                         void (*closer)(zqistream*));
ZQPLATFORM_EXPORT bool ZQRegisterOStream(const char* prefix, zqostream* (*opener)(const char*),
                                         void (*closer)(zqostream*));

inline zqistream* ZQOpenIStream(const std::string& name)
{
    return ZQOpenIStream(name.c_str());
}
inline zqostream* ZQOpenOStream(const std::string& name)
{
    return ZQOpenOStream(name.c_str());
}

}  // namespace ZQPlatform

#endif
