#pragma once
// CVResultsViewController: the results screen without a toolkit. It browses the results
// on three levels (categories, the groups of the chosen category, the files of the
// chosen group), filters the groups by the search predicate, sorts them, turns the
// user's selection commands into calls on the selecting controller, excludes items into
// the ignore list, and serves reveal, open-with and preview. What it shows goes to its
// ResultsView.
//
// Category n (n not 0) shows the groups whose first member satisfies
// "(metaGroupType == n)"; category 0 shows every group the search lets through.
// Commands on "the list" act on the groups selected in the groups table, or on every
// group shown when none is selected.
//
// Main thread. The notifications it observes may be posted from any thread; their work
// runs on the main queue.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "engine/path_component.h"
#include "open_with_menu.h"
#include "platform/notification_center.h"
#include "results_roles.h"
#include "results_services.h"
#include "results_view.h"

namespace corvel {

class CVDuplicatesController;
class CVMetaGroup;

inline constexpr const char* kShowDiagramKey = "ShowDiagram";
inline constexpr const char* kDontWarnAllFilesSelectionKey = "DontWarnAllFilesSelection";
inline constexpr const char* kItemsAddedToIgnoreListNotification = "com.halvik.Corvel.itemsAddedToIgnoreList";
inline constexpr const char* kSelectGroupsTableNotification = "com.halvik.Corvel.selectGroupsTable";
inline constexpr const char* kSelectCatsTableNotification = "com.halvik.Corvel.selectCatsTable";
inline constexpr const char* kSelectFilesTableNotification = "com.halvik.Corvel.selectFilesTable";
inline constexpr const char* kCollectorDidUpdateRemovedFilesNotification = "CollectorDidUpdateRemovedFiles";

// The four segments of the folder-level selection control.
enum FolderLevelSelection : std::int64_t {
    kFolderLevelAuto = 0,
    kFolderLevelNewest = 1,
    kFolderLevelOldest = 2,
    kFolderLevelAny = 3,
};

class CVResultsViewController final : public ResultsViewRole {
public:
    using GroupPtr = std::shared_ptr<CVGroup>;
    using FilePtr = std::shared_ptr<CVFile>;

    // Loads the view: registers "ShowDiagram" (YES), restores the diagram and the sort
    // from the settings, shows the categories with "all" selected.
    CVResultsViewController(std::shared_ptr<CVDuplicatesController> duplicates,
                            std::unique_ptr<ResultsView> view, ResultsServices services);
    ~CVResultsViewController() override;
    CVResultsViewController(const CVResultsViewController&) = delete;
    CVResultsViewController& operator=(const CVResultsViewController&) = delete;

    // ResultsViewRole.
    void setSelectingController(CVSelectingController* controller) override { m_selecting = controller; }
    void setQlDataSource(CollectorRole* collector) override { m_qlDataSource = collector; }
    void setFolderName(const std::string& name) override;
    void setSearchFieldPredicateString(const std::string& predicate) override;
    void clearTableSelections() override;
    std::string selectedMetaGroupName() const override;
    void autoselectAction() override;
    void autoselectAllAction() override;
    void deselectFromMenuAction() override;
    void deselectAllAction() override;
    void keepOldestFilesAction() override;
    void keepMostRecentFilesAction() override;
    void openPathToCollectFiles() override;
    void exportSelectedDupes() override;

    // Table selections, as the user makes them (row indexes of what is shown).
    void setSelectedMetaGroupAction(std::size_t row);
    void setSelectedGroupRows(const std::vector<std::size_t>& rows);
    void setSelectedFileRows(const std::vector<std::size_t>& rows);

