#pragma once
// NotificationSchedule: the user-notification centre on Linux. The scheduled and the
// delivered notifications live in a file of our own, by default
// $XDG_STATE_HOME/corvel/reminders.json; the desktop's notification service only shows
// them (a NotificationPresenter) when deliverDueNotifications finds them due, which the
// running application and "corvel remind" (from an autostart entry or a systemd user
// timer) call.
//
// The file is JSON: {"format": 1, "scheduled": [N, ...], "delivered": [N, ...]}, each N
// {"identifier", "title", "informativeText", "actionButtonTitle", "otherButtonTitle",
// "deliveryDate", "repeatInterval": {"years", "months", "days"} (repeating ones),
// "actualDeliveryDate" (delivered ones)}; dates are integer seconds since 1970 UTC in
// 64 bits, so a reminder a thousand years ahead keeps its date.
//
// Every call reads the file, changes it and writes it back whole with saveFile, holding
// an exclusive lock (flock on "<file>.lock" beside it), so the application, a timer's
// "corvel remind" and a "corvel scan" never undo each other's changes or deliver one
// reminder twice. What a call finds:
// - no file: an empty schedule; the first change creates the file (its folders 0700);
// - a file that cannot be read (permissions, I/O error) or is not a regular file (a
//   folder, a fifo, a device, a link to nothing): the call fails with a message naming
//   it, and the file is never written;
// - a file that is not a schedule (not JSON, another shape, a date that is not a 64-bit
//   integer, a repeat interval that does not move forward): it is renamed beside itself
//   ("<file>.corrupt-YYYYMMDD-HHMMSS", see setAsideDamagedFile), the user is told
//   (warnUser) and the schedule starts empty. One that cannot be renamed is treated as
//   unreadable.
// Calls may come from any thread; each holds the lock for its whole read-change-write.

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "user_notifications.h"

namespace corvel {

struct NotificationScheduleContents {
    std::vector<UserNotification> scheduled;
    std::vector<UserNotification> delivered;
    friend bool operator==(const NotificationScheduleContents&,
                           const NotificationScheduleContents&) = default;
};

class NotificationSchedule : public UserNotificationCenter {
public:
    // How many delivered notifications the file keeps (the latest ones).
    static constexpr std::size_t kDeliveredKept = 32;

    // $XDG_STATE_HOME/corvel/reminders.json (~/.local/state when XDG_STATE_HOME is unset).
    static std::string defaultPath();

    explicit NotificationSchedule(std::string path, SecondsClock clock = systemSeconds);

    const std::string& path() const { return m_path; }

    [[nodiscard]] bool scheduledNotifications(std::vector<UserNotification>& out, CVError* error) override;
    [[nodiscard]] bool scheduleNotification(const UserNotification& notification, CVError* error) override;
    [[nodiscard]] bool removeScheduledNotification(const std::string& identifier, CVError* error) override;
    [[nodiscard]] bool deliveredNotifications(std::vector<UserNotification>& out, CVError* error) override;
    [[nodiscard]] bool removeDeliveredNotification(const std::string& identifier, CVError* error) override;

    // Shows each scheduled notification whose delivery date has come (at or before now),
    // earliest first, through the presenter. A repeating one moves on by its interval, in
    // the user's calendar, to its first date after now and stays scheduled; a one-off one
    // leaves the schedule. Each one shown is recorded as delivered. One the presenter
    // could not show stays scheduled as it was, still due; the answer is then false with
    // the first such failure in *error. *delivered (when given) counts those shown.
    [[nodiscard]] bool deliverDueNotifications(NotificationPresenter& presenter, std::size_t* delivered,
                                               CVError* error);

    // Reads the schedule at path and changes nothing (no lock, no folder made, a damaged
    // file left where it is): a missing file is an empty schedule; an unreadable or
    // damaged one answers false with the reason.
    [[nodiscard]] static bool readSchedule(const std::string& path, NotificationScheduleContents& out,
                                           CVError* error);

    // The file's text for the contents, and the contents of a text (false with the
    // reason in *reason when the text is not a schedule).
    static std::string encodeSchedule(const NotificationScheduleContents& contents);
    [[nodiscard]] static bool decodeSchedule(std::string_view text, NotificationScheduleContents& out,
                                             std::string* reason);

private:
    // Under the lock: reads the contents (setting a damaged file aside), hands them to
    // change, and writes them back when change answers true.
    [[nodiscard]] bool update(const std::function<bool(NotificationScheduleContents&)>& change,
                              CVError* error);

    std::string m_path;
    SecondsClock m_clock;
};

} // namespace corvel
