#include "zqnumbertext.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fpu_control.h>
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

// As std::fegetround() tells, without a call.
bool roundsToNearest()
{
    fpu_control_t control;
    _FPU_GETCW(control);
    return (control & _FPU_RC_ZERO) == _FPU_RC_NEAREST;
}

// ---- Eight digits at a time, in a word whose lowest byte is the first of them

constexpr std::uint64_t inEachByte(unsigned char byte)
{
    return byte * std::uint64_t{0x0101010101010101};
}

constexpr std::uint64_t zeros = inEachByte('0');
constexpr std::uint64_t eightDigitsLimit = 100000000;
constexpr std::uint64_t powersOfTen[] = {
    1, 10, 100, 1000, 10000, 100000, 1000000, 10000000, eightDigitsLimit};

// For values of each number of bits, from one on, what to add to one: the upper half of the sum is
// the number of its digits.
struct DigitCounts {
    std::uint64_t of[27] = {};
    constexpr DigitCounts()
    {
        std::uint64_t digits = 1;
        for (int i = 0; i < 27; ++i) {
            of[i] = digits << 32;
            if (powersOfTen[digits] >= std::uint64_t{2} << i)
                continue;
            // The larger ones of these values have a digit more, and carry into the upper half.
            of[i] = ((digits + 1) << 32) - powersOfTen[digits];
            ++digits;
        }
    }
};

// The number of digits of a value below eightDigitsLimit. It waits for no digit, so that the next
// text can begin while those of this one are still being worked out.
std::uint64_t countDigits(std::uint64_t value)
{
    static constexpr DigitCounts counts;
    return (value + counts.of[63 - __builtin_clzl(value | 1)]) >> 32;
}

// The digits of a value below eightDigitsLimit, each 0 to 9.
std::uint64_t toDigits(std::uint64_t value)
{
    // In each half of the word four digits, then in each quarter two, then one in each byte.
    const std::uint64_t fours = value / 10000 | (value % 10000) << 32;
    const std::uint64_t hundreds = (fours * 5243 >> 19) & 0x0000007F0000007F;
    const std::uint64_t twos = hundreds | (fours - 100 * hundreds) << 16;
    const std::uint64_t tens = (twos * 103 >> 10) & 0x000F000F000F000F;
    return tens | (twos - 10 * tens) << 8;
}

std::uint64_t fromDigits(std::uint64_t digits)
{
    constexpr std::uint64_t everyFourth = 0x000000FF000000FF;
    const std::uint64_t twos = digits * 10 + (digits >> 8);  // in every other byte
    return ((twos & everyFourth) * (100 + (std::uint64_t{1000000} << 32)) +
            (twos >> 16 & everyFourth) * (1 + (std::uint64_t{10000} << 32))) >>
           32;
}

template <class Word> void store(char* out, Word characters)
{
    std::memcpy(out, &characters, sizeof characters);
}

// The last 'count' of eight characters; nothing is written behind them.
void storeLast(char* out, std::uint64_t characters, std::uint64_t count)
{
    const std::uint64_t wanted = characters >> (64 - 8 * count);
    if (count >= 4) {
        store(out, static_cast<std::uint32_t>(wanted));
        store(out + count - 4, static_cast<std::uint32_t>(characters >> 32));
        return;
    }
    for (const std::uint64_t i : {std::uint64_t{0}, count / 2, count - 1})
        out[i] = static_cast<char>(wanted >> 8 * i);
}

// Adds the digits at 'p', up to sixteen, to the value; returns the end of the last one.
const char* takeSixteen(const char* p, std::uint64_t& value)
{
    for (int step = 0; step < 2; ++step) {
        std::uint64_t digits;
        std::memcpy(&digits, p, sizeof digits);
        digits ^= zeros;
        // The lowest bit set is in the first byte that is no digit.
        const std::uint64_t others = ((digits + inEachByte(0x80 - 10)) | digits) & inEachByte(0x80);
        const int count = others == 0 ? 8 : __builtin_ctzl(others) / 8;
        if (count == 0)
            break;
        value = value * powersOfTen[count] + fromDigits(digits << (64 - 8 * count));
        p += count;
        if (count < 8)
            break;
    }
    return p;
}

