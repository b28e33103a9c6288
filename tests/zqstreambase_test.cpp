#include "support/interpose.h"
#include "support/streams.h"

#include <cfenv>
#include <climits>
#include <cmath>
#include <random>
#include <sstream>

// A text in chunks of this size.
static ChunkSource chunked(const string& text, size_t size)
{
    std::vector<string> chunks;
    for (size_t at = 0; at < text.size(); at += size) chunks.push_back(text.substr(at, size));
    return ChunkSource(chunks);
}

// Lets a test see what only derived streams see.
template <class Base> struct Bare : Base {
    using Base::Base, Base::_begin, Base::_buf, Base::_end, Base::_eof, Base::_ptr;
};

template <class... Values> static string written(Values... values)
{
    FailingSink sink(100000);
    (sink << ... << values) << zqflush;
    return sink.taken;
}

// What follows the token must not matter, nor whether the buffer holds it already.
template <class Value> static Value parsed(const string& text)
{
    Value alone = 77, leading = 77;
    auto buffered = chunked("-" + text + "\n-12.5e3 and forty bytes more: 0123456789", 65536);
    buffered.skip(1);
    const int before = errno;
    buffered >> leading;
    const int after = std::exchange(errno, before);
    chunked(text, 65536) >> alone;
    const bool same = std::memcmp(&alone, &leading, sizeof alone) == 0 && errno == after;
    return same ? alone : Value(-99);
}

template <class... Values> static string printed(const char* format, Values... values)
{
    char text[400];
    return string(text, std::snprintf(text, sizeof text, format, values...));
}

// By the rule that an ERANGE stores 0.
static void expectParsedAsByTheCLibrary(const string& token)
{
    const auto stored = [](auto convert) {
        errno = 0;
        const auto value = convert();
        return std::exchange(errno, 0) == ERANGE ? 0 : value;
    };
    const double real = stored([&] { return std::strtod(token.c_str(), nullptr); });
    const double gotReal = stored([&] { return parsed<double>(token); });
    ASSERT_EQ(std::memcmp(&gotReal, &real, sizeof real), 0) << token << " gives " << gotReal;
    const long whole = stored([&] { return std::strtol(token.c_str(), nullptr, 10); });
    ASSERT_EQ(stored([&] { return parsed<long>(token); }), whole) << token;
}

// ---- blocks, positions, members

TEST(StreamRead, IsShortOnlyWhereTheSourceEnds)
{
    const std::tuple<zqsize_t, string, int> rows[] = {
        {0, "", 0}, {3, "abc", 1}, {5, "abcde", 2}, {6, "abcdef", 2}, {9, "abcdef", 3}};
    for (const auto& [ask, expected, fills] : rows) {
        ChunkSource source({"abc", "def"});
        string got = "old";
        EXPECT_TRUE(source.read(got, ask) == expected.size() && got == expected) << ask;
        EXPECT_TRUE(source.fills == fills && source.eof() == (ask > 6)) << ask;
    }
    const string large = sampleBytes(5000000);  // so large a text grows in another way
    string got;
    ChunkSource source = chunked(large, 65536);
    source >> got;
    EXPECT_TRUE(got == large);
}

TEST(StreamWrite, ReportsZeroForAPartThatWentOut)
{
    FailingSink sink(65536 + 10);
    EXPECT_EQ(sink.write(string(65536 + 5, 'x')), 65541u);
    EXPECT_TRUE(sink.write(string(200000, 'y')) == 0 && sink.flushes == 2);
    EXPECT_EQ(sink.write(static_cast<const char*>(nullptr), 7) + sink.write(nullptr, 7), 0u);
    EXPECT_TRUE(sink.count() == 65531 && sink.taken.size() == 65546);  // to the end of the buffer

    unsigned char block[4];
    zqostream out;
    EXPECT_TRUE(out.open(block, 4) && out.flush() && out.size() == 4);
    EXPECT_TRUE(out.write(string("abcdef"), 99) == 0 && !std::memcmp(block, "abcd", out.count()));
    EXPECT_FALSE(out.open(static_cast<unsigned char*>(nullptr), 4));

    const long end = zqnul.tell() + 100000;
    EXPECT_TRUE(zqnul.write(string(200000, 'x'), 100000) == 100000 && zqnul.tell() == end);
}

TEST(StreamAssertions, StopTheProcessInEveryBuild)
{
    struct Breach : zqostream {
        bool _zqflush() override { return true; }  // claims room that it does not make
    } full;
    const auto write = runChild([] { Breach().write(string(65537, 'x')); });
    char line[8];
    const auto getline = runChild([&] { ChunkSource({"abc"}).getline(line, ~0ul); });
    for (const auto& [child, text] :
         {std::pair(write, ": zqsize_t ZQPlatform::zqostream::write(const char*, zqsize_t): "
                           "Assertion `len != 0 && _end != _ptr' failed.\n"),
          std::pair(getline, ": bool ZQPlatform::zqistream::getline(char*, zqsize_t): "
                             "Assertion `(size_t)dst < (size_t)(buffer + max)' failed.\n")}) {
        EXPECT_EQ(WTERMSIG(child.status), SIGABRT);
        EXPECT_NE(child.err.find("zqstreambase.cpp:"), string::npos);
        EXPECT_NE(child.err.find(text), string::npos) << child.err;
    }
    full.write(string(65536, 'x'));
    full << 'y' << 12345 << zqendl;  // dropped, not stored behind the buffer
    EXPECT_EQ(full.tell(), 65536);
}

