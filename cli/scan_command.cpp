#include "scan_command.h"

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <optional>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include "engine/file_sizer.h"
#include "json_writer.h"
#include "plan_reader.h"
#include "platform/main_queue.h"
#include "platform/notification_center.h"
#include "platform/system_log.h"
#include "platform/user_defaults.h"
#include "progress_line.h"
#include "remind_command.h"
#include "removal/statistics_controller.h"
#include "report.h"
#include "results/meta_group.h"
#include "scan/duplicates_locator.h"
#include "scan/group_verifier.h"
#include "selection/selecting_controller.h"
#include "settings/ignore_list.h"
#include "settings/preferences.h"
#include "stats_command.h"
#include "summary.h"

namespace corvel::cli {

namespace {

std::atomic<bool> g_interrupted{false};

void onInterrupt(int /*unused*/) {
    g_interrupted = true;
}

// Ctrl-C, a polite kill and the terminal closing each ask the scan or the pass to stop
// (the pass after the copy at hand), never to end the process in the middle of a move.
void stopOnInterrupt() {
    struct sigaction action {};
    action.sa_handler = onInterrupt;
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        ::sigaction(signal, &action, nullptr);
}

const char* refusalReason(std::int64_t verdict) {
    switch (verdict) {
    case ScanRefusedTimeMachine:
        return "it is a Time Machine backup";
    case ScanRefusedHidden:
        return "hidden folders are not scanned";
    case ScanRefusedExtension:
        return "its extension is excluded";
    case ScanRefusedSystemPath:
        return "it is a protected system folder";
    case ScanRefusedUserPath:
        return "it is in the excluded folders";
    case ScanRefusedPattern:
        return "it matches the ignore pattern";
    case ScanRefusedFileName:
        return "its name is excluded";
    default:
        return "it is excluded";
    }
}

// The selection's message goes to stderr: a warning first when there is one, then the details.
class StderrDisplay : public CVSelectingControllerDisplay {
public:
    void shouldIncSelectedSize(std::int64_t /*size*/, std::int64_t /*count*/) override {}
    void shouldIncSelectedSize(std::int64_t /*size*/, std::int64_t /*count*/, const std::string& warning,
                               const std::string& details) override {
        if (!warning.empty())
            std::cerr << warning << "\n";
        std::cerr << details << "\n";
    }
};

// The results with the groups compared on samples confirmed byte for byte.
std::shared_ptr<CVDuplicatesController> verifiedResults(CVDuplicatesController& scanned, bool quiet) {
    const unsigned threads = std::max(1u, std::thread::hardware_concurrency());
    const GroupVerification verification =
        verifySampledGroups(scanned.allDuplicatesGroups(), threads, nullptr);
    auto verified = std::make_shared<CVDuplicatesController>();
    verified->addGroupsArray(verification.groups);
    for (const auto& problem : verification.problems)
        std::cerr << "corvel: --verify: " << problem << "\n";
    if (!quiet && (verification.split > 0 || verification.dropped > 0))
        std::cerr << "corvel: --verify: " << verification.split
                  << (verification.split == 1 ? " group" : " groups") << " split and " << verification.dropped
                  << " dropped: their copies differ beyond the compared samples\n";
    return verified;
}

// Names what could not be read: the folders the walk could not read completely (never
// offered as folder duplicates), then the files whose content could not be read for the
// comparison (in no group).
void reportUnread(const std::vector<IncompleteFolder>& folders, const UnreadFiles& files) {
    std::cerr << unreadReport(folders, files.named(), files.count());
}

// How many folders a line about folders left out names before "...".
constexpr std::size_t kSkippedFoldersNamed = 3;

// Says something of some folders (nothing when there are none), naming the first few.
void reportFolders(const std::string& said, const std::vector<std::string>& folders) {
    if (folders.empty())
        return;
    std::cerr << "corvel: " << said << ": ";
    for (std::size_t i = 0; i < folders.size() && i < kSkippedFoldersNamed; ++i)
        std::cerr << (i ? ", " : "") << escapedForTerminal(folders[i]);
    std::cerr << (folders.size() > kSkippedFoldersNamed ? ", ...\n" : "\n");
}

// The protected system folders inside the roots that were left out, and how many.
void reportSkippedSystemFolders(const std::vector<std::string>& folders) {
    reportFolders("skipped " + std::to_string(folders.size()) + " protected folder" +
                      (folders.size() == 1 ? "" : "s"),
                  folders);
}

// Drives mounted inside the folders scanned: the walk stays on each folder's file system.
void reportFoldersOnOtherVolumes(const std::vector<std::string>& folders) {
    reportFolders("not looked into, on another file system", folders);
}

// Whether no root could be read: each could not be listed, or was listed without a
// single entry that could be looked at (a folder that may be read but not entered).
bool noRootWasRead(const std::vector<std::string>& roots, const CVFilesHierarchy& hierarchy) {
    const auto& folders = hierarchy.incompleteFolders();
    const auto& tops = hierarchy.topNodes();
    return std::all_of(roots.begin(), roots.end(), [&](const std::string& root) {
        return std::any_of(folders.begin(), folders.end(), [&](const IncompleteFolder& f) {
            if (f.path != root)
                return false;
            if (f.unlisted)
                return true;
            return std::none_of(tops.begin(), tops.end(), [&](const NodePtr& top) {
                return top->path() == root && top->childrenCount() != 0;
            });
        });
    });
}

// Runs the automatic selection on every group, as the results' select-all does.
void autoselectAll(CVDuplicatesController& results) {
    StderrDisplay display;
    CVSelectingController selecting(nullptr, UserDefaults::standardUserDefaults());
    selecting.setDisplay(&display);
    selecting.autoselectGroups(results.duplicatesGroups());
    MainQueue::shared().drain(); // the groups' counts are announced on the main queue
}

// Selects every copy of each group but the oldest (or the newest).
void keepOneCopyEach(CVDuplicatesController& results, bool newest) {
    CVSelectingController selecting(nullptr, UserDefaults::standardUserDefaults());
    if (newest)
        selecting.keepMostRecentItemsInGroupsArray(results.duplicatesGroups());
    else
        selecting.keepOldestItemsInGroupsArray(results.duplicatesGroups());
    MainQueue::shared().drain();
}

// Checks what was asked before anything is read; fills the canonical roots. Answers
// the exit status of a usage error, or nothing when the scan may start.
std::optional<int> checkScanRequest(const ScanOptions& options, std::vector<std::string>& roots) {
    if (options.nullSeparated && options.exportFile.empty() && options.selectFile.empty()) {
        std::cerr << "corvel: -0 applies to --export and --select; neither was given\n";
        return kExitUsage;
    }
    if (!options.exportFile.empty() && options.removal.remove) {
        std::cerr << "corvel: --export and --remove cannot be combined: export the list first, then remove\n";
        return kExitUsage;
    }
    if (options.exportFile == kExportToStdout && (options.json || options.format != "text")) {
        std::cerr << "corvel: --export - and --format " << options.format
                  << " would both write to stdout; give --export a file\n";
        return kExitUsage;
    }
    if (!options.exportFile.empty() && options.exportFile != kExportToStdout) {
        std::string why;
        if (!mayWriteExportTo(options.exportFile, &why)) {
            std::cerr << "corvel: --export: " << why << "; nothing was scanned\n";
            return kExitUsage;
        }
    }
    if (options.removal.remove && (options.format == "csv" || options.format == "fdupes")) {
        std::cerr << "corvel: --format " << options.format << " cannot be combined with --remove\n";
        return kExitUsage;
    }
    if (options.minSize && options.maxSize && *options.minSize > *options.maxSize) {
        std::cerr << "corvel: --min-size is larger than --max-size: nothing could be compared\n";
        return kExitUsage;
    }
    std::string overrideProblem;
    if (!applyRunOverrides(options.overrides, UserDefaults::standardUserDefaults(), &overrideProblem)) {
        std::cerr << "corvel: " << overrideProblem << "\n";
        return kExitUsage;
    }
    for (const auto& path : options.paths) {
        if (path.empty()) {
            // An unset variable in a script, most likely: "" would name nothing anyway.
            std::cerr << "corvel: an empty path was given\n";
            return kExitUsage;
        }
        char resolved[PATH_MAX];
        if (!::realpath(path.c_str(), resolved)) {
            // Why, in the words of the other messages ("no such file or directory", "too
            // many levels of symbolic links" for a loop, "permission denied").
            std::string why = std::strerror(errno);
            if (!why.empty())
                why[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(why[0])));
            std::cerr << "corvel: " << escapedForTerminal(path) << ": " << why << "\n";
            return kExitUsage;
        }
        struct stat st {};
        if (::stat(resolved, &st) != 0 || !S_ISDIR(st.st_mode)) {
            std::cerr << "corvel: " << escapedForTerminal(path) << ": not a folder\n";
            return kExitUsage;
        }
        roots.emplace_back(resolved);
    }
    return std::nullopt;
}

// What the scan's notifications said.
struct ScanOutcome {
    std::string refusedPath;
    std::int64_t refusedVerdict = -1;
    bool failed = false;
};

// Runs the locator's scan on its thread while this thread serves the main queue, draws
// the progress line and turns Ctrl-C into a stop request.
ScanOutcome scanWithProgress(CVDuplicatesLocator& locator, const std::vector<std::string>& roots,
                             bool showProgress) {
    MainQueue& queue = MainQueue::shared();
    queue.setMainThread();
    auto& center = NotificationCenter::defaultCenter();
    ScanOutcome outcome;
    const auto refused = [&](const Notification& n) {
        outcome.refusedPath = n.userInfo.contains("path") ? n.userInfo.at("path").toString() : std::string();
        outcome.refusedVerdict = n.userInfo.contains("verdict") ? n.userInfo.at("verdict").toInt64() : -1;
    };
    ScopedObserver system(center, center.addObserver(kDroppedFilesAreSystemNotification, nullptr, refused));
    ScopedObserver ignored(center, center.addObserver(kDroppedFilesAreIgnoredNotification, nullptr, refused));
    ScopedObserver error(center, center.addObserver(kErrorOccuredWhileScanningNotification, nullptr,
                                                    [&](const Notification&) { outcome.failed = true; }));
    std::atomic<double> percent{0};
    ScopedObserver progress(
        center, center.addObserver(kProgressUpdatedNotification, nullptr,
                                   [&](const Notification& n) { percent = n.object.toDouble(); }));

    stopOnInterrupt();
    std::optional<std::chrono::steady_clock::time_point> comparingSince;
    const auto drawProgress = [&] {
        const ScanCounters& c = locator.counters();
        ProgressFigures figures{c.stage.load(),     c.folders.load(),   c.files.load(), c.sizes.load(),
                                c.sizesDone.load(), c.bytesRead.load(), percent.load(), std::nullopt};
        if (figures.stage == ScanCounters::Comparing) {
            const auto now = std::chrono::steady_clock::now();
            if (!comparingSince)
                comparingSince = now;
            figures.left = timeLeft(figures.percent, now - *comparingSince);
        }
        const std::string text = progressLineText(figures);
        if (!text.empty())
            std::fprintf(stderr, "\r%s\033[K", text.c_str());
    };
    // At most ten times a second.
    const auto watcher = queue.scheduleRepeatingTimer(std::chrono::milliseconds(100), [&] {
        if (g_interrupted)
            locator.stopScan();
        if (showProgress)
            drawProgress();
    });
    locator.scanPaths(roots);
    queue.runUntil([&] { return !locator.isScanThreadRunning(); }, std::chrono::hours(24 * 365));
    locator.waitForScanThread();
    queue.cancelTimer(watcher);
    queue.drain();
    if (showProgress) {
        drawProgress(); // the last figures, even for a scan quicker than a tick
        std::fprintf(stderr, "\r\033[K");
    }
    return outcome;
}

// Says what kept the scan from completing; answers its exit status, or nothing when the
// results stand.
std::optional<int> reportScanProblems(const CVDuplicatesLocator& locator, const ScanOutcome& outcome,
                                      const std::vector<std::string>& roots) {
    if (outcome.refusedVerdict >= 0) {
        std::cerr << "corvel: cannot scan " << outcome.refusedPath << ": "
                  << refusalReason(outcome.refusedVerdict) << "\n";
        return kExitRefused;
    }
    if (const auto hierarchy = locator.hierarchy()) {
        reportSkippedSystemFolders(hierarchy->skippedSystemFolders());
        reportFoldersOnOtherVolumes(hierarchy->foldersOnOtherVolumes());
        reportUnread(hierarchy->incompleteFolders(), locator.unreadFiles());
        if (!g_interrupted && noRootWasRead(roots, *hierarchy)) {
            std::cerr << (roots.size() == 1 ? "corvel: the folder could not be read\n"
                                            : "corvel: none of the folders could be read\n");
            return kExitFailure;
        }
    }
    if (outcome.failed || !locator.duplicatesController()) {
        std::cerr << (g_interrupted ? "corvel: scan interrupted\n"
                                    : "corvel: none of the folders could be scanned\n");
        return kExitFailure;
    }
    if (g_interrupted) {
        std::cerr << "corvel: scan interrupted\n";
        return kExitFailure;
    }
    return std::nullopt;
}

// Marks the copies the options choose: automatic selection, keep oldest or newest, or a
// list. Answers the exit status of a bad list, or nothing.
std::optional<int> chooseCopies(CVDuplicatesController& results, const ScanOptions& options) {
    if (options.autoselect)
        autoselectAll(results);
    if (!options.keep.empty()) {
        keepOneCopyEach(results, options.keep == "newest");
        std::size_t undecided = 0;
        for (const auto& group : results.duplicatesGroups()) {
            const auto members = group->files();
            undecided += std::none_of(members.begin(), members.end(),
                                      [](const auto& file) { return file->needToRemove(); });
        }
        if (undecided > 0)
            std::cerr << "corvel: --keep " << options.keep << ": in " << undecided
                      << (undecided == 1 ? " group" : " groups") << " no copy is "
                      << (options.keep == "newest" ? "newer" : "older")
                      << " than the others to the second, or the copies to select may not be removed, "
                         "so none was selected there\n";
    }
    if (!options.selectFile.empty()) {
        std::string message;
        if (!selectListedCopies(results, options.selectFile, options.allowAllCopies, options.nullSeparated,
                                &message)) {
            std::cerr << "corvel: --select: " << message
                      << (options.removal.remove ? "; nothing was removed\n" : "\n");
            return kExitUsage;
        }
    }
    return std::nullopt;
}

// Prints the groups in the format asked for.
void printReport(const std::vector<std::string>& roots, CVDuplicatesController& results,
                 const ScanOptions& options) {
    if (options.json) {
        writeJsonReport(roots, results, stdout);
        return;
    }
    const std::string report = options.format == "csv"      ? csvReport(results)
                               : options.format == "fdupes" ? fdupesReport(results)
                                                            : textReport(results);
    std::fwrite(report.data(), 1, report.size(), stdout);
    const std::size_t folders = options.format == "fdupes" ? folderGroupsCount(results) : 0;
    if (folders > 0)
        std::cerr << "corvel: " << folders
                  << (folders == 1 ? " group of copied folders is" : " groups of copied folders are")
                  << " not in the fdupes format, which lists files only (--format text, json or csv show "
                  << (folders == 1 ? "it" : "them") << ")\n";
}

// Writes the selected copies to the --export file; answers the exit status.
int exportSelection(CVDuplicatesController& results, const ScanOptions& options) {
    const bool toStdout = options.exportFile == kExportToStdout;
    if (!options.nullSeparated) {
        // A line break inside a path would read back as two paths, one of which may be a
        // copy meant to stay: such a list is not written at all.
        const std::size_t broken = results.selectedPathsWithLineBreakCount();
        if (broken > 0) {
            std::cerr << "corvel: --export: " << broken << (broken == 1 ? " path holds" : " paths hold")
                      << " a line break, which a list of one path per line cannot keep, so nothing was "
                         "written; -0 writes the paths ended by NUL bytes, and --select -0 reads them back\n";
            return kExitFailure;
        }
    }
    CVError exportError;
    if (toStdout) {
        const std::string list = results.exportText(options.nullSeparated);
        if (std::fwrite(list.data(), 1, list.size(), stdout) != list.size() || std::fflush(stdout) != 0) {
            std::cerr << "corvel: --export -: cannot write to stdout: " << std::strerror(errno) << "\n";
            return kExitFailure;
        }
    } else if (!results.exportSelectedDupesToPath(options.exportFile, &exportError, options.nullSeparated)) {
        std::cerr << "corvel: " << exportError.localizedDescription() << "\n";
        return kExitFailure;
    }
    if (summarise(results).selectedFiles == 0)
        std::cerr << "corvel: --export: no copy was selected, so "
                  << (toStdout ? std::string("the list") : escapedForTerminal(options.exportFile))
                  << " is empty"
                  << (options.autoselect || !options.keep.empty() || !options.selectFile.empty()
                          ? "\n"
                          : " (--autoselect, --keep or --select choose copies)\n");
    return kExitOK;
}

} // namespace

