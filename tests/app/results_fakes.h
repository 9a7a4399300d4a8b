#pragma once
// Fakes for the results view and the collector: faces that record what they were told,
// desktop roles that keep their requests, a host that records window states, and a
// fixture with the services on a private settings store, a Trash in a scratch tree and
// a recording tracker.

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/collector_view.h"
#include "app/collector_view_controller.h"
#include "app/desktop_roles.h"
#include "app/results_roles_factory.h"
#include "app/results_view.h"
#include "app/results_view_controller.h"
#include "app_fakes.h"
#include "platform/main_queue.h"
#include "platform/trash.h"
#include "removal/achievements_controller.h"
#include "removal/library_app_driver.h"
#include "removal/statistics_controller.h"
#include "scan/scan_harness.h"
#include "selection/selecting_controller.h"

namespace corvel::test {

class FakeResultsFace final : public ResultsView {
public:
    void showCategories(const std::vector<std::shared_ptr<CVMetaGroup>>& c,
                        std::optional<std::size_t> row) override {
        categories = c;
        categoryRow = row;
    }
    void showGroups(const std::vector<std::shared_ptr<CVGroup>>& g,
                    const std::vector<std::size_t>& rows) override {
        groups = g;
        groupRows = rows;
    }
    void showFiles(const std::vector<std::shared_ptr<CVFile>>& f,
                   const std::vector<std::size_t>& rows) override {
        files = f;
        fileRows = rows;
    }
    void refreshRows() override { ++refreshes; }
    void setFolderName(const std::string& name) override { folderName = name; }
    void setDiagramShown(bool shown, const std::string& toolTip) override {
        diagramShown = shown;
        diagramToolTip = toolTip;
    }
    void setSortButton(std::int64_t type, bool ascending) override {
        sortType = type;
        sortAscending = ascending;
    }
    void makeFirstResponder(ResultsTable table) override { firstResponder = table; }
    SuppressibleAlertReply runSuppressibleAlert(const std::string& message, const std::string& informative,
                                                const std::string& defaultButton,
                                                const std::string& alternateButton,
                                                const std::string& suppressionTitle) override {
        alerts.push_back({message, informative, defaultButton, alternateButton, suppressionTitle});
        return alertReply;
    }
    void showOpenPanelSheet(const std::string& prompt,
                            std::function<void(std::optional<std::string>)> completion) override {
        openPanelPrompt = prompt;
        openPanelCompletion = std::move(completion);
    }
    void showSavePanel(std::function<void(std::optional<std::string>)> completion) override {
        savePanelCompletion = std::move(completion);
    }
    void showError(const std::string& message) override { errors.push_back(message); }

