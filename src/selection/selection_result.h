#pragma once
// CVSelectionResult: what a selection operation did, as a type and a count.

#include <cstdint>

namespace corvel {

enum SelectionResultType : std::int32_t {
    kResultDeselection = 0,
    kResultManual = 1,
    kResultWeak = 2,
    kResultDate = 3,
    kResultAutomatic = 4,
};

struct CVSelectionResult {
    std::int32_t type = kResultDeselection;
    std::uint64_t count = 0;

    static CVSelectionResult selectionResultWithType(std::int32_t type, std::uint64_t count) {
        return {type, count};
    }
    static CVSelectionResult zeroSelectionWithType(std::int32_t type) { return {type, 0}; }
    friend bool operator==(const CVSelectionResult&, const CVSelectionResult&) = default;
};

} // namespace corvel
