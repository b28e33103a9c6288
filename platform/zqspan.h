// Direct access to the span of any stream, for functions of the library that build values in it
// or take them from it in place. Internal to the library.

#ifndef ZQPLATFORM_ZQSPAN_H
#define ZQPLATFORM_ZQSPAN_H

#include "zqstreambase.h"

namespace ZQPlatform {

// Never an object: a derived class may name the protected members, of any stream.
class StreamSpan : public zqstream {
public:
    StreamSpan() = delete;

    // The next byte to read or to write, and how many may be read or written there.
    static unsigned char* at(const zqstream& s) { return s.*(&StreamSpan::_ptr); }
    static zqsize_t left(const zqstream& s)
    {
        return static_cast<zqsize_t>(s.*(&StreamSpan::_end) - s.*(&StreamSpan::_ptr));
    }

    // Moves on by 'n' bytes, of which there must be that many left, with the effect of reads or
    // writes that moved 'n' bytes in all and 'last' bytes in the last of them.
    static void advance(zqstream& s, zqsize_t n, zqsize_t last)
    {
        s.*(&StreamSpan::_ptr) += n;
        s.*(&StreamSpan::_count) = last;
    }
};

}  // namespace ZQPlatform

#endif
