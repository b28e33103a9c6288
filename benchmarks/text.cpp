// Lines, words and numbers as text.

#include "streams.h"

#include <algorithm>
#include <sstream>

namespace {

constexpr size_t textSize = 1 << 19;
constexpr int numberCount = 10000;

string linesOf(size_t length)
{
    string text;
    while (text.size() < textSize) {
        for (size_t i = 0; i < length; ++i) text += static_cast<char>(' ' + randomNumber() % 95);
        text += '\n';
    }
    return text;
}

void lines(size_t length, Goals goals)
{
    goals.remark = "a line is searched for every byte below 32, not for its end alone";
    row("text/line of " + std::to_string(length) + " bytes, from a file into a string", goals,
        [=](Race& race) {
            const string text = linesOf(length), path = scratchFile("lines", text);
            readers(race, path, eachLine, "getline(3)");
            race.run(text.size() / (length + 1));
        });
}

struct OurMemory : zqisstream {
    explicit OurMemory(const string& text) { set(text.data(), text.size(), false); }
};

void linesFromMemory()
{
    row("text/line of 40 bytes, from memory into a string", {0.75, 1.1}, [](Race& race) {
        const string text = linesOf(40);
        race.ours(with<Ours<OurMemory>>(text, eachLine));
        race.peer("iostreams", with<Standard<std::istringstream>>(text, eachLine));
        race.limit([&] {
            Source source(text.data(), text.size());
            return eachLine(source);
        });
        race.run(text.size() / 41);
    });
}

template <class Word> void words(const char* name, Goals goals)
{
    row(name, goals, [](Race& race) {
        const string text = proseOf(textSize), path = scratchFile("words", text);
        const auto eachWord = [](auto& in) {
            std::uint64_t sum = 0;
            for (Word word; in.word(word);) sum += sumOf(word);
            return sum;
        };
        readers(race, path, eachWord, "getline(3) + strtok_r");
        race.run(std::count_if(text.begin(), text.end(), ::isspace));
    });
}

template <class Number> std::vector<Number> numbers()
{
    std::vector<Number> values(numberCount);
    for (Number& value : values) {
        value = static_cast<int>(randomNumber() % 20000000) - 10000000;
        if (std::is_same_v<Number, double>) value += randomNumber() % 1000000 * 1e-6;
    }
    return values;
}

template <class Number> void numbersRead(const char* name, Goals goals)
{
    row(name, goals, [](Race& race) {
        const string path = scratchFile("numbers", "");
        with<ToChars<Sink>>(path, [](auto& out) {
            for (Number value : numbers<Number>()) out.print(value);
        })();
        const auto eachNumber = [](auto& in) {
            std::uint64_t sum = 0;
            Number value = 0;
            for (int i = 0; i < numberCount && in.number(value); ++i) sum += sumOf(value);
            return sum;
        };
        readers(race, path, eachNumber, "getline(3) + from_chars");
        race.run(numberCount);
    });
}

template <class Body> void textWriters(Race& race, Body body)
{
    const string path = scratchFile("written", "");
    writers(race, path, body);
    race.peer("to_chars + stdio", with<ToChars<Stdio>>(path, body));
#ifdef BENCH_FMT
    race.peer("fmt", with<Fmt>(path, body));
#endif
    race.run(numberCount);
}

template <class Number> void numbersWritten(const char* name, Goals goals)
{
    row(name, goals, [](Race& race) {
        const auto values = numbers<Number>();
        textWriters(race, [&](auto& out) {
            for (Number value : values) out.print(value);
        });
    });
}

void mixedLines()
{
    const char* const calls = "six virtual calls, each of which looks for room";
    row("text/line of a name, an int and a double, written", {0.45, 1.45, calls}, [](Race& race) {
        const auto counts = numbers<int>();
        const auto values = numbers<double>();
        textWriters(race, [&](auto& out) {
            for (int i = 0; i < numberCount; ++i) out.print("detector-7", counts[i], values[i]);
        });
    });
}

}  // namespace

void textRows()
{
    lines(40, {0.85, 1.5});
    lines(400, {1.0, 1.2});
    linesFromMemory();
    words<Array>("text/word, into an array of characters", {0.6, 3.3});
    words<string>("text/word, into a string", {0.85, 4.8});
    numbersRead<int>("text/int, read", {0.55, 1.75});
    numbersRead<double>("text/double, read (\"%f\" text)", {0.8, 1.8});
    numbersWritten<int>("text/int, written", {0.8, 1.35, "two virtual calls a line"});
    numbersWritten<double>("text/double, written", {0.45, 1.1});
    mixedLines();
}
