// corvel: the command line. "corvel scan [options] PATH..." finds duplicates and
// prints them as text or JSON; see scan_command.h for the exit statuses. "corvel stats"
// prints the statistics kept in the settings; "corvel remind" shows or sets the scan
// reminder (remind_command.h).

#include <CLI/CLI.hpp>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <optional>

#include "platform/app_info.h"
#include "platform/process_limits.h"
#include "platform/resources.h"
#include "platform/system_log.h"
#include "platform/user_defaults.h"
#include "remind_command.h"
#include "report.h"
#include "scan_command.h"
#include "settings/schedule_period.h"
#include "size_argument.h"
#include "stats_command.h"

namespace corvel::cli {
namespace {

// The removal options, shared by "scan --remove" and "remove".
struct RemovalFlags {
    bool trash = false, erase = false, removeEmpty = false, keepEmpty = false;
};

// What the parse fills in, and the subcommands it was read into.
struct CommandLine {
    CLI::App app{"Corvel finds duplicate files and folders.", "corvel"};
    ScanOptions options;
    std::string settings;
    RemovalFlags scanFlags;
    RemoveOptions removeOptions;
    RemovalFlags removeFlags;
    std::string removeSettings;
    StatsOptions statsOptions;
    RemindOptions remindOptions;
    CLI::App* scan = nullptr;
    CLI::App* remove = nullptr;
    CLI::App* stats = nullptr;
    CLI::App* remind = nullptr;
};

// A file name may not be empty: it comes from an unset variable in a script, most
// likely, and would otherwise be dropped or, for --settings, mean the user's own file.
CLI::Validator namedFile(const std::string& note = {}) {
    return CLI::Validator(
        [note](const std::string& text) {
            return text.empty() ? "an empty file name" + (note.empty() ? std::string() : " (" + note + ")")
                                : std::string();
        },
        "");
}

void addSettingsOption(CLI::App* command, std::string& value, const std::string& description) {
    command->add_option("--settings", value, description)
        ->check(namedFile("without --settings the default file is used"))
        ->type_name("FILE");
}

// Sizes take decimal suffixes as the sizes shown do (10k = 10,000 bytes) and binary ones
// when asked (1MiB = 1,048,576 bytes).
void addSizeOption(CLI::App* command, const std::string& name, std::optional<std::uint64_t>& value,
                   const std::string& description) {
    const CLI::Validator bytes(
        [](std::string& text) {
            const auto size = parseByteSize(text);
            if (!size)
                return "not a size: " + text +
                       " (a whole number of bytes, optionally with k, M, G, T or KiB, MiB, GiB, TiB)";
            text = std::to_string(*size);
            return std::string();
        },
        "");
    command->add_option(name, value, description)->transform(bytes)->type_name("SIZE");
}

void addRemovalOptions(CLI::App* command, RemovalOptions& removal, RemovalFlags& flags, CLI::Option* needed) {
    auto* trash = command->add_flag("--trash", flags.trash, "move the copies to the Trash (this run)");
    auto* erase = command->add_flag("--delete", flags.erase, "delete the copies permanently (this run)");
    trash->excludes(erase);
    auto* removeEmpty = command->add_flag("--remove-empty-folders", flags.removeEmpty,
                                          "remove folders the removal leaves empty (this run)");
    auto* keepEmpty =
        command->add_flag("--keep-empty-folders", flags.keepEmpty, "keep emptied folders (this run)");
    removeEmpty->excludes(keepEmpty);
    auto* dryRun = command->add_flag("-n,--dry-run", removal.dryRun,
                                     "say what would become of each copy; change nothing");
    auto* yes = command->add_flag("-y,--yes", removal.yes, "remove without asking");
    if (needed)
        for (auto* option : {trash, erase, removeEmpty, keepEmpty, dryRun, yes})
            option->needs(needed);
}

// What the scan compares and how it chooses.
void addScanFilters(CLI::App* scan, ScanOptions& options, CLI::Option* autoselect) {
    scan->add_option("--keep", options.keep,
                     "select every copy but the oldest (or newest) of each group, instead of --autoselect")
        ->check(CLI::IsMember({"oldest", "newest"}))
        ->type_name("oldest|newest")
        ->excludes(autoselect);
    scan->add_option("--exclude", options.overrides.excludes,
                     "leave out files and folders whose name (or, with a /, whose path) matches GLOB; "
                     "repeatable; this run only")
        ->allow_extra_args(false)
        ->type_name("GLOB");
    scan->add_option("--exclude-from", options.overrides.excludeFrom,
                     "the --exclude globs in FILE, one per line")
        ->check(namedFile())
        ->type_name("FILE");
    scan->add_option("--always-select", options.overrides.alwaysSelect,
                     "automatic selection selects the copies in DIR (repeatable; this run only)")
        ->allow_extra_args(false)
        ->type_name("DIR")
        ->needs(autoselect);
    scan->add_option("--never-select", options.overrides.neverSelect,
                     "automatic selection never selects the copies in DIR (repeatable; this run only)")
        ->allow_extra_args(false)
        ->type_name("DIR")
        ->needs(autoselect);
    scan->add_flag(
        "--show-unremovable", options.overrides.showUnremovable,
        "also show groups whose copies you cannot remove (a read-only disk, another user's files)");
}

// How the scan shows and hands over what it found.
void addScanOutputs(CLI::App* scan, ScanOptions& options, CLI::Option* json, std::string& settings) {
    scan->add_option("--format", options.format,
                     "how stdout shows the groups (--json is --format json); csv, fdupes and --export first "
                     "confirm groups compared on samples byte for byte, as --verify does")
        ->check(CLI::IsMember({"text", "json", "csv", "fdupes"}))
        ->type_name("text|json|csv|fdupes")
        ->excludes(json);
    scan->add_option(
            "--export", options.exportFile,
            "write the list of selected copies to FILE (- writes it to stdout instead of the groups)")
        ->check(namedFile())
        ->type_name("FILE");
    scan->add_flag("-0,--null", options.nullSeparated,
                   "--export writes and --select reads paths each ended by a NUL byte, not a line "
                   "(names may hold line feeds)");
    addSettingsOption(scan, settings, "use FILE as the settings store (created when missing)");
    auto* quiet = scan->add_flag("--quiet", options.quiet, "no progress");
    scan->add_flag("--verbose", options.verbose, "diagnostic lines on stderr too")->excludes(quiet);
    scan->add_flag("--verify", options.verify,
                   "confirm groups compared on samples byte for byte; split or drop those that differ");
    auto* select = scan->add_option("--select", options.selectFile,
                                    "mark the copies listed in FILE (one path per line, the --export format)")
                       ->check(namedFile())
                       ->type_name("FILE");
    scan->add_flag("--allow-all-copies", options.allowAllCopies,
                   "let --select mark every copy of a group (they may then only go to the Trash)")
        ->needs(select);
}

void addScanCommand(CommandLine& line) {
    ScanOptions& options = line.options;
    CLI::App* scan = line.app.add_subcommand("scan", "scan the folders; print the duplicate groups");
    line.scan = scan;
    scan->add_option("paths", options.paths, "folders to scan")->required()->type_name("PATH");
    auto* json = scan->add_flag("--json", options.json, "one JSON document on stdout");
    addSizeOption(scan, "--min-size", options.minSize,
                  "compare only files and folders of at least SIZE bytes (500k, 10M, 1GiB). Without it the "
                  "stored preferences decide; by default (automatic) sizes from 50 kB, then the 100 largest "
                  "groups below");
    addSizeOption(scan, "--max-size", options.maxSize,
                  "compare only files and folders of at most SIZE bytes");
    auto* autoselect = scan->add_flag("--autoselect", options.autoselect,
                                      "run automatic selection on every group before printing");
    addScanFilters(scan, options, autoselect);
    addScanOutputs(scan, options, json, line.settings);
    auto* remove =
        scan->add_flag("--remove", options.removal.remove, "remove the marked copies after the scan");
    addRemovalOptions(scan, options.removal, line.scanFlags, remove);
    scan->footer("Sizes: a number of bytes with an optional suffix: k, M, G, T (powers of 1000) or\n"
                 "KiB, MiB, GiB, TiB (powers of 1024); 500k = 500,000 bytes.");
}

void addRemoveCommand(CommandLine& line) {
    RemoveOptions& removeOptions = line.removeOptions;
    CLI::App* removeCommand = line.app.add_subcommand(
        "remove", "remove the copies marked in a document written by \"corvel scan --json\"");
    removeCommand->add_option("plan", removeOptions.plan, "the scan document (PLAN.json)")
        ->required()
        ->check(namedFile())
        ->type_name("PLAN.json");
    removeCommand->add_flag("--allow-all-copies", removeOptions.allowAllCopies,
                            "let the plan mark every copy of a group (they may then only go to the Trash)");
    removeCommand->add_flag("--json", removeOptions.removal.json, "one JSON document on stdout");
    addSettingsOption(removeCommand, line.removeSettings, "use FILE as the settings store");
    auto* removeQuiet = removeCommand->add_flag("--quiet", removeOptions.removal.quiet, "no progress");
    removeCommand->add_flag("--verbose", removeOptions.verbose, "diagnostic lines on stderr too")
        ->excludes(removeQuiet);
    addRemovalOptions(removeCommand, removeOptions.removal, line.removeFlags, nullptr);

    line.remove = removeCommand;
}

void addStatsCommand(CommandLine& line) {
    line.stats = line.app.add_subcommand("stats", "the scans recorded, the total size saved, level and rank");
    line.stats->add_flag("--json", line.statsOptions.json, "one JSON document on stdout");
    addSettingsOption(line.stats, line.statsOptions.settings,
                      "read FILE as the settings store (never written)");
}

void addRemindCommand(CommandLine& line) {
    RemindOptions& remindOptions = line.remindOptions;
    CLI::App* remind = line.remind = line.app.add_subcommand(
        "remind", "show the scan reminder when it is due; set its period or show its state");
    std::vector<std::string> periods;
    for (std::uint64_t option = 0; option < CVSchedulePeriod::kOptionCount; ++option)
        periods.emplace_back(CVSchedulePeriod(option).name());
    auto* every = remind->add_option("--every", remindOptions.every,
                                     "remind every PERIOD (" + periodNames(", ") +
                                         "): store it as the setting \"SchedulerInterval\" and re-arm the "
                                         "reminder one period from now; never turns reminders off");
    every->type_name("PERIOD")->check(CLI::IsMember(periods));
    auto* remindStatus = remind->add_flag(
        "--status", remindOptions.status,
        "print the period, the next reminder, whether an autostart entry or a systemd timer delivers it, "
        "and whether a desktop notification service is reachable");
    remind->add_flag("--json", remindOptions.json, "with --status: one JSON document on stdout")
        ->needs(remindStatus);
    every->excludes(remindStatus);
    addSettingsOption(remind, remindOptions.settings,
                      "use FILE as the settings store (--every writes the period there)");
    remind->footer("Without options, shows the reminder as a desktop notification when it is due and does "
                   "nothing otherwise. A finished \"corvel scan\" re-arms it one period ahead. To have it "
                   "shown while Corvel is not running, turn on one of the two deliveries \"make install\" "
                   "installs:\n  systemctl --user enable --now corvel-remind.timer\n"
                   "  mkdir -p ~/.config/autostart && cp " +
                   resourcePath("autostart/corvel-remind.desktop") + " ~/.config/autostart/");
}

void addFooter(CLI::App& app) {
    app.footer(R"(Exit status:
  0  the scan completed (duplicates or not); every marked copy removed, or a dry run
  1  a failure: no folder could be read, the scan was interrupted
  2  a usage error: an unknown option, a bad size, a path that does not exist; a removal
     not confirmed, or refused before it started (--delete with every copy of a group chosen)
  3  a folder refused by the ignore list (a protected system folder, a hidden folder)
  4  some marked copies could not be removed (each is named on stderr)
  130  a removal stopped by Ctrl-C

Examples:
  corvel scan ~/Pictures ~/Downloads             look: print the duplicate groups
  corvel scan --min-size 1 --json ~/Music > music.json
  corvel scan --autoselect --export chosen.txt ~/Documents
                                                 choose: the copies automatic selection picks
  corvel scan --autoselect --remove --dry-run ~/Documents
                                                 remove: what would go, then without --dry-run)");
}

// Runs the parsed command; answers its exit status.
int runCommand(CommandLine& line) {
    ScanOptions& options = line.options;
    RemoveOptions& removeOptions = line.removeOptions;
    RemindOptions& remindOptions = line.remindOptions;
    std::string& settings = line.settings;
    // Without its resources a run would go on blind (a scan without the ignore list enters
    // the protected system folders), so a missing one stops every command here.
    if (std::string problem; !checkResources(resourceDirectory(), &problem)) {
        std::cerr << "corvel: " << problem
                  << "; reinstall corvel or set CORVEL_RESOURCES to its share/corvel folder\n";
        return kExitFailure;
    }
    // What the user must know about the settings (a file left alone or set aside, a value
    // of the wrong type, a bad ignore pattern) is said on stderr, whatever --verbose says.
    setUserWarningPresenter([](const std::string& text) { std::cerr << "corvel: " << text << "\n"; });
    if (line.stats->parsed())
        return runStats(line.statsOptions);
    const bool reminding = line.remind->parsed();
    if (reminding && remindOptions.status)
        return runRemind(remindOptions);
    const bool removing = line.remove->parsed();
    RemovalOptions& removal = removing ? removeOptions.removal : options.removal;
    const RemovalFlags& flags = removing ? line.removeFlags : line.scanFlags;
    if (flags.trash || flags.erase)
        removal.trash = flags.trash;
    if (flags.removeEmpty || flags.keepEmpty)
        removal.removeEmptyFolders = flags.removeEmpty;
    if (reminding) {
        settings = remindOptions.settings;
    } else if (removing) {
        removal.remove = true;
        settings = line.removeSettings;
    } else {
        removal.json = options.json;
        removal.quiet = options.quiet;
    }
    if (!settings.empty())
        UserDefaults::setStandardPath(settings);
    UserDefaults& store = UserDefaults::standardUserDefaults();
    if (store.fileState() == UserDefaults::FileState::NotASettingsFile &&
        store.fileOrigin() == UserDefaults::FileOrigin::NamedByUser) {
        // A typo or the wrong file: nothing is scanned and the file stays as it is.
        std::cerr << notASettingsFileLine(settings.empty() ? "CORVEL_SETTINGS" : "--settings", store.path(),
                                          store.fileError().localizedDescription());
        return kExitUsage;
    }
    const int status = reminding  ? runRemind(remindOptions)
                       : removing ? runRemove(removeOptions)
                                  : runScan(options);
    CVError error;
    // A dry run leaves the settings file as it was.
    if (!removal.dryRun && !store.isReadOnly() && !store.synchronize(&error))
        std::cerr << "corvel: cannot save settings: " << error.localizedDescription() << "\n";
    // Everything is written and saved; tearing down a tree of a million nodes would only
    // cost time, so the process ends here.
    std::cout.flush();
    std::fflush(nullptr);
    std::_Exit(status);
}

// Prints what the command line could not take; answers the usage exit status. A missing
// command or path is told only when nothing was mistyped: an unknown option or command is
// the likelier cause, and naming it says what to fix.
int reportUsageError(CommandLine& line, const CLI::ParseError& e) {
    const auto unexpected = line.app.remaining(true);
    const bool commandGiven =
        !line.app.get_subcommands([](const CLI::App* sub) { return sub->parsed(); }).empty();
    if (dynamic_cast<const CLI::RequiredError*>(&e) == nullptr || (unexpected.empty() && commandGiven)) {
        line.app.exit(e);
        return kExitUsage;
    }
    if (!commandGiven && (unexpected.empty() || unexpected.front().starts_with('-')))
        std::cerr << "corvel: a command is required first (scan, remove, stats or remind)\n";
    else if (!commandGiven)
        std::cerr << "corvel: " << unexpected.front()
                  << " is not a command (scan, remove, stats or remind)\n";
    else
        std::cerr << "corvel: not understood: " << unexpected.front() << "\n";
    std::cerr << "Run with --help for more information.\n";
    return kExitUsage;
}

} // namespace
} // namespace corvel::cli

// NOLINTNEXTLINE(bugprone-exception-escape): an exception out of here is a bug; terminate shows where.
int main(int argc, char** argv) {
    using namespace corvel::cli;
    corvel::raiseOpenFileLimit();
    CommandLine line;
    line.app.set_version_flag("--version", corvel::applicationName() + " " + corvel::applicationVersion());
    line.app.require_subcommand(1);
    line.app.failure_message([](const CLI::App* app, const CLI::Error& e) {
        return "corvel: " + CLI::FailureMessage::simple(app, e);
    });
    addScanCommand(line);
    addRemoveCommand(line);
    addStatsCommand(line);
    addFooter(line.app);
    addRemindCommand(line);
    try {
        line.app.parse(argc, argv);
    } catch (const CLI::Success& e) {
        return line.app.exit(e);
    } catch (const CLI::ParseError& e) {
        return reportUsageError(line, e);
    }
    return runCommand(line);
}
