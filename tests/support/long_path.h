#pragma once
// LongPath: a chain of folders below a given folder whose full path grows past PATH_MAX,
// with one file at its bottom. It is made and removed through folder descriptors
// (mkdirat, openat, unlinkat), the only way to reach it: calls taking a whole path
// answer "File name too long" below some depth. Root can read it, so it makes a part of
// a tree that a path-based walk cannot reach without another account.

#include <string>
#include <string_view>

namespace corvel::test {

class LongPath {
public:
    // Makes folder/<long names>.../file holding contents; folder must exist.
    LongPath(std::string folder, std::string_view contents);
    // Removes the chain; TempTree's path-based removal could not.
    ~LongPath();
    LongPath(const LongPath&) = delete;
    LongPath& operator=(const LongPath&) = delete;

    // The deepest folder whose whole path still fits in PATH_MAX.
    const std::string& deepestReachable() const { return m_deepestReachable; }

private:
    std::string m_folder;
    std::string m_deepestReachable;
};

} // namespace corvel::test
