#pragma once
// An application controller over the scan window fixture, with fakes for the shell, the
// tutorial and the version checker, a clock the test sets, and a log of the order in
// which the start-up touched them.

#include <chrono>
#include <sys/stat.h>

#include "app/app_delegate.h"
#include "app/app_shell_view.h"
#include "app/apps_version_checking.h"
#include "app/tutorial_presenting.h"
#include "app_fixture.h"
#include "scan/scan_harness.h"
#include "settings/preferences.h"

namespace corvel::test {

class FakeShell final : public AppShellView {
public:
    explicit FakeShell(std::vector<std::string>& order) : m_order(order) {}
    void showQuitSheet(const std::string& message, const std::string& informative,
                       const std::string& defaultButton, const std::string& alternateButton,
                       std::function<void(AlertChoice)> completion) override {
        sheets.push_back({message, informative, defaultButton, alternateButton});
        sheetCompletion = std::move(completion);
    }
    void terminate() override {
        if (onTerminate)
            onTerminate();
    }
    void setApplicationIcon(const std::string& name) override { m_order.push_back("icon:" + name); }
    void addDebugMenu() override { m_order.push_back("debugMenu"); }
    void updateDynamicServices() override { m_order.push_back("updateDynamicServices"); }
    bool openURL(const std::string& url) override {
        urls.push_back(url);
        return urlOpens;
    }
    bool isRatingPromptShown() const override { return ratingPrompt; }
    void showAboutPanel() override { calls.push_back("about"); }
    void showPreferences() override { calls.push_back("preferences"); }
    void openFeedbackWindow() override { calls.push_back("feedback"); }
    void openRatingsPage() override { calls.push_back("rate"); }
    void showAnalyticsWindow() override { calls.push_back("analytics"); }

    std::vector<FakeScanWindowView::Alert> sheets;
    std::function<void(AlertChoice)> sheetCompletion;
    std::function<void()> onTerminate;
    std::vector<std::string> urls;
    bool urlOpens = true;
    bool ratingPrompt = false;
    std::vector<std::string> calls;

private:
    std::vector<std::string>& m_order;
};

class FakeTutorial final : public TutorialPresenting {
public:
    void showIntroTutorial() override {
        open = true;
        separate = false;
        calls.push_back("intro");
    }
    void showTutorialSeparately() override {
        open = true;
        separate = true;
        calls.push_back("separately");
    }
    void showSubscriptionWindow() override {
        open = true;
        separate = true;
        calls.push_back("subscription");
    }
    bool isTutorialOpen() const override { return open; }
    bool isSeparateMode() const override { return separate; }
    void bringTutorialToFront() override { calls.push_back("front"); }
    void closeTutorial() override {
        open = false;
        calls.push_back("close");
    }
    void flipToScanWindow() override {
        open = false;
        calls.push_back("flip");
    }
    bool open = false, separate = false;
    std::vector<std::string> calls;
};

class FakeVersionChecker final : public AppsVersionChecking {
public:
    void updateConfigurationFile() override { calls.push_back("update"); }
    void checkSupportedVersions() override { calls.push_back("check"); }
    std::vector<std::string> calls;
};

// Reports events into the order log too.
class OrderTracker final : public Tracker {
public:
    OrderTracker(RecordingTracker& inner, std::vector<std::string>& order) : m_inner(inner), m_order(order) {}
    void trackEvent(std::string_view category, std::string_view action, std::string_view label,
                    std::int64_t value) override {
        m_order.push_back("event:" + std::string(action));
        m_inner.trackEvent(category, action, label, value);
    }
    void trackView(std::string_view name) override { m_inner.trackView(name); }

private:
    RecordingTracker& m_inner;
    std::vector<std::string>& m_order;
};

class OrderReminder final : public ReminderScheduling {
public:
    explicit OrderReminder(std::vector<std::string>& order) : m_order(order) {}
    void rescheduleExistingReminder() override { m_order.push_back("reminder"); }
    void scheduleCleanReminder() override {}

private:
    std::vector<std::string>& m_order;
};

// Moments for the clock (UTC).
inline std::chrono::system_clock::time_point utc(int y, unsigned mo, unsigned d, int h = 12, int mi = 0,
                                                 int s = 0) {
    using namespace std::chrono;
    return sys_days{year{y} / month{mo} / day{d}} + hours{h} + minutes{mi} + seconds{s};
}

class AppFixture {
public:
    AppFixture() {
        ::mkdir(home.c_str(), 0700);
        w.view.onShow = [this] {
            order.push_back("show(LaunchCount=" + std::to_string(w.store.integerForKey("LaunchCount")) + ")");
        };
    }
    CVScanWindowController& scanWindow() { return *delegate->scanWindowController(); }
    // The scan window fixture's own helpers, on the controller the application now owns.
    void drop(const std::vector<std::string>& paths) {
        scanWindow().scanControl().addFoldersForScan(paths, false);
    }
    void start() {
        scanWindow().startScanAction(false);
        w.drain();
    }
    void setTutorial(bool present) { services.tutorial = present ? &tutorial : nullptr; }
    // Makes the controller from the services as they are now.
    void make() { delegate = std::make_unique<CorvelAppDelegate>(services); }
    void launch() {
        make();
        delegate->applicationWillFinishLaunching();
        delegate->applicationDidFinishLaunching();
    }

    // The same services on other timers.
    AppDelegateServices servicesWith(MainTimers& timers) {
        const AppDelegateServices& s = services;
        return AppDelegateServices{s.shell,
                                   s.makeScanWindowController,
                                   s.defaults,
                                   s.preferences,
                                   s.ignoreList,
                                   s.tracker,
                                   timers,
                                   s.center,
                                   s.tables,
                                   s.directories,
                                   s.now,
                                   s.applicationKnown,
                                   s.applicationFound,
                                   s.launch,
                                   s.reminder,
                                   s.tutorial,
                                   s.versionChecker};
    }

    ScanWindowFixture w;
    ScanHarness harness;
    std::vector<std::string> order;
    FakeShell shell{order};
    FakeTutorial tutorial;
    FakeVersionChecker checker;
    OrderTracker tracker{w.tracker, order};
    OrderReminder reminder{order};
    CVPreferences preferences{w.store, w.tracker};
    std::string home = w.scratch / "home";
    std::chrono::system_clock::time_point clock = utc(2024, 6, 1);
    int scanWindowsMade = 0;
    std::vector<std::string> knownApplications;
    bool applicationFound = true;
    AppDelegateServices services{shell,
                                 [this] {
                                     ++scanWindowsMade;
                                     return std::move(w.controller);
                                 },
                                 w.store,
                                 preferences,
                                 harness.ignoreList,
                                 tracker,
                                 w.timers,
                                 w.center,
                                 StringTables::shared(),
                                 CVDirectoriesManager(w.scratch / "home", w.scratch / "user-dirs.dirs"),
                                 [this] { return clock; },
                                 [this](const std::string& id) {
                                     return std::find(knownApplications.begin(), knownApplications.end(),
                                                      id) != knownApplications.end();
                                 },
                                 [this] { return applicationFound; },
                                 LaunchInfo{},
                                 &reminder,
                                 nullptr,
                                 &checker};
    std::unique_ptr<CorvelAppDelegate> delegate;
};

} // namespace corvel::test
