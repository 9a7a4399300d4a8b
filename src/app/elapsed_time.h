#pragma once
// Elapsed time in words, for the scan statistics: "1 hour 2 minutes 5 seconds",
// "45 seconds", "0 seconds". Units that are zero are left out (but a zero duration says
// "0 seconds"); fractions of a second are dropped.

#include <chrono>
#include <string>

namespace corvel {

std::string elapsedTimeInWords(std::chrono::steady_clock::duration elapsed);

} // namespace corvel
