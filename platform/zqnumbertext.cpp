#include "zqnumbertext.h"

#include <cfenv>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <locale.h>
#include <string>
#include <system_error>

namespace ZQPlatform {

namespace {

__extension__ typedef unsigned __int128 Unsigned128;

// The C library's forms follow the program's locale and the rounding mode; this is the locale
// that they have to follow here. It lives as long as the process.
locale_t cLocale()
{
    static const locale_t locale = ::newlocale(LC_ALL_MASK, "C", nullptr);
    return locale;
}

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

bool roundsToNearest()
{
    return std::fegetround() == FE_TONEAREST;
}

// ---- "%f"

constexpr int fractionDigits = 6;
constexpr std::uint64_t fractionScale = 1000000;
// Below this, the value times fractionScale fits 63 bits.
constexpr double smallLimit = 8796093022208.0;  // 2^43

char* formatByLibrary(char* out, double value)
{
    const locale_t previous = ::uselocale(cLocale());
    const int length = std::snprintf(out, numberTextSize, "%f", value);
    ::uselocale(previous);
    return out + length;
}

// |value| * 10^6 to the nearest integer, ties to even: exact, for magnitudes below smallLimit.
std::uint64_t scaledMagnitude(double value)
{
    std::uint64_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    const int exponent = static_cast<int>(bits >> 52 & 0x7FF);
    std::uint64_t mantissa = bits & 0xFFFFFFFFFFFFF;
    if (exponent != 0)
        mantissa |= std::uint64_t{1} << 52;

    // The magnitude is mantissa / 2^shift. Below 2^-22 it rounds to nothing.
    const int shift = 1075 - (exponent == 0 ? 1 : exponent);
    if (shift > 74)
        return 0;
    const Unsigned128 product = Unsigned128{mantissa} * fractionScale;
    const Unsigned128 half = Unsigned128{1} << (shift - 1);
    auto result = static_cast<std::uint64_t>(product >> shift);
    const Unsigned128 rest = product & (half * 2 - 1);
    if (rest > half || (rest == half && (result & 1)))
        ++result;
    return result;
}

// ---- strtol and strtod

// Runs 'convert' on a zero-terminated copy of the token.
template <class Convert> auto parseByLibrary(const char* first, const char* last, Convert convert)
{
    const std::string token(first, last);
    return convert(token.c_str());
}

double parseFloatingByLibrary(const char* first, const char* last)
{
    return parseByLibrary(first, last,
                          [](const char* token) { return ::strtod_l(token, nullptr, cLocale()); });
}

// The plain decimal form: a sign, digits with a point somewhere, an exponent.
struct Decimal {
    bool negative = false;
    bool hasDigits = false;
    bool exact = true;           // every digit is in the mantissa
    std::uint64_t mantissa = 0;  // the digits, without the point
    int exponent = 0;            // of ten
    const char* digits = nullptr;
    const char* end = nullptr;  // behind the last character of the number
};

// Adds the digits at 'p' to the mantissa; returns the first character that is none.
const char* takeDigits(const char* p, const char* last, Decimal& number, int exponentPerDigit)
{
    constexpr std::uint64_t room = (std::numeric_limits<std::uint64_t>::max() - 9) / 10;
    for (; p != last && isDigit(*p); ++p) {
        number.hasDigits = true;
        if (number.mantissa > room) {
            number.exact = false;
            continue;
        }
        number.mantissa = number.mantissa * 10 + static_cast<std::uint64_t>(*p - '0');
        number.exponent += exponentPerDigit;
    }
    return p;
}

// The exponent behind an 'e', if there is one; a lone 'e' does not belong to the number.
const char* takeExponent(const char* p, const char* last, Decimal& number)
{
    constexpr int limit = 100000;  // beyond it the number is 0 or infinite in any case
    if (p == last || (*p != 'e' && *p != 'E'))
        return p;
    const char* digit = p + 1;
    const bool negative = digit != last && *digit == '-';
    if (digit != last && (*digit == '-' || *digit == '+'))
        ++digit;
    if (digit == last || !isDigit(*digit))
        return p;
    int value = 0;
    for (; digit != last && isDigit(*digit); ++digit)
        if (value < limit)
            value = value * 10 + (*digit - '0');
    number.exponent += negative ? -value : value;
    return digit;
}

Decimal readDecimal(const char* p, const char* last)
{
    Decimal number;
    number.negative = p != last && *p == '-';
    if (p != last && (*p == '-' || *p == '+'))
        ++p;
    number.digits = p;
    p = takeDigits(p, last, number, 0);
    if (p != last && *p == '.')
        p = takeDigits(p + 1, last, number, -1);
    number.end = number.hasDigits ? takeExponent(p, last, number) : p;
    return number;
}

}  // namespace

char* formatFixed(char* out, double value)
{
    if (!roundsToNearest())
        return formatByLibrary(out, value);
    if (!(std::fabs(value) < smallLimit))  // NaN, too
        return std::to_chars(out, out + numberTextSize, value, std::chars_format::fixed,
                             fractionDigits)
            .ptr;

    if (std::signbit(value))
        *out++ = '-';
    const std::uint64_t scaled = scaledMagnitude(value);
    out = std::to_chars(out, out + numberTextSize, scaled / fractionScale).ptr;
    *out = '.';
    std::uint64_t fraction = scaled % fractionScale;
    for (int i = fractionDigits; i > 0; --i, fraction /= 10)
        out[i] = static_cast<char>('0' + fraction % 10);
    return out + 1 + fractionDigits;
}

long parseInteger(const char* first, const char* last)
{
    constexpr int safeDigits = 18;  // fit a long whatever they are
    const char* p = first;
    const bool negative = p != last && *p == '-';
    if (p != last && (*p == '-' || *p == '+'))
        ++p;
    const char* digits = p;
    long value = 0;
    for (; p != last && isDigit(*p); ++p) {
        if (p - digits == safeDigits)
            return parseByLibrary(
                first, last, [](const char* token) { return std::strtol(token, nullptr, 10); });
        value = value * 10 + (*p - '0');
    }
    return negative ? -value : value;
}

double parseFloating(const char* first, const char* last)
{
    static constexpr double powersOfTen[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                             1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                             1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
    constexpr int exactPower = 22;                                  // 10^22 is exact in a double
    constexpr std::uint64_t exactInteger = std::uint64_t{1} << 53;  // so is every integer to here

    const Decimal number = readDecimal(first, last);
    // A lone zero may begin a hexadecimal number; no digit at all, "inf" or "nan".
    const bool plain = number.hasDigits && (number.end == last || (*number.end | 0x20) != 'x');
    if (!plain)
        return parseFloatingByLibrary(first, last);

    if (number.exact && number.mantissa <= exactInteger && number.exponent >= -exactPower &&
        number.exponent <= exactPower) {
        // One operation on two exact numbers rounds once, as strtod does, in every rounding mode.
        const auto magnitude = static_cast<double>(number.mantissa);
        const double mantissa = number.negative ? -magnitude : magnitude;
        return number.exponent < 0 ? mantissa / powersOfTen[-number.exponent]
                                   : mantissa * powersOfTen[number.exponent];
    }
    if (!roundsToNearest())
        return parseFloatingByLibrary(first, last);

    double magnitude = 0;
    const auto result = std::from_chars(number.digits, number.end, magnitude);
    // Only strtod tells by errno which results below the normal range, or rounded up to its
    // start, are out of range.
    if (result.ec != std::errc() || magnitude <= std::numeric_limits<double>::min())
        return parseFloatingByLibrary(first, last);
    return number.negative ? -magnitude : magnitude;
}

}  // namespace ZQPlatform
