#include "results_view_controller.h"

#include <algorithm>
#include <sys/stat.h>

#include "collector_view_controller.h"
#include "desktop_roles.h"
#include "engine/folder.h"
#include "engine/node_key_values.h"
#include "engine/node_type.h"
#include "groups_sorting.h"
#include "platform/main_queue.h"
#include "platform/predicate.h"
#include "platform/string_tables.h"
#include "platform/system_log.h"
#include "platform/text_format.h"
#include "platform/tracker.h"
#include "platform/user_defaults.h"
#include "removal/library_app_driver.h"
#include "results/duplicates_controller.h"
#include "results/meta_group.h"
#include "settings/ignore_list.h"
#include "settings/preferences.h"

namespace corvel {

namespace {

bool existsOnDisk(const std::string& path) {
    struct stat st {};
    return ::lstat(path.c_str(), &st) == 0;
}

std::vector<std::string> pathsOf(const std::vector<std::shared_ptr<CVFile>>& files) {
    std::vector<std::string> paths;
    paths.reserve(files.size());
    for (const auto& file : files)
        paths.push_back(file->path());
    return paths;
}

// Adds {"Value": path, "Enabled": YES} to the list, or enables the entry already there.
void addEnabledRecord(PropertyValue::Array& list, const std::string& path) {
    for (auto& record : list) {
        if (record.isDictionary() && record[kRecordValueKey].toString() == path) {
            record.mutableDictionary()[kRecordEnabledKey] = PropertyValue(true);
            return;
        }
    }
    list.emplace_back(PropertyValue::Dictionary{{kRecordValueKey, path}, {kRecordEnabledKey, true}});
}

} // namespace

CVResultsViewController::CVResultsViewController(std::shared_ptr<CVDuplicatesController> duplicates,
                                                 std::unique_ptr<ResultsView> view, ResultsServices services)
    : m_duplicates(std::move(duplicates)), m_view(std::move(view)), m_services(services) {
    if (!m_duplicates)
        m_duplicates = std::make_shared<CVDuplicatesController>();
    auto& defaults = m_services.defaults;
    defaults.registerDefaults({{kShowDiagramKey, true}});
    m_diagramShown = defaults.boolForKey(kShowDiagramKey);
    m_view->setDiagramShown(
        m_diagramShown,
        localized(m_diagramShown ? "ButtonToolTip_HideDiagram" : "ButtonToolTip_ShowDiagram", "Buttons"));
    m_sortType = m_services.preferences.sortKey();
    m_sortAscending = m_services.preferences.sortDirection();
    m_view->setSortButton(m_sortType, m_sortAscending);

    auto& center = m_services.center;
    std::weak_ptr<bool> alive = m_alive;
    auto observe = [&](const char* name, const std::function<void()>& work) {
        m_observers.emplace_back(center,
                                 center.addObserver(name, nullptr, [this, alive, work](const Notification&) {
                                     if (alive.lock())
                                         onMain(work);
                                 }));
    };
    observe(kSelectGroupsTableNotification, [this] { selectTableFromNotification(ResultsTable::Groups); });
    observe(kSelectCatsTableNotification, [this] { selectTableFromNotification(ResultsTable::Categories); });
    observe(kSelectFilesTableNotification, [this] { selectTableFromNotification(ResultsTable::Files); });
    observe(kCollectorDidUpdateRemovedFilesNotification, [this] {
        reloadCategories();
        checkVisibleFilesExistenceWithoutValidation();
    });
    m_selectedMetaGroupID = kMetaGroupAll;
    reloadCategories();
}

CVResultsViewController::~CVResultsViewController() {
    m_observers.clear();
    *m_alive = false;
}

void CVResultsViewController::onMain(std::function<void()> task) {
    if (m_services.mainQueue.isMainThread()) {
        task();
        return;
    }
    std::weak_ptr<bool> alive = m_alive;
    m_services.mainQueue.post([alive, task = std::move(task)] {
        if (auto flag = alive.lock(); flag && *flag)
            task();
    });
}

void CVResultsViewController::track(const char* category, const char* action, const std::string& label) {
    m_services.tracker.trackEvent(category, action, label, 1);
}

// ---- What is shown ----------------------------------------------------------------------

void CVResultsViewController::reloadCategories() {
    m_categories = m_duplicates->metaGroups();
    std::optional<std::size_t> row;
    if (m_selectedMetaGroupID) {
        for (std::size_t i = 0; i < m_categories.size(); ++i)
            if (m_categories[i]->groupID() == *m_selectedMetaGroupID)
                row = i;
        // The category is empty under the filter: "all" takes its place.
        if (!row && !m_categories.empty()) {
            row = 0;
            m_selectedMetaGroupID = m_categories[0]->groupID();
        }
    }
    m_view->showCategories(m_categories, row);
    rearrangeGroups();
}

void CVResultsViewController::rearrangeGroups() {
    std::vector<GroupPtr> selected;
    for (const std::size_t row : m_selectedGroupRows)
        if (row < m_groups.size())
            selected.push_back(m_groups[row]);

    std::vector<GroupPtr> groups = m_duplicates->duplicatesGroups();
    const std::int32_t category = m_selectedMetaGroupID.value_or(kMetaGroupAll);
    if (category != kMetaGroupAll) {
        CVError error;
        const auto predicate = Predicate::parsef("(metaGroupType == %i)", &error, category);
        std::vector<GroupPtr> filtered;
        if (predicate) {
            for (const auto& group : groups) {
                const auto members = group->files();
                if (!members.empty() && predicate->evaluate(NodeKeyValues(*members.front())))
                    filtered.push_back(group);
            }
        }
        groups = std::move(filtered);
    }
    sortGroups(groups, m_sortType, m_sortAscending);
    m_groups = std::move(groups);

    m_selectedGroupRows.clear();
    for (std::size_t i = 0; i < m_groups.size() && !selected.empty(); ++i)
        if (std::find(selected.begin(), selected.end(), m_groups[i]) != selected.end())
            m_selectedGroupRows.push_back(i);
    m_view->showGroups(m_groups, m_selectedGroupRows);
    reloadFiles();
}

void CVResultsViewController::reloadFiles() {
    std::vector<FilePtr> selected;
    for (const std::size_t row : m_selectedFileRows)
        if (row < m_files.size())
            selected.push_back(m_files[row]);
    m_files.clear();
    if (m_selectedGroupRows.size() == 1)
        m_files = m_groups[m_selectedGroupRows.front()]->files();
    m_selectedFileRows.clear();
    for (std::size_t i = 0; i < m_files.size() && !selected.empty(); ++i)
        if (std::find(selected.begin(), selected.end(), m_files[i]) != selected.end())
            m_selectedFileRows.push_back(i);
    m_view->showFiles(m_files, m_selectedFileRows);
}

void CVResultsViewController::setFolderName(const std::string& name) {
    m_folderName = name;
    m_view->setFolderName(name);
}

void CVResultsViewController::setSearchFieldPredicateString(const std::string& predicate) {
    m_duplicates->setFilterPredicate(predicate);
    // The category chosen before stays chosen, found again by its identifier.
    reloadCategories();
}

void CVResultsViewController::clearTableSelections() {
    m_selectedGroupRows.clear();
    m_selectedFileRows.clear();
    m_view->showGroups(m_groups, m_selectedGroupRows);
    reloadFiles();
}

std::string CVResultsViewController::selectedMetaGroupName() const {
    for (const auto& category : m_categories)
        if (m_selectedMetaGroupID && category->groupID() == *m_selectedMetaGroupID)
            return category->name();
    return {};
}

void CVResultsViewController::setSelectedMetaGroupAction(std::size_t row) {
    if (row >= m_categories.size())
        return;
    m_selectedMetaGroupID = m_categories[row]->groupID();
    m_selectedGroupRows.clear();
    m_selectedFileRows.clear();
    m_view->showCategories(m_categories, row);
    rearrangeGroups();
}

void CVResultsViewController::setSelectedGroupRows(const std::vector<std::size_t>& rows) {
    m_selectedGroupRows.clear();
    for (const std::size_t row : rows)
        if (row < m_groups.size())
            m_selectedGroupRows.push_back(row);
    m_selectedFileRows.clear();
    reloadFiles();
}

void CVResultsViewController::setSelectedFileRows(const std::vector<std::size_t>& rows) {
    m_selectedFileRows.clear();
    for (const std::size_t row : rows)
        if (row < m_files.size())
            m_selectedFileRows.push_back(row);
}

void CVResultsViewController::selectTableFromNotification(ResultsTable table) {
    m_view->makeFirstResponder(table);
    switch (table) {
    case ResultsTable::Categories:
        if (!m_selectedMetaGroupID && !m_categories.empty())
            setSelectedMetaGroupAction(0);
        break;
    case ResultsTable::Groups:
        if (m_selectedGroupRows.empty() && !m_groups.empty()) {
            setSelectedGroupRows({0});
            m_view->showGroups(m_groups, m_selectedGroupRows);
        }
        break;
    case ResultsTable::Files:
        if (m_selectedFileRows.empty() && !m_files.empty()) {
            setSelectedFileRows({0});
            m_view->showFiles(m_files, m_selectedFileRows);
        }
        break;
    }
}

// ---- Diagram and sort -------------------------------------------------------------------

void CVResultsViewController::toggleDiagramAction() {
    m_diagramShown = !m_diagramShown;
    track("Scan Results", m_diagramShown ? "Unhide Diagram" : "Hide Diagram");
    m_view->setDiagramShown(
        m_diagramShown,
        localized(m_diagramShown ? "ButtonToolTip_HideDiagram" : "ButtonToolTip_ShowDiagram", "Buttons"));
    m_services.defaults.setBool(m_diagramShown, kShowDiagramKey);
    CVError saveError;
    if (!m_services.defaults.synchronize(&saveError))
        systemLogf("Could not save the preferences = %@", saveError.localizedDescription());
}

void CVResultsViewController::sortAction(std::int64_t type, bool ascending, bool force) {
    if (!sortKeyForType(type))
        return;
    auto& preferences = m_services.preferences;
    if (!force && type == preferences.sortKey() && ascending == preferences.sortDirection())
        return;
    m_sortType = type;
    m_sortAscending = ascending;
    preferences.setSortKey(type);
    preferences.setSortDirection(ascending);
    preferences.acceptChanges();
    track("Scan Results", "Sort By", sortLabelForType(type));
    m_view->setSortButton(type, ascending);
    rearrangeGroups();
}

// ---- Selection commands ------------------------------------------------------------------

std::string CVResultsViewController::autoselectLabel(std::int32_t groupID) {
    switch (groupID) {
    case kMetaGroupOther:
        return "Auto Select Other";
    case kMetaGroupDocuments:
        return "Auto Select Documents";
    case kMetaGroupPictures:
        return "Auto Select Pictures";
    case kMetaGroupMusic:
        return "Auto Select Music";
    case kMetaGroupMovies:
        return "Auto Select Movies";
    case kMetaGroupArchives:
        return "Auto Select Archives";
    case kMetaGroupFolders:
        return "Auto Select Folders";
    default:
        return "All";
    }
}

const char* CVResultsViewController::folderLevelLabel(std::int64_t segment) {
    switch (segment) {
    case kFolderLevelAuto:
        return "Folder Level \u2013 Auto";
    case kFolderLevelNewest:
        return "Folder Level \u2013 Newest";
    case kFolderLevelOldest:
        return "Folder Level \u2013 Oldest";
    case kFolderLevelAny:
        return "Folder Level \u2013 Any ";
    default:
        return nullptr;
    }
}

std::vector<CVResultsViewController::GroupPtr> CVResultsViewController::listGroups() const {
    if (m_selectedGroupRows.empty())
        return m_groups;
    std::vector<GroupPtr> groups;
    for (const std::size_t row : m_selectedGroupRows)
        groups.push_back(m_groups[row]);
    return groups;
}

void CVResultsViewController::autoselectAction() {
    if (!m_selecting)
        return;
    const std::int32_t category = m_selectedMetaGroupID.value_or(kMetaGroupAll);
    track("Scan Results", "Auto Select", autoselectLabel(category));
    m_selecting->autoselectGroups(m_groups);
    for (const auto& metaGroup : m_categories)
        if (metaGroup->groupID() == category)
            metaGroup->setAutocollected(true);
}

void CVResultsViewController::autoselectAllAction() {
    if (!m_selecting)
        return;
    track("Scan Results", "Auto Select", autoselectLabel(kMetaGroupAll));
    m_selecting->autoselectGroups(m_duplicates->duplicatesGroups());
    for (const auto& metaGroup : m_categories)
        metaGroup->setAutocollected(true);
}

void CVResultsViewController::manualSelectionAction(std::int64_t segment) {
    const char* label = folderLevelLabel(segment);
    if (!m_selecting || !label)
        return;
    track("Scan Results", "Auto Select", label);
    const auto groups = listGroups();
    switch (segment) {
    case kFolderLevelAuto:
        m_selecting->autoselectGroups(groups);
        break;
    case kFolderLevelNewest:
        m_selecting->keepMostRecentItemsInGroupsArray(groups);
        break;
    case kFolderLevelOldest:
        m_selecting->keepOldestItemsInGroupsArray(groups);
        break;
    default:
        m_selecting->selectAllButItemInGroupsArray(groups);
        break;
    }
}

void CVResultsViewController::keepOldestFilesAction() {
    if (m_selecting)
        m_selecting->keepOldestItemsInGroupsArray(m_groups);
}

void CVResultsViewController::keepMostRecentFilesAction() {
    if (m_selecting)
        m_selecting->keepMostRecentItemsInGroupsArray(m_groups);
}

void CVResultsViewController::deselectFromMenuAction() {
    if (m_selecting)
        m_selecting->deselectGroups(m_groups);
}

void CVResultsViewController::deselectAllAction() {
    if (m_selecting)
        m_selecting->deselectGroups(m_duplicates->allDuplicatesGroups());
}

void CVResultsViewController::deselectGroupsFromListAction() {
    if (!m_selecting)
        return;
    track("Scan Results", "Remove Selection", "Folder Level");
    m_selecting->deselectGroups(listGroups());
}

void CVResultsViewController::switchFileSelectionAction(const FilePtr& file) {
    if (!m_selecting || !file || file->wasRemovedOutside() || file->wasRemoved())
        return;
    CVGroup* group = file->parentGroup();
    if (!group)
        return;
    if (file->needToRemove())
        m_selecting->deselectItem(file);
    else if (!file->removeForbidden())
        m_selecting->selectItem(file, std::static_pointer_cast<CVGroup>(group->shared_from_this()), false);
    else
        return;
    // The group's count of marked copies and the Review button follow at once, not when
    // another row is chosen.
    m_view->refreshRows();
}

void CVResultsViewController::selectAllButFileAction(const FilePtr& file) {
    if (!m_selecting || !file)
        return;
    if (CVGroup* group = file->parentGroup())
        m_selecting->selectAllButItem(file, std::static_pointer_cast<CVGroup>(group->shared_from_this()));
}

void CVResultsViewController::selectingDidFinished() {
    m_view->refreshRows();
}

void CVResultsViewController::selectingDidFailedForItem(const SelectionItem& item) {
    CVGroup* owner = item ? item->parentGroup() : nullptr;
    if (!m_selecting || !owner)
        return;
    const auto group = std::static_pointer_cast<CVGroup>(owner->shared_from_this());
    auto& defaults = m_services.defaults;
    if (!defaults.boolForKey(kDontWarnAllFilesSelectionKey)) {
        const SuppressibleAlertReply reply = m_view->runSuppressibleAlert(
            formatf(localized("AlertMessageText_SelectAllCopiesQuestion"), group->name()), "",
            localized("ButtonTitle_SelectForRemoval", "Buttons"), localized("ButtonTitle_Keep", "Buttons"),
            localized("AlertMessageText_SelectAllCopiesDontWarn"));
        if (reply.choice != AlertChoice::Default)
            return;
        if (reply.suppressed)
            defaults.setBool(true, kDontWarnAllFilesSelectionKey);
    }
    // The user chose to remove every copy: the removal may go on without a kept copy.
    group->setUserForcedAllCopies(true);
    m_selecting->selectItem(item, group, true);
    m_view->refreshRows();
}

void CVResultsViewController::openPathToCollectFiles() {
    std::weak_ptr<bool> alive = m_alive;
    m_view->showOpenPanelSheet(
        localized("ButtonTitle_Select", "Buttons"), [this, alive](std::optional<std::string> path) {
            if (!alive.lock() || !path || !m_selecting)
                return;
            m_currentPathComponent = CVPathComponent::initWithSourse(*path, "", kComponentFolder);
            m_selecting->selectGroupsInArray(m_duplicates->allDuplicatesGroups(), *m_currentPathComponent);
        });
}

void CVResultsViewController::exportSelectedDupes() {
    std::weak_ptr<bool> alive = m_alive;
    m_view->showSavePanel([this, alive](std::optional<std::string> path) {
        if (!alive.lock())
            return;
        if (!path) {
            m_services.center.post("CVExportPanelDidClose");
            return;
        }
        CVError error;
        if (!m_duplicates->exportSelectedDupesToPath(*path, &error))
            m_view->showError(error.localizedDescription());
    });
}

// ---- Exclusion ---------------------------------------------------------------------------

void CVResultsViewController::addToIgnoreListAction(const FilePtr& item) {
    if (!item)
        return;
    const NodeType type = item->type();
    auto& ignoreList = m_services.ignoreList;
    // A photo library is a package: it is excluded as an item, like a file.
    if (!isFolderType(type) || isIPhotoLibFileType(type))
        addEnabledRecord(ignoreList.excludeFilesList(), item->path());
    else
        addEnabledRecord(ignoreList.excludePathsList(), item->path());
    // Saved at once, as every change of the settings is.
    ignoreList.synchronize();
    m_services.center.post(kItemsAddedToIgnoreListNotification);
    if (item->needToRemove() && m_selecting)
        m_selecting->deselectItem(item);
    if (CVGroup* owner = item->parentGroup()) {
        if (owner->childrenCount() < 3) {
            // The other copy leaves the results with the group: it is no longer one to
            // remove, and the count of marked copies must say so.
            const auto group = std::static_pointer_cast<CVGroup>(owner->shared_from_this());
            if (m_selecting)
                for (const auto& member : group->files())
                    if (member->needToRemove())
                        m_selecting->deselectItem(member);
            m_duplicates->removeGroupsLoud({group});
        } else {
            const auto group = std::static_pointer_cast<CVGroup>(owner->shared_from_this());
            m_duplicates->removeFiles({item});
            // The copy left out was the only one kept: one of the others is kept in its
            // place, as every selection keeps one (unless the user chose them all).
            const auto members = group->files();
            if (m_selecting && !members.empty() && !group->userForcedAllCopies() &&
                std::all_of(members.begin(), members.end(), [](const auto& m) { return m->needToRemove(); }))
                m_selecting->deselectItem(members.front());
        }
    }
    reloadCategories();
}

// ---- Desktop ----------------------------------------------------------------------------

void CVResultsViewController::revealInFinderAction(const FilePtr& item) {
    if (item)
        m_services.reveal.revealInFileManager({item->path()});
}

void CVResultsViewController::revealInFinderFromMenuAction() {
    std::vector<FilePtr> selected;
    for (const std::size_t row : m_selectedFileRows)
        selected.push_back(m_files[row]);
    if (!selected.empty())
        m_services.reveal.revealInFileManager(pathsOf(selected));
}

std::string CVResultsViewController::iPhotoRevealScript(const std::string& path) {
    return "with timeout of 15 seconds\n"
           "tell application id \"com.apple.iPhoto\"\n"
           "activate\n"
           "try\n"
           "set visible of window 1 to true\n"
           "set miniaturized of window 1 to false\n"
           "end try\n"
           "select photo library album\n" +
           formatf(
               "select (photo 1 of photo library album whose image path is equal to \"%@\" or original path "
               "is equal to \"%@\")\n",
               path, path) +
           "end tell\n"
           "end timeout";
}

void CVResultsViewController::revealIniPhotoFromMenuAction(const FilePtr& item) {
    if (!item)
        return;
    const auto root = item->rootFolder();
    if (!root || !isIPhotoLibFileType(root->type()))
        return;
    if (const auto error = m_services.libraryAppDriver.runScript(iPhotoRevealScript(item->path())))
        systemLogf("Error while revealing in iPhoto: %@", PropertyValue(*error));
}

void CVResultsViewController::openMenuAction(const FilePtr& item) {
    if (item && !m_services.applications.openFile(item->path()))
        systemLogf("Could not open %@", item->path());
}

std::vector<OpenWithMenuItem> CVResultsViewController::openWithMenu(const FilePtr& item) {
    return item ? openWithMenuItems(item->path(), m_services.applications) : std::vector<OpenWithMenuItem>{};
}

void CVResultsViewController::openWithApplicationSelected(const FilePtr& item,
                                                          const std::string& applicationIdentifier) {
    if (item && !m_services.applications.openFile(item->path(), applicationIdentifier))
        systemLogf("Could not open %@ with %@", item->path(), applicationIdentifier);
}

void CVResultsViewController::openWithApplicationOtherSelected(const FilePtr& item) {
    if (item)
        m_services.applications.chooseApplicationForFile(item->path());
}

void CVResultsViewController::showQuickLook() {
    if (!m_services.preview)
        return;
    std::vector<FilePtr> items;
    auto* collector = dynamic_cast<CVCollectorViewController*>(m_qlDataSource);
    if (collector && collector->expanded()) {
        items = collector->objectsForQuickLook();
    } else {
        for (const std::size_t row : m_selectedFileRows)
            items.push_back(m_files[row]);
    }
    if (items.empty())
        return;
    CVError error;
    if (!m_services.preview->showPreview(pathsOf(items), &error))
        systemLogf("Preview panel crashed = %@", error.localizedDescription());
}

void CVResultsViewController::checkVisibleFilesExistenceWithoutValidation() {
    bool changed = false;
    for (const auto& file : m_files) {
        if (file->wasRemovedOutside() || file->wasRemoved())
            continue;
        if (!existsOnDisk(file->path())) {
            file->setWasRemovedOutside(true);
            changed = true;
        }
    }
    if (changed)
        m_view->refreshRows();
}

} // namespace corvel
