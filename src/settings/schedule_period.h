#pragma once
// CVSchedulePeriod: the scan reminder's period option ("SchedulerInterval") as a name
// and a calendar interval:
//   0 "Never"                 a thousand years (no reminder is scheduled for 0)
//   1 "Weekly"                the days of the calendar's week (7)
//   2 "Once In Two Weeks"     twice those days (14)
//   3 "Monthly"               one month
//   4 "Once In Three Months"  three months
//   5 "Once In Six Months"    six months
//   6 "Annually"              one year
//   7 and above "Never"       a thousand years
// The command line names the options never, weekly, fortnightly, monthly, quarterly,
// half-yearly and yearly. A plain value; any thread.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/calendar.h"

namespace corvel {

class CVSchedulePeriod {
public:
    // The options a user may choose, 0 to 6, in the order a list shows them.
    static constexpr std::uint64_t kOptionCount = 7;

    explicit CVSchedulePeriod(std::uint64_t option = 0) : m_option(option) {}

    std::uint64_t option() const { return m_option; }
    void setOption(std::uint64_t option) { m_option = option; }

    // The string-table key of the option's name ("Never", "Weekly", ...).
    const char* optionDescriptionKey() const;
    // The option's name, localised (the key itself when no table has it).
    std::string optionDescription() const;
    CalendarInterval repeatInterval() const;

    // The command-line name of the option ("never" for 0 and for 7 and above).
    const char* name() const;
    // The option a command-line name stands for; nothing for an unknown name.
    static std::optional<std::uint64_t> optionForName(std::string_view name);

private:
    std::uint64_t m_option;
};

} // namespace corvel
