#pragma once
// The duplicates locator's state: Scanning from the start of a scan's walk to the end of
// its comparison, Idle before, after, and once stopped (the comparison ends at its next
// check). The numbers are the ones the state has always had.

#include <cstdint>

namespace corvel {

enum class ScanState : std::int32_t {
    Idle = 0,
    Scanning = 1,
};

} // namespace corvel
