#include "easter.h"

#include <ctime>

namespace corvel {

CalendarDay easterSunday(int year) {
    const int a = year % 19;
    const int b = year / 100;
    const int c = year % 100;
    const int d = b / 4;
    const int e = b % 4;
    const int f = (b + 8) / 25;
    const int g = (b - f + 1) / 3;
    const int h = (19 * a + b - d - g + 15) % 30;
    const int i = c / 4;
    const int k = c % 4;
    const int l = (32 + 2 * e + 2 * i - h - k) % 7;
    const int m = (a + 11 * h + 22 * l) / 451;
    const int month = (h + l - 7 * m + 114) / 31;
    const int day = (h + l - 7 * m + 114) % 31 + 1;
    return {year, month, day};
}

bool isEasterPeriod(const CalendarDay& day) {
    using namespace std::chrono;
    const CalendarDay easter = easterSunday(day.year);
    const sys_days sunday = year_month_day{year{easter.year}, month{static_cast<unsigned>(easter.month)},
                                           std::chrono::day{static_cast<unsigned>(easter.day)}};
    const sys_days today = year_month_day{year{day.year}, month{static_cast<unsigned>(day.month)},
                                          std::chrono::day{static_cast<unsigned>(day.day)}};
    const auto offset = (today - sunday).count();
    return offset >= -2 && offset <= 1;
}

bool isEasterPeriodNow(std::chrono::system_clock::time_point now) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
    std::tm local{};
    if (!::localtime_r(&seconds, &local))
        return false;
    return isEasterPeriod({local.tm_year + 1900, local.tm_mon + 1, local.tm_mday});
}

} // namespace corvel
