#include "support/allocations.h"
#include "support/process.h"
#include "support/streams.h"

#include <cerrno>
#include <cfenv>
#include <cmath>
#include <csignal>
#include <cstdint>
#include <limits>
#include <random>
#include <sstream>

using namespace ZQPlatform;
using std::string;

namespace {

// A text cut into chunks of the given sizes, again and again.
ChunkSource chunked(const string& text, std::vector<std::size_t> sizes)
{
    std::vector<string> chunks;
    for (std::size_t at = 0, i = 0; at < text.size(); at += chunks.back().size(), ++i)
        chunks.push_back(text.substr(at, sizes[i % sizes.size()]));
    return ChunkSource(chunks);
}

// Lets a test see what only derived streams see.
template <class Base> struct Bare : Base {
    using Base::_begin, Base::_buf, Base::_end, Base::_eof, Base::_ptr;
    using Base::Base;
};

template <class Value> string written(Value value)
{
    FailingSink sink(100000);
    sink << value << zqflush;
    return sink.taken;
}

template <class Value> Value parsed(const string& text)
{
    Value value = 77;
    chunked(text, {65536}) >> value;
    return value;
}

// The conversion that the C library makes, by the rule that an ERANGE stores 0.
template <class Convert> auto byTheCLibrary(Convert convert)
{
    errno = 0;
    const auto value = convert();
    const bool outOfRange = errno == ERANGE;
    errno = 0;
    return outOfRange ? 0 : value;
}

void expectParsedAsByTheCLibrary(const string& token)
{
    SCOPED_TRACE(token);
    const double real = byTheCLibrary([&] { return std::strtod(token.c_str(), nullptr); });
    const auto gotReal = byTheCLibrary([&] { return parsed<double>(token); });
    ASSERT_EQ(std::memcmp(&gotReal, &real, sizeof real), 0) << gotReal;
    const long whole = byTheCLibrary([&] { return std::strtol(token.c_str(), nullptr, 10); });
    ASSERT_EQ(byTheCLibrary([&] { return parsed<long>(token); }), whole);
    ASSERT_EQ(byTheCLibrary([&] { return parsed<unsigned short>(token); }), (unsigned short)whole);
}

}  // namespace

// ---- blocks, positions, members

TEST(StreamRead, IsShortOnlyWhereTheSourceEnds)
{
    const struct {
        const char* about;
        std::vector<string> chunks;
        zqsize_t ask;
        string got;
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
        string got = "old";
        char bytes[16];
        EXPECT_EQ(text.read(got, row.ask), row.got.size());
        EXPECT_EQ(block.read(bytes, row.ask), row.got.size());
        EXPECT_EQ(got + string(bytes, block.count()), row.got + row.got);
        EXPECT_EQ(text.fills, row.fills);
        EXPECT_EQ(block.fills, row.fills);
        EXPECT_EQ(block.eof(), row.got.size() < row.ask);
    }
    ChunkSource rest({"abc", "def"});
    EXPECT_TRUE(rest.skip(2) && rest.skip(0) && !rest.skip(-1));
    string got;
    rest >> got;  // all of it, not a word
    EXPECT_EQ(got, "cdef");
    EXPECT_FALSE(rest.skip(1));
}

TEST(StreamWrite, ReportsZeroForAPartThatWentOut)
{
    FailingSink sink(65536 + 10);
    EXPECT_EQ(sink.write(string(65536 + 5, 'x')), 65541u);
    EXPECT_EQ(sink.write(string(200000, 'y')), 0u);
    EXPECT_EQ(sink.flushes, 2);
    EXPECT_EQ(sink.write(static_cast<const char*>(nullptr), 7) + sink.write(nullptr, 7), 0u);
    EXPECT_EQ(sink.count(), 65531u);  // to the end of the buffer
    EXPECT_EQ(sink.taken.size(), 65546u);

    unsigned char block[4];
    zqostream out;
    ASSERT_TRUE(out.open(block, 4) && out.flush() && out.size() == 4);
    EXPECT_EQ(out.write(string("abcdef"), 99), 0u);
    EXPECT_EQ(std::memcmp(block, "abcd", out.count()), 0);
    EXPECT_TRUE(out.eof() && out.tell() == 4 && out.write("x", 1) == 0);
    EXPECT_FALSE(out.open(static_cast<unsigned char*>(nullptr), 4));

    const long before = zqnul.tell();
    EXPECT_EQ(zqnul.write(string(200000, 'x'), 100000), 100000u);
    EXPECT_EQ(zqnul.tell(), before + 100000);
}

