#pragma once
// CVScheduler: keeps exactly one repeating scan reminder scheduled with the
// user-notification centre, pushed one period into the future each time it is re-armed
// (application start, a finished scan, a new scan after a removal). The period is the
// preference "SchedulerInterval" (a CVSchedulePeriod option); option 0 clears it.
//
// Scheduling a reminder first removes every repeating notification, scheduled or
// delivered (one-off notifications stay), then, unless the option is 0, schedules the
// reminder ("SpecificTools_CleanReminder_*" texts, action and other button) with its
// first delivery one period from now and the period as its repeat interval.
//
// The ReminderScheduling calls answer nothing: a failure (a reminder file that cannot
// be read or written) is told to the user (warnUser) and kept in lastError. Main thread.

#include <memory>
#include <string>

#include "platform/user_notifications.h"
#include "reminder_scheduling.h"
#include "schedule_period.h"

namespace corvel {

class CVPreferences;

inline constexpr const char* kCleanReminderIdentifier = "com.halvik.corvel.cleanReminder";

class CVScheduler : public ReminderScheduling {
public:
    // The process's scheduler, made on first use on the shared preferences and the
    // schedule file under $XDG_STATE_HOME/corvel; null (for the whole run) when no
    // desktop notification service is reachable on the session bus, with the reason in
    // *why (when given).
    static CVScheduler* sharedInstance(CVError* why = nullptr);
    // A scheduler on the schedule file at schedulePath, or null with *why when the bus
    // at busAddress (empty: the session bus) has no notification service.
    static std::unique_ptr<CVScheduler> createForDesktop(const std::string& busAddress,
                                                         const std::string& schedulePath,
                                                         CVPreferences& preferences,
                                                         const SecondsClock& clock = systemSeconds,
                                                         CVError* why = nullptr);

    // Reads "SchedulerInterval" into a new schedulePeriod. The centre must outlive it.
    CVScheduler(UserNotificationCenter& center, CVPreferences& preferences,
                SecondsClock clock = systemSeconds);
    ~CVScheduler() override;

    const std::shared_ptr<CVSchedulePeriod>& schedulePeriod() const { return m_schedulePeriod; }
    // Nothing when period is the current object (or null). Otherwise stores it, then
    // re-arms the reminder for a non-zero option and clears the repeating ones for 0.
    // The caller stores the option under "SchedulerInterval" itself.
    void setSchedulePeriod(std::shared_ptr<CVSchedulePeriod> period);

    void rescheduleExistingReminder() override;
    void scheduleCleanReminder() override;

    // Clears the repeating notifications and, for a non-zero option, schedules the reminder.
    [[nodiscard]] bool scheduleNotificationForPeriod(const CVSchedulePeriod& period, CVError* error);
    // Removes every scheduled, then every delivered, notification that repeats.
    [[nodiscard]] bool removePreviouslyScheduledNotifications(CVError* error);
    // Now plus the components in the user's calendar; now itself when that fails.
    std::int64_t calculateDeliveryDate(const CalendarInterval& components) const;

    // What the last call failed with; an empty domain when it succeeded.
    const CVError& lastError() const { return m_lastError; }
    UserNotificationCenter& userNotificationCenter() { return m_center; }

private:
    void remember(bool succeeded, const CVError& error);

    std::unique_ptr<UserNotificationCenter> m_ownedCenter;
    UserNotificationCenter& m_center;
    SecondsClock m_clock;
    std::shared_ptr<CVSchedulePeriod> m_schedulePeriod;
    CVError m_lastError;

    CVScheduler(std::unique_ptr<UserNotificationCenter> center, CVPreferences& preferences,
                SecondsClock clock);
};

} // namespace corvel
