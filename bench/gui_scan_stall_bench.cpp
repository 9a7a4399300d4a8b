// bench_gui_scan_stall [--all-sizes] [CORPUS] [RUNS]: whether the desktop application's window keeps
// processing events while it scans the benchmark corpus (make_corpus, 200,000 paths; by
// default /tmp/corvel-corpus, built when missing). A 10 ms timer ticks on the GUI thread
// from the click on Start to the found state and half a second beyond; the longest gap
// between two ticks is the longest the window could not answer. Beside it, the window
// thread's own CPU time between ticks: on a shared machine a gap can be the thread
// waiting for a core rather than working. Prints each run (the longest gap and the work
// inside it, the ticks over 100 ms apart, the most work between two ticks, the scan's
// time) and the medians. Offscreen,
// in a private home with the default settings; --all-sizes sets the minimum size to
// nothing (the manual mode at its lowest), so every file is compared and far more groups
// reach the window.

#include <QApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QTimer>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <time.h>

#include "app/app_delegate.h"
#include "app/scan_window_controller.h"
#include "gui_application.h"
#include "gui_bench_support.h"
#include "platform/main_queue.h"
#include "platform/user_defaults.h"
#include "results/duplicates_controller.h"
#include "settings/preferences.h"

using namespace corvel;
using namespace corvel::gui;

