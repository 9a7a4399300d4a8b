#include <algorithm>
#include <gtest/gtest.h>
#include <limits>

#include "engine/folder.h"
#include "engine/group.h"
#include "engine/node_type.h"
#include "media/media_library.h"
#include "platform/user_defaults.h"
#include "selection/autoselector.h"
#include "support/temp_tree.h"

namespace corvel {
namespace {

SelectionItem item(const std::string& path, std::int64_t mtime = 100) {
    auto f = std::make_shared<CVFile>(path, "", 100);
    f->setStatMTime(mtime);
    return f;
}

std::vector<bool> selected(const SelectionItems& items) {
    std::vector<bool> out;
    for (const auto& i : items)
        out.push_back(i->needToRemove());
    return out;
}

class Autoselection : public testing::Test {
protected:
    void SetUp() override {
        // No lists but those a test writes.
        defaults.setBool(true, kAutoSelectDefaultSetKey);
        defaults.setBool(true, kAutoselectMailDownloadsSetKey);
    }
    void lists(const std::vector<CVAutoselectListItem>& entries) {
        CVAutoselectLists(defaults).setAutoselectList(entries);
    }
    // The items as members of one group, so the group's type is known.
    SelectionItems group(SelectionItems items) {
        m_group = CVGroup::initWithCVFile(items.front());
        for (std::size_t i = 1; i < items.size(); ++i)
            m_group->addFile(items[i]);
        return items;
    }
    test::TempTree tree;
    UserDefaults defaults{tree / "d.plist"};
    std::shared_ptr<CVGroup> m_group;
};

TEST_F(Autoselection, PlainCopiesAreLeftAloneButKeepAnySelectsAllButOne) {
    auto items = group({item("/a/x.bin"), item("/b/y.bin")});
    CVAutoselector selector(items, defaults);
    EXPECT_EQ(selector.autoselect(), (CVSelectionResult{kResultAutomatic, 0}));
    EXPECT_EQ(selected(items), (std::vector<bool>{false, false}));
    EXPECT_EQ(selector.keepAnyItem(), (CVSelectionResult{kResultWeak, 1}));
    EXPECT_EQ(selected(items), (std::vector<bool>{false, true}));
    EXPECT_EQ(items[1]->selectionType(), kSelectionWeak);
}

TEST_F(Autoselection, CopyNamesAndAlwaysSelectFoldersAreChosen) {
    auto named = group({item("/p/photo.jpg"), item("/p/photo copy.jpg"), item("/p/photo copy 2.jpg")});
    EXPECT_EQ(CVAutoselector(named, defaults).autoselect(), (CVSelectionResult{kResultAutomatic, 2}));
    EXPECT_EQ(selected(named), (std::vector<bool>{false, true, true}));

    lists({CVAutoselectListItem{true, kAlwaysSelect, "/dl", std::nullopt}});
    auto both = group({item("/dl/a.zip"), item("/dl/b.zip")});
    EXPECT_EQ(CVAutoselector(both, defaults).autoselect(), (CVSelectionResult{kResultAutomatic, 1}));
    EXPECT_EQ(selected(both), (std::vector<bool>{false, true})) << "all white: the first is kept";
    auto one = group({item("/keep/a.zip"), item("/dl/a.zip")});
    CVAutoselector(one, defaults).autoselect();
    EXPECT_EQ(selected(one), (std::vector<bool>{false, true}));
}

TEST_F(Autoselection, NeverSelectAndForbiddenCopiesStayAndOneCopyAlwaysStays) {
    lists({CVAutoselectListItem{true, kNeverSelect, "/safe", std::nullopt}});
    auto items = group({item("/safe/a.jpg"), item("/p/a copy.jpg"), item("/q/a copy 2.jpg")});
    CVAutoselector(items, defaults).autoselect();
    EXPECT_EQ(selected(items), (std::vector<bool>{false, false, true}))
        << "names are compared among the copies that may be chosen";
    auto guarded = group({item("/safe/a copy.jpg"), item("/safe/a copy 2.jpg")});
    CVAutoselector(guarded, defaults).autoselect();
    EXPECT_EQ(selected(guarded), (std::vector<bool>{false, false})) << "never-select copies are never chosen";

    auto forbidden = group({item("/p/x.bin"), item("/q/x.bin"), item("/r/x.bin")});
    forbidden[0]->setRemoveForbidden(true);
    EXPECT_EQ(CVAutoselector(forbidden, defaults).keepAnyItem(), (CVSelectionResult{kResultWeak, 2}));
    EXPECT_EQ(selected(forbidden), (std::vector<bool>{false, true, true}));
}

TEST_F(Autoselection, AGroupTouchedByHandIsNotChanged) {
    auto items = group({item("/p/photo.jpg"), item("/p/photo copy.jpg")});
    CVAutoselector::manualDeselectItem(items[1]); // not selected: no touch
    items[0]->setSelectionType(kSelectionManual);
    EXPECT_EQ(CVAutoselector(items, defaults).autoselect(), (CVSelectionResult{kResultAutomatic, 0}));
    EXPECT_EQ(selected(items), (std::vector<bool>{false, false}));
}

TEST_F(Autoselection, KeepingTheNewestOrOldestByModificationTime) {
    auto items = group({item("/a/x", 10), item("/b/x", 20), item("/c/x", 20)});
    items[1]->setNeedToRemove(true);
    items[1]->setSelectionType(kSelectionManual);
    CVAutoselector newest(items, defaults);
    EXPECT_EQ(newest.keepMostRecentItems(), (CVSelectionResult{kResultDate, 1}));
    EXPECT_EQ(selected(items), (std::vector<bool>{true, false, false})) << "earlier selections are cleared";
    EXPECT_EQ(items[0]->selectionType(), kSelectionStrong);
    CVAutoselector oldest(items, defaults);
    EXPECT_EQ(oldest.keepOldestItems(), (CVSelectionResult{kResultDate, 2}));
    EXPECT_EQ(selected(items), (std::vector<bool>{false, true, true}));
    auto same = group({item("/a/y", 10), item("/b/y", 10), item("/c/y", 10)});
    EXPECT_EQ(CVAutoselector(same, defaults).keepMostRecentItems(), (CVSelectionResult{kResultDate, 0}));
    EXPECT_EQ(selected(same), (std::vector<bool>{false, false, false}));
}

// Keeping the oldest or newest copies by modification time, across the whole range of
// signed times: before 1970, around 0 and far out.
struct DateCase {
    std::string label;
    std::vector<std::int64_t> times;
    bool keepYoungest;
    std::vector<bool> expected;
};

void PrintTo(const DateCase& c, std::ostream* os) {
    *os << c.label;
}

class KeepingByDate : public Autoselection, public testing::WithParamInterface<DateCase> {};

TEST_P(KeepingByDate, KeepsEveryCopyOfTheExtremeTime) {
    const DateCase& c = GetParam();
    SelectionItems items;
    for (std::size_t i = 0; i < c.times.size(); ++i)
        items.push_back(item("/d" + std::to_string(i) + "/x.bin", c.times[i]));
    group(items);
    CVAutoselector selector(items, defaults);
    const CVSelectionResult result =
        c.keepYoungest ? selector.keepMostRecentItems() : selector.keepOldestItems();
    EXPECT_EQ(selected(items), c.expected);
    const auto marked = static_cast<std::uint64_t>(std::count(c.expected.begin(), c.expected.end(), true));
    EXPECT_EQ(result, (CVSelectionResult{kResultDate, marked}));
    for (std::size_t i = 0; i < items.size(); ++i)
        EXPECT_EQ(items[i]->selectionType(), c.expected[i] ? kSelectionStrong : kSelectionNone) << i;
}

constexpr std::int64_t kMin = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();

INSTANTIATE_TEST_SUITE_P(
    Times, KeepingByDate,
    testing::Values(DateCase{"oldest before 1970", {-100, -50, -50}, false, {false, true, true}},
                    DateCase{"newest before 1970", {-100, -50, -50}, true, {true, false, false}},
                    DateCase{"oldest around 0", {0, -1, 1}, false, {true, false, true}},
                    DateCase{"newest around 0", {0, -1, 1}, true, {true, true, false}},
                    DateCase{"oldest at 0 against 1", {1, 0}, false, {true, false}},
                    DateCase{"newest at 0 against -1", {-1, 0}, true, {true, false}},
                    DateCase{
                        "1900 and 2100", {4102444800, -2208988800, 4102444800}, false, {true, false, true}},
                    DateCase{"the ends of the range, oldest", {kMax, kMin, kMax}, false, {true, false, true}},
                    DateCase{"the ends of the range, newest", {kMax, kMin, 0}, true, {false, true, true}},
                    DateCase{"beyond double precision", {(1LL << 53) + 1, 1LL << 53}, true, {false, true}},
                    DateCase{"one time for all", {-5, -5, -5}, true, {false, false, false}}));

TEST_F(Autoselection, EverySelectorKeepsOneCopy) {
    auto items = group({item("/Apps/a"), item("/Apps/b"), item("/Apps/c")});
    CVAutoselector selector(items, defaults);
    // Each selector below would match every copy: none may select anything.
    EXPECT_EQ(selector.pathBasedItemsSelector(items, "/apps").size(), 3u);
    EXPECT_EQ(selector.applicationsItemsSelector(items, "/home/u/Applications").size(), 3u);
    items[0]->setType(kNodeTypeUnknown);
    items[1]->setType(kNodeTypeUnknown);
    items[2]->setType(kNodeTypeUnknown);
    EXPECT_EQ(selector.undefinedTypeItemsSelector(items).size(), 3u);
    EXPECT_EQ(selected(items), (std::vector<bool>{false, false, false}));
    // Matching fewer than the unselected copies, they select.
    EXPECT_EQ(selector.pathBasedItemsSelector(items, "/APPS/A").size(), 2u) << "case-insensitive prefix";
    EXPECT_EQ(selected(items), (std::vector<bool>{true, false, false}));
    EXPECT_EQ(selector.pathBasedItemsSelector({items[1], items[2]}, "/apps").size(), 2u)
        << "two matches against two unselected copies: the guard holds";
    EXPECT_EQ(selector.selectedItemsCount(), 1);
}

TEST_F(Autoselection, SelectingLikeAFolderClearsOtherCopiesRatherThanTakeTheLast) {
    auto items = group({item("/dl/a.bin"), item("/w/a.bin"), item("/w/b.bin")});
    CVAutoselector selector(items, defaults);
    selector.keepAnyItem(); // the two under /w are selected, the one under /dl kept
    ASSERT_EQ(selected(items), (std::vector<bool>{false, true, true}));
    const auto dl = CVPathComponent::initWithSourse("/dl", "", kComponentFolder);
    EXPECT_EQ(selector.selectAllLikePathComponent(dl), (CVSelectionResult{kResultWeak, 1}));
    EXPECT_EQ(selected(items), (std::vector<bool>{true, false, false}))
        << "the copies not like the folder are cleared so that one stays";
    EXPECT_EQ(selector.selectedItemsCount(), 2 - 2 + 1);

    // Copies selected by hand are the user's: they stay, and nothing more is taken.
    auto hand = group({item("/dl/c.bin"), item("/w/c.bin")});
    CVAutoselector handSelector(hand, defaults);
    handSelector.manuallySelectItem(hand[1]);
    EXPECT_EQ(handSelector.selectAllLikePathComponent(dl), (CVSelectionResult{kResultAutomatic, 0}))
        << "every other copy is the user's: the automatic selection decides, and leaves the group alone";
    EXPECT_EQ(selected(hand), (std::vector<bool>{false, true}));
}

TEST_F(Autoselection, ApertureCopiesNeverLetTheOthersTakeTheLastCopy) {
    auto aperture = std::make_shared<CVFolder>("/lib/Photos.aplibrary", "");
    aperture->setType(kNodeTypeApertureLibrary);
    auto image = [&](const std::string& path) {
        auto f = item(path);
        f->setType(kNodeTypeImage);
        return f;
    };
    auto inLibrary = image("/lib/Photos.aplibrary/Masters/x.jpg");
    inLibrary->setRootFolder(aperture);
    // The library copy is taken first (Always Select); the copies outside it would all follow.
    lists({CVAutoselectListItem{true, kAlwaysSelect, "/lib", std::nullopt}});
    auto items = group({inLibrary, image("/home/u/Pictures/x.jpg"), image("/home/u/Downloads/x.jpg")});
    CVAutoselector(items, defaults).autoselect();
    EXPECT_EQ(selected(items), (std::vector<bool>{true, false, false}));

    // Without the list the copies outside the library go, and the library copy stays.
    lists({});
    CVAutoselector(items, defaults).deselectAll();
    EXPECT_EQ(CVAutoselector(items, defaults).autoselect(), (CVSelectionResult{kResultAutomatic, 2}));
    EXPECT_EQ(selected(items), (std::vector<bool>{false, true, true}));

    // The library copy already chosen by an earlier operation: the last copy stays.
    auto chosen = image("/lib/Photos.aplibrary/Masters/y.jpg");
    chosen->setRootFolder(aperture);
    auto earlier = group({image("/home/u/Pictures/y.jpg"), chosen, image("/home/u/Work/y.jpg")});
    CVAutoselector(earlier, defaults).keepAnyItem();
    ASSERT_EQ(selected(earlier), (std::vector<bool>{false, true, true}));
    EXPECT_EQ(CVAutoselector(earlier, defaults).autoselect(), (CVSelectionResult{kResultAutomatic, 0}));
    EXPECT_EQ(selected(earlier), (std::vector<bool>{false, true, true}));
}

TEST_F(Autoselection, ManualOperations) {
    auto items = group({item("/a/x"), item("/b/x"), item("/c/x")});
    CVAutoselector selector(items, defaults);
    EXPECT_EQ(selector.manuallySelectAllButItem(items[1]), (CVSelectionResult{kResultManual, 2}));
    EXPECT_EQ(selected(items), (std::vector<bool>{true, false, true}));
    EXPECT_FALSE(selector.selectionPossible());
    EXPECT_EQ(selector.manuallySelectItem(items[0]), (CVSelectionResult{kResultManual, 0}))
        << "already selected";
    EXPECT_EQ(CVAutoselector::manualDeselectItem(items[0]),
              CVSelectionResult::zeroSelectionWithType(kResultManual));
    EXPECT_FALSE(items[0]->needToRemove());
    EXPECT_EQ(items[0]->selectionType(), kSelectionManual);
    selector.deselectAll();
    EXPECT_EQ(selected(items), (std::vector<bool>{false, false, false}));
    EXPECT_TRUE(selector.selectionPossible());
}

// Library copies: the records say which copy to keep.
SelectionItem libraryItem(const std::string& path, const std::shared_ptr<CVFolder>& root,
                          PropertyValue::Dictionary record, std::int64_t mtime = 100) {
    auto f = item(path, mtime);
    f->setRootFolder(root);
    f->setInfo(PropertyValue(std::move(record)));
    return f;
}

TEST_F(Autoselection, MusicCopiesKeepTheBestRatedAndMostPlayed) {
    auto root = std::make_shared<CVFolder>("/m/iTunes", "");
    root->setType(kNodeTypeCurrentITunesLibrary);
    auto rated = SelectionItems{
        libraryItem("/m/iTunes/a.mp3", root,
                    {{"Rating", 80}, {"AlbumName", "A"}, {"ArtistName", "B"}, {"PlayCount", 3}}),
        libraryItem("/m/iTunes/b.mp3", root,
                    {{"Rating", 80}, {"AlbumName", "A"}, {"ArtistName", "B"}, {"PlayCount", 9}}),
        libraryItem("/m/iTunes/c.mp3", root, {{"Rating", 60}, {"AlbumName", "A"}, {"ArtistName", "B"}})};
    const auto chosen = CVITunesAutoselectFilter(rated).getItemsToSelect();
    EXPECT_EQ(chosen, (SelectionItems{rated[2], rated[0]}))
        << "the 60 first, then the less played of the 80s";
    auto bare = SelectionItems{libraryItem("/m/iTunes/x.mp3", root, {{"Name", "x"}}),
                               libraryItem("/m/iTunes/y.mp3", root, {{"Name", "y"}})};
    EXPECT_EQ(CVITunesAutoselectFilter(bare).getItemsToSelect(), (SelectionItems{bare[1]}));
    auto untagged = SelectionItems{
        libraryItem("/m/iTunes/t.mp3", root, {{"AlbumName", "A"}, {"ArtistName", "B"}}),
        libraryItem("/m/iTunes/u.mp3", root, {{"ArtistName", "B"}}),
        libraryItem("/m/iTunes/v.mp3", root,
                    {{"PlayDate", PropertyDate{1e9}}, {"AlbumName", "A"}, {"ArtistName", "B"}})};
    EXPECT_EQ(CVITunesAutoselectFilter(untagged).getItemsToSelect(),
              (SelectionItems{untagged[1], untagged[0]}))
        << "the untagged copy, then the never-played one";

    auto group2 = group({libraryItem("/m/iTunes/s.mp3", root, {{"Rating", 40}}),
                         libraryItem("/m/iTunes/s2.mp3", root, {{"Rating", 100}}), item("/outside/s.mp3")});
    EXPECT_EQ(CVAutoselector(group2, defaults).autoselect(), (CVSelectionResult{kResultAutomatic, 2}));
    EXPECT_EQ(selected(group2), (std::vector<bool>{true, false, true}))
        << "outside copies go first, then the lower rated";
}

TEST_F(Autoselection, PhotoCopiesCompareWithinTheirEvent) {
    auto root = std::make_shared<CVFolder>("/p/Lib.photolibrary", "");
    root->setType(kNodeTypeCurrentIPhotoLibrary);
    auto event = [&](const std::string& path, const std::string& name, std::int64_t mtime) {
        return libraryItem(path, root, {{kEventNameKey, name}, {kPhotoPathKey, path}}, mtime);
    };
    auto copies = SelectionItems{event("/p/Lib.photolibrary/M/IMG_1.jpg", "Trip", 5),
                                 event("/p/Lib.photolibrary/M/IMG_1 copy.jpg", "Trip", 5)};
    EXPECT_EQ(CViPhotoAutoselectFilter(copies).getItemsToFilter(), (SelectionItems{copies[1]}));
    auto dated = SelectionItems{event("/p/Lib.photolibrary/A/IMG_2.jpg", "Sea", 5),
                                event("/p/Lib.photolibrary/B/IMG_2.jpg", "Sea", 9),
                                event("/p/Lib.photolibrary/C/IMG_2.jpg", "Sea", 9)};
    EXPECT_EQ(CViPhotoAutoselectFilter(dated).getItemsToFilter(), (SelectionItems{dated[0], dated[2]}));
    auto apart = SelectionItems{event("/p/Lib.photolibrary/A/IMG_3.jpg", "One", 5),
                                event("/p/Lib.photolibrary/B/IMG_3.jpg", "Two", 9)};
    EXPECT_TRUE(CViPhotoAutoselectFilter(apart).getItemsToFilter().empty())
        << "different events never compare";

    auto mixed = group({event("/p/Lib.photolibrary/M/IMG_4.jpg", "Trip", 5), item("/home/u/IMG_4 copy.jpg"),
                        event("/p/Lib.photolibrary/N/IMG_4.jpg", "Other", 5)});
    CVAutoselector(mixed, defaults).autoselect();
    EXPECT_EQ(selected(mixed), (std::vector<bool>{false, true, false}))
        << "the copy outside the library goes";
}

} // namespace
} // namespace corvel
