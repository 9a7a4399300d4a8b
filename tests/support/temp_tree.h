#pragma once
// TempTree: a real folder under the system's temporary folder, removed (with all it
// holds, immutable flags cleared first) when the object dies.

#include <string>
#include <string_view>

namespace corvel::test {

class TempTree {
public:
    TempTree();
    ~TempTree();
    TempTree(const TempTree&) = delete;
    TempTree& operator=(const TempTree&) = delete;

    const std::string& path() const { return m_root; }
    // Absolute path of a relative one inside the tree.
    std::string operator/(std::string_view relative) const { return m_root + "/" + std::string(relative); }

    // Writes a file (creating its folders) and answers its absolute path.
    std::string file(std::string_view relative, std::string_view contents = {}) const;
    // Creates a folder and its parents and answers its absolute path.
    std::string folder(std::string_view relative) const;
    std::string symlink(std::string_view relative, std::string_view target) const;
    // Binds a Unix socket there (nothing listens) and answers its absolute path.
    std::string socket(std::string_view relative) const;
    // The whole content of a file inside the tree (or an absolute path).
    static std::string read(const std::string& path);

private:
    std::string m_root;
};

} // namespace corvel::test