    // Commands.
    void toggleDiagramAction();
    void manualSelectionAction(std::int64_t segment);
    void deselectGroupsFromListAction();
    void switchFileSelectionAction(const FilePtr& file);
    void selectAllButFileAction(const FilePtr& file);
    // The sort button changed; nothing happens when type and direction are the stored ones
    // unless forced.
    void sortAction(std::int64_t type, bool ascending, bool force = false);
    void addToIgnoreListAction(const FilePtr& item);
    void revealInFinderAction(const FilePtr& item);
    // The files selected in the files table.
    void revealInFinderFromMenuAction();
    // A photo of a photo library: selected in the library's application through a script;
    // a failure is logged as "Error while revealing in iPhoto: %@".
    void revealIniPhotoFromMenuAction(const FilePtr& item);
    void openMenuAction(const FilePtr& item);
    std::vector<OpenWithMenuItem> openWithMenu(const FilePtr& item);
    void openWithApplicationSelected(const FilePtr& item, const std::string& applicationIdentifier);
    void openWithApplicationOtherSelected(const FilePtr& item);
    // Previews the selected files, or the collector's while it is open.
    void showQuickLook();
    // Marks the files shown that are gone from the disk (wasRemovedOutside).
    void checkVisibleFilesExistenceWithoutValidation();

    // CVSelectingControllerDelegate.
    void selectingDidFinished() override;
    void selectingDidFailedForItem(const SelectionItem& item) override;

    // What is shown.
    const std::vector<std::shared_ptr<CVMetaGroup>>& categories() const { return m_categories; }
    std::optional<std::int32_t> selectedMetaGroupID() const { return m_selectedMetaGroupID; }
    const std::vector<GroupPtr>& groups() const { return m_groups; }
    const std::vector<std::size_t>& selectedGroupRows() const { return m_selectedGroupRows; }
    const std::vector<FilePtr>& files() const { return m_files; }
    const std::vector<std::size_t>& selectedFileRows() const { return m_selectedFileRows; }
    bool diagramShown() const { return m_diagramShown; }
    std::int64_t sortType() const { return m_sortType; }
    bool sortAscending() const { return m_sortAscending; }
    const std::optional<CVPathComponent>& currentPathComponent() const { return m_currentPathComponent; }
    CVSelectingController* selectingController() const { return m_selecting; }
    const std::shared_ptr<CVDuplicatesController>& duplicatesController() const { return m_duplicates; }
    ResultsView& view() { return *m_view; }

    // The categories' analytics labels: "All" for 0, "Auto Select Other" … "Auto Select Folders".
    static std::string autoselectLabel(std::int32_t groupID);
    static const char* folderLevelLabel(std::int64_t segment);
    // The script that shows the photo at path in the photo library's application.
    static std::string iPhotoRevealScript(const std::string& path);

private:
    // Reads the categories from the results and selects the one with the kept groupID
    // (or "all" when it is gone), then the groups.
    void reloadCategories();
    // The groups of the selected category, filtered and sorted; keeps the group selection
    // where the same groups are still shown.
    void rearrangeGroups();
    void reloadFiles();
    std::vector<GroupPtr> listGroups() const;
    void track(const char* category, const char* action, const std::string& label = {});
    void onMain(std::function<void()> task);
    void selectTableFromNotification(ResultsTable table);

    std::shared_ptr<CVDuplicatesController> m_duplicates;
    std::unique_ptr<ResultsView> m_view;
    ResultsServices m_services;
    CVSelectingController* m_selecting = nullptr;
    CollectorRole* m_qlDataSource = nullptr;

    std::vector<std::shared_ptr<CVMetaGroup>> m_categories;
    std::optional<std::int32_t> m_selectedMetaGroupID;
    std::vector<GroupPtr> m_groups;
    std::vector<std::size_t> m_selectedGroupRows;
    std::vector<FilePtr> m_files;
    std::vector<std::size_t> m_selectedFileRows;
    std::string m_folderName;
    bool m_diagramShown = true;
    std::int64_t m_sortType = 0;
    bool m_sortAscending = false;
    std::optional<CVPathComponent> m_currentPathComponent;

    std::vector<ScopedObserver> m_observers;
    std::shared_ptr<bool> m_alive = std::make_shared<bool>(true);
};

} // namespace corvel
