#pragma once
// Removing the marked copies from the command line: "corvel scan ... --remove" and
// "corvel remove PLAN.json". The removal pass is the collector's (src/removal); this
// file asks for confirmation, shows progress, and prints what became of each copy.

#include <atomic>
#include <optional>
#include <string>
#include <vector>

namespace corvel {
class CVDuplicatesController;
}

namespace corvel::cli {

struct RemovalOptions {
    bool remove = false;
    std::optional<bool> trash;              // --trash / --delete; else the stored preference
    std::optional<bool> removeEmptyFolders; // --remove-empty-folders / --keep-empty-folders
    bool dryRun = false;
    bool yes = false;
    bool json = false;
    bool quiet = false;
};

// Exit statuses of a removal, beside those of scan_command.h.
inline constexpr int kExitNotAllRemoved = 4;
inline constexpr int kExitStoppedBySignal = 130;

// Marks by hand the copies the file lists (one path per line, blank lines skipped, the
// --export format; with nulSeparated each path ended by a NUL byte, as --export -0
// writes; a relative path is taken from the working folder). A listed path that is no member of a group, or
// that may not be removed, or a list that marks every copy of a group without allowAllCopies, is a usage
// error: false with the message, and nothing is marked. With allowAllCopies such groups
// are marked as forced by the user (then only the Trash may take them).
[[nodiscard]] bool selectListedCopies(CVDuplicatesController& results, const std::string& listFile,
                                      bool allowAllCopies, bool nulSeparated, std::string* message);

// Runs the removal pass on the marked copies: prints the collector's summary, asks on a
// terminal (--yes answers; without a terminal and --yes nothing is touched, exit 2), runs
// the pass with progress on a terminal (SIGINT/SIGTERM/SIGHUP, as interrupted, stop it after the
// current copy), and prints the report: the whole JSON document with its "removal"
// member when json is set, else the plain report (failures on stderr). Answers the exit
// status: 0 every marked copy removed (or none marked, or a dry run), 4 some were not,
// 130 stopped by a signal, 2 not confirmed.
int removeMarkedCopies(CVDuplicatesController& results, const std::vector<std::string>& roots,
                       const RemovalOptions& options, const std::atomic<bool>& interrupted);

} // namespace corvel::cli
