#include "removal_command.h"

#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <map>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

#include "engine/file_sizer.h"
#include "platform/file_io.h"
#include "platform/main_queue.h"
#include "platform/string_tables.h"
#include "platform/text_format.h"
#include "platform/trash.h"
#include "platform/user_defaults.h"
#include "removal/achievements_controller.h"
#include "removal/library_app_driver.h"
#include "removal/removal_pass.h"
#include "removal/removal_view.h"
#include "removal/statistics_controller.h"
#include "report.h"
#include "results/duplicates_controller.h"
#include "results/meta_group.h"
#include "selection/selecting_controller.h"
#include "settings/ignore_list.h"
#include "settings/preferences.h"

namespace corvel::cli {

namespace {

// Progress on a terminal; nothing else is shown while the pass runs.
class TerminalRemovalView : public CVRemovalView {
public:
    explicit TerminalRemovalView(bool show) : m_show(show) {}
    void advanceShredderAnimation(std::uint64_t handled, std::uint64_t total) override {
        if (m_show)
            std::fprintf(stderr, "\rRemoving copies… %llu of %llu", static_cast<unsigned long long>(handled),
                         static_cast<unsigned long long>(total));
    }
    void endShredderAnimations() override {
        if (m_show)
            std::fprintf(stderr, "\r\033[K");
    }

private:
    bool m_show;
};

std::string fileLine(const std::string& path) {
    return escapedForTerminal(path);
}

// The collector's summary: each group's copies that go and copies that stay, the count
// and size line, and where they go.
std::string collectorSummary(CVDuplicatesController& results, bool toTrash, std::uint64_t count,
                             std::uint64_t size) {
    std::string out;
    for (const auto& group : results.allDuplicatesGroups()) {
        const auto files = group->files();
        if (std::none_of(files.begin(), files.end(), [](const auto& f) { return f->needToRemove(); }))
            continue;
        out += CVMetaGroup::stringType(group->metaGroupType()) + ", " + sizeText(group->size()) + " each:\n";
        for (const auto& file : files)
            out +=
                std::string(file->needToRemove() ? "  goes:  " : "  stays: ") + fileLine(file->path()) + "\n";
    }
    out += plainSpaces(formatf(localizedCount("TextFieldString_DuplicatesAmountAndSize", count),
                               stringWithSize(size), static_cast<unsigned long>(count))) +
           (toTrash ? ", to the Trash\n" : ", deleted permanently\n");
    return out;
}

// Asks on the terminal; true for an answer starting with y or Y.
bool confirmed(const std::string& question) {
    std::cerr << question << " [y/N] " << std::flush;
    std::string answer;
    if (!std::getline(std::cin, answer))
        return false;
    return !answer.empty() && (answer[0] == 'y' || answer[0] == 'Y');
}

void writeRemovalJson(JsonWriter& json, const CVRemovalPass& pass,
                      const HVAchievementsController& achievements, bool dryRun) {
    json.key("removal");
    json.beginObject();
    json.key("mode");
    json.value(pass.moveToTrash() ? "trash" : "delete");
    json.key("dryRun");
    json.value(dryRun);
    json.key("stopped");
    json.value(pass.stopped());
    json.key("complete");
    json.value(pass.complete());
    json.key("markedFiles");
    json.value(pass.markedFilesAtStart());
    json.key("markedSize");
    json.value(pass.markedSizeAtStart());
    json.key("removedFiles");
    json.value(pass.removedFiles());
    json.key("removedSize");
    json.value(pass.removedSize());
    json.key("failedFiles");
    json.value(pass.errorFilesCount());
    json.key("failedSize");
    json.value(pass.failedSize());
    json.key("files");
    json.beginArray();
    for (const auto& record : pass.records()) {
        json.beginObject();
        json.key("path");
        json.value(record.file->path());
        json.key("group");
        json.value(static_cast<std::uint64_t>(record.group));
        json.key("outcome");
        json.value(CVRemovalPass::outcomeName(record.outcome));
        json.key("keptCopy");
        json.value(record.keptCopy);
        json.key("trashFile");
        json.value(record.trashFile);
        json.key("trashInfo");
        json.value(record.trashInfo);
        if (dryRun) {
            json.key("trashDirectory");
            json.value(record.trashDirectory);
        }
        json.key("error");
        json.value(record.error);
        json.endObject();
    }
    json.endArray();
    json.key("removedFolders");
    json.beginArray();
    for (const auto& folder : pass.removedFolders())
        json.value(folder);
    json.endArray();
    json.key("achievements");
    json.beginObject();
    json.key("lastTimeSize");
    json.value(achievements.lastTimeSize());
    json.key("userTotalSize");
    json.value(achievements.userTotalSize());
    json.key("level");
    json.value(achievements.userLevel());
    json.key("rank");
    json.value(achievements.userRank());
    json.endObject();
    json.endObject();
}

std::string removalTextReport(const CVRemovalPass& pass, const HVAchievementsController& achievements,
                              bool dryRun) {
    std::string out;
    for (const auto& record : pass.records()) {
        const std::string path = fileLine(record.file->path());
        switch (record.outcome) {
        case CVRemovalPass::Outcome::Trashed:
            out += "trashed " + path + "\n";
            break;
        case CVRemovalPass::Outcome::Deleted:
            out += "deleted " + path + "\n";
            break;
        case CVRemovalPass::Outcome::WouldTrash:
            out += "would trash " + path + " to " + fileLine(record.trashDirectory) + "\n";
            break;
        case CVRemovalPass::Outcome::WouldDelete:
            out += "would delete " + path + "\n";
            break;
        case CVRemovalPass::Outcome::WouldFail:
            out += "would fail: " + path + ": " + escapedForTerminal(record.error) + "\n";
            break;
        case CVRemovalPass::Outcome::NotHandled:
            out += "not handled (stopped) " + path + "\n";
            break;
        case CVRemovalPass::Outcome::Failed:
            break; // on stderr
        }
    }
    for (const auto& folder : pass.removedFolders())
        out += std::string(dryRun ? "would remove empty folder " : "removed empty folder ") +
               fileLine(folder) + "\n";
    if (dryRun) {
        out += "Dry run: nothing was changed.\n";
        return out;
    }
    if (pass.markedFilesAtStart() == 0)
        return out + "Nothing was removed.\n"; // stderr says how to choose copies
    out += "Removed " + std::to_string(pass.removedFiles()) + " of " +
           std::to_string(pass.markedFilesAtStart()) + " copies, " +
           plainSpaces(stringWithSize(pass.removedSize())) +
           (pass.moveToTrash() ? " moved to the Trash" : " deleted");
    if (pass.errorFilesCount() > 0)
        out += "; " + std::to_string(pass.errorFilesCount()) + " could not be removed (" +
               plainSpaces(stringWithSize(pass.failedSize())) + ")";
    if (pass.stopped())
        out += "; stopped";
    out += ".\n";
    if (!pass.stopped())
        out += "Saved in total: " + plainSpaces(stringWithSize(achievements.userTotalSize())) + ", level " +
               std::to_string(achievements.userLevel()) + ": " + achievements.userRank() + "\n";
    return out;
}

// Says what the pass would remove and, unless --yes or a dry run, asks on the terminal.
// Answers the exit status when nothing may be removed, or nothing to go ahead.
std::optional<int> confirmRemoval(CVDuplicatesController& results, const CVRemovalPass& pass,
                                  const RemovalOptions& options) {
    const bool toTrash = pass.moveToTrash();
    if (pass.count() == 0)
        std::cerr
            << "corvel: no copy is marked for removal: choose copies with --autoselect, --keep or --select "
               "(in a scan document, \"needToRemove\": true)\n";
    if (pass.count() == 0)
        return std::nullopt;
    if (!toTrash) {
        // Each such copy would fail its check; the run is refused before anything starts,
        // and so is its dry run, which would otherwise promise the other copies.
        std::size_t forced = 0;
        for (const auto& group : results.allDuplicatesGroups())
            forced += group->userForcedAllCopies() ? 1 : 0;
        if (forced > 0) {
            std::cerr
                << "corvel: every copy of " << forced << (forced == 1 ? " group is" : " groups are")
                << " chosen (--allow-all-copies), and such copies may only go to the Trash: remove with "
                   "--trash, or choose fewer copies; nothing was removed\n";
            return 2;
        }
    }
    if (options.dryRun)
        return std::nullopt;
    std::FILE* summaryStream = options.json ? stderr : stdout;
    const std::string summary = collectorSummary(results, toTrash, pass.count(), pass.size());
    std::fwrite(summary.data(), 1, summary.size(), summaryStream);
    std::fflush(summaryStream);
    if (options.yes)
        return std::nullopt;
    if (!::isatty(STDIN_FILENO)) {
        std::cerr << "corvel: not on a terminal: add --yes to remove the copies; nothing was removed\n";
        return 2;
    }
    const std::string size = plainSpaces(stringWithSize(pass.size()));
    const std::string question =
        toTrash
            ? formatf("Move %lu copies (%@) to the Trash?", static_cast<unsigned long>(pass.count()), size)
            : formatf("Delete %lu copies (%@) permanently?", static_cast<unsigned long>(pass.count()), size);
    if (!confirmed(question)) {
        std::cerr << "corvel: nothing was removed\n";
        return 2;
    }
    return std::nullopt;
}

} // namespace

// A listed path as the scan names it: a relative one from the working folder, with the
// symbolic links of its folder resolved (the item itself is not followed).
static std::string absoluteListedPath(const std::string& path) {
    if (path.empty() || path[0] == '/')
        return path;
    char folder[PATH_MAX];
    const std::string parent = parentPath(path);
    if (!::realpath(parent.empty() ? "." : parent.c_str(), folder))
        return path;
    return std::string(folder) + (std::string_view(folder) == "/" ? "" : "/") + lastPathComponent(path);
}

bool selectListedCopies(CVDuplicatesController& results, const std::string& listFile, bool allowAllCopies,
                        bool nulSeparated, std::string* message) {
    // A folder opens as a stream that reads nothing: it would pass for an empty list.
    if (struct stat st{}; ::stat(listFile.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) {
        *message = fileLine(listFile) + " is a folder";
        return false;
    }
    std::ifstream in(listFile, std::ios::binary);
    if (!in) {
        *message = "cannot read " + fileLine(listFile) + ": " + std::strerror(errno);
        return false;
    }
    std::map<CVGroup*, std::vector<std::shared_ptr<CVFile>>> listed;
    std::vector<std::pair<GroupPtr, std::shared_ptr<CVFile>>> toMark;
    for (std::string line; std::getline(in, line, nulSeparated ? '\0' : '\n');) {
        if (line.empty())
            continue;
        line = absoluteListedPath(line);
        auto file = results.fileAtPath(line);
        CVGroup* group = file ? file->parentGroup() : nullptr;
        if (!group) {
            *message = fileLine(line) + " is not a copy in any group found";
            return false;
        }
        if (file->removeForbidden()) {
            *message = fileLine(line) + " may not be removed";
            return false;
        }
        listed[group].push_back(file);
        toMark.emplace_back(std::static_pointer_cast<CVGroup>(group->shared_from_this()), file);
    }
    for (const auto& [group, files] : listed) {
        std::size_t marked = 0;
        for (const auto& member : group->files())
            if (member->needToRemove() || std::find(files.begin(), files.end(), member) != files.end())
                ++marked;
        if (marked < group->files().size())
            continue;
        if (!allowAllCopies) {
            *message = "the list marks every copy of the group of " +
                       fileLine(group->files().front()->path()) +
                       "; add --allow-all-copies to remove them all (to the Trash only)";
            return false;
        }
        group->setUserForcedAllCopies(true);
    }
    CVSelectingController selecting(nullptr, UserDefaults::standardUserDefaults());
    for (const auto& [group, file] : toMark)
        selecting.selectItem(file, group, true);
    MainQueue::shared().drain();
    return true;
}

int removeMarkedCopies(CVDuplicatesController& results, const std::vector<std::string>& roots,
                       const RemovalOptions& options, const std::atomic<bool>& interrupted) {
    UserDefaults& defaults = UserDefaults::standardUserDefaults();
    const bool terminal = ::isatty(STDERR_FILENO) != 0;
    TerminalRemovalView view(terminal && !options.quiet);
    Trash trash;
    LinuxLibraryAppDriver driver;
    // A dry run writes nothing, not even the total the achievements make on first use.
    std::optional<HVAchievementsController> writing;
    std::optional<HVAchievementsController> reading;
    if (options.dryRun)
        reading.emplace(HVAchievementsController::readingOnly(defaults));
    else
        writing.emplace(defaults);
    HVAchievementsController& achievements = writing ? *writing : *reading;
    CVStatisticsController statistics(defaults);
    CVRemovalPass::Options passOptions;
    passOptions.moveToTrash = options.trash;
    passOptions.removeEmptyFolders = options.removeEmptyFolders;
    passOptions.dryRun = options.dryRun;
    passOptions.tickPacing = false;
    passOptions.scanRoots = roots;
    CVRemovalPass pass({results, defaults, CVPreferences::sharedInstance(), CVIgnoreList::sharedIgnoreList(),
                        trash, driver, statistics, achievements, view},
                       passOptions);

    if (const auto declined = confirmRemoval(results, pass, options))
        return *declined;

    MainQueue& queue = MainQueue::shared();
    bool stoppedBySignal = false;
    // Looked at often: a pass moves about ten thousand small copies a second, and the
    // copies after a signal must stay.
    const auto watcher = queue.scheduleRepeatingTimer(std::chrono::milliseconds(5), [&] {
        if (interrupted && pass.shredInProgress()) {
            stoppedBySignal = true;
            pass.requestStop();
        }
    });
    pass.shreddList();
    queue.runUntil([&] { return !pass.isPassThreadRunning(); }, std::chrono::hours(24 * 365));
    pass.waitForPass();
    queue.cancelTimer(watcher);
    queue.drain();

    if (options.json) {
        writeJsonReport(roots, results, stdout, [&](JsonWriter& json) {
            writeRemovalJson(json, pass, achievements, options.dryRun);
        });
    } else {
        const std::string report = removalTextReport(pass, achievements, options.dryRun);
        std::fwrite(report.data(), 1, report.size(), stdout);
    }
    std::size_t withoutTrash = 0;
    for (const auto& record : pass.records())
        if (record.outcome == CVRemovalPass::Outcome::Failed) {
            std::cerr << "corvel: cannot remove " << fileLine(record.file->path()) << ": "
                      << escapedForTerminal(record.error) << "\n";
            // A copy of a group whose every copy is chosen may not be deleted either.
            const CVGroup* group = record.file->parentGroup();
            withoutTrash += record.noTrashOnVolume && !(group && group->userForcedAllCopies()) ? 1 : 0;
        }
    if (withoutTrash > 0)
        std::cerr << "corvel: " << withoutTrash << (withoutTrash == 1 ? " copy lies" : " copies lie")
                  << " on a volume without a Trash and stayed; --delete removes such copies permanently\n";
    std::fflush(stdout);
    if (stoppedBySignal || (interrupted && pass.stopped()))
        return kExitStoppedBySignal;
    if (options.dryRun)
        return 0;
    return pass.removedFiles() == pass.markedFilesAtStart() ? 0 : kExitNotAllRemoved;
}

} // namespace corvel::cli
