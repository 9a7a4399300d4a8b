#pragma once
// CVAutoselector: decides, for the copies of one duplicate group, which are selected
// for removal, by setting needToRemove and selectionType. Its rule above all others:
// an automatic step never selects every copy; at least one always stays. Automatic
// selection prefers copies in Always Select folders, copies of unknown type, copies
// outside media libraries (and inside them, the lower-rated or less-played ones), and
// copies whose names say they are copies. A group the user touched is left alone.
// Made for one operation on one group; main thread.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "autoselect_separator.h"
#include "engine/path_component.h"
#include "library_filters.h"
#include "platform/predicate.h"
#include "selection_result.h"

namespace corvel {

class UserDefaults;

class CVAutoselector {
public:
    CVAutoselector(SelectionItems itemsToSelect, UserDefaults& defaults);

    CVSelectionResult autoselect();
    CVSelectionResult forceAutoselect();
    bool selectionPossible() const;
    CVSelectionResult manuallySelectItem(const SelectionItem& item);
    CVSelectionResult manuallySelectAllButItem(const SelectionItem& item);
    CVSelectionResult keepAnyItem();
    CVSelectionResult keepOldestItems() { return dateOperation(false); }
    CVSelectionResult keepMostRecentItems() { return dateOperation(true); }
    // Selects (weakly) the possible copies under the component, unless that would leave
    // no copy; falls back to automatic selection when every copy is alike.
    CVSelectionResult selectAllLikePathComponent(const CVPathComponent& component);
    CVSelectionResult deselectAllFilesWithPathComponent(const CVPathComponent& component);
    CVSelectionResult deselectItem(const SelectionItem& item);
    static CVSelectionResult manualDeselectItem(const SelectionItem& item);
    CVSelectionResult deselectAll();

    // Item sets, afresh from the items on every call, in the items' order.
    SelectionItems alreadySelectedItems() const;
    SelectionItems notSelectedItems() const;
    SelectionItems manuallyTouchedItems() const;
    SelectionItems manuallySelectedItems() const;
    SelectionItems autoselectedItems() const;
    SelectionItems itemsImpossibleToSelect() const;
    SelectionItems itemsPossibleToSelect() const;
    SelectionItems itemsForbiddenToSelect();
    SelectionItems itemsAllowedToSelect();

    // Filters (none selects anything).
    SelectionItems blackListFilter(const SelectionItems& items);
    SelectionItems whiteListFilter(const SelectionItems& items);
    static SelectionItems iTunesItemsFilter(const SelectionItems& items);
    static SelectionItems iPhotoItemsFilter(const SelectionItems& items);
    static SelectionItems apertureItemsFilter(const SelectionItems& items);
    // The items under the component: by the library record key of its kind, or by path.
    static SelectionItems itemsFilter(const SelectionItems& items, const CVPathComponent& component);

    // Selectors: each may select some candidates and answers those still undecided.
    // Each selects only while a copy of the group stays unselected: most only while fewer
    // items match than are unselected; the library filters always keep one library copy.
    SelectionItems predicateBasedItemsSelector(const SelectionItems& candidates, const Predicate& predicate,
                                               SelectionType selectionType = kSelectionAutomatic);
    SelectionItems whiteListSelector(const SelectionItems& candidates, bool& allWhite);
    SelectionItems undefinedTypeItemsSelector(const SelectionItems& candidates);
    SelectionItems pathBasedItemsSelector(const SelectionItems& candidates, const std::string& path);
    SelectionItems applicationsItemsSelector(const SelectionItems& candidates,
                                             const std::string& userApplications);
    SelectionItems librariesItemsSelector(const SelectionItems& candidates);
    SelectionItems iTunesLiraryItemsSelector(const SelectionItems& candidates);
    SelectionItems iPhotoLibraryItemsSelector(const SelectionItems& candidates);
    SelectionItems modificationDateBasedItemsSelector(const SelectionItems& candidates, bool keepYoungest);
    SelectionItems smartPatternItemsSelector(const SelectionItems& candidates);

    std::int64_t selectedItemsCount() const { return m_selectedItemsCount; }

private:
    bool selectItemToRemove(const SelectionItem& item, SelectionType selectionType);
    CVSelectionResult dateOperation(bool keepYoungest);
    SelectionItems libraryItemsSelector(const SelectionItems& candidates, const SelectionItems& toSelect);
    CVAutoselectSeparator& separator();

    SelectionItems m_itemsToSelect;
    UserDefaults& m_defaults;
    std::unique_ptr<CVAutoselectSeparator> m_separator;
    std::int64_t m_selectedItemsCount = 0;
};

} // namespace corvel
