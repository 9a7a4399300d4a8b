#include <gtest/gtest.h>

#include "platform/system_log.h"
#include "platform/user_defaults.h"
#include "removal/statistics_controller.h"
#include "support/temp_tree.h"

namespace corvel {
namespace {

class StatisticsController : public testing::Test {
protected:
    test::TempTree scratch;
    std::string settingsPath = scratch / "settings.plist";
    UserDefaults store{settingsPath};
    CVStatisticsController statistics{store};

    PropertyValue records() const { return store.objectForKey(kUserStatisticsArrayKey); }
};

PropertyValue::Dictionary record(std::initializer_list<std::pair<const std::string, PropertyValue>> values) {
    return PropertyValue::Dictionary(values);
}

TEST_F(StatisticsController, AScanAddsARecordAtItsStartAndCompletesItAtItsEnd) {
    statistics.addScanWithFoldersCount(2);
    EXPECT_EQ(records(), PropertyValue(PropertyValue::Array{record({{"NumberOfFoldersDropped", 2}})}));
    statistics.scanFinishedWithSize(6500000, 14);
    statistics.addScanWithFoldersCount(1);
    statistics.scanFinishedWithSize(0, 0);
    const PropertyValue expected(PropertyValue::Array{
        record({{"NumberOfFoldersDropped", 2}, {"FoundSize", 6500000}, {"FoundFiles", 14}}),
        record({{"NumberOfFoldersDropped", 1}, {"FoundSize", 0}, {"FoundFiles", 0}})});
    EXPECT_EQ(records(), expected) << records().description();
}

TEST_F(StatisticsController, ASecondRemovalAfterTheSameScanOverwritesTheFirst) {
    statistics.addScanWithFoldersCount(3);
    statistics.scanFinishedWithSize(900000, 9);
    statistics.removalFinishedWithSize(300000, 3);
    statistics.removalFinishedWithSize(200000, 2);
    const PropertyValue expected(PropertyValue::Array{record({{"NumberOfFoldersDropped", 3},
                                                              {"FoundSize", 900000},
                                                              {"FoundFiles", 9},
                                                              {"RemovedSize", 200000},
                                                              {"RemovedFiles", 2}})});
    EXPECT_EQ(records(), expected) << records().description();
}

// Without a record to finish, only the log line says anything; the store stays as it was.
struct MissingRecordCase {
    const char* name;
    PropertyValue stored; // null: the key is absent
    bool removal;
    const char* line;
    friend void PrintTo(const MissingRecordCase& c, std::ostream* os) { *os << c.name; }
};

class StatisticsWithoutARecord : public testing::TestWithParam<MissingRecordCase> {};

TEST_P(StatisticsWithoutARecord, OnlyLogs) {
    const auto& c = GetParam();
    test::TempTree scratch;
    UserDefaults store(scratch / "settings.plist");
    store.setObject(PropertyValue("kept"), "OtherSetting");
    if (!c.stored.isNull())
        store.setObject(c.stored, kUserStatisticsArrayKey);
    CVStatisticsController statistics(store);
    ScopedLogCapture log;
    if (c.removal)
        statistics.removalFinishedWithSize(4000, 1);
    else
        statistics.scanFinishedWithSize(4000, 1);
    EXPECT_EQ(log.lines(), std::vector<std::string>{c.line});
    EXPECT_EQ(store.objectForKey(kUserStatisticsArrayKey), c.stored);
    EXPECT_EQ(store.hasStoredValueForKey(kUserStatisticsArrayKey), !c.stored.isNull());
    EXPECT_EQ(store.objectForKey("OtherSetting"), PropertyValue("kept"));
}

INSTANTIATE_TEST_SUITE_P(
    Cases, StatisticsWithoutARecord,
    testing::Values(MissingRecordCase{"ScanWithNoArray", PropertyValue(), false,
                                      "Strange... There is no stats array at this point. Scanned."},
                    MissingRecordCase{"RemovalWithNoArray", PropertyValue(), true,
                                      "Strange... There is no stats array at this point. Removed."},
                    MissingRecordCase{"RemovalWithAnEmptyArray", PropertyValue(PropertyValue::Array{}), true,
                                      "Strange... There is no stats array at this point. Removed."}),
    [](const auto& caseInfo) { return std::string(caseInfo.param.name); });

TEST_F(StatisticsController, AValueOfAnotherTypeUnderTheKeyIsNeverOverwritten) {
    const PropertyValue handEdited("my notes about scans");
    store.setObject(handEdited, kUserStatisticsArrayKey);
    ScopedLogCapture log;
    statistics.addScanWithFoldersCount(1);
    statistics.scanFinishedWithSize(10, 1);
    statistics.removalFinishedWithSize(10, 1);
    EXPECT_EQ(records(), handEdited);
    EXPECT_EQ(log.lines().size(), 3u);
    EXPECT_TRUE(log.contains("not a list of scans"));
    EXPECT_FALSE(CVStatisticsController::scanRecords(store));
}

TEST_F(StatisticsController, ALastElementThatIsNotARecordIsLeftAlone) {
    const PropertyValue stored(
        PropertyValue::Array{record({{"NumberOfFoldersDropped", 1}}), PropertyValue(7)});
    store.setObject(stored, kUserStatisticsArrayKey);
    ScopedLogCapture log;
    statistics.scanFinishedWithSize(10, 1);
    EXPECT_EQ(records(), stored);
    EXPECT_TRUE(log.contains("not a record"));
}

TEST_F(StatisticsController, RecordsSurviveARestartAndKeepGrowing) {
    statistics.addScanWithFoldersCount(1);
    statistics.scanFinishedWithSize(120000, 2);
    ASSERT_TRUE(store.synchronize());
    {
        UserDefaults restarted(settingsPath);
        CVStatisticsController again(restarted);
        again.addScanWithFoldersCount(4);
        again.scanFinishedWithSize(0, 0);
        again.removalFinishedWithSize(0, 0);
    } // the store saves when it goes
    UserDefaults third(settingsPath);
    const auto stored = CVStatisticsController::scanRecords(third);
    ASSERT_TRUE(stored);
    ASSERT_EQ(stored->size(), 2u);
    EXPECT_EQ((*stored)[0], PropertyValue(record(
                                {{"NumberOfFoldersDropped", 1}, {"FoundSize", 120000}, {"FoundFiles", 2}})));
    EXPECT_EQ((*stored)[1]["NumberOfFoldersDropped"], PropertyValue(4));
    EXPECT_EQ((*stored)[1]["RemovedFiles"], PropertyValue(0));
}

} // namespace
} // namespace corvel
