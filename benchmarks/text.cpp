// Lines, words and numbers as text.

#include "streams.h"

#include <algorithm>
#include <sstream>

namespace {

constexpr std::size_t textSize = 1 << 19;
constexpr int numberCount = 10000;

string linesOf(std::size_t length)
{
    string text;
    while (text.size() < textSize) {
        for (std::size_t i = 0; i < length; ++i)
            text += static_cast<char>(' ' + randomNumber() % 95);
        text += '\n';
    }
    return text;
}

// All lines or words, into the same object.
template <class Text> auto eachLine(Text& line)
{
    return [&](auto& in) {
        std::uint64_t sum = 0;
        while (in.line(line)) sum += sumOf(line);
        return sum;
    };
}
template <class Text> auto eachWord(Text& word)
{
    return [&](auto& in) {
        std::uint64_t sum = 0;
        while (in.word(word)) sum += sumOf(word);
        return sum;
    };
}

void lines(std::size_t length, Goals goals, const char* remark)
{
    const string job = "line of " + std::to_string(length) + " bytes, from a file into a string";
    row(
        "text", job, goals,
        [=](Race& race) {
            const string text = linesOf(length), path = scratchFile("lines", text);
            string line;
            readers(race, path, eachLine(line));
            race.peer("getline(3)", reading<GetlineReader>(path, eachLine(line)));
            race.run(static_cast<double>(text.size() / (length + 1)));
        },
        remark);
}

struct OurMemory {
    explicit OurMemory(const string& text) { in.set(text.data(), text.size(), false); }
    zqisstream in;
};
struct StandardMemory {
    explicit StandardMemory(const string& text) : in(text) {}
    std::istringstream in;
};

void linesFromMemory()
{
    row("text", "line of 40 bytes, from memory into a string", {0.75, 1.1}, [](Race& race) {
        const string text = linesOf(40);
        string line;
        race.ours(reading<OurReader<OurMemory>>(text, eachLine(line)));
        race.peer("iostreams", reading<StandardReader<StandardMemory>>(text, eachLine(line)));
        race.limit([&] {
            Source source(text.data(), text.size());
            return eachLine(line)(source);
        });
        race.run(static_cast<double>(text.size() / 41));
    });
}

template <class Word> void words(const char* job, Goals goals)
{
    row("text", job, goals, [](Race& race) {
        const string text = proseOf(textSize), path = scratchFile("words", text);
        Word word;
        readers(race, path, eachWord(word));
        race.peer("getline(3) + strtok_r", reading<GetlineReader>(path, eachWord(word)));
        race.run(static_cast<double>(std::count_if(text.begin(), text.end(), ::isspace)));
    });
}

template <class Number> std::vector<Number> numbers()
{
    std::vector<Number> values(numberCount);
    for (Number& value : values) {
        value = static_cast<int>(randomNumber() % 20000000) - 10000000;
        if (std::is_same_v<Number, double>)
            value += static_cast<Number>(randomNumber() % 1000000) * 1e-6;
    }
    return values;
}

template <class Number> void numbersRead(const char* job, Goals goals)
{
    row("text", job, goals, [](Race& race) {
        const string path = scratchFile("numbers", "");
        writing<FormattingWriter<Sink>>(path, [](auto& out) {
            for (Number value : numbers<Number>()) out.put(value);
        })();
        const auto body = [](auto& in) {
            std::uint64_t sum = 0;
            Number value = 0;
            for (int i = 0; i < numberCount && in.number(value); ++i) sum += sumOf(value);
            return sum;
        };
        readers(race, path, body);
        race.peer("getline(3) + from_chars", reading<GetlineReader>(path, body));
        race.run(numberCount);
    });
}

template <class Body> void textWriters(Race& race, Body body)
{
    const string path = scratchFile("written", "");
    writers(race, path, body);
    race.peer("to_chars + stdio", writing<FormattingWriter<StdioRoom>>(path, body));
#ifdef BENCH_FMT
    race.peer("fmt", writing<FmtWriter>(path, body));
#endif
    race.run(numberCount);
}

template <class Number> void numbersWritten(const char* job, Goals goals)
{
    row("text", job, goals, [](Race& race) {
        const auto values = numbers<Number>();
        textWriters(race, [&](auto& out) {
            for (Number value : values) out.put(value);
        });
    });
}

void mixedLines()
{
    row("text", "line of a name, an int and a double, written", {0.45, 1.45}, [](Race& race) {
        const auto counts = numbers<int>();
        const auto values = numbers<double>();
        const string name = "detector-7";
        textWriters(race, [&](auto& out) {
            for (int i = 0; i < numberCount; ++i) out.put(name, counts[i], values[i]);
        });
    });
}

}  // namespace

void textRows()
{
    const char* const lineRemark =
        "a line is searched for every byte below 32, not for its end alone";
    lines(40, {0.85, 1.5}, lineRemark);
    lines(400, {1.0, 1.2}, lineRemark);
    linesFromMemory();
    words<Array>("word, into an array of characters", {0.6, 3.3});
    words<string>("word, into a string", {0.85, 4.8});
    numbersRead<int>("int, read", {0.55, 1.75});
    numbersRead<double>("double, read (\"%f\" text)", {0.8, 1.8});
    numbersWritten<int>("int, written", {0.8, 1.35});
    numbersWritten<double>("double, written", {0.45, 1.1});
    mixedLines();
}
