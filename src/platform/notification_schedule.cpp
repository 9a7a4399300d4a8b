#include "notification_schedule.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <nlohmann/json.hpp>
#include <sys/file.h>
#include <unistd.h>

#include "file_io.h"
#include "system_log.h"
#include "unique_fd.h"
#include "user_paths.h"

namespace corvel {

namespace {

using Json = nlohmann::json;

constexpr int kFormat = 1;
// Far above any schedule this program writes; a larger file is not ours.
constexpr std::size_t kMaxScheduleBytes = std::size_t{4} * 1024 * 1024;
// A temporary this old is no live writer's (see removeStaleTemporaries).
constexpr std::chrono::seconds kStaleTemporaryAge{60};
// Steps a repeating notification may take to pass now (a weekly one missed for a
// thousand years takes about 52,000); beyond, it restarts from now.
constexpr int kMaxRepeatSteps = 100000;

[[nodiscard]] bool readInteger(const Json& object, const char* key, std::int64_t& out, std::string* reason) {
    const auto it = object.find(key);
    if (it == object.end() || !it->is_number_integer() ||
        (it->is_number_unsigned() && it->get<std::uint64_t>() > static_cast<std::uint64_t>(INT64_MAX))) {
        *reason = std::string("\"") + key + "\" is not a whole number of seconds";
        return false;
    }
    out = it->get<std::int64_t>();
    return true;
}

[[nodiscard]] bool readText(const Json& object, const char* key, bool required, std::string& out,
                            std::string* reason) {
    const auto it = object.find(key);
    if (it == object.end() && !required)
        return true;
    if (it == object.end() || !it->is_string()) {
        *reason = std::string("\"") + key + "\" is not a text";
        return false;
    }
    out = it->get<std::string>();
    return true;
}

[[nodiscard]] bool readInterval(const Json& value, CalendarInterval& out, std::string* reason) {
    if (!value.is_object()) {
        *reason = "\"repeatInterval\" is not an object";
        return false;
    }
    for (auto [key, field] : {std::pair{"years", &out.years}, {"months", &out.months}, {"days", &out.days}}) {
        if (!value.contains(key))
            continue;
        if (!readInteger(value, key, *field, reason))
            return false;
        if (*field < 0) {
            *reason = "a repeat interval goes backwards";
            return false;
        }
    }
    if (out == CalendarInterval{}) {
        *reason = "a repeat interval of nothing";
        return false;
    }
    return true;
}

[[nodiscard]] bool readNotification(const Json& value, bool delivered, UserNotification& out,
                                    std::string* reason) {
    if (!value.is_object()) {
        *reason = "a notification is not an object";
        return false;
    }
    if (!readText(value, "identifier", true, out.identifier, reason) ||
        !readText(value, "title", true, out.title, reason) ||
        !readText(value, "informativeText", false, out.informativeText, reason) ||
        !readText(value, "actionButtonTitle", false, out.actionButtonTitle, reason) ||
        !readText(value, "otherButtonTitle", false, out.otherButtonTitle, reason) ||
        !readInteger(value, "deliveryDate", out.deliveryDate, reason))
        return false;
    if (const auto it = value.find("repeatInterval"); it != value.end()) {
        CalendarInterval interval;
        if (!readInterval(*it, interval, reason))
            return false;
        out.deliveryRepeatInterval = interval;
    }
    if (delivered) {
        std::int64_t shown = 0;
        if (!readInteger(value, "actualDeliveryDate", shown, reason))
            return false;
        out.actualDeliveryDate = shown;
    }
    return true;
}

[[nodiscard]] bool readList(const Json& root, const char* key, bool delivered,
                            std::vector<UserNotification>& out, std::string* reason) {
    const auto it = root.find(key);
    if (it == root.end())
        return true;
    if (!it->is_array()) {
        *reason = std::string("\"") + key + "\" is not a list";
        return false;
    }
    for (const auto& value : *it) {
        UserNotification notification;
        if (!readNotification(value, delivered, notification, reason))
            return false;
        out.push_back(std::move(notification));
    }
    return true;
}

Json notificationJson(const UserNotification& n) {
    Json out = Json::object();
    out["identifier"] = n.identifier;
    out["title"] = n.title;
    out["informativeText"] = n.informativeText;
    out["actionButtonTitle"] = n.actionButtonTitle;
    out["otherButtonTitle"] = n.otherButtonTitle;
    out["deliveryDate"] = n.deliveryDate;
    if (n.deliveryRepeatInterval)
        out["repeatInterval"] = Json{{"years", n.deliveryRepeatInterval->years},
                                     {"months", n.deliveryRepeatInterval->months},
                                     {"days", n.deliveryRepeatInterval->days}};
    if (n.actualDeliveryDate)
        out["actualDeliveryDate"] = *n.actualDeliveryDate;
    return out;
}

// Records a delivery: the latest of each identifier, at most kDeliveredKept in all.
void recordDelivery(std::vector<UserNotification>& delivered, UserNotification shown) {
    std::erase_if(delivered, [&](const UserNotification& n) { return n.identifier == shown.identifier; });
    delivered.push_back(std::move(shown));
    if (delivered.size() > NotificationSchedule::kDeliveredKept)
        delivered.erase(delivered.begin(),
                        delivered.begin() + static_cast<std::ptrdiff_t>(
                                                delivered.size() - NotificationSchedule::kDeliveredKept));
}

// The first date of a repeating notification after now, from its last delivery date;
// nothing when the calendar cannot add its interval.
std::optional<std::int64_t> nextDeliveryAfter(std::int64_t date, const CalendarInterval& interval,
                                              std::int64_t now) {
    std::int64_t next = date;
    for (int step = 0; step < kMaxRepeatSteps && next <= now; ++step) {
        std::int64_t later = 0;
        if (!addCalendarInterval(next, interval, &later) || later <= next)
            return std::nullopt;
        next = later;
    }
    if (next > now)
        return next;
    std::int64_t fromNow = 0;
    if (!addCalendarInterval(now, interval, &fromNow) || fromNow <= now)
        return std::nullopt;
    return fromNow;
}

CVError scheduleError(const std::string& path, const std::string& what) {
    CVError error(kCorvelFileErrorDomain, EINVAL, "The reminder file " + path + " " + what);
    error.userInfo[kFilePathErrorKey] = path;
    return error;
}

} // namespace

std::string NotificationSchedule::defaultPath() {
    return xdgStateHome() + "/corvel/reminders.json";
}

NotificationSchedule::NotificationSchedule(std::string path, SecondsClock clock)
    : m_path(std::move(path)), m_clock(std::move(clock)) {}

std::string NotificationSchedule::encodeSchedule(const NotificationScheduleContents& contents) {
    Json root = Json::object();
    root["format"] = kFormat;
    root["scheduled"] = Json::array();
    for (const auto& n : contents.scheduled)
        root["scheduled"].push_back(notificationJson(n));
    root["delivered"] = Json::array();
    for (const auto& n : contents.delivered)
        root["delivered"].push_back(notificationJson(n));
    // Texts come from the string tables; a byte that is not UTF-8 becomes U+FFFD instead
    // of failing the write.
    return root.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

bool NotificationSchedule::decodeSchedule(std::string_view text, NotificationScheduleContents& out,
                                          std::string* reason) {
    std::string ignored;
    if (!reason)
        reason = &ignored;
    const Json root = Json::parse(text.begin(), text.end(), nullptr, false);
    if (root.is_discarded()) {
        *reason = "is not JSON";
        return false;
    }
    if (!root.is_object()) {
        *reason = "is not a schedule (no object at the top)";
        return false;
    }
    std::int64_t format = 0;
    if (!readInteger(root, "format", format, reason) || format != kFormat) {
        *reason = "has no schedule format this program reads";
        return false;
    }
    NotificationScheduleContents contents;
    if (!readList(root, "scheduled", false, contents.scheduled, reason) ||
        !readList(root, "delivered", true, contents.delivered, reason)) {
        *reason = "is not a schedule: " + *reason;
        return false;
    }
    out = std::move(contents);
    return true;
}

bool NotificationSchedule::readSchedule(const std::string& path, NotificationScheduleContents& out,
                                        CVError* error) {
    std::string text;
    CVError readError;
    RegularFileRead how;
    how.maxBytes = kMaxScheduleBytes;
    if (!readRegularFile(path, text, how, &readError)) {
        if (readError.domain == kPosixErrorDomain && readError.code == ENOENT) {
            out = {};
            return true;
        }
        setError(error, readError);
        return false;
    }
    std::string reason;
    if (!decodeSchedule(text, out, &reason)) {
        setError(error, scheduleError(path, reason));
        return false;
    }
    return true;
}

bool NotificationSchedule::update(const std::function<bool(NotificationScheduleContents&)>& change,
                                  CVError* error) {
    if (!makeDirectories(parentPath(m_path), error))
        return false;
    const std::string lockPath = m_path + ".lock";
    const UniqueFd lock(::open(lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!lock.valid()) {
        setError(error, posixError(errno, lockPath, "Cannot open"));
        return false;
    }
    while (::flock(lock.get(), LOCK_EX) != 0)
        if (errno != EINTR) {
            setError(error, posixError(errno, lockPath, "Cannot lock"));
            return false;
        }
    for (const auto& removed : removeStaleTemporaries(m_path, kStaleTemporaryAge))
        systemLog("Removed " + removed + ", left by a run that ended while writing it");

    NotificationScheduleContents contents;
    std::string text;
    CVError readError;
    RegularFileRead how;
    how.maxBytes = kMaxScheduleBytes;
    if (readRegularFile(m_path, text, how, &readError)) {
        std::string reason;
        if (!decodeSchedule(text, contents, &reason)) {
            const std::string aside = setAsideDamagedFile(m_path);
            if (aside.empty()) {
                CVError failure =
                    scheduleError(m_path, reason + ", and could not be renamed aside (" +
                                              posixError(errno, m_path, "").localizedDescription() +
                                              "); it is left as it is");
                setError(error, failure);
                return false;
            }
            warnUser("The reminder file " + m_path + " " + reason + "; it was renamed to " + aside +
                     " and the reminders start afresh");
            contents = {};
        }
    } else if (!(readError.domain == kPosixErrorDomain && readError.code == ENOENT)) {
        CVError failure = readError;
        failure.userInfo[kLocalizedDescriptionKey] =
            "Cannot use the reminder file: " + readError.localizedDescription() + "; it is left as it is";
        setError(error, failure);
        return false;
    }
    if (!change(contents))
        return true;
    return saveFile(m_path, encodeSchedule(contents), error);
}

bool NotificationSchedule::scheduledNotifications(std::vector<UserNotification>& out, CVError* error) {
    return update(
        [&](NotificationScheduleContents& contents) {
            out = contents.scheduled;
            return false;
        },
        error);
}

bool NotificationSchedule::scheduleNotification(const UserNotification& notification, CVError* error) {
    return update(
        [&](NotificationScheduleContents& contents) {
            std::erase_if(contents.scheduled,
                          [&](const UserNotification& n) { return n.identifier == notification.identifier; });
            UserNotification scheduled = notification;
            scheduled.actualDeliveryDate.reset();
            contents.scheduled.push_back(std::move(scheduled));
            return true;
        },
        error);
}

bool NotificationSchedule::removeScheduledNotification(const std::string& identifier, CVError* error) {
    return update(
        [&](NotificationScheduleContents& contents) {
            return std::erase_if(contents.scheduled,
                                 [&](const UserNotification& n) { return n.identifier == identifier; }) > 0;
        },
        error);
}

bool NotificationSchedule::deliveredNotifications(std::vector<UserNotification>& out, CVError* error) {
    return update(
        [&](NotificationScheduleContents& contents) {
            out = contents.delivered;
            return false;
        },
        error);
}

bool NotificationSchedule::removeDeliveredNotification(const std::string& identifier, CVError* error) {
    return update(
        [&](NotificationScheduleContents& contents) {
            return std::erase_if(contents.delivered,
                                 [&](const UserNotification& n) { return n.identifier == identifier; }) > 0;
        },
        error);
}

bool NotificationSchedule::deliverDueNotifications(NotificationPresenter& presenter, std::size_t* delivered,
                                                   CVError* error) {
    std::size_t shown = 0;
    bool presented = true;
    CVError failure;
    const bool updated = update(
        [&](NotificationScheduleContents& contents) {
            const std::int64_t now = m_clock();
            std::vector<std::size_t> due;
            for (std::size_t i = 0; i < contents.scheduled.size(); ++i)
                if (contents.scheduled[i].deliveryDate <= now)
                    due.push_back(i);
            std::stable_sort(due.begin(), due.end(), [&](std::size_t a, std::size_t b) {
                return contents.scheduled[a].deliveryDate < contents.scheduled[b].deliveryDate;
            });
            std::vector<bool> leaves(contents.scheduled.size(), false);
            for (const std::size_t i : due) {
                UserNotification& n = contents.scheduled[i];
                CVError presentError;
                if (!presenter.presentNotification(n, &presentError)) {
                    if (presented)
                        failure = presentError;
                    presented = false;
                    continue;
                }
                ++shown;
                UserNotification record = n;
                record.actualDeliveryDate = now;
                recordDelivery(contents.delivered, std::move(record));
                if (!n.deliveryRepeatInterval) {
                    leaves[i] = true;
                    continue;
                }
                if (const auto next = nextDeliveryAfter(n.deliveryDate, *n.deliveryRepeatInterval, now)) {
                    n.deliveryDate = *next;
                } else {
                    systemLog("The reminder \"" + n.identifier +
                              "\" cannot be moved on by its interval; it is not repeated");
                    leaves[i] = true;
                }
            }
            std::vector<UserNotification> staying;
            for (std::size_t i = 0; i < contents.scheduled.size(); ++i)
                if (!leaves[i])
                    staying.push_back(std::move(contents.scheduled[i]));
            contents.scheduled = std::move(staying);
            return shown > 0;
        },
        error);
    if (delivered)
        *delivered = shown;
    if (!updated)
        return false;
    if (!presented) {
        setError(error, failure);
        return false;
    }
    return true;
}

} // namespace corvel
