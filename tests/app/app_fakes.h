#pragma once
// Fakes for the application controllers: views that record what they were told, a
// locator that posts the engine's real notification names, results roles, timers that
// fire when told, a reminder that counts.

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "app/duplicates_locating.h"
#include "app/main_timers.h"
#include "app/results_roles.h"
#include "app/scan_item_control.h"
#include "app/scan_notifying.h"
#include "app/scan_window_view.h"
#include "engine/group.h"
#include "platform/notification_center.h"
#include "results/duplicates_controller.h"
#include "settings/reminder_scheduling.h"

namespace corvel::test {

class FakeScanWindowView final : public ScanWindowView {
public:
    void setStatus(const std::string& text) override {
        status = text;
        log.push_back("status:" + text);
    }
    void setSubStatus(const std::string& text) override {
        subStatus = text;
        subStatusAnimationTime = animationTime;
        log.push_back("substatus:" + text);
    }
    void setStatusAnimationTime(double seconds) override { animationTime = seconds; }
    void setStartButtonHidden(bool hidden) override { startHidden = hidden; }
    void setPlusButtonHidden(bool hidden) override { plusHidden = hidden; }
    void setStopButton(const std::string& title, const std::string& toolTip,
                       StopButtonAction action) override {
        stopTitle = title;
        stopToolTip = toolTip;
        stopAction = action;
    }
    void setStopButtonHidden(bool hidden) override { stopHidden = hidden; }
    void setResultsButton(const std::string& title, const std::string& toolTip) override {
        resultsTitle = title;
        resultsToolTip = toolTip;
        ++resultsButtonChanges;
    }
    void setResultsButtonHidden(bool hidden) override { resultsHidden = hidden; }
    void setResultsButtonEnabled(bool enabled) override { resultsEnabled = enabled; }
    void bindCollectorButton(CollectorRole& collector) override { boundCollector = &collector; }
    void unbindCollectorButton() override { boundCollector = nullptr; }
    void showWindow() override {
        visible = true;
        ++shown;
        log.push_back("show");
        if (onShow)
            onShow();
    }
    bool isVisible() const override { return visible; }
    bool isKeyWindow() const override { return key; }
    bool isMiniaturized() const override { return miniaturized; }
    void makeKeyAndOrderFront() override {
        miniaturized = false;
        ++broughtBack;
    }
    void setDropsEnabled(bool enabled) override { dropsEnabled = enabled; }
    void clearUndoActions() override { ++undoCleared; }
    AlertChoice runModalAlert(const std::string& message, const std::string& informative,
                              const std::string& defaultButton, const std::string& alternateButton) override {
        alerts.push_back({message, informative, defaultButton, alternateButton});
        return alertAnswer;
    }
    void showOpenPanel(const std::string& prompt,
                       std::function<void(std::optional<std::vector<std::string>>)> completion) override {
        openPanelPrompt = prompt;
        openPanelCompletion = std::move(completion);
    }
    void clearSearchField() override { ++searchCleared; }
    void makeSearchFieldKey() override { ++searchFocused; }
    void closeQuickLook() override { ++quickLookClosed; }
    bool isFullScreen() const override { return fullScreen; }
    void exitFullScreen() override {
        fullScreen = false;
        ++fullScreenExits;
    }
    void showResultsContent(ResultsViewRole& /*results*/, WindowSize minSize,
                            std::function<void()> done) override {
        content = "results";
        resultsMinSize = minSize;
        if (finishSwitchAtOnce)
            done();
        else
            pendingSwitch = std::move(done);
    }
    void showScanContent() override { content = "scan"; }

    struct Alert {
        std::string message, informative, defaultButton, alternateButton;
    };

