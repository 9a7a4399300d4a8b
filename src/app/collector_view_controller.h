#pragma once
// CVCollectorViewController: the deletion summary that slides over the results. It lists
// every copy marked for removal, by group, with their number and total size; lets the
// user keep single copies or put everything back; and carries the Remove/Stop button that
// drives the removal pass (CVRemovalPass) on the pass's own thread. As the pass's
// CVRemovalView it passes what the pass shows on to its CollectorView and the window
// states (9 removing, 10 removal finished, 8 collector) to its host.
//
// Its list is its own filter, "(needToRemove == 1)", over the results' files, never the
// results' filter, so the categories of the results do not change while it is open. Files
// a pass removed leave the results when the collector closes: removeDeletedFiles, then
// exactly one "CollectorDidUpdateRemovedFiles".
//
// Main thread. Destroying the controller stops a running pass and waits for it.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "collector_view.h"
#include "main_timers.h"
#include "platform/predicate.h"
#include "removal/removal_pass.h"
#include "results_roles.h"
#include "results_services.h"

namespace corvel {

class CVDuplicatesController;
class CVResultsViewController;

inline constexpr const char* kDontShowAdvertAgainKey = "DontShowAdvertAgain";
inline constexpr const char* kSiblingProductIdentifiers[] = {"com.halvik.Tidewell2", "com.halvik.Tidewell3"};
inline constexpr auto kNewScanDelay = std::chrono::milliseconds(400);
inline constexpr auto kBackToScanRepeatDelay = std::chrono::milliseconds(420);

class CVCollectorViewController final : public CollectorRole, public CVRemovalView {
public:
    using FilePtr = std::shared_ptr<CVFile>;

    // results: the results view whose selecting controller unmarks files (may be null:
    // then nothing can be unmarked). host may be null (tests of the collector alone).
    CVCollectorViewController(std::shared_ptr<CVDuplicatesController> duplicates,
                              CVResultsViewController* results, std::unique_ptr<CollectorView> view,
                              ResultsServices services, CollectorHost* host);
    ~CVCollectorViewController() override;
    CVCollectorViewController(const CVCollectorViewController&) = delete;
    CVCollectorViewController& operator=(const CVCollectorViewController&) = delete;

    // CollectorRole.
    // Opens or closes; ignored while an animation or a removal pass runs.
    void showHideCollector() override;
    // Asks, then unmarks every group and closes.
    void putBack() override;
    // "New Scan" after a removal: 0.4 s later a forced new scan; the reminder re-armed.
    void newScan() override;
    void shouldIncSelectedSize(std::int64_t size, std::int64_t count, const std::string& warning,
                               const std::string& details) override;
    std::uint64_t size() const override { return m_size; }
    std::uint64_t count() const override { return m_count; }
    bool notEmpty() const override { return m_count != 0; }
    bool expanded() const override { return m_expanded; }

    // Commands.
    void countDuplicates();
    void doneButtonAction();
    // escapeKey: the Escape key closed it, not the close button.
    void closeButtonAction(bool escapeKey);
    // The keep button of a row: unmarks the file; closes when nothing stays marked.
    void removeFileFromCollector(const FilePtr& file);
    void keepFile(const FilePtr& file) { removeFileFromCollector(file); }
    void backToScan();
    // The Remove/Stop button: starts the removal pass, or stops the running one.
    void shreddList();
    void revealInFinder(const FilePtr& file);
    // The same for a row of the failed-files list.
    void revealInFinderFailed(const FilePtr& file) { revealInFinder(file); }
    // The Share button of the success view: the event, then the sharing service.
    void twitterAction();
    // The collector's two lists: the marked copies by group, and the copies a pass could
    // not remove.
    enum class CollectorList { Marked, Failed };
    // A reveal item needs a clicked row in the list it belongs to.
    static bool validateRevealItem(CollectorList itemList, std::optional<CollectorList> clickedRowList) {
        return clickedRowList == itemList;
    }
    // Only groups expand in the list; their files are leaves.
    static bool shouldExpandItem(bool isGroup) { return isGroup; }
    // The list the preview panel follows: the failed copies once a pass left some, else
    // the marked ones.
    CollectorList tableViewForQuickLook() const {
        return m_errorFilesCount > 0 ? CollectorList::Failed : CollectorList::Marked;
    }
    void adButtonPress();
    void dontShowAdAgain();
    // The rows the user selected in the list (for the preview).
    void setSelectedFiles(std::vector<FilePtr> files) { m_selectedFiles = std::move(files); }
    std::vector<FilePtr> objectsForQuickLook() const;
    void closePreviewPanel();

