// Blocks, small values, and the binary images of numbers and strings.

#include "streams.h"

#include <filesystem>
#include <sstream>

namespace {

constexpr std::size_t dataSize = 1 << 19;

string randomBytes(std::size_t size)
{
    string bytes(size, '\0');
    for (char& byte : bytes) byte = static_cast<char>(randomNumber());
    return bytes;
}

// ---- blocks of a size known to the compiler

template <std::size_t size> void blocks(const string& job, Goals read, Goals written)
{
    row("binary", job + ", read", read, [](Race& race) {
        readers(race, scratchFile("blocks", randomBytes(dataSize)), [](auto& in) {
            std::uint64_t sum = 0;
            for (char block[size]; in.read(block, size);) {
                std::uint32_t last;
                std::memcpy(&last, block + size - sizeof last, sizeof last);
                sum += last;
                benchmark::DoNotOptimize(block);
            }
            return sum;
        });
        race.run(dataSize / size);
    });
    row("binary", job + ", written", written, [](Race& race) {
        const string bytes = randomBytes(dataSize);
        writers(race, scratchFile("blocks", bytes), [&](auto& out) {
            for (std::size_t i = 0; i < dataSize; i += size) out.write(bytes.data() + i, size);
        });
        race.run(dataSize / size);
    });
}

void wholeFile()
{
    row(
        "binary", "file of 1 MiB, into a string", {0.75, 1.4},
        [](Race& race) {
            const string path = scratchFile("whole", randomBytes(1 << 20));
            race.ours([&] {
                zqifstream in(path);
                string content;
                in.read(content);
                return sumOf(content);
            });
            race.peer("iostreams", [&] {
                std::ostringstream content;
                content << std::ifstream(path, std::ios::binary).rdbuf();
                return sumOf(content.str());
            });
            race.peer("stdio unlocked", reading<StdioReader<true>>(path, [](auto& in) {
                          string content;
                          char block[4096];
                          while (in.read(block, sizeof block)) content.append(block, sizeof block);
                          return sumOf(content);
                      }));
            race.peer("filesystem + iostreams", [&] {
                string content(std::filesystem::file_size(path), '\0');
                StandardReader<StandardFile>(path).read(content.data(), content.size());
                return sumOf(content);
            });
            race.limit([&] {
                string content(std::filesystem::file_size(path), '\0');
                const int fd = ::open(path.c_str(), O_RDONLY);
                if (::read(fd, content.data(), content.size()) < 0) std::abort();
                ::close(fd);
                return sumOf(content);
            });
            race.run(1);
        },
        "the bytes go through the buffer, and the string grows as they come");
}

// ---- numbers, most significant byte first

constexpr std::size_t arraySize = 131072;  // in bytes
constexpr int repeats = dataSize / arraySize;

template <class Number> void reverse(std::vector<Number>& to, const std::vector<Number>& from)
{
    for (std::size_t i = 0; i < from.size(); ++i)
        if constexpr (sizeof to[i] == 2)
            to[i] = __builtin_bswap16(from[i]);
        else if constexpr (sizeof to[i] == 4)
            to[i] = __builtin_bswap32(from[i]);
        else
            to[i] = __builtin_bswap64(from[i]);
}

template <class Number> struct Arrays {
    static constexpr std::size_t size = sizeof(Number), count = arraySize / size;
    Arrays() : values(count), image(count)
    {
        for (Number& value : values) value = static_cast<Number>(randomNumber());
    }
    static unsigned char* bytes(std::vector<Number>& v)
    {
        return reinterpret_cast<unsigned char*>(v.data());
    }
    static char* chars(std::vector<Number>& v) { return reinterpret_cast<char*>(v.data()); }
    void leaves(Race& race, std::vector<Number>& v)
    {
        race.leaves([&] { return string(chars(v), arraySize); }, [&] { v.assign(count, 0); });
    }
    std::vector<Number> values, image;
};

template <class Number> void arrays()
{
    using A = Arrays<Number>;
    const string number = "big-endian number of " + std::to_string(A::size) + " bytes, ";
    row("binary", number + "in memory", {1.0, 1.05}, [](Race& race) {
        A a;
        a.leaves(race, a.image);
        race.ours([&] {
            return ZQ_io_write_binary(a.bytes(a.image), a.bytes(a.values), a.size, a.count);
        });
        race.peer("loop of bswap", [&] { return reverse(a.image, a.values), arraySize; });
        race.bareLimit([&] { return std::memcpy(a.image.data(), a.values.data(), arraySize), 0; });
        race.run(a.count);
    });
    row("binary", number + "written", {0.88, 1.05}, [](Race& race) {
        A a;
        const string path = scratchFile("array", "");
        race.leavesFile(path);
        race.ours(writing<OurOutput>(path, [&](OurOutput& file) {
            for (int i = 0; i < repeats; ++i)
                ZQ_io_write_binary(file.out, a.bytes(a.values), a.size, a.count);
        }));
        standardWriters(race, path, [&](auto& out) {
            for (int i = 0; i < repeats; ++i) {
                reverse(a.image, a.values);
                out.write(a.chars(a.image), arraySize);
            }
        });
        race.limit(writing<Sink>(path, [&](Sink& sink) {
            for (std::size_t i = 0; i < dataSize; i += 4096)
                sink.write(a.chars(a.image) + i % arraySize, 4096);
        }));
        race.run(a.count * repeats);
    });
    row("binary", number + "read", {0.8, 1.2}, [](Race& race) {
        A a;
        reverse(a.image, a.values);
        string content;
        for (int i = 0; i < repeats; ++i) content.append(a.chars(a.image), arraySize);
        const string path = scratchFile("array", content);
        a.leaves(race, a.values);
        race.ours(reading<OurFile>(path, [&](OurFile& file) {
            for (int i = 0; i < repeats; ++i)
                ZQ_io_read_binary(file.in, a.bytes(a.values), a.size, a.count);
            return 0;
        }));
        standardReaders(race, path, [&](auto& in) {
            while (in.read(a.chars(a.image), arraySize)) reverse(a.values, a.image);
            return 0;
        });
        race.bareLimit(reading<Source>(path, [&](Source& source) {
            for (std::size_t i = 0; source.read(a.chars(a.values) + i, 4096);)
                i = (i + 4096) % arraySize;
            return 0;
        }));
        race.run(a.count * repeats);
    });
}

// ---- strings behind their length

std::vector<string> names()
{
    std::vector<string> strings(10000);
    for (string& s : strings) s = randomBytes(randomNumber() % 40);
    return strings;
}

void lengthPrefixed()
{
    row("binary", "length-prefixed string, written", {0.45, 1.35}, [](Race& race) {
        const auto strings = names();
        writers(race, scratchFile("strings", ""), [&](auto& out) {
            for (const string& s : strings) out.text(s);
        });
        race.run(static_cast<double>(strings.size()));
    });
    row("binary", "length-prefixed string, read", {0.5, 1.6}, [](Race& race) {
        const string path = scratchFile("strings", "");
        writing<Sink>(path, [](Sink& sink) {
            for (const string& s : names()) sink.text(s);
        })();
        string s;
        readers(race, path, [&](auto& in) {
            std::uint64_t sum = 0;
            while (in.text(s)) sum += sumOf(s);
            return sum;
        });
        race.run(10000);
    });
}

}  // namespace

void binaryRows()
{
    blocks<4>("4 bytes", {0.2, 1.1}, {0.8, 1.05});
    blocks<8>("8 bytes", {0.2, 1.1}, {0.8, 1.05});
    blocks<16>("16 bytes", {0.2, 1.1}, {0.8, 1.05});
    blocks<4096>("4 KiB", {0.95, 1.3}, {1.05, 1.08});
    wholeFile();
    arrays<std::uint16_t>();
    arrays<std::uint32_t>();
    arrays<std::uint64_t>();
    lengthPrefixed();
}
