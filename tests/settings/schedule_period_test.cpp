#include <climits>
#include <gtest/gtest.h>

#include "settings/schedule_period.h"

namespace corvel {
namespace {

struct PeriodCase {
    std::uint64_t option;
    const char* key;
    const char* english;
    const char* name;
    CalendarInterval interval;
};

class PeriodTable : public testing::TestWithParam<PeriodCase> {};

TEST_P(PeriodTable, NamesTheOptionAndItsInterval) {
    const auto& c = GetParam();
    const CVSchedulePeriod period(c.option);
    EXPECT_STREQ(period.optionDescriptionKey(), c.key);
    EXPECT_EQ(period.optionDescription(), c.english);
    EXPECT_STREQ(period.name(), c.name);
    EXPECT_EQ(period.repeatInterval(), c.interval);
}

constexpr CalendarInterval kThousandYears{1000, 0, 0};

INSTANTIATE_TEST_SUITE_P(
    Options, PeriodTable,
    testing::Values(PeriodCase{0, "Never", "Never", "never", kThousandYears},
                    PeriodCase{1, "Weekly", "Every week", "weekly", {0, 0, 7}},
                    PeriodCase{2, "Once In Two Weeks", "Every two weeks", "fortnightly", {0, 0, 14}},
                    PeriodCase{3, "Monthly", "Every month", "monthly", {0, 1, 0}},
                    PeriodCase{4, "Once In Three Months", "Every three months", "quarterly", {0, 3, 0}},
                    PeriodCase{5, "Once In Six Months", "Every six months", "half-yearly", {0, 6, 0}},
                    PeriodCase{6, "Annually", "Every year", "yearly", {1, 0, 0}},
                    PeriodCase{7, "Never", "Never", "never", kThousandYears},
                    PeriodCase{UINT64_MAX, "Never", "Never", "never", kThousandYears}));

TEST(SchedulePeriod, CommandLineNamesGiveTheirOptions) {
    for (std::uint64_t option = 0; option < CVSchedulePeriod::kOptionCount; ++option)
        EXPECT_EQ(CVSchedulePeriod::optionForName(CVSchedulePeriod(option).name()), option);
    for (const char* unknown : {"", "Weekly", "daily", "biweekly", "7"})
        EXPECT_FALSE(CVSchedulePeriod::optionForName(unknown)) << unknown;
}

} // namespace
} // namespace corvel
