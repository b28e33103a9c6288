#include "support/allocations.h"
#include "support/process.h"
#include "support/streams.h"

#include <cerrno>
#include <cfenv>
#include <cmath>
#include <csignal>
#include <cstdint>
#include <limits>
#include <new>
#include <random>

using namespace ZQPlatform;

namespace {

// A text cut into chunks of the given sizes, again and again.
ChunkSource chunked(const std::string& text, std::vector<std::size_t> sizes)
{
    std::vector<std::string> chunks;
    for (std::size_t at = 0, i = 0; at < text.size(); at += chunks.back().size(), ++i)
        chunks.push_back(text.substr(at, sizes[i % sizes.size()]));
    return ChunkSource(chunks);
}

// Lets a test see what only derived streams see.
template <class Base> struct Bare : Base {
    using Base::_begin;
    using Base::_buf;
    using Base::_end;
    using Base::_eof;
    using Base::_offset;
    using Base::_ptr;
    using Base::Base;
};

template <class Value> std::string written(Value value)
{
    FailingSink sink(100000);
    sink << value;
    sink.flush();
    return sink.taken;
}

template <class Value> Value parsed(const std::string& text, Value value = {})
{
    ChunkSource source = chunked(text, {65536});
    source >> value;
    return value;
}

}  // namespace

TEST(StreamRead, IsShortOnlyWhereTheSourceEnds)
{
    const struct {
        const char* about;
        std::vector<std::string> chunks;
        zqsize_t ask;
        std::string got;
        int fills;
    } rows[] = {
        {"nothing asked: source not touched", {"abc"}, 0, "", 0},
        {"inside the first chunk", {"abcdef"}, 3, "abc", 1},
        {"across a refill", {"abc", "def"}, 5, "abcde", 2},
        {"exactly to the end", {"abc", "def"}, 6, "abcdef", 2},
        {"past the end: short count", {"abc"}, 9, "abc", 2},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.about);
        ChunkSource text(row.chunks), block(row.chunks);
        std::string got = "old";
        EXPECT_EQ(text.read(got, row.ask), row.got.size());
        EXPECT_EQ(got, row.got);
        EXPECT_EQ(text.fills, row.fills);
        char bytes[16];
        EXPECT_EQ(block.read(bytes, row.ask), row.got.size());
        EXPECT_EQ(std::string(bytes, block.count()), row.got);
        EXPECT_EQ(block.fills, row.fills);
        EXPECT_EQ(block.eof(), row.got.size() < row.ask);
    }
    ChunkSource rest({"abc", "def"});
    EXPECT_TRUE(rest.skip(2) && rest.skip(0) && !rest.skip(-1));
    std::string got;
    rest >> got;
    EXPECT_EQ(got, "cdef");
    EXPECT_EQ(rest.count(), 4u);
    EXPECT_FALSE(rest.skip(1));
}

TEST(StreamWrite, ReportsZeroForAPartThatWentOut)
{
    FailingSink sink(65536 + 10);
    EXPECT_EQ(sink.write(std::string(65536 + 5, 'x')), 65541u);
    EXPECT_EQ(sink.flushes, 1);
    EXPECT_EQ(sink.write(std::string(200000, 'y')), 0u);
    EXPECT_EQ(sink.count(), 65531u);  // to the end of the buffer
    EXPECT_EQ(sink.taken.size(), 65546u);
    EXPECT_EQ(sink.write(static_cast<const char*>(nullptr), 7), 0u);
    EXPECT_EQ(sink.count(), 65531u);
    EXPECT_EQ(sink.write("abc", 0), 0u);

    const std::string cut = "abcdef";
    FailingSink whole(100);
    EXPECT_EQ(whole.write(cut, 3) + whole.write(cut, 99), 9u);
    EXPECT_EQ(whole.write(nullptr, 3), 0u);
    EXPECT_TRUE(whole.flush());
    EXPECT_EQ(whole.taken, "abcabcdef");
}

