// End-to-end: "corvel remind" and the re-arm after "corvel scan", with the state and
// configuration folders in a scratch home and, where a notification service is needed,
// a private bus with a fake service (never the account's own session bus).

#include <filesystem>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>

#include "corvel_runner.h"
#include "platform/notification_schedule.h"
#include "platform/property_list.h"
#include "settings/preferences.h"
#include "settings/scheduler.h"
#include "support/private_session_bus.h"

namespace corvel {
namespace {

namespace fs = std::filesystem;
using test::shellQuoted;

constexpr std::int64_t kDay = 86400;

class CorvelRemind : public testing::Test {
protected:
    test::TempTree home;
    std::string settingsFile = home / "settings.plist";
    std::string scheduleFile = home / ".local/state/corvel/reminders.json";

    std::string settings() const { return " --settings " + shellQuoted(settingsFile); }
    test::CorvelOutcome corvel(const std::string& arguments, const std::string& environment = {}) const {
        return test::runCorvel(arguments, home, environment);
    }
    void writeSettings(const PropertyValue::Dictionary& values) const {
        home.file("settings.plist", propertyListData(PropertyValue(values), PropertyListFormat::XML));
    }
    PropertyValue storedInterval() const {
        PropertyValue root;
        if (!readPropertyListFile(settingsFile, root, nullptr))
            return {};
        return root[kSchedulerIntervalKey];
    }
    NotificationScheduleContents schedule() const {
        NotificationScheduleContents contents;
        CVError error;
        EXPECT_TRUE(NotificationSchedule::readSchedule(scheduleFile, contents, &error))
            << error.localizedDescription();
        return contents;
    }
    // A scan reminder due a minute ago, repeating every two weeks.
    void writeDueReminder() const {
        NotificationScheduleContents contents;
        UserNotification n;
        n.identifier = kCleanReminderIdentifier;
        n.title = "Time to look for duplicates";
        n.informativeText = "Copies pile up again over time.";
        n.actionButtonTitle = "Scan Now";
        n.otherButtonTitle = "Later";
        n.deliveryDate = systemSeconds() - 60;
        n.deliveryRepeatInterval = CalendarInterval{0, 0, 14};
        contents.scheduled = {n};
        home.file(".local/state/corvel/reminders.json", NotificationSchedule::encodeSchedule(contents));
    }
};

// The same, with a private bus and a fake notification service on it.
class CorvelRemindOnADesktop : public CorvelRemind {
protected:
    void SetUp() override {
        if (bus.address().empty())
            GTEST_SKIP() << "no private D-Bus daemon could be started: " << bus.why();
        server = std::make_unique<test::FakeNotificationServer>(bus.address());
        ASSERT_TRUE(server->ready()) << server->why();
    }
    std::string desktop() const { return "DBUS_SESSION_BUS_ADDRESS='" + bus.address() + "' "; }

    test::PrivateSessionBus bus;
    std::unique_ptr<test::FakeNotificationServer> server;
};

TEST_F(CorvelRemind, EveryStoresThePeriodAndSaysWhenNothingCanBeArmed) {
    const auto run = corvel("remind --every weekly" + settings());
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.err.find("the period is saved, but the reminder was not re-armed"), std::string::npos)
        << run.err;
    EXPECT_EQ(storedInterval().toInt64(), 1);
    EXPECT_FALSE(fs::exists(scheduleFile));
}

TEST_F(CorvelRemind, UsageErrorsChangeNothing) {
    for (const char* arguments :
         {"remind --every daily", "remind --json", "remind --every weekly --status"}) {
        const auto run = corvel(std::string(arguments) + settings());
        EXPECT_EQ(run.status, 2) << arguments << ": " << run.err;
        EXPECT_FALSE(fs::exists(settingsFile)) << arguments;
    }
}

TEST_F(CorvelRemind, NothingDueNeedsNoNotificationService) {
    const auto run = corvel("remind" + settings());
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, "");
}

TEST_F(CorvelRemind, ADueReminderWithoutAServiceStaysDue) {
    writeDueReminder();
    const std::string before = test::TempTree::read(scheduleFile);
    const auto run = corvel("remind" + settings());
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.err.find("it stays due"), std::string::npos) << run.err;
    EXPECT_EQ(test::TempTree::read(scheduleFile), before);
}

TEST_F(CorvelRemind, StatusTellsThePeriodTheNextReminderAndTheDelivery) {
    writeSettings({{kSchedulerIntervalKey, 5}});
    writeDueReminder();
    const std::int64_t due = schedule().scheduled[0].deliveryDate;
    auto status = [&] {
        const auto run = corvel("remind --status --json" + settings());
        EXPECT_EQ(run.status, 0) << run.err;
        return nlohmann::json::parse(run.out);
    };
    auto json = status();
    EXPECT_EQ(json["period"], "half-yearly");
    EXPECT_EQ(json["option"], 5);
    EXPECT_EQ(json["description"], "Every six months");
    EXPECT_EQ(json["nextDelivery"], due);
    EXPECT_EQ(json["deliveryInstalled"], false);
    EXPECT_EQ(json["notificationService"], false);

    home.file(".config/autostart/corvel-remind.desktop", "[Desktop Entry]\nExec=corvel remind\n");
    json = status();
    EXPECT_EQ(json["autostartEntry"], true);
    EXPECT_EQ(json["deliveryInstalled"], true);
    home.file(".config/autostart/corvel-remind.desktop",
              "[Desktop Entry]\nExec=corvel remind\nHidden=true\n");
    EXPECT_EQ(status()["autostartEntry"], false) << "turned off by the desktop";

    const std::string unit = home.file("units/corvel-remind.timer", "[Timer]\n");
    home.folder(".config/systemd/user/timers.target.wants");
    fs::create_symlink(unit, home / ".config/systemd/user/timers.target.wants/corvel-remind.timer");
    json = status();
    EXPECT_EQ(json["systemdTimer"], true);
    EXPECT_EQ(json["deliveryInstalled"], true);

    const auto text = corvel("remind --status" + settings());
    EXPECT_NE(text.out.find("Scan reminder: Every six months (half-yearly)"), std::string::npos) << text.out;
    EXPECT_NE(text.out.find("Delivery installed: yes (systemd timer)"), std::string::npos) << text.out;
    EXPECT_NE(text.out.find("Notification service: not reachable"), std::string::npos) << text.out;
    EXPECT_FALSE(fs::exists(settingsFile + ".corrupt")) << "status only reads";
}

