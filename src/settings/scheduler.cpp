#include "scheduler.h"

#include "platform/desktop_notifier.h"
#include "platform/notification_schedule.h"
#include "platform/string_tables.h"
#include "platform/system_log.h"
#include "preferences.h"

namespace corvel {

CVScheduler* CVScheduler::sharedInstance(CVError* why) {
    static CVError absence;
    static const std::unique_ptr<CVScheduler> instance = [] {
        auto scheduler = createForDesktop({}, NotificationSchedule::defaultPath(),
                                          CVPreferences::sharedInstance(), systemSeconds, &absence);
        if (!scheduler)
            systemLog("No scan reminders: " + absence.localizedDescription());
        return scheduler;
    }();
    if (!instance)
        setError(why, absence);
    return instance.get();
}

std::unique_ptr<CVScheduler> CVScheduler::createForDesktop(const std::string& busAddress,
                                                           const std::string& schedulePath,
                                                           CVPreferences& preferences,
                                                           const SecondsClock& clock, CVError* why) {
    const auto notifier = DesktopNotifier::connect(busAddress, why);
    if (!notifier || !notifier->serviceAvailable(why))
        return nullptr;
    return std::unique_ptr<CVScheduler>(
        new CVScheduler(std::make_unique<NotificationSchedule>(schedulePath, clock), preferences, clock));
}

CVScheduler::CVScheduler(std::unique_ptr<UserNotificationCenter> center, CVPreferences& preferences,
                         SecondsClock clock)
    : CVScheduler(*center, preferences, std::move(clock)) {
    m_ownedCenter = std::move(center);
}

CVScheduler::CVScheduler(UserNotificationCenter& center, CVPreferences& preferences, SecondsClock clock)
    : m_center(center), m_clock(std::move(clock)),
      m_schedulePeriod(
          std::make_shared<CVSchedulePeriod>(static_cast<std::uint64_t>(preferences.schedulePeriod()))) {}

CVScheduler::~CVScheduler() = default;

void CVScheduler::remember(bool succeeded, const CVError& error) {
    m_lastError = succeeded ? CVError() : error;
    if (!succeeded)
        warnUser("Cannot arrange the scan reminder: " + error.localizedDescription());
}

void CVScheduler::setSchedulePeriod(std::shared_ptr<CVSchedulePeriod> period) {
    if (!period || period == m_schedulePeriod)
        return;
    m_schedulePeriod = std::move(period);
    if (m_schedulePeriod->option() != 0) {
        rescheduleExistingReminder();
        return;
    }
    CVError error;
    const bool removed = removePreviouslyScheduledNotifications(&error);
    remember(removed, error);
}

void CVScheduler::rescheduleExistingReminder() {
    scheduleCleanReminder();
}

void CVScheduler::scheduleCleanReminder() {
    CVError error;
    const bool scheduled = scheduleNotificationForPeriod(*m_schedulePeriod, &error);
    remember(scheduled, error);
}

bool CVScheduler::scheduleNotificationForPeriod(const CVSchedulePeriod& period, CVError* error) {
    if (!removePreviouslyScheduledNotifications(error))
        return false;
    if (period.option() == 0)
        return true;
    UserNotification reminder;
    reminder.identifier = kCleanReminderIdentifier;
    reminder.title = localized("SpecificTools_CleanReminder_Title");
    reminder.informativeText = localized("SpecificTools_CleanReminder_Subtitle_Simple");
    reminder.actionButtonTitle = localized("SpecificTools_CleanReminder_ActionButton");
    reminder.otherButtonTitle = localized("SpecificTools_CleanReminder_OtherButton");
    const CalendarInterval interval = period.repeatInterval();
    reminder.deliveryDate = calculateDeliveryDate(interval);
    reminder.deliveryRepeatInterval = interval;
    return m_center.scheduleNotification(reminder, error);
}

bool CVScheduler::removePreviouslyScheduledNotifications(CVError* error) {
    std::vector<UserNotification> notifications;
    if (!m_center.scheduledNotifications(notifications, error))
        return false;
    for (const auto& notification : notifications)
        if (notification.repeats() && !m_center.removeScheduledNotification(notification.identifier, error))
            return false;
    notifications.clear();
    if (!m_center.deliveredNotifications(notifications, error))
        return false;
    for (const auto& notification : notifications)
        if (notification.repeats() && !m_center.removeDeliveredNotification(notification.identifier, error))
            return false;
    return true;
}

std::int64_t CVScheduler::calculateDeliveryDate(const CalendarInterval& components) const {
    const std::int64_t now = m_clock();
    std::int64_t date = now;
    return addCalendarInterval(now, components, &date) ? date : now;
}

} // namespace corvel
