#include <climits>
#include <gtest/gtest.h>

#include "platform/calendar.h"

namespace corvel {
namespace {

struct CalendarCase {
    const char* name;
    std::int64_t start;
    CalendarInterval interval;
    const char* locale;
    const char* zone;
    std::int64_t expected;
};

class CalendarArithmetic : public testing::TestWithParam<CalendarCase> {};

TEST_P(CalendarArithmetic, AddsAsTheUsersCalendarCounts) {
    const auto& c = GetParam();
    std::int64_t result = -1;
    ASSERT_TRUE(addCalendarInterval(c.start, c.interval, c.locale, c.zone, &result));
    EXPECT_EQ(result, c.expected);
}

// Dates worked out independently (Python's zoneinfo).
INSTANTIATE_TEST_SUITE_P(
    Table, CalendarArithmetic,
    testing::Values(
        // 2025-01-31 10:00 Berlin + 1 month: the last day of February, same local time.
        CalendarCase{
            "MonthEndKeepsToTheShorterMonth", 1738314000, {0, 1, 0}, "en_US", "Europe/Berlin", 1740733200},
        // 2025-03-20 10:00 + 14 days crosses the change to summer time: 10:00 again, 13 days 23 hours later.
        CalendarCase{"DaysKeepTheLocalTimeAcrossDaylightSaving",
                     1742461200,
                     {0, 0, 14},
                     "de_DE",
                     "Europe/Berlin",
                     1743667200},
        // 2024-02-29 + 1 year: 2025-02-28.
        CalendarCase{"ALeapDayPlusAYear", 1709208000, {1, 0, 0}, "en_GB", "UTC", 1740744000},
        // The Thai Buddhist calendar counts months as the Gregorian one does.
        CalendarCase{"BuddhistCalendarMonth",
                     1738314000,
                     {0, 1, 0},
                     "th_TH@calendar=buddhist",
                     "Europe/Berlin",
                     1740733200},
        // 2026-11-24 09:00 UTC + 1000 years: far beyond 32-bit seconds, and exact.
        CalendarCase{"AThousandYearsDoNotWrap", 1795510800, {1000, 0, 0}, "en_US", "UTC", 33352419600}),
    [](const auto& p) { return std::string(p.param.name); });

TEST(Calendar, AWeekHasSevenDays) {
    EXPECT_EQ(daysInCalendarWeek(), 7);
}

TEST(Calendar, WhatTheCalendarCannotAddFailsAndLeavesTheResult) {
    std::int64_t result = 42;
    EXPECT_FALSE(addCalendarInterval(0, {0, 0, std::int64_t{INT32_MAX} + 1}, "en_US", "UTC", &result));
    EXPECT_FALSE(addCalendarInterval(0, {0, 1, 0}, "en_US", "Not/AZone", &result));
    EXPECT_FALSE(addCalendarInterval(INT64_MAX / 2, {0, 1, 0}, "en_US", "UTC", &result));
    EXPECT_FALSE(addCalendarInterval(0, {2000000000, 0, 0}, &result));
    EXPECT_EQ(result, 42);
}

TEST(Calendar, TheUsersOwnCalendarAddsWholeDays) {
    std::int64_t result = 0;
    ASSERT_TRUE(addCalendarInterval(1795510800, {0, 0, 7}, &result));
    // Whatever the machine's time zone, a week is 7 days give or take a daylight-saving hour.
    EXPECT_NEAR(static_cast<double>(result - 1795510800), 7 * 86400.0, 3600.0);
}

} // namespace
} // namespace corvel