TEST_F(CorvelRemind, StatusLeavesADamagedScheduleAsItIs) {
    home.file(".local/state/corvel/reminders.json", "not a schedule");
    const auto run = corvel("remind --status" + settings());
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.err.find(scheduleFile), std::string::npos) << run.err;
    EXPECT_EQ(test::TempTree::read(scheduleFile), "not a schedule");
    EXPECT_EQ(std::distance(fs::directory_iterator(home / ".local/state/corvel"), fs::directory_iterator()),
              1);
    EXPECT_FALSE(fs::exists(settingsFile)) << "status never creates the settings";
}

TEST_F(CorvelRemind, AScanWithoutADesktopArmsNothingAndStillSucceeds) {
    home.file("tree/a.bin", std::string(70000, 'a'));
    home.file("tree/b.bin", std::string(70000, 'a'));
    const auto run = corvel("scan --quiet" + settings() + " " + shellQuoted(home / "tree"));
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.err, "");
    EXPECT_FALSE(fs::exists(scheduleFile));
}

TEST_F(CorvelRemindOnADesktop, EveryReArmsOnePeriodAheadAndNeverClears) {
    const std::int64_t before = systemSeconds();
    auto run = corvel("remind --every monthly" + settings(), desktop());
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_NE(run.out.find("Scan reminder: Every month; the next one on "), std::string::npos) << run.out;
    EXPECT_EQ(storedInterval().toInt64(), 3);
    auto contents = schedule();
    ASSERT_EQ(contents.scheduled.size(), 1u);
    EXPECT_EQ(contents.scheduled[0].deliveryRepeatInterval, (CalendarInterval{0, 1, 0}));
    EXPECT_GE(contents.scheduled[0].deliveryDate, before + 28 * kDay - 3600);
    EXPECT_LE(contents.scheduled[0].deliveryDate, systemSeconds() + 31 * kDay + 3600);
    EXPECT_TRUE(server->notifications().empty()) << "arming shows nothing";

    run = corvel("remind --every never" + settings(), desktop());
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out, "Scan reminders are off.\n");
    EXPECT_EQ(storedInterval().toInt64(), 0);
    EXPECT_TRUE(schedule().scheduled.empty());
}

TEST_F(CorvelRemindOnADesktop, ADueReminderIsShownOnceAndMovesOn) {
    writeDueReminder();
    auto run = corvel("remind" + settings(), desktop());
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_NE(run.out.find("Scan reminder shown; the next one on "), std::string::npos) << run.out;
    const auto seen = server->notifications();
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0].summary, "Time to look for duplicates");
    EXPECT_EQ(seen[0].body, "Copies pile up again over time.");
    EXPECT_EQ(seen[0].actions, (std::vector<std::string>{"scan", "Scan Now", "later", "Later"}));
    const auto contents = schedule();
    ASSERT_EQ(contents.scheduled.size(), 1u);
    EXPECT_GT(contents.scheduled[0].deliveryDate, systemSeconds() + 13 * kDay);
    ASSERT_EQ(contents.delivered.size(), 1u);

    run = corvel("remind" + settings(), desktop());
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(server->notifications().size(), 1u) << "not due any more";
}

TEST_F(CorvelRemindOnADesktop, ADueReminderIsRemovedNotShownWhenRemindersAreOff) {
    writeSettings({{kSchedulerIntervalKey, 0}});
    writeDueReminder();
    const auto run = corvel("remind" + settings(), desktop());
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_TRUE(server->notifications().empty());
    EXPECT_TRUE(schedule().scheduled.empty());
}

TEST_F(CorvelRemindOnADesktop, AFinishedScanReArmsTheReminderButADryRunDoesNot) {
    home.file("tree/a.bin", std::string(70000, 'a'));
    home.file("tree/b.bin", std::string(70000, 'a'));
    auto run =
        corvel("scan --quiet --remove --dry-run" + settings() + " " + shellQuoted(home / "tree"), desktop());
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_FALSE(fs::exists(scheduleFile));

    const std::int64_t before = systemSeconds();
    run = corvel("scan --quiet" + settings() + " " + shellQuoted(home / "tree"), desktop());
    ASSERT_EQ(run.status, 0) << run.err;
    const auto contents = schedule();
    ASSERT_EQ(contents.scheduled.size(), 1u);
    EXPECT_EQ(contents.scheduled[0].identifier, kCleanReminderIdentifier);
    EXPECT_EQ(contents.scheduled[0].deliveryRepeatInterval, (CalendarInterval{0, 0, 14}))
        << "the default period";
    EXPECT_GE(contents.scheduled[0].deliveryDate, before + 14 * kDay - 3600);
}

} // namespace
} // namespace corvel