TEST(StreamWrite, FillsCallerMemoryAndFailsThere)
{
    unsigned char block[4] = {};
    zqostream out;
    ASSERT_TRUE(out.open(block, 4));
    EXPECT_EQ(out.size(), 4u);
    EXPECT_TRUE(out.flush());
    EXPECT_EQ(out.write("abcdef", 6), 0u);
    EXPECT_EQ(out.count(), 4u);
    EXPECT_EQ(std::memcmp(block, "abcd", 4), 0);
    EXPECT_TRUE(out.eof());
    EXPECT_EQ(out.tell(), 4);
    EXPECT_EQ(out.write("x", 1), 0u);
    EXPECT_FALSE(out.open(static_cast<unsigned char*>(nullptr), 4));

    const long before = zqnul.tell();
    EXPECT_EQ(zqnul.write(std::string(200000, 'x')), 200000u);
    EXPECT_EQ(zqnul.tell(), before + 200000);
    EXPECT_EQ(zqostream().size(), 0u);
}

TEST(StreamAssertions, StopTheProcessInEveryBuild)
{
    struct Breach : zqostream {
        bool _zqflush() override { return true; }  // claims room that it does not make
    };
    const ChildResult write = runChild([] { Breach().write(std::string(65537, 'x')); });
    EXPECT_EQ(WTERMSIG(write.status), SIGABRT);
    EXPECT_NE(write.err.find("zqstreambase.cpp:"), std::string::npos);
    EXPECT_NE(write.err.find(": zqsize_t ZQPlatform::zqostream::write(const char*, zqsize_t): "
                             "Assertion `len != 0 && _end != _ptr' failed.\n"),
              std::string::npos);

    const ChildResult line = runChild([] {
        char buffer[8];
        ChunkSource({"abc"}).getline(buffer, std::numeric_limits<zqsize_t>::max());
    });
    EXPECT_EQ(WTERMSIG(line.status), SIGABRT);
    EXPECT_NE(line.err.find(": bool ZQPlatform::zqistream::getline(char*, zqsize_t): Assertion "
                            "`(size_t)dst < (size_t)(buffer + max)' failed.\n"),
              std::string::npos);

    Breach full;
    full.write(std::string(65536, 'x'));
    full << 'y' << 12345 << zqendl;  // dropped, not stored behind the buffer
    EXPECT_EQ(full.tell(), 65536);
}

TEST(StreamSeek, StaysInsideTheSpanWithoutTheHook)
{
    ChunkSource in({"abcdef", "ghi"});
    std::string got;
    in.read(got, 8);
    EXPECT_TRUE(in.seek(6) && in.seek(8));
    EXPECT_EQ(in.seeks, 0);
    EXPECT_FALSE(in.seek(5));
    EXPECT_FALSE(in.seek(9));
    EXPECT_EQ(in.seeks, 2);
    EXPECT_EQ(in.tell(), 8);
}

TEST(StreamCopy, CopiesAllOrWhatTheFlagAllows)
{
    const std::string text = sampleBytes(10000);
    ChunkSource first({text}), second({text});
    FailingSink fromInput(100000), fromOutput(100000);
    first >> fromInput;
    fromOutput << second;
    fromInput.flush();
    fromOutput.flush();
    EXPECT_TRUE(fromInput.taken == text && fromOutput.taken == text);

    Bare<zqistream> ended;
    unsigned char bytes[] = "abc";
    ended.open(bytes, 3);
    ended._eof = true;
    FailingSink sink(10);
    ended >> sink;
    EXPECT_EQ(sink.tell(), 0);  // the bare flag stops the input side
    sink << ended;
    EXPECT_EQ(sink.tell(), 3);
}

TEST(StreamMembers, NeverLeadIntoForeignMemory)
{
    std::vector<unsigned char> block(8, 'm');
    Bare<zqistream> in;
    in.open(block.data(), block.size());
    in.skip(3);
    Bare<zqistream> reader(in), assigned;
    assigned = in;
    for (Bare<zqistream>* copy : {&reader, &assigned}) {
        std::string got;
        EXPECT_EQ(copy->tell(), 3);
        EXPECT_TRUE(copy->_begin == block.data() && copy->_ptr == block.data() + 3);
        EXPECT_EQ(copy->read(got), 5u);
    }
    in.close();
    EXPECT_EQ(in._begin, block.data());
    EXPECT_EQ(in.tell(), 0);
    for (const long pos : {0L, 1L, 7L, 100L, std::numeric_limits<long>::max(), -1L})
        EXPECT_FALSE(in.seek(pos));

    Bare<zqostream> out;
    out.open(block.data(), 2);
    out.close();
    EXPECT_EQ(out.write("xyz", 3), 0u);
    out << 'x' << 5 << zqendl;
    EXPECT_FALSE(out.flush() || out.seek(0));
    EXPECT_EQ(block, std::vector<unsigned char>(8, 'm'));

    Bare<zqostream> source, own;
    source.write("abc", 3);
    own = source;
    EXPECT_TRUE(own._ptr == own._buf + 3 && own._end == own._buf + 65536);
}

