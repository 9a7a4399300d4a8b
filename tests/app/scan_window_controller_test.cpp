#include <algorithm>
#include <gtest/gtest.h>

#include "app/locator_adapter.h"
#include "app_fixture.h"
#include "engine/file_sizer.h"
#include "platform/property_list.h"
#include "platform/system_log.h"
#include "platform/text_format.h"
#include "scan/scan_harness.h"

namespace corvel {
namespace {

using test::ScanWindowFixture;

// What happens to the window, one user action or engine notification at a time.
enum class Step {
    DropOne,       // one folder dropped
    DropTwo,       // two folders dropped
    Refuse,        // the next locator refuses to start
    Start,         // the Start button
    Progress,      // progress, nothing found yet
    ProgressFound, // a duplicate group found, then progress
    Finish,        // the engine finished
    FinishFound,   // a group found, then the engine finished
    RefusedIgnored,
    RefusedSystem,
    Error,
    Cancel,
    ShowResults,
    BackToScan,
    NewScan,   // the alert, if any, answered with its default (Cancel)
    NewScanOK, // the alert answered OK
    ForceNewScan,
    Rescan,
    Cleaned,      // the removal finished (state 10, set by the removal)
    DeferSwitch,  // the next switch to the results takes time
    FinishSwitch, // the switch to the results ends
};

void run(ScanWindowFixture& f, Step step) {
    switch (step) {
    case Step::DropOne:
        f.drop({f.folderA});
        break;
    case Step::DropTwo:
        f.drop({f.folderA, f.folderB});
        break;
    case Step::Refuse:
        f.engine.refuse = true;
        break;
    case Step::Start:
        f.controller->startScanAction(false);
        break;
    case Step::Progress:
        f.engine.progress(0.2);
        break;
    case Step::ProgressFound:
        f.engine.findGroup("beach.jpg", 3'000'000);
        f.engine.progress(0.5);
        break;
    case Step::Finish:
        f.engine.finish();
        break;
    case Step::FinishFound:
        f.engine.findGroup("song.mp3", 7'000'000);
        f.engine.finish();
        break;
    case Step::RefusedIgnored:
        f.engine.refuseAsIgnored();
        break;
    case Step::RefusedSystem:
        f.engine.refuseAsSystem();
        break;
    case Step::Error:
        f.engine.error();
        break;
    case Step::Cancel:
        f.controller->cancelScan();
        break;
    case Step::ShowResults:
        f.controller->showResults(true);
        break;
    case Step::BackToScan:
        f.controller->backToScan(false);
        break;
    case Step::NewScan:
        f.view.alertAnswer = AlertChoice::Default;
        f.controller->newScan();
        break;
    case Step::NewScanOK:
        f.view.alertAnswer = AlertChoice::Alternate;
        f.controller->newScan();
        break;
    case Step::ForceNewScan:
        f.controller->forceNewScan();
        break;
    case Step::Rescan:
        f.controller->rescan();
        break;
    case Step::Cleaned:
        f.controller->setWindowState(WindowStateCleaned);
        break;
    case Step::DeferSwitch:
        f.view.finishSwitchAtOnce = false;
        break;
    case Step::FinishSwitch:
        f.view.pendingSwitch();
        break;
    }
    f.drain();
}

// The phrases of one use in the shipped resource, as shown.
std::vector<std::string> phrasesOfUse(std::int64_t use) {
    PropertyValue resource;
    EXPECT_TRUE(readPropertyListFile(CVScanScenario::defaultResourceFile(), resource, nullptr));
    std::vector<std::string> texts;
    std::vector<PropertyValue> keys;
    if (use == ScenarioUseScanning) {
        for (const auto& scenario : *resource[0].asArray())
            keys.insert(keys.end(), scenario.asArray()->begin(), scenario.asArray()->end());
    } else {
        keys = *resource[static_cast<std::size_t>(use)].asArray();
    }
    texts.reserve(keys.size());
    for (const auto& key : keys)
        texts.push_back(localized(*key.asString(), "Scenarios"));
    return texts;
}

// What the window shows in a state. Texts: a key of the default table, "@…" for a phrase
// of a scenario use, or nullptr for "not checked"; buttons: their keys, nullptr when the
// button is hidden.
struct Look {
    const char* status;
    const char* subStatus;
    const char* stopTitle;
    const char* stopToolTip;
    const char* resultsTitle;
    const char* resultsToolTip;
};

struct Row {
    const char* name;
    std::vector<Step> steps;
    std::int32_t state;
    Look look;
    std::optional<FinishMark> lastMark;
    friend void PrintTo(const Row& row, std::ostream* os) { *os << row.name; }
};

using enum Step;
constexpr auto kFound = FinishMark::Found;
constexpr auto kNothing = FinishMark::Nothing;
constexpr auto kError = FinishMark::Error;

const Look kIdleLook{"StatusTextViewStatus_AddingFolders",
                     "StatusTextViewSubStatus_AddingFolders",
                     nullptr,
                     nullptr,
                     nullptr,
                     nullptr};
const Look kStartingLook{"@start", "@scanning", "ButtonTitle_CancelScan", "ButtonToolTip_CancelScan",
                         nullptr,  nullptr};
const Look kScanningLook{"StatusTextViewStatus_Scanning",  "StatusTextViewSubStatus_Found",
                         "ButtonTitle_CancelScan",         "ButtonToolTip_CancelScan",
                         "ButtonTitle_StopAndShowResults", "ButtonToolTip_StopAndShowResults"};
const Look kFoundLook{"StatusTextViewStatus_FoundDuplicates",
                      "@found",
                      "ButtonTitle_NewScan",
                      "ButtonToolTip_NewScan",
                      "ButtonTitle_ShowResults",
                      "ButtonToolTip_ShowResults"};
const Look kNothingLook{"StatusTextViewStatus_NoDuplicates",
                        "@nothing",
                        "ButtonTitle_NewScan",
                        "ButtonToolTip_NewScan",
                        nullptr,
                        nullptr};
const Look kOnlyFolderProtectedLook{"StatusTextViewStatus_TheOnlyFolderProtected",
                                    "StatusTextViewSubStatus_CantScanProtectedFolder",
                                    "ButtonTitle_NewScan",
                                    "ButtonToolTip_NewScan",
                                    nullptr,
                                    nullptr};
const Look kOnlyFolderExcludedLook{"StatusTextViewStatus_TheOnlyFolderExcluded",
                                   "StatusTextViewSubStatus_CantScanExcludedFolder",
                                   "ButtonTitle_NewScan",
                                   "ButtonToolTip_NewScan",
                                   nullptr,
                                   nullptr};
const Look kOneFolderProtectedLook{"StatusTextViewStatus_OneOfTheFoldersIsProtected",
                                   "StatusTextViewSubStatus_CantScanProtectedFolder",
                                   "ButtonTitle_NewScan",
                                   "ButtonToolTip_NewScan",
                                   nullptr,
                                   nullptr};
const Look kOneFolderExcludedLook{"StatusTextViewStatus_OneOfTheFoldersIsExcluded",
                                  "StatusTextViewSubStatus_CantScanExcludedFolder",
                                  "ButtonTitle_NewScan",
                                  "ButtonToolTip_NewScan",
                                  nullptr,
                                  nullptr};
const Look kErrorLook{"StatusTextViewStatus_ScanningError",
                      "@error",
                      "ButtonTitle_NewScan",
                      "ButtonToolTip_NewScan",
                      nullptr,
                      nullptr};

const Row kRows[] = {
    {"WindowLoadIsIdle", {}, 0, kIdleLook, std::nullopt},
    {"StartEntersStarting", {DropOne, Start}, 1, kStartingLook, std::nullopt},
    {"RefusedStartReturnsToIdleSilently", {DropOne, Refuse, Start}, 0, kIdleLook, std::nullopt},
    {"ProgressWithoutDuplicatesStaysStarting", {DropOne, Start, Progress}, 1, kStartingLook, std::nullopt},
    {"FirstDuplicateEntersScanning", {DropOne, Start, ProgressFound}, 2, kScanningLook, std::nullopt},
    {"FinishWithGroupsIsFound", {DropOne, Start, ProgressFound, Finish}, 3, kFoundLook, kFound},
    {"FinishWithGroupsBeforeAnyProgressIsFound", {DropOne, Start, FinishFound}, 3, kFoundLook, kFound},
    {"FinishWithoutGroupsIsNothingFound", {DropOne, Start, Progress, Finish}, 4, kNothingLook, kNothing},
    {"TheOnlyFolderProtected", {DropOne, Start, RefusedSystem}, 4, kOnlyFolderProtectedLook, kNothing},
    {"TheOnlyFolderExcluded", {DropOne, Start, RefusedIgnored}, 4, kOnlyFolderExcludedLook, kNothing},
    {"OneOfTheFoldersIsProtected", {DropTwo, Start, RefusedSystem}, 4, kOneFolderProtectedLook, kNothing},
    {"OneOfTheFoldersIsExcluded", {DropTwo, Start, RefusedIgnored}, 4, kOneFolderExcludedLook, kNothing},
    {"EngineErrorWhileStartingFails", {DropOne, Start, Error}, 5, kErrorLook, kError},
    {"EngineErrorAfterDuplicatesHidesTheResults",
     {DropOne, Start, ProgressFound, Error},
     5,
     kErrorLook,
     kError},
    {"CancelWhileStartingGoesIdle", {DropOne, Start, Cancel}, 0, kIdleLook, std::nullopt},
    {"CancelWhileScanningGoesIdleAndHidesResults",
     {DropOne, Start, ProgressFound, Cancel},
     0,
     kIdleLook,
     std::nullopt},
    {"StopAndShowResultsWhileScanning", {DropOne, Start, ProgressFound, ShowResults}, 7, kFoundLook, kFound},
    {"ShowResultsWhileStartingShowsWhatThereIs",
     {DropOne, Start, ShowResults},
     7,
     kStartingLook,
     std::nullopt},
    {"ShowResultsAfterFinish", {DropOne, Start, FinishFound, ShowResults}, 7, kFoundLook, kFound},
    {"BackToScanIsFound", {DropOne, Start, FinishFound, ShowResults, BackToScan}, 3, kFoundLook, kFound},
    {"ResultsSwitchEndsInResults",
     {DropOne, Start, FinishFound, DeferSwitch, ShowResults, FinishSwitch},
     7,
     kFoundLook,
     kFound},
    {"ResultsSwitchUnderWayKeepsTheState",
     {DropOne, Start, FinishFound, DeferSwitch, ShowResults},
     3,
     kFoundLook,
     kFound},
    {"NewScanAfterFoundGoesIdleWithoutAsking", {DropOne, Start, FinishFound, NewScan}, 0, kIdleLook, kFound},
    {"NewScanAfterNothingFoundGoesIdle", {DropOne, Start, Finish, NewScan}, 0, kIdleLook, kNothing},
    {"NewScanAfterFailureGoesIdle", {DropOne, Start, Error, NewScan}, 0, kIdleLook, kError},
    {"NewScanInResultsConfirmedGoesIdle",
     {DropOne, Start, FinishFound, ShowResults, NewScanOK},
     0,
     kIdleLook,
     kFound},
    {"NewScanInResultsDeclinedKeepsTheResults",
     {DropOne, Start, FinishFound, ShowResults, NewScan},
     7,
     kFoundLook,
     kFound},
    {"ForceNewScanInResultsGoesIdle",
     {DropOne, Start, FinishFound, ShowResults, ForceNewScan},
     0,
     kIdleLook,
     kFound},
    {"NewScanAfterRemovalIsTheCollectors",
     {DropOne, Start, FinishFound, ShowResults, Cleaned, NewScan},
     10,
     kFoundLook,
     kFound},
    {"RescanAfterFoundStartsAgain", {DropOne, Start, FinishFound, Rescan}, 1, kStartingLook, kFound},
    {"RescanFromResultsStartsAgain",
     {DropOne, Start, FinishFound, ShowResults, Rescan},
     1,
     kStartingLook,
     kFound},

};

class ScanWindowStates : public testing::TestWithParam<Row> {};

TEST_P(ScanWindowStates, EachTransitionLeavesTheWindowAsDescribed) {
    const Row& row = GetParam();
    ScanWindowFixture f;
    f.controller->showWindow();
    for (Step step : row.steps)
        run(f, step);

    EXPECT_EQ(f.controller->windowState(), row.state);
    auto expectText = [&](const char* key, const std::string& actual, const char* what) {
        if (!key)
            return;
        if (key[0] == '@') {
            const std::string use = key + 1;
            const std::int64_t n = use == "scanning"  ? 0
                                   : use == "found"   ? 1
                                   : use == "nothing" ? 2
                                   : use == "error"   ? 3
                                                      : 4;
            const auto phrases = phrasesOfUse(n);
            EXPECT_NE(std::find(phrases.begin(), phrases.end(), actual), phrases.end())
                << what << " \"" << actual << "\" is not a phrase of " << use;
            return;
        }
        std::string expected = f.text(key);
        if (expected.find("%@") != std::string::npos)
            expected = formatf(expected, stringWithSize(f.engine.results ? f.engine.results->size() : 0));
        EXPECT_EQ(actual, expected) << what << " should be " << key;
    };
    expectText(row.look.status, f.view.status, "status");
    expectText(row.look.subStatus, f.view.subStatus, "sub-status");

    if (row.look.stopTitle) {
        EXPECT_FALSE(f.view.stopHidden);
        EXPECT_EQ(f.view.stopTitle, f.button(row.look.stopTitle));
        EXPECT_EQ(f.view.stopToolTip, f.button(row.look.stopToolTip));
        EXPECT_EQ(f.view.stopAction, std::string(row.look.stopTitle) == "ButtonTitle_NewScan"
                                         ? StopButtonAction::NewScan
                                         : StopButtonAction::CancelScan);
    } else {
        EXPECT_TRUE(f.view.stopHidden) << "stop button";
    }
    if (row.look.resultsTitle) {
        EXPECT_FALSE(f.view.resultsHidden);
        EXPECT_EQ(f.view.resultsTitle, f.button(row.look.resultsTitle));
        EXPECT_EQ(f.view.resultsToolTip, f.button(row.look.resultsToolTip));
    } else {
        EXPECT_TRUE(f.view.resultsHidden) << "results button";
    }
    if (row.lastMark) {
        ASSERT_FALSE(f.dropZone.marks.empty());
        EXPECT_EQ(f.dropZone.marks.back(), *row.lastMark);
    } else {
        EXPECT_TRUE(f.dropZone.marks.empty());
    }
    // Dock drops, window drops and the plus button belong to the idle window only.
    const bool idle = row.state == WindowStateIdle;
    EXPECT_EQ(f.controller->acceptIconDrop(), idle);
    EXPECT_EQ(f.view.dropsEnabled, idle);
    EXPECT_EQ(f.view.plusHidden, !idle);
    if (!f.view.pendingSwitch) {
        EXPECT_EQ(f.view.content, row.state >= WindowStateResults ? "results" : "scan");
    }
}

INSTANTIATE_TEST_SUITE_P(Transitions, ScanWindowStates, testing::ValuesIn(kRows),
                         [](const auto& param) { return std::string(param.param.name); });

TEST(ScanWindow, StartHandsTheTargetsToANewLocatorAndLeavesTheOldOneBehind) {
    ScanWindowFixture f;
    f.controller->showWindow();
    f.drop({f.folderA, f.folderB});
    f.start();
    f.engine.finish();
    f.drain();
    f.controller->newScan();
    f.drop({f.folderB});
    f.start();
    EXPECT_EQ(f.engine.scans, (std::vector<std::vector<std::string>>{{f.folderA, f.folderB}, {f.folderB}}));
    EXPECT_EQ(f.engine.locatorsMade, 2);
    EXPECT_EQ(f.engine.locatorsAlive, 1) << "the previous scan's locator is released";
    EXPECT_EQ(f.view.undoCleared, 2);
    EXPECT_EQ(f.dropZone.scanningAnimations, 2);
}

TEST(ScanWindow, ARefusedStartShowsNothingAndRecordsTheAttempt) {
    ScanWindowFixture f;
    f.controller->showWindow();
    f.drop({f.folderA});
    f.engine.refuse = true;
    f.start();
    EXPECT_EQ(f.controller->windowState(), WindowStateIdle);
    EXPECT_TRUE(f.view.alerts.empty());
    EXPECT_FALSE(f.controller->phraseTimerRunning());
    EXPECT_EQ(f.controller->droppedItemsArray(), std::vector<std::string>{});
    EXPECT_EQ(f.controller->rescanItemsArray(), std::vector<std::string>{f.folderA});
    ASSERT_TRUE(CVStatisticsController::scanRecords(f.store));
    EXPECT_EQ(CVStatisticsController::scanRecords(f.store)->size(), 1u);
}

TEST(ScanWindow, HandlersTouchTheInterfaceOnlyFromTheMainQueueInTheOrderPosted) {
    ScanWindowFixture f;
    f.controller->showWindow();
    f.drop({f.folderA});
    f.start();
    f.engine.findGroup("a.jpg", 2'000'000);
    f.engine.progress(0.25);
    f.engine.progress(0.5);
    f.engine.finish();
    // Posted from the engine's thread: nothing visible has changed yet.
    EXPECT_EQ(f.controller->windowState(), WindowStateStarting);
    EXPECT_TRUE(f.dropZone.progress.empty());
    EXPECT_TRUE(f.view.resultsHidden);
    f.view.log.clear();
    f.drain();
    EXPECT_EQ(f.dropZone.progress, (std::vector<double>{0.25, 0.5}));
    EXPECT_EQ(f.controller->windowState(), WindowStateFound);
    const std::string found =
        formatf(f.text("StatusTextViewSubStatus_Found"), stringWithSize(f.engine.results->size()));
    ASSERT_GE(f.view.log.size(), 5u);
    EXPECT_EQ(f.view.log[0], "status:" + f.text("StatusTextViewStatus_Scanning"));
    EXPECT_EQ(f.view.log[1], "substatus:" + found);
    EXPECT_EQ(f.view.log[2], "substatus:" + found);
    EXPECT_EQ(f.view.log[3].rfind("status:", 0), 0u);
    EXPECT_EQ(f.view.subStatusAnimationTime, 0.25) << "progress sets the quick animation";
}

TEST(ScanWindow, TheFirstDuplicateSwitchesTheResultsButtonOncePerScan) {
    ScanWindowFixture f;
    f.controller->showWindow();
    for (int scan = 0; scan < 2; ++scan) {
        f.drop({f.folderA});
        f.start();
        const int before = f.view.resultsButtonChanges;
        f.engine.progress(0.1);
        f.engine.findGroup("a.jpg", 2'000'000);
        for (double p : {0.2, 0.3, 0.4})
            f.engine.progress(p);
        f.drain();
        EXPECT_EQ(f.view.resultsButtonChanges - before, 1) << "scan " << scan;
        EXPECT_EQ(f.view.resultsTitle, f.button("ButtonTitle_StopAndShowResults"));
        f.controller->cancelScan();
    }
}

TEST(ScanWindow, NotificationsAfterTheUserStoppedChangeNothing) {
    ScanWindowFixture f;
    f.controller->showWindow();
    f.drop({f.folderA});
    f.start();
    f.engine.findGroup("a.jpg", 2'000'000);
    f.engine.progress(0.5); // queued, not yet run
    f.controller->cancelScan();
    f.engine.finish();
    f.engine.error();
    f.drain();
    EXPECT_EQ(f.controller->windowState(), WindowStateIdle);
    EXPECT_EQ(f.view.status, f.text("StatusTextViewStatus_AddingFolders"));
    EXPECT_TRUE(f.dropZone.marks.empty());
    EXPECT_EQ(f.reminder.scheduled, 0);
    EXPECT_TRUE(f.engine.states.empty());
}

TEST(ScanWindow, EngineErrorResetsTheLocatorAndStopsThePhrases) {
    ScanWindowFixture f;
    f.controller->showWindow();
    f.drop({f.folderA});
    f.start();
    ASSERT_TRUE(f.controller->phraseTimerRunning());
    f.engine.error();
    EXPECT_EQ(f.engine.states, std::vector<ScanState>{}) << "nothing happens off the main queue";
    f.drain();
    EXPECT_EQ(f.engine.states, std::vector<ScanState>{ScanState::Idle});
    EXPECT_FALSE(f.controller->phraseTimerRunning());
    EXPECT_EQ(f.reminder.scheduled, 0) << "a failed scan does not re-arm the reminder";
}

TEST(ScanWindow, AFinishedScanReArmsTheReminderAndTellsTheDesktop) {
    ScanWindowFixture f;
    f.controller->showWindow();
    f.drop({f.folderA});
    f.start();
    f.engine.findGroup("a.jpg", 2'000'000);
    f.engine.finish();
    f.drain();
    EXPECT_EQ(f.reminder.scheduled, 1);
    EXPECT_EQ(f.notifications.sizes, std::vector<std::uint64_t>{f.engine.results->size()});
    f.controller->newScan();
    f.drop({f.folderB});
    f.start();
    f.engine.finish();
    f.drain();
    EXPECT_EQ(f.reminder.scheduled, 2);
    EXPECT_EQ(f.notifications.nothingFound, 1);
}

TEST(ScanWindow, WithoutAReminderOrNotificationServiceTheScanStillFinishes) {
    ScanWindowFixture f;
    auto controller = std::make_unique<CVScanWindowController>(
        ScanWindowServices{f.view, f.dropZone, f.engine.factory(), f.resultsFactory, f.statistics, f.store,
                           f.tracker, f.queue, f.timers, f.center, StringTables::shared(), [] { return 3u; },
                           CVScanScenario::defaultResourceFile(), [] {}, nullptr, nullptr});
    f.controller.reset();
    f.dropZone.control = &controller->scanControl();
    controller->showWindow();
    controller->scanControl().addFoldersForScan({f.folderA}, true);
    f.engine.findGroup("a.jpg", 2'000'000);
    f.engine.finish();
    f.drain();
    EXPECT_EQ(controller->windowState(), WindowStateFound);
}

TEST(ScanWindow, StatisticsRecordTheScanAtItsStartAndEnd) {
    ScanWindowFixture f;
    f.controller->showWindow();
    f.drop({f.folderA, f.folderB});
    f.start();
    f.engine.findGroup("a.jpg", 2'000'000);
    f.engine.findGroup("b.jpg", 3'000'000);
    f.engine.finish();
    f.drain();
    const auto records = CVStatisticsController::scanRecords(f.store);
    ASSERT_TRUE(records);
    ASSERT_EQ(records->size(), 1u);
    const auto& record = (*records)[0];
    EXPECT_EQ(record["NumberOfFoldersDropped"].toInt64(), 2);
    EXPECT_EQ(record["FoundSize"].toUInt64(), f.engine.results->size());
    EXPECT_EQ(record["FoundFiles"].toUInt64(), 4u);
}

// The events reported when a scan ends, by how it ended.
struct EndCase {
    const char* name;
    std::vector<Step> steps;
    const char* prefix;
    friend void PrintTo(const EndCase& c, std::ostream* os) { *os << c.name; }
};

class ScanStatisticsEvents : public testing::TestWithParam<EndCase> {};

TEST_P(ScanStatisticsEvents, CarryThePrefixOfHowTheScanEnded) {
    ScanWindowFixture f;
    f.controller->showWindow();
    for (Step step : GetParam().steps)
        run(f, step);
    std::vector<test::TrackedEvent> scanEvents;
    for (const auto& e : f.tracker.events())
        if (e.category == "Scan" && e.action.rfind("Scan ", 0) == 0 && e.action != "Scan Started")
            scanEvents.push_back(e);
    const std::string prefix = std::string(GetParam().prefix) + " / ";
    ASSERT_EQ(scanEvents.size(), 4u);
    EXPECT_EQ(scanEvents[0], (test::TrackedEvent{"Scan", prefix, "", 1}));
    // One group of two 3,000,000-byte copies: 6 MB of duplicates.
    ASSERT_EQ(f.engine.results->size(), 6'000'000u);
    EXPECT_EQ(scanEvents[1], (test::TrackedEvent{"Scan", prefix + "Total Found Size", "6 MB", 6}));
    EXPECT_EQ(scanEvents[2].action, prefix + "Time Elapsed");
    EXPECT_EQ(scanEvents[2].label, "0 seconds");
    EXPECT_EQ(scanEvents[3], (test::TrackedEvent{"Scan", prefix + "Total Found Items", "1 Duplicates", 1}));
}

INSTANTIATE_TEST_SUITE_P(
    ByEnding, ScanStatisticsEvents,
    testing::Values(EndCase{"Completed",
                            {Step::DropOne, Step::Start, Step::ProgressFound, Step::Finish},
                            "Scan Completed"},
                    EndCase{"Interrupted",
                            {Step::DropOne, Step::Start, Step::ProgressFound, Step::Cancel},
                            "Scan Interrupted"},
                    EndCase{"StopAndShow",
                            {Step::DropOne, Step::Start, Step::ProgressFound, Step::ShowResults},
                            "Scan Stop and Show"}),
    [](const auto& param) { return std::string(param.param.name); });

TEST(ScanWindow, TheFirstScanOfTheFirstLaunchIsReportedOnce) {
    ScanWindowFixture f;
    f.store.setInteger(1, "LaunchCount");
    f.controller->showWindow();
    for (int scan = 0; scan < 2; ++scan) {
        f.drop({f.folderA});
        f.start();
        f.engine.finish();
        f.drain();
        f.controller->newScan();
    }
    std::vector<std::string> firstScan;
    for (const auto& e : f.tracker.events())
        if (e.category == "First Scan")
            firstScan.push_back(e.action);
    EXPECT_EQ(firstScan,
              (std::vector<std::string>{"First Scan / ", "First Scan / Total Found Size",
                                        "First Scan / Time Elapsed", "First Scan / Total Found Items"}));

    ScanWindowFixture later;
    later.store.setInteger(2, "LaunchCount");
    later.controller->showWindow();
    later.drop({later.folderA});
    later.start();
    later.engine.finish();
    later.drain();
    for (const auto& e : later.tracker.events())
        EXPECT_NE(e.category, "First Scan");
}

TEST(ScanWindow, StartCommandReportsHowItWasGiven) {
    ScanWindowFixture f;
    f.controller->showWindow();
    f.drop({f.folderA});
    f.controller->startScanAction(true);
    f.controller->cancelScan();
    f.drop({f.folderA});
    f.controller->startScanAction(false);
    const auto events = f.tracker.events();
    const std::vector<test::TrackedEvent> starts = {{"Dropzone", "Start Scan", "Enter", 1},
                                                    {"Scan", "Scan Started", "", 1}};
    ASSERT_GE(events.size(), 2u);
    EXPECT_EQ(events[0], starts[0]);
    EXPECT_EQ(events[1], starts[1]);
    EXPECT_NE(
        std::find(events.begin(), events.end(), test::TrackedEvent{"Dropzone", "Start Scan", "Scan", 1}),
        events.end());
}

TEST(ScanWindow, PhrasesChangeEveryOtherTickUntilTheFirstDuplicate) {
    ScanWindowFixture f;
    f.controller->showWindow();
    f.drop({f.folderA});
    f.start();
    const auto timers = f.timers.withInterval(std::chrono::seconds(10));
    ASSERT_EQ(timers.size(), 1u) << "one repeating 10-second phrase timer";
    EXPECT_TRUE(f.timers.timers.at(timers[0]).repeating);
    std::vector<std::string> shown = {f.view.subStatus};
    for (int tick = 0; tick < 6; ++tick) {
        f.timers.fire(timers[0]);
        if (f.view.subStatus != shown.back())
            shown.push_back(f.view.subStatus);
    }
    EXPECT_EQ(f.controller->scenarioDelay(), 6u);
    EXPECT_EQ(f.view.subStatusAnimationTime, 1.0);
    // The start showed phrase 0; ticks 0, 2 and 4 show phrases 1, 2 and 3 of the same scenario.
    const auto* scenario = f.controller->scanScenario();
    const auto& keys =
        *scenario->scenariosArray()[static_cast<std::size_t>(scenario->currentScenarioIndex())].asArray();
    ASSERT_GE(keys.size(), 4u);
    std::vector<std::string> expected;
    for (std::size_t i = 0; i < 4; ++i)
        expected.push_back(localized(*keys[i].asString(), "Scenarios"));
    EXPECT_EQ(shown, expected);

    f.engine.findGroup("a.jpg", 2'000'000);
    f.engine.progress(0.4);
    f.drain();
    EXPECT_FALSE(f.controller->phraseTimerRunning());
    EXPECT_TRUE(f.timers.timers.empty());
}

TEST(ScanWindow, NewScanInResultsAsksWithCancelAsTheDefault) {
    ScanWindowFixture f;
    f.controller->showWindow();
    for (Step step : {Step::DropOne, Step::Start, Step::FinishFound, Step::ShowResults})
        run(f, step);
    const int stops = f.engine.stops;
    run(f, Step::NewScan);
    ASSERT_EQ(f.view.alerts.size(), 1u);
    const auto& alert = f.view.alerts[0];
    EXPECT_EQ(alert.message, f.text("AlertMessageText_StartNewScan"));
    EXPECT_EQ(alert.informative, f.text("AlertMessageDescription_StartNewScan"));
    EXPECT_EQ(alert.defaultButton, f.button("ButtonTitle_Cancel"));
    EXPECT_EQ(alert.alternateButton, f.button("ButtonTitle_OK"));
    EXPECT_EQ(f.controller->windowState(), WindowStateResults);
    EXPECT_NE(f.controller->resultsViewController(), nullptr) << "the results are kept";
    EXPECT_EQ(f.engine.stops, stops);
}

TEST(ScanWindow, ShowResultsBuildsTheResultsOnceAndAgainAfterANewScan) {
    ScanWindowFixture f;
    f.controller->showWindow();
    for (Step step : {Step::DropTwo, Step::Start, Step::FinishFound, Step::ShowResults})
        run(f, step);
    auto* results = f.resultsFactory.lastView;
    ASSERT_NE(results, nullptr);
    EXPECT_EQ(results->duplicates, f.engine.results);
    EXPECT_EQ(results->selecting, f.controller->selectingController());
    EXPECT_NE(results->selecting, nullptr);
    EXPECT_EQ(results->qlSource, f.resultsFactory.lastCollector);
    EXPECT_EQ(results->folderName, formatf(f.text("ScanItemControlString_FoldersCount"), 2));
    EXPECT_EQ(results->predicates, std::vector<std::string>{""});
    EXPECT_EQ(f.view.boundCollector, f.resultsFactory.lastCollector);
    EXPECT_EQ(f.view.searchCleared, 1);
    EXPECT_EQ(f.view.resultsMinSize, (WindowSize{900, 560}));
    EXPECT_FALSE(f.view.resultsEnabled) << "the sender is disabled";

    run(f, Step::BackToScan);
    EXPECT_TRUE(f.view.resultsEnabled);
    run(f, Step::ShowResults);
    EXPECT_EQ(f.resultsFactory.viewsMade, 1) << "back and forth keeps the results view";

    run(f, Step::NewScanOK);
    EXPECT_EQ(f.view.boundCollector, nullptr);
    for (Step step : {Step::DropOne, Step::Start, Step::FinishFound, Step::ShowResults})
        run(f, step);
    EXPECT_EQ(f.resultsFactory.viewsMade, 2);
    EXPECT_EQ(f.resultsFactory.lastView->folderName, "Photos");
}

TEST(ScanWindow, BackToScanLeavesFullScreenAndClosesThePreview) {
    ScanWindowFixture f;
    f.controller->showWindow();
    for (Step step : {Step::DropOne, Step::Start, Step::FinishFound, Step::ShowResults})
        run(f, step);
    f.view.fullScreen = true;
    f.view.miniaturized = true;
    f.controller->backToScan(false);
    EXPECT_EQ(f.view.fullScreenExits, 1);
    EXPECT_EQ(f.view.quickLookClosed, 1);
    EXPECT_EQ(f.view.broughtBack, 1);
    EXPECT_EQ(f.tracker.events().back(), (test::TrackedEvent{"Scan Results", "Back", "", 1}));
    f.controller->backToScan(true);
    const auto events = f.tracker.events();
    EXPECT_EQ(std::count(events.begin(), events.end(), test::TrackedEvent{"Scan Results", "Back", "", 1}), 1)
        << "the controller's own call is not reported";
}

// Copies removed since the scan: back on the scan page, the status tells what is left.
TEST(ScanWindow, BackToScanTellsWhatTheResultsHoldNow) {
    ScanWindowFixture f;
    f.controller->showWindow();
    for (Step step : {Step::DropOne, Step::Start, Step::ProgressFound, Step::FinishFound, Step::ShowResults})
        run(f, step);
    const std::string found = f.view.status;
    const auto groups = f.engine.results->duplicatesGroups();
    ASSERT_EQ(groups.size(), 2u);
    f.engine.results->removeGroupsLoud({groups.front()});
    f.controller->backToScan(false);
    EXPECT_NE(f.view.status, found);
    EXPECT_EQ(f.view.status, formatf(f.text("StatusTextViewStatus_FoundDuplicates"),
                                     stringWithSize(f.engine.results->size())));
    f.controller->showResults(true);
    f.engine.results->removeGroupsLoud({groups.back()});
    f.controller->backToScan(false);
    EXPECT_EQ(f.view.status, f.text("StatusTextViewStatus_NoDuplicates"));
}

TEST(ScanWindow, RescanScansTheLastTargetsOnceTheDropZoneIsClear) {
    ScanWindowFixture f;
    f.dropZone.resetAtOnce = false;
    f.controller->showWindow();
    for (Step step : {Step::DropTwo, Step::Start, Step::FinishFound, Step::ShowResults, Step::Rescan})
        run(f, step);
    EXPECT_EQ(f.controller->windowState(), WindowStateIdle) << "waits for the drop zone";
    EXPECT_EQ(f.engine.scans.size(), 1u);
    f.dropZone.control->animationDidReset();
    f.drain();
    EXPECT_EQ(f.controller->windowState(), WindowStateStarting);
    ASSERT_EQ(f.engine.scans.size(), 2u);
    EXPECT_EQ(f.engine.scans[1], f.engine.scans[0]);
    EXPECT_TRUE(f.controller->rescanItemsArray().empty());
    EXPECT_FALSE(f.controller->needsRescan());
    // The next clearing of the zone starts nothing.
    f.controller->cancelScan();
    f.dropZone.control->animationDidReset();
    f.drain();
    EXPECT_EQ(f.engine.scans.size(), 2u);
}

TEST(ScanWindow, StoppingRereadsTheMediaLibrariesAndClearsTheTargets) {
    ScanWindowFixture f;
    f.controller->showWindow();
    f.drop({f.folderA});
    EXPECT_FALSE(f.view.startHidden);
    f.start();
    f.controller->cancelScan();
    EXPECT_EQ(f.mediaRescans, 1);
    EXPECT_EQ(f.engine.stops, 1);
    EXPECT_TRUE(f.view.startHidden);
    EXPECT_TRUE(f.controller->droppedItemsArray().empty());
    EXPECT_TRUE(f.dropZone.control->items().empty());
}

TEST(ScanWindow, CancelBeforeTheScanGotGoingOnlyClearsTheTargets) {
    ScanWindowFixture f;
    f.controller->showWindow();
    f.drop({f.folderA});
    f.controller->cancelScan(); // the start button is still up
    EXPECT_EQ(f.engine.stops, 0);
    EXPECT_EQ(f.mediaRescans, 0);
    EXPECT_TRUE(f.controller->droppedItemsArray().empty());
    EXPECT_EQ(f.controller->rescanItemsArray(), std::vector<std::string>{f.folderA});
}

TEST(ScanWindow, TheOpenPanelAddsFoldersWithoutStarting) {
    ScanWindowFixture f;
    f.controller->showWindow();
    f.drop({f.folderA});
    f.controller->addScanPath(true);
    EXPECT_TRUE(f.controller->openPanelIsShown());
    EXPECT_EQ(f.view.openPanelPrompt, f.button("ButtonTitle_Add"));
    f.view.openPanelCompletion(std::vector<std::string>{f.folderB});
    EXPECT_FALSE(f.controller->openPanelIsShown());
    EXPECT_EQ(f.controller->droppedItemsArray(), (std::vector<std::string>{f.folderB, f.folderA}));
    EXPECT_EQ(f.controller->windowState(), WindowStateIdle);
    f.controller->addScanPath(false);
    f.view.openPanelCompletion(std::nullopt);
    EXPECT_FALSE(f.controller->openPanelIsShown());
    EXPECT_EQ(f.controller->droppedItemsArray().size(), 2u);
    const auto events = f.tracker.events();
    EXPECT_EQ(events[0], (test::TrackedEvent{"Dropzone", "Add Items", "Click Plus", 1}));
    EXPECT_EQ(events[1], (test::TrackedEvent{"Dropzone", "Add Items", "Scan \u2013 Add Folder", 1}));
}

struct FilterCase {
    const char* text;
    std::int64_t searchType;
    const char* predicate;
};

class SearchPredicate : public testing::TestWithParam<FilterCase> {};

TEST_P(SearchPredicate, IsACaseInsensitiveSubstringTestOnNameOrPath) {
    EXPECT_EQ(CVScanWindowController::searchPredicateString(GetParam().text, GetParam().searchType),
              GetParam().predicate);
}

INSTANTIATE_TEST_SUITE_P(Texts, SearchPredicate,
                         testing::Values(FilterCase{"", 0, ""}, FilterCase{"", 1, ""},
                                         FilterCase{"beach", 0, "title contains[c] 'beach'"},
                                         FilterCase{"beach", 1, "path contains[c] 'beach'"},
                                         FilterCase{"ab'c", 0, "title contains[c] 'ab\\'c'"},
                                         FilterCase{"a\\b", 0, "title contains[c] 'ab'"},
                                         FilterCase{"\\'", 2, "path contains[c] '\\''"}));

TEST(ScanWindow, FilterChangesReachTheResultsView) {
    ScanWindowFixture f;
    f.controller->showWindow();
    for (Step step : {Step::DropOne, Step::Start, Step::FinishFound, Step::ShowResults})
        run(f, step);
    f.controller->filterChanged("ab'c", 0);
    EXPECT_EQ(f.resultsFactory.lastView->predicates.back(), "title contains[c] 'ab\\'c'");
    EXPECT_EQ(f.tracker.events().back(), (test::TrackedEvent{"Scan Results", "Search for Results", "", 1}));
}

// Validators of the window's menu items, by state (collector not empty).
struct ValidatorCase {
    std::int32_t state;
    bool showCollector, autoCollect, putAllBack;
};

class ScanWindowValidators : public testing::TestWithParam<ValidatorCase> {};

TEST_P(ScanWindowValidators, FollowTheState) {
    ScanWindowFixture f;
    f.controller->showWindow();
    for (Step step : {Step::DropOne, Step::Start, Step::FinishFound, Step::ShowResults})
        run(f, step);
    f.resultsFactory.lastCollector->selectedCount = 1;
    f.controller->setWindowState(GetParam().state);
    EXPECT_EQ(f.controller->validateShowCollectorItem(), GetParam().showCollector);
    EXPECT_EQ(f.controller->validateAutoCollectItem(), GetParam().autoCollect);
    EXPECT_EQ(f.controller->validatePutAllBackItem(), GetParam().putAllBack);
    f.resultsFactory.lastCollector->selectedCount = 0;
    EXPECT_FALSE(f.controller->validateShowCollectorItem()) << "an empty collector is never shown";
}

INSTANTIATE_TEST_SUITE_P(
    States, ScanWindowValidators,
    testing::Values(ValidatorCase{0, false, false, false}, ValidatorCase{1, false, false, false},
                    ValidatorCase{2, false, false, false}, ValidatorCase{3, false, false, false},
                    ValidatorCase{4, false, false, false}, ValidatorCase{5, false, false, false},
                    ValidatorCase{7, true, true, true}, ValidatorCase{8, true, false, true},
                    ValidatorCase{9, false, false, false}, ValidatorCase{10, true, false, false}));

TEST(ScanWindow, TheViewOfEachStateIsReportedWhileTheWindowIsKey) {
    const std::vector<std::pair<std::int32_t, const char*>> views = {{0, "Add Items"},
                                                                     {1, ""},
                                                                     {2, "Scan Progress"},
                                                                     {3, "Scan Complete"},
                                                                     {4, "Scan Complete"},
                                                                     {5, ""},
                                                                     {6, ""},
                                                                     {7, "Detailed Results"},
                                                                     {8, "Summary"},
                                                                     {9, ""},
                                                                     {10, "Cleanup Complete"}};
    ScanWindowFixture f;
    for (const auto& [state, name] : views) {
        f.tracker.clear();
        f.controller->setWindowState(state);
        EXPECT_EQ(f.tracker.views(),
                  std::string(name).empty() ? std::vector<std::string>{} : std::vector<std::string>{name})
            << state;
    }
    f.view.key = false;
    f.tracker.clear();
    f.controller->setWindowState(3);
    EXPECT_TRUE(f.tracker.views().empty());
    f.view.key = true;
    f.controller->windowDidBecomeKey();
    EXPECT_EQ(f.tracker.views(), std::vector<std::string>{"Scan Complete"});
}

TEST(ScanWindow, ResultsCommandsGoToTheResultsViewAndTheCollector) {
    ScanWindowFixture f;
    f.controller->showWindow();
    for (Step step : {Step::DropOne, Step::Start, Step::FinishFound, Step::ShowResults})
        run(f, step);
    f.controller->autoCollect();
    f.controller->autoSelectAll();
    f.controller->autoDecollect();
    f.controller->putAllFilesBack();
    f.controller->putAllFilesBackFromList();
    f.controller->showCollector();
    EXPECT_EQ(f.resultsFactory.lastView->calls,
              (std::vector<std::string>{"clearTableSelections", "autoselectAction", "autoselectAllAction",
                                        "deselectFromMenuAction", "deselectAllAction"}));
    EXPECT_EQ(f.resultsFactory.lastCollector->calls,
              (std::vector<std::string>{"putBack", "showHideCollector"}));
    const auto events = f.tracker.events();
    EXPECT_NE(std::find(events.begin(), events.end(),
                        test::TrackedEvent{"Scan Results", "Remove Selection", "All", 1}),
              events.end());
    EXPECT_EQ(events.back(), (test::TrackedEvent{"Scan Results", "Remove Selected", "", 1}));
    // The selecting controller's display is the scan window, which passes changes to the collector.
    f.controller->shouldIncSelectedSize(4096, 2);
    EXPECT_EQ(f.resultsFactory.lastCollector->selectedCount, 2);
    EXPECT_TRUE(f.controller->collectorNotEmpty());
}

TEST(ScanWindow, EveryTextTheWindowShowsIsInTheStringTables) {
    const char* defaults[] = {"StatusTextViewStatus_AddingFolders",
                              "StatusTextViewSubStatus_AddingFolders",
                              "StatusTextViewStatus_Scanning",
                              "StatusTextViewSubStatus_Found",
                              "StatusTextViewSubStatus_UndefinedFinishTime",
                              "StatusTextViewStatus_FoundDuplicates",
                              "StatusTextViewStatus_NoDuplicates",
                              "StatusTextViewStatus_TheOnlyFolderProtected",
                              "StatusTextViewStatus_TheOnlyFolderExcluded",
                              "StatusTextViewStatus_OneOfTheFoldersIsProtected",
                              "StatusTextViewStatus_OneOfTheFoldersIsExcluded",
                              "StatusTextViewSubStatus_CantScanProtectedFolder",
                              "StatusTextViewSubStatus_CantScanExcludedFolder",
                              "StatusTextViewStatus_ScanningError",
                              "AlertMessageText_StartNewScan",
                              "AlertMessageDescription_StartNewScan",
                              "ScanItemControlString_FoldersCount"};
    for (const char* key : defaults)
        EXPECT_NE(localized(key), key);
    const char* buttons[] = {"ButtonTitle_CancelScan",
                             "ButtonToolTip_CancelScan",
                             "ButtonTitle_StopAndShowResults",
                             "ButtonToolTip_StopAndShowResults",
                             "ButtonTitle_ShowResults",
                             "ButtonToolTip_ShowResults",
                             "ButtonTitle_NewScan",
                             "ButtonToolTip_NewScan",
                             "ButtonTitle_Cancel",
                             "ButtonTitle_OK",
                             "ButtonTitle_Add"};
    for (const char* key : buttons)
        EXPECT_NE(localized(key, "Buttons"), key);
    PropertyValue resource;
    ASSERT_TRUE(readPropertyListFile(CVScanScenario::defaultResourceFile(), resource, nullptr));
    ASSERT_EQ(resource.count(), 5u);
    std::vector<PropertyValue> keys;
    for (const auto& scenario : *resource[0].asArray())
        keys.insert(keys.end(), scenario.asArray()->begin(), scenario.asArray()->end());
    for (std::size_t use = 1; use <= 4; ++use)
        keys.insert(keys.end(), resource[use].asArray()->begin(), resource[use].asArray()->end());
    for (const auto& key : keys)
        EXPECT_NE(localized(*key.asString(), "Scenarios"), *key.asString()) << "untranslated phrase";
    EXPECT_NE(localized("MinResultsWindowSize", "LocalizedPrefs"), "MinResultsWindowSize");
}

} // namespace
} // namespace corvel

