#include "library_filters.h"

#include <algorithm>
#include <map>

#include "media/media_library.h"
#include "platform/file_io.h"
#include "smart_pattern.h"

namespace corvel {

namespace {

// A record value as an unsigned number (dates by their seconds); nothing when missing.
std::optional<std::uint64_t> recordValue(const CVFile& item, const std::string& key) {
    const PropertyValue value = item.info()[key];
    if (value.isNull())
        return std::nullopt;
    if (const auto date = value.asDate())
        return date->secondsSince1970 > 0 ? static_cast<std::uint64_t>(date->secondsSince1970) : 0;
    return value.toUInt64();
}

void moveFrom(SelectionItems& from, const SelectionItems& chosen, SelectionItems& to) {
    for (const auto& item : chosen) {
        auto it = std::find(from.begin(), from.end(), item);
        if (it != from.end()) {
            from.erase(it);
            to.push_back(item);
        }
    }
}

// Applies fn to each group; what it answers is selected and leaves the group.
template <typename Fn> SelectionItems groupsFilter(std::vector<SelectionItems>& groups, Fn fn) {
    SelectionItems selected;
    for (auto& group : groups) {
        const SelectionItems chosen = fn(group);
        for (const auto& item : chosen) {
            selected.push_back(item);
            std::erase(group, item);
        }
    }
    return selected;
}

} // namespace

SelectionItems CVITunesAutoselectFilter::lessRatedItemsFilter(const SelectionItems& items,
                                                              const std::string& key) {
    if (items.size() < 2)
        return {};
    std::optional<std::uint64_t> top;
    for (const auto& item : items) {
        const auto value = recordValue(*item, key);
        if (value && (!top || *value > *top))
            top = value;
    }
    if (!top)
        return {};
    SelectionItems less;
    for (const auto& item : items) {
        const auto value = recordValue(*item, key);
        if (!value || *value < *top)
            less.push_back(item);
    }
    return less;
}

void CVITunesAutoselectFilter::filterAndRemoveLessRatedItems(SelectionItems& working, const std::string& key,
                                                             SelectionItems& result) {
    moveFrom(working, lessRatedItemsFilter(working, key), result);
}

SelectionItems CVITunesAutoselectFilter::getItemsToSelect() const {
    SelectionItems working = m_items;
    SelectionItems result;
    filterAndRemoveLessRatedItems(working, kRatingKey, result);
    if (working.size() >= 2) {
        SelectionItems untagged;
        for (const auto& item : working) {
            const PropertyValue info = item->info();
            if (info[kAlbumNameKey].isNull() || info[kArtistNameKey].isNull())
                untagged.push_back(item);
        }
        if (untagged.size() < working.size())
            moveFrom(working, untagged, result);
        for (const char* key : {kPlayCountKey, kPlayDateKey, kNumberOfTagsKey})
            filterAndRemoveLessRatedItems(working, key, result);
    }
    if (result.empty() && working.size() >= 2)
        result.assign(working.begin() + 1, working.end());
    return result;
}

void CViPhotoAutoselectFilter::reseparateEventGroups() {
    m_equalEventGroups.clear();
    std::vector<bool> assigned(m_items.size(), false);
    for (std::size_t i = 0; i < m_items.size(); ++i) {
        if (assigned[i])
            continue;
        const PropertyValue name = m_items[i]->info()[kEventNameKey];
        if (name.isNull())
            continue;
        SelectionItems gathering{m_items[i]};
        for (std::size_t j = i + 1; j < m_items.size(); ++j)
            if (!assigned[j] && m_items[j]->info()[kEventNameKey] == name) {
                gathering.push_back(m_items[j]);
                assigned[j] = true;
            }
        if (gathering.size() >= 2) {
            assigned[i] = true;
            m_equalEventGroups.push_back(std::move(gathering));
        }
    }
}

SelectionItems CViPhotoAutoselectFilter::smartPatternFilter() {
    return groupsFilter(m_equalEventGroups, [](const SelectionItems& group) {
        std::map<std::string, SelectionItem> byName; // of items with one name, the last stands for them
        std::vector<std::string> names;
        for (const auto& item : group) {
            const std::string name = lastPathComponent(item->path());
            if (!byName.contains(name))
                names.push_back(name);
            byName[name] = item;
        }
        SelectionItems chosen;
        for (const auto& name : CVSmartPattern(names).getDuplicatePathStrings())
            chosen.push_back(byName[name]);
        return chosen;
    });
}

void CViPhotoAutoselectFilter::reseparateEventNameGroups() {
    m_equalEventNameGroups.clear();
    for (const auto& event : m_equalEventGroups) {
        std::vector<bool> assigned(event.size(), false);
        for (std::size_t i = 0; i < event.size(); ++i) {
            if (assigned[i])
                continue;
            const std::string name = lastPathComponent(event[i]->path());
            SelectionItems same{event[i]};
            for (std::size_t j = i + 1; j < event.size(); ++j)
                if (!assigned[j] && lastPathComponent(event[j]->path()) == name) {
                    same.push_back(event[j]);
                    assigned[j] = true;
                }
            if (same.size() >= 2)
                m_equalEventNameGroups.push_back(std::move(same));
        }
    }
}

SelectionItems CViPhotoAutoselectFilter::dateFilter() {
    return groupsFilter(m_equalEventNameGroups, [](const SelectionItems& group) {
        SelectionItems chosen;
        if (group.size() < 2)
            return chosen;
        std::int64_t newest = group.front()->statMTime();
        for (const auto& item : group)
            newest = std::max(newest, item->statMTime());
        for (const auto& item : group)
            if (item->statMTime() < newest)
                chosen.push_back(item);
        if (chosen.empty())
            chosen.assign(group.begin() + 1, group.end());
        return chosen;
    });
}

SelectionItems CViPhotoAutoselectFilter::getItemsToFilter() {
    reseparateEventGroups();
    SelectionItems result = smartPatternFilter();
    reseparateEventNameGroups();
    // Twice: the first run takes the older copies, the second the ties of the newest time.
    for (int run = 0; run < 2; ++run) {
        const SelectionItems dated = dateFilter();
        result.insert(result.end(), dated.begin(), dated.end());
    }
    return result;
}

} // namespace corvel
