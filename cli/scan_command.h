#pragma once
// "corvel scan": runs one scan of the given folders and prints the duplicate groups.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "removal_command.h"
#include "run_overrides.h"

namespace corvel::cli {

struct ScanOptions {
    std::vector<std::string> paths;
    bool json = false;
    std::optional<std::uint64_t> minSize;
    std::optional<std::uint64_t> maxSize;
    bool autoselect = false;
    std::string exportFile; // kExportToStdout: the list on stdout instead of the report
    bool quiet = false;
    bool verbose = false;
    bool verify = false;    // confirm groups compared on samples byte for byte
    std::string selectFile; // mark the copies listed in the file
    bool allowAllCopies = false;
    std::string format = "text"; // text, json, csv or fdupes (--json is json)
    bool nullSeparated = false;  // the export: NUL after each path
    std::string keep;            // "oldest" or "newest": keep that copy of every group
    RunOverrides overrides;
    RemovalOptions removal;
};

// The --export name that means stdout.
inline constexpr const char* kExportToStdout = "-";

// Exit statuses of the command line.
enum ExitStatus : int { kExitOK = 0, kExitFailure = 1, kExitUsage = 2, kExitRefused = 3 };

// Runs the scan on the calling (main) thread's queue and prints to stdout/stderr.
int runScan(const ScanOptions& given);

// "corvel remove PLAN.json": the removal pass on a scan document.
struct RemoveOptions {
    std::string plan;
    bool allowAllCopies = false;
    bool verbose = false;
    RemovalOptions removal;
};
int runRemove(const RemoveOptions& options);

} // namespace corvel::cli
