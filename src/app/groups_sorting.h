#pragma once
// The sort of the groups table: one key chosen by the sort button's type and a
// direction. Text keys (type, name, common path) compare as the user's locale sorts,
// ignoring case; the others as numbers. Equal groups keep their order. Main thread.

#include <cstdint>
#include <memory>
#include <vector>

#include "engine/group.h"

namespace corvel {

enum GroupSortType : std::int64_t {
    kSortByTotalSize = 0,
    kSortByType = 1,
    kSortByName = 2,
    kSortByCount = 3,
    kSortBySelected = 4,
    kSortByPath = 5,
};

inline constexpr std::int64_t kSortTypesCount = 6;

// The group's key for the type: "totalSize", "utiType", "name", "childrenCount",
// "filesToRemoveCount", "commonPath"; nullptr for a type out of range.
const char* sortKeyForType(std::int64_t type);
// The analytics label of the type: "Size", "Type", "Name", "Count", "Selected", "Path".
const char* sortLabelForType(std::int64_t type);
bool sortTypeIsText(std::int64_t type);

// Sorts the groups in place by the type's key (a type out of range sorts by size).
void sortGroups(std::vector<std::shared_ptr<CVGroup>>& groups, std::int64_t type, bool ascending);

} // namespace corvel
