#include "autoselect_lists.h"

#include <climits>
#include <cstdlib>

#include "platform/predicate.h"
#include "platform/user_defaults.h"
#include "platform/user_paths.h"

namespace corvel {

namespace {

// The path without trailing slashes ("/" stays "/").
std::string_view withoutTrailingSlashes(std::string_view path) {
    while (path.size() > 1 && path.back() == '/')
        path.remove_suffix(1);
    return path;
}

} // namespace

bool sameAutoselectFolder(std::string_view a, std::string_view b) {
    return withoutTrailingSlashes(a) == withoutTrailingSlashes(b);
}

bool autoselectFolderInside(std::string_view folder, std::string_view container) {
    folder = withoutTrailingSlashes(folder);
    container = withoutTrailingSlashes(container);
    if (folder.size() <= container.size() || !folder.starts_with(container))
        return false;
    return container == "/" || folder[container.size()] == '/';
}

CVAutoselectListItem CVAutoselectListItem::autoselectItemWithPath(const std::string& path,
                                                                  std::int32_t category) {
    CVAutoselectListItem item;
    item.category = category;
    char resolved[PATH_MAX];
    item.path = ::realpath(path.c_str(), resolved) ? std::string(resolved) : path;
    return item;
}

CVAutoselectListItem CVAutoselectListItem::autoselectItemWithDictionary(const PropertyValue& dictionary) {
    CVAutoselectListItem item;
    item.path = dictionary["Path"].textOrBytes().value_or(dictionary["Path"].toString());
    item.category = static_cast<std::int32_t>(dictionary["Category"].toInt64());
    item.enabled = dictionary["Enabled"].toBool();
    if (const auto linked = dictionary["LinkedPath"].textOrBytes())
        item.linkedPath = *linked;
    return item;
}

PropertyValue CVAutoselectListItem::userDefaultValue() const {
    PropertyValue::Dictionary d{{"Path", path}, {"Category", category}, {"Enabled", enabled}};
    if (linkedPath)
        d["LinkedPath"] = *linkedPath;
    return PropertyValue(std::move(d));
}

CVAutoselectLists::CVAutoselectLists(UserDefaults& defaults) : m_defaults(defaults) {
    // A stored list that is not an array then reads as empty, with a line telling the user
    // (once), and stays in the file.
    m_defaults.registerDefaults({{kAutoselectListKey, PropertyValue::Array{}}});
    initAutoselectDefaultList();
}

void CVAutoselectLists::initAutoselectDefaultList() {
    // Linux has no mail client that keeps a downloads folder of its own: no Mail
    // downloads entry (nor its "AutoselectMailDownloadsSet" flag) is ever written, and an
    // entry already stored is the user's and stays as it is.
    if (m_defaults.hasStoredValueForKey(kAutoSelectDefaultSetKey))
        return;
    // A list stored without the flag was made by the user (by hand, or before any run
    // that selects): it is theirs, whatever it holds, and the defaults are not written
    // over it.
    if (!m_defaults.hasStoredValueForKey(kAutoselectListKey))
        resetAutoselectList();
    m_defaults.setBool(true, kAutoSelectDefaultSetKey);
}

void CVAutoselectLists::resetAutoselectList() {
    removeAutoselectIncludeList();
    resetAutoselectPrefferedListWithPath(userDirectory(UserDirectory::Downloads), std::nullopt);
}

void CVAutoselectLists::resetAutoselectPrefferedListWithPath(const std::string& path,
                                                             const std::optional<std::string>& linkedPath) {
    CVAutoselectListItem item = CVAutoselectListItem::autoselectItemWithPath(path, kAlwaysSelect);
    item.linkedPath = linkedPath;
    auto items = list();
    for (auto it = items.begin(); it != items.end(); ++it) {
        if (it->path == item.path) {
            items.erase(it);
            break;
        }
    }
    items.push_back(item);
    setAutoselectList(items);
}

void CVAutoselectLists::removeAutoselectIncludeList() {
    static const auto neverSelect =
        Predicate::parsef("Category == %i", nullptr, static_cast<int>(kNeverSelect));
    std::vector<CVAutoselectListItem> kept;
    for (const auto& entry : m_defaults.arrayForKey(kAutoselectListKey).value_or(PropertyValue::Array{}))
        if (neverSelect->evaluate(entry))
            kept.push_back(CVAutoselectListItem::autoselectItemWithDictionary(entry));
    setAutoselectList(kept);
}

std::vector<CVAutoselectListItem> CVAutoselectLists::list() const {
    std::vector<CVAutoselectListItem> items;
    for (const auto& entry : m_defaults.arrayForKey(kAutoselectListKey).value_or(PropertyValue::Array{}))
        if (entry.isDictionary())
            items.push_back(CVAutoselectListItem::autoselectItemWithDictionary(entry));
    return items;
}

void CVAutoselectLists::setAutoselectList(const std::vector<CVAutoselectListItem>& items) {
    PropertyValue::Array stored;
    for (const auto& item : items)
        stored.push_back(item.userDefaultValue());
    m_defaults.setObject(std::move(stored), kAutoselectListKey);
}

void CVAutoselectLists::setEnable(bool enabled, const std::string& path) {
    auto items = list();
    for (auto& item : items)
        if (item.path == path)
            item.enabled = enabled;
    setAutoselectList(items);
}

AutoselectRelation CVAutoselectLists::relationForItem(const CVAutoselectListItem& item,
                                                      CVAutoselectListItem* relatedItem) const {
    AutoselectRelation relation = kRelationNone;
    for (const auto& stored : list()) {
        const bool otherCategory = stored.category != item.category;
        AutoselectRelation found = kRelationNone;
        const bool samePath = sameAutoselectFolder(stored.path, item.path);
        if (otherCategory && samePath)
            found = kRelationInOtherList;
        else if (otherCategory && autoselectFolderInside(stored.path, item.path) &&
                 item.category == kNeverSelect)
            found = kRelationContainsAlways;
        else if (otherCategory && autoselectFolderInside(item.path, stored.path) &&
                 stored.category == kNeverSelect)
            found = kRelationInsideNever;
        else if (!otherCategory && samePath)
            found = kRelationSameEntry;
        if (found == kRelationNone)
            continue;
        relation = found;
        if (relatedItem)
            *relatedItem = stored;
        if (found == kRelationInOtherList)
            break;
    }
    return relation;
}

} // namespace corvel