// ---- text output

TEST(TextOutput, WritesWhatPrintfWrites)
{
    EXPECT_EQ(written(short(-32768)) + written((unsigned short)65535), "-3276865535");
    EXPECT_EQ(written(std::numeric_limits<long>::min()), "-9223372036854775808");
    EXPECT_EQ(written(std::numeric_limits<unsigned long>::max()), "18446744073709551615");
    EXPECT_EQ(written(-7) + written(7u), "-77");
    EXPECT_EQ(written(1.5f) + written(-0.0) + written(1e20),
              "1.500000-0.000000100000000000000000000.000000");
    EXPECT_EQ(written(true) + written(false) + written('x') + written((signed char)'y'), "10xy");
    EXPECT_EQ(written(std::string("a\0b", 3)) + written((const char*)nullptr), "a");
    EXPECT_EQ(written((const unsigned char*)"u") + written((const signed char*)"s"), "us");
}

TEST(TextOutput, DoublesAreThoseOfPrintfInEveryRoundingMode)
{
    std::mt19937_64 random(1);
    char expected[400];
    for (const int mode : {FE_TONEAREST, FE_UPWARD, FE_TOWARDZERO}) {
        std::fesetround(mode);
        for (int i = 0; i < (mode == FE_TONEAREST ? 200000 : 2000); ++i) {
            std::uint64_t bits = random();
            double value;
            if (i % 3 == 0)  // ties and near-ties of the sixth decimal
                value = static_cast<double>(static_cast<long>(bits) >> (bits & 31)) / 128e6;
            else if (i % 3 == 1)  // the common magnitudes
                value = std::ldexp(static_cast<double>(bits >> 11), -int(bits & 127));
            else
                std::memcpy(&value, &bits, sizeof value);
            std::snprintf(expected, sizeof expected, "%f", value);
            ASSERT_EQ(written(value), expected) << std::hexfloat << value;
        }
    }
    std::fesetround(FE_TONEAREST);
}

TEST(TextOutput, DropsWhatDoesNotFit)
{
    FailingSink sink(65536);
    sink.write(std::string(65534, 'x'));
    sink << 12345;  // "12" fits the buffer and goes out; the flush behind "34" fails
    sink.flush();
    EXPECT_EQ(sink.taken.substr(65534), "12");
    EXPECT_EQ(sink.count(), 65534u);
    sink << zqendl << "more";
    EXPECT_EQ(sink.taken.size(), 65536u);
}

TEST(Manipulators, PutTheirByteAndFlush)
{
    FailingSink sink(100);
    sink << 'a' << std::ends << 'b' << zqends << std::flush << zqflush;
    EXPECT_EQ(sink.flushes, 2);
    sink << std::endl << zqendl << std::hex << std::dec << 1;
    EXPECT_EQ(sink.flushes, 6);
    EXPECT_EQ(sink.taken, std::string("a\0b\0\n\n\n\n", 8));
}

// ---- text input

namespace {

// The line and token rules, one byte after the other.
struct SlowReader {
    const std::string& text;
    std::size_t at = 0;

    bool endOfLine(char c)
    {
        if (c == '\r') {
            while (at < text.size() && text[at] == '\r')
                ++at;
            if (at < text.size() && text[at] == '\n')
                ++at;
        }
        return c == '\n' || c == '\r';
    }
    bool skipline()
    {
        if (at == text.size())
            return false;
        while (at < text.size() && !endOfLine(text[at++])) {
        }
        return true;
    }
    bool read(std::string& out, zqsize_t max, bool token)
    {
        out.clear();
        if (at == text.size() || max == 0)
            return false;
        while (at < text.size()) {
            const char c = text[at++];
            const auto byte = static_cast<unsigned char>(c);
            if (token ? std::isspace(byte) != 0 : endOfLine(c))
                return true;
            if (token ? byte <= 32 : byte < 32 && c != '\t')
                continue;
            if (out.size() == max - 1) {
                skipline();
                return true;
            }
            out += c;
        }
        return true;
    }
};

std::string randomText(std::mt19937& random, std::size_t n)
{
    static const char alphabet[] =
        "aaaaaaaaaaaaaabcdefghijkl 0123\t\n\n\r\r\x01\x1F\x7F\x80\xA0\xFF\0";
    std::string text;
    while (text.size() < n)
        text += alphabet[random() % sizeof alphabet];
    return text;
}

}  // namespace

