#include <gtest/gtest.h>

#include "app/scan_item_control.h"
#include "app_fakes.h"
#include "platform/string_tables.h"
#include "platform/text_format.h"
#include "support/recording_tracker.h"

namespace corvel {
namespace {

using Paths = std::vector<std::string>;

struct MergeCase {
    const char* name;
    Paths added, previous, expected;
    friend void PrintTo(const MergeCase& c, std::ostream* os) { *os << c.name; }
};

class DropZoneMerge : public testing::TestWithParam<MergeCase> {};

TEST_P(DropZoneMerge, NewestBatchFirstEachFolderOnceNestedFoldersCovered) {
    EXPECT_EQ(RGScanItemControl::mergedTargets(GetParam().added, GetParam().previous), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Batches, DropZoneMerge,
    testing::Values(MergeCase{"First", {"/a"}, {}, {"/a"}},
                    MergeCase{"NewestFirst", {"/b"}, {"/a"}, {"/b", "/a"}},
                    MergeCase{
                        "RepeatedPathKeptOnceInTheNewPlace", {"/a", "/b"}, {"/b", "/c"}, {"/a", "/b", "/c"}},
                    MergeCase{"DuplicatesInsideOneBatch", {"/a", "/a"}, {}, {"/a"}},
                    MergeCase{"TrailingSlashIsTheSameFolder", {"/a/"}, {"/a"}, {"/a"}},
                    MergeCase{"NewFolderInsideAnEarlierOne", {"/a/b"}, {"/a"}, {"/a"}},
                    MergeCase{"NewFolderAroundEarlierOnes", {"/a"}, {"/a/b", "/c", "/a/d/e"}, {"/a", "/c"}},
                    MergeCase{"SharedPrefixIsNotNesting", {"/ab"}, {"/a"}, {"/ab", "/a"}},
                    MergeCase{"RootCoversEverything", {"/"}, {"/a", "/b"}, {"/"}},
                    MergeCase{"EmptyPathsIgnored", {""}, {"/a"}, {"/a"}}),
    [](const auto& param) { return std::string(param.param.name); });

class RecordingDelegate final : public RGScanItemControlDelegate {
public:
    void addPathsForScan(const Paths& paths, const std::string& name) override {
        calls.push_back("add:" + std::to_string(paths.size()) + ":" + name);
        targets = paths;
    }
    void startScanFromDropZone() override { calls.emplace_back("start"); }
    void stopScanFromDropZone() override { calls.emplace_back("stop"); }
    void refreshDrop() override { calls.emplace_back("refresh"); }
    void readyToResan() override { calls.emplace_back("ready"); }
    std::vector<std::string> calls;
    Paths targets;
};

class DropZone : public testing::Test {
protected:
    DropZone() {
        view.control = &control;
        control.setDelegate(&delegate);
    }
    test::FakeDropZoneView view;
    test::RecordingTracker tracker;
    RecordingDelegate delegate;
    RGScanItemControl control{view, tracker};
};

TEST_F(DropZone, OneFolderShowsItsNameSeveralShowTheCount) {
    control.addFoldersForScan({"/home/ada/Pictures/"}, false);
    EXPECT_EQ(view.shownName, "Pictures");
    EXPECT_EQ(view.shownPaths, Paths{"/home/ada/Pictures"});
    control.addFoldersForScan({"/srv/music"}, false);
    const std::string count = formatf(localized("ScanItemControlString_FoldersCount"), 2);
    EXPECT_EQ(count, "2 Folders");
    EXPECT_EQ(view.shownName, count);
    EXPECT_EQ(delegate.calls, (std::vector<std::string>{"add:1:Pictures", "add:2:" + count}));
    EXPECT_EQ(delegate.targets, (Paths{"/srv/music", "/home/ada/Pictures"}));
    EXPECT_EQ(RGScanItemControl::displayNameForTargets({"/"}), "/");
    EXPECT_EQ(RGScanItemControl::displayNameForTargets({}), "");
    EXPECT_EQ(view.arrowFlights, 2);
}

TEST_F(DropZone, AddingWithoutStartingEnablesRefreshStartingImmediatelyReplaces) {
    EXPECT_FALSE(control.validateMenuItem(RGScanItemControl::kRefreshMenuItemTag));
    control.addFoldersForScan({"/a", "/b"}, false);
    EXPECT_TRUE(control.refreshEnabled());
    EXPECT_TRUE(control.validateMenuItem(1234));
    EXPECT_TRUE(control.validateMenuItem(1)) << "other items are always enabled";
    control.addFoldersForScan({"/c"}, true);
    EXPECT_EQ(control.items(), Paths{"/c"}) << "start-immediately replaces the earlier targets";
    EXPECT_EQ(delegate.calls.back(), "start");
    control.refreshMenuAction();
    EXPECT_EQ(delegate.calls.back(), "refresh");
}

TEST_F(DropZone, RemovingTheLastBatchKeepsTheRestOrGoesIdle) {
    control.addFoldersForScan({"/a"}, false);
    control.addFoldersForScan({"/b", "/c"}, false);
    control.removeLastDroppedArray({"/b", "/c/"});
    EXPECT_EQ(control.items(), Paths{"/a"});
    EXPECT_EQ(delegate.targets, Paths{"/a"});
    control.removeLastDroppedArray({"/a"});
    EXPECT_TRUE(control.items().empty());
    EXPECT_EQ(delegate.calls.back(), "stop");
}

TEST_F(DropZone, ResettingClearsTheTargetsAndSaysWhenReady) {
    control.addFoldersForScan({"/a"}, false);
    control.resetAnimation();
    EXPECT_TRUE(control.items().empty());
    EXPECT_FALSE(control.refreshEnabled());
    EXPECT_EQ(view.resets, 1);
    EXPECT_EQ(delegate.calls.back(), "ready");
}

TEST_F(DropZone, ClicksAreReportedByWhatTheZoneShows) {
    control.mouseDown();
    control.addFoldersForScan({"/a"}, false);
    control.mouseDown();
    EXPECT_EQ(tracker.events(),
              (std::vector<test::TrackedEvent>{{"Dropzone", "Attempt to Click Arrow", "", 1},
                                               {"Dropzone", "Attempt to Edit Folders", "", 1}}));
}

} // namespace
} // namespace corvel
