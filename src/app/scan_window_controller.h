#pragma once
// CVScanWindowController: one scan from the user's side. It keeps the folders to scan
// (through the drop zone), makes a locator per scan, listens to the engine's
// notifications, shows progress, phrases and the outcome, records the scan in the
// statistics, and builds the results and collector views when the user asks for them.
// Its window state is what the rest of the application reads:
//
//   0 idle (adding folders)   1 starting (no duplicate yet)   2 scanning, duplicates found
//   3 found                   4 nothing found                 5 failed
//   6 not used                7 results shown                 8 collector shown
//   9 removing                10 removal finished
//
// Threads: the notification handlers run on whatever thread the engine posts from; they
// read the results' size there and move all interface work to the main queue, in the
// order posted. A handler's interface work is applied only while a scan is on (state 1
// or 2), so a notification that arrives after the user stopped the scan changes nothing.
// Everything else is main-thread only.

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "duplicates_locating.h"
#include "main_timers.h"
#include "platform/notification_center.h"
#include "results_roles.h"
#include "scan_item_control.h"
#include "scan_scenario.h"
#include "scan_window_view.h"

namespace corvel {

class CVStatisticsController;
class MainQueue;
class ReminderScheduling;
class ScanNotifying;
class StringTables;
class Tracker;
class UserDefaults;

enum WindowState : std::int32_t {
    WindowStateIdle = 0,
    WindowStateStarting = 1,
    WindowStateScanning = 2,
    WindowStateFound = 3,
    WindowStateNothingFound = 4,
    WindowStateFailed = 5,
    WindowStateResults = 7,
    WindowStateCollector = 8,
    WindowStateRemoving = 9,
    WindowStateCleaned = 10,
};

// How the scan ended, for the statistics.
enum ScanResultType : std::int64_t {
    ScanResultCompleted = 0,
    ScanResultInterrupted = 1,
    ScanResultStopAndShow = 2
};

inline constexpr const char* kLaunchCountKey = "LaunchCount";
inline constexpr auto kScenarioTimerInterval = std::chrono::seconds(10);

// What the controller works with. The references must outlive it; the pointers may be null.
struct ScanWindowServices {
    ScanWindowView& view;
    ScanItemControlView& dropZoneView;
    LocatorFactory makeLocator;
    ResultsRolesFactory& resultsFactory;
    CVStatisticsController& statistics;
    UserDefaults& defaults;
    Tracker& tracker;
    MainQueue& mainQueue;
    MainTimers& timers;
    NotificationCenter& center;
    StringTables& tables;
    RandomSource random;
    // The phrase resource ("ScanTextScenarios.plist").
    std::string scenariosFile;
    // The media libraries are read again for the next scan.
    std::function<void()> rescanMediaLibraries;
    ReminderScheduling* reminder = nullptr;
    ScanNotifying* notifications = nullptr;
};

class CVScanWindowController final : public RGScanItemControlDelegate, public CVSelectingControllerDisplay {
public:
    explicit CVScanWindowController(ScanWindowServices services);
    // Stops a running scan and waits for its engine.
    ~CVScanWindowController() override;
    CVScanWindowController(const CVScanWindowController&) = delete;
    CVScanWindowController& operator=(const CVScanWindowController&) = delete;

    // Loads the window once (observers, idle texts, state 0) and shows it.
    void showWindow();
    bool windowLoaded() const { return m_windowLoaded; }

    // Commands.
    void addScanPath(bool senderIsButton);
    // The Start button (enterKey: the Return key pressed it).
    void startScanAction(bool enterKey);
    void startScan();
    void cancelScan();
    void stopScan();
    void newScan();
    void forceNewScan();
    void rescan();
    void refreshDrop() override;
    void showResults(bool senderCanBeDisabled);
    // fromController: called by this controller, not by a button or menu.
    void backToScan(bool fromController);
    void showCollector();
    void autoCollect();
    void autoSelectAll();
    void autoDecollect();
    void putAllFilesBack();
    void putAllFilesBackFromList();
    void filterChanged(const std::string& searchText, std::int64_t searchType);
    void makeSearchFieldKey();
    void orderOutWindowIfMiniaturized();
    void windowDidBecomeKey();

    // Validators of the menu items the window serves.
    bool validateShowCollectorItem() const;
    bool validateAutoCollectItem() const;
    bool validatePutAllBackItem() const;

    void setWindowState(std::int32_t state);
    std::int32_t windowState() const { return m_windowState.load(); }

    // The search field's predicate: empty for no text; otherwise "title" (searchType 0)
    // or "path" contains[c] the text, backslashes removed and quotes escaped.
    static std::string searchPredicateString(const std::string& searchText, std::int64_t searchType);
    // The view reported for a state; empty for states that report none.
    static std::string viewNameForState(std::int32_t state);

    // Engine notifications (any thread).
    void updateProgress(const Notification& notification);
    void scanFinished();
    void errorOccuredWhileScanning();
    void droppedFilesAreIgnored();
    void droppedFilesAreSystem();
    // The phrase timer's tick.
    void updatePhrase();

