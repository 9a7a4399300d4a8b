#include <climits>
#include <gtest/gtest.h>

#include "platform/file_io.h"
#include "platform/notification_schedule.h"
#include "platform/system_log.h"
#include "platform/user_defaults.h"
#include "settings/preferences.h"
#include "settings/scheduler.h"
#include "support/private_session_bus.h"
#include "support/recording_tracker.h"
#include "support/temp_tree.h"

namespace corvel {
namespace {

constexpr std::int64_t kNow = 1795510800; // 2026-11-24 09:00 UTC
constexpr std::int64_t kDay = 86400;

// The schedule in memory; counts the calls and fails every call when told to.
struct MemoryCenter : UserNotificationCenter {
    std::vector<UserNotification> scheduled;
    std::vector<UserNotification> delivered;
    int calls = 0;
    bool fail = false;

    bool failed(CVError* error) {
        ++calls;
        if (fail)
            setError(error, CVError("test", 5, "the schedule cannot be written"));
        return fail;
    }
    bool scheduledNotifications(std::vector<UserNotification>& out, CVError* error) override {
        if (failed(error))
            return false;
        out = scheduled;
        return true;
    }
    bool scheduleNotification(const UserNotification& n, CVError* error) override {
        if (failed(error))
            return false;
        std::erase_if(scheduled, [&](const UserNotification& s) { return s.identifier == n.identifier; });
        scheduled.push_back(n);
        return true;
    }
    bool removeScheduledNotification(const std::string& identifier, CVError* error) override {
        if (failed(error))
            return false;
        std::erase_if(scheduled, [&](const UserNotification& s) { return s.identifier == identifier; });
        return true;
    }
    bool deliveredNotifications(std::vector<UserNotification>& out, CVError* error) override {
        if (failed(error))
            return false;
        out = delivered;
        return true;
    }
    bool removeDeliveredNotification(const std::string& identifier, CVError* error) override {
        if (failed(error))
            return false;
        std::erase_if(delivered, [&](const UserNotification& s) { return s.identifier == identifier; });
        return true;
    }
};

UserNotification other(std::string identifier, bool repeating) {
    UserNotification n;
    n.identifier = std::move(identifier);
    n.title = "another notification";
    n.deliveryDate = kNow + kDay;
    if (repeating)
        n.deliveryRepeatInterval = CalendarInterval{0, 0, 1};
    return n;
}

std::int64_t after(std::int64_t date, const CalendarInterval& interval) {
    std::int64_t result = 0;
    EXPECT_TRUE(addCalendarInterval(date, interval, &result));
    return result;
}

class Scheduler : public testing::Test {
protected:
    test::TempTree folder;
    UserDefaults defaults{folder / "settings.plist"};
    test::RecordingTracker tracker;
    CVPreferences preferences{defaults, tracker};
    MemoryCenter center;
    std::int64_t now = kNow;

