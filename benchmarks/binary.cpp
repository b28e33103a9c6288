// Blocks, small values, and the binary images of numbers and strings.

#include "streams.h"

#include <filesystem>
#include <sstream>

namespace {

constexpr size_t dataSize = 1 << 19;

string randomBytes(size_t size)
{
    string bytes(size, '\0');
    for (char& byte : bytes) byte = static_cast<char>(randomNumber());
    return bytes;
}

// Blocks of a size known to the compiler.
template <size_t size> void blocks(const string& job, Goals read, Goals written)
{
    row("binary/" + job + ", read", read, [](Race& race) {
        readers(race, scratchFile("blocks", randomBytes(dataSize)), [](auto& in) {
            std::uint64_t sum = 0;
            for (char block[size]; in.get(block, size);) {
                std::uint32_t last;
                std::memcpy(&last, block + size - sizeof last, sizeof last);
                sum += last;
                benchmark::DoNotOptimize(block);
            }
            return sum;
        });
        race.run(dataSize / size);
    });
    row("binary/" + job + ", written", written, [](Race& race) {
        const string bytes = randomBytes(dataSize);
        writers(race, scratchFile("blocks", bytes), [&](auto& out) {
            for (size_t i = 0; i < dataSize; i += size) out.put(bytes.data() + i, size);
        });
        race.run(dataSize / size);
    });
}

void wholeFile()
{
    const char* const remark =
        "the peers ask for the size first; here the string grows as the bytes come";
    row("binary/file of 1 MiB, into a string", {0.75, 1.4, remark}, [](Race& race) {
        const string path = scratchFile("whole", randomBytes(1 << 20));
        const auto all = [path](auto& in) {
            string content(std::filesystem::file_size(path), '\0');
            in.get(content.data(), content.size());
            return sumOf(content);
        };
        race.ours([=] {
            zqifstream in(path);
            string content;
            in.read(content);
            return sumOf(content);
        });
        race.peer("iostreams", [=] {
            std::ostringstream content;
            content << std::ifstream(path, std::ios::binary).rdbuf();
            return sumOf(content.str());
        });
        race.peer("filesystem + iostreams", with<Standard<StandardFile>>(path, all));
        race.peer("filesystem + stdio unlocked", with<Stdio>(path, all));
        race.limit([=] {
            string content(std::filesystem::file_size(path), '\0');
            const int fd = ::open(path.c_str(), O_RDONLY);
            if (::read(fd, content.data(), content.size()) < 0) std::abort();
            ::close(fd);
            return sumOf(content);
        });
        race.run(1);
    });
}

// ---- numbers, most significant byte first

template <class Number> struct Arrays {
    static constexpr size_t size = sizeof(Number);
    explicit Arrays(size_t bytes) : values(bytes / size), image(bytes / size)
    {
        for (Number& value : values) value = static_cast<Number>(randomNumber());
    }
    static auto bytes(std::vector<Number>& v) { return reinterpret_cast<unsigned char*>(v.data()); }
    static auto chars(std::vector<Number>& v) { return reinterpret_cast<char*>(v.data()); }
    static void reverse(std::vector<Number>& to, const std::vector<Number>& from)
    {
        for (size_t i = 0; i < from.size(); ++i)
            to[i] = size == 2   ? __builtin_bswap16(from[i])
                    : size == 4 ? __builtin_bswap32(from[i])
                                : __builtin_bswap64(from[i]);
    }
    std::vector<Number> values, image;
};

// The limits move the bytes unchanged.
template <class Number> void arrays()
{
    constexpr size_t size = sizeof(Number), inMemory = 131072, inStream = 16384;
    const string name = "binary/big-endian number of " + std::to_string(size) + " bytes, ";
    row(name + "in memory", {1.0, 1.05}, [=](Race& race) {
        Arrays<Number> a(inMemory);
        race.leavesValues(a.image);
        race.ours([&] {
            ZQ_io_write_binary(a.bytes(a.image), a.bytes(a.values), size, inMemory / size);
        });
        race.peer("loop of bswap", [&] { a.reverse(a.image, a.values); });
        race.bareLimit([&] { std::memcpy(a.image.data(), a.values.data(), inMemory); });
        race.run(inMemory / size);
    });
    const auto each = [](auto step) {
        return [=](auto& stream) {
            for (size_t done = 0; done < dataSize; done += inStream) step(stream);
        };
    };
    row(name + "written", {0.88, 1.05}, [=](Race& race) {
        Arrays<Number> a(inStream);
        const string path = scratchFile("array", "");
        race.leavesFile(path);
        race.ours(with<OurOutput>(path, each([&](auto& out) {
                                      ZQ_io_write_binary(out, a.bytes(a.values), size,
                                                         inStream / size);
                                  })));
        peers(race, path, each([&](auto& out) {
                  a.reverse(a.image, a.values);
                  out.put(a.chars(a.image), inStream);
              }));
        race.bareLimit(
            with<Sink>(path, each([&](auto& out) { out.put(a.chars(a.values), inStream); })));
        race.run(dataSize / size);
    });
    row(name + "read", {0.8, 1.2}, [=](Race& race) {
        Arrays<Number> a(inStream);
        const string path = scratchFile("array", randomBytes(dataSize));
        race.leavesValues(a.values);
        race.ours(with<OurInput>(path, each([&](auto& in) {
                                     ZQ_io_read_binary(in, a.bytes(a.values), size,
                                                       inStream / size);
                                 })));
        peers(race, path, each([&](auto& in) {
                  in.get(a.chars(a.image), inStream);
                  a.reverse(a.values, a.image);
              }));
        race.bareLimit(
            with<Source>(path, each([&](auto& in) { in.get(a.chars(a.values), inStream); })));
        race.run(dataSize / size);
    });
}

// ---- strings behind their length

void lengthPrefixed()
{
    const auto names = [] {
        std::vector<string> strings(10000);
        for (string& s : strings) s = randomBytes(randomNumber() % 40);
        return strings;
    };
    const char* const checked = "the length is held against 4 GiB and the room, and count() kept";
    row("binary/length-prefixed string, written", {0.45, 1.35, checked}, [=](Race& race) {
        writers(race, scratchFile("strings", ""), [strings = names()](auto& out) {
            for (const string& s : strings) out.putText(s);
        });
        race.run(10000);
    });
    row("binary/length-prefixed string, read", {0.5, 1.6}, [=](Race& race) {
        const string path = scratchFile("strings", "");
        with<Sink>(path, [&](auto& out) {
            for (const string& s : names()) out.putText(s);
        })();
        readers(race, path, [](auto& in) {
            std::uint64_t sum = 0;
            for (string s; in.text(s);) sum += sumOf(s);
            return sum;
        });
        race.run(10000);
    });
}

}  // namespace

void binaryRows()
{
    const char* const shared = "most of the time is that of the system call, which all make";
    const char* const counted = "write() keeps count(), and looks for a source that is null";
    blocks<4>("4 bytes", {0.2, 1.1, shared}, {0.8, 1.05, counted});
    blocks<8>("8 bytes", {0.2, 1.1, shared}, {0.8, 1.05, counted});
    blocks<16>("16 bytes", {0.2, 1.1, shared}, {0.8, 1.05, counted});
    blocks<4096>("4 KiB", {0.95, 1.3, shared}, {1.05, 1.08, shared});
    wholeFile();
    arrays<std::uint16_t>();
    arrays<std::uint32_t>();
    arrays<std::uint64_t>();
    lengthPrefixed();
}