TEST(TextInput, LinesAndTokensFollowTheByteRuleOverAllChunks)
{
    std::mt19937 random(2);
    for (int round = 0; round < 300; ++round) {
        const std::string text = randomText(random, random() % 400);
        SlowReader slow{text};
        ChunkSource in = chunked(text, {1 + random() % 40, 1 + random() % 3, 17});
        std::string got = "old", expected;
        for (bool more = true; more;) {
            const zqsize_t max = random() % 4 == 0 ? random() % 5 : 1 + random() % 60;
            char buffer[64];
            const int kind = static_cast<int>(random() % 6);
            bool result = false;
            if (kind == 0) {
                more = slow.skipline();
                result = in.skipline();
                got = expected = "";
            } else if (kind == 1) {
                more = slow.read(expected, 1000, false);
                result = in.getline(got);
            } else {
                more = slow.read(expected, max, kind > 3);
                result = kind == 2   ? in.getline(buffer, max)
                         : kind == 3 ? in.getline(got, max)
                         : kind == 4 ? in.gettoken(buffer, max)
                                     : in.gettoken(got, max);
                if (kind == 2 || kind == 4)
                    got = buffer;
            }
            ASSERT_EQ(result, more) << "round " << round << " kind " << kind << " max " << max;
            ASSERT_EQ(got, expected) << "round " << round << " kind " << kind << " max " << max;
            more = slow.at < text.size();
        }
    }
}

TEST(TextInput, NumbersAreThoseOfTheCLibrary)
{
    const char* const tokens[] = {"0",
                                  "-0",
                                  "+7",
                                  "-",
                                  "+",
                                  "abc",
                                  "12ab",
                                  "007",
                                  "1e3",
                                  "1.e2",
                                  ".5e-3",
                                  "1e",
                                  "1e+",
                                  "0x1.8p3",
                                  "0X10",
                                  "inf",
                                  "-infinity",
                                  "nan",
                                  "nan(7)",
                                  "1e400",
                                  "-1e400",
                                  "1e-400",
                                  "4.9e-324",
                                  "2.2250738585072014e-308",
                                  "2.2250738585072011e-308",
                                  "1e23",
                                  "9007199254740993",
                                  "123456789012345678901234567890",
                                  "-9223372036854775808",
                                  "9223372036854775807",
                                  "9223372036854775808",
                                  "99999999999999999999",
                                  "0.1.2",
                                  "1e99999999999",
                                  "1,5",
                                  "0e500",
                                  "--1",
                                  "1e22",
                                  "1e-22",
                                  "179769313486231580793e289",
                                  "\xA0"
                                  "5"};
    for (const char* token : tokens) {
        SCOPED_TRACE(token);
        errno = 0;
        const double real = std::strtod(token, nullptr);
        const double expectedReal = errno == ERANGE ? 0 : real;
        errno = 0;
        const long whole = std::strtol(token, nullptr, 10);
        const long expectedWhole = errno == ERANGE ? 0 : whole;
        errno = 0;
        const auto gotReal = parsed<double>(token);
        EXPECT_EQ(std::memcmp(&gotReal, &expectedReal, 8), 0) << gotReal;
        errno = 0;
        EXPECT_EQ(parsed<long>(token), expectedWhole);
        EXPECT_EQ(parsed<unsigned short>(token), static_cast<unsigned short>(expectedWhole));
    }
    errno = 0;
    EXPECT_EQ(parsed<unsigned int>("-1"), 4294967295u);
    EXPECT_EQ(parsed<int>("4294967297"), 1);
    EXPECT_EQ(parsed<float>("1e39"), std::numeric_limits<float>::infinity());
    EXPECT_EQ(parsed<double>("", 7.0), 0);
    EXPECT_EQ(parsed<int>("\x01"
                          "4\x02"
                          "2"),
              42);                                             // dropped bytes do not split a token
    EXPECT_EQ(parsed<int>(std::string(70000, '0') + "1"), 0);  // longer than a token may be
    EXPECT_EQ(parsed<long>("99999999999999999999"), 0);
    EXPECT_EQ(errno, ERANGE);
    EXPECT_EQ(parsed<int>("5"), 0);  // until the caller clears errno
    EXPECT_EQ(parsed<double>("1.5"), 0);
    errno = 0;
    EXPECT_EQ(parsed<int>("5"), 5);
}

