#include "desktop_notifier.h"

#include <cerrno>
#include <cstring>
#include <systemd/sd-bus.h>
#include <utility>

#include "app_info.h"

namespace corvel {

namespace {

constexpr std::uint64_t kCallTimeoutMicroseconds =
    static_cast<std::uint64_t>(DesktopNotifier::kCallTimeoutSeconds) * 1000 * 1000;

CVError busError(int negativeErrno, const std::string& action) {
    return CVError(kNotificationErrorDomain, -negativeErrno, action + ": " + std::strerror(-negativeErrno));
}

CVError busError(int negativeErrno, const sd_bus_error& reply, const std::string& action) {
    if (!sd_bus_error_is_set(&reply))
        return busError(negativeErrno, action);
    std::string text = action + ": " + (reply.message ? reply.message : reply.name);
    if (reply.message && reply.name)
        text += std::string(" (") + reply.name + ")";
    return CVError(kNotificationErrorDomain, -negativeErrno, text);
}

// Frees what sd-bus handed out, whatever path the function leaves by.
struct MessageRef {
    sd_bus_message* message = nullptr;
    ~MessageRef() { sd_bus_message_unref(message); }
};
struct ErrorRef {
    sd_bus_error error = SD_BUS_ERROR_NULL;
    ~ErrorRef() { sd_bus_error_free(&error); }
};

} // namespace

std::unique_ptr<DesktopNotifier> DesktopNotifier::connect(const std::string& address, CVError* error) {
    sd_bus* bus = nullptr;
    int r;
    if (address.empty()) {
        r = sd_bus_open_user(&bus);
    } else {
        r = sd_bus_new(&bus);
        if (r >= 0)
            r = sd_bus_set_address(bus, address.c_str());
        if (r >= 0)
            r = sd_bus_set_bus_client(bus, 1);
        if (r >= 0)
            r = sd_bus_start(bus);
    }
    if (r < 0) {
        sd_bus_flush_close_unref(bus);
        setError(error, busError(r, address.empty() ? "Cannot reach the session bus"
                                                    : "Cannot reach the bus at " + address));
        return nullptr;
    }
    return std::unique_ptr<DesktopNotifier>(new DesktopNotifier(bus));
}

DesktopNotifier::~DesktopNotifier() {
    sd_bus_flush_close_unref(m_bus);
}

bool DesktopNotifier::serviceAvailable(CVError* error) {
    ErrorRef failure;
    MessageRef reply;
    int r = sd_bus_call_method(m_bus, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                               "NameHasOwner", &failure.error, &reply.message, "s", kNotificationsService);
    int running = 0;
    if (r >= 0)
        r = sd_bus_message_read(reply.message, "b", &running);
    if (r < 0) {
        setError(error, busError(r, failure.error, "Cannot ask the bus for a notification service"));
        return false;
    }
    if (running)
        return true;
    MessageRef names;
    r = sd_bus_call_method(m_bus, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                           "ListActivatableNames", &failure.error, &names.message, "");
    if (r >= 0)
        r = sd_bus_message_enter_container(names.message, 'a', "s");
    const char* name = nullptr;
    while (r >= 0 && (r = sd_bus_message_read(names.message, "s", &name)) > 0)
        if (std::strcmp(name, kNotificationsService) == 0)
            return true;
    if (r < 0) {
        setError(error, busError(r, failure.error, "Cannot ask the bus for a notification service"));
        return false;
    }
    setError(error, CVError(kNotificationErrorDomain, ENOENT, "No notification service on the bus"));
    return false;
}

bool DesktopNotifier::presentNotification(const UserNotification& notification, CVError* error) {
    MessageRef call;
    int r = sd_bus_message_new_method_call(m_bus, &call.message, kNotificationsService, kNotificationsPath,
                                           kNotificationsInterface, "Notify");
    const std::string application = applicationName();
    if (r >= 0)
        r = sd_bus_message_append(call.message, "susss", application.c_str(), 0u, "",
                                  notification.title.c_str(), notification.informativeText.c_str());
    if (r >= 0)
        r = sd_bus_message_open_container(call.message, 'a', "s");
    const std::pair<const char*, const std::string*> actions[] = {
        {kActionKey, &notification.actionButtonTitle}, {kOtherKey, &notification.otherButtonTitle}};
    for (const auto& [key, title] : actions) {
        if (r < 0 || title->empty())
            continue;
        r = sd_bus_message_append(call.message, "ss", key, title->c_str());
    }
    if (r >= 0)
        r = sd_bus_message_close_container(call.message);
    if (r >= 0)
        r = sd_bus_message_append(call.message, "a{sv}i", 0, -1);
    if (r < 0) {
        setError(error, busError(r, "Cannot build the notification"));
        return false;
    }
    ErrorRef failure;
    MessageRef reply;
    r = sd_bus_call(m_bus, call.message, kCallTimeoutMicroseconds, &failure.error, &reply.message);
    std::uint32_t id = 0;
    if (r >= 0)
        r = sd_bus_message_read(reply.message, "u", &id);
    if (r < 0) {
        setError(error, busError(r, failure.error, "The notification service did not show the reminder"));
        return false;
    }
    m_lastId = id;
    return true;
}

} // namespace corvel