namespace corvel {
namespace {

// The real locator behind the scan window: its notifications reach the controller on
// the process's main queue.
class ScanWindowWithTheRealLocator : public testing::Test {
protected:
    test::ScanHarness harness;
    test::TempTree tree;
    test::TempTree settings;
    UserDefaults store{settings / "settings.plist"};
    CVStatisticsController statistics{store};
    test::RecordingTracker tracker;
    MainQueueTimers timers{MainQueue::shared()};
    test::FakeScanWindowView view;
    test::FakeDropZoneView dropZone;
    test::FakeResultsFactory resultsFactory;
    test::CountingReminder reminder;
    std::unique_ptr<CVScanWindowController> controller =
        std::make_unique<CVScanWindowController>(ScanWindowServices{
            view, dropZone, [this] { return std::make_unique<LocatorAdapter>(harness.locator()); },
            resultsFactory, statistics, store, tracker, MainQueue::shared(), timers,
            NotificationCenter::defaultCenter(), StringTables::shared(), [] { return 11u; },
            CVScanScenario::defaultResourceFile(), [] {}, &reminder, nullptr});

    void SetUp() override {
        dropZone.control = &controller->scanControl();
        controller->showWindow();
    }
    // Runs the main queue until the scan's outcome shows, then what the finish queued after it.
    bool scanEnds() {
        const bool ended = MainQueue::shared().runUntil(
            [this] {
                const auto state = controller->windowState();
                return state != WindowStateStarting && state != WindowStateScanning;
            },
            std::chrono::seconds(60));
        MainQueue::shared().drain();
        return ended;
    }
};

TEST_F(ScanWindowWithTheRealLocator, AFolderWithCopiesEndsFoundAndAProtectedOneNothingFound) {
    const std::string content(200'000, 'q');
    tree.file("one/track.bin", content);
    tree.file("two/track copy.bin", content);
    controller->scanControl().addFoldersForScan({tree.path()}, true);
    ASSERT_TRUE(scanEnds());
    EXPECT_EQ(controller->windowState(), WindowStateFound);
    auto* locator = dynamic_cast<LocatorAdapter*>(controller->duplicatesFinder());
    ASSERT_NE(locator, nullptr);
    EXPECT_EQ(view.status, formatf(localized("StatusTextViewStatus_FoundDuplicates"),
                                   stringWithSize(locator->duplicatesController()->size())));
    EXPECT_EQ(reminder.scheduled, 1);
    const auto records = CVStatisticsController::scanRecords(store);
    ASSERT_TRUE(records && records->size() == 1);
    EXPECT_EQ((*records)[0]["FoundFiles"].toUInt64(), 2u);

    controller->newScan();
    controller->scanControl().addFoldersForScan({"/proc"}, true);
    ASSERT_TRUE(scanEnds());
    EXPECT_EQ(controller->windowState(), WindowStateNothingFound);
    EXPECT_EQ(view.status, localized("StatusTextViewStatus_TheOnlyFolderProtected"));
    EXPECT_EQ(view.subStatus, localized("StatusTextViewSubStatus_CantScanProtectedFolder"));
}

} // namespace
} // namespace corvel
