#pragma once
// The results side of the window as the scan window and the application controller use
// it: the results view (categories, groups, files, search) and the collector (the
// copies chosen for removal). Their logic is built elsewhere; here they are roles, made
// by a ResultsRolesFactory on the scan's results collection and owned by the scan
// window. Main thread.

#include <cstdint>
#include <memory>
#include <string>

#include "selection/selecting_controller.h"

namespace corvel {

class CVDuplicatesController;
class CollectorRole;

class ResultsViewRole : public CVSelectingControllerDelegate {
public:
    // Not owned; outlives the view.
    virtual void setSelectingController(CVSelectingController* controller) = 0;
    // The collector previews the selected copies.
    virtual void setQlDataSource(CollectorRole* collector) = 0;
    // The name of the scanned folders, shown above the results.
    virtual void setFolderName(const std::string& name) = 0;
    // The search filter as a predicate string; empty for none.
    virtual void setSearchFieldPredicateString(const std::string& predicate) = 0;
    virtual void clearTableSelections() = 0;
    // The name of the category selected in the results.
    virtual std::string selectedMetaGroupName() const = 0;

    // Menu and toolbar commands.
    virtual void autoselectAction() = 0;
    virtual void autoselectAllAction() = 0;
    virtual void deselectFromMenuAction() = 0;
    virtual void deselectAllAction() = 0;
    virtual void keepOldestFilesAction() = 0;
    virtual void keepMostRecentFilesAction() = 0;
    // Lets the user choose a folder whose duplicates are all selected.
    virtual void openPathToCollectFiles() = 0;
    // Asks where to save the list of selected copies; "CVExportPanelDidClose" follows.
    virtual void exportSelectedDupes() = 0;
};

class CollectorRole {
public:
    virtual ~CollectorRole() = default;
    virtual void showHideCollector() = 0;
    // Puts every collected copy back into the results.
    virtual void putBack() = 0;
    // "New Scan" after a removal.
    virtual void newScan() = 0;
    // The selection changed by size bytes and count copies (negative: fewer).
    virtual void shouldIncSelectedSize(std::int64_t size, std::int64_t count, const std::string& warning,
                                       const std::string& details) = 0;
    virtual std::uint64_t size() const = 0;
    virtual std::uint64_t count() const = 0;
    // Something is selected for removal.
    virtual bool notEmpty() const = 0;
    virtual bool expanded() const = 0;
};

class ResultsRolesFactory {
public:
    virtual ~ResultsRolesFactory() = default;
    virtual std::unique_ptr<ResultsViewRole>
    makeResultsView(const std::shared_ptr<CVDuplicatesController>& duplicates) = 0;
    virtual std::unique_ptr<CollectorRole>
    makeCollector(const std::shared_ptr<CVDuplicatesController>& duplicates,
                  ResultsViewRole& resultsView) = 0;
};

} // namespace corvel
