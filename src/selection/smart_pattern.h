#pragma once
// CVSmartPattern: looks at the paths of the copies in one duplicate group and picks
// out those whose names say they are copies: a copy word or a higher trailing number
// than a sibling's, or a folder still called by a default name ("untitled folder").
// The copy with the plainest name is never reported.

#include <memory>
#include <string>
#include <vector>

#include "patterned_string.h"

namespace corvel {

class CVSmartPattern {
public:
    using Patterned = std::shared_ptr<CVPatternedString>;

    explicit CVSmartPattern(std::vector<std::string> stringsToAnalyze)
        : m_stringsToAnalyze(std::move(stringsToAnalyze)) {}

    // The full paths that look like copies: the high-rated members of each group of
    // alike names, then (when fewer than the rest) the auto-named among the rest.
    std::vector<std::string> getDuplicatePathStrings() const;

    // True when every element's current component equals the first's (false when empty).
    static bool equalityCheckWithStringsArray(const std::vector<Patterned>& strings);
    static std::vector<Patterned> patternedStringWithStrings(const std::vector<std::string>& paths);
    // Groups of two or more whose stripped names are prefixes of the longest one's, each
    // sorted by rate (lowest first).
    static std::vector<std::vector<Patterned>> groupingStringsArray(std::vector<Patterned> strings);
    // In each group, the members rated strictly above the group's first member.
    static std::vector<Patterned>
    getHightRatedStringsFromGroups(const std::vector<std::vector<Patterned>>& groups);
    // The elements with a default folder name somewhere on their path.
    static std::vector<Patterned> detectAutonamedStrings(const std::vector<Patterned>& strings);

private:
    std::vector<std::string> m_stringsToAnalyze;
};

} // namespace corvel
