#pragma once
// ReminderScheduling: what the rest of the application asks of the scan reminder. The
// scheduler implements it; controllers hold a pointer that may be null when the desktop
// has no notification service, and then simply skip the call. Main thread.

namespace corvel {

class ReminderScheduling {
public:
    virtual ~ReminderScheduling() = default;

    // Re-arms the one repeating reminder with the stored period (at application start).
    virtual void rescheduleExistingReminder() = 0;

    // Pushes the reminder one full period into the future (a finished scan, a new scan
    // after a removal). With the period "Never" it only clears the reminder.
    virtual void scheduleCleanReminder() = 0;
};

} // namespace corvel