namespace {

constexpr int kTickMs = 10;
constexpr double kStallLimitMs = 100;

// The calling thread's own CPU time, in milliseconds.
double threadCpuMs() {
    timespec now{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

struct ScanRun {
    double longestGapMs = 0;
    // The window thread's own work inside the longest gap, and the most work it did
    // between two ticks: a long gap with little work is the thread waiting for a core.
    double longestGapCpuMs = 0;
    double mostWorkMs = 0;
    int gapsOverLimit = 0;
    double scanMs = 0;
    bool ended = false;
    std::int32_t state = 0;
    std::uint64_t groups = 0;
};

ScanRun scanOnce(GuiApplication& gui, const std::string& corpus) {
    ScanRun run;
    gui.delegate().checkAndAddFoldersForScan({corpus});
    CVScanWindowController* controller = gui.delegate().scanWindowController();
    QEventLoop loop;
    QElapsedTimer sinceTick, scan, afterEnd;
    double cpuAtTick = threadCpuMs();
    QTimer ticker;
    ticker.setTimerType(Qt::PreciseTimer);
    ticker.setInterval(kTickMs);
    QObject::connect(&ticker, &QTimer::timeout, &loop, [&] {
        const double gap = static_cast<double>(sinceTick.nsecsElapsed()) / 1e6;
        sinceTick.restart();
        const double cpu = threadCpuMs();
        const double work = cpu - cpuAtTick;
        cpuAtTick = cpu;
        if (gap > run.longestGapMs) {
            run.longestGapMs = gap;
            run.longestGapCpuMs = work;
        }
        run.mostWorkMs = std::max(run.mostWorkMs, work);
        if (gap > kStallLimitMs)
            ++run.gapsOverLimit;
        if (gap > 50 && std::getenv("CORVEL_BENCH_TRACE"))
            std::fprintf(stderr, "  gap %.1f ms (%.1f ms of work) ending at %.1f ms, state %d\n", gap, work,
                         static_cast<double>(scan.nsecsElapsed()) / 1e6, controller->windowState());
        const std::int32_t state = controller->windowState();
        if (!run.ended && state >= WindowStateFound) {
            run.ended = true;
            run.scanMs = static_cast<double>(scan.nsecsElapsed()) / 1e6;
            afterEnd.start();
        }
        if (run.ended && afterEnd.elapsed() > 500)
            loop.quit();
        if (scan.elapsed() > 600'000)
            loop.quit();
    });
    QTimer::singleShot(0, &loop, [&] {
        scan.start();
        sinceTick.start();
        cpuAtTick = threadCpuMs();
        ticker.start();
        controller->startScanAction(false);
    });
    loop.exec();
    ticker.stop();
    run.state = controller->windowState();
    if (auto* engine = controller->duplicatesFinder())
        if (auto results = engine->duplicatesController())
            run.groups = results->count();
    controller->forceNewScan();
    bench::waitFor([&] { return controller->windowState() == WindowStateIdle; }, 10000);
    return run;
}

} // namespace

int main(int argc, char** argv) {
    std::vector<std::string> args(argv + 1, argv + argc);
    const bool allSizes = !args.empty() && args.front() == "--all-sizes";
    if (allSizes)
        args.erase(args.begin());
    std::string corpus = args.size() > 0 ? args[0] : "/tmp/corvel-corpus";
    const int runs = args.size() > 1 ? std::max(1, std::atoi(args[1].c_str())) : 5;
    if (!std::filesystem::is_directory(corpus)) {
        const auto maker = std::filesystem::canonical("/proc/self/exe").parent_path() / "make_corpus";
        std::fprintf(stderr, "bench_gui_scan_stall: building the corpus in %s\n", corpus.c_str());
        const std::string command = "'" + maker.string() + "' '" + corpus + "' 200000 42 >&2";
        if (std::system(command.c_str()) != 0) {
            std::fprintf(stderr, "bench_gui_scan_stall: make_corpus failed\n");
            return 1;
        }
    }
    corpus = std::filesystem::canonical(corpus).string();
    const std::string home = bench::isolateHome("corvel-bench-stall");
    if (home.empty()) {
        std::fprintf(stderr, "bench_gui_scan_stall: cannot make a private home\n");
        return 1;
    }
    bench::useOffscreenPlatform();
    if (allSizes) {
        UserDefaults& defaults = UserDefaults::standardUserDefaults();
        defaults.setBool(true, kOverrideMinSizeKey);
        defaults.setObject(PropertyValue(0.0), kMinScanSizeKey);
    }
    MainQueue::shared().setMainThread();
    QApplication app(argc, argv);
    GuiApplication gui({QString::fromStdString(home + "/corvel-gui.socket"), {}, {}});
    gui.start();

    std::vector<double> gaps, works, scans;
    std::printf("bench_gui_scan_stall: %s, %s, %d runs, %d ms timer\n", corpus.c_str(),
                allSizes ? "every size" : "default settings", runs, kTickMs);
    for (int i = 0; i < runs; ++i) {
        const ScanRun run = scanOnce(gui, corpus);
        if (!run.ended || run.state != WindowStateFound) {
            std::fprintf(stderr,
                         "bench_gui_scan_stall: the scan did not end with duplicates found (state %d)\n",
                         run.state);
            return 1;
        }
        std::printf("run %d: longest gap %s (%s of it the window's own work), %d gaps over 100 ms, most work "
                    "between ticks %s, scan %s, %llu groups found\n",
                    i + 1, bench::milliseconds(run.longestGapMs).c_str(),
                    bench::milliseconds(run.longestGapCpuMs).c_str(), run.gapsOverLimit,
                    bench::milliseconds(run.mostWorkMs).c_str(), bench::milliseconds(run.scanMs).c_str(),
                    static_cast<unsigned long long>(run.groups));
        std::fflush(stdout);
        gaps.push_back(run.longestGapMs);
        works.push_back(run.mostWorkMs);
        scans.push_back(run.scanMs);
    }
    const double m = bench::median(gaps);
    std::printf("median: longest gap %s (target <= 100 ms), most work between ticks %s, scan %s\n",
                bench::milliseconds(m).c_str(), bench::milliseconds(bench::median(works)).c_str(),
                bench::milliseconds(bench::median(scans)).c_str());
    std::error_code ignored;
    std::filesystem::remove_all(home, ignored);
    return m <= kStallLimitMs ? 0 : 3;
}
