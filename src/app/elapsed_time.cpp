#include "elapsed_time.h"

#include <cstdint>

namespace corvel {

namespace {

void appendUnit(std::string& out, std::int64_t amount, const char* unit) {
    if (!out.empty())
        out += ' ';
    out += std::to_string(amount) + ' ' + unit;
    if (amount != 1)
        out += 's';
}

} // namespace

std::string elapsedTimeInWords(std::chrono::steady_clock::duration elapsed) {
    std::int64_t seconds = std::chrono::duration_cast<std::chrono::seconds>(elapsed).count();
    if (seconds < 0)
        seconds = 0;
    const std::int64_t days = seconds / 86400;
    const std::int64_t hours = seconds / 3600 % 24;
    const std::int64_t minutes = seconds / 60 % 60;
    const std::int64_t rest = seconds % 60;
    std::string out;
    if (days)
        appendUnit(out, days, "day");
    if (hours)
        appendUnit(out, hours, "hour");
    if (minutes)
        appendUnit(out, minutes, "minute");
    if (rest || out.empty())
        appendUnit(out, rest, "second");
    return out;
}

} // namespace corvel
