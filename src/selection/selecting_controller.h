#pragma once
// CVSelectingController: the one door through which the results change the selection.
// It runs an automatic-selection operation on one group or a list of groups, keeps
// each group's count of files to remove, tells its display how the selected size and
// count changed, and words the message shown after an operation. Main thread.

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "autoselector.h"
#include "engine/group.h"

namespace corvel {

class UserDefaults;

class CVSelectingControllerDelegate {
public:
    virtual ~CVSelectingControllerDelegate() = default;
    virtual void selectingDidStarted() {}
    virtual void selectingDidFinished() {}
    virtual void selectingDidFailedForItem(const SelectionItem& /*item*/) {}
    virtual void selectingDidSuccessedForItem(const SelectionItem& /*item*/) {}
};

class CVSelectingControllerDisplay {
public:
    virtual ~CVSelectingControllerDisplay() = default;
    virtual void shouldIncSelectedSize(std::int64_t size, std::int64_t count) = 0;
    // warning is empty when there is none.
    virtual void shouldIncSelectedSize(std::int64_t size, std::int64_t count, const std::string& warning,
                                       const std::string& details) = 0;
};

// Tells the user, outside the window, how much an automatic selection chose.
class SelectionNotificationService {
public:
    virtual ~SelectionNotificationService() = default;
    virtual void postAutoSelectCompleteNotificationWithSize(std::uint64_t size) = 0;
};

class CVSelectingController {
public:
    using GroupPtr = std::shared_ptr<CVGroup>;
    using Operation = std::function<CVSelectionResult(CVAutoselector&)>;

    CVSelectingController(CVSelectingControllerDelegate* delegate, UserDefaults& defaults);
    void setDisplay(CVSelectingControllerDisplay* display) { m_display = display; }
    void setNotificationService(SelectionNotificationService* service) { m_notifications = service; }

    // One group (over its existing children unless said otherwise).
    void performAutoselectSelector(const Operation& operation, const GroupPtr& group, bool displayMessages);
    void deselectGroup(const GroupPtr& group);
    void selectAllButItem(const SelectionItem& item, const GroupPtr& group);
    void keepOldestItemsInGroup(const GroupPtr& group);
    void keepMostRecentItemsInGroup(const GroupPtr& group);

    // Lists of groups.
    void performAutoselectSelector(const Operation& operation, const std::vector<GroupPtr>& groups,
                                   bool displayMessages);
    void autoselectGroups(const std::vector<GroupPtr>& groups);
    void forceAutoselectGroups(const std::vector<GroupPtr>& groups);
    void deselectGroups(const std::vector<GroupPtr>& groups);
    void selectGroupsInArray(const std::vector<GroupPtr>& groups, const CVPathComponent& component);
    void deselectGroupsInArray(const std::vector<GroupPtr>& groups, const CVPathComponent& component);
    void keepOldestItemsInGroupsArray(const std::vector<GroupPtr>& groups);
    void keepMostRecentItemsInGroupsArray(const std::vector<GroupPtr>& groups);
    void selectAllButItemInGroupsArray(const std::vector<GroupPtr>& groups);

    // Single items.
    void selectItem(const SelectionItem& item, const GroupPtr& group, bool forceSelect);
    void deselectItem(const SelectionItem& item);

    // The details text (and warning, empty for none) for a finished operation.
    static std::pair<std::string, std::string> messageFor(std::uint64_t selectionCount,
                                                          std::int32_t selectionType);

private:
    void displayMessage(std::uint64_t selectionCount, std::int64_t totalCount, std::int64_t totalSize,
                        std::int32_t selectionType);
    // Runs the operation over the items; answers the result and the selector's count.
    std::pair<CVSelectionResult, std::int64_t> run(const Operation& operation, const GroupPtr& group,
                                                   const SelectionItems& items);

    CVSelectingControllerDelegate* m_delegate;
    CVSelectingControllerDisplay* m_display = nullptr;
    SelectionNotificationService* m_notifications = nullptr;
    UserDefaults& m_defaults;
};

} // namespace corvel
