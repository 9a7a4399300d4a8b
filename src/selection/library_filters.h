#pragma once
// Library-aware choices: for copies inside a music library, keep the best-rated,
// best-tagged, most played and most recently played copy; for copies inside a photo
// library, compare only copies of one event, choosing copy names first and then the
// older of copies with the same file name. Each filter answers the items to select.

#include <memory>
#include <string>
#include <vector>

#include "engine/node.h"

namespace corvel {

using SelectionItem = std::shared_ptr<CVFile>;
using SelectionItems = std::vector<SelectionItem>;

class CVITunesAutoselectFilter {
public:
    explicit CVITunesAutoselectFilter(SelectionItems items) : m_items(std::move(items)) {}
    SelectionItems getItemsToSelect() const;

    // The items whose record value for the key is missing or below the best one's;
    // none with fewer than two items or when no item has a value.
    static SelectionItems lessRatedItemsFilter(const SelectionItems& items, const std::string& key);
    // Moves the less-rated items of the working list to the result.
    static void filterAndRemoveLessRatedItems(SelectionItems& working, const std::string& key,
                                              SelectionItems& result);

private:
    SelectionItems m_items;
};

class CViPhotoAutoselectFilter {
public:
    explicit CViPhotoAutoselectFilter(SelectionItems items) : m_items(std::move(items)) {}
    SelectionItems getItemsToFilter();

    const std::vector<SelectionItems>& equalEventGroups() const { return m_equalEventGroups; }

private:
    void reseparateEventGroups();
    SelectionItems smartPatternFilter();
    void reseparateEventNameGroups();
    SelectionItems dateFilter();

    SelectionItems m_items;
    std::vector<SelectionItems> m_equalEventGroups;
    std::vector<SelectionItems> m_equalEventNameGroups;
};

} // namespace corvel
