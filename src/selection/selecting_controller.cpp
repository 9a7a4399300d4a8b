#include "selecting_controller.h"

#include "platform/string_tables.h"
#include "platform/system_log.h"
#include "platform/text_format.h"

namespace corvel {

namespace {

SelectionItems allChildren(const CVGroup& group) {
    return group.files();
}

} // namespace

CVSelectingController::CVSelectingController(CVSelectingControllerDelegate* delegate, UserDefaults& defaults)
    : m_delegate(delegate), m_defaults(defaults) {}

std::pair<CVSelectionResult, std::int64_t>
CVSelectingController::run(const Operation& operation, const GroupPtr& group, const SelectionItems& items) {
    CVAutoselector selector(items, m_defaults);
    const CVSelectionResult result = operation(selector);
    group->setSilentFilesToRemoveCount(group->silentFilesToRemoveCount() + selector.selectedItemsCount());
    return {result, selector.selectedItemsCount()};
}

std::pair<std::string, std::string> CVSelectingController::messageFor(std::uint64_t selectionCount,
                                                                      std::int32_t selectionType) {
    const bool automatic = selectionType == kResultAutomatic;
    if (selectionCount == 1)
        return {localized(automatic ? "CollectorControlDetailsText_OneDuplicateAutoselected"
                                    : "CollectorControlDetailsText_OneDuplicateSelected"),
                ""};
    if (selectionCount >= 2)
        return {formatf(localized(automatic ? "CollectorControlDetailsText_AutoselectedDuplicatesNumber"
                                            : "CollectorControlDetailsText_SelectedDuplicatesNumber"),
                        static_cast<unsigned long long>(selectionCount)),
                ""};
    return {localized("WarningDetailsText_PleaseSelectManually"),
            localized(selectionType == kResultDate ? "WarningGeneralText_FilesSameDate"
                                                   : "WarningGeneralText_NoMoreAutoselectRule")};
}

void CVSelectingController::displayMessage(std::uint64_t selectionCount, std::int64_t totalCount,
                                           std::int64_t totalSize, std::int32_t selectionType) {
    const auto [details, warning] = messageFor(selectionCount, selectionType);
    if (m_display)
        m_display->shouldIncSelectedSize(totalSize, totalCount, warning, details);
    systemLogf("%@", details);
}

void CVSelectingController::performAutoselectSelector(const Operation& operation, const GroupPtr& group,
                                                      bool displayMessages) {
    if (m_delegate)
        m_delegate->selectingDidStarted();
    const auto [result, count] = run(operation, group, group->existentChildren());
    const std::int64_t size = static_cast<std::int64_t>(group->sizeOnDisk()) * count;
    if (!displayMessages) {
        if (m_display)
            m_display->shouldIncSelectedSize(size, count);
    } else {
        displayMessage(result.count, count, size, result.type);
    }
    group->manifest();
    if (m_delegate)
        m_delegate->selectingDidFinished();
}

void CVSelectingController::deselectGroup(const GroupPtr& group) {
    if (m_delegate)
        m_delegate->selectingDidStarted();
    const auto [result, count] =
        run([](CVAutoselector& s) { return s.deselectAll(); }, group, allChildren(*group));
    if (m_display)
        m_display->shouldIncSelectedSize(static_cast<std::int64_t>(group->sizeOnDisk()) * count, count);
    group->manifest();
    if (m_delegate)
        m_delegate->selectingDidFinished();
}

void CVSelectingController::selectAllButItem(const SelectionItem& item, const GroupPtr& group) {
    performAutoselectSelector([item](CVAutoselector& s) { return s.manuallySelectAllButItem(item); }, group,
                              false);
}

void CVSelectingController::keepOldestItemsInGroup(const GroupPtr& group) {
    performAutoselectSelector([](CVAutoselector& s) { return s.keepOldestItems(); }, group, false);
}

void CVSelectingController::keepMostRecentItemsInGroup(const GroupPtr& group) {
    performAutoselectSelector([](CVAutoselector& s) { return s.keepMostRecentItems(); }, group, false);
}

void CVSelectingController::performAutoselectSelector(const Operation& operation,
                                                      const std::vector<GroupPtr>& groups,
                                                      bool displayMessages) {
    if (m_delegate)
        m_delegate->selectingDidStarted();
    // A copy: the delegate's handlers may change the list the caller passed while this runs.
    const std::vector<GroupPtr> snapshot = groups; // NOLINT(performance-unnecessary-copy-initialization)
    std::int64_t totalCount = 0;
    std::int64_t totalSize = 0;
    std::uint64_t resultCount = 0;
    std::int32_t lastType = kResultDeselection;
    for (const auto& group : snapshot) {
        const auto [result, count] = run(operation, group, group->existentChildren());
        totalCount += count;
        totalSize += static_cast<std::int64_t>(group->sizeOnDisk()) * count;
        resultCount += result.count;
        lastType = result.type;
    }
    if (displayMessages)
        displayMessage(resultCount, totalCount, totalSize, lastType);
    else if (m_display)
        m_display->shouldIncSelectedSize(totalSize, totalCount);
    for (const auto& group : snapshot)
        group->manifest();
    if (m_delegate)
        m_delegate->selectingDidFinished();
    if (totalSize > 0 && m_notifications)
        m_notifications->postAutoSelectCompleteNotificationWithSize(static_cast<std::uint64_t>(totalSize));
}

void CVSelectingController::autoselectGroups(const std::vector<GroupPtr>& groups) {
    performAutoselectSelector([](CVAutoselector& s) { return s.autoselect(); }, groups, true);
}

void CVSelectingController::forceAutoselectGroups(const std::vector<GroupPtr>& groups) {
    performAutoselectSelector([](CVAutoselector& s) { return s.forceAutoselect(); }, groups, true);
}

void CVSelectingController::deselectGroups(const std::vector<GroupPtr>& groups) {
    performAutoselectSelector([](CVAutoselector& s) { return s.deselectAll(); }, groups, false);
}

void CVSelectingController::selectGroupsInArray(const std::vector<GroupPtr>& groups,
                                                const CVPathComponent& component) {
    performAutoselectSelector(
        [component](CVAutoselector& s) { return s.selectAllLikePathComponent(component); }, groups, false);
}

void CVSelectingController::deselectGroupsInArray(const std::vector<GroupPtr>& groups,
                                                  const CVPathComponent& component) {
    performAutoselectSelector(
        [component](CVAutoselector& s) { return s.deselectAllFilesWithPathComponent(component); }, groups,
        false);
}

void CVSelectingController::keepOldestItemsInGroupsArray(const std::vector<GroupPtr>& groups) {
    performAutoselectSelector([](CVAutoselector& s) { return s.keepOldestItems(); }, groups, true);
}

void CVSelectingController::keepMostRecentItemsInGroupsArray(const std::vector<GroupPtr>& groups) {
    performAutoselectSelector([](CVAutoselector& s) { return s.keepMostRecentItems(); }, groups, true);
}

void CVSelectingController::selectAllButItemInGroupsArray(const std::vector<GroupPtr>& groups) {
    performAutoselectSelector([](CVAutoselector& s) { return s.keepAnyItem(); }, groups, true);
}

void CVSelectingController::selectItem(const SelectionItem& item, const GroupPtr& group, bool forceSelect) {
    if (!forceSelect && !CVAutoselector(group->existentChildren(), m_defaults).selectionPossible()) {
        if (m_delegate)
            m_delegate->selectingDidFailedForItem(item);
        return;
    }
    CVAutoselector(group->existentChildren(), m_defaults).manuallySelectItem(item);
    group->setSilentFilesToRemoveCount(group->silentFilesToRemoveCount() + 1);
    group->manifest();
    if (m_delegate)
        m_delegate->selectingDidSuccessedForItem(item);
    if (m_display)
        m_display->shouldIncSelectedSize(static_cast<std::int64_t>(item->sizeOnDisk()), 1);
}

void CVSelectingController::deselectItem(const SelectionItem& item) {
    CVAutoselector::manualDeselectItem(item);
    if (CVGroup* group = item->parentGroup()) {
        group->setSilentFilesToRemoveCount(group->silentFilesToRemoveCount() - 1);
        group->manifest();
    }
    if (m_display)
        m_display->shouldIncSelectedSize(-static_cast<std::int64_t>(item->sizeOnDisk()), -1);
}

} // namespace corvel