TEST(StreamAssertions, StopTheProcessInEveryBuild)
{
    struct Breach : zqostream {
        bool _zqflush() override { return true; }  // claims room that it does not make
    };
    const auto write = runChild([] { Breach().write(string(65537, 'x')); });
    const auto line = runChild([] {
        char buffer[8];
        ChunkSource({"abc"}).getline(buffer, std::numeric_limits<zqsize_t>::max());
    });
    for (const auto& [child, text] :
         {std::pair(write, ": zqsize_t ZQPlatform::zqostream::write(const char*, zqsize_t): "
                           "Assertion `len != 0 && _end != _ptr' failed.\n"),
          std::pair(line, ": bool ZQPlatform::zqistream::getline(char*, zqsize_t): "
                          "Assertion `(size_t)dst < (size_t)(buffer + max)' failed.\n")}) {
        EXPECT_EQ(WTERMSIG(child.status), SIGABRT);
        EXPECT_NE(child.err.find("zqstreambase.cpp:"), string::npos);
        EXPECT_NE(child.err.find(text), string::npos) << child.err;
    }
    Breach full;
    full.write(string(65536, 'x'));
    full << 'y' << 12345 << zqendl;  // dropped, not stored behind the buffer
    EXPECT_EQ(full.tell(), 65536);
}

TEST(StreamCopy, CopiesAllOrWhatTheFlagAllows)
{
    const string text = sampleBytes(10000);
    const std::vector<string> chunks = {text};
    Bare<ChunkSource> first(chunks), second(chunks);
    FailingSink sink(100000);
    first >> sink;
    sink << second << zqflush;
    EXPECT_TRUE(sink.taken == text + text);
    second.open(second._buf, 3);
    second._eof = true;
    second >> sink;
    EXPECT_EQ(sink.tell(), 20000);  // the bare flag stops the input side
    sink << second;
    EXPECT_EQ(sink.tell(), 20003);
}

TEST(StreamMembers, NeverLeadIntoForeignMemory)
{
    ChunkSource chunks({"abcdef", "ghi"});
    string got;
    chunks.read(got, 8);
    EXPECT_TRUE(chunks.seek(6) && chunks.seek(8) && chunks.seeks == 0);
    EXPECT_TRUE(!chunks.seek(5) && !chunks.seek(9) && chunks.seeks == 2 && chunks.tell() == 8);

    std::vector<unsigned char> block(8, 'm');
    Bare<zqistream> in;
    in.open(block.data(), block.size());
    in.skip(3);
    Bare<zqistream> reader(in), assigned;
    assigned = in;
    for (Bare<zqistream>* copy : {&reader, &assigned}) {
        EXPECT_TRUE(copy->_begin == block.data() && copy->_ptr == block.data() + 3);
        EXPECT_TRUE(copy->tell() == 3 && copy->read(got) == 5);
    }
    in.close();
    EXPECT_TRUE(in._begin == block.data() && in.tell() == 0);
    for (const long pos : {0L, 1L, 7L, std::numeric_limits<long>::max(), -1L})
        EXPECT_FALSE(in.seek(pos));

    Bare<zqostream> out;
    out.open(block.data(), 2);
    out.close();
    EXPECT_EQ(out.write("xyz", 3), 0u);
    out << 'x' << 5 << zqendl;
    EXPECT_FALSE(out.flush() || out.seek(0));
    EXPECT_EQ(block, std::vector<unsigned char>(8, 'm'));
    Bare<zqostream> source;
    source.write("abc", 3);
    out = source;  // _begin stays where it was
    EXPECT_TRUE(out._ptr == out._buf + 3 && out._end == out._buf + 65536 && out.tell() == 3);
    EXPECT_TRUE(out.seek(1) && out._ptr == out._buf + 1);
}

// ---- text

TEST(TextOutput, WritesWhatPrintfWrites)
{
    EXPECT_EQ(written(short(-32768)) + written((unsigned short)65535) + written(-7) + written(7u),
              "-3276865535-77");
    EXPECT_EQ(written(std::numeric_limits<long>::min()) + written(~0ul),
              "-922337203685477580818446744073709551615");
    EXPECT_EQ(written(1.5f) + written(-0.0) + written(1e20),
              "1.500000-0.000000100000000000000000000.000000");
    EXPECT_EQ(written(true) + written(false) + written('x') + written((signed char)'y'), "10xy");
    EXPECT_EQ(written(string("a\0b", 3)) + written((const char*)nullptr), "a");
    EXPECT_EQ(written((const unsigned char*)"u") + written((const signed char*)"s"), "us");

    std::mt19937_64 random(1);
    char text[400];
    for (int i = 0; i < 100000; ++i) {
        std::fesetround(i < 90000 ? FE_TONEAREST : i % 2 ? FE_UPWARD : FE_TOWARDZERO);
        const std::uint64_t bits = random();
        double value;
        std::memcpy(&value, &bits, sizeof value);
        if (i % 3 == 0)
            value = double(long(bits) >> (bits & 31)) / 128e6;  // ties of the last digit
        if (i % 3 == 1) value = std::ldexp(double(bits >> 11), -int(bits & 127));
        std::snprintf(text, sizeof text, "%f", value);
        ASSERT_EQ(written(value), text) << std::hexfloat << value;
    }
    std::fesetround(FE_TONEAREST);
}