    struct Alert {
        std::string message, informative, defaultButton, alternateButton, suppressionTitle;
    };
    std::vector<std::shared_ptr<CVMetaGroup>> categories;
    std::optional<std::size_t> categoryRow;
    std::vector<std::shared_ptr<CVGroup>> groups;
    std::vector<std::size_t> groupRows;
    std::vector<std::shared_ptr<CVFile>> files;
    std::vector<std::size_t> fileRows;
    int refreshes = 0;
    std::string folderName;
    bool diagramShown = false;
    std::string diagramToolTip;
    std::int64_t sortType = -1;
    bool sortAscending = false;
    std::optional<ResultsTable> firstResponder;
    std::vector<Alert> alerts;
    SuppressibleAlertReply alertReply;
    std::string openPanelPrompt;
    std::function<void(std::optional<std::string>)> openPanelCompletion;
    std::function<void(std::optional<std::string>)> savePanelCompletion;
    std::vector<std::string> errors;
};

class FakeCollectorFace final : public CollectorView {
public:
    void showList(const std::vector<CollectorListGroup>& groups) override { list = groups; }
    void deselectAllRows() override { ++deselections; }
    void setAmountLine(const std::string& text) override { amountLine = text; }
    void setRemovalMode(bool toTrash) override { removalToTrash = toTrash; }
    void setRemoveButtonEnabled(bool enabled) override { removeEnabled = enabled; }
    void slideIn(std::function<void()> done) override {
        calls.push_back("slideIn");
        if (animateAtOnce)
            done();
        else
            pendingAnimation = std::move(done);
    }
    void slideOut(std::function<void()> done) override {
        calls.push_back("slideOut");
        if (animateAtOnce)
            done();
        else
            pendingAnimation = std::move(done);
    }
    void setInformationPanelHidden(bool hidden) override { infoHidden = hidden; }
    void setListFirstResponder(bool first) override { listFirst = first; }
    AlertChoice runModalAlert(const std::string& message, const std::string& informative,
                              const std::string& defaultButton, const std::string& alternateButton) override {
        alerts.push_back({message, informative, defaultButton, alternateButton});
        return alertAnswer;
    }
    void showCleanupSummary(const CleanupSummary& s) override { summaries.push_back(s); }
    void showFailedFiles(const std::vector<std::shared_ptr<CVFile>>& files) override { failed = files; }
    void showSelectionMessage(const std::string& warning, const std::string& details) override {
        messages.emplace_back(warning, details);
    }
    void hideAdvertisement() override { ++adHidden; }
    void closeSharingWindow() override { ++sharingClosed; }

    // CVRemovalView.
    void setRemoveButton(const std::string& title, const std::string& toolTip) override {
        removeTitle = title;
        removeToolTip = toolTip;
    }
    void setCloseButtonEnabled(bool enabled) override { closeEnabled = enabled; }
    void setWindowState(std::int32_t state) override { states.push_back(state); }
    void startShredderAnimation() override {
        calls.push_back("startShredderAnimation");
        if (onStart)
            onStart();
    }
    void advanceShredderAnimation(std::uint64_t handled, std::uint64_t total) override {
        ticks.emplace_back(handled, total);
    }
    void setDoneButtonToolTip(const std::string& toolTip) override { doneToolTip = toolTip; }
    void showSuccessView() override { calls.push_back("showSuccessView"); }
    void showErrorList(const std::string& text) override {
        calls.push_back("showErrorList");
        errorListText = text;
    }
    void reloadCollector() override { calls.push_back("reloadCollector"); }

    std::size_t count(const std::string& call) const {
        return static_cast<std::size_t>(std::count(calls.begin(), calls.end(), call));
    }

    std::vector<CollectorListGroup> list;
    int deselections = 0;
    std::string amountLine;
    std::optional<bool> removalToTrash;
    bool removeEnabled = false;
    bool animateAtOnce = true;
    std::function<void()> pendingAnimation;
    bool infoHidden = false, listFirst = false, closeEnabled = true;
    std::vector<FakeScanWindowView::Alert> alerts;
    AlertChoice alertAnswer = AlertChoice::Default;
    std::vector<CleanupSummary> summaries;
    std::vector<std::shared_ptr<CVFile>> failed;
    std::vector<std::pair<std::string, std::string>> messages;
    int adHidden = 0, sharingClosed = 0;
    std::string removeTitle, removeToolTip, doneToolTip, errorListText;
    std::vector<std::int32_t> states;
    std::vector<std::pair<std::uint64_t, std::uint64_t>> ticks;
    std::vector<std::string> calls;
    // Runs when a pass starts, on the main thread while the pass waits.
    std::function<void()> onStart;
};

class FakeFaces final : public ResultsFaces {
public:
    std::unique_ptr<ResultsView> makeResultsFace() override {
        auto face = std::make_unique<FakeResultsFace>();
        results = face.get();
        return face;
    }
    std::unique_ptr<CollectorView> makeCollectorFace() override {
        auto face = std::make_unique<FakeCollectorFace>();
        collector = face.get();
        if (prepareCollector)
            prepareCollector(*face);
        return face;
    }
    FakeResultsFace* results = nullptr;
    FakeCollectorFace* collector = nullptr;
    std::function<void(FakeCollectorFace&)> prepareCollector;
};

class FakeSharing final : public SharingService {
public:
    void shareRecoveredSpace(std::uint64_t freed, std::uint64_t lastCleaned, bool iPhoto,
                             bool iTunes) override {
        shared.push_back({freed, lastCleaned, iPhoto, iTunes});
    }
    struct Share {
        std::uint64_t freed;
        std::uint64_t lastCleaned;
        bool iPhoto;
        bool iTunes;
    };
    std::vector<Share> shared;
};

class FakeReveal final : public FileRevealing {
public:
    void revealInFileManager(const std::vector<std::string>& paths) override { revealed.push_back(paths); }
    std::vector<std::vector<std::string>> revealed;
};

class FakeApplications final : public ApplicationCatalog {
public:
    std::optional<ApplicationInfo> defaultApplicationForFile(const std::string& /*path*/) override {
        return defaultApp;
    }
    std::vector<ApplicationInfo> applicationsForFile(const std::string& /*path*/) override { return others; }
    bool openFile(const std::string& path, const std::string& application) override {
        opened.emplace_back(path, application);
        return true;
    }
    void chooseApplicationForFile(const std::string& path) override { chosen.push_back(path); }
    bool isApplicationInstalled(const std::string& identifier) override {
        return installed.contains(identifier);
    }

