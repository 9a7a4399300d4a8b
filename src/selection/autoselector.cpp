#include "autoselector.h"

#include <algorithm>
#include <mutex>

#include "engine/group.h"
#include "engine/node_key_values.h"
#include "engine/node_type.h"
#include "smart_pattern.h"

namespace corvel {

namespace {

// The compiled predicates, made once for the process.
const Predicate& predicate(const char* format, int argument) {
    struct Compiled {
        std::string key;
        Predicate predicate;
    };
    static std::mutex mutex;
    static std::vector<std::unique_ptr<Compiled>> cache;
    const std::string key = std::string(format) + "#" + std::to_string(argument);
    std::lock_guard lock(mutex);
    for (const auto& c : cache)
        if (c->key == key)
            return c->predicate;
    cache.push_back(std::make_unique<Compiled>(Compiled{key, *Predicate::parsef(format, nullptr, argument)}));
    return cache.back()->predicate;
}

const Predicate& plain(const char* format) {
    static std::mutex mutex;
    static std::vector<std::pair<std::string, std::unique_ptr<Predicate>>> cache;
    std::lock_guard lock(mutex);
    for (const auto& [f, p] : cache)
        if (f == format)
            return *p;
    cache.emplace_back(format, std::make_unique<Predicate>(*Predicate::parse(format, nullptr)));
    return *cache.back().second;
}

SelectionItems filtered(const SelectionItems& items, const Predicate& p) {
    SelectionItems out;
    for (const auto& item : items)
        if (p.evaluate(NodeKeyValues(*item)))
            out.push_back(item);
    return out;
}

bool contains(const SelectionItems& items, const SelectionItem& item) {
    return std::find(items.begin(), items.end(), item) != items.end();
}

SelectionItems minus(const SelectionItems& items, const SelectionItems& removed) {
    SelectionItems out;
    for (const auto& item : items)
        if (!contains(removed, item))
            out.push_back(item);
    return out;
}

SelectionItems intersection(const SelectionItems& items, const SelectionItems& set) {
    SelectionItems out;
    for (const auto& item : items)
        if (contains(set, item))
            out.push_back(item);
    return out;
}

} // namespace

CVAutoselector::CVAutoselector(SelectionItems itemsToSelect, UserDefaults& defaults)
    : m_itemsToSelect(std::move(itemsToSelect)), m_defaults(defaults) {}

CVAutoselectSeparator& CVAutoselector::separator() {
    if (!m_separator)
        m_separator = std::make_unique<CVAutoselectSeparator>(m_itemsToSelect, m_defaults);
    return *m_separator;
}

SelectionItems CVAutoselector::alreadySelectedItems() const {
    return filtered(m_itemsToSelect, plain("needToRemove == YES"));
}
SelectionItems CVAutoselector::notSelectedItems() const {
    return minus(m_itemsToSelect, alreadySelectedItems());
}
SelectionItems CVAutoselector::manuallyTouchedItems() const {
    return filtered(m_itemsToSelect, predicate("selectionType == %i", kSelectionManual));
}
SelectionItems CVAutoselector::manuallySelectedItems() const {
    return intersection(manuallyTouchedItems(), alreadySelectedItems());
}
SelectionItems CVAutoselector::autoselectedItems() const {
    return filtered(m_itemsToSelect, predicate("selectionType == %i", kSelectionAutomatic));
}
SelectionItems CVAutoselector::itemsImpossibleToSelect() const {
    return filtered(m_itemsToSelect, plain("(removeForbidden == YES)"));
}
SelectionItems CVAutoselector::itemsPossibleToSelect() const {
    return minus(m_itemsToSelect, itemsImpossibleToSelect());
}
SelectionItems CVAutoselector::itemsForbiddenToSelect() {
    SelectionItems forbidden = blackListFilter(m_itemsToSelect);
    const SelectionItems impossible = itemsImpossibleToSelect();
    forbidden.insert(forbidden.end(), impossible.begin(), impossible.end());
    return forbidden;
}
SelectionItems CVAutoselector::itemsAllowedToSelect() {
    return minus(minus(m_itemsToSelect, itemsForbiddenToSelect()), alreadySelectedItems());
}

SelectionItems CVAutoselector::blackListFilter(const SelectionItems& items) {
    return intersection(items, separator().neverSelect());
}
SelectionItems CVAutoselector::whiteListFilter(const SelectionItems& items) {
    return intersection(items, separator().alwaysSelect());
}
SelectionItems CVAutoselector::iTunesItemsFilter(const SelectionItems& items) {
    return filtered(items,
                    predicate("(rootFolder.type == %i) && (info[SIZE] > 0)", kNodeTypeCurrentITunesLibrary));
}
SelectionItems CVAutoselector::iPhotoItemsFilter(const SelectionItems& items) {
    return filtered(items,
                    predicate("(rootFolder.type == %i) && (info[SIZE] > 0)", kNodeTypeCurrentIPhotoLibrary));
}
SelectionItems CVAutoselector::apertureItemsFilter(const SelectionItems& items) {
    return filtered(items, predicate("(rootFolder.type == %i)", kNodeTypeApertureLibrary));
}

SelectionItems CVAutoselector::itemsFilter(const SelectionItems& items, const CVPathComponent& component) {
    const std::string key = CVPathComponent::parserKeyForPathComponentKind(component.kind);
    const auto p = key.empty() ? Predicate::parsef("path BEGINSWITH[c] %@", nullptr, component.source + "/")
                               : Predicate::parsef("(info.%@ == %@)", nullptr, key, component.source);
    return p ? filtered(items, *p) : SelectionItems{};
}

bool CVAutoselector::selectItemToRemove(const SelectionItem& item, SelectionType selectionType) {
    if (item->needToRemove())
        return false;
    item->setNeedToRemove(true);
    ++m_selectedItemsCount;
    item->setSelectionType(selectionType);
    return true;
}

SelectionItems CVAutoselector::predicateBasedItemsSelector(const SelectionItems& candidates,
                                                           const Predicate& p, SelectionType selectionType) {
    const SelectionItems matching = filtered(candidates, p);
    if (matching.size() >= notSelectedItems().size())
        return candidates; // selecting them all would leave no copy
    for (const auto& item : matching)
        selectItemToRemove(item, selectionType);
    return minus(candidates, matching);
}

SelectionItems CVAutoselector::whiteListSelector(const SelectionItems& candidates, bool& allWhite) {
    const SelectionItems matching = whiteListFilter(candidates);
    allWhite = matching.size() >= notSelectedItems().size();
    if (allWhite)
        return candidates;
    for (const auto& item : matching)
        selectItemToRemove(item, kSelectionAutomatic);
    return minus(candidates, matching);
}

SelectionItems CVAutoselector::undefinedTypeItemsSelector(const SelectionItems& candidates) {
    return predicateBasedItemsSelector(candidates, predicate("type == %i", kNodeTypeUnknown));
}

SelectionItems CVAutoselector::pathBasedItemsSelector(const SelectionItems& candidates,
                                                      const std::string& path) {
    return predicateBasedItemsSelector(candidates,
                                       *Predicate::parsef("path BEGINSWITH[c] %@", nullptr, path));
}

SelectionItems CVAutoselector::applicationsItemsSelector(const SelectionItems& candidates,
                                                         const std::string& userApplications) {
    // "/Application" without the final "s" also matches paths that merely begin so; kept.
    return predicateBasedItemsSelector(
        candidates, *Predicate::parsef("!(path BEGINSWITH '/Application') && !(path BEGINSWITH %@)", nullptr,
                                       userApplications));
}

SelectionItems CVAutoselector::libraryItemsSelector(const SelectionItems& candidates,
                                                    const SelectionItems& toSelect) {
    for (const auto& item : toSelect)
        selectItemToRemove(item, kSelectionAutomatic);
    return minus(candidates, toSelect);
}

SelectionItems CVAutoselector::iTunesLiraryItemsSelector(const SelectionItems& candidates) {
    return libraryItemsSelector(candidates, CVITunesAutoselectFilter(candidates).getItemsToSelect());
}

SelectionItems CVAutoselector::iPhotoLibraryItemsSelector(const SelectionItems& candidates) {
    libraryItemsSelector(candidates, CViPhotoAutoselectFilter(candidates).getItemsToFilter());
    return {}; // no photo-library copy goes on to the copy-name step
}

SelectionItems CVAutoselector::librariesItemsSelector(const SelectionItems& candidates) {
    const SelectionItems iTunes = iTunesItemsFilter(candidates);
    const SelectionItems iPhoto = iPhotoItemsFilter(candidates);
    const SelectionItems aperture = apertureItemsFilter(m_itemsToSelect);
    if (iTunes.empty() && iPhoto.empty()) {
        if (aperture.empty())
            return candidates;
        // The copies outside the library go, but only while a copy stays: the library
        // copies may already be selected (Always Select, unknown type).
        const SelectionItems outside = minus(candidates, aperture);
        if (outside.size() >= notSelectedItems().size())
            return candidates;
        for (const auto& item : outside)
            selectItemToRemove(item, kSelectionAutomatic);
        return {};
    }
    // Copies outside the libraries go first.
    // NOLINTNEXTLINE(readability-suspicious-call-argument): the library items are the ones taken away.
    for (const auto& item : minus(minus(candidates, iTunes), iPhoto))
        selectItemToRemove(item, kSelectionAutomatic);
    SelectionItems rest = iTunesLiraryItemsSelector(iTunes);
    const SelectionItems photos = iPhotoLibraryItemsSelector(iPhoto);
    rest.insert(rest.end(), photos.begin(), photos.end());
    return rest;
}

SelectionItems CVAutoselector::modificationDateBasedItemsSelector(const SelectionItems& candidates,
                                                                  bool keepYoungest) {
    if (candidates.empty())
        return candidates;
    SelectionItems sorted = candidates;
    std::stable_sort(
        sorted.begin(), sorted.end(), [keepYoungest](const SelectionItem& a, const SelectionItem& b) {
            return keepYoungest ? a->statMTime() > b->statMTime() : a->statMTime() < b->statMTime();
        });
    if (sorted.front()->statMTime() == sorted.back()->statMTime())
        return candidates;
    deselectAll();
    // The time goes in signed: times before 1970 are negative.
    return predicateBasedItemsSelector(
        candidates,
        *Predicate::parsef("(statMTime != %lu)", nullptr,
                           static_cast<long long>(sorted.front()->statMTime())),
        kSelectionStrong);
}

SelectionItems CVAutoselector::smartPatternItemsSelector(const SelectionItems& candidates) {
    std::vector<std::pair<std::string, SelectionItem>> byPath;
    for (const auto& item : candidates) {
        const std::string path = item->path();
        auto it = std::find_if(byPath.begin(), byPath.end(), [&](const auto& e) { return e.first == path; });
        if (it == byPath.end())
            byPath.emplace_back(path, item);
        else
            it->second = item; // a later candidate with the same path stands for it
    }
    std::vector<std::string> paths;
    paths.reserve(byPath.size());
    for (const auto& [path, item] : byPath)
        paths.push_back(path);
    const std::vector<std::string> copies = CVSmartPattern(paths).getDuplicatePathStrings();
    if (copies.empty())
        return candidates;
    if (copies.size() < notSelectedItems().size()) {
        for (const auto& copy : copies) {
            auto it =
                std::find_if(byPath.begin(), byPath.end(), [&](const auto& e) { return e.first == copy; });
            if (it != byPath.end()) {
                selectItemToRemove(it->second, kSelectionAutomatic);
                byPath.erase(it);
            }
        }
    }
    SelectionItems rest;
    for (const auto& [path, item] : byPath)
        rest.push_back(item);
    return rest;
}

CVSelectionResult CVAutoselector::autoselect() {
    if (!manuallyTouchedItems().empty())
        return CVSelectionResult::zeroSelectionWithType(kResultAutomatic);
    for (const auto& item : autoselectedItems())
        deselectItem(item);
    const SelectionItems allowed = itemsAllowedToSelect();
    bool allWhite = false;
    SelectionItems rest = allowed;
    if (!allowed.empty()) {
        rest = whiteListSelector(rest, allWhite);
        rest = undefinedTypeItemsSelector(rest);
        if (!rest.empty()) {
            const CVGroup* group = rest.front()->parentGroup();
            const NodeType groupType = group ? group->type() : kNodeTypeUnknown;
            if (groupType == kNodeTypeImage || groupType == kNodeTypeAudio || groupType == kNodeTypeVideo)
                rest = librariesItemsSelector(rest);
        }
        if (!rest.empty())
            rest = smartPatternItemsSelector(rest);
    }
    if (allWhite && !rest.empty() && rest.size() == allowed.size()) {
        // Every allowed copy is in an Always Select folder: all but the first go.
        for (const auto& item : rest)
            selectItemToRemove(item, kSelectionAutomatic);
        deselectItem(rest.front());
    }
    return CVSelectionResult::selectionResultWithType(
        kResultAutomatic, intersection(autoselectedItems(), alreadySelectedItems()).size());
}

CVSelectionResult CVAutoselector::forceAutoselect() {
    deselectAll();
    return autoselect();
}

bool CVAutoselector::selectionPossible() const {
    return alreadySelectedItems().size() + 1 < m_itemsToSelect.size();
}

CVSelectionResult CVAutoselector::manuallySelectItem(const SelectionItem& item) {
    return CVSelectionResult::selectionResultWithType(kResultManual,
                                                      selectItemToRemove(item, kSelectionManual) ? 1 : 0);
}

CVSelectionResult CVAutoselector::manuallySelectAllButItem(const SelectionItem& item) {
    const SelectionItems possible = itemsPossibleToSelect();
    for (const auto& candidate : possible)
        selectItemToRemove(candidate, kSelectionManual);
    deselectItem(item);
    return CVSelectionResult::selectionResultWithType(kResultManual,
                                                      possible.empty() ? 0 : possible.size() - 1);
}

CVSelectionResult CVAutoselector::keepAnyItem() {
    SelectionItems possible = itemsPossibleToSelect();
    if (itemsImpossibleToSelect().empty() && !possible.empty())
        possible.erase(possible.begin()); // the first is kept
    deselectAll();
    for (const auto& item : possible)
        selectItemToRemove(item, kSelectionWeak);
    return CVSelectionResult::selectionResultWithType(kResultWeak, possible.size());
}

CVSelectionResult CVAutoselector::dateOperation(bool keepYoungest) {
    const SelectionItems possible = itemsPossibleToSelect();
    const SelectionItems undecided = modificationDateBasedItemsSelector(possible, keepYoungest);
    return CVSelectionResult::selectionResultWithType(kResultDate, possible.size() - undecided.size());
}

CVSelectionResult CVAutoselector::selectAllLikePathComponent(const CVPathComponent& component) {
    const SelectionItems possible = itemsPossibleToSelect();
    const SelectionItems like = itemsFilter(possible, component);
    const SelectionItems handSelected = manuallySelectedItems();
    const SelectionItems others = minus(minus(possible, like), handSelected);
    if (like.empty())
        return CVSelectionResult::zeroSelectionWithType(kResultWeak);
    const SelectionItems handOther = minus(handSelected, like);
    if (like.size() < m_itemsToSelect.size() - handOther.size()) {
        SelectionItems covered = alreadySelectedItems();
        for (const auto& item : like)
            if (!contains(covered, item))
                covered.push_back(item);
        if (covered.size() >= m_itemsToSelect.size()) {
            if (others.empty())
                return CVSelectionResult::zeroSelectionWithType(kResultWeak);
            for (const auto& item : others)
                deselectItem(item);
        }
        for (const auto& item : like)
            selectItemToRemove(item, kSelectionWeak);
        return CVSelectionResult::selectionResultWithType(kResultWeak, like.size());
    }
    return autoselect();
}

CVSelectionResult CVAutoselector::deselectAllFilesWithPathComponent(const CVPathComponent& component) {
    for (const auto& item : itemsFilter(m_itemsToSelect, component))
        deselectItem(item);
    return CVSelectionResult::zeroSelectionWithType(kResultDeselection);
}

CVSelectionResult CVAutoselector::deselectItem(const SelectionItem& item) {
    item->setSelectionType(kSelectionNone);
    if (item->needToRemove()) {
        item->setNeedToRemove(false);
        --m_selectedItemsCount;
    }
    return CVSelectionResult::zeroSelectionWithType(kResultDeselection);
}

CVSelectionResult CVAutoselector::manualDeselectItem(const SelectionItem& item) {
    if (item->needToRemove()) {
        item->setSelectionType(kSelectionManual);
        item->setNeedToRemove(false);
    }
    return CVSelectionResult::zeroSelectionWithType(kResultManual);
}

CVSelectionResult CVAutoselector::deselectAll() {
    for (const auto& item : m_itemsToSelect)
        deselectItem(item);
    return CVSelectionResult::zeroSelectionWithType(kResultDeselection);
}

} // namespace corvel