TEST(StreamCopy, CopiesWhatTheFlagAllows)
{
    Bare<zqistream> in;
    zqosstream out;
    in.open(in._buf, 3);
    in._eof = true;
    in >> out;
    EXPECT_EQ(out.tell(), 0);  // the bare flag stops the input side
    out << in;
    EXPECT_EQ(out.tell(), 3);
}

TEST(StreamMembers, NeverLeadIntoForeignMemory)
{
    ChunkSource chunks({"abcdef", "ghi"});
    EXPECT_TRUE(chunks.skip(8) && chunks.seek(6) && chunks.seek(8) && chunks.seeks == 0);
    EXPECT_TRUE(!chunks.seek(5) && !chunks.seek(9) && chunks.seeks == 2 && chunks.tell() == 8);

    std::vector<unsigned char> block(8, 'm');
    Bare<zqistream> in, assigned;
    in.open(block.data(), block.size());
    in.skip(3);
    Bare<zqistream> reader(in);
    assigned = in;
    for (auto* copy : {&reader, &assigned}) {
        EXPECT_TRUE(copy->_begin == block.data() && copy->_ptr == block.data() + 3);
        EXPECT_TRUE(copy->tell() == 3 && rest(*copy) == "mmmmm");
    }
    in.close();
    EXPECT_TRUE(in._begin == block.data() && in.tell() == 0);
    for (const long pos : {0L, 1L, 7L, LONG_MAX, -1L}) EXPECT_FALSE(in.seek(pos));

    Bare<zqostream> out, source;
    out.open(block.data(), 2);
    out.close();
    out << 'x' << 5 << zqendl;
    EXPECT_FALSE(out.write("xyz", 3) || out.flush() || out.seek(0));
    EXPECT_EQ(block, std::vector<unsigned char>(8, 'm'));
    source.write("abc", 3);
    out = source;  // _begin stays where it was
    EXPECT_TRUE(out._ptr == out._buf + 3 && out._end == out._buf + 65536 && out.tell() == 3);
    EXPECT_TRUE(out.seek(1) && out._ptr == out._buf + 1);

    zqisstream owner;
    owner.set(string("own"));
    static_cast<zqistream&>(owner) = reader;  // another class, in caller memory
    string got = "old";
    EXPECT_TRUE(!owner.reset() && owner.getbuffer(got) && got.empty() && owner.read(got) == 0);
}

// ---- text

TEST(StreamMembers, AnswerWithoutAResource)
{
    zqostream none;
    zqowrapperstream empty;
    zqistdstream noInput;
    zqostdstream noOutput;
    zqosstream text(string("ab"));
    EXPECT_FALSE(none.open("name") || empty.seek(70000) || empty.flush() || noInput.seek(70000));
    EXPECT_FALSE(noOutput.seek(70000) || zqistream().open(nullptr, 5) || empty.size() != 0);
    EXPECT_EQ((text = *&text).str(), "ab");
    EXPECT_TRUE(text.set("cd") && text.str() == "cd");
    EXPECT_EQ(string(ZQIOError("why").what()) + ZQIOError(nullptr).what(), "why");
    EXPECT_STREQ((errno = 9999, ZQIOError()).what(),
                 "ZQStrError failed to retrieve proper error message");
    ChunkSource in({"xyz18446744073709551615 "});
    signed char second = 0;
    unsigned char end = 0;
    unsigned long number = 0;
    in >> *[](zqistream& stream) -> zqistream& { return stream.skip(1), stream; } >> second;
    in >> *[](zqstream& stream) -> zqstream& { return stream.seek(2), stream; };
    in.skip(1);
    in >> number >> end;
    EXPECT_TRUE(number == 0 && errno == ERANGE && second == 'y' && end == 0xFF) << number;
    errno = 0;
}

TEST(TextOutput, WritesWhatPrintfWrites)
{
    EXPECT_EQ(written(short(-32768), (unsigned short)65535, -7, 7u, LONG_MIN, ~0ul),
              "-3276865535-77-922337203685477580818446744073709551615");
    EXPECT_EQ(written(1.5f, -0.0, 1e20, true, false, 'x', (signed char)'y', string("a\0b", 3),
                      (const char*)nullptr, (const unsigned char*)"u", (const signed char*)"s"),
              "1.500000-0.000000100000000000000000000.00000010xyaus");
    std::mt19937_64 random(1);
    for (int i = 0; i < 100000; ++i) {
        std::fesetround(i < 90000 ? FE_TONEAREST : i % 2 ? FE_UPWARD : FE_TOWARDZERO);
        const unsigned long bits = random();
        double value = __builtin_bit_cast(double, bits);
        if (i % 3 == 0)
            value = double(long(bits) >> (bits & 31)) / 128e6;  // ties of the last digit
        if (i % 3 == 1) value = std::ldexp(double(bits >> 11), -int(bits & 127));
        ASSERT_EQ(written(value), printed("%f", value)) << std::hexfloat << value;

        const long whole = long(bits) >> (bits >> 11 & 63);
        string block(4000, 'm'), text = printed("%f%ld%lu", value, whole, bits >> (bits & 63));
        zqostream out;
        out.open(reinterpret_cast<unsigned char*>(block.data()), block.size());
        out << value << whole << (bits >> (bits & 63));
        ASSERT_EQ(block, text.append(block.size() - text.size(), 'm'));
    }
    std::fesetround(FE_TONEAREST);
}

