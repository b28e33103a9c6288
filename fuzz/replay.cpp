// Runs a fuzz target on files, and on all files of directories, without a fuzzer.

#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
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

int main(int argc, char** argv)
{
    int files = 0;
    for (int i = 1; i < argc; ++i) files += replay(argv[i]);
    std::printf("%d files\n", files);
    return files == 0;
}