int runScan(const ScanOptions& given) {
    ScanOptions options = given;
    if (options.json)
        options.format = "json";
    options.json = options.format == "json";
    if (options.verbose)
        setLogToStderr(true);
    std::vector<std::string> roots;
    if (const auto usage = checkScanRequest(options, roots))
        return *usage;
    // Kept alive to the end of the process: the command ends right after printing, and
    // tearing down the scanned tree would only cost time.
    CVDuplicatesLocator& locator = *new CVDuplicatesLocator();
    locator.setProgressPauses(false);
    locator.setMinimumSizeOverride(options.minSize);
    locator.setMaximumSizeOverride(options.maxSize);
    // What scripts read (CSV, fdupes, an export) may be fed to rm: groups compared on
    // samples are confirmed byte for byte. Folders are confirmed as they are found, so
    // that the files of folders that differ are still compared as files.
    const bool forScripts =
        options.format == "csv" || options.format == "fdupes" || !options.exportFile.empty();
    const bool confirmWhole = options.verify || forScripts;
    locator.setFoldersConfirmedWhole(confirmWhole);
    const ScanOutcome outcome = scanWithProgress(locator, roots, !options.quiet && ::isatty(STDERR_FILENO));
    if (const auto problem = reportScanProblems(locator, outcome, roots))
        return *problem;
    const auto scanned = locator.duplicatesController();
    std::shared_ptr<CVDuplicatesController> results = scanned;
    if (confirmWhole) {
        for (const auto& problem : locator.confirmationProblems())
            std::cerr << "corvel: --verify: " << problem << "\n";
        results = verifiedResults(*scanned, options.quiet);
    }
    if (const std::uint64_t hidden = locator.unremovableGroupsLeftOut(); hidden > 0)
        std::cerr << "corvel: " << hidden << (hidden == 1 ? " group was" : " groups were")
                  << " left out because you may not remove any of its copies; --show-unremovable shows "
                  << (hidden == 1 ? "it" : "them") << "\n";
    // A dry run changes nothing, the statistics and the reminder included.
    if (!options.removal.dryRun) {
        recordScanStatistics(CVStatisticsController::sharedInstance(), roots.size(), *results);
        rearmReminderAfterScan();
    }
    if (const auto bad = chooseCopies(*results, options))
        return *bad;
    if (options.removal.remove) {
        if (!options.json) {
            const std::string report = textReport(*results);
            std::fwrite(report.data(), 1, report.size(), stdout);
        }
        return removeMarkedCopies(*results, roots, options.removal, g_interrupted);
    }
    if (options.exportFile != kExportToStdout)
        printReport(roots, *results, options);
    if (!options.minSize && !CVPreferences::sharedInstance().overrideMinSizeDefining() &&
        locator.smallerSizesSkipped())
        std::cerr << "corvel: below " << sizeText(kAutomaticMinimumScanSize)
                  << " only the largest groups were looked for (automatic minimum size); --min-size 1 "
                     "compares every size\n";
    return options.exportFile.empty() ? kExitOK : exportSelection(*results, options);
}

int runRemove(const RemoveOptions& options) {
    if (options.verbose)
        setLogToStderr(true);
    MainQueue::shared().setMainThread();
    // Kept alive to the end of the process (held by a static, so that it is not a leak):
    // the pass needs its nodes to the end, and freeing them then would only cost time.
    static Plan* const kept = new Plan();
    Plan& plan = *kept;
    std::string message;
    if (!readPlan(options.plan, options.allowAllCopies, &plan, &message)) {
        std::cerr << "corvel: " << escapedForTerminal(message) << "; nothing was removed\n";
        return kExitUsage;
    }
    stopOnInterrupt();
    return removeMarkedCopies(*plan.results, plan.roots, options.removal, g_interrupted);
}

} // namespace corvel::cli
