#include "scan_window_controller.h"

#include <cstdio>

#include "elapsed_time.h"
#include "engine/file_sizer.h"
#include "media/media_manager.h"
#include "platform/main_queue.h"
#include "platform/string_tables.h"
#include "platform/system_log.h"
#include "platform/text_format.h"
#include "platform/tracker.h"
#include "platform/user_defaults.h"
#include "removal/statistics_controller.h"
#include "results/duplicates_controller.h"
#include "scan/duplicates_locator.h"
#include "scan/files_hierarchy.h"
#include "scan_notifying.h"
#include "settings/reminder_scheduling.h"

namespace corvel {

namespace {

// "{900, 560}" as the string tables hold a size; zero when it cannot be read.
WindowSize sizeFromString(const std::string& text) {
    WindowSize size;
    if (std::sscanf(text.c_str(), " { %lf , %lf }", &size.width, &size.height) != 2)
        return {};
    return size;
}

} // namespace

CVScanWindowController::CVScanWindowController(ScanWindowServices services)
    : m_services(std::move(services)), m_scanControl(m_services.dropZoneView, m_services.tracker) {
    m_scanControl.setDelegate(this);
    if (!m_services.rescanMediaLibraries)
        m_services.rescanMediaLibraries = [] { CViMediaManager::sharedInstance().rescan(); };
    if (!m_services.random)
        m_services.random = systemRandomSource();
    m_minResultsWindowSize =
        sizeFromString(m_services.tables.localizedString("MinResultsWindowSize", "LocalizedPrefs"));
}

CVScanWindowController::~CVScanWindowController() {
    m_observers.clear();
    stopPhraseTimer();
    m_alive.reset();
    if (m_duplicatesFinder)
        m_duplicatesFinder->stopScan();
    dropResultsViews();
    replaceLocator(nullptr);
}

void CVScanWindowController::onMain(std::function<void()> task) {
    std::weak_ptr<bool> alive = m_alive;
    m_services.mainQueue.post([alive, task = std::move(task)] {
        if (alive.lock())
            task();
    });
}

bool CVScanWindowController::scanIsOn() const {
    const std::int32_t state = windowState();
    return state == WindowStateStarting || state == WindowStateScanning;
}

std::string CVScanWindowController::text(const char* key) const {
    return m_services.tables.localizedString(key);
}

std::string CVScanWindowController::button(const char* key) const {
    return m_services.tables.localizedString(key, "Buttons");
}

void CVScanWindowController::track(const char* category, const char* action, const std::string& label) {
    m_services.tracker.trackEvent(category, action, label, 1);
}

std::string CVScanWindowController::randomPhrase(std::int64_t use) const {
    return CVScanScenario(use, m_services.random, m_services.scenariosFile, m_services.tables).randomPhrase();
}

DuplicatesLocating* CVScanWindowController::duplicatesFinder() const {
    std::lock_guard lock(m_locatorMutex);
    return m_duplicatesFinder.get();
}

std::shared_ptr<CVDuplicatesController> CVScanWindowController::currentDuplicates() const {
    std::lock_guard lock(m_locatorMutex);
    return m_duplicatesFinder ? m_duplicatesFinder->duplicatesController() : nullptr;
}

std::uint64_t CVScanWindowController::duplicateSize() const {
    const auto duplicates = currentDuplicates();
    return duplicates ? duplicates->size() : 0;
}

void CVScanWindowController::replaceLocator(std::unique_ptr<DuplicatesLocating> locator) {
    std::unique_ptr<DuplicatesLocating> previous;
    {
        std::lock_guard lock(m_locatorMutex);
        previous = std::move(m_duplicatesFinder);
        m_duplicatesFinder = std::move(locator);
    }
    // Destroyed outside the lock: a handler on the old scan's thread may be waiting for it.
    previous.reset();
}

// ---- Window ---------------------------------------------------------------------------

void CVScanWindowController::showWindow() {
    if (!m_windowLoaded)
        windowDidLoad();
    m_services.view.showWindow();
}

void CVScanWindowController::windowDidLoad() {
    m_windowLoaded = true;
    auto& center = m_services.center;
    auto observe = [&](const char* name, NotificationCenter::Handler handler) {
        m_observers.emplace_back(center, center.addObserver(name, nullptr, std::move(handler)));
    };
    observe(kProgressUpdatedNotification, [this](const Notification& n) { updateProgress(n); });
    observe(kScanFinishedNotification, [this](const Notification&) { scanFinished(); });
    observe(kErrorOccuredWhileScanningNotification,
            [this](const Notification&) { errorOccuredWhileScanning(); });
    observe(kDroppedFilesAreIgnoredNotification, [this](const Notification&) { droppedFilesAreIgnored(); });
    observe(kDroppedFilesAreSystemNotification, [this](const Notification&) { droppedFilesAreSystem(); });
    auto& view = m_services.view;
    view.setStartButtonHidden(true);
    view.setStopButtonHidden(true);
    view.setResultsButtonHidden(true);
    view.setPlusButtonHidden(false);
    view.setDropsEnabled(true);
    view.setStatus(text("StatusTextViewStatus_AddingFolders"));
    view.setSubStatus(text("StatusTextViewSubStatus_AddingFolders"));
    setWindowState(WindowStateIdle);
}

std::string CVScanWindowController::viewNameForState(std::int32_t state) {
    switch (state) {
    case WindowStateIdle:
        return "Add Items";
    case WindowStateScanning:
        return "Scan Progress";
    case WindowStateFound:
    case WindowStateNothingFound:
        return "Scan Complete";
    case WindowStateResults:
        return "Detailed Results";
    case WindowStateCollector:
        return "Summary";
    case WindowStateCleaned:
        return "Cleanup Complete";
    default:
        return {};
    }
}

void CVScanWindowController::setWindowState(std::int32_t state) {
    m_windowState = state;
    if (!m_services.view.isKeyWindow())
        return;
    const std::string name = viewNameForState(state);
    if (!name.empty())
        m_services.tracker.trackView(name);
}

void CVScanWindowController::windowDidBecomeKey() {
    const std::string name = viewNameForState(windowState());
    if (!name.empty())
        m_services.tracker.trackView(name);
}

void CVScanWindowController::orderOutWindowIfMiniaturized() {
    if (m_services.view.isMiniaturized())
        m_services.view.makeKeyAndOrderFront();
}

void CVScanWindowController::makeSearchFieldKey() {
    m_services.view.makeSearchFieldKey();
}

// ---- Targets --------------------------------------------------------------------------

void CVScanWindowController::addScanPath(bool senderIsButton) {
    track("Dropzone", "Add Items", senderIsButton ? "Click Plus" : "Scan \u2013 Add Folder");
    m_openPanelIsShown = true;
    std::weak_ptr<bool> alive = m_alive;
    m_services.view.showOpenPanel(button("ButtonTitle_Add"),
                                  [this, alive](std::optional<std::vector<std::string>> chosen) {
                                      if (!alive.lock())
                                          return;
                                      if (chosen && !chosen->empty())
                                          m_scanControl.addFoldersForScan(*chosen, false);
                                      m_openPanelIsShown = false;
                                  });
}

void CVScanWindowController::addPathsForScan(const std::vector<std::string>& paths,
                                             const std::string& folderName) {
    m_services.view.setStartButtonHidden(false);
    m_startButtonShown = true;
    m_droppedItemsArray = paths;
    m_chartFolderNames = folderName;
}

void CVScanWindowController::startScanFromDropZone() {
    startScanAction(false);
}

void CVScanWindowController::stopScanFromDropZone() {
    stopScan();
}

void CVScanWindowController::refreshDrop() {
    systemLog("Scan refreshed");
    m_rescanItemsArray = std::move(m_droppedItemsArray);
    m_droppedItemsArray.clear();
    m_scanControl.resetAnimation();
    m_services.view.setStartButtonHidden(true);
    m_startButtonShown = false;
    m_collectorNotEmpty = false;
}

void CVScanWindowController::readyToResan() {
    if (!m_needsRescan)
        return;
    m_needsRescan = false;
    onMain([this] { rescanLastItems(); });
}

void CVScanWindowController::rescanLastItems() {
    std::vector<std::string> items = std::move(m_rescanItemsArray);
    m_rescanItemsArray.clear();
    if (items.empty())
        return;
    m_scanControl.addFoldersForScan(items, true);
}

// ---- Start, stop ----------------------------------------------------------------------

void CVScanWindowController::startScanAction(bool enterKey) {
    track("Dropzone", "Start Scan", enterKey ? "Enter" : "Scan");
    track("Scan", "Scan Started");
    startScan();
}

void CVScanWindowController::startScan() {
    // The previous scan's engine goes first: its thread may still be reading the start date.
    replaceLocator(nullptr);
    m_scanStartDate = std::chrono::steady_clock::now();
    m_scanResultType = ScanResultCompleted;
    m_services.view.clearUndoActions();
    dropResultsViews();

    m_services.statistics.addScanWithFoldersCount(static_cast<std::int64_t>(m_droppedItemsArray.size()));

    m_services.view.setStartButtonHidden(true);
    m_startButtonShown = false;
    // Cleared before the engine starts: its first notifications may come at once.
    m_needToUpdateResultsButton = false;
    replaceLocator(m_services.makeLocator());
    DuplicatesLocating* locator = duplicatesFinder();
    if (!locator || !locator->scanPaths(m_droppedItemsArray)) {
        newScan();
        return;
    }

    systemLog("Scanning started");
    m_scanScenario = std::make_unique<CVScanScenario>(ScenarioUseScanning, m_services.random,
                                                      m_services.scenariosFile, m_services.tables);
    m_scenarioDelay = 0;
    stopPhraseTimer();
    m_scenarioTimer =
        m_services.timers.scheduleRepeatingTimer(kScenarioTimerInterval, [this] { updatePhrase(); });
    auto& view = m_services.view;
    view.setStatus(randomPhrase(ScenarioUseStartStatus));
    const std::string first = m_scanScenario->nextPhrase();
    view.setSubStatus(first.empty() ? text("StatusTextViewSubStatus_UndefinedFinishTime") : first);

    m_scanControl.startScanningAnimation();
    view.setDropsEnabled(false);
    view.setPlusButtonHidden(true);
    view.setStopButton(button("ButtonTitle_CancelScan"), button("ButtonToolTip_CancelScan"),
                       StopButtonAction::CancelScan);
    view.setStopButtonHidden(false);
    m_needToHideResultsButton = true;
    m_acceptIconDrop = false;
    setWindowState(WindowStateStarting);
}

void CVScanWindowController::cancelScan() {
    m_scanResultType = ScanResultInterrupted;
    trackScanningStats();
    if (m_startButtonShown) {
        refreshDrop();
        return;
    }
    systemLog("Scan canceled");
    stopScan();
}

void CVScanWindowController::stopScan() {
    systemLog("Scan stopped");
    if (auto* locator = duplicatesFinder())
        locator->stopScan();
    if (m_collectorBound) {
        m_services.view.unbindCollectorButton();
        m_collectorBound = false;
    }
    if (!m_needToRemoveResultsView)
        dropResultsViews();
    refreshDrop();
    auto& view = m_services.view;
    view.setDropsEnabled(true);
    view.setPlusButtonHidden(false);
    if (m_needToHideResultsButton)
        view.setResultsButtonHidden(true);
    view.setStopButtonHidden(true);
    view.setStatus(text("StatusTextViewStatus_AddingFolders"));
    view.setSubStatus(text("StatusTextViewSubStatus_AddingFolders"));
    stopPhraseTimer();
    m_scanScenario.reset();
    m_services.rescanMediaLibraries();
    m_acceptIconDrop = true;
    setWindowState(WindowStateIdle);
}

void CVScanWindowController::newScan() {
    const std::int32_t state = windowState();
    if (state == WindowStateCleaned) {
        if (m_collectorViewController)
            m_collectorViewController->newScan();
        return;
    }
    if (state < WindowStateResults) {
        m_needToRemoveResultsView = true;
        orderOutWindowIfMiniaturized();
    } else {
        const AlertChoice choice = m_services.view.runModalAlert(
            text("AlertMessageText_StartNewScan"), text("AlertMessageDescription_StartNewScan"),
            button("ButtonTitle_Cancel"), button("ButtonTitle_OK"));
        // The default button keeps the results.
        if (choice == AlertChoice::Default)
            return;
        backToScan(true);
        m_needToRemoveResultsView = true;
    }
    track("Scan", "New Scan");
    stopScan();
}

void CVScanWindowController::forceNewScan() {
    backToScan(true);
    m_needToRemoveResultsView = true;
    track("Scan", "New Scan");
    stopScan();
}

void CVScanWindowController::rescan() {
    m_needsRescan = true;
    if (windowState() < WindowStateResults) {
        orderOutWindowIfMiniaturized();
        stopScan();
        return;
    }
    m_needToRemoveResultsView = true;
    backToScan(true);
}

// ---- Engine notifications -------------------------------------------------------------

void CVScanWindowController::updateProgress(const Notification& notification) {
    const double fraction = notification.object.toDouble();
    const std::uint64_t size = duplicateSize();
    if (size != 0 && !m_needToUpdateResultsButton.exchange(true)) {
        onMain([this] {
            if (!scanIsOn())
                return;
            stopPhraseTimer();
            auto& view = m_services.view;
            view.setResultsButton(button("ButtonTitle_StopAndShowResults"),
                                  button("ButtonToolTip_StopAndShowResults"));
            view.setResultsButtonEnabled(true);
            view.setResultsButtonHidden(false);
            view.setStatus(text("StatusTextViewStatus_Scanning"));
            setWindowState(WindowStateScanning);
        });
    }
    onMain([this, fraction, size] {
        if (!scanIsOn())
            return;
        m_scanControl.setProgress(fraction);
        m_services.view.setStatusAnimationTime(0.25);
        if (size != 0)
            m_services.view.setSubStatus(
                formatf(text("StatusTextViewSubStatus_Found"), stringWithSize(size)));
    });
}

void CVScanWindowController::updatePhrase() {
    if (!m_scanScenario)
        return;
    m_scanScenario->checkWillUseNextScenario();
    if (m_scenarioDelay % 2 == 0) {
        if (!m_scanScenario->usingNextScenario()) {
            m_services.view.setStatusAnimationTime(1.0);
            m_services.view.setSubStatus(m_scanScenario->nextPhrase());
        } else {
            m_scenarioDelay = 0;
        }
    }
    ++m_scenarioDelay;
}

std::string CVScanWindowController::foundStatus(std::uint64_t size) const {
    return size > 0 ? formatf(text("StatusTextViewStatus_FoundDuplicates"), stringWithSize(size))
                    : text("StatusTextViewStatus_NoDuplicates");
}

void CVScanWindowController::showFoundStatus(std::uint64_t size) {
    auto& view = m_services.view;
    view.setStatus(foundStatus(size));
    view.setSubStatus(randomPhrase(ScenarioUseFound));
    setWindowState(WindowStateFound);
    view.setResultsButton(button("ButtonTitle_ShowResults"), button("ButtonToolTip_ShowResults"));
    view.setResultsButtonEnabled(true);
    view.setResultsButtonHidden(false);
}

void CVScanWindowController::setStopButtonToNewScan() {
    m_services.view.setStopButton(button("ButtonTitle_NewScan"), button("ButtonToolTip_NewScan"),
                                  StopButtonAction::NewScan);
    m_services.view.setStopButtonHidden(false);
}

void CVScanWindowController::scanFinished() {
    trackScanningStats();
    // Whether the scan was still on when the interface work runs; the later blocks follow it.
    auto live = std::make_shared<bool>(false);
    onMain([this, live] {
        *live = scanIsOn();
        if (*live)
            stopPhraseTimer();
    });

    const auto duplicates = currentDuplicates();
    const std::uint64_t size = duplicates ? duplicates->size() : 0;
    // The category counters, not allFiles(): that builds the index of every path, far too
    // long a wait on the main thread after a large scan.
    const std::uint64_t files = duplicates ? duplicates->mainMetaGroup()->filesCount() : 0;
    const bool found = duplicates && duplicates->count() > 0;
    m_services.statistics.scanFinishedWithSize(size, files);

    if (found) {
        onMain([this, live, size] {
            if (!*live)
                return;
            showFoundStatus(size);
            if (m_services.notifications)
                m_services.notifications->postScanCompleteNotificationWithSize(size);
            m_scanControl.playFinishMark(FinishMark::Found);
            m_needToHideResultsButton = true;
        });
    } else {
        onMain([this, live] {
            if (!*live)
                return;
            std::string status = text("StatusTextViewStatus_NoDuplicates");
            std::string subStatus = randomPhrase(ScenarioUseNothingFound);
            if (m_somePathInIgnoreList) {
                const bool system = m_somePathInSystemList;
                if (m_droppedItemsArray.size() == 1)
                    status = text(system ? "StatusTextViewStatus_TheOnlyFolderProtected"
                                         : "StatusTextViewStatus_TheOnlyFolderExcluded");
                else
                    status = text(system ? "StatusTextViewStatus_OneOfTheFoldersIsProtected"
                                         : "StatusTextViewStatus_OneOfTheFoldersIsExcluded");
                subStatus = text(system ? "StatusTextViewSubStatus_CantScanProtectedFolder"
                                        : "StatusTextViewSubStatus_CantScanExcludedFolder");
                m_somePathInIgnoreList = false;
                m_somePathInSystemList = false;
            }
            m_services.view.setStatus(status);
            m_services.view.setSubStatus(subStatus);
            setWindowState(WindowStateNothingFound);
            m_scanControl.playFinishMark(FinishMark::Nothing);
            if (m_services.notifications)
                m_services.notifications->postScanCompleteNotificationAndNothingFound();
            m_needToHideResultsButton = false;
        });
    }
    onMain([this, live] {
        if (!*live)
            return;
        setStopButtonToNewScan();
        if (m_services.reminder)
            m_services.reminder->scheduleCleanReminder();
    });
}

void CVScanWindowController::droppedFilesAreIgnored() {
    systemLog("One of dropped folders is listed to Ignore");
    m_somePathInIgnoreList = true;
    m_somePathInSystemList = false;
    scanFinished();
}

void CVScanWindowController::droppedFilesAreSystem() {
    systemLog("One of dropped folders is listed to Ignore as system");
    m_somePathInIgnoreList = true;
    m_somePathInSystemList = true;
    scanFinished();
}

void CVScanWindowController::errorOccuredWhileScanning() {
    onMain([this] {
        if (!scanIsOn())
            return;
        auto& view = m_services.view;
        view.setStatus(text("StatusTextViewStatus_ScanningError"));
        view.setSubStatus(randomPhrase(ScenarioUseError));
        if (duplicateSize() != 0)
            view.setResultsButtonHidden(true);
        stopPhraseTimer();
        m_scanControl.playFinishMark(FinishMark::Error);
        m_needToHideResultsButton = true;
        setStopButtonToNewScan();
        if (auto* locator = duplicatesFinder())
            locator->setState(ScanState::Idle);
        setWindowState(WindowStateFailed);
    });
}

void CVScanWindowController::stopPhraseTimer() {
    if (m_scenarioTimer != 0)
        m_services.timers.cancelTimer(m_scenarioTimer);
    m_scenarioTimer = 0;
}

void CVScanWindowController::trackScanningStats() {
    const std::int64_t type = m_scanResultType;
    const char* name = type == ScanResultStopAndShow   ? "Scan Stop and Show"
                       : type == ScanResultInterrupted ? "Scan Interrupted"
                                                       : "Scan Completed";
    const auto duplicates = currentDuplicates();
    const auto megabytes = static_cast<long>((duplicates ? duplicates->size() : 0) / 1000000);
    const auto count = static_cast<long>(duplicates ? duplicates->count() : 0);
    const auto elapsed = std::chrono::steady_clock::now() - m_scanStartDate;
    const std::string words = elapsedTimeInWords(elapsed);
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(elapsed).count();
    auto report = [&](const std::string& category, const std::string& prefix) {
        auto& tracker = m_services.tracker;
        tracker.trackEvent(category, prefix, "", 1);
        tracker.trackEvent(category, prefix + "Total Found Size", formatf("%ld MB", megabytes), megabytes);
        tracker.trackEvent(category, prefix + "Time Elapsed", words, seconds);
        tracker.trackEvent(category, prefix + "Total Found Items", formatf("%ld Duplicates", count), count);
    };
    report("Scan", std::string(name) + " / ");
    if (m_services.defaults.integerForKey(kLaunchCountKey) == 1 && !m_firstScanReported.exchange(true))
        report("First Scan", "First Scan / ");
}

// ---- Results --------------------------------------------------------------------------

void CVScanWindowController::dropResultsViews() {
    if (m_collectorBound) {
        m_services.view.unbindCollectorButton();
        m_collectorBound = false;
    }
    m_collectorViewController.reset();
    m_selectingController.reset();
    m_resultsViewController.reset();
}

void CVScanWindowController::showResults(bool senderCanBeDisabled) {
    orderOutWindowIfMiniaturized();
    if (senderCanBeDisabled)
        m_services.view.setResultsButtonEnabled(false);
    const std::int32_t state = windowState();
    if (state == WindowStateStarting) {
        m_scanResultType = ScanResultStopAndShow;
    } else if (state == WindowStateScanning) {
        systemLog("Stop scanning and show results");
        m_scanResultType = ScanResultStopAndShow;
        trackScanningStats();
    } else {
        systemLog("Show results");
        track("Scan", "Show Results");
    }
    if (auto* locator = duplicatesFinder())
        locator->stopScan();
    if (state == WindowStateScanning) {
        stopPhraseTimer();
        showFoundStatus(duplicateSize());
        m_scanControl.playFinishMark(FinishMark::Found);
        setStopButtonToNewScan();
    }
    if (m_needToRemoveResultsView) {
        dropResultsViews();
        m_needToRemoveResultsView = false;
    }
    if (!m_resultsViewController) {
        auto duplicates = currentDuplicates();
        if (!duplicates)
            duplicates = std::make_shared<CVDuplicatesController>();
        m_resultsViewController = m_services.resultsFactory.makeResultsView(duplicates);
        if (!m_resultsViewController) {
            systemLog("Results view could not be made");
            return;
        }
        m_selectingController =
            std::make_unique<CVSelectingController>(m_resultsViewController.get(), m_services.defaults);
        m_selectingController->setDisplay(this);
        m_resultsViewController->setSelectingController(m_selectingController.get());
        m_collectorViewController =
            m_services.resultsFactory.makeCollector(duplicates, *m_resultsViewController);
        m_resultsViewController->setQlDataSource(m_collectorViewController.get());
        m_resultsViewController->setFolderName(m_chartFolderNames);
    }
    if (m_collectorViewController && !m_collectorBound) {
        m_services.view.bindCollectorButton(*m_collectorViewController);
        m_collectorBound = true;
    }
    m_services.view.clearSearchField();
    m_resultsViewController->setSearchFieldPredicateString("");
    m_resultsViewController->clearTableSelections();
    std::weak_ptr<bool> alive = m_alive;
    m_services.view.showResultsContent(*m_resultsViewController, m_minResultsWindowSize, [this, alive] {
        if (alive.lock())
            setWindowState(WindowStateResults);
    });
}

void CVScanWindowController::backToScan(bool fromController) {
    if (!fromController)
        track("Scan Results", "Back");
    orderOutWindowIfMiniaturized();
    systemLog("Back to Scan");
    auto& view = m_services.view;
    view.closeQuickLook();
    if (view.isFullScreen())
        view.exitFullScreen();
    view.showScanContent();
    // A cleanup since the scan leaves less than was found: the status says what is left.
    if (const auto duplicates = currentDuplicates())
        view.setStatus(foundStatus(duplicates->size()));
    // The results button takes the user back to the results again.
    view.setResultsButtonEnabled(true);
    setWindowState(WindowStateFound);
    if (m_needsRescan)
        stopScan();
}

void CVScanWindowController::showCollector() {
    track("Scan Results", "Remove Selected");
    orderOutWindowIfMiniaturized();
    if (m_collectorViewController)
        m_collectorViewController->showHideCollector();
}

void CVScanWindowController::autoCollect() {
    if (m_resultsViewController)
        m_resultsViewController->autoselectAction();
}

void CVScanWindowController::autoSelectAll() {
    if (m_resultsViewController)
        m_resultsViewController->autoselectAllAction();
}

void CVScanWindowController::autoDecollect() {
    if (m_resultsViewController)
        m_resultsViewController->deselectFromMenuAction();
}

void CVScanWindowController::putAllFilesBack() {
    track("Scan Results", "Remove Selection", "All");
    if (m_resultsViewController)
        m_resultsViewController->deselectAllAction();
}

void CVScanWindowController::putAllFilesBackFromList() {
    if (m_collectorViewController)
        m_collectorViewController->putBack();
}

std::string CVScanWindowController::searchPredicateString(const std::string& searchText,
                                                          std::int64_t searchType) {
    if (searchText.empty())
        return {};
    std::string escaped;
    for (const char c : searchText) {
        if (c == '\\')
            continue;
        if (c == '\'')
            escaped += '\\';
        escaped += c;
    }
    return formatf("%@ contains[c] '%@'", searchType != 0 ? "path" : "title", escaped);
}

void CVScanWindowController::filterChanged(const std::string& searchText, std::int64_t searchType) {
    track("Scan Results", "Search for Results");
    if (m_resultsViewController)
        m_resultsViewController->setSearchFieldPredicateString(searchPredicateString(searchText, searchType));
}

bool CVScanWindowController::validateShowCollectorItem() const {
    const std::int32_t state = windowState();
    return (state == WindowStateResults || state == WindowStateCollector || state == WindowStateCleaned) &&
           collectorNotEmpty();
}

bool CVScanWindowController::validateAutoCollectItem() const {
    return windowState() == WindowStateResults;
}

bool CVScanWindowController::validatePutAllBackItem() const {
    const std::int32_t state = windowState();
    return state == WindowStateResults || state == WindowStateCollector;
}

bool CVScanWindowController::collectorNotEmpty() const {
    if (m_collectorBound && m_collectorViewController)
        return m_collectorViewController->notEmpty();
    return m_collectorNotEmpty;
}

bool CVScanWindowController::collectorExpanded() const {
    return m_collectorBound && m_collectorViewController && m_collectorViewController->expanded();
}

std::string CVScanWindowController::selectedMetaGroupName() const {
    if (m_collectorBound && m_resultsViewController)
        return m_resultsViewController->selectedMetaGroupName();
    return {};
}

void CVScanWindowController::shouldIncSelectedSize(std::int64_t size, std::int64_t count) {
    shouldIncSelectedSize(size, count, {}, {});
}

void CVScanWindowController::shouldIncSelectedSize(std::int64_t size, std::int64_t count,
                                                   const std::string& warning, const std::string& details) {
    if (m_collectorViewController)
        m_collectorViewController->shouldIncSelectedSize(size, count, warning, details);
}

} // namespace corvel