// ---- "%lu" and "%f"

char* formatUnsigned(char* out, std::uint64_t value)
{
    if (value >= eightDigitsLimit) {
        out = formatUnsigned(out, value / eightDigitsLimit);
        store(out, toDigits(value % eightDigitsLimit) | zeros);
        return out + 8;
    }
    const std::uint64_t count = countDigits(value);
    storeLast(out, toDigits(value) | zeros, count);
    return out + count;
}

constexpr int fractionDigits = 6;
constexpr std::uint64_t fractionScale = 1000000;
constexpr double smallLimit = 8796093022208.0;  // 2^43

// For every value and rounding mode.
[[gnu::cold]] char* formatByLibrary(char* out, double value)
{
    char text[numberTextSize];  // the library writes a NUL, too
    const char* end = text;
    if (roundsToNearest()) {
        end =
            std::to_chars(text, text + sizeof text, value, std::chars_format::fixed, fractionDigits)
                .ptr;
    } else {
        const locale_t previous = ::uselocale(cLocale());
        end += std::snprintf(text, sizeof text, "%f", value);
        ::uselocale(previous);
    }
    return std::copy<const char*>(text, end, out);
}

// |value| to the nearest millionth, ties to even: exact, for magnitudes below smallLimit.
struct Millionths {
    std::uint64_t whole;
    std::uint64_t fraction;
};

