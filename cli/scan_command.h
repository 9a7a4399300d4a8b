#pragma once
// "corvel scan": runs one scan of the given folders and prints the duplicate groups.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace corvel::cli {

struct ScanOptions {
    std::vector<std::string> paths;
    bool json = false;
    std::optional<std::uint64_t> minSize;
    bool autoselect = false;
    std::string exportFile;
    bool quiet = false;
    bool verbose = false;
};

// Exit statuses of the command line.
enum ExitStatus : int { kExitOK = 0, kExitFailure = 1, kExitUsage = 2, kExitRefused = 3 };

// Runs the scan on the calling (main) thread's queue and prints to stdout/stderr.
int runScan(const ScanOptions& options);

} // namespace corvel::cli
