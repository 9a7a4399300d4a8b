#pragma once
// DesktopNotifier: shows notifications through the desktop's notification service,
// org.freedesktop.Notifications on the D-Bus session bus (sd-bus from libsystemd), as a
// summary (the title), a body (the informative text) and two action buttons: "scan"
// with the action button's title and "later" with the other button's. The program does
// not stay to hear which one was pressed; the service closes the notification.
//
// One connection per object; use it from one thread at a time. Calls wait at most
// kCallTimeoutSeconds for the service.

#include <cstdint>
#include <memory>
#include <string>

#include "user_notifications.h"

struct sd_bus;

namespace corvel {

inline constexpr const char* kNotificationsService = "org.freedesktop.Notifications";
inline constexpr const char* kNotificationsPath = "/org/freedesktop/Notifications";
inline constexpr const char* kNotificationsInterface = "org.freedesktop.Notifications";
// Domain of the failures the bus or the service report; the code is the errno value.
inline constexpr const char* kNotificationErrorDomain = "com.halvik.Corvel.NotificationError";

class DesktopNotifier : public NotificationPresenter {
public:
    static constexpr int kCallTimeoutSeconds = 10;
    // The action keys sent with a notification.
    static constexpr const char* kActionKey = "scan";
    static constexpr const char* kOtherKey = "later";

    // Connects to the bus at address (a D-Bus address such as "unix:path=/run/user/1000/bus"),
    // or to the session bus when address is empty ($DBUS_SESSION_BUS_ADDRESS, else
    // $XDG_RUNTIME_DIR/bus). Null with *error when no bus can be reached there.
    static std::unique_ptr<DesktopNotifier> connect(const std::string& address, CVError* error);
    ~DesktopNotifier() override;
    DesktopNotifier(const DesktopNotifier&) = delete;
    DesktopNotifier& operator=(const DesktopNotifier&) = delete;

    // True when the bus has a notification service: running, or one the bus starts on
    // demand. False with *error when the bus could not be asked.
    [[nodiscard]] bool serviceAvailable(CVError* error);

    // Sends Notify (application name "Corvel", no icon, the service's own time-out);
    // false with the service's or the bus's error.
    [[nodiscard]] bool presentNotification(const UserNotification& notification, CVError* error) override;
    // The id the service gave the last notification shown (0 before any).
    std::uint32_t lastNotificationId() const { return m_lastId; }

private:
    explicit DesktopNotifier(sd_bus* bus) : m_bus(bus) {}

    sd_bus* m_bus;
    std::uint32_t m_lastId = 0;
};

} // namespace corvel
