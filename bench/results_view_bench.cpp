// The results view over 50,000 duplicate groups (100,000 files, every category): how long
// the category switch, the search and the sort take, each as the user sees it (the groups
// of the category filtered, sorted and handed to the face). No files on disk; the
// settings in a scratch folder.

#include <benchmark/benchmark.h>
#include <filesystem>
#include <memory>
#include <stdlib.h>
#include <string>

#include "app/desktop_roles.h"
#include "app/groups_sorting.h"
#include "app/main_timers.h"
#include "app/results_view.h"
#include "app/results_view_controller.h"
#include "engine/group.h"
#include "engine/node_type_generator.h"
#include "platform/main_queue.h"
#include "platform/notification_center.h"
#include "platform/resources.h"
#include "platform/tracker.h"
#include "platform/trash.h"
#include "platform/user_defaults.h"
#include "removal/achievements_controller.h"
#include "removal/library_app_driver.h"
#include "removal/statistics_controller.h"
#include "results/duplicates_controller.h"
#include "settings/ignore_list.h"
#include "settings/preferences.h"
#include "synthetic_results.h"

namespace corvel {
namespace {

constexpr std::size_t kGroups = 50'000;

class NullFace final : public ResultsView {
public:
    void showCategories(const std::vector<std::shared_ptr<CVMetaGroup>>& c,
                        std::optional<std::size_t>) override {
        benchmark::DoNotOptimize(c.size());
    }
    void showGroups(const std::vector<std::shared_ptr<CVGroup>>& g,
                    const std::vector<std::size_t>&) override {
        shownGroups = g.size();
    }
    void showFiles(const std::vector<std::shared_ptr<CVFile>>&, const std::vector<std::size_t>&) override {}
    void refreshRows() override {}
    void setFolderName(const std::string&) override {}
    void setDiagramShown(bool, const std::string&) override {}
    void setSortButton(std::int64_t, bool) override {}
    void makeFirstResponder(ResultsTable) override {}
    SuppressibleAlertReply runSuppressibleAlert(const std::string&, const std::string&, const std::string&,
                                                const std::string&, const std::string&) override {
        return {};
    }
    void showOpenPanelSheet(const std::string&, std::function<void(std::optional<std::string>)>) override {}
    void showSavePanel(std::function<void(std::optional<std::string>)>) override {}
    void showError(const std::string&) override {}
    std::size_t shownGroups = 0;
};

class NullDesktop final : public FileRevealing, public ApplicationCatalog {
public:
    void revealInFileManager(const std::vector<std::string>&) override {}
    std::optional<ApplicationInfo> defaultApplicationForFile(const std::string&) override {
        return std::nullopt;
    }
    std::vector<ApplicationInfo> applicationsForFile(const std::string&) override { return {}; }
    bool openFile(const std::string&, const std::string&) override { return false; }
    void chooseApplicationForFile(const std::string&) override {}
    bool isApplicationInstalled(const std::string&) override { return false; }
};

class NoLibraryDriver final : public LibraryAppDriver {
public:
    bool launchApplication(const std::string&) override { return false; }
    std::optional<PropertyValue::Dictionary> runScript(const std::string&) override { return std::nullopt; }
};

// The results of a scan of 50,000 pairs, and a results view over them.
struct Session {
    std::string folder = [] {
        char name[] = "/tmp/corvel-results-bench-XXXXXX";
        return std::string(::mkdtemp(name));
    }();
    UserDefaults defaults{folder + "/settings.plist"};
    NullTracker tracker;
    CVPreferences preferences{defaults, tracker};
    CVNodeTypeGenerator generator{defaults, folder, folder};
    CVIgnoreList ignoreList{defaults, resourcePath("IgnoreList.plist"),
                            CVIgnoreList::Environment{folder, folder, nullptr}, generator};
    NotificationCenter center;
    MainQueueTimers timers{MainQueue::shared()};
    NullDesktop desktop;
    Trash trash{TrashEnvironment{folder + "/data", std::nullopt}};
    NoLibraryDriver driver;
    CVStatisticsController statistics{defaults};
    HVAchievementsController achievements{defaults};
    std::shared_ptr<CVDuplicatesController> results = std::make_shared<CVDuplicatesController>();
    NullFace* face = nullptr;
    std::unique_ptr<CVResultsViewController> view;

    Session() {
        addSyntheticPairs(*results, kGroups);
        auto nullFace = std::make_unique<NullFace>();
        face = nullFace.get();
        view = std::make_unique<CVResultsViewController>(
            results, std::move(nullFace),
            ResultsServices{defaults, preferences, ignoreList, center, MainQueue::shared(), timers, tracker,
                            desktop, desktop, trash, driver, statistics, achievements, nullptr, nullptr});
    }
    ~Session() {
        view.reset();
        std::error_code ignored;
        std::filesystem::remove_all(folder, ignored);
    }
    std::size_t rowOf(std::int32_t id) const {
        for (std::size_t i = 0; i < view->categories().size(); ++i)
            if (view->categories()[i]->groupID() == id)
                return i;
        return 0;
    }
};

Session& session() {
    static Session s;
    return s;
}

// Switches between Pictures and all files: each iteration is one switch.
void BM_ResultsCategorySwitch(benchmark::State& state) {
    Session& s = session();
    s.view->sortAction(kSortByTotalSize, false, true);
    const std::size_t pictures = s.rowOf(kMetaGroupPictures);
    const std::size_t all = s.rowOf(kMetaGroupAll);
    bool toPictures = true;
    for (auto _ : state) {
        s.view->setSelectedMetaGroupAction(toPictures ? pictures : all);
        toPictures = !toPictures;
    }
    s.view->setSelectedMetaGroupAction(all);
    state.SetLabel("50,000 groups; Pictures has 7,143");
}
BENCHMARK(BM_ResultsCategorySwitch)->Unit(benchmark::kMillisecond);

// A search by name, then clearing it: each iteration is one change of the search field.
void BM_ResultsSearch(benchmark::State& state) {
    Session& s = session();
    s.view->setSelectedMetaGroupAction(s.rowOf(kMetaGroupAll));
    bool search = true;
    std::size_t shown = 0;
    for (auto _ : state) {
        s.view->setSearchFieldPredicateString(search ? "title contains[c] 'report 1'" : "");
        shown += s.face->shownGroups;
        search = !search;
    }
    s.view->setSearchFieldPredicateString("");
    benchmark::DoNotOptimize(shown);
    state.SetLabel("all categories; the search alternates with no search");
}
BENCHMARK(BM_ResultsSearch)->Unit(benchmark::kMillisecond);

// One sort of all 50,000 groups by the key of the type; the direction alternates.
void BM_ResultsSort(benchmark::State& state) {
    Session& s = session();
    s.view->setSelectedMetaGroupAction(s.rowOf(kMetaGroupAll));
    const std::int64_t type = state.range(0);
    bool ascending = true;
    for (auto _ : state) {
        s.view->sortAction(type, ascending, true);
        ascending = !ascending;
    }
    state.SetLabel(sortKeyForType(type));
}
BENCHMARK(BM_ResultsSort)->DenseRange(0, 5)->Unit(benchmark::kMillisecond);

} // namespace
} // namespace corvel
