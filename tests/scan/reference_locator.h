#pragma once
// The plain pairwise search of one size group, as the algorithm is written: every node
// in sorted order against every later node. The locator's digest buckets must give
// exactly these groups; the differential test holds them side by side.

#include <span>
#include <vector>

#include "scan/duplicates_locator.h"

namespace corvel::test {

inline std::vector<GroupPtr> referenceFindDuplicatesInSizeGroup(CVDuplicatesLocator& locator,
                                                                std::span<NodePtr> nodes) {
    CVDuplicatesLocator::sortSizeGroup(nodes);
    std::vector<GroupPtr> groups;
    for (std::size_t i = 0; i < nodes.size(); ++i) {
        if (locator.state() == ScanState::Idle)
            break;
        auto first = std::dynamic_pointer_cast<CVFile>(nodes[i]);
        if (!first || locator.ignoreFile(*first)) {
            nodes[i]->releaseSignature();
            continue;
        }
        GroupPtr group;
        for (std::size_t j = i + 1; j < nodes.size() && locator.state() != ScanState::Idle; ++j) {
            auto other = std::dynamic_pointer_cast<CVFile>(nodes[j]);
            if (!other || locator.ignoreFile(*other) || !first->isDuplicateOf(*other))
                continue;
            if (!group) {
                locator.decideRemoveForbidden(*first);
                group = CVGroup::initWithCVFile(first);
                first->setIgnore(true);
            }
            locator.decideRemoveForbidden(*other);
            group->addFile(other);
        }
        first->releaseSignature();
        if (!group)
            continue;
        if (group->allFilesForbidden() && !locator.showFilesWOPermissions())
            continue;
        if (group->hardLinkCheck())
            continue;
        groups.push_back(group);
    }
    return groups;
}

} // namespace corvel::test
