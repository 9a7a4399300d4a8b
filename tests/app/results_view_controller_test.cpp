#include <gtest/gtest.h>
#include <thread>
#include <unistd.h>

#include "app/groups_sorting.h"
#include "engine/folder.h"
#include "engine/node_type.h"
#include "platform/string_tables.h"
#include "platform/system_log.h"
#include "platform/text_format.h"
#include "results_fixture.h"
#include "settings/ignore_list.h"

namespace corvel {
namespace {

using test::ResultsFixture;
using test::scannedNode;
using test::TrackedEvent;

// One group per category: Other, Documents, Pictures, Music, Movies, Archives, Folders.
struct EveryCategory : ResultsFixture {
    EveryCategory() {
        // Sizes on disk all differ, so the size sort (the default) is known.
        pair("other.bin", kNodeTypeOther, 10000);
        pair("doc.txt", kNodeTypeDocument, 20000);
        pair("pic.jpg", kNodeTypeImage, 30000);
        pair("pic2.jpg", kNodeTypeImage, 34000);
        pair("song.mp3", kNodeTypeAudio, 40000);
        pair("film.mp4", kNodeTypeVideo, 50000);
        pair("pack.zip", kNodeTypeArchive, 60000);
        pair("dir", kNodeTypePlainFolder, 70000);
        open();
    }
};

// ---- Categories -----------------------------------------------------------------------------

struct CategoryCase {
    std::int32_t id;
    std::vector<std::string> groups; // in scan order (the sort is by size, largest first)
    std::string label;
};

class ResultsCategories : public testing::TestWithParam<CategoryCase> {};

TEST_P(ResultsCategories, ShowTheirGroupsAndAutoSelectWithTheirLabel) {
    const auto& c = GetParam();
    EveryCategory f;
    f.view().setSelectedMetaGroupAction(f.rowOfCategory(c.id));
    EXPECT_EQ(f.view().selectedMetaGroupID(), c.id);
    EXPECT_EQ(ResultsFixture::names(f.face().groups), c.groups);
    EXPECT_EQ(f.view().selectedMetaGroupName(), CVMetaGroup::stringType(c.id));

    f.view().autoselectAction();
    ASSERT_FALSE(f.tracker.events().empty());
    EXPECT_EQ(f.tracker.events().back(), (TrackedEvent{"Scan Results", "Auto Select", c.label, 1}));
}

INSTANTIATE_TEST_SUITE_P(All, ResultsCategories,
                         testing::Values(CategoryCase{0,
                                                      {"dir", "pack.zip", "film.mp4", "song.mp3", "pic2.jpg",
                                                       "pic.jpg", "doc.txt", "other.bin"},
                                                      "All"},
                                         CategoryCase{1, {"other.bin"}, "Auto Select Other"},
                                         CategoryCase{2, {"doc.txt"}, "Auto Select Documents"},
                                         CategoryCase{3, {"pic2.jpg", "pic.jpg"}, "Auto Select Pictures"},
                                         CategoryCase{4, {"song.mp3"}, "Auto Select Music"},
                                         CategoryCase{5, {"film.mp4"}, "Auto Select Movies"},
                                         CategoryCase{6, {"pack.zip"}, "Auto Select Archives"},
                                         CategoryCase{7, {"dir"}, "Auto Select Folders"}),
                         [](const auto& param) { return "Category" + std::to_string(param.param.id); });

TEST(ResultsView, AutoSelectOfACategoryTouchesOnlyItsGroupsAndAutoSelectAllEveryGroup) {
    ResultsFixture f;
    auto picture = f.group("shot.jpg", kNodeTypeImage, {"a", "b"}, "pixels");
    auto pictureCopy = f.group("shot copy.jpg", kNodeTypeImage, {"c"}, "pixels");
    (void)pictureCopy;
    auto song = f.group("tune.mp3", kNodeTypeAudio, {"a", "b"}, "notes");
    f.results->removeGroup(pictureCopy);
    picture->addFile(scannedNode(f.tree / "files/c/shot copy.jpg"));
    song->addFile(scannedNode(f.tree.file("files/c/tune copy.mp3", "notes")));
    f.open();

    f.view().setSelectedMetaGroupAction(f.rowOfCategory(kMetaGroupPictures));
    f.view().autoselectAction();
    EXPECT_EQ(ResultsFixture::marks(picture), (std::vector<bool>{false, false, true}));
    EXPECT_EQ(ResultsFixture::marks(song), (std::vector<bool>{false, false, false}));
    EXPECT_EQ(f.collector().count(), 1u);

    f.view().autoselectAllAction();
    EXPECT_EQ(ResultsFixture::marks(song), (std::vector<bool>{false, false, true}));
    EXPECT_EQ(f.tracker.events().back(), (TrackedEvent{"Scan Results", "Auto Select", "All", 1}));
    EXPECT_EQ(f.collector().count(), 2u);
}

TEST(ResultsView, TheGroupsSelectedShowTheirFilesOnlyWhenOneIsSelected) {
    EveryCategory f;
    f.view().setSelectedGroupRows({1});
    ASSERT_EQ(f.face().files.size(), 2u);
    EXPECT_EQ(f.face().files[0]->parentGroup(), f.face().groups[1].get());
    f.view().setSelectedGroupRows({0, 1});
    EXPECT_TRUE(f.face().files.empty());
    f.view().setSelectedGroupRows({});
    EXPECT_TRUE(f.face().files.empty());
}

// ---- Search -----------------------------------------------------------------------------------

TEST(ResultsView, TheSearchFiltersTheGroupsAndKeepsTheCategoryByItsIdentifier) {
    EveryCategory f;
    f.view().setSelectedMetaGroupAction(f.rowOfCategory(kMetaGroupPictures));
    ASSERT_EQ(f.face().groups.size(), 2u);

    // Only pictures match: the category list shrinks to "all" and Pictures, and Pictures
    // stays selected at its new row.
    f.view().setSearchFieldPredicateString("title contains[c] 'PIC2'");
    EXPECT_EQ(f.results->filterPredicate(), "title contains[c] 'PIC2'");
    ASSERT_EQ(f.face().categories.size(), 2u);
    ASSERT_TRUE(f.face().categoryRow.has_value());
    EXPECT_EQ(f.face().categories[*f.face().categoryRow]->groupID(), kMetaGroupPictures);
    EXPECT_EQ(ResultsFixture::names(f.face().groups), (std::vector<std::string>{"pic2.jpg"}));

    // A search that leaves no picture: "all" takes the category's place.
    f.view().setSearchFieldPredicateString("title contains[c] 'song'");
    EXPECT_EQ(f.view().selectedMetaGroupID(), kMetaGroupAll);
    EXPECT_EQ(ResultsFixture::names(f.face().groups), (std::vector<std::string>{"song.mp3"}));

    // The empty string is no filter.
    f.view().setSearchFieldPredicateString("");
    EXPECT_EQ(f.results->filterPredicate(), "");
    EXPECT_EQ(f.face().groups.size(), 8u);
}

// ---- Diagram ---------------------------------------------------------------------------------

TEST(ResultsView, TheDiagramIsShownByDefaultAndItsToggleIsStoredAtOnce) {
    ResultsFixture f;
    f.open();
    EXPECT_TRUE(f.face().diagramShown);
    EXPECT_EQ(f.face().diagramToolTip, localized("ButtonToolTip_HideDiagram", "Buttons"));

    f.view().toggleDiagramAction();
    EXPECT_FALSE(f.face().diagramShown);
    EXPECT_EQ(f.face().diagramToolTip, localized("ButtonToolTip_ShowDiagram", "Buttons"));
    EXPECT_EQ(f.tracker.events().back(), (TrackedEvent{"Scan Results", "Hide Diagram", "", 1}));
    // Synchronised: another store on the same file reads it.
    UserDefaults reread(f.scan.settings / "settings.plist");
    EXPECT_EQ(reread.objectForKey(kShowDiagramKey), PropertyValue(false));

    f.view().toggleDiagramAction();
    EXPECT_TRUE(f.face().diagramShown);
    EXPECT_EQ(f.tracker.events().back(), (TrackedEvent{"Scan Results", "Unhide Diagram", "", 1}));

    // A new results view restores the stored choice.
    f.scan.defaults.setBool(false, kShowDiagramKey);
    f.open();
    EXPECT_FALSE(f.face().diagramShown);
}

// ---- Folder-level selection, keep oldest / newest ---------------------------------------------

struct FolderLevelCase {
    std::int64_t segment;
    std::string label;
    std::vector<bool> marks; // of the copies with mtimes 300, 100, 200
};

class ResultsFolderLevel : public testing::TestWithParam<FolderLevelCase> {};

TEST_P(ResultsFolderLevel, RunsItsSelectorOnTheSelectedGroupsAndReportsItsLabel) {
    const auto& c = GetParam();
    ResultsFixture f;
    auto chosen = f.group("a.doc", kNodeTypeDocument, {"x", "y", "z"}, "one", {300, 100, 200});
    auto other = f.group("b.doc", kNodeTypeDocument, {"x", "y", "z"}, "two!", {300, 100, 200});
    f.open();
    const auto& shown = f.face().groups;
    const std::size_t row = shown[0] == chosen ? 0 : 1;
    f.view().setSelectedGroupRows({row});

    f.view().manualSelectionAction(c.segment);
    EXPECT_EQ(f.tracker.events().back(), (TrackedEvent{"Scan Results", "Auto Select", c.label, 1}));
    EXPECT_EQ(ResultsFixture::marks(chosen), c.marks);
    EXPECT_EQ(ResultsFixture::marks(other), (std::vector<bool>{false, false, false}));
    std::size_t marked = 0;
    for (const bool m : c.marks)
        marked += m;
    EXPECT_EQ(f.collector().count(), marked);
}

INSTANTIATE_TEST_SUITE_P(
    Segments, ResultsFolderLevel,
    testing::Values(FolderLevelCase{kFolderLevelNewest, "Folder Level \u2013 Newest", {false, true, true}},
                    FolderLevelCase{kFolderLevelOldest, "Folder Level \u2013 Oldest", {true, false, true}},
                    FolderLevelCase{kFolderLevelAny, "Folder Level \u2013 Any ", {false, true, true}}),
    [](const auto& param) { return "Segment" + std::to_string(param.param.segment); });

TEST(ResultsView, FolderLevelAutoSelectsTheCopyNamesAndUsesEveryShownGroupWithoutASelection) {
    ResultsFixture f;
    auto first = f.group("report.doc", kNodeTypeDocument, {"x"}, "same");
    first->addFile(scannedNode(f.tree.file("files/y/report copy.doc", "same")));
    auto second = f.group("plan.doc", kNodeTypeDocument, {"x"}, "other");
    second->addFile(scannedNode(f.tree.file("files/y/plan copy.doc", "other")));
    f.open();
    f.view().manualSelectionAction(kFolderLevelAuto);
    EXPECT_EQ(f.tracker.events().back(),
              (TrackedEvent{"Scan Results", "Auto Select", "Folder Level \u2013 Auto", 1}));
    EXPECT_EQ(ResultsFixture::marks(first), (std::vector<bool>{false, true}));
    EXPECT_EQ(ResultsFixture::marks(second), (std::vector<bool>{false, true}));
}

TEST(ResultsView, KeepOldestAndKeepNewestWorkOnEveryShownGroup) {
    ResultsFixture f;
    auto a = f.group("a.doc", kNodeTypeDocument, {"x", "y"}, "one", {100, 200});
    auto b = f.group("b.doc", kNodeTypeDocument, {"x", "y"}, "two!", {200, 100});
    f.open();
    f.view().keepOldestFilesAction();
    EXPECT_EQ(ResultsFixture::marks(a), (std::vector<bool>{false, true}));
    EXPECT_EQ(ResultsFixture::marks(b), (std::vector<bool>{true, false}));
    f.view().deselectAllAction();
    f.view().keepMostRecentFilesAction();
    EXPECT_EQ(ResultsFixture::marks(a), (std::vector<bool>{true, false}));
    EXPECT_EQ(ResultsFixture::marks(b), (std::vector<bool>{false, true}));
    EXPECT_EQ(f.collector().count(), 2u);
}

// ---- Deselection ------------------------------------------------------------------------------

enum class Deselect { FromMenu, All, FromList };

struct DeselectCase {
    Deselect how;
    // Marks left in the pictures group (selected row) and the music group (other category).
    bool pictureMarked;
    bool songMarked;
    std::optional<TrackedEvent> event;
};

std::string deselectName(Deselect how) {
    return how == Deselect::FromMenu ? "FromMenu" : how == Deselect::All ? "All" : "FromList";
}

class ResultsDeselect : public testing::TestWithParam<DeselectCase> {};

TEST_P(ResultsDeselect, UnmarksItsGroups) {
    const auto& c = GetParam();
    ResultsFixture f;
    auto picture = f.group("p.jpg", kNodeTypeImage, {"x", "y"}, "pix");
    auto picture2 = f.group("q.jpg", kNodeTypeImage, {"x", "y"}, "pix2");
    auto song = f.group("s.mp3", kNodeTypeAudio, {"x", "y"}, "song");
    f.open();
    for (const auto& g : {picture, picture2, song})
        f.view().selectAllButFileAction(g->files()[0]);
    ASSERT_EQ(f.collector().count(), 3u);
    f.view().setSelectedMetaGroupAction(f.rowOfCategory(kMetaGroupPictures));
    const std::size_t row = f.face().groups[0] == picture ? 0 : 1;
    f.view().setSelectedGroupRows({row});
    f.tracker.clear();

    switch (c.how) {
    case Deselect::FromMenu:
        f.view().deselectFromMenuAction();
        break;
    case Deselect::All:
        f.view().deselectAllAction();
        break;
    case Deselect::FromList:
        f.view().deselectGroupsFromListAction();
        break;
    }
    EXPECT_EQ(picture->files()[1]->needToRemove(), c.pictureMarked);
    EXPECT_EQ(song->files()[1]->needToRemove(), c.songMarked);
    // The other picture group: only the list variant spares it.
    EXPECT_EQ(picture2->files()[1]->needToRemove(), c.how == Deselect::FromList);
    if (c.event) {
        ASSERT_EQ(f.tracker.events().size(), 1u);
        EXPECT_EQ(f.tracker.events()[0], *c.event);
    } else {
        EXPECT_TRUE(f.tracker.events().empty());
    }
    EXPECT_EQ(f.collector().count(), std::size_t{c.songMarked} + (c.how == Deselect::FromList));
}

INSTANTIATE_TEST_SUITE_P(Variants, ResultsDeselect,
                         testing::Values(DeselectCase{Deselect::FromMenu, false, true, std::nullopt},
                                         DeselectCase{Deselect::All, false, false, std::nullopt},
                                         DeselectCase{Deselect::FromList, false, true,
                                                      TrackedEvent{"Scan Results", "Remove Selection",
                                                                   "Folder Level", 1}}),
                         [](const auto& param) { return deselectName(param.param.how); });

// ---- One file ---------------------------------------------------------------------------------

TEST(ResultsView, TogglingAFileMarksAndUnmarksItAndSelectAllButThisOneKeepsIt) {
    ResultsFixture f;
    auto g = f.group("a.txt", kNodeTypeDocument, {"x", "y", "z"}, "text");
    f.open();
    const auto files = g->files();
    // Each toggle refreshes the rows shown (the group's Selected column).
    const int refreshes = f.face().refreshes;
    f.view().switchFileSelectionAction(files[1]);
    EXPECT_EQ(ResultsFixture::marks(g), (std::vector<bool>{false, true, false}));
    EXPECT_EQ(f.collector().count(), 1u);
    EXPECT_EQ(f.collector().size(), files[1]->sizeOnDisk());
    EXPECT_EQ(f.face().refreshes, refreshes + 1);
    f.view().switchFileSelectionAction(files[1]);
    EXPECT_EQ(ResultsFixture::marks(g), (std::vector<bool>{false, false, false}));
    EXPECT_EQ(f.collector().count(), 0u);
    EXPECT_EQ(f.face().refreshes, refreshes + 2);

    f.view().selectAllButFileAction(files[2]);
    EXPECT_EQ(ResultsFixture::marks(g), (std::vector<bool>{true, true, false}));
    EXPECT_EQ(f.collector().count(), 2u);
    EXPECT_TRUE(f.face().alerts.empty());
}

TEST(ResultsView, AFileTheIgnoreListProtectsCannotBeMarkedByHand) {
    ResultsFixture f;
    auto g = f.group("a.txt", kNodeTypeDocument, {"x", "y", "z"}, "text");
    f.open();
    g->files()[1]->setRemoveForbidden(true);
    f.view().switchFileSelectionAction(g->files()[1]);
    EXPECT_EQ(ResultsFixture::marks(g), (std::vector<bool>{false, false, false}));
    EXPECT_EQ(f.collector().count(), 0u);
}

// ---- The all-copies warning --------------------------------------------------------------------

struct WarningCase {
    std::string name;
    bool dontWarnStored;
    AlertChoice choice;
    bool suppressed;
    bool alertShown;
    bool marked;
    bool dontWarnAfter;
};

class ResultsAllCopiesWarning : public testing::TestWithParam<WarningCase> {};

TEST_P(ResultsAllCopiesWarning, AsksAndStoresTheSuppressionOnlyOnSelectForRemoval) {
    const auto& c = GetParam();
    ResultsFixture f;
    auto g = f.group("only.txt", kNodeTypeDocument, {"x", "y"}, "text");
    f.open();
    if (c.dontWarnStored)
        f.scan.defaults.setBool(true, kDontWarnAllFilesSelectionKey);
    f.face().alertReply = {c.choice, c.suppressed};
    const auto files = g->files();
    f.view().switchFileSelectionAction(files[0]);
    ASSERT_TRUE(files[0]->needToRemove());

    f.view().switchFileSelectionAction(files[1]);
    ASSERT_EQ(f.face().alerts.size(), c.alertShown ? 1u : 0u);
    if (c.alertShown) {
        const auto& alert = f.face().alerts[0];
        EXPECT_EQ(alert.message, formatf(localized("AlertMessageText_SelectAllCopiesQuestion"), g->name()));
        EXPECT_EQ(alert.defaultButton, localized("ButtonTitle_SelectForRemoval", "Buttons"));
        EXPECT_EQ(alert.alternateButton, localized("ButtonTitle_Keep", "Buttons"));
        EXPECT_EQ(alert.suppressionTitle, localized("AlertMessageText_SelectAllCopiesDontWarn"));
    }
    EXPECT_EQ(files[1]->needToRemove(), c.marked);
    EXPECT_EQ(g->userForcedAllCopies(), c.marked);
    EXPECT_EQ(f.scan.defaults.boolForKey(kDontWarnAllFilesSelectionKey), c.dontWarnAfter);
    EXPECT_EQ(f.collector().count(), c.marked ? 2u : 1u);
}

INSTANTIATE_TEST_SUITE_P(
    Answers, ResultsAllCopiesWarning,
    testing::Values(WarningCase{"Select", false, AlertChoice::Default, false, true, true, false},
                    WarningCase{"SelectAndDontWarn", false, AlertChoice::Default, true, true, true, true},
                    WarningCase{"Keep", false, AlertChoice::Alternate, false, true, false, false},
                    WarningCase{"KeepWithTheBoxTicked", false, AlertChoice::Alternate, true, true, false,
                                false},
                    WarningCase{"SuppressedEarlier", true, AlertChoice::Alternate, false, false, true, true}),
    [](const auto& param) { return param.param.name; });

// ---- Sorting ---------------------------------------------------------------------------------

struct SortCase {
    std::int64_t type;
    bool ascending;
    std::vector<std::string> order;
    std::string label;
};

class ResultsSorting : public testing::TestWithParam<SortCase> {};

TEST_P(ResultsSorting, OrdersTheGroupsStoresTheChoiceAndReportsIt) {
    const auto& c = GetParam();
    ResultsFixture f;
    // Names, types and paths sort apart from their plain byte order: "a" < "B" < "C" ignoring case.
    // Sizes on disk: C 2 x 52 KB, a 3 x 4 KB, B 2 x 4 KB; common folders Alpha, beta, Zeta.
    auto b = f.group("B.txt", kNodeTypeDocument, {"Zeta/1", "Zeta/2"}, std::string(300, 'b'));
    auto a = f.group("a.txt", kNodeTypeDocument, {"beta/1", "beta/2", "beta/3"}, std::string(100, 'a'));
    auto cc = f.group("C.txt", kNodeTypeDocument, {"Alpha/1", "Alpha/2"}, std::string(50000, 'c'));
    f.open();
    f.selecting->selectAllButItem(a->files()[0], a);
    f.selecting->selectAllButItem(cc->files()[0], cc);
    f.tracker.clear();

    f.view().sortAction(c.type, c.ascending);
    EXPECT_EQ(ResultsFixture::names(f.face().groups), c.order);
    EXPECT_EQ(f.face().sortType, c.type);
    EXPECT_EQ(f.scan.defaults.integerForKey(kSortingTypeKey), c.type);
    EXPECT_EQ(f.scan.defaults.boolForKey(kSortingDirectionKey), c.ascending);
    if (c.type == 0 && !c.ascending) {
        // The stored sort already: nothing is redone or reported.
        EXPECT_TRUE(f.tracker.events().empty());
    } else {
        ASSERT_EQ(f.tracker.events().size(), 1u);
        EXPECT_EQ(f.tracker.events()[0], (TrackedEvent{"Scan Results", "Sort By", c.label, 1}));
    }
}

INSTANTIATE_TEST_SUITE_P(Keys, ResultsSorting,
                         testing::Values(SortCase{0, false, {"C.txt", "a.txt", "B.txt"}, "Size"},
                                         SortCase{0, true, {"B.txt", "a.txt", "C.txt"}, "Size"},
                                         SortCase{1, true, {"B.txt", "a.txt", "C.txt"}, "Type"},
                                         SortCase{2, true, {"a.txt", "B.txt", "C.txt"}, "Name"},
                                         SortCase{2, false, {"C.txt", "B.txt", "a.txt"}, "Name"},
                                         SortCase{3, false, {"a.txt", "B.txt", "C.txt"}, "Count"},
                                         SortCase{4, false, {"a.txt", "C.txt", "B.txt"}, "Selected"},
                                         SortCase{5, true, {"C.txt", "a.txt", "B.txt"}, "Path"}),
                         [](const auto& param) {
                             return "Type" + std::to_string(param.param.type) +
                                    (param.param.ascending ? "Ascending" : "Descending");
                         });

TEST(ResultsView, TheStoredSortIsRestoredAndASortAlikeIsRedoneOnlyWhenForced) {
    ResultsFixture f;
    f.pair("b.txt", kNodeTypeDocument, 10);
    f.pair("a.txt", kNodeTypeDocument, 20);
    f.scan.preferences.setSortKey(kSortByName);
    f.scan.preferences.setSortDirection(true);
    f.open();
    EXPECT_EQ(f.face().sortType, kSortByName);
    EXPECT_EQ(ResultsFixture::names(f.face().groups), (std::vector<std::string>{"a.txt", "b.txt"}));
    f.view().sortAction(kSortByName, true);
    EXPECT_TRUE(f.tracker.events().empty());
    f.view().sortAction(kSortByName, true, true);
    EXPECT_EQ(f.tracker.events().size(), 1u);
}

// ---- Select All Duplicates in... -----------------------------------------------------------

TEST(ResultsView, SelectAllDuplicatesInMarksTheCopiesInsideTheChosenFolder) {
    ResultsFixture f;
    auto a = f.group("a.txt", kNodeTypeDocument, {"keep", "old"}, "one");
    auto b = f.group("b.txt", kNodeTypeDocument, {"old", "keep"}, "two!");
    f.open();
    f.view().openPathToCollectFiles();
    EXPECT_EQ(f.face().openPanelPrompt, localized("ButtonTitle_Select", "Buttons"));
    ASSERT_TRUE(f.face().openPanelCompletion);
    f.face().openPanelCompletion(std::nullopt);
    EXPECT_EQ(f.collector().count(), 0u);
    EXPECT_FALSE(f.view().currentPathComponent().has_value());

    f.view().openPathToCollectFiles();
    f.face().openPanelCompletion(f.tree / "files/old");
    ASSERT_TRUE(f.view().currentPathComponent().has_value());
    EXPECT_EQ(f.view().currentPathComponent()->source, f.tree / "files/old");
    EXPECT_EQ(ResultsFixture::marks(a), (std::vector<bool>{false, true}));
    EXPECT_EQ(ResultsFixture::marks(b), (std::vector<bool>{true, false}));
    EXPECT_EQ(f.collector().count(), 2u);
}

// ---- Exclusion --------------------------------------------------------------------------------

struct IgnoreCase {
    std::string name;
    NodeType type;
    std::size_t copies;
    bool toFileList;
    bool groupLeaves;
};

class ResultsAddToIgnoreList : public testing::TestWithParam<IgnoreCase> {};

TEST_P(ResultsAddToIgnoreList, ExcludesTheItemUnmarksItAndDropsItOrItsGroup) {
    const auto& c = GetParam();
    ResultsFixture f;
    std::vector<std::string> folders;
    for (std::size_t i = 0; i < c.copies; ++i)
        folders.push_back("f" + std::to_string(i));
    auto g = f.group("item", c.type, folders, "content");
    auto other = f.pair("other.txt", kNodeTypeDocument);
    f.open();
    const auto item = g->files()[1];
    f.view().switchFileSelectionAction(item);
    ASSERT_EQ(f.collector().count(), 1u);
    const auto filesBefore = f.scan.ignoreList.excludeFilesList().size();
    const auto pathsBefore = f.scan.ignoreList.excludePathsList().size();
    int posted = 0;
    ScopedObserver observer(f.center, f.center.addObserver(kItemsAddedToIgnoreListNotification, nullptr,
                                                           [&](const Notification&) { ++posted; }));

    f.view().addToIgnoreListAction(item);
    EXPECT_EQ(posted, 1);
    const auto& list =
        c.toFileList ? f.scan.ignoreList.excludeFilesList() : f.scan.ignoreList.excludePathsList();
    ASSERT_EQ(list.size(), (c.toFileList ? filesBefore : pathsBefore) + 1);
    EXPECT_EQ(list.back()[kRecordValueKey].toString(), item->path());
    EXPECT_EQ(list.back()[kRecordEnabledKey], PropertyValue(true));
    EXPECT_EQ(
        (c.toFileList ? f.scan.ignoreList.excludePathsList() : f.scan.ignoreList.excludeFilesList()).size(),
        c.toFileList ? pathsBefore : filesBefore);
    EXPECT_FALSE(item->needToRemove());
    EXPECT_EQ(f.collector().count(), 0u);
    EXPECT_EQ(f.results->fileAtPath(item->path()), nullptr);
    const auto groups = f.results->allDuplicatesGroups();
    EXPECT_EQ(std::find(groups.begin(), groups.end(), g) != groups.end(), !c.groupLeaves);
    EXPECT_NE(std::find(groups.begin(), groups.end(), other), groups.end());
    EXPECT_EQ(f.face().groups.size(), groups.size());
    // The item itself is untouched on the disk.
    EXPECT_TRUE(test::exists(item->path()));
    // The exclusion is in the settings file at once, not only when the program quits.
    UserDefaults reread(f.scan.defaults.path());
    const PropertyValue stored = reread.objectForKey(kIgnoreListKey);
    const PropertyValue& saved = stored[c.toFileList ? kFilePathesKey : kDirectoriesKey];
    ASSERT_TRUE(saved.asArray() && !saved.asArray()->empty());
    EXPECT_EQ(saved.asArray()->back()[kRecordValueKey].toString(), item->path());
}

// Excluding the copy kept of a pair takes the marked one out of the results with it: it
// no longer counts among the copies to remove.
TEST(ResultsView, ExcludingTheKeptCopyOfAPairUnmarksTheOther) {
    ResultsFixture f;
    auto g = f.group("pair.txt", kNodeTypeDocument, {"x", "y"}, "content");
    f.open();
    f.view().switchFileSelectionAction(g->files()[0]);
    ASSERT_EQ(f.collector().count(), 1u);
    f.view().addToIgnoreListAction(g->files()[1]);
    EXPECT_EQ(f.collector().count(), 0u);
    EXPECT_EQ(f.collector().size(), 0u);
    EXPECT_FALSE(g->files()[0]->needToRemove());
    EXPECT_TRUE(f.results->allDuplicatesGroups().empty());
}

// Excluding the one copy kept of three leaves one of the other two kept in its place.
TEST(ResultsView, ExcludingTheOnlyKeptCopyKeepsAnother) {
    ResultsFixture f;
    auto g = f.group("three.txt", kNodeTypeDocument, {"x", "y", "z"}, "content");
    f.open();
    f.view().switchFileSelectionAction(g->files()[1]);
    f.view().switchFileSelectionAction(g->files()[2]);
    ASSERT_EQ(f.collector().count(), 2u);
    const auto kept = g->files()[0];
    f.view().addToIgnoreListAction(kept);
    ASSERT_EQ(g->childrenCount(), 2u);
    EXPECT_EQ(ResultsFixture::marks(g), (std::vector<bool>{false, true}));
    EXPECT_EQ(f.collector().count(), 1u);
}

INSTANTIATE_TEST_SUITE_P(Items, ResultsAddToIgnoreList,
                         testing::Values(IgnoreCase{"FileOfTwo", kNodeTypeDocument, 2, true, true},
                                         IgnoreCase{"FileOfThree", kNodeTypeDocument, 3, true, false},
                                         IgnoreCase{"Folder", kNodeTypePlainFolder, 3, false, false},
                                         IgnoreCase{"PhotoLibrary", kNodeTypeCurrentIPhotoLibrary, 2, true,
                                                    true}),
                         [](const auto& param) { return param.param.name; });

// ---- Desktop ---------------------------------------------------------------------------------

TEST(ResultsView, RevealShowsTheClickedOrSelectedFilesInTheFileManager) {
    ResultsFixture f;
    auto g = f.group("a.txt", kNodeTypeDocument, {"x", "y", "z"}, "text");
    f.open();
    f.view().revealInFinderAction(g->files()[2]);
    f.view().setSelectedGroupRows({0});
    f.view().revealInFinderFromMenuAction();
    f.view().setSelectedFileRows({0, 1});
    f.view().revealInFinderFromMenuAction();
    EXPECT_EQ(f.reveal.revealed,
              (std::vector<std::vector<std::string>>{{g->files()[2]->path()},
                                                     {g->files()[0]->path(), g->files()[1]->path()}}));
}

TEST(ResultsView, RevealInIPhotoScriptsOnlyPhotosOfAPhotoLibraryAndLogsAFailure) {
    ResultsFixture f;
    auto g = f.pair("a.jpg", kNodeTypeImage);
    f.open();
    const auto photo = g->files()[0];
    f.view().revealIniPhotoFromMenuAction(photo);
    EXPECT_TRUE(f.driver.scripts.empty()) << "not in a photo library";

    auto library = std::make_shared<CVFolder>(f.tree / "files/a", "a");
    library->setType(kNodeTypeCurrentIPhotoLibrary);
    photo->setRootFolder(library);
    f.view().revealIniPhotoFromMenuAction(photo);
    ASSERT_EQ(f.driver.scripts.size(), 1u);
    EXPECT_EQ(f.driver.scripts[0], CVResultsViewController::iPhotoRevealScript(photo->path()));
    EXPECT_NE(f.driver.scripts[0].find("with timeout of 15 seconds"), std::string::npos);
    EXPECT_NE(f.driver.scripts[0].find("tell application id \"com.apple.iPhoto\""), std::string::npos);
    EXPECT_NE(f.driver.scripts[0].find("image path is equal to \"" + photo->path() + "\""),
              std::string::npos);

    f.driver.scriptError = PropertyValue::Dictionary{{"NSAppleScriptErrorMessage", "no script runner"}};
    ScopedLogCapture log;
    f.view().revealIniPhotoFromMenuAction(photo);
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.lines()[0].rfind("Error while revealing in iPhoto: ", 0), 0u);
    EXPECT_TRUE(log.contains("no script runner"));
}

struct OpenWithCase {
    std::string name;
    std::optional<ApplicationInfo> defaultApp;
    std::vector<ApplicationInfo> others;
    std::vector<std::string> titles; // "-" for a separator
    std::vector<bool> enabled;
};

class ResultsOpenWithMenu : public testing::TestWithParam<OpenWithCase> {};

TEST_P(ResultsOpenWithMenu, ListsTheDefaultTheOthersOrNoneAndOther) {
    const auto& c = GetParam();
    ResultsFixture f;
    auto g = f.pair("a.txt", kNodeTypeDocument);
    f.open();
    f.applications.defaultApp = c.defaultApp;
    f.applications.others = c.others;
    const auto items = f.view().openWithMenu(g->files()[0]);
    std::vector<std::string> titles;
    std::vector<bool> enabled;
    for (const auto& item : items) {
        titles.push_back(item.kind == OpenWithMenuItem::Kind::Separator ? "-" : item.title);
        if (item.kind != OpenWithMenuItem::Kind::Separator)
            enabled.push_back(item.enabled);
    }
    std::vector<std::string> expected;
    for (const auto& t : c.titles)
        expected.push_back(t.rfind("key:", 0) == 0 ? localized(t.substr(4)) : t);
    expected[0] = c.defaultApp ? formatf(localized("MenuItemTitle_DefaultApp"), c.defaultApp->name) +
                                     (c.defaultApp->version.empty() ? "" : " (" + c.defaultApp->version + ")")
                               : expected[0];
    EXPECT_EQ(titles, expected);
    EXPECT_EQ(enabled, c.enabled);

    f.view().openWithApplicationSelected(g->files()[0], "org.example.editor.desktop");
    f.view().openWithApplicationOtherSelected(g->files()[0]);
    f.view().openMenuAction(g->files()[0]);
    EXPECT_EQ(f.applications.opened,
              (std::vector<std::pair<std::string, std::string>>{
                  {g->files()[0]->path(), "org.example.editor.desktop"}, {g->files()[0]->path(), ""}}));
    EXPECT_EQ(f.applications.chosen, std::vector<std::string>{g->files()[0]->path()});
}

INSTANTIATE_TEST_SUITE_P(
    Catalogs, ResultsOpenWithMenu,
    testing::Values(OpenWithCase{"DefaultAndOthers",
                                 ApplicationInfo{"org.example.editor.desktop", "Editor", "3.1"},
                                 {{"org.example.editor.desktop", "Editor", "3.1"},
                                  {"org.example.viewer.desktop", "Viewer", ""}},
                                 {"", "-", "Viewer", "-", "key:MenuItemTitle_Other"},
                                 {true, true, true}},
                    OpenWithCase{"DefaultOnly",
                                 ApplicationInfo{"org.example.editor.desktop", "Editor", ""},
                                 {},
                                 {"", "-", "key:MenuItemTitle_None", "-", "key:MenuItemTitle_Other"},
                                 {true, false, true}},
                    OpenWithCase{"Nothing",
                                 std::nullopt,
                                 {},
                                 {"key:MenuItemTitle_None", "-", "key:MenuItemTitle_Other"},
                                 {false, true}}),
    [](const auto& param) { return param.param.name; });

TEST(ResultsView, QuickLookPreviewsTheSelectedFilesOrTheCollectorsAndLogsAFailure) {
    ResultsFixture f;
    auto g = f.group("a.txt", kNodeTypeDocument, {"x", "y", "z"}, "text");
    f.open();
    f.view().setSelectedGroupRows({0});
    f.view().setSelectedFileRows({1});
    f.view().showQuickLook();
    ASSERT_EQ(f.preview.shown.size(), 1u);
    EXPECT_EQ(f.preview.shown[0], std::vector<std::string>{g->files()[1]->path()});

    f.preview.fail = true;
    ScopedLogCapture log;
    f.view().showQuickLook();
    EXPECT_EQ(log.lines(), std::vector<std::string>{"Preview panel crashed = no preview"});
    f.preview.fail = false;

    f.view().switchFileSelectionAction(g->files()[2]);
    f.collector().showHideCollector();
    f.collector().setSelectedFiles({g->files()[2]});
    f.view().showQuickLook();
    ASSERT_EQ(f.preview.shown.size(), 3u);
    EXPECT_EQ(f.preview.shown[2], std::vector<std::string>{g->files()[2]->path()});
}

// ---- Table-selection notifications --------------------------------------------------------------

struct TableCase {
    const char* notification;
    ResultsTable table;
};

std::string tableName(ResultsTable table) {
    return table == ResultsTable::Categories ? "Categories"
           : table == ResultsTable::Groups   ? "Groups"
                                             : "Files";
}

class ResultsTableNotifications : public testing::TestWithParam<TableCase> {};

TEST_P(ResultsTableNotifications, MakeTheTableFirstAndSelectItsFirstRowWhenNoneIs) {
    const auto& c = GetParam();
    EveryCategory f;
    if (c.table == ResultsTable::Files)
        f.view().setSelectedGroupRows({2});
    // Posted from another thread: the work waits for the main queue.
    std::thread([&] { f.center.post(c.notification); }).join();
    EXPECT_FALSE(f.face().firstResponder.has_value());
    MainQueue::shared().drain();
    EXPECT_EQ(f.face().firstResponder, c.table);
    switch (c.table) {
    case ResultsTable::Categories:
        EXPECT_EQ(f.face().categoryRow, std::optional<std::size_t>(0));
        break;
    case ResultsTable::Groups:
        EXPECT_EQ(f.face().groupRows, std::vector<std::size_t>{0});
        EXPECT_EQ(f.face().files.size(), 2u);
        break;
    case ResultsTable::Files:
        EXPECT_EQ(f.face().fileRows, std::vector<std::size_t>{0});
        break;
    }
    // A table with a selection keeps it.
    if (c.table == ResultsTable::Groups) {
        f.view().setSelectedGroupRows({3});
        f.center.post(c.notification);
        EXPECT_EQ(f.view().selectedGroupRows(), std::vector<std::size_t>{3});
    }
}

INSTANTIATE_TEST_SUITE_P(Tables, ResultsTableNotifications,
                         testing::Values(TableCase{kSelectCatsTableNotification, ResultsTable::Categories},
                                         TableCase{kSelectGroupsTableNotification, ResultsTable::Groups},
                                         TableCase{kSelectFilesTableNotification, ResultsTable::Files}),
                         [](const auto& param) { return tableName(param.param.table); });

// ---- Files removed behind the program's back ---------------------------------------------------

TEST(ResultsView, CollectorDidUpdateRemovedFilesMarksTheShownFilesGoneFromTheDisk) {
    ResultsFixture f;
    auto g = f.group("a.txt", kNodeTypeDocument, {"x", "y", "z"}, "text");
    auto other = f.group("b.txt", kNodeTypeDocument, {"x", "y"}, "more");
    f.open();
    const std::size_t row = f.face().groups[0] == g ? 0 : 1;
    f.view().setSelectedGroupRows({row});
    ASSERT_EQ(::unlink(g->files()[1]->path().c_str()), 0);
    ASSERT_EQ(::unlink(other->files()[0]->path().c_str()), 0);

    f.center.post(kCollectorDidUpdateRemovedFilesNotification);
    EXPECT_EQ(g->files()[1]->wasRemovedOutside(), true);
    EXPECT_FALSE(g->files()[0]->wasRemovedOutside());
    EXPECT_FALSE(g->files()[2]->wasRemovedOutside());
    // Not shown: not checked.
    EXPECT_FALSE(other->files()[0]->wasRemovedOutside());
    // A file gone from the disk can no longer be marked.
    f.view().switchFileSelectionAction(g->files()[1]);
    EXPECT_FALSE(g->files()[1]->needToRemove());
}

// ---- Export ------------------------------------------------------------------------------------

TEST(ResultsView, ExportWritesTheSelectedCopiesAndACancelledPanelStillClosesIt) {
    ResultsFixture f;
    auto g = f.pair("a.txt", kNodeTypeDocument);
    f.open();
    f.view().selectAllButFileAction(g->files()[0]);
    int closed = 0;
    ScopedObserver observer(f.center, f.center.addObserver("CVExportPanelDidClose", nullptr,
                                                           [&](const Notification&) { ++closed; }));
    f.view().exportSelectedDupes();
    ASSERT_TRUE(f.face().savePanelCompletion);
    f.face().savePanelCompletion(std::nullopt);
    EXPECT_EQ(closed, 1);
    const std::string target = f.tree / "list.txt";
    f.view().exportSelectedDupes();
    f.face().savePanelCompletion(target);
    EXPECT_TRUE(test::exists(target));
    EXPECT_TRUE(f.face().errors.empty());
}

} // namespace
} // namespace corvel
