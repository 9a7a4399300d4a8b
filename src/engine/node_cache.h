#pragma once
// CVNodeCache: the memo of folder comparisons for one scan, keyed by the pair of
// folder paths (in either order: the comparison is symmetric). Scan thread only;
// cleared at the start of every scan.

#include <optional>
#include <string>
#include <unordered_map>

namespace corvel {

class CVNodeCache {
public:
    static CVNodeCache& sharedCache();
    void resetCache();

    std::optional<bool> folderChildrenSizeAreEqual(const std::string& a, const std::string& b) const;
    void setFolderChildrenSizeAreEqual(const std::string& a, const std::string& b, bool equal);
    std::optional<bool> duplicatedFolder(const std::string& a, const std::string& b) const;
    void setDuplicatedFolder(const std::string& a, const std::string& b, bool duplicated);

private:
    std::unordered_map<std::string, bool> m_folderChildrenSizeAreEqualCache;
    std::unordered_map<std::string, bool> m_duplicatedFoldersCache;
};

} // namespace corvel