TEST(TextOutput, DropsWhatDoesNotFitAndPutsManipulators)
{
    FailingSink sink(65536);
    sink.write(string(65534, 'x'));
    sink << 12345 << zqflush;  // "12" fills the buffer and goes out, the flush behind "345" fails
    EXPECT_EQ(sink.taken.substr(65534), "12");
    EXPECT_EQ(sink.count(), 65534u);
    sink << zqendl << "more" << zqflush;
    EXPECT_EQ(sink.taken.size(), 65536u);

    FailingSink marks(100);
    marks << 'a' << std::ends << 'b' << zqends << std::flush << zqflush;
    EXPECT_EQ(marks.flushes, 2);
    marks << std::endl << zqendl << std::hex << std::dec << 1;
    EXPECT_EQ(marks.flushes, 6);
    EXPECT_EQ(marks.taken, string("a\0b\0\n\n\n\n", 8));
}

namespace {

// The line and token rules, one byte after the other.
struct SlowReader {
    const string& text;
    std::size_t at = 0;

    bool endOfLine(char c)
    {
        if (c == '\r') {
            while (at < text.size() && text[at] == '\r') ++at;
            if (at < text.size() && text[at] == '\n') ++at;
        }
        return c == '\n' || c == '\r';
    }
    bool skipline()
    {
        if (at == text.size()) return false;
        while (at < text.size() && !endOfLine(text[at++])) {}
        return true;
    }
    bool read(string& out, zqsize_t max, bool token)
    {
        out.clear();
        if (at == text.size() || max == 0) return false;
        while (at < text.size()) {
            const char c = text[at++];
            const auto byte = static_cast<unsigned char>(c);
            if (token ? std::isspace(byte) != 0 : endOfLine(c)) return true;
            if (token ? byte <= 32 : byte < 32 && c != '\t') continue;
            if (out.size() == max - 1) return skipline(), true;
            out += c;
        }
        return true;
    }
};

}  // namespace

TEST(TextInput, LinesAndTokensFollowTheByteRuleOverAllChunks)
{
    std::mt19937 random(2);
    const string alphabet("aaaaaaaaaaaaabcdefghijkl 0123\t\n\n\r\r\x01\x1F\x7F\x80\xA0\xFF\0", 42);
    for (int round = 0; round < 1000; ++round) {
        string text(random() % 300, 'x');
        for (char& c : text) c = alphabet[random() % alphabet.size()];
        SlowReader slow{text};
        ChunkSource in = chunked(text, {1 + random() % 40, 1 + random() % 3, 17});
        while (slow.at < text.size()) {
            const zqsize_t max = random() % 4 == 0 ? random() % 5 : 1 + random() % 60;
            const auto kind = random() % 6;
            string got, expected;
            char buffer[64] = "";
            bool result = false, more = false;
            switch (kind) {
            case 0:
                result = in.skipline(), more = slow.skipline();
                break;
            case 1:
                result = in.getline(got), more = slow.read(expected, 1000, false);
                break;
            case 2:
                result = in.getline(buffer, max), more = slow.read(expected, max, false);
                break;
            case 3:
                result = in.getline(got, max), more = slow.read(expected, max, false);
                break;
            case 4:
                result = in.gettoken(buffer, max), more = slow.read(expected, max, true);
                break;
            case 5:
                result = in.gettoken(got, max), more = slow.read(expected, max, true);
                break;
            }
            ASSERT_EQ(result, more) << "round " << round << " kind " << kind << " max " << max;
            ASSERT_EQ(got + buffer, expected)
                << "round " << round << " kind " << kind << " max " << max;
        }
        EXPECT_FALSE(in.skipline());
    }
}

