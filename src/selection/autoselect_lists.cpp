#include "autoselect_lists.h"

#include <climits>
#include <stdlib.h>

#include "platform/predicate.h"
#include "platform/user_defaults.h"
#include "platform/user_paths.h"

namespace corvel {

namespace {

std::string mailDownloads() {
    return realHomeDirectory() + "/Library/Mail Downloads";
}
std::string mailContainerDownloads() {
    return realHomeDirectory() + "/Library/Containers/com.apple.mail/Data/Library/Mail Downloads";
}

} // namespace

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
    item.path = dictionary["Path"].toString();
    item.category = static_cast<std::int32_t>(dictionary["Category"].toInt64());
    item.enabled = dictionary["Enabled"].toBool();
    if (const std::string* linked = dictionary["LinkedPath"].asString())
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
    initAutoselectDefaultList();
}

void CVAutoselectLists::initAutoselectDefaultList() {
    if (!m_defaults.hasStoredValueForKey(kAutoSelectDefaultSetKey)) {
        resetAutoselectList();
        m_defaults.setBool(true, kAutoSelectDefaultSetKey);
    } else if (!m_defaults.hasStoredValueForKey(kAutoselectMailDownloadsSetKey)) {
        addMailDownloadsEntry();
        m_defaults.setBool(true, kAutoselectMailDownloadsSetKey);
    }
}

void CVAutoselectLists::addMailDownloadsEntry() {
    resetAutoselectPrefferedListWithPath(mailDownloads(), mailContainerDownloads());
}

void CVAutoselectLists::resetAutoselectList() {
    removeAutoselectIncludeList();
    resetAutoselectPrefferedListWithPath(userDirectory(UserDirectory::Downloads), std::nullopt);
    addMailDownloadsEntry();
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
        if (otherCategory && stored.path == item.path)
            found = kRelationInOtherList;
        else if (otherCategory && stored.path.starts_with(item.path + "/") && item.category == kNeverSelect)
            found = kRelationContainsAlways;
        else if (otherCategory && item.path.starts_with(stored.path + "/") && stored.category == kNeverSelect)
            found = kRelationInsideNever;
        else if (!otherCategory && stored.path == item.path)
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