    // Drop-zone delegate.
    void addPathsForScan(const std::vector<std::string>& paths, const std::string& folderName) override;
    void startScanFromDropZone() override;
    void stopScanFromDropZone() override;
    void readyToResan() override;
    // Adds the last scan's targets with start-immediately and empties them (main thread).
    void rescanLastItems();

    // Selecting-controller display: the collector follows the selection.
    void shouldIncSelectedSize(std::int64_t size, std::int64_t count) override;
    void shouldIncSelectedSize(std::int64_t size, std::int64_t count, const std::string& warning,
                               const std::string& details) override;

    RGScanItemControl& scanControl() { return m_scanControl; }
    ResultsViewRole* resultsViewController() const { return m_resultsViewController.get(); }
    CollectorRole* collectorViewController() const { return m_collectorViewController.get(); }
    CVSelectingController* selectingController() const { return m_selectingController.get(); }
    DuplicatesLocating* duplicatesFinder() const;
    bool acceptIconDrop() const { return m_acceptIconDrop; }
    bool windowIsVisible() const { return m_services.view.isVisible(); }
    bool openPanelIsShown() const { return m_openPanelIsShown; }
    bool collectorNotEmpty() const;
    bool collectorExpanded() const;
    std::string selectedMetaGroupName() const;
    bool needsRescan() const { return m_needsRescan; }
    bool needToRemoveResultsView() const { return m_needToRemoveResultsView; }
    bool somePathInIgnoreList() const { return m_somePathInIgnoreList; }
    bool somePathInSystemList() const { return m_somePathInSystemList; }
    const std::vector<std::string>& droppedItemsArray() const { return m_droppedItemsArray; }
    const std::vector<std::string>& rescanItemsArray() const { return m_rescanItemsArray; }
    const std::string& chartFolderNames() const { return m_chartFolderNames; }
    std::int64_t scanResultType() const { return m_scanResultType.load(); }
    std::uint64_t scenarioDelay() const { return m_scenarioDelay; }
    const CVScanScenario* scanScenario() const { return m_scanScenario.get(); }
    WindowSize minResultsWindowSize() const { return m_minResultsWindowSize; }
    bool phraseTimerRunning() const { return m_scenarioTimer != 0; }
    // The statistics events of the scan (prefix by scanResultType), reported now.
    void trackScanningStats();

private:
    void windowDidLoad();
    // Runs the task on the main queue after everything queued before it, unless this
    // controller is gone by then.
    void onMain(std::function<void()> task);
    bool scanIsOn() const;
    std::shared_ptr<CVDuplicatesController> currentDuplicates() const;
    std::uint64_t duplicateSize() const;
    void replaceLocator(std::unique_ptr<DuplicatesLocating> locator);
    void dropResultsViews();
    void stopPhraseTimer();
    void setStopButtonToNewScan();
    // "SIZE of duplicates found", or "No duplicates found" for none.
    std::string foundStatus(std::uint64_t size) const;
    void showFoundStatus(std::uint64_t size);
    std::string randomPhrase(std::int64_t use) const;
    std::string text(const char* key) const;
    std::string button(const char* key) const;
    void track(const char* category, const char* action, const std::string& label = {});

    ScanWindowServices m_services;
    RGScanItemControl m_scanControl;
    std::vector<ScopedObserver> m_observers;
    std::shared_ptr<bool> m_alive = std::make_shared<bool>(true);

    mutable std::mutex m_locatorMutex;
    std::unique_ptr<DuplicatesLocating> m_duplicatesFinder;

    std::unique_ptr<ResultsViewRole> m_resultsViewController;
    std::unique_ptr<CVSelectingController> m_selectingController;
    std::unique_ptr<CollectorRole> m_collectorViewController;
    bool m_collectorBound = false;

    std::atomic<bool> m_needToUpdateResultsButton{false};
    bool m_needToHideResultsButton = false;
    bool m_needToRemoveResultsView = false;
    std::unique_ptr<CVScanScenario> m_scanScenario;
    MainTimers::TimerId m_scenarioTimer = 0;
    std::uint64_t m_scenarioDelay = 0;
    bool m_acceptIconDrop = true;
    bool m_collectorNotEmpty = false;
    std::atomic<bool> m_somePathInIgnoreList{false};
    std::atomic<bool> m_somePathInSystemList{false};
    bool m_openPanelIsShown = false;
    bool m_needsRescan = false;
    std::atomic<std::int32_t> m_windowState{WindowStateIdle};
    std::vector<std::string> m_droppedItemsArray;
    std::vector<std::string> m_rescanItemsArray;
    std::string m_chartFolderNames;
    std::chrono::steady_clock::time_point m_scanStartDate;
    std::atomic<std::int64_t> m_scanResultType{ScanResultCompleted};
    WindowSize m_minResultsWindowSize;
    bool m_startButtonShown = false;
    bool m_windowLoaded = false;
    std::atomic<bool> m_firstScanReported{false};
};

} // namespace corvel