    std::unique_ptr<CVScheduler> make() {
        return std::make_unique<CVScheduler>(center, preferences, [this] { return now; });
    }
    std::vector<UserNotification> repeating() const {
        std::vector<UserNotification> out;
        for (const auto& n : center.scheduled)
            if (n.repeats())
                out.push_back(n);
        return out;
    }
};

TEST_F(Scheduler, ThePeriodIsTheStoredOption) {
    EXPECT_EQ(make()->schedulePeriod()->option(), 2u) << "the registered default";
    preferences.setSchedulePeriod(3);
    EXPECT_EQ(make()->schedulePeriod()->option(), 3u);
    defaults.setObject(PropertyValue("weekly"), kSchedulerIntervalKey);
    EXPECT_EQ(make()->schedulePeriod()->option(), 2u) << "a value of the wrong type reads as the default";
}

TEST_F(Scheduler, SettingTheSamePeriodObjectAgainDoesNothing) {
    const auto scheduler = make();
    const auto same = scheduler->schedulePeriod();
    scheduler->setSchedulePeriod(same);
    EXPECT_EQ(center.calls, 0);
    EXPECT_TRUE(center.scheduled.empty());
    // Not even when the object was changed in place: the object is the same.
    same->setOption(0);
    center.scheduled.push_back(other("kept", true));
    scheduler->setSchedulePeriod(same);
    EXPECT_EQ(center.calls, 0);
    EXPECT_EQ(center.scheduled.size(), 1u);
}

TEST_F(Scheduler, ANewPeriodObjectWithTheSameOptionReArms) {
    const auto scheduler = make();
    scheduler->scheduleCleanReminder();
    ASSERT_EQ(center.scheduled.size(), 1u);
    now += 5 * kDay;
    scheduler->setSchedulePeriod(std::make_shared<CVSchedulePeriod>(2));
    ASSERT_EQ(center.scheduled.size(), 1u);
    EXPECT_EQ(center.scheduled[0].deliveryDate, after(now, {0, 0, 14}));
}

TEST_F(Scheduler, AtMostOneRepeatingReminderAndOneOffsStay) {
    center.scheduled = {other("someone-elses-repeating", true), other("one-off", false)};
    const auto scheduler = make();
    scheduler->scheduleCleanReminder();
    scheduler->rescheduleExistingReminder();
    scheduler->scheduleCleanReminder();
    const auto reminders = repeating();
    ASSERT_EQ(reminders.size(), 1u);
    EXPECT_EQ(reminders[0].identifier, kCleanReminderIdentifier);
    EXPECT_EQ(center.scheduled.size(), 2u);
    EXPECT_EQ(center.scheduled[0].identifier, "one-off");
}

class EveryPeriod : public Scheduler, public testing::WithParamInterface<std::uint64_t> {};

TEST_P(EveryPeriod, DeliveryIsOnePeriodAfterEachReArm) {
    const CVSchedulePeriod period(GetParam());
    preferences.setSchedulePeriod(static_cast<std::int64_t>(GetParam()));
    const auto scheduler = make();
    for (const std::int64_t later : {std::int64_t{0}, 3 * kDay, 40 * kDay}) {
        now = kNow + later;
        scheduler->scheduleCleanReminder();
        ASSERT_EQ(center.scheduled.size(), 1u);
        const UserNotification& reminder = center.scheduled[0];
        EXPECT_EQ(reminder.deliveryDate, after(now, period.repeatInterval())) << "re-armed at +" << later;
        EXPECT_GT(reminder.deliveryDate, now);
        EXPECT_EQ(reminder.deliveryRepeatInterval, period.repeatInterval());
    }
    const UserNotification& reminder = center.scheduled[0];
    EXPECT_EQ(reminder.identifier, kCleanReminderIdentifier);
    EXPECT_EQ(reminder.title, "Time to look for duplicates");
    EXPECT_EQ(reminder.informativeText,
              "Copies pile up again over time. Scan your folders to find the duplicates that take up space.");
    EXPECT_EQ(reminder.actionButtonTitle, "Scan Now");
    EXPECT_EQ(reminder.otherButtonTitle, "Later");
}

INSTANTIATE_TEST_SUITE_P(Options, EveryPeriod, testing::Values(1u, 2u, 3u, 4u, 5u, 6u));

TEST_F(Scheduler, OptionZeroClearsRepeatingOnesAndKeepsOneOffs) {
    const auto scheduler = make();
    scheduler->scheduleCleanReminder();
    center.scheduled.push_back(other("one-off", false));
    center.scheduled.push_back(other("repeating", true));
    UserNotification shownRepeating = other("shown-repeating", true);
    UserNotification shownOnce = other("shown-once", false);
    shownRepeating.actualDeliveryDate = shownOnce.actualDeliveryDate = kNow;
    center.delivered = {shownRepeating, shownOnce};

    scheduler->setSchedulePeriod(std::make_shared<CVSchedulePeriod>(0));
    ASSERT_EQ(center.scheduled.size(), 1u);
    EXPECT_EQ(center.scheduled[0].identifier, "one-off");
    ASSERT_EQ(center.delivered.size(), 1u);
    EXPECT_EQ(center.delivered[0].identifier, "shown-once");
    // A re-arm with the period "Never" only clears.
    scheduler->scheduleCleanReminder();
    EXPECT_EQ(center.scheduled.size(), 1u);
    EXPECT_TRUE(scheduler->lastError().domain.empty());
}

TEST_F(Scheduler, OptionsAboveSixScheduleAThousandYearsAhead) {
    const auto scheduler = make();
    scheduler->setSchedulePeriod(std::make_shared<CVSchedulePeriod>(9));
    ASSERT_EQ(center.scheduled.size(), 1u);
    const std::int64_t date = center.scheduled[0].deliveryDate;
    EXPECT_EQ(date, after(now, {1000, 0, 0}));
    EXPECT_GT(date, now + kDay * 365 * 999);
    EXPECT_GT(date, std::int64_t{UINT32_MAX}) << "beyond 32-bit seconds";
}

TEST_F(Scheduler, TheDeliveryDateIsNowWhenTheCalendarCannotAdd) {
    const auto scheduler = make();
    EXPECT_EQ(scheduler->calculateDeliveryDate({std::int64_t{1} << 40, 0, 0}), now);
    EXPECT_EQ(scheduler->calculateDeliveryDate({0, 0, 14}), after(now, {0, 0, 14}));
}

TEST_F(Scheduler, AFailureIsToldAndKeptUntilTheNextSuccess) {
    const auto scheduler = make();
    center.fail = true;
    ScopedLogCapture log;
    scheduler->scheduleCleanReminder();
    EXPECT_EQ(scheduler->lastError().code, 5);
    EXPECT_TRUE(log.contains("Cannot arrange the scan reminder: the schedule cannot be written"));
    center.fail = false;
    scheduler->scheduleCleanReminder();
    EXPECT_TRUE(scheduler->lastError().domain.empty());
    EXPECT_EQ(center.scheduled.size(), 1u);
}

TEST(SchedulerOnTheDesktop, IsAbsentWithoutANotificationService) {
    test::TempTree folder;
    UserDefaults defaults{folder / "settings.plist"};
    test::RecordingTracker tracker;
    CVPreferences preferences{defaults, tracker};
    CVError why;
    EXPECT_FALSE(CVScheduler::createForDesktop("unix:path=" + folder / "no-bus", folder / "reminders.json",
                                               preferences, systemSeconds, &why));
    EXPECT_FALSE(why.localizedDescription().empty());
    // The test environment has no session bus: the shared scheduler is absent, and says why.
    EXPECT_EQ(CVScheduler::sharedInstance(&why), nullptr);
    EXPECT_NE(why.localizedDescription().find("session bus"), std::string::npos)
        << why.localizedDescription();

    test::PrivateSessionBus bus;
    if (bus.address().empty())
        GTEST_SKIP() << "no private D-Bus daemon could be started: " << bus.why();
    EXPECT_FALSE(CVScheduler::createForDesktop(bus.address(), folder / "reminders.json", preferences,
                                               systemSeconds, &why))
        << "a bus without a notification service";
    EXPECT_NE(why.localizedDescription().find("No notification service"), std::string::npos);
    EXPECT_FALSE(pathExists(folder / "reminders.json"));
}

TEST(SchedulerOnTheDesktop, ArmsTheScheduleFileWhenAServiceIsThere) {
    test::PrivateSessionBus bus;
    if (bus.address().empty())
        GTEST_SKIP() << "no private D-Bus daemon could be started: " << bus.why();
    test::FakeNotificationServer server(bus.address());
    ASSERT_TRUE(server.ready()) << server.why();
    test::TempTree folder;
    UserDefaults defaults{folder / "settings.plist"};
    test::RecordingTracker tracker;
    CVPreferences preferences{defaults, tracker};
    preferences.setSchedulePeriod(3);
    CVError why;
    const auto scheduler = CVScheduler::createForDesktop(
        bus.address(), folder / "state/reminders.json", preferences, [] { return kNow; }, &why);
    ASSERT_TRUE(scheduler) << why.localizedDescription();
    scheduler->rescheduleExistingReminder();
    EXPECT_TRUE(scheduler->lastError().domain.empty()) << scheduler->lastError().localizedDescription();
    NotificationScheduleContents contents;
    ASSERT_TRUE(NotificationSchedule::readSchedule(folder / "state/reminders.json", contents, &why));
    ASSERT_EQ(contents.scheduled.size(), 1u);
    EXPECT_EQ(contents.scheduled[0].deliveryRepeatInterval, (CalendarInterval{0, 1, 0}));
    EXPECT_EQ(contents.scheduled[0].deliveryDate, after(kNow, {0, 1, 0}));
    EXPECT_TRUE(server.notifications().empty()) << "arming shows nothing";
}

} // namespace
} // namespace corvel
