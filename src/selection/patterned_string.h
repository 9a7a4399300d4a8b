#pragma once
// CVPatternedString: one path whose components are stripped of copy marks one at a
// time, from the file name towards the root, counting what was stripped. Components
// are held in canonical decomposition (NFD), the form the copy-word lists are written
// in, so names saved composed (as Linux usually stores them) match too; the path
// itself is kept as given.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace corvel {

class CVPatternedString {
public:
    explicit CVPatternedString(std::string path);

    // Back to the last component (the file or folder name).
    void resetCurrentPathComponent();
    // To the parent component; past the first ("/") the current component is nothing.
    void moveToNextPathComponent();
    // Strips a copy word at the start of the current component (with its separators): +1.
    void removePrefixCopyPattern();
    // Strips copy words after separators (+1 each) and a trailing number (+ its digits read as one number).
    void removeSufixCopyPattern();
    // Strips both, then answers whether what is left is a default folder name.
    bool isCurrentPathComponentAutonamed();

    const std::string& mainString() const { return m_mainString; }
    const std::optional<std::string>& currentPathComponent() const { return m_currentPathComponent; }
    std::uint64_t patternsRate() const { return m_patternsRate; }
    const std::string& description() const { return m_mainString; }

private:
    std::vector<std::string> m_pathComponents;
    std::uint64_t m_currentComponentIndex = 0;
    std::uint64_t m_patternsRate = 0;
    std::optional<std::string> m_currentPathComponent;
    std::string m_mainString;
};

} // namespace corvel
