#pragma once
// The inputs kept under fuzz/regressions/<harness>/: inputs that once crashed, hung or
// exhausted a parser, replayed by the tests through the harness's entry point.

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace corvel::test {

struct FuzzRegression {
    std::string name;  // the file name
    std::string path;  // its full path
    std::string bytes; // its contents
};

// Every file of the harness's folder, by name; empty when the folder is missing.
inline std::vector<FuzzRegression> fuzzRegressions(const std::string& harness) {
    std::vector<FuzzRegression> out;
    const std::filesystem::path folder = std::filesystem::path(CORVEL_FUZZ_REGRESSIONS_DIR) / harness;
    std::error_code ec;
    for (const auto& entry : std::filesystem::directory_iterator(folder, ec)) {
        if (!entry.is_regular_file())
            continue;
        std::ifstream in(entry.path(), std::ios::binary);
        out.push_back({entry.path().filename().string(), entry.path().string(),
                       std::string(std::istreambuf_iterator<char>(in), {})});
    }
    std::sort(out.begin(), out.end(), [](const auto& a, const auto& b) { return a.name < b.name; });
    return out;
}

} // namespace corvel::test
