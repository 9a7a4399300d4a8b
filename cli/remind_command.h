#pragma once
// "corvel remind": the scan reminder from the command line.
//   corvel remind                  shows the reminder when it is due (for an autostart
//                                  entry or a systemd user timer); nothing otherwise
//   corvel remind --every PERIOD   stores "SchedulerInterval" and re-arms the reminder
//   corvel remind --status [--json]  the period, the next reminder, whether anything
//                                  delivers it, whether a notification service is reachable
// Exit statuses: 0 done (also: nothing due), 1 a failure (no notification service when
// one is needed, a reminder file that cannot be used, settings that cannot be saved),
// 2 a usage error.

#include <string>

namespace corvel::cli {

// The files that turn delivery on, under $XDG_CONFIG_HOME.
inline constexpr const char* kAutostartEntryName = "corvel-remind.desktop";
inline constexpr const char* kReminderTimerName = "corvel-remind.timer";

struct RemindOptions {
    std::string every; // a period name; empty when not given
    bool status = false;
    bool json = false;
    std::string settings; // empty: $CORVEL_SETTINGS or the default file
};

// The period names --every accepts, in option order: "never", "weekly", ...
std::string periodNames(const char* separator);

// Runs the subcommand. For --every and for delivery the standard settings store must
// already be open on options.settings (main does that); --status reads the settings
// file without writing or repairing it.
int runRemind(const RemindOptions& options);

// After a completed scan: re-arms the reminder one period ahead, as the scan window
// does. Without a notification service it does nothing; a failure is told on stderr and
// never fails the scan.
void rearmReminderAfterScan();

} // namespace corvel::cli
