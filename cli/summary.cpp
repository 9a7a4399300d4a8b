#include "summary.h"

#include <algorithm>

#include "engine/group.h"
#include "results/duplicates_controller.h"
#include "results/meta_group.h"

namespace corvel::cli {

std::vector<bool> hardLinksOfEarlierMembers(const CVGroup& group) {
    const auto& members = group.files();
    std::vector<bool> marks(members.size(), false);
    for (std::size_t i = 0; i < members.size(); ++i) {
        const CVFile& member = *members[i];
        if (member.inodeNumber() == 0) // never recorded: not known to be anything else
            continue;
        for (std::size_t j = 0; j < i && !marks[i]; ++j)
            marks[i] =
                members[j]->inodeNumber() == member.inodeNumber() && members[j]->device() == member.device();
    }
    return marks;
}

ResultsSummary summarise(CVDuplicatesController& results) {
    ResultsSummary summary;
    const auto groups = results.duplicatesGroups();
    summary.groups = groups.size();
    summary.files = results.mainMetaGroup()->filesCount();
    summary.size = results.size();
    for (const auto& group : groups) {
        const std::vector<bool> links = hardLinksOfEarlierMembers(*group);
        // A file with more than one link counts 0 bytes on disk in the walk; every copy
        // holds as much as the largest member.
        std::uint64_t distinct = 0;
        std::uint64_t perCopy = 0;
        const auto& members = group->files();
        for (std::size_t i = 0; i < members.size(); ++i) {
            if (members[i]->needToRemove()) {
                summary.selected += members[i]->sizeOnDisk();
                ++summary.selectedFiles;
            }
            distinct += links[i] ? 0 : 1;
            perCopy = std::max(perCopy, members[i]->sizeOnDisk());
        }
        summary.reclaimable += distinct > 1 ? (distinct - 1) * perCopy : 0;
    }
    return summary;
}

} // namespace corvel::cli
