#pragma once
// Results made in memory for the benchmarks of the results view and the window: pairs of
// files with names, sizes and folders spread over every category, no files on disk.

#include <cstddef>

namespace corvel {

class CVDuplicatesController;

// Adds `groups` pairs (2 x groups files) to results; the same figures every call.
void addSyntheticPairs(CVDuplicatesController& results, std::size_t groups);

} // namespace corvel
