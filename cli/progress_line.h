#pragma once
// The progress line "corvel scan" draws on stderr when it is a terminal: the stage with
// its figures, the percentage and, once it can tell, the time left. Redrawn in place at
// most ten times a second; nothing is drawn when stderr is not a terminal or with --quiet.

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "scan/scan_counters.h"

namespace corvel::cli {

struct ProgressFigures {
    int stage = ScanCounters::Idle;
    std::uint64_t folders = 0;
    std::uint64_t files = 0;
    std::uint64_t sizes = 0;
    std::uint64_t sizesDone = 0;
    std::uint64_t bytesRead = 0;
    double percent = 0;                       // 0 to 100, of the whole scan
    std::optional<std::chrono::seconds> left; // the time left, when it can be told
};

// "Walking: 1,234 folders, 56,789 files" or
// "Comparing: 120 of 500 sizes, 1.2 MB read, 24%, about 0:12 left".
std::string progressLineText(const ProgressFigures& figures);

// The time left when comparing has run for elapsed and reached percent (of 100): nothing
// before a second has passed or 2 % is reached, when the guess is no guess.
std::optional<std::chrono::seconds> timeLeft(double percent, std::chrono::steady_clock::duration elapsed);

// A number with its thousands grouped: 1234567 as "1,234,567".
std::string groupedNumber(std::uint64_t value);

} // namespace corvel::cli