TEST(TextOutput, DropsWhatDoesNotFitAndPutsManipulators)
{
    FailingSink sink(65536), marks(100);
    sink.write(string(65534, 'x'));
    sink << 12345 << zqflush;  // "12" fills the buffer and goes out, the flush behind "345" fails
    EXPECT_TRUE(sink.taken.substr(65534) == "12" && sink.count() == 65534);
    sink << zqendl << "more" << zqflush;
    EXPECT_EQ(sink.taken.size(), 65536u);

    marks << 'a' << std::ends << 'b' << zqends << std::flush << zqflush;
    EXPECT_EQ(marks.flushes, 2);
    marks << std::endl << zqendl << std::hex << std::dec << 1;
    EXPECT_TRUE(marks.flushes == 6 && marks.taken == string("a\0b\0\n\n\n\n", 8));
}

TEST(TextInput, LinesAndTokensEndAndLoseBytesByTheirRules)
{
    const string text = "a\tb\x01 c\n\r\r\nlonger line\rc\v \x7F\xFF";
    for (const size_t size : {1, 2, 100}) {
        ChunkSource lines = chunked(text, size), tokens = lines;
        string all, got;
        while (lines.getline(got, 7)) all += got + "|";
        while (tokens.gettoken(got, 5)) all += got + "|";
        EXPECT_EQ(all, "a\tb c||longer|c \x7F\xFF|a|b|c||||long|c||\x7F\xFF|") << size;
    }
}

TEST(TextInput, NumbersAreThoseOfTheCLibrary)
{
    std::istringstream tokens(
        "0 -0 +7 - + abc 12ab 007 1e3 1.e2 .5e-3 1e 1e+ 0x1.8p3 0X10 inf -infinity nan nan(7) --1 "
        "1e400 -1e400 1e-400 4.9e-324 2.2250738585072014e-308 2.2250738585072011e-308 1e23 1,5 "
        "2.2250738585072012e-308 "
        "9007199254740993 123456789012345678901234567890 -9223372036854775808 9223372036854775807 "
        "9223372036854775808 0.1.2 1e99999999999 1e22 1e-22 179769313486231580793e289 0e500 "
        "\xA0\x35");
    for (string token; tokens >> token;) expectParsedAsByTheCLibrary(token);
    std::mt19937_64 random(3);
    for (int i = 0; i < 15000; ++i) {
        const unsigned long bits = random(), shifted = bits >> (bits & 63);
        for (const string& token :
             {printed("%.*e", int(bits % 19), __builtin_bit_cast(double, bits)),
              printed("%.*f", int(bits % 9), double(bits >> 20) / 4096),
              printed("%ld.%lue%d", long(bits) >> (bits & 63), bits >> 9, int(bits % 60) - 30),
              printed("%s%lu", bits & 1 ? "-" : "+", shifted)})
            expectParsedAsByTheCLibrary(token);
    }
}

TEST(TextInput, NumbersKeepTheRulesOfTokensAndErrno)
{
    errno = 0;
    EXPECT_TRUE(parsed<unsigned int>("-1") == 4294967295u && parsed<int>("4294967297") == 1);
    EXPECT_TRUE(parsed<float>("1e39") == HUGE_VALF && parsed<double>("") == 0);
    EXPECT_EQ(parsed<int>(string(70000, '0') + "1"), 0);  // longer than a token may be
    EXPECT_TRUE(parsed<long>("99999999999999999999") == 0 && errno == ERANGE);
    EXPECT_TRUE(parsed<int>("5") == 0 && parsed<double>("1.5") == 0);  // until errno is cleared
    errno = 0;
}

TEST(LimitedLines, UseTheHeapAboveTheThreshold)
{
    const std::tuple<unsigned long, zqsize_t, int> rows[] = {
        {4096, 4080, 0}, {4096, 4081, 1}, {20, 4, 0}, {20, 5, 1},
        {16, 0, 0},      {0, 0, 1},       {0, 100, 1}};
    string line;
    for (const auto& [threshold, max, blocks] : rows) {
        ZQSetAllocaThreshold(threshold);
        ChunkSource in({"abc\n"});
        const Fault count("operator new", 0, INT_MAX);
        EXPECT_EQ(in.getline(line, max), max != 0);
        EXPECT_EQ(count.calls, blocks) << threshold << ", " << max;
    }
    ZQSetAllocaThreshold(4096);
    CaptureOut out;
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
