#pragma once
// The Easter period, when the application may wear its seasonal icon: from Good Friday
// to Easter Monday (Western, Gregorian calendar), in local time.

#include <chrono>

namespace corvel {

struct CalendarDay {
    int year;
    int month; // 1 to 12
    int day;   // 1 to 31
    friend bool operator==(const CalendarDay&, const CalendarDay&) = default;
};

// Easter Sunday of a Gregorian year (the anonymous Gregorian algorithm).
CalendarDay easterSunday(int year);
// True when the day lies from Good Friday to Easter Monday of its year.
bool isEasterPeriod(const CalendarDay& day);
// The same for a moment, taken in local time.
bool isEasterPeriodNow(std::chrono::system_clock::time_point now);

} // namespace corvel
