#include <cmath>
#include <functional>
#include <gtest/gtest.h>
#include <thread>

#include "platform/main_queue.h"
#include "platform/property_list.h"
#include "platform/system_log.h"
#include "settings/preferences.h"
#include "support/recording_tracker.h"
#include "support/temp_tree.h"

namespace corvel {
namespace {

struct SliderCase {
    double x;
    std::uint64_t bytes;
};

void PrintTo(const SliderCase& c, std::ostream* os) {
    *os << c.x << " -> " << c.bytes;
}

class SliderMapping : public testing::TestWithParam<SliderCase> {};

TEST_P(SliderMapping, GivesTheBytesOfThePosition) {
    EXPECT_EQ(CVPreferences::minScanSizeFromFloat(GetParam().x), GetParam().bytes);
}

// Every snap band at its edges and inside, and the three continuous pieces.
INSTANTIATE_TEST_SUITE_P(
    Boundaries, SliderMapping,
    testing::Values(SliderCase{0.0, 0}, SliderCase{-1.0, 0}, SliderCase{0.0124999, 0},
                    SliderCase{0.0125, 12500}, SliderCase{static_cast<double>(0.0499999F), 50000},
                    SliderCase{0.0875, 87500}, SliderCase{0.08751, 100000}, SliderCase{0.1, 100000},
                    SliderCase{0.11249, 100000}, SliderCase{0.1125, 112500}, SliderCase{0.15, 150000},
                    SliderCase{0.1875, 187500}, SliderCase{0.2, 200000}, SliderCase{0.2125, 233334},
                    SliderCase{0.25, 333334}, SliderCase{0.2875, 433334}, SliderCase{0.3, 470000},
                    SliderCase{0.35, 600000}, SliderCase{0.4, 733000}, SliderCase{0.45, 866667},
                    SliderCase{0.5, 1000000}, SliderCase{0.5125, 5975000}, SliderCase{0.5625, 25875000},
                    SliderCase{0.6, 40000000}, SliderCase{0.65625, 63187500}, SliderCase{0.7, 80000000},
                    SliderCase{0.75, 100500000}, SliderCase{0.8, 120000000}, SliderCase{0.85, 140300000},
                    SliderCase{0.9, 160000000}, SliderCase{0.95, 180100000}, SliderCase{0.9875, 195025001},
                    SliderCase{0.98751, 200000000}, SliderCase{1.0, 200000000}, SliderCase{std::nan(""), 0}));

class PreferencesTest : public testing::Test {
protected:
    test::TempTree tree;
    UserDefaults defaults{tree / "prefs.plist"};
    test::RecordingTracker tracker;
};

TEST_F(PreferencesTest, RegisteredDefaultsAreAnsweredButNotWritten) {
    CVPreferences preferences(defaults, tracker);
    EXPECT_TRUE(preferences.moveDuplicatesToTrash());
    EXPECT_FALSE(preferences.removeEmptyFolders());
    EXPECT_FALSE(preferences.overrideMinSizeDefining());
    EXPECT_EQ(preferences.minimumScanSize(), 50000u);
    EXPECT_TRUE(preferences.needToSendAnonymousData());
    EXPECT_TRUE(preferences.autoUpdateConfigurationFiles());
    EXPECT_EQ(preferences.configVersion(), "0.5");
    EXPECT_EQ(preferences.schedulePeriod(), 2);
    EXPECT_EQ(preferences.topFilesCount(), 100u);
    preferences.setSortKey(3);
    preferences.setSortDirection(true);
    preferences.acceptChanges();
    ASSERT_TRUE(defaults.synchronize());
    PropertyValue file;
    ASSERT_TRUE(readPropertyListFile(tree / "prefs.plist", file, nullptr));
    EXPECT_EQ(file.count(), 2u) << file.description();
    EXPECT_EQ(file["SortingType"].toInt64(), 3);
    CVPreferences again(defaults, tracker);
    EXPECT_EQ(again.sortKey(), 3);
    EXPECT_TRUE(again.sortDirection());
}

TEST_F(PreferencesTest, EachObservedChangeReportsOneEvent) {
    CVPreferences preferences(defaults, tracker);
    defaults.setBool(false, kMoveIntoTrashKey);
    defaults.setBool(true, kRemoveEmptyFoldersKey);
    defaults.setBool(false, kUpdateConfigurationFilesKey);
    defaults.setDouble(0.05, kMinScanSizeKey);   // 50000 bytes: still "Locate All", no event
    defaults.setBool(true, kOverrideMinSizeKey); // manual now
    defaults.setDouble(0.5, kMinScanSizeKey);    // 1 MB band
    defaults.setDouble(0.52, kMinScanSizeKey);   // still 1 MB band, no event
    defaults.setBool(false, kOverrideMinSizeKey);
    defaults.setBool(false, kSendDataKey); // not observed
    MainQueue::shared().drain();
    const std::vector<test::TrackedEvent> expected{
        {"Preferences", "Move Duplicates to Trash", "Unchecked", 1},
        {"Preferences", "Remove Empty Folders", "Checked", 1},
        {"Preferences", "Automatically Check iTunes and iPhoto", "Unchecked", 1},
        {"Preferences", "Minimal File Size", "Change to Manual \u2013 Locate All", 1},
        {"Preferences", "Minimal File Size", "Change to Manual \u2013 1 MB", 1},
        {"Preferences", "Minimal File Size", "Change to Automatic", 1},
    };
    EXPECT_EQ(tracker.events(), expected);
}

TEST_F(PreferencesTest, ChangesQueuedAfterThePreferencesDiedReportNothing) {
    {
        CVPreferences preferences(defaults, tracker);
        std::thread([&] { defaults.setBool(false, kMoveIntoTrashKey); }).join();
    }
    MainQueue::shared().drain();
    EXPECT_TRUE(tracker.events().empty());
}

TEST_F(PreferencesTest, LanguagesAndSiteArguments) {
    CVPreferences preferences(defaults, tracker);
    defaults.setObject(PropertyValue::Array{"de-DE", "fr", "en", "es", "it"}, kAppleLanguagesKey);
    EXPECT_EQ(preferences.preferredLanguages(), "de-DE,fr,en");
    EXPECT_EQ(preferences.preferredLanguage(), "de-DE");
    const std::string arguments = preferences.defaultSiteArguments();
    EXPECT_EQ(arguments.rfind("product=Corvel&version=", 0), 0u) << arguments;
    EXPECT_NE(arguments.find("&lang=de-DE,fr,en&cid=&v="), std::string::npos) << arguments;
    defaults.setObject(PropertyValue::Dictionary{{"en", "English text"}, {"de-DE", "Deutscher Text"}},
                       kIntegrationTextsKey);
    EXPECT_EQ(preferences.localizedAdvertisementText(), "Deutscher Text");
    EXPECT_STREQ(CVPreferences::sizeBandName(499999), "Locate All");
    EXPECT_STREQ(CVPreferences::sizeBandName(500000), "500 KB");
    EXPECT_STREQ(CVPreferences::sizeBandName(UINT64_MAX), "200 MB");
}

// A value of the wrong type in the settings file: the registered default answers, the
// user hears of it once, and the value stays in the file as the user wrote it.
struct WrongTypeCase {
    std::string name;
    std::string key;
    PropertyValue stored;
    std::function<bool(CVPreferences&)> readsTheDefault;
};

void PrintTo(const WrongTypeCase& c, std::ostream* os) {
    *os << c.name;
}

class WrongTypedSetting : public testing::TestWithParam<WrongTypeCase> {
protected:
    test::TempTree tree;
    test::RecordingTracker tracker;
};

TEST_P(WrongTypedSetting, ReadsAsTheRegisteredDefault) {
    const auto& c = GetParam();
    const std::string path =
        tree.file("prefs.plist", propertyListData(PropertyValue::Dictionary{{c.key, c.stored}, {"Other", 1}},
                                                  PropertyListFormat::XML));
    const std::string before = test::TempTree::read(path);
    ScopedLogCapture log;
    UserDefaults defaults(path);
    CVPreferences preferences(defaults, tracker);
    EXPECT_TRUE(c.readsTheDefault(preferences));
    EXPECT_TRUE(c.readsTheDefault(preferences)) << "and on every read";
    std::size_t lines = 0;
    for (const auto& line : log.lines())
        if (line.find("\"" + c.key + "\"") != std::string::npos &&
            line.find("wrong type") != std::string::npos)
            ++lines;
    EXPECT_EQ(lines, 1u) << testing::PrintToString(log.lines());
    defaults.setInteger(2, "Other");
    ASSERT_TRUE(defaults.synchronize());
    PropertyValue file;
    ASSERT_TRUE(readPropertyListFile(path, file, nullptr));
    EXPECT_EQ(file[c.key].type(), c.stored.type()) << "the user's value stays in the file";
}

auto trashes = [](CVPreferences& p) { return p.moveDuplicatesToTrash(); };
INSTANTIATE_TEST_SUITE_P(
    Values, WrongTypedSetting,
    testing::Values(WrongTypeCase{"TrashAsTheStringNO", kMoveIntoTrashKey, "NO", trashes},
                    WrongTypeCase{"TrashAsTheStringFalse", kMoveIntoTrashKey, "false", trashes},
                    WrongTypeCase{"TrashAsZero", kMoveIntoTrashKey, 0, trashes},
                    WrongTypeCase{"TrashAsRealZero", kMoveIntoTrashKey, 0.0, trashes},
                    WrongTypeCase{"TrashAsADictionary", kMoveIntoTrashKey, PropertyValue::Dictionary{},
                                  trashes},
                    WrongTypeCase{"TrashAsAnArray", kMoveIntoTrashKey, PropertyValue::Array{false}, trashes},
                    WrongTypeCase{"TrashAsData", kMoveIntoTrashKey, PropertyValue::Data{0}, trashes},
                    WrongTypeCase{"TrashAsADate", kMoveIntoTrashKey, PropertyDate{0}, trashes},
                    WrongTypeCase{"EmptyFoldersAsTheStringYES", kRemoveEmptyFoldersKey, "YES",
                                  [](CVPreferences& p) { return !p.removeEmptyFolders(); }},
                    WrongTypeCase{"EmptyFoldersAsOne", kRemoveEmptyFoldersKey, 1,
                                  [](CVPreferences& p) { return !p.removeEmptyFolders(); }},
                    WrongTypeCase{"SliderAsAString", kMinScanSizeKey, "0.9",
                                  [](CVPreferences& p) { return p.minimumScanSize() == 50000; }},
                    WrongTypeCase{"SliderAsABoolean", kMinScanSizeKey, true,
                                  [](CVPreferences& p) { return p.minimumScanSize() == 50000; }},
                    WrongTypeCase{"ReminderAsAString", kSchedulerIntervalKey, "7",
                                  [](CVPreferences& p) { return p.schedulePeriod() == 2; }},
                    WrongTypeCase{"ConfigVersionAsANumber", kConfigVersionKey, 3,
                                  [](CVPreferences& p) { return p.configVersion() == "0.5"; }}),
    [](const testing::TestParamInfo<WrongTypeCase>& param) { return param.param.name; });

// Values of the right type are the user's, even where a number could stand for another.
TEST_F(PreferencesTest, ValuesOfTheRightTypeAreTheUsers) {
    defaults.setBool(false, kMoveIntoTrashKey);
    defaults.setInteger(1, kMinScanSizeKey); // an integer is a number: the slider at its end
    defaults.setDouble(7.0, kSchedulerIntervalKey);
    ScopedLogCapture log;
    CVPreferences preferences(defaults, tracker);
    EXPECT_FALSE(preferences.moveDuplicatesToTrash());
    EXPECT_EQ(preferences.minimumScanSize(), 200000000u);
    EXPECT_EQ(preferences.schedulePeriod(), 7);
    EXPECT_TRUE(log.lines().empty()) << testing::PrintToString(log.lines());
}

TEST(PreferencesLanguages, ComeFromTheLocaleEnvironment) {
    ::setenv("LANGUAGE", "pt_BR:pt:en", 1);
    EXPECT_EQ(CVPreferences::systemLanguages(), (std::vector<std::string>{"pt-BR", "pt", "en"}));
    ::unsetenv("LANGUAGE");
    ::setenv("LC_ALL", "de_DE.UTF-8@euro", 1);
    EXPECT_EQ(CVPreferences::systemLanguages(), (std::vector<std::string>{"de-DE"}));
    ::setenv("LC_ALL", "C", 1);
    EXPECT_TRUE(CVPreferences::systemLanguages().empty());
    ::unsetenv("LC_ALL");
}

} // namespace
} // namespace corvel
