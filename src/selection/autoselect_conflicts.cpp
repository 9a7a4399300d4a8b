#include "autoselect_conflicts.h"

#include <algorithm>

#include "platform/string_tables.h"
#include "platform/text_format.h"

namespace corvel {

namespace {

using Conflicts = std::vector<std::pair<CVAutoselectListItem, CVAutoselectListItem>>;

// The container's list for the kind (const or not, as the container is).
template <typename Container> auto& conflictsOfKind(Container& container, AutoselectConflictKind kind) {
    switch (kind) {
    case AutoselectConflictKind::InAnotherList:
        return container.sameitemsInAnotherListItems;
    case AutoselectConflictKind::InsideNeverSelect:
        return container.superitemsInNeverSelectListItems;
    case AutoselectConflictKind::ContainsAlwaysSelect:
        break;
    }
    return container.subitemsInPrefferedListItems;
}

// The keys of one kind's alert: message and informative text for one folder and for several.
struct AlertKeys {
    const char* message;
    const char* messagePlural;
    const char* informative;
    const char* informativePlural;
    const char* confirmButton;
};

AlertKeys alertKeys(AutoselectConflictKind kind) {
    switch (kind) {
    case AutoselectConflictKind::InAnotherList:
        return {"AlertMessageText_PathInAnotherList", "AlertMessage_ItemsInAnotherList",
                "AlertInformativeText_RemoveFromOtherList", "AlertInformativeText_ItemsInAnotherlist",
                "ButtonTitle_SwitchList"};
    case AutoselectConflictKind::InsideNeverSelect:
        return {"AlertMessageText_SuperPathInNeverSelect", "AlertMessageText_SuperPathsInNeverSelect",
                "AlertInformativeText_SuperPathInNeverSelect", "AlertInformativeText_SuperPathsInNeverSelect",
                "ButtonTitle_AddAnyway"};
    case AutoselectConflictKind::ContainsAlwaysSelect:
        break;
    }
    return {"AlertMessageText_SubPathInAlwaysSelect", "AlertMessageText_SubPathsInAlwaysSelect",
            "AlertInformativeText_SubPathInAlwaysSelect", "AlertInformativeText_SubPathsInAlwaysSelect",
            "ButtonTitle_AddAnyway"};
}

// Puts the entry in the list: over its own entry (same category and folder) where one
// exists, else at the given place, else at the end. Its own entry's linked path stays
// when the new entry has none.
void placeEntry(std::vector<CVAutoselectListItem>& items, CVAutoselectListItem entry,
                std::optional<std::size_t> place) {
    auto own = std::find_if(items.begin(), items.end(), [&](const CVAutoselectListItem& stored) {
        return stored.category == entry.category && sameAutoselectFolder(stored.path, entry.path);
    });
    if (own != items.end()) {
        if (!entry.linkedPath)
            entry.linkedPath = own->linkedPath;
        *own = std::move(entry);
        return;
    }
    if (place && *place <= items.size())
        items.insert(items.begin() + static_cast<std::ptrdiff_t>(*place), std::move(entry));
    else
        items.push_back(std::move(entry));
}

} // namespace

CVAutoselectListsEditor::CVAutoselectListsEditor(UserDefaults& defaults) : m_lists(defaults) {}

CVConflictAutoselectItemsContainer CVAutoselectListsEditor::addFolders(const std::vector<std::string>& paths,
                                                                       std::int32_t category) {
    CVConflictAutoselectItemsContainer conflicts;
    for (const auto& path : paths) {
        const CVAutoselectListItem entry = CVAutoselectListItem::autoselectItemWithPath(path, category);
        CVAutoselectListItem related;
        switch (m_lists.relationForItem(entry, &related)) {
        case kRelationNone:
        case kRelationSameEntry: {
            auto items = m_lists.list();
            placeEntry(items, entry, std::nullopt);
            m_lists.setAutoselectList(items);
            break;
        }
        case kRelationInOtherList:
            conflicts.sameitemsInAnotherListItems.emplace_back(entry, related);
            break;
        case kRelationContainsAlways:
            conflicts.subitemsInPrefferedListItems.emplace_back(entry, related);
            break;
        case kRelationInsideNever:
            conflicts.superitemsInNeverSelectListItems.emplace_back(entry, related);
            break;
        }
    }
    return conflicts;
}

std::optional<CVAutoselectConflictAlert>
CVAutoselectListsEditor::alertForConflicts(const CVConflictAutoselectItemsContainer& conflicts) {
    for (const AutoselectConflictKind kind :
         {AutoselectConflictKind::InAnotherList, AutoselectConflictKind::InsideNeverSelect,
          AutoselectConflictKind::ContainsAlwaysSelect}) {
        const Conflicts& found = conflictsOfKind(conflicts, kind);
        if (found.empty())
            continue;
        const AlertKeys keys = alertKeys(kind);
        CVAutoselectConflictAlert alert;
        alert.kind = kind;
        if (found.size() == 1) {
            alert.messageText = formatf(localized(keys.message), found[0].first.path, found[0].second.path);
            alert.informativeText = localized(keys.informative);
        } else {
            alert.messageText =
                formatf(localized(keys.messagePlural), static_cast<unsigned long long>(found.size()));
            alert.informativeText = localized(keys.informativePlural);
        }
        alert.confirmButtonTitle = localized(keys.confirmButton, "Buttons");
        alert.cancelButtonTitle = localized("ButtonTitle_Cancel", "Buttons");
        return alert;
    }
    return std::nullopt;
}

void CVAutoselectListsEditor::resolveConflicts(CVConflictAutoselectItemsContainer& conflicts,
                                               AutoselectConflictKind kind, bool confirmed) {
    Conflicts& found = conflictsOfKind(conflicts, kind);
    if (confirmed) {
        auto items = m_lists.list();
        for (const auto& [entry, related] : found) {
            std::optional<std::size_t> place;
            if (kind == AutoselectConflictKind::InAnotherList) {
                // Out of the other list; the folder takes the place of its first entry there.
                for (std::size_t i = 0; i < items.size();) {
                    if (items[i].category != entry.category &&
                        sameAutoselectFolder(items[i].path, entry.path)) {
                        if (!place)
                            place = i;
                        items.erase(items.begin() + static_cast<std::ptrdiff_t>(i));
                    } else {
                        ++i;
                    }
                }
            }
            placeEntry(items, entry, place);
        }
        m_lists.setAutoselectList(items);
    }
    found.clear();
}

void CVAutoselectListsEditor::addFolders(const std::vector<std::string>& paths, std::int32_t category,
                                         AutoselectConflictPresenter& presenter) {
    CVConflictAutoselectItemsContainer conflicts = addFolders(paths, category);
    while (const auto alert = alertForConflicts(conflicts))
        resolveConflicts(conflicts, alert->kind, presenter.confirm(*alert));
}

} // namespace corvel
