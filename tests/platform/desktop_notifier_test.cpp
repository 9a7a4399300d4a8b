// Desktop notifications over D-Bus, captured by a fake notification service on a
// private bus (never the account's session bus).

#include <gtest/gtest.h>

#include "platform/desktop_notifier.h"
#include "platform/notification_schedule.h"
#include "support/private_session_bus.h"

namespace corvel {
namespace {

constexpr std::int64_t kNow = 1795510800;

UserNotification reminder() {
    UserNotification n;
    n.identifier = "com.halvik.corvel.cleanReminder";
    n.title = "Time to look for duplicates";
    n.informativeText = "Copies pile up again — scan your folders.";
    n.actionButtonTitle = "Scan Now";
    n.otherButtonTitle = "Later";
    n.deliveryDate = kNow - 60;
    n.deliveryRepeatInterval = CalendarInterval{0, 0, 14};
    return n;
}

class DesktopNotifications : public testing::Test {
protected:
    void SetUp() override {
        if (bus.address().empty())
            GTEST_SKIP() << "no private D-Bus daemon could be started: " << bus.why();
    }
    test::PrivateSessionBus bus;
};

TEST_F(DesktopNotifications, NotifyCarriesTheTextsAndBothButtons) {
    test::FakeNotificationServer server(bus.address());
    ASSERT_TRUE(server.ready()) << server.why();
    CVError error;
    const auto notifier = DesktopNotifier::connect(bus.address(), &error);
    ASSERT_TRUE(notifier) << error.localizedDescription();
    EXPECT_TRUE(notifier->serviceAvailable(&error)) << error.localizedDescription();
    ASSERT_TRUE(notifier->presentNotification(reminder(), &error)) << error.localizedDescription();
    EXPECT_EQ(notifier->lastNotificationId(), 1u);
    const auto seen = server.notifications();
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0].appName, "Corvel");
    EXPECT_EQ(seen[0].summary, "Time to look for duplicates");
    EXPECT_EQ(seen[0].body, "Copies pile up again — scan your folders.");
    EXPECT_EQ(seen[0].actions, (std::vector<std::string>{"scan", "Scan Now", "later", "Later"}));
}

TEST_F(DesktopNotifications, ADueReminderReachesTheServiceFromTheSchedule) {
    test::FakeNotificationServer server(bus.address());
    ASSERT_TRUE(server.ready()) << server.why();
    test::TempTree state;
    NotificationSchedule schedule(state / "corvel/reminders.json", [] { return kNow; });
    ASSERT_TRUE(schedule.scheduleNotification(reminder(), nullptr));
    CVError error;
    const auto notifier = DesktopNotifier::connect(bus.address(), &error);
    ASSERT_TRUE(notifier) << error.localizedDescription();
    std::size_t shown = 0;
    ASSERT_TRUE(schedule.deliverDueNotifications(*notifier, &shown, &error)) << error.localizedDescription();
    EXPECT_EQ(shown, 1u);
    ASSERT_EQ(server.notifications().size(), 1u);
    EXPECT_EQ(server.notifications()[0].summary, "Time to look for duplicates");
}

TEST_F(DesktopNotifications, ABusWithoutTheServiceHasNone) {
    CVError error;
    const auto notifier = DesktopNotifier::connect(bus.address(), &error);
    ASSERT_TRUE(notifier) << error.localizedDescription();
    EXPECT_FALSE(notifier->serviceAvailable(&error));
    EXPECT_NE(error.localizedDescription().find("No notification service"), std::string::npos);
    // Showing fails with the bus's answer, not silently.
    EXPECT_FALSE(notifier->presentNotification(reminder(), &error));
    EXPECT_FALSE(error.localizedDescription().empty());
}

TEST(DesktopNotifier, NoBusAtTheAddressIsAnError) {
    test::TempTree tree;
    CVError error;
    EXPECT_FALSE(DesktopNotifier::connect("unix:path=" + tree / "no-bus", &error));
    EXPECT_EQ(error.domain, kNotificationErrorDomain);
    // The test environment's session bus is a socket that does not exist either.
    EXPECT_FALSE(DesktopNotifier::connect({}, &error));
}

} // namespace
} // namespace corvel
