// corvel: the command line. "corvel scan [options] PATH..." finds duplicates and
// prints them as text or JSON; see scan_command.h for the exit statuses. "corvel stats"
// prints the statistics kept in the settings.

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <iostream>

#include "platform/app_info.h"
#include "platform/system_log.h"
#include "platform/user_defaults.h"
#include "scan_command.h"
#include "stats_command.h"

int main(int argc, char** argv) {
    using namespace corvel;
    CLI::App app{"Corvel finds duplicate files and folders.", "corvel"};
    app.set_version_flag("--version", applicationName() + " " + applicationVersion());
    app.require_subcommand(1);

    cli::ScanOptions options;
    std::string settings;
    CLI::App* scan = app.add_subcommand("scan", "scan the folders; print the duplicate groups");
    scan->add_option("paths", options.paths, "folders to scan")->required();
    scan->add_flag("--json", options.json, "one JSON document on stdout");
    scan->add_option("--min-size", options.minSize,
                     "hard minimum size in bytes (default: the stored preferences)");
    scan->add_flag("--autoselect", options.autoselect,
                   "run automatic selection on every group before printing");
    scan->add_option("--export", options.exportFile, "write the list of selected copies to FILE");
    scan->add_option("--settings", settings, "use FILE as the settings store (created when missing)");
    auto* quiet = scan->add_flag("--quiet", options.quiet, "no progress");
    scan->add_flag("--verbose", options.verbose, "diagnostic lines on stderr too")->excludes(quiet);

    cli::StatsOptions statsOptions;
    CLI::App* stats = app.add_subcommand("stats", "the scans recorded, the total size saved, level and rank");
    stats->add_flag("--json", statsOptions.json, "one JSON document on stdout");
    stats->add_option("--settings", statsOptions.settings, "read FILE as the settings store (never written)");

    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& e) {
        return app.exit(e);
    } catch (const CLI::ParseError& e) {
        app.exit(e);
        return cli::kExitUsage;
    }
    // What the user must know about the settings (a file left alone or set aside, a value
    // of the wrong type, a bad ignore pattern) is said on stderr, whatever --verbose says.
    setUserWarningPresenter([](const std::string& line) { std::cerr << "corvel: " << line << "\n"; });
    if (stats->parsed())
        return cli::runStats(statsOptions);
    if (!settings.empty())
        UserDefaults::setStandardPath(settings);
    UserDefaults& store = UserDefaults::standardUserDefaults();
    if (store.fileState() == UserDefaults::FileState::NotASettingsFile &&
        store.fileOrigin() == UserDefaults::FileOrigin::NamedByUser) {
        // A typo or the wrong file: nothing is scanned and the file stays as it is.
        std::cerr << "corvel: " << (settings.empty() ? "CORVEL_SETTINGS" : "--settings") << ": "
                  << store.path() << " is not a settings file (" << store.fileError().localizedDescription()
                  << "); it was left as it is\n";
        return cli::kExitUsage;
    }
    const int status = cli::runScan(options);
    CVError error;
    if (!store.isReadOnly() && !store.synchronize(&error))
        std::cerr << "corvel: cannot save settings: " << error.localizedDescription() << "\n";
    // Everything is written and saved; tearing down a tree of a million nodes would only
    // cost time, so the process ends here.
    std::cout.flush();
    std::fflush(nullptr);
    std::_Exit(status);
}
