// Numbers to text and back, byte for byte as the C library does it in the "C" locale, whatever
// locale the program has set. Internal to the library.

#ifndef ZQPLATFORM_ZQNUMBERTEXT_H
#define ZQPLATFORM_ZQNUMBERTEXT_H

#include <cstddef>

namespace ZQPlatform {

// Room for every number: "%f" of the largest double has 309 digits before the point.
constexpr std::size_t numberTextSize = 1024;

// Writes 'value' as printf's "%f" does (no NUL); returns the end of the text.
char* formatFixed(char* out, double value);

// The number at the start of [first, last), as strtol (base 10) and strtod read it, errno
// included: set to ERANGE by what does not fit, otherwise left alone.
long parseInteger(const char* first, const char* last);
double parseFloating(const char* first, const char* last);

}  // namespace ZQPlatform

#endif
