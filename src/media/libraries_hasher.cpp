#include "libraries_hasher.h"

#include <cstdio>
#include <sys/stat.h>

#include "platform/user_defaults.h"

namespace corvel {

namespace {

std::string modificationStamp(const std::string& path) {
    struct stat st {};
    if (::stat(path.c_str(), &st) != 0)
        return {};
    char text[64];
    std::snprintf(text, sizeof text, "%lld.%09ld", static_cast<long long>(st.st_mtim.tv_sec),
                  st.st_mtim.tv_nsec);
    return text;
}

} // namespace

std::string CVMD5LibrariesHasher::MD5HashFromFile(const std::string& path) {
    std::string stamp = modificationStamp(path);
    PropertyValue hashes(
        m_defaults.dictionaryForKey(kLibraryHashesKey).value_or(PropertyValue::Dictionary{}));
    hashes.set(path, stamp);
    m_defaults.setObject(std::move(hashes), kLibraryHashesKey);
    return stamp;
}

bool CVMD5LibrariesHasher::libraryDidChangeFromLastScan(const std::string& path) {
    const auto stored = m_defaults.dictionaryForKey(kLibraryHashesKey);
    std::string previous;
    bool known = false;
    if (stored) {
        if (auto it = stored->find(path); it != stored->end() && it->second.isString()) {
            previous = *it->second.asString();
            known = true;
        }
    }
    const std::string current = MD5HashFromFile(path);
    return !stored || !known || previous != current;
}

} // namespace corvel
