#include "schedule_period.h"

#include "platform/string_tables.h"

namespace corvel {

namespace {

struct Option {
    const char* key;
    const char* name;
};

constexpr Option kOptions[CVSchedulePeriod::kOptionCount] = {
    {"Never", "never"},
    {"Weekly", "weekly"},
    {"Once In Two Weeks", "fortnightly"},
    {"Monthly", "monthly"},
    {"Once In Three Months", "quarterly"},
    {"Once In Six Months", "half-yearly"},
    {"Annually", "yearly"},
};

const Option& optionEntry(std::uint64_t option) {
    return option < CVSchedulePeriod::kOptionCount ? kOptions[option] : kOptions[0];
}

} // namespace

const char* CVSchedulePeriod::optionDescriptionKey() const {
    return optionEntry(m_option).key;
}

std::string CVSchedulePeriod::optionDescription() const {
    return localized(optionDescriptionKey());
}

const char* CVSchedulePeriod::name() const {
    return optionEntry(m_option).name;
}

std::optional<std::uint64_t> CVSchedulePeriod::optionForName(std::string_view name) {
    for (std::uint64_t option = 0; option < kOptionCount; ++option)
        if (name == kOptions[option].name)
            return option;
    return std::nullopt;
}

CalendarInterval CVSchedulePeriod::repeatInterval() const {
    CalendarInterval interval;
    switch (m_option) {
    case 1:
        interval.days = daysInCalendarWeek();
        break;
    case 2:
        interval.days = std::int64_t{2} * daysInCalendarWeek();
        break;
    case 3:
        interval.months = 1;
        break;
    case 4:
        interval.months = 3;
        break;
    case 5:
        interval.months = 6;
        break;
    case 6:
        interval.years = 1;
        break;
    default:
        interval.years = 1000;
        break;
    }
    return interval;
}

} // namespace corvel
