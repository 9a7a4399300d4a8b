#pragma once
// User notifications: reminders the desktop shows, once or repeating. The roles here
// are what the application asks of the system's notification service:
// UserNotificationCenter keeps the schedule (notification_schedule.h on Linux),
// NotificationPresenter shows one notification now (desktop_notifier.h on Linux).

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "calendar.h"
#include "error.h"

namespace corvel {

struct UserNotification {
    // Scheduling a notification replaces a scheduled one with the same identifier.
    std::string identifier;
    std::string title;
    std::string informativeText;
    std::string actionButtonTitle;
    std::string otherButtonTitle;
    // Seconds since 1970-01-01 UTC: the first delivery of a scheduled notification.
    std::int64_t deliveryDate = 0;
    // Set for a repeating notification: after each delivery the next one is this much later.
    std::optional<CalendarInterval> deliveryRepeatInterval;
    // Set for a delivered notification: when it was shown.
    std::optional<std::int64_t> actualDeliveryDate;

    bool repeats() const { return deliveryRepeatInterval.has_value(); }
    friend bool operator==(const UserNotification&, const UserNotification&) = default;
};

// The schedule of notifications. Every call answers false and fills *error when the
// schedule cannot be read or written; what was there stays.
class UserNotificationCenter {
public:
    virtual ~UserNotificationCenter() = default;

    [[nodiscard]] virtual bool scheduledNotifications(std::vector<UserNotification>& out, CVError* error) = 0;
    // Adds the notification, replacing a scheduled one with the same identifier.
    [[nodiscard]] virtual bool scheduleNotification(const UserNotification& notification, CVError* error) = 0;
    // Removes the scheduled notifications with that identifier (none: nothing changes).
    [[nodiscard]] virtual bool removeScheduledNotification(const std::string& identifier, CVError* error) = 0;
    // The notifications shown so far (the latest of each identifier).
    [[nodiscard]] virtual bool deliveredNotifications(std::vector<UserNotification>& out, CVError* error) = 0;
    [[nodiscard]] virtual bool removeDeliveredNotification(const std::string& identifier, CVError* error) = 0;
};

// Shows a notification on the desktop now, with its action button.
class NotificationPresenter {
public:
    virtual ~NotificationPresenter() = default;
    [[nodiscard]] virtual bool presentNotification(const UserNotification& notification, CVError* error) = 0;
};

// The current time in whole seconds since 1970-01-01 UTC; tests give their own.
using SecondsClock = std::function<std::int64_t()>;
std::int64_t systemSeconds();

} // namespace corvel
