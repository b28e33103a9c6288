// Runs a fuzz target without a fuzzer: on files, on all files of directories, and, for a number in
// the arguments, on as many made-up inputs, which are the same in every run.

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* bytes, std::size_t size);

static int replay(const std::filesystem::path& path)
{
    if (std::filesystem::is_directory(path)) {
        int files = 0;
        for (const auto& entry : std::filesystem::directory_iterator(path))
            files += replay(entry.path());
        return files;
    }
    std::ifstream file(path, std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    // A block of its own size, so that a sanitizer sees every access behind it.
    const std::vector<unsigned char> bytes(text.begin(), text.end());
    std::printf("%s\n", path.c_str());
    std::fflush(stdout);  // the name of the file that ends the process
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    return 1;
}

// Stretches of any bytes and of those that numbers, lines and names are made of.
static std::vector<unsigned char> madeUp(unsigned int number)
{
    static const std::string text = "0123456789+-.eE \t\n\rnafx:/\\~";
    std::mt19937 random(number);
    std::vector<unsigned char> bytes(random() % (number % 4 == 0 ? 2000 : 100));
    bool plain = false;
    for (unsigned char& byte : bytes) {
        if (random() % 16 == 0) plain = !plain;
        byte = static_cast<unsigned char>(plain ? text[random() % text.size()] : random());
    }
    return bytes;
}

static int replayMadeUp(int count)
{
    for (int number = 1; number <= count; ++number) {
        std::printf("made-up input %d\n", number);
        std::fflush(stdout);
        const std::vector<unsigned char> bytes = madeUp(unsigned(number));
        LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    }
    return count;
}

int main(int argc, char** argv)
{
    int inputs = 0;
    for (int i = 1; i < argc; ++i) {
        const int count = std::atoi(argv[i]);
        inputs += count > 0 ? replayMadeUp(count) : replay(argv[i]);
    }
    std::printf("%d inputs\n", inputs);
    return inputs == 0;
}
