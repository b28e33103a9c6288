// A directory of its own for a target, and names of files in it.

#pragma once

#include "fuzz.h"

#include <filesystem>
#include <fstream>
#include <iterator>

// Current for the scope, so that names are short; empty afterwards.
class Directory {
public:
    Directory() : _before(std::filesystem::current_path())
    {
        static const Kept kept;
        std::filesystem::current_path(kept.path);
    }
    ~Directory()
    {
        for (const auto& entry : std::filesystem::directory_iterator("."))
            std::filesystem::remove(entry);
        std::filesystem::current_path(_before);
    }
    Directory(const Directory&) = delete;
    Directory& operator=(const Directory&) = delete;

    // Names with colons, with and without the prefix "pre", with ".gz" anywhere.
    static string name(Input& input)
    {
        static const char* const pieces[] = {"pre", ":", "other", ".gz", "a", "~", " ", ".gz.txt"};
        string name;
        for (size_t n = 1 + input.upTo(3); n > 0; --n)
            name += pieces[input.upTo(std::size(pieces) - 1)];
        return name;
    }
    static bool hasPrefix(const string& name) { return name.substr(0, name.find(':')) == "pre"; }

    static string bytesOf(const string& name)
    {
        std::ifstream file(name, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

private:
    struct Kept {
        ~Kept() { std::filesystem::remove_all(path); }
        const string path = ZQFileTempDirectory();
    };
    const std::filesystem::path _before;
};