    // The advertisement after a cleanup: offered only when the preferences allow it, the
    // user did not dismiss it, no sibling product is installed and the user cleaned at
    // least the preferences' minimum in total.
    bool shouldAdvertiseTDW() const;
    bool canRemoveFiles() const;
    bool validateDontShowAdItem() const { return !iPhotoWasLaunched(); }

    // The removal pass's tick pacing (the tests turn it off).
    void setRemovalPacing(bool paced) { m_removalPacing = paced; }

    const std::vector<CollectorListGroup>& list() const { return m_list; }
    bool animationInProgress() const { return m_animationInProgress; }
    bool shredInProgress() const { return m_pass && m_pass->shredInProgress(); }
    bool passHasRun() const { return m_passHasRun; }
    bool needRefreshing() const { return m_needRefreshing; }
    std::uint64_t errorFilesCount() const { return m_errorFilesCount; }
    bool iPhotoWasLaunched() const { return m_pass && m_pass->iPhotoWasLaunched(); }
    bool iTunesWasLaunched() const { return m_pass && m_pass->iTunesWasLaunched(); }
    const CVRemovalPass* removalPass() const { return m_pass.get(); }
    CollectorView& view() { return *m_view; }

    // CVRemovalView: what the pass shows.
    void setRemoveButton(const std::string& title, const std::string& toolTip) override;
    void setCloseButtonEnabled(bool enabled) override;
    void setButtonsEnabled(bool enabled) override;
    void setWindowState(std::int32_t state) override;
    void startShredderAnimation() override;
    void advanceShredderAnimation(std::uint64_t handled, std::uint64_t total) override;
    void closeShredderAnimation() override;
    void endShredderAnimations() override;
    void showLibraryPopup(LibraryKind kind) override;
    void hideLibraryPopup(LibraryKind kind) override;
    void fileHandled(const CVFile& file, bool ok, const std::string& reason) override;
    void setDoneButtonToolTip(const std::string& toolTip) override;
    void showSuccessView() override;
    void showErrorList(const std::string& undeletedSizeText) override;
    void reloadCollector() override;
    void postCleanedNotification(std::uint64_t bytes) override;

private:
    void open();
    void close();
    void closingFinished();
    void rebuildList();
    void passFinished();
    CVSelectingController* selecting() const;
    std::vector<std::string> scanRoots() const;
    void track(const char* category, const char* action, const std::string& label = {});

    std::shared_ptr<CVDuplicatesController> m_duplicates;
    CVResultsViewController* m_results;
    std::unique_ptr<CollectorView> m_view;
    ResultsServices m_services;
    CollectorHost* m_host;
    std::optional<Predicate> m_filter;

    bool m_expanded = false;
    bool m_animationInProgress = false;
    bool m_filterActive = false;
    std::uint64_t m_count = 0;
    std::uint64_t m_size = 0;
    std::uint64_t m_errorFilesCount = 0;
    bool m_needRefreshing = false;
    bool m_passHasRun = false;
    bool m_removalPacing = true;
    std::vector<CollectorListGroup> m_list;
    std::vector<FilePtr> m_selectedFiles;
    std::vector<MainTimers::TimerId> m_timers;
    std::shared_ptr<bool> m_alive = std::make_shared<bool>(true);
    // Last: destroyed first, while everything it calls is still alive.
    std::unique_ptr<CVRemovalPass> m_pass;
};

} // namespace corvel
