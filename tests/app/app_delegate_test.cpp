#include <algorithm>
#include <gtest/gtest.h>
#include <unistd.h>

#include "app/locator_adapter.h"
#include "app/system_version.h"
#include "app_delegate_fixture.h"
#include "platform/system_log.h"
#include "platform/user_paths.h"

namespace corvel {
namespace {

using test::AppFixture;
using test::utc;

std::vector<test::TrackedEvent> eventsOf(const test::RecordingTracker& tracker, const std::string& category) {
    std::vector<test::TrackedEvent> out;
    for (const auto& e : tracker.events())
        if (e.category == category)
            out.push_back(e);
    return out;
}

// ---- Start-up -------------------------------------------------------------------------

TEST(AppStartUp, AReturningUserGetsTheScanWindowThenTheCountThenTheRest) {
    AppFixture f;
    f.w.store.setInteger(3, "LaunchCount");
    f.w.store.setBool(true, "ShowDebugMenu");
    f.w.store.setBool(true, "FinderService");
    f.clock = utc(2024, 3, 30); // Easter Saturday
    f.launch();
    EXPECT_EQ(f.order, (std::vector<std::string>{"show(LaunchCount=3)", "event:OS", "event:App Launch Total",
                                                 "icon:EasterIcon", "debugMenu", "reminder"}));
    EXPECT_EQ(f.scanWindowsMade, 1);
    EXPECT_EQ(f.w.view.shown, 1);
    UserDefaults onDisk(f.w.store.path());
    EXPECT_EQ(onDisk.integerForKey("LaunchCount"), 4) << "the count is written to disk at once";
    const auto stats = eventsOf(f.w.tracker, "Statistics");
    ASSERT_EQ(stats.size(), 2u);
    EXPECT_EQ(stats[0].action, "OS");
    EXPECT_EQ(stats[0].label, systemVersion());
    EXPECT_EQ(stats[1], (test::TrackedEvent{"Statistics", "App Launch Total", "", 4}));
    EXPECT_TRUE(f.w.store.boolForKey("FinderService"));
    // The drop zone's arrow starts on the next turn of the run loop.
    const auto now = f.w.timers.withInterval(std::chrono::milliseconds(0));
    ASSERT_EQ(now.size(), 1u);
    f.w.timers.fire(now[0]);
    EXPECT_EQ(f.w.dropZone.arrowSetups, 1);
}

TEST(AppStartUp, FlagsRegisteredAndTheEasterIconAndDebugMenuOnlyWhenAsked) {
    AppFixture f;
    f.w.store.setBool(true, "DontShowEasterEggs");
    f.clock = utc(2024, 4, 1); // Easter Monday
    f.launch();
    EXPECT_EQ(std::count(f.order.begin(), f.order.end(), "icon:EasterIcon"), 0);
    EXPECT_EQ(std::count(f.order.begin(), f.order.end(), "debugMenu"), 0);
    EXPECT_TRUE(f.w.store.boolForKey("CVTrackApp")) << "registered as YES";
    EXPECT_FALSE(f.w.store.hasStoredValueForKey("CVTrackApp")) << "a registered default is not written";
}

struct FirstLaunchCase {
    const char* name;
    std::int64_t launchCount;
    std::vector<std::string> knownApplications;
    bool finderService;
    bool autoUpdate;
    std::vector<test::TrackedEvent> statistics; // after the OS event
    bool servicesRefreshed;
    std::vector<std::string> configuration;
    friend void PrintTo(const FirstLaunchCase& c, std::ostream* os) { *os << c.name; }
};

class AppLaunchCount : public testing::TestWithParam<FirstLaunchCase> {};

TEST_P(AppLaunchCount, DecidesTheFirstLaunchReportsAndTheConfigurationUpdate) {
    const auto& c = GetParam();
    AppFixture f;
    if (c.launchCount)
        f.w.store.setInteger(c.launchCount, "LaunchCount");
    f.w.store.setBool(c.finderService, "FinderService");
    f.w.store.setBool(c.autoUpdate, "UpdateConfigurationFiles");
    f.knownApplications = c.knownApplications;
    f.launch();
    auto stats = eventsOf(f.w.tracker, "Statistics");
    ASSERT_FALSE(stats.empty());
    stats.erase(stats.begin());
    EXPECT_EQ(stats, c.statistics);
    EXPECT_EQ(std::count(f.order.begin(), f.order.end(), "updateDynamicServices"),
              c.servicesRefreshed ? 1 : 0);
    EXPECT_EQ(f.checker.calls, c.configuration);
    EXPECT_EQ(f.w.store.integerForKey("LaunchCount"), c.launchCount + 1);
}

INSTANTIATE_TEST_SUITE_P(
    Launches, AppLaunchCount,
    testing::Values(FirstLaunchCase{"FirstWithoutTidewell",
                                    0,
                                    {},
                                    true,
                                    true,
                                    {{"Statistics", "First Launch", "First Launch", 1},
                                     {"Statistics", "First Launch", "Tidewell Not Detected", 1},
                                     {"Statistics", "App Launch Total", "", 1}},
                                    true,
                                    {}},
                    FirstLaunchCase{"FirstWithTidewell3",
                                    0,
                                    {"com.halvik.Tidewell3"},
                                    false,
                                    true,
                                    {{"Statistics", "First Launch", "First Launch", 1},
                                     {"Statistics", "First Launch", "Tidewell Detected", 1},
                                     {"Statistics", "App Launch Total", "", 1}},
                                    false,
                                    {}},
                    FirstLaunchCase{"FirstWithTidewell2",
                                    0,
                                    {"com.halvik.Tidewell2"},
                                    false,
                                    false,
                                    {{"Statistics", "First Launch", "First Launch", 1},
                                     {"Statistics", "First Launch", "Tidewell Detected", 1},
                                     {"Statistics", "App Launch Total", "", 1}},
                                    false,
                                    {}},
                    FirstLaunchCase{"SecondUpdatesTheConfiguration",
                                    1,
                                    {},
                                    true,
                                    true,
                                    {{"Statistics", "App Launch Total", "", 2}},
                                    false,
                                    {"update"}},
                    FirstLaunchCase{"LaterOnlyChecksVersionsWithoutAutomaticUpdates",
                                    9,
                                    {},
                                    true,
                                    false,
                                    {{"Statistics", "App Launch Total", "", 10}},
                                    false,
                                    {"check"}}),
    [](const auto& param) { return std::string(param.param.name); });

struct TutorialCase {
    const char* name;
    std::chrono::system_clock::time_point now;
    bool tutorialBuilt;
    bool flagsAlreadySet;
    bool tutorialShown;
    bool flagsAfter;
    friend void PrintTo(const TutorialCase& c, std::ostream* os) { *os << c.name; }
};

class AppTutorialCutOff : public testing::TestWithParam<TutorialCase> {};

TEST_P(AppTutorialCutOff, RetiresTheTutorialAfterTheDate) {
    const auto& c = GetParam();
    AppFixture f;
    f.clock = c.now;
    f.setTutorial(c.tutorialBuilt);
    if (c.flagsAlreadySet) {
        f.w.store.setBool(true, "WelcomeTutorialWasShown");
        f.w.store.setBool(true, "SubscriptionStepWasShown");
    }
    f.launch();
    EXPECT_EQ(f.tutorial.calls,
              c.tutorialShown ? std::vector<std::string>{"intro"} : std::vector<std::string>{});
    EXPECT_EQ(f.scanWindowsMade, c.tutorialShown ? 0 : 1) << "the tutorial comes before the scan window";
    EXPECT_EQ(f.w.store.boolForKey("WelcomeTutorialWasShown"), c.flagsAfter);
    EXPECT_EQ(f.w.store.boolForKey("SubscriptionStepWasShown"), c.flagsAfter);
    const auto tutorialEvents = eventsOf(f.w.tracker, "Tutorial");
    if (c.tutorialShown) {
        EXPECT_EQ(tutorialEvents, (std::vector<test::TrackedEvent>{{"Tutorial", "Tutorial Started", "", 1}}));
        EXPECT_EQ(f.w.tracker.views(), std::vector<std::string>{"Intro Tutorial"});
    } else {
        EXPECT_TRUE(tutorialEvents.empty());
    }
}

INSTANTIATE_TEST_SUITE_P(
    Dates, AppTutorialCutOff,
    testing::Values(TutorialCase{"AfterTheCutOff", utc(2016, 5, 10, 8, 0, 1), true, false, false, true},
                    TutorialCase{"AtTheCutOffStillShows", utc(2016, 5, 10, 8, 0, 0), true, false, true, true},
                    TutorialCase{"BeforeTheCutOff", utc(2016, 5, 10, 7, 59, 59), true, false, true, true},
                    TutorialCase{"BeforeTheCutOffAlreadyShown", utc(2015, 1, 1), true, true, false, true},
                    TutorialCase{"BeforeTheCutOffWithoutATutorial", utc(2015, 1, 1), false, false, false,
                                 false},
                    TutorialCase{"TodayWithoutATutorial", utc(2025, 1, 1), false, false, false, true}),
    [](const auto& param) { return std::string(param.param.name); });

TEST(AppStartUp, TheTutorialHandsOverToTheScanWindowWhenItCloses) {
    AppFixture f;
    f.clock = utc(2016, 1, 1);
    f.setTutorial(true);
    f.w.store.setInteger(2, "LaunchCount");
    f.launch();
    ASSERT_EQ(f.scanWindowsMade, 0);
    f.checker.calls.clear();
    f.w.center.post("ShowScanWindow");
    EXPECT_EQ(f.scanWindowsMade, 1);
    EXPECT_EQ(f.w.view.shown, 0) << "the flip comes on the next turn";
    const auto now = f.w.timers.withInterval(std::chrono::milliseconds(0));
    ASSERT_EQ(now.size(), 1u);
    f.w.timers.fire(now[0]);
    EXPECT_EQ(f.tutorial.calls, (std::vector<std::string>{"intro", "flip"}));
    EXPECT_EQ(f.w.view.shown, 1);
    EXPECT_EQ(f.checker.calls, std::vector<std::string>{"update"});
    const auto arrow = f.w.timers.withInterval(std::chrono::milliseconds(100));
    ASSERT_EQ(arrow.size(), 1u);
    f.w.timers.fire(arrow[0]);
    EXPECT_EQ(f.w.dropZone.arrowSetups, 1);
}

TEST(AppStartUp, ATutorialOpenedSeparatelyIsOnlyClosed) {
    AppFixture f;
    f.setTutorial(true);
    f.launch();
    f.delegate->showWelcomeTutorial();
    f.delegate->showWelcomeTutorial();
    f.w.center.post("ShowScanWindow");
    EXPECT_EQ(f.tutorial.calls, (std::vector<std::string>{"separately", "front", "close"}));
    EXPECT_TRUE(f.w.timers.withInterval(std::chrono::milliseconds(0)).size() == 1) << "only start-up's arrow";
}

struct SubscriptionCase {
    const char* name;
    std::int64_t launchCount;
    std::optional<bool> needToSubscribe;
    bool forceShown;
    bool tutorialOpen;
    bool tutorialBuilt;
    bool shown;
    friend void PrintTo(const SubscriptionCase& c, std::ostream* os) { *os << c.name; }
};

class AppSubscriptionPrompt : public testing::TestWithParam<SubscriptionCase> {};

TEST_P(AppSubscriptionPrompt, ShowsAtTheFirstScanOfALaterLaunchOnce) {
    const auto& c = GetParam();
    AppFixture f;
    f.setTutorial(c.tutorialBuilt);
    f.w.store.setInteger(c.launchCount - 1, "LaunchCount");
    if (c.needToSubscribe)
        f.w.store.setBool(*c.needToSubscribe, "NeedToSubscribeUser");
    f.w.store.setBool(c.forceShown, "ForceSubscriptionShown");
    f.launch();
    f.tutorial.open = c.tutorialOpen;
    f.w.center.post("com.halvik.corvel.scanStarted");
    f.w.center.post("com.halvik.corvel.scanStarted");
    const auto shown = std::count(f.tutorial.calls.begin(), f.tutorial.calls.end(), "subscription");
    EXPECT_EQ(shown, c.shown ? 1 : 0);
    EXPECT_EQ(f.w.store.boolForKey("ForceSubscriptionShown"), c.forceShown || c.shown);
}

INSTANTIATE_TEST_SUITE_P(
    Conditions, AppSubscriptionPrompt,
    testing::Values(SubscriptionCase{"SecondLaunch", 2, std::nullopt, false, false, true, true},
                    SubscriptionCase{"FirstLaunch", 1, std::nullopt, false, false, true, false},
                    SubscriptionCase{"AlreadyAnswered", 3, false, false, false, true, false},
                    SubscriptionCase{"AlreadyForced", 3, std::nullopt, true, false, true, false},
                    SubscriptionCase{"TutorialOpen", 3, std::nullopt, false, true, true, false},
                    SubscriptionCase{"NoTutorialOnLinux", 3, std::nullopt, false, false, false, false}),
    [](const auto& param) { return std::string(param.param.name); });

// ---- Folders handed over --------------------------------------------------------------

TEST(AppHandOver, OnlyFoldersAreAddedAndHomeStandsForTheAccountsHome) {
    AppFixture f;
    f.launch();
    const std::string file = f.w.scratch.file("notes.txt", "x");
    {
        ScopedLogCapture log;
        f.delegate->checkAndAddFoldersForScan({file, f.w.scratch / "missing"});
        EXPECT_TRUE(log.contains("Nothing to scan in"));
        EXPECT_TRUE(f.scanWindow().droppedItemsArray().empty());
    }
    f.delegate->checkAndAddFoldersForScan({file, f.w.folderA});
    EXPECT_EQ(f.scanWindow().droppedItemsArray(), std::vector<std::string>{f.w.folderA});
    ASSERT_NE(homeDirectory(), realHomeDirectory()) << "the tests run with a home of their own";
    f.delegate->checkAndAddFoldersForScan({homeDirectory() + "/"});
    EXPECT_EQ(f.scanWindow().droppedItemsArray(),
              (std::vector<std::string>{realHomeDirectory(), f.w.folderA}));
    EXPECT_EQ(f.scanWindow().windowState(), WindowStateIdle) << "the user starts the scan";
}

TEST(AppHandOver, FoldersAreDroppedSilentlyUnlessTheWindowIsIdle) {
    for (int busy = 0; busy < 4; ++busy) {
        SCOPED_TRACE(busy);
        AppFixture f;
        f.launch();
        auto& window = f.scanWindow();
        if (busy == 0) {
            window.addScanPath(true); // the open panel is up
        } else {
            f.drop({f.w.folderA});
            f.start();
            if (busy >= 2) {
                f.w.engine.findGroup("a.jpg", 2'000'000);
                f.w.engine.finish();
                f.w.drain();
            }
            if (busy == 3)
                window.showResults(false);
        }
        const auto before = window.droppedItemsArray();
        ScopedLogCapture log;
        f.delegate->checkAndAddFoldersForScan({f.w.folderB});
        EXPECT_EQ(window.droppedItemsArray(), before);
        EXPECT_TRUE(log.lines().empty()) << "dropped without a word";
    }
}

TEST(AppHandOver, ASecondLaunchsFoldersArriveAfterTheDelayWhileIdle) {
    AppFixture f;
    f.launch();
    f.delegate->applicationOpenFiles({f.w.folderA});
    EXPECT_EQ(eventsOf(f.w.tracker, "Dropzone"),
              (std::vector<test::TrackedEvent>{{"Dropzone", "Add Items", "Drag and Drop \u2013 Icon", 1}}));
    const auto delayed = f.w.timers.withInterval(std::chrono::milliseconds(700));
    ASSERT_EQ(delayed.size(), 1u);
    EXPECT_TRUE(f.scanWindow().droppedItemsArray().empty());
    f.w.timers.fire(delayed[0]);
    EXPECT_EQ(f.scanWindow().droppedItemsArray(), std::vector<std::string>{f.w.folderA});

    // While a scan runs the window takes no drops on the icon at all.
    f.start();
    f.w.tracker.clear();
    f.delegate->applicationOpenFiles({f.w.folderB});
    EXPECT_TRUE(f.w.tracker.events().empty());
    EXPECT_TRUE(f.w.timers.withInterval(std::chrono::milliseconds(700)).empty());
}

TEST(AppHandOver, TheDelayRunsOnTheMainQueue) {
    AppFixture f;
    MainQueue queue;
    MainQueueTimers timers(queue);
    f.delegate = std::make_unique<CorvelAppDelegate>(f.servicesWith(timers));
    f.delegate->applicationDidFinishLaunching();
    const auto start = std::chrono::steady_clock::now();
    f.delegate->applicationOpenFiles({f.w.folderA});
    queue.runFor(std::chrono::milliseconds(400));
    EXPECT_TRUE(f.scanWindow().droppedItemsArray().empty());
    ASSERT_TRUE(
        queue.runUntil([&] { return !f.scanWindow().droppedItemsArray().empty(); }, std::chrono::seconds(5)));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(700));
}

// ---- The file manager's entry ---------------------------------------------------------

struct ServiceCase {
    const char* name;
    std::vector<std::string> types;
    std::optional<std::vector<std::string>> files;
    bool applicationFound;
    bool taken;
    const char* error;   // "" when none
    const char* logLine; // "" when none
    bool handedOver;
    friend void PrintTo(const ServiceCase& c, std::ostream* os) { *os << c.name; }
};

class AppServiceEntry : public testing::TestWithParam<ServiceCase> {};

TEST_P(AppServiceEntry, AnswersWithItsErrorTextsOrHandsTheFoldersOver) {
    const auto& c = GetParam();
    AppFixture f;
    f.applicationFound = c.applicationFound;
    f.launch();
    std::vector<std::string> files;
    if (c.files)
        for (const auto& name : *c.files)
            files.push_back(name == "A" ? f.w.folderA : name);
    ScopedLogCapture log;
    std::string error;
    const bool taken = f.delegate->serviceProvider().scanFolder(
        {c.types, c.files ? std::optional<std::vector<std::string>>(files) : std::nullopt}, &error);
    EXPECT_EQ(taken, c.taken);
    EXPECT_EQ(error, c.error);
    if (*c.logLine) {
        EXPECT_TRUE(log.contains(c.logLine));
    }
    const auto delayed = f.w.timers.withInterval(std::chrono::milliseconds(700));
    ASSERT_EQ(delayed.size(), c.handedOver ? 1u : 0u);
    if (c.handedOver) {
        f.w.timers.fire(delayed[0]);
        EXPECT_EQ(f.scanWindow().droppedItemsArray(), std::vector<std::string>{f.w.folderA});
    }
}

INSTANTIATE_TEST_SUITE_P(
    Requests, AppServiceEntry,
    testing::Values(ServiceCase{"NoFileList",
                                {"text/plain"},
                                std::vector<std::string>{"A"},
                                true,
                                false,
                                "Error: Pasteboard doesn't contain a folder path.",
                                "",
                                false},
                    ServiceCase{"TypeWithoutList",
                                {"text/uri-list"},
                                std::nullopt,
                                true,
                                false,
                                "Error: Pasteboard doesn't contain a folder path.",
                                "",
                                false},
                    ServiceCase{"ProgramNotFound",
                                {"text/uri-list"},
                                std::vector<std::string>{"A"},
                                false,
                                false,
                                "Error: Couldn't find Corvel. You should install Corvel to use this service",
                                "",
                                false},
                    ServiceCase{"EmptyList",
                                {"text/uri-list"},
                                std::vector<std::string>{},
                                true,
                                true,
                                "",
                                "Nothing to scan with Corvel",
                                false},
                    ServiceCase{"Folders",
                                {"text/plain", "text/uri-list"},
                                std::vector<std::string>{"A"},
                                true,
                                true,
                                "",
                                "Folders to scan: ",
                                true}),
    [](const auto& param) { return std::string(param.param.name); });

// ---- Quit -----------------------------------------------------------------------------

TEST(AppQuit, DuringAScanTheSheetAsksOncePerQuitAndContinueAsksAgainNextTime) {
    AppFixture f;
    f.launch();
    std::vector<TerminateReply> replies;
    f.shell.onTerminate = [&] { replies.push_back(f.delegate->applicationShouldTerminate()); };
    f.drop({f.w.folderA});
    f.start();

    EXPECT_EQ(f.delegate->applicationShouldTerminate(), TerminateReply::TerminateCancel);
    EXPECT_EQ(f.delegate->applicationShouldTerminate(), TerminateReply::TerminateCancel);
    ASSERT_EQ(f.shell.sheets.size(), 1u) << "a second request while the sheet is up asks nothing more";
    const auto& sheet = f.shell.sheets[0];
    EXPECT_EQ(sheet.message, localized("AlertMessageText_QuitingCorvelQuestion"));
    EXPECT_EQ(sheet.informative, localized("AlertAdditionalText_QuitingCorvelQuestion"));
    EXPECT_EQ(sheet.defaultButton, localized("ButtonTitle_ContinueScan", "Buttons"));
    EXPECT_EQ(sheet.alternateButton, localized("ButtonTitle_QuitCorvel", "Buttons"));

    f.shell.sheetCompletion(AlertChoice::Default); // continue
    EXPECT_EQ(replies, std::vector<TerminateReply>{TerminateReply::TerminateCancel});
    EXPECT_EQ(f.delegate->terminationStatus(), 0);
    EXPECT_EQ(f.w.engine.stops, 0) << "the scan goes on";

    EXPECT_EQ(f.delegate->applicationShouldTerminate(), TerminateReply::TerminateCancel);
    ASSERT_EQ(f.shell.sheets.size(), 2u) << "the next quit asks again";
    const auto quits = [&] {
        const auto events = f.w.tracker.events();
        return std::count(events.begin(), events.end(), test::TrackedEvent{"Statistics", "Quit", "Quit", 1});
    };
    EXPECT_EQ(quits(), 0) << "no Quit event yet";
    f.shell.sheetCompletion(AlertChoice::Alternate); // quit
    EXPECT_EQ(replies.back(), TerminateReply::TerminateNow);
    EXPECT_EQ(f.delegate->terminationStatus(), 2);
    EXPECT_EQ(quits(), 1);
    EXPECT_EQ(f.delegate->applicationShouldTerminate(), TerminateReply::TerminateNow) << "2 stays";
    EXPECT_EQ(f.shell.sheets.size(), 2u);
}

TEST(AppQuit, ContinueChosenAfterTheScanEndedStillCancelsThatQuitOnly) {
    AppFixture f;
    f.launch();
    f.drop({f.w.folderA});
    f.start();
    f.delegate->applicationShouldTerminate();
    f.w.engine.finish();
    f.w.drain();
    f.delegate->setTerminationStatus(1);
    EXPECT_EQ(f.delegate->applicationShouldTerminate(), TerminateReply::TerminateCancel);
    EXPECT_EQ(f.delegate->applicationShouldTerminate(), TerminateReply::TerminateNow);
}

class AppQuitByState : public testing::TestWithParam<std::int32_t> {};

TEST_P(AppQuitByState, QuitsAtOnceUnlessAScanIsStartingOrRunning) {
    AppFixture f;
    f.launch();
    f.scanWindow().setWindowState(GetParam());
    const bool running = GetParam() == 1 || GetParam() == 2;
    EXPECT_EQ(f.delegate->applicationShouldTerminate(),
              running ? TerminateReply::TerminateCancel : TerminateReply::TerminateNow);
    EXPECT_EQ(f.shell.sheets.size(), running ? 1u : 0u);
}

INSTANTIATE_TEST_SUITE_P(States, AppQuitByState, testing::Range(0, 11));

TEST(AppQuit, TheLastWindowClosedQuitsAndQuittingWritesTheIgnoreList) {
    AppFixture f;
    f.launch();
    EXPECT_TRUE(f.delegate->applicationShouldTerminateAfterLastWindowClosed());
    const std::string excluded = f.w.scratch.folder("Excluded");
    f.harness.ignoreList.excludePathsList().push_back(CVIgnoreList::pathsRecordsWithURLs({excluded})[0]);
    ScopedLogCapture log;
    f.delegate->applicationWillTerminate();
    EXPECT_TRUE(log.contains("Corvel terminated."));
    UserDefaults onDisk(f.harness.defaults.path());
    const auto stored = onDisk.objectForKey("IgnoreList");
    EXPECT_NE(stored.description().find("Excluded"), std::string::npos) << stored.description();
}

// ---- Menu commands --------------------------------------------------------------------

struct CommandCase {
    const char* name;
    std::int32_t state; // the window is brought to this state first (0, 3, 7 or 8)
    void (CorvelAppDelegate::*command)();
    // What the command must have done, checked on the fixture.
    std::function<bool(AppFixture&)> done;
    friend void PrintTo(const CommandCase& c, std::ostream* os) { *os << c.name; }
};

void bringTo(AppFixture& f, std::int32_t state) {
    if (state == 0)
        return;
    f.drop({f.w.folderA});
    f.start();
    f.w.engine.findGroup("a.jpg", 2'000'000);
    f.w.engine.finish();
    f.w.drain();
    if (state >= 7)
        f.scanWindow().showResults(false);
    if (state == 8)
        f.scanWindow().setWindowState(8);
}

bool resultsGot(AppFixture& f, const char* call) {
    const auto& calls = f.w.resultsFactory.lastView->calls;
    return std::find(calls.begin(), calls.end(), call) != calls.end();
}

bool collectorGot(AppFixture& f, const char* call) {
    const auto& calls = f.w.resultsFactory.lastCollector->calls;
    return std::find(calls.begin(), calls.end(), call) != calls.end();
}

bool lastScanIs(AppFixture& f, const std::string& path) {
    return !f.w.engine.scans.empty() && f.w.engine.scans.back() == std::vector<std::string>{path};
}

class AppMenuCommands : public testing::TestWithParam<CommandCase> {};

TEST_P(AppMenuCommands, GoWhereTheyBelong) {
    const auto& c = GetParam();
    AppFixture f;
    f.w.scratch.file("user-dirs.dirs", "XDG_MUSIC_DIR=\"$HOME/Songs\"\nXDG_VIDEOS_DIR=\"/srv/films\"\n");
    f.launch();
    bringTo(f, c.state);
    (f.delegate.get()->*c.command)();
    f.w.drain();
    EXPECT_TRUE(c.done(f));
}

INSTANTIATE_TEST_SUITE_P(
    Commands, AppMenuCommands,
    testing::Values(
        CommandCase{"NewScan", 3, &CorvelAppDelegate::newScan,
                    [](AppFixture& f) { return f.scanWindow().windowState() == WindowStateIdle; }},
        CommandCase{"Rescan", 3, &CorvelAppDelegate::rescan,
                    [](AppFixture& f) { return f.w.engine.scans.size() == 2; }},
        CommandCase{"OpenFile", 0, &CorvelAppDelegate::openFile,
                    [](AppFixture& f) { return f.scanWindow().openPanelIsShown(); }},
        CommandCase{"ShowResults", 3, &CorvelAppDelegate::showResultsAction,
                    [](AppFixture& f) { return f.scanWindow().windowState() == WindowStateResults; }},
        CommandCase{"BackToScan", 7, &CorvelAppDelegate::backToScanAction,
                    [](AppFixture& f) { return f.scanWindow().windowState() == WindowStateFound; }},
        CommandCase{"ShowCollector", 7, &CorvelAppDelegate::showCollector,
                    [](AppFixture& f) { return collectorGot(f, "showHideCollector"); }},
        CommandCase{"AutoCollectSelectsAll", 7, &CorvelAppDelegate::autoCollect,
                    [](AppFixture& f) { return resultsGot(f, "autoselectAllAction"); }},
        CommandCase{
            "PutAllBackInResults", 7, &CorvelAppDelegate::putAllFilesBack,
            [](AppFixture& f) { return resultsGot(f, "deselectAllAction") && !collectorGot(f, "putBack"); }},
        CommandCase{
            "PutAllBackInCollector", 8, &CorvelAppDelegate::putAllFilesBack,
            [](AppFixture& f) { return collectorGot(f, "putBack") && !resultsGot(f, "deselectAllAction"); }},
        CommandCase{"Search", 7, &CorvelAppDelegate::searchAction,
                    [](AppFixture& f) { return f.w.view.searchFocused == 1; }},
        CommandCase{"CollectDuplicatesOfFolder", 7, &CorvelAppDelegate::collectDuplicatesOfFolder,
                    [](AppFixture& f) { return resultsGot(f, "openPathToCollectFiles"); }},
        CommandCase{"KeepOldest", 7, &CorvelAppDelegate::keepAllOldestFiles,
                    [](AppFixture& f) { return resultsGot(f, "keepOldestFilesAction"); }},
        CommandCase{"KeepNewest", 7, &CorvelAppDelegate::keepAllMostRecentFiles,
                    [](AppFixture& f) { return resultsGot(f, "keepMostRecentFilesAction"); }},
        CommandCase{"Export", 7, &CorvelAppDelegate::exportSelectedDupes,
                    [](AppFixture& f) {
                        return resultsGot(f, "exportSelectedDupes") && f.delegate->exportPanelIsOpened();
                    }},
        CommandCase{"ExportWithoutResultsDoesNotLockTheMenus", 3, &CorvelAppDelegate::exportSelectedDupes,
                    [](AppFixture& f) { return !f.delegate->exportPanelIsOpened(); }},
        CommandCase{"ScanHome", 0, &CorvelAppDelegate::scanHomeFolder,
                    [](AppFixture& f) { return lastScanIs(f, f.home); }},
        CommandCase{"ScanDesktop", 0, &CorvelAppDelegate::scanDesktop,
                    [](AppFixture& f) { return lastScanIs(f, f.home + "/Desktop"); }},
        CommandCase{"ScanDocuments", 0, &CorvelAppDelegate::scanDocuments,
                    [](AppFixture& f) { return lastScanIs(f, f.home + "/Documents"); }},
        CommandCase{"ScanDownloads", 0, &CorvelAppDelegate::scanDownloads,
                    [](AppFixture& f) { return lastScanIs(f, f.home + "/Downloads"); }},
        CommandCase{"ScanMusicFromUserDirs", 0, &CorvelAppDelegate::scanMusic,
                    [](AppFixture& f) { return lastScanIs(f, f.home + "/Songs"); }},
        CommandCase{"ScanMoviesIsTheVideosFolder", 0, &CorvelAppDelegate::scanMovies,
                    [](AppFixture& f) { return lastScanIs(f, "/srv/films"); }},
        CommandCase{"ScanPictures", 0, &CorvelAppDelegate::scanPictures,
                    [](AppFixture& f) { return lastScanIs(f, f.home + "/Pictures"); }},
        CommandCase{"About", 0, &CorvelAppDelegate::showAboutPanel,
                    [](AppFixture& f) { return f.shell.calls == std::vector<std::string>{"about"}; }},
        CommandCase{"Preferences", 0, &CorvelAppDelegate::showPreferences,
                    [](AppFixture& f) { return f.shell.calls == std::vector<std::string>{"preferences"}; }},
        CommandCase{"Feedback", 0, &CorvelAppDelegate::feedbackAction,
                    [](AppFixture& f) { return f.shell.calls == std::vector<std::string>{"feedback"}; }},
        CommandCase{"Rate", 0, &CorvelAppDelegate::rateOnAppStore,
                    [](AppFixture& f) { return f.shell.calls == std::vector<std::string>{"rate"}; }},
        CommandCase{"Analytics", 0, &CorvelAppDelegate::showAnalyticsWindow,
                    [](AppFixture& f) { return f.shell.calls == std::vector<std::string>{"analytics"}; }},
        CommandCase{"Support", 0, &CorvelAppDelegate::supportAction,
                    [](AppFixture& f) {
                        return f.shell.urls.size() == 1 &&
                               f.shell.urls[0].rfind(
                                   "https://www.halvik.com/app_help_request/contact_support&", 0) == 0;
                    }},
        CommandCase{"FAQ", 0, &CorvelAppDelegate::FAQAction,
                    [](AppFixture& f) {
                        return f.shell.urls.size() == 1 &&
                               f.shell.urls[0].rfind("https://www.halvik.com/app_help_request/faq&", 0) == 0;
                    }},
        CommandCase{"SuggestFeature", 0, &CorvelAppDelegate::requestFeatureAction,
                    [](AppFixture& f) {
                        return f.shell.urls.size() == 1 &&
                               f.shell.urls[0].rfind(
                                   "https://www.halvik.com/app_help_request/suggest_feature&", 0) == 0;
                    }}),
    [](const auto& param) { return std::string(param.param.name); });

TEST(AppMenuCommands, TheExportPanelLocksTheMenusUntilItCloses) {
    AppFixture f;
    f.launch();
    bringTo(f, 7);
    f.delegate->exportSelectedDupes();
    EXPECT_FALSE(f.delegate->validateMenuItem(1).enabled) << "even About";
    f.w.center.post("CVExportPanelDidClose");
    EXPECT_TRUE(f.delegate->validateMenuItem(1).enabled);
}

TEST(AppSupport, AddressesCarryTheSiteArgumentsAndFailuresAreOnlyLogged) {
    AppFixture f;
    f.launch();
    const std::string arguments = f.preferences.defaultSiteArguments();
    EXPECT_EQ(f.delegate->supportAddress(1), "https://www.halvik.com/app_help_request/faq&" + arguments);
    {
        ScopedLogCapture log;
        f.delegate->goSupportWithAction(7);
        EXPECT_TRUE(log.contains("Failed to create URL object from string &" + arguments));
        EXPECT_TRUE(f.shell.urls.empty());
    }
    f.shell.urlOpens = false;
    ScopedLogCapture log;
    f.delegate->goSupportWithAction(0);
    EXPECT_TRUE(log.contains(
        "Didn't succeed in opening this url: https://www.halvik.com/app_help_request/contact_support&"));
}

// ---- Menu validation ------------------------------------------------------------------

// Tags and whether each is enabled in the states 0 to 10 (the collector holds a copy).
struct ValidationRow {
    std::int64_t tag;
    const char* enabledIn; // 11 characters, one per state: 'x' enabled, '.' disabled
};

const ValidationRow kValidation[] = {
    {21, ".xxxxxxx..x"},  {22, "x.........."},  {24, "...xxxxx..."},  {31, ".......x..."},
    {51, "..xx......."},  {52, ".......x..."},  {53, ".......xxxx"},  {61, ".......x..."},
    {62, ".......xx.x"},  {63, ".......xx.."},  {64, ".......x..."},  {65, ".......x..."},
    {66, ".......x..."},  {231, "x.........."}, {234, "x.........."}, {237, "x.........."},
    {238, "xxxxxxxxxxx"}, {251, "xxxxxxxxxxx"}, {1, "xxxxxxxxxxx"},
};

class AppMenuValidation : public testing::TestWithParam<ValidationRow> {};

TEST_P(AppMenuValidation, FollowsTheTagTableInEveryState) {
    AppFixture f;
    f.launch();
    bringTo(f, 7);
    f.w.resultsFactory.lastCollector->selectedCount = 1;
    for (std::int32_t state = 0; state <= 10; ++state) {
        f.scanWindow().setWindowState(state);
        EXPECT_EQ(f.delegate->validateMenuItem(GetParam().tag).enabled, GetParam().enabledIn[state] == 'x')
            << "tag " << GetParam().tag << " in state " << state;
    }
}

INSTANTIATE_TEST_SUITE_P(Tags, AppMenuValidation, testing::ValuesIn(kValidation),
                         [](const auto& param) { return "Tag" + std::to_string(param.param.tag); });

TEST(AppMenuValidation, DependsOnTheWindowThePanelAndTheCollector) {
    AppFixture f;
    f.launch();
    f.w.view.visible = false;
    EXPECT_FALSE(f.delegate->validateMenuItem(22).enabled) << "no open panel for a hidden window";
    f.w.view.visible = true;
    EXPECT_TRUE(f.delegate->validateMenuItem(22).enabled);
    f.scanWindow().addScanPath(true);
    EXPECT_FALSE(f.delegate->validateMenuItem(231).enabled) << "no favourites while the panel is up";
    f.w.view.openPanelCompletion(std::nullopt);
    EXPECT_TRUE(f.delegate->validateMenuItem(237).enabled);
    bringTo(f, 7);
    EXPECT_FALSE(f.delegate->validateMenuItem(62).enabled) << "an empty collector";
    EXPECT_FALSE(f.delegate->validateMenuItem(251).enabled);
    f.shell.ratingPrompt = true;
    EXPECT_FALSE(f.delegate->validateMenuItem(1).enabled);
}

TEST(AppMenuValidation, TheCollectorItemSaysHideWhileTheCollectorShows) {
    AppFixture f;
    f.launch();
    bringTo(f, 7);
    for (std::int32_t state = 0; state <= 10; ++state) {
        f.scanWindow().setWindowState(state);
        const auto v = f.delegate->validateMenuItem(62);
        ASSERT_TRUE(v.title);
        EXPECT_EQ(*v.title, localized(state == 8 || state == 10 ? "MenuItemTitle_HideSelectedDuplicates"
                                                                : "MenuItemTitle_ShowSelectedDuplicates"))
            << state;
    }
    EXPECT_NE(localized("MenuItemTitle_HideSelectedDuplicates"), "MenuItemTitle_HideSelectedDuplicates");
    EXPECT_NE(localized("MenuItemTitle_ShowSelectedDuplicates"), "MenuItemTitle_ShowSelectedDuplicates");
}

TEST(AppMenuValidation, WithoutAScanWindowTheIdleItemsAreEnabled) {
    AppFixture f;
    f.clock = utc(2015, 1, 1);
    f.setTutorial(true);
    f.launch();
    ASSERT_EQ(f.delegate->scanWindowController(), nullptr);
    EXPECT_TRUE(f.delegate->validateMenuItem(231).enabled);
    EXPECT_FALSE(f.delegate->validateMenuItem(21).enabled);
    EXPECT_FALSE(f.delegate->validateMenuItem(22).enabled);
    f.delegate->scanDownloads();
    EXPECT_EQ(f.scanWindowsMade, 1) << "a favourite scan makes the scan window";
}

} // namespace
} // namespace corvel