TEST(TextInput, NumbersAreThoseOfTheCLibrary)
{
    std::istringstream tokens(
        "0 -0 +7 - + abc 12ab 007 1e3 1.e2 .5e-3 1e 1e+ 0x1.8p3 0X10 inf -infinity nan nan(7) "
        "1e400 "
        "-1e400 1e-400 4.9e-324 2.2250738585072014e-308 2.2250738585072011e-308 1e23 1,5 0e500 --1 "
        "9007199254740993 123456789012345678901234567890 -9223372036854775808 9223372036854775807 "
        "9223372036854775808 0.1.2 1e99999999999 1e22 1e-22 179769313486231580793e289 \xA0\x35");
    for (string token; tokens >> token;) expectParsedAsByTheCLibrary(token);
    std::mt19937_64 random(3);
    char token[64];
    for (int i = 0; i < 60000; ++i) {
        const std::uint64_t bits = random();
        double value;
        std::memcpy(&value, &bits, sizeof value);
        switch (i % 4) {
        case 0:
            std::snprintf(token, sizeof token, "%.*e", int(bits % 19), value);
            break;
        case 1:
            std::snprintf(token, sizeof token, "%.*f", int(bits % 9), double(bits >> 20) / 4096);
            break;
        case 2:
            std::snprintf(token, sizeof token, "%ld.%lue%d", long(bits) >> (bits & 63), bits >> 9,
                          int(bits % 60) - 30);
            break;
        case 3:
            std::snprintf(token, sizeof token, "%s%lu", bits & 1 ? "-" : "+", bits >> (bits & 63));
            break;
        }
        expectParsedAsByTheCLibrary(token);
    }
}

TEST(TextInput, NumbersKeepTheRulesOfTokensAndErrno)
{
    errno = 0;
    EXPECT_TRUE(parsed<unsigned int>("-1") == 4294967295u && parsed<int>("4294967297") == 1);
    EXPECT_EQ(parsed<float>("1e39"), std::numeric_limits<float>::infinity());
    EXPECT_EQ(parsed<double>(""), 0);
    EXPECT_EQ(parsed<int>({1, '4', 2, '2'}), 42);         // dropped bytes do not split a token
    EXPECT_EQ(parsed<int>(string(70000, '0') + "1"), 0);  // longer than a token may be
    EXPECT_EQ(parsed<long>("99999999999999999999"), 0);
    EXPECT_EQ(errno, ERANGE);
    EXPECT_TRUE(parsed<int>("5") == 0 && parsed<double>("1.5") == 0);  // until errno is cleared
    errno = 0;
    for (const std::size_t size : {1, 2, 3, 100}) {
        ChunkSource in = chunked("12 -3\t\t4.5\r\n6 x0", {size});
        int a, b, c, e;
        double d;
        long f;
        char x;
        bool zero, end;
        unsigned char last;
        in >> a >> b >> c >> d >> e >> f >> x >> zero >> end >> last;
        EXPECT_EQ(std::make_tuple(a, b, c, d, e, f), std::make_tuple(12, -3, 0, 4.5, 0, 6L));
        EXPECT_EQ(std::make_tuple(x, zero, end, last), std::make_tuple('x', true, false, 255));
    }
}

TEST(LimitedLines, UseTheHeapAboveTheThreshold)
{
    const struct {
        unsigned long threshold;
        zqsize_t max;
        int blocks;
    } rows[] = {{4096, 4080, 0}, {4096, 4081, 1}, {20, 4, 0}, {20, 5, 1}, {0, 0, 1}, {0, 100, 1}};
    string line;
    for (const auto& row : rows) {
        ZQSetAllocaThreshold(row.threshold);
        ChunkSource in({"abc\n"});
        const int before = allocations;
        EXPECT_EQ(in.getline(line, row.max), row.max != 0);
        EXPECT_EQ(allocations - before, row.blocks) << row.threshold << ", " << row.max;
    }
    ZQSetAllocaThreshold(4096);
    CaptureFd out(1);
    ZQSetAllocaThreshold(4097);
    ZQSetAllocaThreshold(~0ul);
    EXPECT_EQ(out.text(),
              "ZQSetAllocaThreshold() 4097 invalid alloca threshold size\n"
              "ZQSetAllocaThreshold() 18446744073709551615 invalid alloca threshold size\n");
    EXPECT_EQ(ZQGetAllocaThreshold(), 4096u);
    for (const zqsize_t less : {0, 1, 15, 16, 100}) {
        ChunkSource in({"abc"});
        EXPECT_THROW(in.getline(line, ~0ul - less), std::bad_alloc);
        EXPECT_THROW(in.gettoken(line, ~0ul - less), std::bad_alloc);
    }
}
