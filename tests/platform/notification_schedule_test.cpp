#include <algorithm>
#include <climits>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include "platform/notification_schedule.h"
#include "platform/system_log.h"
#include "support/other_user.h"
#include "support/temp_tree.h"

namespace corvel {
namespace {

namespace fs = std::filesystem;

constexpr std::int64_t kNow = 1795510800; // 2026-11-24 09:00 UTC
constexpr std::int64_t kDay = 86400;

UserNotification notification(std::string identifier, std::int64_t date,
                              std::optional<CalendarInterval> repeat = std::nullopt) {
    UserNotification n;
    n.identifier = std::move(identifier);
    n.title = "Time to look for duplicates";
    n.informativeText = "Scan your folders";
    n.actionButtonTitle = "Scan Now";
    n.otherButtonTitle = "Later";
    n.deliveryDate = date;
    n.deliveryRepeatInterval = repeat;
    return n;
}

// Shows nothing; records what it was asked to show, or fails when told to.
struct FakePresenter : NotificationPresenter {
    std::vector<UserNotification> shown;
    bool fail = false;
    bool presentNotification(const UserNotification& n, CVError* error) override {
        if (fail) {
            setError(error, CVError("test", 1, "the service is gone"));
            return false;
        }
        shown.push_back(n);
        return true;
    }
};

std::vector<std::string> corruptCopies(const std::string& path) {
    std::vector<std::string> out;
    const std::string prefix = fs::path(path).filename().string() + ".corrupt-";
    for (const auto& entry : fs::directory_iterator(fs::path(path).parent_path()))
        if (entry.path().filename().string().starts_with(prefix))
            out.push_back(entry.path().string());
    return out;
}

class Schedule : public testing::Test {
protected:
    test::TempTree tree;
    std::string path = tree / "state/corvel/reminders.json";
    std::int64_t now = kNow;
    NotificationSchedule schedule{path, [this] { return now; }};

