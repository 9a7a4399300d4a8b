#pragma once
// Adding folders to the Always Select or Never Select list, as the preferences window
// does, without the window: each folder's relation to the stored entries decides whether
// it is added at once, replaces its own entry, or waits for the user's answer to an
// alert. The alert is a value (its texts come from the string tables); the window shows
// it and answers with the button the user chose.
//
// Conflicts are asked about one kind at a time, in this order: the folder is already in
// the other list; it lies inside a Never Select folder; it contains Always Select
// folders. A folder is never added, moved or dropped from a list without an answer.
// Main thread (the lists live in the user defaults, which any thread may use).

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "autoselect_lists.h"

namespace corvel {

class UserDefaults;

enum class AutoselectConflictKind {
    InAnotherList,        // kRelationInOtherList: the button moves the folder to this list
    InsideNeverSelect,    // kRelationInsideNever: the button adds it anyway
    ContainsAlwaysSelect, // kRelationContainsAlways: the button adds it anyway
};

struct CVAutoselectConflictAlert {
    AutoselectConflictKind kind = AutoselectConflictKind::InAnotherList;
    std::string messageText;
    std::string informativeText;
    std::string confirmButtonTitle; // "Switch List" or "Add Anyway"
    std::string cancelButtonTitle;  // "Cancel"
};

// The window's part: shows the alert and answers true for the confirm button.
class AutoselectConflictPresenter {
public:
    virtual ~AutoselectConflictPresenter() = default;
    virtual bool confirm(const CVAutoselectConflictAlert& alert) = 0;
};

class CVAutoselectListsEditor {
public:
    explicit CVAutoselectListsEditor(UserDefaults& defaults);

    // Makes an entry of the list being edited (kAlwaysSelect or kNeverSelect) for each
    // folder, links resolved, in order. A folder without conflict is appended; one whose
    // entry exists in this list replaces it in its place (enabled again, its linked path
    // kept). The others are answered, each with the stored entry it conflicts with, and
    // the lists are not changed for them.
    CVConflictAutoselectItemsContainer addFolders(const std::vector<std::string>& paths,
                                                  std::int32_t category);

    // The alert for the first kind of conflict in the order above; nothing when none is left.
    static std::optional<CVAutoselectConflictAlert>
    alertForConflicts(const CVConflictAutoselectItemsContainer& conflicts);

    // Applies the user's answer to every conflict of the kind and takes them out of the
    // container. Confirmed: "in another list" moves the folder to the edited list, in the
    // place of its entry in the other list; the other kinds add it (replacing its own
    // entry if one exists). Not confirmed: nothing changes.
    void resolveConflicts(CVConflictAutoselectItemsContainer& conflicts, AutoselectConflictKind kind,
                          bool confirmed);

    // The whole exchange: adds the folders, then asks about each kind of conflict in turn.
    void addFolders(const std::vector<std::string>& paths, std::int32_t category,
                    AutoselectConflictPresenter& presenter);

private:
    CVAutoselectLists m_lists;
};

} // namespace corvel
