#include "smart_pattern.h"

#include <algorithm>

namespace corvel {

bool CVSmartPattern::equalityCheckWithStringsArray(const std::vector<Patterned>& strings) {
    if (strings.empty())
        return false;
    const auto& first = strings.front()->currentPathComponent();
    return std::all_of(strings.begin(), strings.end(),
                       [&](const Patterned& s) { return s->currentPathComponent() == first; });
}

std::vector<CVSmartPattern::Patterned>
CVSmartPattern::patternedStringWithStrings(const std::vector<std::string>& paths) {
    std::vector<Patterned> out;
    out.reserve(paths.size());
    for (const auto& path : paths)
        out.push_back(std::make_shared<CVPatternedString>(path));
    return out;
}

std::vector<std::vector<CVSmartPattern::Patterned>>
CVSmartPattern::groupingStringsArray(std::vector<Patterned> strings) {
    auto length = [](const Patterned& s) {
        return s->currentPathComponent() ? s->currentPathComponent()->size() : 0;
    };
    std::stable_sort(strings.begin(), strings.end(),
                     [&](const Patterned& a, const Patterned& b) { return length(a) > length(b); });
    std::vector<std::vector<Patterned>> groups;
    std::size_t base = 0;
    while (strings.size() >= 2 && base < strings.size()) {
        const std::string baseName = strings[base]->currentPathComponent().value_or("");
        std::vector<Patterned> group{strings[base]};
        std::vector<Patterned> rest(strings.begin(), strings.begin() + static_cast<std::ptrdiff_t>(base) + 1);
        for (std::size_t i = base + 1; i < strings.size(); ++i) {
            if (baseName.starts_with(strings[i]->currentPathComponent().value_or("")))
                group.push_back(strings[i]);
            else
                rest.push_back(strings[i]);
        }
        if (group.size() >= 2) {
            rest.erase(rest.begin() + static_cast<std::ptrdiff_t>(base)); // the base leaves with its group
            std::stable_sort(group.begin(), group.end(), [](const Patterned& a, const Patterned& b) {
                return a->patternsRate() < b->patternsRate();
            });
            groups.push_back(std::move(group));
        } else {
            ++base;
        }
        strings = std::move(rest);
    }
    return groups;
}

std::vector<CVSmartPattern::Patterned>
CVSmartPattern::getHightRatedStringsFromGroups(const std::vector<std::vector<Patterned>>& groups) {
    std::vector<Patterned> out;
    for (const auto& group : groups)
        for (const auto& member : group)
            if (member->patternsRate() > group.front()->patternsRate())
                out.push_back(member);
    return out;
}

std::vector<CVSmartPattern::Patterned>
CVSmartPattern::detectAutonamedStrings(const std::vector<Patterned>& strings) {
    std::vector<Patterned> out;
    for (const auto& s : strings) {
        for (s->resetCurrentPathComponent(); s->currentPathComponent(); s->moveToNextPathComponent()) {
            if (s->isCurrentPathComponentAutonamed()) {
                out.push_back(s);
                break;
            }
        }
    }
    return out;
}

std::vector<std::string> CVSmartPattern::getDuplicatePathStrings() const {
    const std::vector<Patterned> all = patternedStringWithStrings(m_stringsToAnalyze);
    std::vector<Patterned> working = all;
    // Up to the level where the names differ: /a/x/p.jpg and /b/x/p.jpg compare at a and b.
    while (working.size() >= 2 && equalityCheckWithStringsArray(working)) {
        for (const auto& s : working)
            s->moveToNextPathComponent();
        std::erase_if(working, [](const Patterned& s) { return !s->currentPathComponent(); });
    }
    for (const auto& s : working) {
        s->removePrefixCopyPattern();
        s->removeSufixCopyPattern();
    }
    std::vector<Patterned> results = getHightRatedStringsFromGroups(groupingStringsArray(working));
    std::vector<Patterned> left;
    for (const auto& s : all)
        if (std::find(results.begin(), results.end(), s) == results.end())
            left.push_back(s);
    if (left.size() >= 2) {
        const auto autonamed = detectAutonamedStrings(left);
        if (!autonamed.empty() && autonamed.size() < left.size())
            results.insert(results.end(), autonamed.begin(), autonamed.end());
    }
    std::vector<std::string> paths;
    paths.reserve(results.size());
    for (const auto& s : results)
        paths.push_back(s->mainString());
    return paths;
}

} // namespace corvel
