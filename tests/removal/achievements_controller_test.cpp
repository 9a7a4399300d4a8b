#include <gtest/gtest.h>
#include <unistd.h>

#include "platform/property_list.h"
#include "platform/system_log.h"
#include "platform/user_defaults.h"
#include "removal/achievements_controller.h"
#include "support/temp_tree.h"

namespace corvel {
namespace {

constexpr const char* kLimitLine = "All limits exceeded... need to invent smth (=";

// The total as it stands in the file on disk, read without the store.
PropertyValue totalOnDisk(const std::string& path) {
    PropertyValue root;
    if (!readPropertyListFile(path, root, nullptr))
        return {};
    return root[kTotalSizeSavedKey];
}

struct LevelCase {
    const char* name;
    std::uint64_t total;
    std::int64_t level;
    const char* rank;
    bool limitLogged;
    friend void PrintTo(const LevelCase& c, std::ostream* os) { *os << c.name; }
};

class AchievementsLevelWalk : public testing::TestWithParam<LevelCase> {
protected:
    test::TempTree scratch;
};

TEST_P(AchievementsLevelWalk, AStoredTotalGivesItsLevelAndRankFromTheStart) {
    const auto& c = GetParam();
    UserDefaults store(scratch / "settings.plist");
    store.setUnsignedInteger(c.total, kTotalSizeSavedKey);
    ScopedLogCapture log;
    const HVAchievementsController achievements(store);
    EXPECT_EQ(achievements.userTotalSize(), c.total);
    EXPECT_EQ(achievements.userLevel(), c.level);
    EXPECT_EQ(achievements.userRank(), c.rank);
    EXPECT_EQ(log.contains(kLimitLine), c.limitLogged);
    EXPECT_EQ(store.objectForKey(kTotalSizeSavedKey).toUInt64(), c.total) << "reading changes nothing";
}

TEST_P(AchievementsLevelWalk, AFinishedPassClimbsToTheSameLevel) {
    const auto& c = GetParam();
    UserDefaults store(scratch / "settings.plist");
    HVAchievementsController achievements(store);
    ASSERT_EQ(achievements.userLevel(), 1);
    ASSERT_EQ(achievements.userRank(), "Green Private");
    ScopedLogCapture log;
    achievements.shreddingFinishedAndRemoved(c.total, false, false);
    EXPECT_EQ(achievements.userLevel(), c.level);
    EXPECT_EQ(achievements.userRank(), c.rank);
    EXPECT_EQ(log.contains(kLimitLine), c.limitLogged);
    EXPECT_EQ(store.objectForKey(kTotalSizeSavedKey).toUInt64(), c.total);
}

INSTANTIATE_TEST_SUITE_P(
    Totals, AchievementsLevelWalk,
    testing::Values(LevelCase{"Nothing", 0, 1, "Green Private", false},
                    LevelCase{"Decimal3_9GB", 3900000000, 1, "Green Private", false},
                    LevelCase{"Exactly4GB", 4000000000, 2, "Shrub Capral", false},
                    LevelCase{"JustBelow11GB", 10999999999, 2, "Shrub Capral", false},
                    LevelCase{"Exactly11GB", 11000000000, 3, "Glade Captain", false},
                    LevelCase{"Exactly23GB", 23000000000, 4, "Forest Major", false},
                    LevelCase{"Exactly49GB", 49000000000, 5, "Jungle Colonel", false},
                    LevelCase{"Exactly101GB", 101000000000, 6, "Tropical Marshal", false},
                    LevelCase{"Decimal150GB", 150000000000, 6, "Tropical Marshal", false},
                    LevelCase{"TenToTheTwelfth", 1000000000000, 7, "Supreme Woodland Commander", false},
                    LevelCase{"JustBelowTheLastLimit", 9999999999999, 7, "Supreme Woodland Commander", false},
                    LevelCase{"TenToTheThirteenth", 10000000000000, 7, "Supreme Woodland Commander", true},
                    LevelCase{"FarBeyond", 4000000000000000000, 7, "Supreme Woodland Commander", true}),
    [](const auto& caseInfo) { return std::string(caseInfo.param.name); });

TEST(Achievements, FirstUseCreatesTheTotalOnDiskAtOnce) {
    test::TempTree scratch;
    const std::string path = scratch / "settings.plist";
    UserDefaults store(path);
    store.setObject(PropertyValue("kept"), "OtherSetting");
    const HVAchievementsController achievements(store);
    EXPECT_EQ(totalOnDisk(path), PropertyValue(0)) << "created and saved without a synchronize by the caller";
    EXPECT_EQ(achievements.userTotalSize(), 0u);
    PropertyValue root;
    ASSERT_TRUE(readPropertyListFile(path, root, nullptr));
    EXPECT_EQ(root["OtherSetting"], PropertyValue("kept"));
}

TEST(Achievements, AnExistingTotalIsNotReset) {
    test::TempTree scratch;
    const std::string path = scratch / "settings.plist";
    {
        UserDefaults store(path);
        store.setInteger(7000000000, kTotalSizeSavedKey);
    }
    UserDefaults store(path);
    const HVAchievementsController achievements(store);
    EXPECT_EQ(achievements.userTotalSize(), 7000000000u);
    EXPECT_EQ(totalOnDisk(path), PropertyValue(7000000000LL));
}

TEST(Achievements, APassAddsToTheTotalSetsTheStringsAndLogsTheTotal) {
    test::TempTree scratch;
    UserDefaults store(scratch / "settings.plist");
    store.setInteger(3900000000, kTotalSizeSavedKey);
    HVAchievementsController achievements(store);
    ScopedLogCapture log;
    achievements.shreddingFinishedAndRemoved(100000000, true, true);
    EXPECT_EQ(achievements.lastTimeSize(), 100000000u);
    EXPECT_EQ(achievements.userTotalSize(), 4000000000u);
    EXPECT_EQ(achievements.scanSavedString(), "100 MB");
    EXPECT_EQ(achievements.totallySavedString(), "4 GB");
    EXPECT_EQ(log.lines(), std::vector<std::string>{"Total size saved: 4 GB"});
    EXPECT_EQ(store.objectForKey(kTotalSizeSavedKey), PropertyValue(4000000000LL));
    EXPECT_EQ(achievements.userLevel(), 2);
    EXPECT_EQ(achievements.userRank(), "Shrub Capral");

    achievements.shreddingFinishedAndRemoved(0, false, false);
    EXPECT_EQ(achievements.lastTimeSize(), 0u);
    EXPECT_EQ(achievements.scanSavedString(), "Zero KB");
    EXPECT_EQ(achievements.userTotalSize(), 4000000000u);
}

TEST(Achievements, TheTotalSurvivesARestart) {
    test::TempTree scratch;
    const std::string path = scratch / "settings.plist";
    {
        UserDefaults store(path);
        HVAchievementsController achievements(store);
        achievements.shreddingFinishedAndRemoved(30000000000, false, false);
        achievements.shreddingFinishedAndRemoved(20000000000, false, false);
        EXPECT_EQ(achievements.userLevel(), 5);
    } // the store saves when it goes
    UserDefaults store(path);
    HVAchievementsController restarted(store);
    EXPECT_EQ(restarted.userTotalSize(), 50000000000u);
    EXPECT_EQ(restarted.userLevel(), 5);
    EXPECT_EQ(restarted.userRank(), "Jungle Colonel");
    restarted.shreddingFinishedAndRemoved(60000000000, false, false);
    EXPECT_EQ(restarted.userLevel(), 6);
}

TEST(Achievements, AReaderNeverWritesTheStore) {
    test::TempTree scratch;
    const std::string path = scratch / "settings.plist";
    const UserDefaults store(path);
    HVAchievementsController reader = HVAchievementsController::readingOnly(store);
    EXPECT_EQ(reader.userLevel(), 1);
    EXPECT_FALSE(store.hasStoredValueForKey(kTotalSizeSavedKey));
    reader.shreddingFinishedAndRemoved(5000000000, false, false);
    EXPECT_EQ(reader.userLevel(), 2);
    EXPECT_FALSE(store.hasStoredValueForKey(kTotalSizeSavedKey));
    EXPECT_NE(::access(path.c_str(), F_OK), 0) << "no settings file is made";
}

struct OddTotalCase {
    const char* name;
    PropertyValue stored;
    std::uint64_t total;
    friend void PrintTo(const OddTotalCase& c, std::ostream* os) { *os << c.name; }
};

class AchievementsOddTotal : public testing::TestWithParam<OddTotalCase> {};

TEST_P(AchievementsOddTotal, CountsFromWhatMakesSenseAndLeavesTheValueUntilAPassFreesSpace) {
    const auto& c = GetParam();
    test::TempTree scratch;
    UserDefaults store(scratch / "settings.plist");
    store.setObject(c.stored, kTotalSizeSavedKey);
    ScopedLogCapture log;
    HVAchievementsController achievements(store);
    EXPECT_EQ(achievements.userTotalSize(), c.total);
    EXPECT_EQ(store.objectForKey(kTotalSizeSavedKey), c.stored);
    EXPECT_EQ(log.contains("Setting \"TotalSizeSaved\" in " + store.path() + " holds"), c.total == 0)
        << testing::PrintToString(log.lines());
    achievements.shreddingFinishedAndRemoved(0, false, false);
    EXPECT_EQ(store.objectForKey(kTotalSizeSavedKey), c.stored) << "a pass that freed nothing writes nothing";
    achievements.shreddingFinishedAndRemoved(100, false, false);
    EXPECT_EQ(store.objectForKey(kTotalSizeSavedKey).toUInt64(),
              std::min(c.total + 100, std::uint64_t{INT64_MAX}));
}

INSTANTIATE_TEST_SUITE_P(Values, AchievementsOddTotal,
                         testing::Values(OddTotalCase{"Text", PropertyValue("lots"), 0},
                                         OddTotalCase{"Negative", PropertyValue(-5), 0},
                                         OddTotalCase{"Real", PropertyValue(4500000000.0), 4500000000},
                                         OddTotalCase{"AboveTheSignedRange", PropertyValue(UINT64_MAX - 1),
                                                      static_cast<std::uint64_t>(INT64_MAX)}),
                         [](const auto& caseInfo) { return std::string(caseInfo.param.name); });

TEST(Achievements, TheTotalStaysWithinTheSignedRangeOfTheKey) {
    test::TempTree scratch;
    UserDefaults store(scratch / "settings.plist");
    store.setInteger(INT64_MAX - 10, kTotalSizeSavedKey);
    HVAchievementsController achievements(store);
    achievements.shreddingFinishedAndRemoved(100, false, false);
    EXPECT_EQ(achievements.userTotalSize(), static_cast<std::uint64_t>(INT64_MAX));
    EXPECT_EQ(store.integerForKey(kTotalSizeSavedKey), INT64_MAX);
}

} // namespace
} // namespace corvel
