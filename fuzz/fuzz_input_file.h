#pragma once
// Writes a fuzz input to a file in a folder of its own under /tmp, for parsers that only
// read a path. The folder is made once per process and the file overwritten per run.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>

namespace corvel::fuzz {

inline const std::string& scratchFolder() {
    static const std::string folder = [] {
        char pattern[] = "/tmp/corvel-fuzz-XXXXXX";
        const char* made = mkdtemp(pattern);
        if (made == nullptr)
            std::abort();
        return std::string(made);
    }();
    return folder;
}

// The path of a file holding exactly the input; aborts when it cannot be written.
inline std::string writeInput(const char* name, const std::uint8_t* data, std::size_t size) {
    const std::string path = scratchFolder() + "/" + name;
    std::FILE* f = std::fopen(path.c_str(), "wb");
    if (f == nullptr)
        std::abort();
    if (size > 0 && std::fwrite(data, 1, size, f) != size)
        std::abort();
    std::fclose(f);
    return path;
}

} // namespace corvel::fuzz
