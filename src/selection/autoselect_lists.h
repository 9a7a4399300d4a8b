#pragma once
// The Always Select and Never Select lists of the automatic selection, kept in the
// user default "AutoselectList" (both lists together, in the user's order).

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/property_value.h"

namespace corvel {

class UserDefaults;

inline constexpr const char* kAutoselectListKey = "AutoselectList";
inline constexpr const char* kAutoSelectDefaultSetKey = "AutoSelectDefaultSet";
// Marks a Mail downloads entry as added once; read where it exists, never written on Linux.
inline constexpr const char* kAutoselectMailDownloadsSetKey = "AutoselectMailDownloadsSet";

enum AutoselectCategory : std::int32_t { kAlwaysSelect = 0, kNeverSelect = 1 };

// One entry: a folder (and an optional second folder that counts as the same entry).
struct CVAutoselectListItem {
    bool enabled = true;
    std::int32_t category = kAlwaysSelect;
    std::string path;
    std::optional<std::string> linkedPath;

    // An enabled entry for the folder, with symbolic links in the path resolved.
    static CVAutoselectListItem autoselectItemWithPath(const std::string& path, std::int32_t category);
    // An entry as stored ("Path", "Category", "Enabled", "LinkedPath"); the path as it stands.
    static CVAutoselectListItem autoselectItemWithDictionary(const PropertyValue& dictionary);
    PropertyValue userDefaultValue() const;
    friend bool operator==(const CVAutoselectListItem&, const CVAutoselectListItem&) = default;
};

// Whether two list folders are the same folder, and whether the first lies inside the
// second (by whole components: "/u/Downloads" is inside "/u" and "/", not inside "/u/Down").
// Trailing slashes do not count.
bool sameAutoselectFolder(std::string_view a, std::string_view b);
bool autoselectFolderInside(std::string_view folder, std::string_view container);

// How a new entry relates to the stored ones (relationForItem).
enum AutoselectRelation : int {
    kRelationNone = 0,           // add it
    kRelationInOtherList = 1,    // the same folder is in the other list
    kRelationContainsAlways = 2, // an Always Select folder lies inside this Never Select one
    kRelationInsideNever = 3,    // this folder lies inside a Never Select folder
    kRelationSameEntry = 4,      // the same entry exists: replace it
};

class CVAutoselectLists {
public:
    // Reads the lists; on the first use writes "AutoSelectDefaultSet" and, when no list is
    // stored yet, the default Always Select entry (the user's Downloads folder). Stored
    // entries are never changed here.
    explicit CVAutoselectLists(UserDefaults& defaults);

    void initAutoselectDefaultList();
    // Drops every Always Select entry and adds the Downloads folder; Never Select stays.
    void resetAutoselectList();
    void resetAutoselectPrefferedListWithPath(const std::string& path,
                                              const std::optional<std::string>& linkedPath);
    // Drops every Always Select entry.
    void removeAutoselectIncludeList();

    std::vector<CVAutoselectListItem> list() const;
    void setAutoselectList(const std::vector<CVAutoselectListItem>& items);
    void setEnable(bool enabled, const std::string& path);
    AutoselectRelation relationForItem(const CVAutoselectListItem& item,
                                       CVAutoselectListItem* relatedItem) const;

private:
    UserDefaults& m_defaults;
};

// The conflicts found when folders are added in the preferences window: new entry to
// the stored entry it conflicts with.
struct CVConflictAutoselectItemsContainer {
    std::vector<std::pair<CVAutoselectListItem, CVAutoselectListItem>> sameitemsInAnotherListItems;
    std::vector<std::pair<CVAutoselectListItem, CVAutoselectListItem>> subitemsInPrefferedListItems;
    std::vector<std::pair<CVAutoselectListItem, CVAutoselectListItem>> superitemsInNeverSelectListItems;
};

} // namespace corvel
