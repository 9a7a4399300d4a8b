#include "groups_sorting.h"

#include <algorithm>
#include <string>
#include <utility>

#include "platform/text.h"

namespace corvel {

namespace {

constexpr const char* kKeys[kSortTypesCount] = {"totalSize",          "utiType",   "name", "childrenCount",
                                                "filesToRemoveCount", "commonPath"};
constexpr const char* kLabels[kSortTypesCount] = {"Size", "Type", "Name", "Count", "Selected", "Path"};

bool inRange(std::int64_t type) {
    return type >= 0 && type < kSortTypesCount;
}

std::string textKey(CVGroup& group, std::int64_t type) {
    switch (type) {
    case kSortByType:
        return group.utiType();
    case kSortByName:
        return group.name();
    default:
        return group.commonPath();
    }
}

std::int64_t numberKey(const CVGroup& group, std::int64_t type) {
    switch (type) {
    case kSortByCount:
        return static_cast<std::int64_t>(group.childrenCount());
    case kSortBySelected:
        return group.filesToRemoveCount();
    default:
        return static_cast<std::int64_t>(group.totalSize());
    }
}

// Sorts by keys made once per group, then puts the groups in that order.
template <typename Key>
void sortByKeys(std::vector<std::shared_ptr<CVGroup>>& groups,
                std::vector<std::pair<Key, std::size_t>>& keyed, bool ascending) {
    if (ascending)
        std::stable_sort(keyed.begin(), keyed.end(),
                         [](const auto& a, const auto& b) { return a.first < b.first; });
    else
        std::stable_sort(keyed.begin(), keyed.end(),
                         [](const auto& a, const auto& b) { return b.first < a.first; });
    std::vector<std::shared_ptr<CVGroup>> sorted;
    sorted.reserve(groups.size());
    for (const auto& entry : keyed)
        sorted.push_back(std::move(groups[entry.second]));
    groups = std::move(sorted);
}

} // namespace

const char* sortKeyForType(std::int64_t type) {
    return inRange(type) ? kKeys[type] : nullptr;
}

const char* sortLabelForType(std::int64_t type) {
    return inRange(type) ? kLabels[type] : nullptr;
}

bool sortTypeIsText(std::int64_t type) {
    return type == kSortByType || type == kSortByName || type == kSortByPath;
}

void sortGroups(std::vector<std::shared_ptr<CVGroup>>& groups, std::int64_t type, bool ascending) {
    if (!inRange(type))
        type = kSortByTotalSize;
    if (sortTypeIsText(type)) {
        std::vector<std::pair<std::string, std::size_t>> keyed;
        keyed.reserve(groups.size());
        for (std::size_t i = 0; i < groups.size(); ++i)
            keyed.emplace_back(localizedSortKey(textKey(*groups[i], type)), i);
        sortByKeys(groups, keyed, ascending);
        return;
    }
    std::vector<std::pair<std::int64_t, std::size_t>> keyed;
    keyed.reserve(groups.size());
    for (std::size_t i = 0; i < groups.size(); ++i)
        keyed.emplace_back(numberKey(*groups[i], type), i);
    sortByKeys(groups, keyed, ascending);
}

} // namespace corvel