    std::optional<ApplicationInfo> defaultApp;
    std::vector<ApplicationInfo> others;
    std::vector<std::pair<std::string, std::string>> opened;
    std::vector<std::string> chosen;
    std::set<std::string> installed;
};

class FakePreview final : public PreviewPanel {
public:
    bool showPreview(const std::vector<std::string>& paths, CVError* error) override {
        shown.push_back(paths);
        if (fail && error)
            *error = CVError("com.example.preview", 1, "no preview");
        return !fail;
    }
    void closePreview() override { ++closed; }
    std::vector<std::vector<std::string>> shown;
    bool fail = false;
    int closed = 0;
};

class RecordingHost final : public CollectorHost {
public:
    void setWindowState(std::int32_t state) override { states.push_back(state); }
    void forceNewScan() override { calls.push_back("forceNewScan"); }
    void backToScan() override { calls.push_back("backToScan"); }
    std::vector<std::int32_t> states;
    std::vector<std::string> calls;
};

// A library driver that launches nothing and answers scripts as told, keeping them.
class NoLibraryDriver final : public LibraryAppDriver {
public:
    bool launchApplication(const std::string& /*bundleIdentifier*/) override { return false; }
    std::optional<PropertyValue::Dictionary> runScript(const std::string& script) override {
        scripts.push_back(script);
        return scriptError;
    }
    std::vector<std::string> scripts;
    std::optional<PropertyValue::Dictionary> scriptError;
};

// The results services on a private store, the Trash in data/Trash of a scratch tree.
struct ResultsHarness {
    ScanHarness scan;
    TempTree tree;
    NotificationCenter center;
    FakeTimers timers;
    RecordingTracker tracker;
    FakeReveal reveal;
    FakeSharing sharing;
    FakeApplications applications;
    FakePreview preview;
    CountingReminder reminder;
    NoLibraryDriver driver;
    Trash trash{TrashEnvironment{tree / "data", std::nullopt}};
    CVStatisticsController statistics{scan.defaults};
    HVAchievementsController achievements{scan.defaults};
    FakeFaces faces;
    RecordingHost host;

    ResultsHarness() { tree.folder("files"); }

    ResultsServices services() {
        return {scan.defaults, scan.preferences, scan.ignoreList, center,       MainQueue::shared(),
                timers,        tracker,          reveal,          applications, trash,
                driver,        statistics,       achievements,    &preview,     &reminder,
                &sharing};
    }
    std::string homeTrash() const { return tree / "data/Trash"; }
};

} // namespace corvel::test