Millionths toMillionths(double value)
{
    constexpr std::uint64_t half = std::uint64_t{1} << 63;
    std::uint64_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    const int exponent = static_cast<int>(bits >> 52 & 0x7FF);
    std::uint64_t mantissa = bits & 0xFFFFFFFFFFFFF;
    if (exponent != 0)
        mantissa |= std::uint64_t{1} << 52;

    // The magnitude is mantissa / 2^shift, a shift of 10 at least. Below 2^-22 it is nothing.
    const int shift = 1075 - (exponent == 0 ? 1 : exponent);
    if (shift > 74)
        return {0, 0};
    Millionths result = {0, 0};
    std::uint64_t rest;  // in 2^-64 of a millionth; odd where there is anything beyond
    if (shift < 64) {
        result.whole = mantissa >> shift;
        const auto scaled = Unsigned128{mantissa << (64 - shift)} * fractionScale;
        result.fraction = static_cast<std::uint64_t>(scaled >> 64);
        rest = static_cast<std::uint64_t>(scaled);
    } else {
        const auto scaled = Unsigned128{mantissa} * fractionScale;
        result.fraction = static_cast<std::uint64_t>(scaled >> shift);
        const Unsigned128 below = scaled << (128 - shift);
        rest = static_cast<std::uint64_t>(below >> 64) | (static_cast<std::uint64_t>(below) != 0);
    }
    // Up from a half on where the fraction is odd, without a branch: no processor would foresee it.
    result.fraction += rest > half - (result.fraction & 1);
    if (result.fraction == fractionScale)
        return {result.whole + 1, 0};
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

constexpr std::uint64_t exactInteger = std::uint64_t{1} << 53;  // exact in a double up to here
constexpr int exactPower = 22;                                  // so is 10^22
constexpr double exactPowers[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                  1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                  1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};

// Mantissa times a power of ten, both exact: one operation rounds once, as strtod does, in every
// rounding mode.
double scaledExactly(bool negative, std::uint64_t mantissa, int exponent)
{
    const auto magnitude = static_cast<double>(static_cast<std::int64_t>(mantissa));
    const double value = negative ? -magnitude : magnitude;
    return exponent < 0 ? value / exactPowers[-exponent] : value * exactPowers[exponent];
}

// The decimal form: a sign, digits with a point somewhere, an exponent.
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

double parseFloating(const char* first, const char* last)
{
    const Decimal number = readDecimal(first, last);
    // A lone zero may begin a hexadecimal number; no digit at all, "inf" or "nan".
    const bool plain = number.hasDigits && (number.end == last || (*number.end | 0x20) != 'x');
    if (!plain)
        return parseFloatingByLibrary(first, last);

    if (number.exact && number.mantissa <= exactInteger && number.exponent >= -exactPower &&
        number.exponent <= exactPower)
        return scaledExactly(number.negative, number.mantissa, number.exponent);
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

}  // namespace

char* formatNumber(char* out, unsigned long value)
{
    return formatUnsigned(out, value);
}

char* formatNumber(char* out, long value)
{
    *out = '-';
    const auto bits = static_cast<std::uint64_t>(value);
    return formatUnsigned(out + (value < 0), value < 0 ? -bits : bits);
}

char* formatNumber(char* out, double value)
{
    if (!(std::fabs(value) < smallLimit) || !roundsToNearest())  // NaN, too
        return formatByLibrary(out, value);
    *out = '-';
    const auto [whole, fraction] = toMillionths(value);
    out = formatUnsigned(out + std::signbit(value), whole);
    const std::uint64_t digits = toDigits(fraction) | zeros;  // behind two zeros
    constexpr std::uint64_t toPoint = '0' ^ '.';              // what makes one of them the point
    store(out, static_cast<std::uint32_t>(digits >> 8 ^ toPoint));
    store(out + 3, static_cast<std::uint32_t>(digits >> 32));
    return out + 1 + fractionDigits;
}

void parseNumber(const char* first, const char* last, long& result)
{
    constexpr int safeDigits = 18;  // fit a long whatever they are
    const char* p = first;
    const bool negative = p != last && *p == '-';
    if (p != last && (*p == '-' || *p == '+'))
        ++p;
    const char* digits = p;
    long value = 0;
    for (; p != last && isDigit(*p); ++p) {
        if (p - digits == safeDigits) {
            result = parseByLibrary(
                first, last, [](const char* token) { return std::strtol(token, nullptr, 10); });
            return;
        }
        value = value * 10 + (*p - '0');
    }
    result = negative ? -value : value;
}

void parseNumber(const char* first, const char* last, double& value)
{
    value = parseFloating(first, last);
}

template <> PlainNumber<long> parsePlain(const char* first, const char* last)
{
    constexpr std::ptrdiff_t longest = 1 + 16 + 1;  // with what ends it
    if (last - first < longest + 8)
        return {0, nullptr};
    const bool negative = *first == '-';
    const char* digits = first + (negative || *first == '+');
    std::uint64_t magnitude = 0;
    const char* end = takeSixteen(digits, magnitude);
    if (end == digits)
        return {0, nullptr};
    return {static_cast<long>(negative ? -magnitude : magnitude), end};
}

template <> PlainNumber<double> parsePlain(const char* first, const char* last)
{
    constexpr std::ptrdiff_t longest = 1 + 16 + 1 + 16 + 1;
    constexpr std::ptrdiff_t mantissaSize = 19;  // fits 64 bits, the point not counted
    if (last - first < longest + 8)
        return {0, nullptr};
    const bool negative = *first == '-';
    const char* digits = first + (negative || *first == '+');
    std::uint64_t mantissa = 0;
    const char* end = takeSixteen(digits, mantissa);
    if (end == digits)
        return {0, nullptr};
    int decimals = 0;
    if (*end == '.') {
        const char* fraction = end + 1;
        end = takeSixteen(fraction, mantissa);
        decimals = static_cast<int>(end - fraction);
    }
    if (end - digits > mantissaSize || mantissa > exactInteger)
        return {0, nullptr};
    return {scaledExactly(negative, mantissa, -decimals), end};
}

}  // namespace ZQPlatform
