// Numbers to text and back, byte for byte as the C library does it in the "C" locale, whatever
// locale the program has set. Internal to the library.

#ifndef ZQPLATFORM_ZQNUMBERTEXT_H
#define ZQPLATFORM_ZQNUMBERTEXT_H

#include <cstddef>

namespace ZQPlatform {

// Room for every number: "%f" of the largest double has 309 digits before the point.
constexpr std::size_t numberTextSize = 1024;

// Write 'value' as printf does with "%ld", "%lu" and "%f" (no NUL, nothing behind the text); return
// the end of the text.
char* formatNumber(char* out, long value);
char* formatNumber(char* out, unsigned long value);
char* formatNumber(char* out, double value);

// The number at the start of [first, last), as strtol (base 10) and strtod read it, errno
// included: set to ERANGE by what does not fit, otherwise left alone.
void parseNumber(const char* first, const char* last, long& value);
void parseNumber(const char* first, const char* last, double& value);

// The same for numbers in plain form: a sign or none, digits, and for a double a point with digits
// behind it or none.
template <class Number> struct PlainNumber {
    Number value;
    const char* end;  // of the number, in front of 'last'; null: of another form, too long, or
                      // 'last' too near
};
template <class Number> PlainNumber<Number> parsePlain(const char* first, const char* last);
template <> PlainNumber<long> parsePlain(const char* first, const char* last);
template <> PlainNumber<double> parsePlain(const char* first, const char* last);

}  // namespace ZQPlatform

#endif
