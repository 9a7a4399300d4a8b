// bench_gui_results [RUNS]: how long the desktop application takes to show 50,000
// duplicate groups once a scan has ended. The scan's results are built in memory
// (50,000 pairs, 100,000 files, all seven categories) and handed to the real window
// through an engine that ends at once; everything after that is the application's own
// work. Two stretches are timed per run: from the engine's "scanFinished" to the found
// state (the status, the results button), and from a click on the results button to
// the results page shown and painted with every group in its table. Prints each run
// and the medians. Offscreen, in a private home (nothing of the user's is touched).

#include <QApplication>
#include <QElapsedTimer>
#include <QPushButton>
#include <QTableView>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>

#include "app/app_delegate.h"
#include "app/duplicates_locating.h"
#include "app/scan_window_controller.h"
#include "engine/group.h"
#include "gui_application.h"
#include "gui_bench_support.h"
#include "main_window.h"
#include "platform/main_queue.h"
#include "platform/notification_center.h"
#include "results/duplicates_controller.h"
#include "results_page.h"
#include "scan/duplicates_locator.h"
#include "scan_page.h"
#include "synthetic_results.h"

using namespace corvel;
using namespace corvel::gui;

namespace {

constexpr std::size_t kGroups = 50'000;

std::shared_ptr<CVDuplicatesController> makeResults() {
    auto results = std::make_shared<CVDuplicatesController>();
    addSyntheticPairs(*results, kGroups);
    return results;
}

// The engine of one scan: it accepts the folders and holds the prepared results; the
// program itself announces the end.
class PreparedEngine final : public DuplicatesLocating {
public:
    explicit PreparedEngine(std::shared_ptr<CVDuplicatesController> results)
        : m_results(std::move(results)) {}
    bool scanPaths(const std::vector<std::string>& paths) override { return !paths.empty(); }
    void stopScan() override {}
    void setState(ScanState) override {}
    std::shared_ptr<CVDuplicatesController> duplicatesController() const override { return m_results; }

private:
    std::shared_ptr<CVDuplicatesController> m_results;
};

} // namespace

int main(int argc, char** argv) {
    const int runs = argc > 1 ? std::max(1, std::atoi(argv[1])) : 7;
    const std::string home = bench::isolateHome("corvel-bench-results");
    if (home.empty()) {
        std::fprintf(stderr, "bench_gui_results: cannot make a private home\n");
        return 1;
    }
    bench::useOffscreenPlatform();
    MainQueue::shared().setMainThread();
    QApplication app(argc, argv);

    std::shared_ptr<CVDuplicatesController> prepared;
    GuiApplication gui({QString::fromStdString(home + "/corvel-gui.socket"), {}, {}});
    gui.setLocatorFactory([&prepared] { return std::make_unique<PreparedEngine>(prepared); });
    gui.start();
    MainWindow& window = gui.window();
    const std::string folder = home + "/scanned";
    std::filesystem::create_directories(folder);

    std::vector<double> found, shown, total;
    std::printf("bench_gui_results: %zu groups, %d runs\n", kGroups, runs);
    for (int run = 0; run < runs; ++run) {
        prepared = makeResults();
        gui.delegate().checkAndAddFoldersForScan({folder});
        CVScanWindowController* controller = gui.delegate().scanWindowController();
        controller->startScanAction(false);
        if (!bench::waitFor([&] { return controller->windowState() == WindowStateStarting; }, 5000)) {
            std::fprintf(stderr, "bench_gui_results: the scan did not start\n");
            return 1;
        }
        bench::waitFor([] { return false; }, 50);

        QElapsedTimer clock;
        clock.start();
        NotificationCenter::defaultCenter().post(kProgressUpdatedNotification, nullptr, PropertyValue(1.0));
        NotificationCenter::defaultCenter().post(kScanFinishedNotification);
        if (!bench::waitFor([&] { return controller->windowState() == WindowStateFound; }, 10000)) {
            std::fprintf(stderr, "bench_gui_results: the found state did not come\n");
            return 1;
        }
        const double foundMs = static_cast<double>(clock.nsecsElapsed()) / 1e6;

        clock.restart();
        window.scanPage()->resultsButton()->click();
        if (!bench::waitFor([&] { return controller->windowState() == WindowStateResults; }, 10000)) {
            std::fprintf(stderr, "bench_gui_results: the results did not show\n");
            return 1;
        }
        window.repaint();
        const double shownMs = static_cast<double>(clock.nsecsElapsed()) / 1e6;
        ResultsPage* page = gui.resultsPage();
        const int rows = page ? page->groupsModel()->rowCount() : 0;
        if (!page || !page->isVisible() || rows != static_cast<int>(kGroups)) {
            std::fprintf(stderr, "bench_gui_results: the page shows %d groups\n", rows);
            return 1;
        }
        std::printf("run %d: scan end to found %s, results button to painted page %s, total %s\n", run + 1,
                    bench::milliseconds(foundMs).c_str(), bench::milliseconds(shownMs).c_str(),
                    bench::milliseconds(foundMs + shownMs).c_str());
        std::fflush(stdout);
        found.push_back(foundMs);
        shown.push_back(shownMs);
        total.push_back(foundMs + shownMs);

        controller->forceNewScan();
        bench::waitFor([&] { return controller->windowState() == WindowStateIdle; }, 5000);
        bench::waitFor([] { return false; }, 100);
    }
    std::printf(
        "median: scan end to found %s, results button to painted page %s, total %s (target < 1000 ms)\n",
        bench::milliseconds(bench::median(found)).c_str(), bench::milliseconds(bench::median(shown)).c_str(),
        bench::milliseconds(bench::median(total)).c_str());
    std::error_code ignored;
    std::filesystem::remove_all(home, ignored);
    return bench::median(total) < 1000 ? 0 : 3;
}