    std::string status, subStatus;
    double animationTime = -1;
    double subStatusAnimationTime = -1;
    bool startHidden = true, plusHidden = false, stopHidden = true, resultsHidden = true;
    bool resultsEnabled = true, dropsEnabled = true;
    std::string stopTitle, stopToolTip, resultsTitle, resultsToolTip;
    std::optional<StopButtonAction> stopAction;
    int resultsButtonChanges = 0;
    CollectorRole* boundCollector = nullptr;
    bool visible = false, key = true, miniaturized = false, fullScreen = false;
    int shown = 0, broughtBack = 0, undoCleared = 0, searchCleared = 0, searchFocused = 0,
        quickLookClosed = 0, fullScreenExits = 0;
    AlertChoice alertAnswer = AlertChoice::Default;
    std::vector<Alert> alerts;
    std::string openPanelPrompt;
    std::function<void(std::optional<std::vector<std::string>>)> openPanelCompletion;
    std::string content = "scan";
    WindowSize resultsMinSize;
    bool finishSwitchAtOnce = true;
    std::function<void()> pendingSwitch;
    std::vector<std::string> log;
    std::function<void()> onShow;
};

class FakeDropZoneView final : public ScanItemControlView {
public:
    void startArrowFlyAway() override { ++arrowFlights; }
    void setupArrowAnimation() override { ++arrowSetups; }
    void showTargets(const std::vector<std::string>& paths, const std::string& name) override {
        shownPaths = paths;
        shownName = name;
    }
    void startScanningAnimation() override { ++scanningAnimations; }
    void setProgress(double fraction) override { progress.push_back(fraction); }
    void playFinishMark(FinishMark mark) override { marks.push_back(mark); }
    void resetAnimation() override {
        ++resets;
        if (control && resetAtOnce)
            control->animationDidReset();
    }

    RGScanItemControl* control = nullptr;
    bool resetAtOnce = true;
    int arrowFlights = 0, arrowSetups = 0, scanningAnimations = 0, resets = 0;
    std::vector<std::string> shownPaths;
    std::string shownName;
    std::vector<double> progress;
    std::vector<FinishMark> marks;
};

// What the fake locators of one test did; the factory makes a new locator per scan.
struct FakeEngine {
    bool refuse = false;
    int locatorsMade = 0;
    int locatorsAlive = 0;
    std::vector<std::vector<std::string>> scans;
    int stops = 0;
    std::vector<ScanState> states;
    // The results the current scan reports; null until it searches.
    std::shared_ptr<CVDuplicatesController> results;
    NotificationCenter* center = nullptr;

    // Posts as the engine does, from a thread of its own.
    void postFromEngineThread(const std::string& name, const PropertyValue& object = {}) {
        std::thread([this, name, object] { center->post(name, nullptr, object); }).join();
    }
    void progress(double fraction) { postFromEngineThread("com.halvik.corvel.ProgressUpdated", fraction); }
    void finish() { postFromEngineThread("com.halvik.corvel.scanFinished"); }
    void error() { postFromEngineThread("com.halvik.corvel.errorOccuredWhileScanning"); }
    void refuseAsIgnored() { postFromEngineThread("com.halvik.Corvel.droppedFilesAreIgnored"); }
    void refuseAsSystem() { postFromEngineThread("com.halvik.Corvel.droppedFilesAreSystem"); }

    // A group of two copies of size bytes each (on disk: size rounded up to 4096).
    void findGroup(const std::string& name, std::uint64_t size) {
        if (!results)
            results = std::make_shared<CVDuplicatesController>();
        auto a = std::make_shared<CVFile>("/data/a/" + name, name, size, size);
        auto b = std::make_shared<CVFile>("/data/b/" + name, name, size, size);
        auto group = CVGroup::initWithCVFile(a);
        group->addFile(b);
        results->addGroup(group);
    }

    LocatorFactory factory();
};

class FakeLocator final : public DuplicatesLocating {
public:
    explicit FakeLocator(FakeEngine& engine) : m_engine(engine) { ++m_engine.locatorsAlive; }
    ~FakeLocator() override { --m_engine.locatorsAlive; }
    bool scanPaths(const std::vector<std::string>& paths) override {
        if (m_engine.refuse || paths.empty())
            return false;
        m_engine.scans.push_back(paths);
        m_engine.results.reset();
        return true;
    }
    void stopScan() override { ++m_engine.stops; }
    void setState(ScanState state) override { m_engine.states.push_back(state); }
    std::shared_ptr<CVDuplicatesController> duplicatesController() const override { return m_engine.results; }

private:
    FakeEngine& m_engine;
};

inline LocatorFactory FakeEngine::factory() {
    return [this] {
        ++locatorsMade;
        return std::make_unique<FakeLocator>(*this);
    };
}

class FakeCollector final : public CollectorRole {
public:
    void showHideCollector() override { calls.push_back("showHideCollector"); }
    void putBack() override { calls.push_back("putBack"); }
    void newScan() override { calls.push_back("newScan"); }
    void shouldIncSelectedSize(std::int64_t size, std::int64_t count, const std::string& /*warning*/,
                               const std::string& /*details*/) override {
        selectedSize += size;
        selectedCount += count;
    }
    std::uint64_t size() const override { return static_cast<std::uint64_t>(selectedSize); }
    std::uint64_t count() const override { return static_cast<std::uint64_t>(selectedCount); }
    bool notEmpty() const override { return selectedCount > 0; }
    bool expanded() const override { return isExpanded; }

