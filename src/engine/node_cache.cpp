#include "node_cache.h"

namespace corvel {

namespace {

std::optional<bool> lookUp(const std::unordered_map<std::string, bool>& cache, const std::string& path) {
    auto it = cache.find(path);
    return it == cache.end() ? std::nullopt : std::optional<bool>(it->second);
}

} // namespace

CVNodeCache& CVNodeCache::sharedCache() {
    static CVNodeCache cache;
    return cache;
}

void CVNodeCache::resetCache() {
    m_folderChildrenSizeAreEqualCache = {};
    m_duplicatedFoldersCache = {};
}

std::optional<bool> CVNodeCache::folderChildrenSizeAreEqual(const std::string& path) const {
    return lookUp(m_folderChildrenSizeAreEqualCache, path);
}

void CVNodeCache::setFolderChildrenSizeAreEqual(const std::string& path, bool equal) {
    m_folderChildrenSizeAreEqualCache[path] = equal;
}

std::optional<bool> CVNodeCache::duplicatedFolder(const std::string& path) const {
    return lookUp(m_duplicatedFoldersCache, path);
}

void CVNodeCache::setDuplicatedFolder(const std::string& path, bool duplicated) {
    m_duplicatedFoldersCache[path] = duplicated;
}

} // namespace corvel
