#include "calendar.h"

#include <climits>
#include <cmath>
#include <memory>
#include <unicode/calendar.h>
#include <unicode/locid.h>
#include <unicode/timezone.h>

namespace corvel {

namespace {

// The largest seconds whose milliseconds a UDate (a double) holds exactly: 2^53 / 1000,
// some 285,000 years, far inside 64-bit seconds.
constexpr double kLargestSeconds = 9007199254740.0;

bool add(icu::Calendar& calendar, UCalendarDateFields field, std::int64_t amount, UErrorCode& status) {
    if (amount == 0)
        return true;
    if (amount > INT32_MAX || amount < INT32_MIN)
        return false;
    calendar.add(field, static_cast<int32_t>(amount), status);
    return U_SUCCESS(status);
}

bool addWith(icu::Calendar* calendar, std::int64_t seconds, const CalendarInterval& interval,
             std::int64_t* result) {
    if (!calendar)
        return false;
    if (std::abs(static_cast<double>(seconds)) > kLargestSeconds)
        return false;
    UErrorCode status = U_ZERO_ERROR;
    calendar->setTime(static_cast<UDate>(seconds) * 1000.0, status);
    if (U_FAILURE(status) || !add(*calendar, UCAL_YEAR, interval.years, status) ||
        !add(*calendar, UCAL_MONTH, interval.months, status) ||
        !add(*calendar, UCAL_DATE, interval.days, status))
        return false;
    const UDate milliseconds = calendar->getTime(status);
    if (U_FAILURE(status) || !std::isfinite(milliseconds))
        return false;
    const double whole = std::floor(milliseconds / 1000.0);
    if (std::abs(whole) > kLargestSeconds)
        return false;
    *result = static_cast<std::int64_t>(whole);
    return true;
}

} // namespace

int daysInCalendarWeek() {
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::Calendar> calendar(icu::Calendar::createInstance(status));
    if (U_FAILURE(status) || !calendar)
        return 7;
    const int32_t first = calendar->getMinimum(UCAL_DAY_OF_WEEK);
    const int32_t last = calendar->getMaximum(UCAL_DAY_OF_WEEK);
    return last >= first ? last - first + 1 : 7;
}

bool addCalendarInterval(std::int64_t seconds, const CalendarInterval& interval, std::int64_t* result) {
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::Calendar> calendar(icu::Calendar::createInstance(status));
    return U_SUCCESS(status) && addWith(calendar.get(), seconds, interval, result);
}

bool addCalendarInterval(std::int64_t seconds, const CalendarInterval& interval, const std::string& locale,
                         const std::string& timeZone, std::int64_t* result) {
    std::unique_ptr<icu::TimeZone> zone(
        icu::TimeZone::createTimeZone(icu::UnicodeString::fromUTF8(timeZone)));
    icu::UnicodeString id;
    if (!zone || zone->getID(id) == UNICODE_STRING_SIMPLE("Etc/Unknown"))
        return false;
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::Calendar> calendar(
        icu::Calendar::createInstance(zone.release(), icu::Locale(locale.c_str()), status));
    return U_SUCCESS(status) && addWith(calendar.get(), seconds, interval, result);
}

} // namespace corvel
