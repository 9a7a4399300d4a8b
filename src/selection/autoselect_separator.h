#pragma once
// CVAutoselectSeparator: sorts the copies of one group into those inside Always Select
// folders and those inside Never Select folders (or cloud-synced folders, which are
// never chosen automatically). The longer, more specific folder wins; Never Select
// wins a tie.

#include <memory>
#include <string>
#include <vector>

#include "autoselect_lists.h"
#include "engine/node.h"

namespace corvel {

class CVAutoselectSeparator {
public:
    using FilePtr = std::shared_ptr<CVFile>;

    CVAutoselectSeparator(std::vector<FilePtr> items, UserDefaults& defaults);

    void reloadDefaults();
    void reseparateItems();
    // Length of the longest string that is a plain prefix of the path; nothing when none is.
    static std::optional<std::size_t> getMaxRangeWithStingsArray(const std::vector<std::string>& strings,
                                                                 const std::string& path);
    // The items inside folders kept in sync by cloud services (Dropbox, Google Drive,
    // Nextcloud, OneDrive, MEGA, pCloud, ...).
    static std::vector<FilePtr> insideNetworkDrives(const std::vector<FilePtr>& items);

    const std::vector<FilePtr>& alwaysSelect() const { return m_alwaysSelect; }
    const std::vector<FilePtr>& neverSelect() const { return m_neverSelect; }
    const std::vector<std::string>& blackList() const { return m_blackList; }
    const std::vector<std::string>& whiteList() const { return m_whiteList; }

private:
    std::vector<FilePtr> m_itemsToCheck;
    CVAutoselectLists m_autoselectList;
    std::vector<FilePtr> m_alwaysSelect;
    std::vector<FilePtr> m_neverSelect;
    std::vector<std::string> m_blackList;
    std::vector<std::string> m_whiteList;
};

} // namespace corvel
