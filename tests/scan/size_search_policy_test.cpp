#include <algorithm>
#include <gtest/gtest.h>

#include "platform/user_defaults.h"
#include "scan/size_search_policy.h"
#include "settings/preferences.h"
#include "support/recording_tracker.h"
#include "support/temp_tree.h"

namespace corvel {
namespace {

class SizeSearch : public testing::Test {
protected:
    test::TempTree folder;
    UserDefaults defaults{folder / "settings.plist"};
    test::RecordingTracker tracker;
    CVPreferences preferences{defaults, tracker};

    // Which of the sizes (largest first) the policy searches when each searched size
    // gives the groups listed beside it.
    std::vector<std::uint64_t> searched(SizeSearchPolicy policy,
                                        const std::vector<std::pair<std::uint64_t, std::size_t>>& sizes) {
        std::vector<std::uint64_t> out;
        for (const auto& [size, groups] : sizes)
            if (policy.searches(size)) {
                out.push_back(size);
                policy.found(groups);
            }
        return out;
    }
};

TEST_F(SizeSearch, AMinimumTheUserSetIsAHardLimit) {
    const std::vector<std::pair<std::uint64_t, std::size_t>> sizes{{900, 1}, {100, 1}, {99, 1}, {1, 1}};
    EXPECT_EQ(searched(SizeSearchPolicy(100, preferences), sizes), (std::vector<std::uint64_t>{900, 100}));
    defaults.setBool(true, kOverrideMinSizeKey);
    const SizeSearchPolicy fromPreferences(std::nullopt, preferences);
    EXPECT_EQ(fromPreferences.minimumSize(), preferences.minimumScanSize());
    EXPECT_EQ(searched(SizeSearchPolicy(std::uint64_t{1}, preferences), sizes),
              (std::vector<std::uint64_t>{900, 100, 99, 1}))
        << "the command line's minimum wins over the preferences";
}

TEST_F(SizeSearch, TheAutomaticMinimumSearchesSmallerSizesUntilEnoughGroupsWereFound) {
    preferences.setTopFilesCount(3);
    struct Case {
        const char* what;
        std::vector<std::pair<std::uint64_t, std::size_t>> sizes;
        std::vector<std::uint64_t> expected;
    };
    const Case cases[] = {
        {"groups of every size count; small sizes stop once exactly three were found",
         {{80000, 1}, {40000, 1}, {30000, 0}, {20000, 1}, {10000, 1}},
         {80000, 40000, 30000, 20000}},
        {"sizes from the minimum up are searched after the count is used up",
         {{60000, 3}, {55000, 1}, {1000, 1}},
         {60000, 55000}},
        {"a size giving more than were wanted wraps the count: every size is searched",
         {{80000, 5}, {1000, 0}, {900, 1}, {1, 1}},
         {80000, 1000, 900, 1}},
    };
    for (const Case& c : cases) {
        const SizeSearchPolicy policy(std::nullopt, preferences);
        EXPECT_EQ(policy.minimumSize(), kAutomaticMinimumScanSize) << c.what;
        EXPECT_EQ(searched(policy, c.sizes), c.expected) << c.what;
    }
}

// Every delta the steps add over a scan of the given number of sizes.
std::vector<double> progressDeltas(std::size_t sizes, std::uint64_t useful) {
    std::vector<double> deltas;
    double sum = 0;
    ScanProgressSteps steps(
        sizes, useful,
        [&](double delta, double) {
            deltas.push_back(delta);
            sum += delta;
        },
        [&] { return sum; });
    steps.start();
    for (std::size_t i = 0; i < sizes; ++i)
        steps.sizeSearched();
    steps.finish();
    return deltas;
}

TEST(ScanProgressStepsTest, FewGroupsJumpToTheEndAndManyGroupsStepThere) {
    EXPECT_EQ(progressDeltas(3, 3), (std::vector<double>{99.0, 100.0})) << "observers see 199";
    EXPECT_EQ(progressDeltas(30, 0), (std::vector<double>{99.0, 100.0}));

    const std::vector<double> many = progressDeltas(31, 31);
    ASSERT_EQ(many.size(), 1u + 31u + 1u);
    EXPECT_DOUBLE_EQ(many.front(), 2.0);
    EXPECT_DOUBLE_EQ(many[1], 93.0 / 31.0);
    double sum = 0;
    for (const double d : many)
        sum += d;
    EXPECT_DOUBLE_EQ(sum, 100.0) << "the end brings the sum to 100";

    // 40 sizes of which 20 useful: 4.65 a size, so the steps stop once 99 is passed.
    const std::vector<double> capped = progressDeltas(40, 20);
    const auto stepCount = std::count(capped.begin(), capped.end(), 93.0 / 20.0);
    EXPECT_EQ(stepCount, 21) << "2 + 21 steps pass 99; no more steps after that";
    EXPECT_EQ(capped.size(), 1u + 21u + 1u);
}

} // namespace
} // namespace corvel
