#include <gtest/gtest.h>
#include <unistd.h>

#include "engine/file_sizer.h"
#include "engine/node_type.h"
#include "platform/string_tables.h"
#include "platform/system_log.h"
#include "platform/text_format.h"
#include "results_fixture.h"
#include "settings/preferences.h"

namespace corvel {
namespace {

using test::ResultsFixture;
using test::TrackedEvent;

// Changes a copy after the scan.
bool appendTo(const std::string& path, const char* text) {
    std::FILE* file = std::fopen(path.c_str(), "ab");
    if (!file)
        return false;
    std::fputs(text, file);
    return std::fclose(file) == 0;
}

// Two groups of real copies, the second copy of each marked.
struct TwoMarkedGroups : ResultsFixture {
    std::shared_ptr<CVGroup> first;
    std::shared_ptr<CVGroup> second;
    TwoMarkedGroups() {
        first = group("a.txt", kNodeTypeDocument, {"x", "y", "z"}, std::string(9000, 'a'));
        second = group("b.jpg", kNodeTypeImage, {"x", "y"}, std::string(20000, 'b'));
        open();
        view().switchFileSelectionAction(first->files()[1]);
        view().switchFileSelectionAction(second->files()[1]);
        tracker.clear();
    }
    std::uint64_t markedSize() const {
        return first->files()[1]->sizeOnDisk() + second->files()[1]->sizeOnDisk();
    }
    // Presses Remove and runs the main queue until the pass has ended.
    void remove() {
        collector().shreddList();
        ASSERT_TRUE(MainQueue::shared().runUntil(
            [this] {
                const auto* pass = collector().removalPass();
                return !pass || !pass->isPassThreadRunning();
            },
            std::chrono::seconds(60)));
        MainQueue::shared().drain();
    }
    std::string amountLine(std::uint64_t size, std::uint64_t count) const {
        return formatf(localizedCount("TextFieldString_DuplicatesAmountAndSize", count), stringWithSize(size),
                       static_cast<unsigned long>(count));
    }
};

// ---- Open and close ----------------------------------------------------------------------------

TEST(Collector, OpensOverTheResultsAndClosesBackToThem) {
    TwoMarkedGroups f;
    auto& face = f.collectorFace();
    ScopedLogCapture log;
    f.collector().showHideCollector();
    EXPECT_TRUE(f.collector().expanded());
    EXPECT_EQ(f.host.states, std::vector<std::int32_t>{8});
    EXPECT_EQ(face.removeTitle, localized("ButtonTitle_Remove", "Buttons"));
    EXPECT_EQ(face.removeToolTip, localized("ButtonToolTip_Remove", "Buttons"));
    EXPECT_TRUE(face.removeEnabled);
    EXPECT_FALSE(face.closeEnabled);
    EXPECT_TRUE(face.infoHidden);
    EXPECT_TRUE(face.listFirst);
    EXPECT_EQ(face.deselections, 1);
    EXPECT_EQ(f.preview.closed, 1);
    ASSERT_EQ(face.list.size(), 2u);
    EXPECT_EQ(face.list[0].files, std::vector<std::shared_ptr<CVFile>>{f.first->files()[1]});
    EXPECT_EQ(face.list[1].files, std::vector<std::shared_ptr<CVFile>>{f.second->files()[1]});
    EXPECT_EQ(log.lines(),
              (std::vector<std::string>{"Openning collector", formatf("Collector count = %lu size = %@", 2ul,
                                                                      stringWithSize(f.markedSize()))}));

    f.collector().showHideCollector();
    EXPECT_FALSE(f.collector().expanded());
    EXPECT_EQ(f.host.states, (std::vector<std::int32_t>{8, 7}));
    EXPECT_TRUE(face.closeEnabled);
    EXPECT_FALSE(face.infoHidden);
    EXPECT_FALSE(face.listFirst);
    EXPECT_TRUE(face.list.empty());
    EXPECT_TRUE(log.contains("Closing collector"));
}

// Where the copies will go is said each time the list opens, as the preference stands.
TEST(Collector, SaysWhetherTheCopiesGoToTheTrashOrAreDeletedForGood) {
    TwoMarkedGroups f;
    auto& face = f.collectorFace();
    EXPECT_FALSE(face.removalToTrash);
    f.collector().showHideCollector();
    EXPECT_EQ(face.removalToTrash, std::optional<bool>(true));
    f.collector().showHideCollector();
    f.scan.defaults.setBool(false, kMoveIntoTrashKey);
    f.collector().showHideCollector();
    EXPECT_EQ(face.removalToTrash, std::optional<bool>(false));
}

TEST(Collector, AToggleWhileTheAnimationRunsIsIgnored) {
    TwoMarkedGroups f;
    auto& face = f.collectorFace();
    face.animateAtOnce = false;
    f.collector().showHideCollector();
    f.collector().showHideCollector();
    EXPECT_EQ(face.count("slideIn"), 1u);
    EXPECT_EQ(face.count("slideOut"), 0u);
    EXPECT_TRUE(f.collector().animationInProgress());
    face.pendingAnimation();
    f.collector().showHideCollector();
    f.collector().showHideCollector();
    EXPECT_EQ(face.count("slideOut"), 1u);
    EXPECT_TRUE(f.collector().expanded());
    face.pendingAnimation();
    EXPECT_FALSE(f.collector().expanded());
    EXPECT_EQ(f.host.states, (std::vector<std::int32_t>{8, 7}));
}

TEST(Collector, ItsFilterIsItsOwnAndLeavesTheResultsCategoriesAlone) {
    TwoMarkedGroups f;
    f.view().setSearchFieldPredicateString("title contains[c] 'a'");
    const auto categoriesBefore = f.results->metaGroups();
    ASSERT_EQ(f.face().groups.size(), 1u);

    f.collector().showHideCollector();
    // Both marked copies are listed, also the one the search hides from the results.
    EXPECT_EQ(f.collectorFace().list.size(), 2u);
    EXPECT_EQ(f.results->filterPredicate(), "title contains[c] 'a'");
    const auto categoriesAfter = f.results->metaGroups();
    ASSERT_EQ(categoriesAfter.size(), categoriesBefore.size());
    for (std::size_t i = 0; i < categoriesAfter.size(); ++i) {
        EXPECT_EQ(categoriesAfter[i]->groupID(), categoriesBefore[i]->groupID());
        EXPECT_EQ(categoriesAfter[i]->count(), categoriesBefore[i]->count());
    }
    EXPECT_EQ(f.face().groups.size(), 1u);
}

// ---- Counting -----------------------------------------------------------------------------------

struct CountCase {
    std::vector<std::size_t> marked; // members of a three-copy group of 5000-byte files
};

class CollectorCount : public testing::TestWithParam<CountCase> {};

TEST_P(CollectorCount, ShowsTheSizeFirstAndTheCountSecond) {
    ResultsFixture f;
    auto g = f.group("c.txt", kNodeTypeDocument, {"x", "y", "z"}, std::string(5000, 'c'));
    f.open();
    std::uint64_t size = 0;
    for (const auto m : GetParam().marked) {
        f.view().switchFileSelectionAction(g->files()[m]);
        size += g->files()[m]->sizeOnDisk();
    }
    const std::uint64_t count = GetParam().marked.size();
    EXPECT_EQ(f.collector().count(), count);
    EXPECT_EQ(f.collector().size(), size);
    EXPECT_EQ(f.collector().notEmpty(), count != 0);
    EXPECT_EQ(f.collector().canRemoveFiles(), count != 0);
    EXPECT_EQ(f.collectorFace().amountLine,
              formatf(localizedCount("TextFieldString_DuplicatesAmountAndSize", count), stringWithSize(size),
                      static_cast<unsigned long>(count)));
    // The size's text comes before the count in the English line.
    const auto& line = f.collectorFace().amountLine;
    EXPECT_LT(line.find(stringWithSize(size)), line.find(std::to_string(count) + " "));
}

INSTANTIATE_TEST_SUITE_P(Marks, CollectorCount,
                         testing::Values(CountCase{{}}, CountCase{{1}}, CountCase{{0, 2}}),
                         [](const auto& param) {
                             return "Marked" + std::to_string(param.param.marked.size());
                         });

// ---- Keep and put back -------------------------------------------------------------------------

TEST(Collector, KeepingOneOfSeveralRecountsAndKeepingTheLastCloses) {
    TwoMarkedGroups f;
    f.collector().showHideCollector();
    // A copy that is not marked has nothing to keep.
    f.collector().keepFile(f.first->files()[0]);
    EXPECT_TRUE(f.tracker.events().empty());
    EXPECT_EQ(f.first->silentFilesToRemoveCount(), 1);
    const auto kept = f.second->files()[1];
    f.collector().keepFile(kept);
    EXPECT_FALSE(kept->needToRemove());
    EXPECT_EQ(f.collector().count(), 1u);
    EXPECT_EQ(f.collectorFace().amountLine, f.amountLine(f.first->files()[1]->sizeOnDisk(), 1));
    EXPECT_EQ(f.collectorFace().list.size(), 1u);
    EXPECT_TRUE(f.collector().expanded());
    EXPECT_EQ(f.tracker.events(),
              (std::vector<TrackedEvent>{{"Deletion Summary", "Remove File from List", "", 1}}));

    f.collector().removeFileFromCollector(f.first->files()[1]);
    EXPECT_EQ(f.collector().count(), 0u);
    EXPECT_FALSE(f.collector().expanded());
    EXPECT_EQ(f.host.states, (std::vector<std::int32_t>{8, 7}));
}

struct PutBackCase {
    AlertChoice answer;
    bool marksLeft;
    std::string label;
};

class CollectorPutBack : public testing::TestWithParam<PutBackCase> {};

TEST_P(CollectorPutBack, AsksFirstAndUnmarksEverythingOnlyWhenConfirmed) {
    const auto& c = GetParam();
    TwoMarkedGroups f;
    f.collector().showHideCollector();
    f.collectorFace().alertAnswer = c.answer;
    f.collector().putBack();
    ASSERT_EQ(f.collectorFace().alerts.size(), 1u);
    const auto& alert = f.collectorFace().alerts[0];
    EXPECT_EQ(alert.message, localized("AlertMessageText_DeselectAllDuplicatesQuestion"));
    EXPECT_EQ(alert.defaultButton, localized("ButtonTitle_DeselectAll", "Buttons"));
    EXPECT_EQ(alert.alternateButton, localized("ButtonTitle_Cancel", "Buttons"));
    EXPECT_EQ(f.first->files()[1]->needToRemove(), c.marksLeft);
    EXPECT_EQ(f.second->files()[1]->needToRemove(), c.marksLeft);
    EXPECT_EQ(f.collector().count(), c.marksLeft ? 2u : 0u);
    EXPECT_EQ(f.collector().expanded(), c.marksLeft);
    EXPECT_EQ(f.tracker.events(),
              (std::vector<TrackedEvent>{{"Deletion Summary", "Put All Back", c.label, 1}}));
}

INSTANTIATE_TEST_SUITE_P(Answers, CollectorPutBack,
                         testing::Values(PutBackCase{AlertChoice::Default, false, "Put Back"},
                                         PutBackCase{AlertChoice::Alternate, true, "Closed"}),
                         [](const auto& param) {
                             return param.param.label == "Closed" ? "Cancel" : "Confirm";
                         });

// ---- Done, Close, Escape ------------------------------------------------------------------------

enum class Leave { Done, CloseButton, Escape };

struct LeaveCase {
    std::string name;
    bool passRun;
    Leave how;
    TrackedEvent event;
};

class CollectorLeave : public testing::TestWithParam<LeaveCase> {};

TEST_P(CollectorLeave, ReportsDoneAfterAPassAndCancelOtherwise) {
    const auto& c = GetParam();
    TwoMarkedGroups f;
    f.collector().showHideCollector();
    if (c.passRun)
        f.remove();
    f.tracker.clear();
    switch (c.how) {
    case Leave::Done:
        f.collector().doneButtonAction();
        break;
    case Leave::CloseButton:
        f.collector().closeButtonAction(false);
        break;
    case Leave::Escape:
        f.collector().closeButtonAction(true);
        break;
    }
    EXPECT_EQ(f.tracker.events(), std::vector<TrackedEvent>{c.event});
    EXPECT_FALSE(f.collector().expanded());
    EXPECT_EQ(f.host.states.back(), 7);
}

INSTANTIATE_TEST_SUITE_P(
    Ways, CollectorLeave,
    testing::Values(
        LeaveCase{"DoneAfterAPass", true, Leave::Done, {"Cleanup Complete", "Done", "", 1}},
        LeaveCase{"CloseAfterAPass", true, Leave::CloseButton, {"Cleanup Complete", "Done", "", 1}},
        LeaveCase{"EscapeAfterAPass", true, Leave::Escape, {"Cleanup Complete", "Done", "", 1}},
        LeaveCase{"CloseWithoutAPass", false, Leave::CloseButton, {"Deletion Summary", "Cancel", "Close", 1}},
        LeaveCase{"EscapeWithoutAPass", false, Leave::Escape, {"Deletion Summary", "Cancel", "ESC", 1}}),
    [](const auto& param) { return param.param.name; });

// ---- After a cleanup ---------------------------------------------------------------------------

TEST(Collector, NewScanAfterACleanupStartsOneAfterFourTenthsOfASecondAndReArmsTheReminder) {
    TwoMarkedGroups f;
    f.collector().showHideCollector();
    f.remove();
    f.collector().newScan();
    EXPECT_EQ(f.tracker.events().back(), (TrackedEvent{"Cleanup Complete", "New Scan", "", 1}));
    EXPECT_EQ(f.collectorFace().sharingClosed, 1);
    EXPECT_EQ(f.reminder.scheduled, 1);
    EXPECT_FALSE(f.collector().needRefreshing());
    const auto timers = f.timers.withInterval(std::chrono::milliseconds(400));
    ASSERT_EQ(timers.size(), 1u);
    EXPECT_TRUE(f.host.calls.empty());
    f.timers.fire(timers[0]);
    EXPECT_EQ(f.host.calls, std::vector<std::string>{"forceNewScan"});
}

TEST(Collector, NewScanWithoutAReminderServiceStillStartsTheScan) {
    TwoMarkedGroups f;
    auto services = f.services();
    services.reminder = nullptr;
    CVCollectorViewController collector(f.results, &f.view(), std::make_unique<test::FakeCollectorFace>(),
                                        services, &f.host);
    collector.newScan();
    f.timers.fire(f.timers.withInterval(std::chrono::milliseconds(400)).at(0));
    EXPECT_EQ(f.host.calls, std::vector<std::string>{"forceNewScan"});
    EXPECT_EQ(f.reminder.scheduled, 0);
}

TEST(Collector, BackToScanGoesBackNowAndAgainAfter420Milliseconds) {
    TwoMarkedGroups f;
    f.collector().backToScan();
    EXPECT_EQ(f.host.calls, std::vector<std::string>{"backToScan"});
    const auto timers = f.timers.withInterval(std::chrono::milliseconds(420));
    ASSERT_EQ(timers.size(), 1u);
    f.timers.fire(timers[0]);
    EXPECT_EQ(f.host.calls, (std::vector<std::string>{"backToScan", "backToScan"}));
}

// ---- The advertisement ---------------------------------------------------------------------------

struct AdvertCase {
    std::string name;
    bool allowed;
    bool dismissed;
    const char* installed;
    std::uint64_t totalCleaned;
    bool offered;
};

class CollectorAdvert : public testing::TestWithParam<AdvertCase> {};

TEST_P(CollectorAdvert, IsOfferedOnlyWhenEveryConditionHolds) {
    const auto& c = GetParam();
    ResultsFixture f;
    if (c.allowed) {
        f.scan.preferences.setShouldAdvertiseTDW(true);
        f.scan.preferences.setAdvertisementMinSize(1000);
    }
    if (c.dismissed)
        f.scan.defaults.setBool(true, kDontShowAdvertAgainKey);
    if (c.installed)
        f.applications.installed.insert(c.installed);
    HVAchievementsController achievements(f.scan.defaults);
    if (c.totalCleaned)
        achievements.shreddingFinishedAndRemoved(c.totalCleaned, false, false);
    auto services = f.services();
    ResultsServices withTotals{services.defaults, services.preferences,      services.ignoreList,
                               services.center,   services.mainQueue,        services.timers,
                               services.tracker,  services.reveal,           services.applications,
                               services.trash,    services.libraryAppDriver, services.statistics,
                               achievements,      services.preview,          services.reminder};
    CVCollectorViewController collector(f.results, nullptr, std::make_unique<test::FakeCollectorFace>(),
                                        withTotals, nullptr);
    EXPECT_EQ(collector.shouldAdvertiseTDW(), c.offered);
}

INSTANTIATE_TEST_SUITE_P(
    Conditions, CollectorAdvert,
    testing::Values(AdvertCase{"ShippedDefaults", false, false, nullptr, 1'000'000'000, false},
                    AdvertCase{"AllowedAndEnoughCleaned", true, false, nullptr, 5000, true},
                    AdvertCase{"TooLittleCleaned", true, false, nullptr, 999, false},
                    AdvertCase{"Dismissed", true, true, nullptr, 5000, false},
                    AdvertCase{"SecondSiblingInstalled", true, false, "com.halvik.Tidewell2", 5000, false},
                    AdvertCase{"ThirdSiblingInstalled", true, false, "com.halvik.Tidewell3", 5000, false}),
    [](const auto& param) { return param.param.name; });

TEST(Collector, DismissingTheAdvertisementIsStoredAndReported) {
    TwoMarkedGroups f;
    f.collector().dontShowAdAgain();
    EXPECT_TRUE(f.scan.defaults.boolForKey(kDontShowAdvertAgainKey));
    EXPECT_EQ(f.collectorFace().adHidden, 1);
    EXPECT_EQ(f.tracker.events(),
              (std::vector<TrackedEvent>{{"Cleanup", "Tidewell Promo", "Don't Show Again", 1}}));
}

// ---- The removal pass ------------------------------------------------------------------------------

TEST(Collector, RemoveRunsThePassAndClosingDropsTheRemovedFilesWithOneNotice) {
    TwoMarkedGroups f;
    const auto removedA = f.first->files()[1];
    const auto removedB = f.second->files()[1];
    const std::uint64_t size = f.markedSize();
    f.collector().showHideCollector();
    int notices = 0;
    ScopedObserver observer(f.center, f.center.addObserver(kCollectorDidUpdateRemovedFilesNotification,
                                                           nullptr, [&](const Notification&) { ++notices; }));
    f.remove();

    EXPECT_EQ(f.host.states, (std::vector<std::int32_t>{8, 9, 10}));
    EXPECT_FALSE(test::exists(removedA->path()));
    EXPECT_FALSE(test::exists(removedB->path()));
    EXPECT_TRUE(test::exists(f.first->files()[0]->path()));
    EXPECT_TRUE(test::exists(f.second->files()[0]->path()));
    EXPECT_TRUE(test::exists(f.homeTrash() + "/files/a.txt"));
    EXPECT_TRUE(test::exists(f.homeTrash() + "/files/b.jpg"));
    EXPECT_EQ(f.collectorFace().count("showSuccessView"), 1u);
    ASSERT_EQ(f.collectorFace().summaries.size(), 1u);
    const auto& summary = f.collectorFace().summaries[0];
    EXPECT_EQ(summary.sizeFreed, size);
    EXPECT_EQ(summary.sizeFreedText, stringWithSize(size));
    EXPECT_EQ(summary.totalSaved, size);
    EXPECT_EQ(summary.level, f.achievements.userLevel());
    EXPECT_EQ(summary.rank, f.achievements.userRank());
    EXPECT_FALSE(summary.rank.empty());
    EXPECT_FALSE(summary.advertise);
    EXPECT_TRUE(f.collector().passHasRun());
    EXPECT_EQ(f.collector().count(), 0u);
    // The results keep the removed files until the collector closes.
    EXPECT_NE(f.results->fileAtPath(removedA->path()), nullptr);
    EXPECT_EQ(notices, 0);

    f.collector().doneButtonAction();
    EXPECT_EQ(notices, 1);
    EXPECT_EQ(f.results->fileAtPath(removedA->path()), nullptr);
    EXPECT_EQ(f.results->fileAtPath(removedB->path()), nullptr);
    // The pair's group is gone; the three-copy group stays with two.
    ASSERT_EQ(f.results->allDuplicatesGroups().size(), 1u);
    EXPECT_EQ(f.results->allDuplicatesGroups()[0]->files().size(), 2u);
    EXPECT_EQ(f.face().groups.size(), 1u);
    // Closing again after that posts nothing more.
    f.collector().showHideCollector();
    f.collector().showHideCollector();
    EXPECT_EQ(notices, 1);
}

TEST(Collector, ACopyChangedSinceTheScanFailsIntoTheErrorList) {
    TwoMarkedGroups f;
    const auto changed = f.first->files()[1];
    ASSERT_TRUE(appendTo(changed->path(), "more"));
    f.collector().showHideCollector();
    f.remove();
    EXPECT_TRUE(test::exists(changed->path()));
    EXPECT_FALSE(test::exists(f.second->files()[1]->path()));
    EXPECT_EQ(f.collector().errorFilesCount(), 1u);
    EXPECT_EQ(f.collectorFace().count("showErrorList"), 1u);
    EXPECT_EQ(f.collectorFace().count("showSuccessView"), 0u);
    EXPECT_EQ(f.collectorFace().errorListText, formatf(localized("TextFieldString_TotalUndeletedSize"),
                                                       stringWithSize(changed->sizeOnDisk())));
    EXPECT_EQ(f.collectorFace().failed, std::vector<std::shared_ptr<CVFile>>{changed});
    // Back in the results, the copy that stayed is still there and marked; the other left.
    f.collector().showHideCollector();
    EXPECT_NE(f.results->fileAtPath(changed->path()), nullptr);
    EXPECT_TRUE(changed->needToRemove());
    EXPECT_EQ(f.results->fileAtPath(f.second->files()[0]->path()), nullptr);
    EXPECT_EQ(f.collector().count(), 1u);
}

// Of two copies marked in a group, one goes and one fails: back in the results the group
// counts the one still marked (the pass counted off the one that went, once).
TEST(Collector, AGroupCountsTheCopyThatStayedMarkedAfterAPass) {
    TwoMarkedGroups f;
    f.view().switchFileSelectionAction(f.first->files()[2]);
    const auto stays = f.first->files()[1];
    ASSERT_TRUE(appendTo(stays->path(), "more"));
    f.collector().showHideCollector();
    f.remove();
    EXPECT_FALSE(test::exists(f.first->files()[2]->path()));
    f.collector().showHideCollector();
    MainQueue::shared().drain();
    ASSERT_EQ(f.first->childrenCount(), 2u);
    EXPECT_TRUE(stays->needToRemove());
    EXPECT_EQ(f.first->filesToRemoveCount(), 1);
    EXPECT_EQ(f.collector().count(), 1u);
}

TEST(Collector, ShareRevealAndPreviewFollowTheListsOfAPass) {
    TwoMarkedGroups f;
    const auto changed = f.first->files()[1];
    ASSERT_TRUE(appendTo(changed->path(), "more"));
    using List = CVCollectorViewController::CollectorList;
    f.collector().showHideCollector();
    EXPECT_EQ(f.collector().tableViewForQuickLook(), List::Marked);
    f.remove();
    EXPECT_EQ(f.collector().tableViewForQuickLook(), List::Failed) << "a copy failed: the error list shows";

    f.tracker.clear();
    f.collector().twitterAction();
    EXPECT_EQ(f.tracker.events(), (std::vector<TrackedEvent>{{"Cleanup Complete", "Share", "", 1}}));
    ASSERT_EQ(f.sharing.shared.size(), 1u);
    EXPECT_EQ(f.sharing.shared[0].freed, f.second->files()[1]->sizeOnDisk());
    EXPECT_EQ(f.sharing.shared[0].lastCleaned, f.achievements.lastTimeSize());
    EXPECT_FALSE(f.sharing.shared[0].iPhoto);

    f.collector().revealInFinderFailed(changed);
    EXPECT_EQ(f.reveal.revealed.back(), std::vector<std::string>{changed->path()});
    struct Row {
        List item;
        std::optional<List> clicked;
        bool enabled;
    };
    for (const Row& row : {Row{List::Marked, List::Marked, true}, Row{List::Failed, List::Failed, true},
                           Row{List::Marked, List::Failed, false}, Row{List::Failed, List::Marked, false},
                           Row{List::Marked, std::nullopt, false}})
        EXPECT_EQ(CVCollectorViewController::validateRevealItem(row.item, row.clicked), row.enabled);
    EXPECT_TRUE(CVCollectorViewController::shouldExpandItem(true));
    EXPECT_FALSE(CVCollectorViewController::shouldExpandItem(false));
}

TEST(Collector, TheCollectorCannotBeClosedWhileAPassRuns) {
    TwoMarkedGroups f;
    f.collector().showHideCollector();
    bool expandedDuringPass = false;
    f.collectorFace().onStart = [&] {
        f.collector().showHideCollector();
        f.collector().closeButtonAction(true);
        f.collector().putBack();
        f.collector().keepFile(f.first->files()[1]);
        expandedDuringPass = f.collector().expanded();
    };
    f.remove();
    EXPECT_TRUE(expandedDuringPass);
    // The copy the user tried to keep once the pass had started went with the others.
    EXPECT_FALSE(test::exists(f.first->files()[1]->path()));
    EXPECT_EQ(f.collector().removalPass()->removedFiles(), 2u);
    EXPECT_TRUE(f.collectorFace().alerts.empty());
    EXPECT_EQ(f.host.states, (std::vector<std::int32_t>{8, 9, 10}));
}

TEST(Collector, StopEndsThePassWithTheCopiesLeftMarkedAndTheCollectorBack) {
    TwoMarkedGroups f;
    f.collector().showHideCollector();
    f.collectorFace().onStart = [&] {
        // Stop, pressed as the pass starts.
        f.collector().shreddList();
        EXPECT_EQ(f.collectorFace().removeTitle, localized("ButtonTitle_Remove", "Buttons"));
    };
    f.remove();
    EXPECT_EQ(f.host.states, (std::vector<std::int32_t>{8, 9, 8}));
    EXPECT_TRUE(test::exists(f.first->files()[1]->path()));
    EXPECT_TRUE(test::exists(f.second->files()[1]->path()));
    EXPECT_EQ(f.collectorFace().count("reloadCollector"), 1u);
    EXPECT_EQ(f.collector().count(), 2u);
    EXPECT_EQ(f.collectorFace().list.size(), 2u);
    EXPECT_TRUE(f.collector().expanded());
    EXPECT_FALSE(f.collector().shredInProgress());
}

// Every copy of a group forced through the all-copies warning: to the Trash it goes; a
// permanent deletion of every copy is refused with a message and nothing is lost.
class CollectorAllCopies : public testing::TestWithParam<bool /*toTrash*/> {};

TEST_P(CollectorAllCopies, GoToTheTrashButAreNeverAllDeletedForGood) {
    const bool toTrash = GetParam();
    ResultsFixture f;
    auto g = f.group("all.txt", kNodeTypeDocument, {"x", "y"}, "every copy");
    f.open();
    f.scan.preferences.setMoveDuplicatesToTrash(toTrash);
    f.face().alertReply = {AlertChoice::Default, false};
    f.view().switchFileSelectionAction(g->files()[0]);
    f.view().switchFileSelectionAction(g->files()[1]);
    ASSERT_EQ(f.face().alerts.size(), 1u);
    ASSERT_TRUE(g->userForcedAllCopies());
    ASSERT_EQ(f.collector().count(), 2u);
    f.collector().showHideCollector();
    f.collector().shreddList();
    ASSERT_TRUE(MainQueue::shared().runUntil(
        [&] { return !f.collector().removalPass()->isPassThreadRunning(); }, std::chrono::seconds(60)));
    MainQueue::shared().drain();

    for (const auto& file : g->files())
        EXPECT_EQ(test::exists(file->path()), !toTrash) << file->path();
    if (toTrash) {
        EXPECT_TRUE(test::exists(f.homeTrash() + "/files/all.txt"));
        EXPECT_TRUE(test::exists(f.homeTrash() + "/files/all.2.txt"));
        EXPECT_EQ(f.collectorFace().count("showSuccessView"), 1u);
    } else {
        EXPECT_EQ(f.collector().errorFilesCount(), 2u);
        EXPECT_EQ(f.collectorFace().count("showErrorList"), 1u);
        EXPECT_EQ(f.collectorFace().failed.size(), 2u);
    }
}

INSTANTIATE_TEST_SUITE_P(Modes, CollectorAllCopies, testing::Values(true, false),
                         [](const auto& param) { return param.param ? "Trash" : "Delete"; });

} // namespace
} // namespace corvel
