#pragma once
// Calendar arithmetic as the user's calendar counts it: "a month from now" is the same
// day of the next month in the calendar of the user's locale (ICU's, Gregorian for
// most), at the same local time in the user's time zone, across daylight-saving
// changes. Dates are whole seconds since 1970-01-01 UTC, in 64 bits. Any thread.

#include <cstdint>
#include <string>

namespace corvel {

// Date components to add: any mix of years, months and days (added in that order).
struct CalendarInterval {
    std::int64_t years = 0;
    std::int64_t months = 0;
    std::int64_t days = 0;
    friend bool operator==(const CalendarInterval&, const CalendarInterval&) = default;
};

// The number of days in a week of the user's calendar (7 in every calendar ICU has).
int daysInCalendarWeek();

// seconds + interval in the user's calendar (ICU's default locale) and time zone (TZ,
// else /etc/localtime). Answers false, leaving *result alone, when the calendar cannot
// add (an amount beyond 32 bits, a date outside ICU's range or beyond 64-bit seconds).
bool addCalendarInterval(std::int64_t seconds, const CalendarInterval& interval, std::int64_t* result);

// The same in a named locale ("en_US", "th_TH", "@calendar=hebrew") and time zone
// ("Europe/Berlin"); false as well for a time zone ICU does not know.
bool addCalendarInterval(std::int64_t seconds, const CalendarInterval& interval, const std::string& locale,
                         const std::string& timeZone, std::int64_t* result);

} // namespace corvel
