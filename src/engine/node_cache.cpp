#include "node_cache.h"

namespace corvel {

namespace {

// One key for both orders of a pair. A NUL never occurs in a path, so it separates
// the two without ambiguity.
std::string pairKey(const std::string& a, const std::string& b) {
    const bool ordered = a <= b;
    const std::string& first = ordered ? a : b;
    const std::string& second = ordered ? b : a;
    std::string key;
    key.reserve(first.size() + 1 + second.size());
    key.append(first).push_back('\0');
    key.append(second);
    return key;
}

std::optional<bool> lookUp(const std::unordered_map<std::string, bool>& cache, const std::string& key) {
    auto it = cache.find(key);
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

std::optional<bool> CVNodeCache::folderChildrenSizeAreEqual(const std::string& a,
                                                            const std::string& b) const {
    return lookUp(m_folderChildrenSizeAreEqualCache, pairKey(a, b));
}

void CVNodeCache::setFolderChildrenSizeAreEqual(const std::string& a, const std::string& b, bool equal) {
    m_folderChildrenSizeAreEqualCache[pairKey(a, b)] = equal;
}

std::optional<bool> CVNodeCache::duplicatedFolder(const std::string& a, const std::string& b) const {
    return lookUp(m_duplicatedFoldersCache, pairKey(a, b));
}

void CVNodeCache::setDuplicatedFolder(const std::string& a, const std::string& b, bool duplicated) {
    m_duplicatedFoldersCache[pairKey(a, b)] = duplicated;
}

} // namespace corvel
