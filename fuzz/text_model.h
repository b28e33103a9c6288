// The public reading functions as their headers describe them, one byte at a time.

#pragma once

#include "fuzz.h"

#include <cctype>
#include <cerrno>
#include <cstring>

struct SlowReader {
    static constexpr size_t noLimit = ~size_t{0};

    string bytes;
    size_t at = 0;

    bool done() const { return at == bytes.size(); }
    string read(size_t n)
    {
        const string part = bytes.substr(at, n);
        at += part.size();
        return part;
    }
    bool skipLine()
    {
        string line;
        return readLine(line, noLimit);
    }
    bool readLine(string& line, size_t max)
    {
        line.clear();
        if (done() || max == 0) return false;
        while (!done()) {
            const auto c = static_cast<unsigned char>(bytes[at++]);
            if (c == '\n') return true;
            if (c == '\r') {
                while (!done() && bytes[at] == '\r') ++at;
                at += !done() && bytes[at] == '\n';
                return true;
            }
            if (c < 32 && c != '\t') continue;
            if (line.size() == max - 1) return skipLine() || true;
            line += static_cast<char>(c);
        }
        return true;
    }
    bool readToken(string& token, size_t max)
    {
        token.clear();
        if (done() || max == 0) return false;
        while (!done()) {
            const auto c = static_cast<unsigned char>(bytes[at++]);
            if (std::isspace(c)) return true;
            if (c <= 32) continue;
            if (token.size() == max - 1) return skipLine() || true;
            token += static_cast<char>(c);
        }
        return true;
    }
};

// Two buffers of 'max' bytes, of which no other byte may be touched, and a reader for each.
template <class Char, class Read, class Slow> void readInto(size_t max, Read read, Slow slow)
{
    std::vector<Char> block(std::max<size_t>(max, 1));
    string expected;
    const bool more = slow(expected);
    CHECK(read(block.data()) == more);
    CHECK(reinterpret_cast<const char*>(block.data()) == expected);
}

template <class Number, class Parse>
void readNumber(zqistream& in, SlowReader& model, bool dirty, Parse parse)
{
    Number got = 1, expected = 0;
    string token;
    const bool more = model.readToken(token, 65536);
    errno = dirty ? ERANGE : 0;
    if (more) {
        const auto value = parse(token.c_str());
        expected = errno == ERANGE ? Number(0) : static_cast<Number>(value);
    }
    errno = dirty ? ERANGE : 0;
    in >> got;
    CHECK(std::memcmp(&got, &expected, sizeof got) == 0);
}

// One reading call, chosen by the input, on a stream and on its model.
inline void readOnce(Input& input, zqistream& in, SlowReader& model)
{
    string got, expected;
    const auto choice = input.upTo(19);
    const size_t size = choice < 10 ? input.size() : 0;
    const unsigned char how = choice >= 10 ? input.byte() : 0;
    const bool dirty = how % 8 == 7;
    const auto integer = [](const char* text) { return std::strtol(text, nullptr, 10); };
    const auto floating = [](const char* text) { return std::strtod(text, nullptr); };
    switch (choice) {
    case 0:
        CHECK(in.read(got, size) == in.count());
        CHECK(got == model.read(size) && got.size() == in.count());
        break;
    case 1: {
        std::vector<signed char> block(size);
        expected = model.read(size);
        CHECK(in.read(block.data(), size) == expected.size() && in.count() == expected.size());
        CHECK(std::equal(expected.begin(), expected.end(), block.begin()));
        break;
    }
    case 2:
        readInto<char>(
            size, [&](char* to) { return in.getline(to, size); },
            [&](string& to) { return model.readLine(to, size); });
        break;
    case 3:
        CHECK(in.getline(got, size) == model.readLine(expected, size) && got == expected);
        break;
    case 4:
        readInto<unsigned char>(
            size, [&](unsigned char* to) { return in.gettoken(to, size); },
            [&](string& to) { return model.readToken(to, size); });
        break;
    case 5:
        CHECK(in.gettoken(got, size) == model.readToken(expected, size) && got == expected);
        break;
    case 6:
    case 7: CHECK(in.skip(long(size)) == (model.read(size).size() == size)); break;
    case 8: CHECK(!in.skip(-1 - long(size))); break;
    case 9:
    case 10:
        CHECK(in.getline(got) == model.readLine(expected, model.noLimit) && got == expected);
        break;
    case 11: CHECK(in.skipline() == model.skipLine()); break;
    case 12: {
        char c = 0;
        in >> c;
        CHECK((expected = model.read(1)).empty() ? c == '\xFF' : c == expected[0]);
        break;
    }
    case 13: {
        bool value = false;
        in >> value;
        CHECK(value == !model.read(1).empty());
        break;
    }
    case 14:
        if (how >= 128) return readNumber<unsigned short>(in, model, dirty, integer);
        return readNumber<short>(in, model, dirty, integer);
    case 15: return readNumber<unsigned int>(in, model, dirty, integer);
    case 16: return readNumber<long>(in, model, dirty, integer);
    case 17: return readNumber<float>(in, model, dirty, floating);
    case 18: return readNumber<double>(in, model, dirty, floating);
    case 19:
        if (input.upTo(7) == 7) {  // seldom: it ends the data
            in >> got;
            CHECK(got == model.read(model.noLimit) && in.count() == got.size() && in.eof());
        }
        break;
    }
    CHECK(!in.eof() || model.done());
}

// All that is left; behind it nothing more comes.
inline void readRest(zqistream& in, SlowReader& model)
{
    string got;
    CHECK(in.read(got) == got.size() && got == model.read(model.noLimit));
    CHECK(in.eof() && in.read(got) == 0 && !in.getline(got) && !in.skip(1));
}