    std::vector<UserNotification> scheduled() {
        std::vector<UserNotification> out;
        CVError error;
        EXPECT_TRUE(schedule.scheduledNotifications(out, &error)) << error.localizedDescription();
        return out;
    }
    std::vector<UserNotification> delivered() {
        std::vector<UserNotification> out;
        CVError error;
        EXPECT_TRUE(schedule.deliveredNotifications(out, &error)) << error.localizedDescription();
        return out;
    }
};

TEST_F(Schedule, TheFileKeepsEveryFieldAndDateExactly) {
    NotificationScheduleContents contents;
    // A thousand years ahead, before 1970, and the last 64-bit second.
    contents.scheduled = {notification("never", 33352419600, CalendarInterval{1000, 0, 0}),
                          notification("past", std::int64_t{-86400} * 365), notification("last", INT64_MAX)};
    contents.scheduled[1].title = "Zeit für Duplikate — “quoted” \\ \n";
    UserNotification shown = notification("shown", kNow - kDay, CalendarInterval{0, 3, 0});
    shown.actualDeliveryDate = kNow;
    contents.delivered = {shown};
    NotificationScheduleContents back;
    std::string reason;
    ASSERT_TRUE(
        NotificationSchedule::decodeSchedule(NotificationSchedule::encodeSchedule(contents), back, &reason))
        << reason;
    EXPECT_EQ(back, contents);

    // Through the file, as each call reads and writes it.
    for (const auto& n : contents.scheduled)
        ASSERT_TRUE(schedule.scheduleNotification(n, nullptr));
    EXPECT_EQ(scheduled(), contents.scheduled);
    EXPECT_NE(test::TempTree::read(path).find("33352419600"), std::string::npos) << "dates are whole seconds";
}

TEST_F(Schedule, SchedulingAnIdentifierAgainReplacesIt) {
    ASSERT_TRUE(schedule.scheduleNotification(notification("a", kNow + kDay), nullptr));
    ASSERT_TRUE(schedule.scheduleNotification(notification("b", kNow + kDay), nullptr));
    ASSERT_TRUE(schedule.scheduleNotification(notification("a", kNow + 2 * kDay), nullptr));
    const auto all = scheduled();
    ASSERT_EQ(all.size(), 2u);
    EXPECT_EQ(all[0].identifier, "b");
    EXPECT_EQ(all[1].deliveryDate, kNow + 2 * kDay);
    ASSERT_TRUE(schedule.removeScheduledNotification("a", nullptr));
    EXPECT_EQ(scheduled().size(), 1u);
}

struct DamagedCase {
    const char* name;
    const char* text;
    const char* reason;
};

class DamagedSchedule : public testing::TestWithParam<DamagedCase> {};

TEST_P(DamagedSchedule, IsNoSchedule) {
    NotificationScheduleContents out;
    std::string reason;
    EXPECT_FALSE(NotificationSchedule::decodeSchedule(GetParam().text, out, &reason));
    EXPECT_NE(reason.find(GetParam().reason), std::string::npos) << reason;
}

INSTANTIATE_TEST_SUITE_P(
    Table, DamagedSchedule,
    testing::Values(
        DamagedCase{"NotJson", "{\"format\": 1,", "not JSON"}, DamagedCase{"Empty", "", "not JSON"},
        DamagedCase{"AList", "[]", "no object"}, DamagedCase{"NoFormat", "{}", "format"},
        DamagedCase{"NewerFormat", "{\"format\": 2}", "format"},
        DamagedCase{"ScheduledNotAList", "{\"format\": 1, \"scheduled\": {}}", "not a list"},
        DamagedCase{"FractionalDate",
                    "{\"format\": 1, \"scheduled\": [{\"identifier\": \"a\", \"title\": \"t\", "
                    "\"deliveryDate\": 1.5}]}",
                    "deliveryDate"},
        DamagedCase{"DateAsText",
                    "{\"format\": 1, \"scheduled\": [{\"identifier\": \"a\", \"title\": \"t\", "
                    "\"deliveryDate\": \"1\"}]}",
                    "deliveryDate"},
        DamagedCase{"DateBeyond64Bits",
                    "{\"format\": 1, \"scheduled\": [{\"identifier\": \"a\", \"title\": \"t\", "
                    "\"deliveryDate\": 9223372036854775808}]}",
                    "deliveryDate"},
        DamagedCase{"NoTitle",
                    "{\"format\": 1, \"scheduled\": [{\"identifier\": \"a\", \"deliveryDate\": 1}]}",
                    "title"},
        DamagedCase{
            "BackwardInterval",
            "{\"format\": 1, \"scheduled\": [{\"identifier\": \"a\", \"title\": \"t\", \"deliveryDate\": 1, "
            "\"repeatInterval\": {\"days\": -7}}]}",
            "backwards"},
        DamagedCase{
            "EmptyInterval",
            "{\"format\": 1, \"scheduled\": [{\"identifier\": \"a\", \"title\": \"t\", \"deliveryDate\": 1, "
            "\"repeatInterval\": {}}]}",
            "nothing"},
        DamagedCase{"DeliveredWithoutItsDate",
                    "{\"format\": 1, \"delivered\": [{\"identifier\": \"a\", \"title\": \"t\", "
                    "\"deliveryDate\": 1}]}",
                    "actualDeliveryDate"}),
    [](const auto& p) { return std::string(p.param.name); });

TEST_F(Schedule, ADamagedFileIsSetAsideWholeWithAMessage) {
    const std::string damaged = R"({"format": 1, "scheduled": [ half a file)";
    tree.file("state/corvel/reminders.json", damaged);
    ScopedLogCapture log;
    CVError error;
    ASSERT_TRUE(schedule.scheduleNotification(notification("a", kNow + kDay), &error))
        << error.localizedDescription();
    const auto copies = corruptCopies(path);
    ASSERT_EQ(copies.size(), 1u);
    EXPECT_EQ(test::TempTree::read(copies[0]), damaged);
    EXPECT_TRUE(log.contains("The reminder file " + path + " is not JSON; it was renamed to " + copies[0]))
        << testing::PrintToString(log.lines());
    EXPECT_EQ(scheduled().size(), 1u);
    // A second damaged file does not replace the first copy.
    tree.file("state/corvel/reminders.json", "garbage");
    ASSERT_TRUE(schedule.scheduleNotification(notification("b", kNow + kDay), nullptr));
    EXPECT_EQ(corruptCopies(path).size(), 2u);
}

TEST_F(Schedule, ReadingADamagedFileToLookChangesNothing) {
    tree.file("state/corvel/reminders.json", "garbage");
    NotificationScheduleContents out;
    CVError error;
    EXPECT_FALSE(NotificationSchedule::readSchedule(path, out, &error));
    EXPECT_NE(error.localizedDescription().find(path), std::string::npos);
    EXPECT_EQ(test::TempTree::read(path), "garbage");
    EXPECT_TRUE(corruptCopies(path).empty());
    EXPECT_TRUE(NotificationSchedule::readSchedule(tree / "none.json", out, &error)) << "missing: empty";
    EXPECT_TRUE(out.scheduled.empty());
}

// What stands where the file should be, and how to tell it is still there unchanged.
struct InTheWayCase {
    const char* name;
    std::function<void(const test::TempTree&, const std::string&)> make;
    std::function<bool(const std::string&)> intact;
};

class SomethingElseInTheWay : public testing::TestWithParam<InTheWayCase> {};

TEST_P(SomethingElseInTheWay, IsNeverWrittenNorMoved) {
    test::TempTree tree;
    const std::string path = tree / "corvel/reminders.json";
    tree.folder("corvel");
    GetParam().make(tree, path);
    NotificationSchedule schedule(path, [] { return kNow; });
    CVError error;
    EXPECT_FALSE(schedule.scheduleNotification(notification("a", kNow + kDay), &error));
    EXPECT_NE(error.localizedDescription().find(path), std::string::npos) << error.localizedDescription();
    EXPECT_TRUE(GetParam().intact(path));
    EXPECT_TRUE(corruptCopies(path).empty());
}

INSTANTIATE_TEST_SUITE_P(
    Table, SomethingElseInTheWay,
    testing::Values(
        InTheWayCase{"AFolder",
                     [](const test::TempTree& folder, const std::string&) {
                         folder.file("corvel/reminders.json/keep", "x");
                     },
                     [](const std::string& p) { return test::TempTree::read(p + "/keep") == "x"; }},
        InTheWayCase{"AFifo", [](const test::TempTree&, const std::string& p) { ::mkfifo(p.c_str(), 0600); },
                     [](const std::string& p) { return fs::is_fifo(fs::symlink_status(p)); }},
        InTheWayCase{"ALinkToNothing",
                     [](const test::TempTree&, const std::string& p) { fs::create_symlink("gone.json", p); },
                     [](const std::string& p) {
                         return fs::is_symlink(fs::symlink_status(p)) && fs::read_symlink(p) == "gone.json" &&
                                !fs::exists(fs::path(p).parent_path() / "gone.json");
                     }}),
    [](const auto& p) { return std::string(p.param.name); });

TEST(ScheduleFile, AFileThatCannotBeReadIsNeverWritten) {
    test::TempTree tree;
    const std::string folder = tree.folder("corvel");
    NotificationScheduleContents contents;
    contents.scheduled = {notification("mine", kNow + kDay)};
    const std::string original = NotificationSchedule::encodeSchedule(contents);
    const std::string path = tree.file("corvel/reminders.json", original);
    test::openToAnotherUser(folder);
    test::makeUnreadableToAnotherUser(path);
    const int status = test::runAsAnotherUser([&] {
        NotificationSchedule schedule(path, [] { return kNow; });
        CVError error;
        if (schedule.scheduleNotification(notification("theirs", kNow + kDay), &error))
            return 10;
        return error.localizedDescription().find("left as it is") != std::string::npos ? 0 : 11;
    });
    EXPECT_EQ(status, 0);
    EXPECT_EQ(test::TempTree::read(path), original);
    EXPECT_TRUE(corruptCopies(path).empty());
}

TEST_F(Schedule, TwoWritersAtOnceLoseNothing) {
    // Each call reads, changes and writes the whole file: without the lock, one writer's
    // change would be lost whenever the other wrote in between.
    constexpr int kEach = 30;
    auto writer = [&](const std::string& prefix) {
        NotificationSchedule own(path, [] { return kNow; });
        for (int i = 0; i < kEach; ++i)
            EXPECT_TRUE(
                own.scheduleNotification(notification(prefix + std::to_string(i), kNow + kDay), nullptr));
    };
    std::thread first(writer, "first-");
    std::thread second(writer, "second-");
    first.join();
    second.join();
    EXPECT_EQ(scheduled().size(), 2u * kEach);
}

TEST_F(Schedule, ADueOneOffIsShownRecordedAndLeavesTheSchedule) {
    ASSERT_TRUE(schedule.scheduleNotification(notification("later", kNow + kDay), nullptr));
    ASSERT_TRUE(schedule.scheduleNotification(notification("once", kNow - 60), nullptr));
    FakePresenter presenter;
    std::size_t shown = 0;
    CVError error;
    ASSERT_TRUE(schedule.deliverDueNotifications(presenter, &shown, &error)) << error.localizedDescription();
    EXPECT_EQ(shown, 1u);
    ASSERT_EQ(presenter.shown.size(), 1u);
    EXPECT_EQ(presenter.shown[0].identifier, "once");
    const auto left = scheduled();
    ASSERT_EQ(left.size(), 1u);
    EXPECT_EQ(left[0].identifier, "later");
    const auto record = delivered();
    ASSERT_EQ(record.size(), 1u);
    EXPECT_EQ(record[0].identifier, "once");
    EXPECT_EQ(record[0].actualDeliveryDate, kNow);
}

TEST_F(Schedule, ADueRepeatingOneMovesToItsFirstDateAfterNow) {
    const CalendarInterval week{0, 0, 7};
    // Missed three times: last due three weeks and an hour ago.
    const std::int64_t first = kNow - 21 * kDay - 3600;
    ASSERT_TRUE(schedule.scheduleNotification(notification("weekly", first, week), nullptr));
    FakePresenter presenter;
    ASSERT_TRUE(schedule.deliverDueNotifications(presenter, nullptr, nullptr));
    EXPECT_EQ(presenter.shown.size(), 1u) << "shown once, not once per missed week";
    const auto left = scheduled();
    ASSERT_EQ(left.size(), 1u);
    std::int64_t previous = left[0].deliveryDate;
    EXPECT_GT(left[0].deliveryDate, kNow);
    // It stays on its weekly rhythm: a whole number of weeks after the first date, and
    // the week before it was not after now.
    ASSERT_TRUE(addCalendarInterval(left[0].deliveryDate, {0, 0, -7}, &previous));
    EXPECT_LE(previous, kNow);
    EXPECT_NEAR(static_cast<double>(left[0].deliveryDate - first), 28.0 * kDay, 3600.0);
    EXPECT_EQ(delivered().size(), 1u);
}

TEST_F(Schedule, NothingDueChangesNothing) {
    ASSERT_TRUE(schedule.scheduleNotification(notification("later", kNow + 1), nullptr));
    struct stat before {};
    ASSERT_EQ(::stat(path.c_str(), &before), 0);
    FakePresenter presenter;
    std::size_t shown = 7;
    ASSERT_TRUE(schedule.deliverDueNotifications(presenter, &shown, nullptr));
    EXPECT_EQ(shown, 0u);
    EXPECT_TRUE(presenter.shown.empty());
    struct stat after {};
    ASSERT_EQ(::stat(path.c_str(), &after), 0);
    EXPECT_EQ(after.st_ino, before.st_ino) << "the file was rewritten";
}

TEST_F(Schedule, ANotificationThatCouldNotBeShownStaysDue) {
    ASSERT_TRUE(
        schedule.scheduleNotification(notification("weekly", kNow - 60, CalendarInterval{0, 0, 7}), nullptr));
    FakePresenter presenter;
    presenter.fail = true;
    CVError error;
    EXPECT_FALSE(schedule.deliverDueNotifications(presenter, nullptr, &error));
    EXPECT_EQ(error.localizedDescription(), "the service is gone");
    const auto left = scheduled();
    ASSERT_EQ(left.size(), 1u);
    EXPECT_EQ(left[0].deliveryDate, kNow - 60);
    EXPECT_TRUE(delivered().empty());
}

TEST_F(Schedule, DueOnesAreShownEarliestFirstAndTheRecordKeepsTheLatest) {
    const int count = static_cast<int>(NotificationSchedule::kDeliveredKept) + 8;
    for (int i = 0; i < count; ++i)
        ASSERT_TRUE(schedule.scheduleNotification(
            notification("n" + std::to_string(i), kNow - 1000 + (i * 7) % count), nullptr));
    FakePresenter presenter;
    ASSERT_TRUE(schedule.deliverDueNotifications(presenter, nullptr, nullptr));
    ASSERT_EQ(presenter.shown.size(), static_cast<std::size_t>(count));
    EXPECT_TRUE(std::is_sorted(presenter.shown.begin(), presenter.shown.end(),
                               [](const auto& a, const auto& b) { return a.deliveryDate < b.deliveryDate; }));
    const auto record = delivered();
    ASSERT_EQ(record.size(), NotificationSchedule::kDeliveredKept);
    EXPECT_EQ(record.back().identifier, presenter.shown.back().identifier);
}

TEST(ScheduleFile, TheDefaultFileIsUnderTheStateFolder) {
    const char* saved = std::getenv("XDG_STATE_HOME");
    ::setenv("XDG_STATE_HOME", "/tmp/xdg-state", 1);
    EXPECT_EQ(NotificationSchedule::defaultPath(), "/tmp/xdg-state/corvel/reminders.json");
    ::setenv("XDG_STATE_HOME", "relative/is/ignored", 1);
    EXPECT_TRUE(NotificationSchedule::defaultPath().ends_with("/.local/state/corvel/reminders.json"));
    saved ? ::setenv("XDG_STATE_HOME", saved, 1) : ::unsetenv("XDG_STATE_HOME");
}

} // namespace
} // namespace corvel
