#include "autoselect_separator.h"

#include <algorithm>

#include "platform/text.h"

namespace corvel {

CVAutoselectSeparator::CVAutoselectSeparator(std::vector<FilePtr> items, UserDefaults& defaults)
    : m_itemsToCheck(std::move(items)), m_autoselectList(defaults) {
    reseparateItems();
}

void CVAutoselectSeparator::reloadDefaults() {
    m_blackList.clear();
    m_whiteList.clear();
    for (const auto& entry : m_autoselectList.list()) {
        if (!entry.enabled)
            continue;
        auto& target = entry.category == kNeverSelect ? m_blackList : m_whiteList;
        target.push_back(entry.path);
        if (entry.linkedPath)
            target.push_back(*entry.linkedPath);
    }
}

std::optional<std::size_t>
CVAutoselectSeparator::getMaxRangeWithStingsArray(const std::vector<std::string>& strings,
                                                  const std::string& path) {
    std::optional<std::size_t> longest;
    for (const auto& s : strings)
        if (path.starts_with(s) && (!longest || s.size() > *longest))
            longest = s.size();
    return longest;
}

std::vector<CVAutoselectSeparator::FilePtr>
CVAutoselectSeparator::insideNetworkDrives(const std::vector<FilePtr>& items) {
    // After "/Cloud Drive/": the folders the sync clients common on Linux desktops keep
    // (Nextcloud, ownCloud, OneDrive with its "OneDrive - Company" form, MEGA, pCloud).
    static const auto cloud =
        RegularExpression::compile("/Dropbox/|/SkyDrive/|/SparkleShare/|/Google.+/|/.+Google/|/Yandex\\.Disk/"
                                   "|/Cloud Drive/|/Nextcloud/|/ownCloud/|/OneDrive( - [^/]+)?/|/MEGA(sync)?/"
                                   "|/pCloud( ?Drive| Sync)?/",
                                   nullptr);
    std::vector<FilePtr> out;
    for (const auto& item : items)
        if (cloud->search(item->path()))
            out.push_back(item);
    return out;
}

void CVAutoselectSeparator::reseparateItems() {
    reloadDefaults();
    m_alwaysSelect.clear();
    m_neverSelect.clear();
    std::vector<FilePtr> neither;
    for (const auto& item : m_itemsToCheck) {
        const std::string path = item->path();
        const auto never = getMaxRangeWithStingsArray(m_blackList, path);
        const auto always = getMaxRangeWithStingsArray(m_whiteList, path);
        if (!never && !always) {
            neither.push_back(item);
            continue;
        }
        if (always && (!never || *always > *never))
            m_alwaysSelect.push_back(item);
        else
            m_neverSelect.push_back(item);
    }
    for (const auto& item : insideNetworkDrives(neither))
        m_neverSelect.push_back(item);
}

} // namespace corvel