TEST(TextInput, RandomNumbersAreThoseOfTheCLibrary)
{
    std::mt19937_64 random(3);
    char token[64];
    for (int i = 0; i < 200000; ++i) {
        const std::uint64_t bits = random();
        double value;
        std::memcpy(&value, &bits, sizeof value);
        if (i % 4 == 0)
            std::snprintf(token, sizeof token, "%.*e", int(bits % 19), value);
        else if (i % 4 == 1)
            std::snprintf(token, sizeof token, "%.*f", int(bits % 9), double(bits >> 20) / 4096);
        else if (i % 4 == 2)
            std::snprintf(token, sizeof token, "%ld.%lue%d", long(bits) >> (bits & 63), bits >> 9,
                          int(bits % 60) - 30);
        else
            std::snprintf(token, sizeof token, "%s%lu", bits & 1 ? "-" : "+", bits >> (bits & 63));
        errno = 0;
        const double real = std::strtod(token, nullptr);
        const double expected = errno == ERANGE ? 0 : real;
        errno = 0;
        const auto got = parsed<double>(token);
        ASSERT_EQ(std::memcmp(&got, &expected, sizeof got), 0) << token;
        errno = 0;
        const long whole = std::strtol(token, nullptr, 10);
        const long expectedWhole = errno == ERANGE ? 0 : whole;
        errno = 0;
        ASSERT_EQ(parsed<long>(token), expectedWhole) << token;
    }
    errno = 0;
}

TEST(TextInput, ReadsNumbersCharactersAndFlagsAcrossFills)
{
    for (const std::size_t size : {1, 2, 3, 100}) {
        ChunkSource in = chunked("12 -3\t\t4.5\r\n6 x0", {size});
        int a = 0, b = 0, c = 1, e = 1;
        double d = 0;
        long f = 0;
        char x = 0;
        bool zero = false, end = true;
        unsigned char last = 0;
        in >> a >> b >> c >> d >> e >> f >> x >> zero >> end >> last;
        EXPECT_EQ(std::make_tuple(a, b, c, d, e, f), std::make_tuple(12, -3, 0, 4.5, 0, 6L));
        EXPECT_EQ(std::make_tuple(x, zero, end, last), std::make_tuple('x', true, false, 255));
    }
}

// ---- blocks for limited lines

TEST(LimitedLines, UseTheHeapAboveTheThreshold)
{
    const struct {
        unsigned long threshold;
        zqsize_t max;
        int blocks;
    } rows[] = {{4096, 4080, 0}, {4096, 4081, 1}, {20, 4, 0}, {20, 5, 1}, {0, 0, 1}, {0, 100, 1}};
    for (const auto& row : rows) {
        ZQSetAllocaThreshold(row.threshold);
        ChunkSource in({"abc\n"});
        std::string line;
        const int before = allocations;
        EXPECT_EQ(in.getline(line, row.max), row.max != 0);
        EXPECT_EQ(allocations - before, row.blocks) << row.threshold << ", " << row.max;
    }
    ZQSetAllocaThreshold(4096);

    CaptureFd out(1);
    ZQSetAllocaThreshold(4097);
    ZQSetAllocaThreshold(std::numeric_limits<unsigned long>::max());
    EXPECT_EQ(out.text(),
              "ZQSetAllocaThreshold() 4097 invalid alloca threshold size\n"
              "ZQSetAllocaThreshold() 18446744073709551615 invalid alloca threshold size\n");
    EXPECT_EQ(ZQGetAllocaThreshold(), 4096u);

    ChunkSource in({"abc"});
    std::string line;
    for (const zqsize_t less : {0, 1, 15, 16, 100}) {
        const zqsize_t max = std::numeric_limits<zqsize_t>::max() - less;
        EXPECT_THROW(in.getline(line, max), std::bad_alloc);
        EXPECT_THROW(in.gettoken(line, max), std::bad_alloc);
    }
}
