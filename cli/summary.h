#pragma once
// The figures of the closing summary: what the groups hold and what removing all copies
// but one per group would free.

#include <cstdint>
#include <vector>

namespace corvel {
class CVDuplicatesController;
class CVGroup;
} // namespace corvel

namespace corvel::cli {

struct ResultsSummary {
    std::uint64_t groups = 0;
    std::uint64_t files = 0;
    std::uint64_t size = 0;        // on disk, every member of every group
    std::uint64_t reclaimable = 0; // on disk, all members but the largest of each group, hard links once
    std::uint64_t selected = 0;    // on disk, the members marked for removal
    std::uint64_t selectedFiles = 0;
};

ResultsSummary summarise(CVDuplicatesController& results);

// For each member of the group: whether an earlier member is the same file (a hard
// link: the same device and inode), so removing it frees nothing.
std::vector<bool> hardLinksOfEarlierMembers(const CVGroup& group);

} // namespace corvel::cli
