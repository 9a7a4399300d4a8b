#include "remind_command.h"

#include <ctime>
#include <iostream>
#include <memory>
#include <optional>

#include "json_writer.h"
#include "platform/desktop_notifier.h"
#include "platform/file_io.h"
#include "platform/notification_schedule.h"
#include "platform/tracker.h"
#include "platform/user_defaults.h"
#include "platform/user_paths.h"
#include "report.h"
#include "scan_command.h"
#include "settings/preferences.h"
#include "settings/scheduler.h"

namespace corvel::cli {

namespace {

// "2026-12-08 10:15", local time.
std::string localDateText(std::int64_t seconds) {
    const auto t = static_cast<std::time_t>(seconds);
    std::tm local{};
    if (!::localtime_r(&t, &local))
        return std::to_string(seconds) + " s";
    char text[64];
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M", &local);
    return text;
}

// The earliest scheduled scan reminder, if any.
const UserNotification* nextReminder(const std::vector<UserNotification>& scheduled) {
    const UserNotification* next = nullptr;
    for (const auto& n : scheduled)
        if (n.identifier == kCleanReminderIdentifier && (!next || n.deliveryDate < next->deliveryDate))
            next = &n;
    return next;
}

// An autostart entry counts unless the desktop turned it off (Hidden=true, or GNOME's
// X-GNOME-Autostart-enabled=false).
bool autostartEntryInstalled() {
    const std::string path = xdgConfigHome() + "/autostart/" + kAutostartEntryName;
    std::string text;
    RegularFileRead how;
    how.maxBytes = 1 << 20;
    if (!readRegularFile(path, text, how, nullptr))
        return false;
    for (const char* off : {"\nHidden=true", "\nX-GNOME-Autostart-enabled=false"})
        if (("\n" + text).find(off) != std::string::npos)
            return false;
    return true;
}

// "systemctl --user enable corvel-remind.timer" links it into timers.target.wants.
bool timerInstalled() {
    return pathExists(xdgConfigHome() + "/systemd/user/timers.target.wants/" + kReminderTimerName);
}

bool notificationServiceReachable() {
    const auto notifier = DesktopNotifier::connect({}, nullptr);
    return notifier && notifier->serviceAvailable(nullptr);
}

// The stored period option, read without writing or repairing the settings file;
// nothing, with the reason told, for a file that is not a settings file.
std::optional<std::uint64_t> storedOption(const std::string& settings) {
    const std::string path = settings.empty() ? UserDefaults::defaultPath() : settings;
    UserDefaults store(path, UserDefaults::FileOrigin::NamedByUser);
    if (store.fileState() == UserDefaults::FileState::NotASettingsFile) {
        std::cerr << notASettingsFileLine(settings.empty() ? "" : "--settings", path,
                                          store.fileError().localizedDescription());
        return std::nullopt;
    }
    NullTracker tracker;
    const CVPreferences preferences(store, tracker);
    return static_cast<std::uint64_t>(preferences.schedulePeriod());
}

int printStatus(const RemindOptions& options) {
    // As every other command, a damaged settings file stops here (a usage error when named).
    const std::optional<std::uint64_t> option = storedOption(options.settings);
    if (!option)
        return options.settings.empty() ? kExitFailure : kExitUsage;
    const CVSchedulePeriod period(*option);
    const std::string path = NotificationSchedule::defaultPath();
    NotificationScheduleContents contents;
    CVError error;
    if (!NotificationSchedule::readSchedule(path, contents, &error)) {
        std::cerr << "corvel: " << error.localizedDescription() << "\n";
        return kExitFailure;
    }
    const UserNotification* next = nextReminder(contents.scheduled);
    const bool autostart = autostartEntryInstalled();
    const bool timer = timerInstalled();
    const bool service = notificationServiceReachable();
    if (options.json) {
        JsonWriter json;
        json.beginObject();
        json.key("period");
        json.value(period.name());
        json.key("option");
        json.value(period.option());
        json.key("description");
        json.value(period.optionDescription());
        json.key("nextDelivery");
        if (next)
            json.value(next->deliveryDate);
        else
            json.nullValue();
        json.key("nextDeliveryText");
        if (next)
            json.value(localDateText(next->deliveryDate));
        else
            json.nullValue();
        json.key("deliveryInstalled");
        json.value(autostart || timer);
        json.key("autostartEntry");
        json.value(autostart);
        json.key("systemdTimer");
        json.value(timer);
        json.key("notificationService");
        json.value(service);
        json.key("scheduleFile");
        json.value(path);
        json.endObject();
        json.flushTo(stdout, true);
        std::fputc('\n', stdout);
        return kExitOK;
    }
    std::string out = "Scan reminder: " + period.optionDescription() + " (" + period.name() + ")\n";
    out +=
        "Next reminder: " + (next ? localDateText(next->deliveryDate) : std::string("none scheduled")) + "\n";
    std::string delivery;
    if (autostart)
        delivery = "autostart entry";
    if (timer)
        delivery += std::string(delivery.empty() ? "" : ", ") + "systemd timer";
    out += "Delivery installed: " + (delivery.empty() ? std::string("no") : "yes (" + delivery + ")") + "\n";
    out += std::string("Notification service: ") + (service ? "reachable" : "not reachable") + "\n";
    std::fwrite(out.data(), 1, out.size(), stdout);
    return kExitOK;
}

int setPeriod(const RemindOptions& options) {
    const auto option = CVSchedulePeriod::optionForName(options.every);
    if (!option) {
        std::cerr << "corvel: --every: unknown period \"" << options.every << "\" (" << periodNames(", ")
                  << ")\n";
        return kExitUsage;
    }
    CVPreferences::sharedInstance().setSchedulePeriod(static_cast<std::int64_t>(*option));
    CVError error;
    if (!UserDefaults::standardUserDefaults().synchronize(&error)) {
        std::cerr << "corvel: cannot save settings: " << error.localizedDescription() << "\n";
        return kExitFailure;
    }
    CVScheduler* scheduler = CVScheduler::sharedInstance(&error);
    if (!scheduler) {
        std::cerr << "corvel: the period is saved, but the reminder was not re-armed: "
                  << error.localizedDescription()
                  << ". It is re-armed by the next \"corvel scan\" or \"corvel remind --every\" in a desktop "
                     "session.\n";
        return kExitFailure;
    }
    scheduler->setSchedulePeriod(std::make_shared<CVSchedulePeriod>(*option));
    if (!scheduler->lastError().domain.empty())
        return kExitFailure; // told on stderr already
    const CVSchedulePeriod period(*option);
    if (*option == 0) {
        std::cout << "Scan reminders are off.\n";
        return kExitOK;
    }
    std::vector<UserNotification> scheduled;
    // A schedule that cannot be read shows no next date.
    if (!scheduler->userNotificationCenter().scheduledNotifications(scheduled, nullptr))
        scheduled.clear();
    const UserNotification* next = nextReminder(scheduled);
    std::cout << "Scan reminder: " << period.optionDescription() << "; the next one on "
              << (next ? localDateText(next->deliveryDate) : std::string("(none)")) << ".\n";
    if (!autostartEntryInstalled() && !timerInstalled())
        std::cout << "Nothing shows reminders while Corvel is not running yet: enable the systemd timer "
                     "(systemctl --user enable --now corvel-remind.timer) or the autostart entry (see "
                     "\"corvel remind --help\").\n";
    return kExitOK;
}

int deliver() {
    const std::string path = NotificationSchedule::defaultPath();
    NotificationSchedule schedule(path);
    NotificationScheduleContents contents;
    CVError error;
    if (!NotificationSchedule::readSchedule(path, contents, &error)) {
        // A damaged file is set aside (and told) by the schedule itself; one that cannot
        // be read stays and is reported.
        std::vector<UserNotification> none;
        if (!schedule.scheduledNotifications(none, &error)) {
            std::cerr << "corvel: " << error.localizedDescription() << "\n";
            return kExitFailure;
        }
        return kExitOK;
    }
    const std::int64_t now = systemSeconds();
    bool due = false;
    for (const auto& n : contents.scheduled)
        due = due || n.deliveryDate <= now;
    if (!due)
        return kExitOK;
    CVScheduler* scheduler = CVScheduler::sharedInstance(&error);
    std::unique_ptr<DesktopNotifier> notifier;
    if (scheduler)
        notifier = DesktopNotifier::connect({}, &error);
    if (!scheduler || !notifier) {
        std::cerr << "corvel: a scan reminder is due, but it cannot be shown: "
                  << error.localizedDescription() << "; it stays due\n";
        return kExitFailure;
    }
    if (scheduler->schedulePeriod()->option() == 0) {
        // Reminders were turned off where no notification service was reachable.
        scheduler->setSchedulePeriod(std::make_shared<CVSchedulePeriod>(0));
        if (!scheduler->lastError().domain.empty())
            return kExitFailure;
        std::cout
            << "Scan reminders are off (\"SchedulerInterval\" is 0): the reminder was removed, not shown.\n";
    }
    std::size_t shown = 0;
    if (!schedule.deliverDueNotifications(*notifier, &shown, &error)) {
        std::cerr << "corvel: " << error.localizedDescription() << "\n";
        return kExitFailure;
    }
    if (shown > 0) {
        std::vector<UserNotification> scheduled;
        // A schedule that cannot be read again gives no next date to show.
        if (!schedule.scheduledNotifications(scheduled, nullptr))
            scheduled.clear();
        const UserNotification* next = nextReminder(scheduled);
        std::cout << "Scan reminder shown"
                  << (next ? "; the next one on " + localDateText(next->deliveryDate) : std::string())
                  << ".\n";
    }
    return kExitOK;
}

} // namespace

std::string periodNames(const char* separator) {
    std::string names;
    for (std::uint64_t option = 0; option < CVSchedulePeriod::kOptionCount; ++option)
        names += std::string(option ? separator : "") + CVSchedulePeriod(option).name();
    return names;
}

int runRemind(const RemindOptions& options) {
    if (options.status)
        return printStatus(options);
    if (!options.every.empty())
        return setPeriod(options);
    return deliver();
}

void rearmReminderAfterScan() {
    if (CVScheduler* scheduler = CVScheduler::sharedInstance())
        scheduler->scheduleCleanReminder();
}

} // namespace corvel::cli