    std::vector<std::string> calls;
    std::int64_t selectedSize = 0, selectedCount = 0;
    bool isExpanded = false;
};

class FakeResultsView final : public ResultsViewRole {
public:
    void setSelectingController(CVSelectingController* controller) override { selecting = controller; }
    void setQlDataSource(CollectorRole* collector) override { qlSource = collector; }
    void setFolderName(const std::string& name) override { folderName = name; }
    void setSearchFieldPredicateString(const std::string& predicate) override {
        predicates.push_back(predicate);
    }
    void clearTableSelections() override { calls.push_back("clearTableSelections"); }
    std::string selectedMetaGroupName() const override { return "Pictures"; }
    void autoselectAction() override { calls.push_back("autoselectAction"); }
    void autoselectAllAction() override { calls.push_back("autoselectAllAction"); }
    void deselectFromMenuAction() override { calls.push_back("deselectFromMenuAction"); }
    void deselectAllAction() override { calls.push_back("deselectAllAction"); }
    void keepOldestFilesAction() override { calls.push_back("keepOldestFilesAction"); }
    void keepMostRecentFilesAction() override { calls.push_back("keepMostRecentFilesAction"); }
    void openPathToCollectFiles() override { calls.push_back("openPathToCollectFiles"); }
    void exportSelectedDupes() override { calls.push_back("exportSelectedDupes"); }

    std::shared_ptr<CVDuplicatesController> duplicates;
    CVSelectingController* selecting = nullptr;
    CollectorRole* qlSource = nullptr;
    std::string folderName;
    std::vector<std::string> predicates;
    std::vector<std::string> calls;
};

class FakeResultsFactory final : public ResultsRolesFactory {
public:
    std::unique_ptr<ResultsViewRole>
    makeResultsView(const std::shared_ptr<CVDuplicatesController>& d) override {
        auto view = std::make_unique<FakeResultsView>();
        view->duplicates = d;
        lastView = view.get();
        ++viewsMade;
        return view;
    }
    std::unique_ptr<CollectorRole>
    makeCollector(const std::shared_ptr<CVDuplicatesController>& /*duplicates*/,
                  ResultsViewRole& /*resultsView*/) override {
        auto collector = std::make_unique<FakeCollector>();
        lastCollector = collector.get();
        return collector;
    }
    FakeResultsView* lastView = nullptr;
    FakeCollector* lastCollector = nullptr;
    int viewsMade = 0;
};

class FakeTimers final : public MainTimers {
public:
    struct Timer {
        Duration interval;
        bool repeating;
        Task task;
    };
    TimerId scheduleTimer(Duration delay, Task task) override { return add(delay, false, std::move(task)); }
    TimerId scheduleRepeatingTimer(Duration interval, Task task) override {
        return add(interval, true, std::move(task));
    }
    void cancelTimer(TimerId id) override { timers.erase(id); }
    // Fires a timer as its time comes; a one-shot timer is then spent.
    void fire(TimerId id) {
        auto it = timers.find(id);
        if (it == timers.end())
            return;
        Task task = it->second.task;
        if (!it->second.repeating)
            timers.erase(it);
        task();
    }
    // The live timers with this interval.
    std::vector<TimerId> withInterval(Duration interval) const {
        std::vector<TimerId> ids;
        for (const auto& [id, timer] : timers)
            if (timer.interval == interval)
                ids.push_back(id);
        return ids;
    }
    std::map<TimerId, Timer> timers;

private:
    TimerId add(Duration interval, bool repeating, Task task) {
        timers[m_next] = {interval, repeating, std::move(task)};
        return m_next++;
    }
    TimerId m_next = 1;
};

class CountingReminder final : public ReminderScheduling {
public:
    void rescheduleExistingReminder() override { ++rescheduled; }
    void scheduleCleanReminder() override { ++scheduled; }
    int rescheduled = 0, scheduled = 0;
};

class RecordingScanNotifications final : public ScanNotifying {
public:
    void postScanCompleteNotificationWithSize(std::uint64_t size) override { sizes.push_back(size); }
    void postScanCompleteNotificationAndNothingFound() override { ++nothingFound; }
    std::vector<std::uint64_t> sizes;
    int nothingFound = 0;
};

} // namespace corvel::test
