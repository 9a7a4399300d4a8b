#include <gtest/gtest.h>

#include "engine/folder.h"
#include "engine/node_type.h"
#include "media/media_library.h"
#include "selection/library_filters.h"
#include "selection/patterned_string.h"

namespace corvel {
namespace {

SelectionItem track(const std::string& name, PropertyValue::Dictionary record, std::int64_t mtime = 100) {
    auto f = std::make_shared<CVFile>("/m/" + name, "", 100);
    f->setStatMTime(mtime);
    f->setInfo(PropertyValue(std::move(record)));
    return f;
}

std::vector<std::string> names(const SelectionItems& items) {
    std::vector<std::string> out;
    for (const auto& i : items)
        out.push_back(i->path().substr(3));
    return out;
}

TEST(LibraryFilters, LessRatedItemsAreThoseMissingOrBelowTheBestValue) {
    struct Case {
        const char* what;
        std::vector<PropertyValue::Dictionary> records;
        std::vector<std::string> expected;
    };
    const Case cases[] = {
        {"one item is never filtered", {{{"Rating", 20}}}, {}},
        {"nobody has the value", {{{"Name", "a"}}, {{"Name", "b"}}}, {}},
        {"all equal", {{{"Rating", 60}}, {{"Rating", 60}}}, {}},
        {"below the best", {{{"Rating", 100}}, {{"Rating", 60}}, {{"Rating", 100}}}, {"1"}},
        {"missing counts as less", {{{"Rating", 0}}, {{"Name", "b"}}}, {"1"}},
        {"zero is a value", {{{"Rating", 0}}, {{"Rating", 20}}}, {"0"}},
        {"dates by their seconds",
         {{{"Rating", PropertyDate{2e9}}}, {{"Rating", PropertyDate{1e9}}}, {{"Rating", PropertyDate{2e9}}}},
         {"1"}},
        {"dates before 1970 count as 0",
         {{{"Rating", PropertyDate{-5e8}}}, {{"Rating", PropertyDate{1}}}},
         {"0"}},
    };
    for (const Case& c : cases) {
        SelectionItems items;
        for (std::size_t i = 0; i < c.records.size(); ++i)
            items.push_back(track(std::to_string(i), c.records[i]));
        EXPECT_EQ(names(CVITunesAutoselectFilter::lessRatedItemsFilter(items, "Rating")), c.expected)
            << c.what;
    }
}

TEST(LibraryFilters, FilteringMovesTheLessRatedOutOfTheWorkingList) {
    SelectionItems working{track("a", {{"PlayCount", 3}}), track("b", {{"PlayCount", 9}}),
                           track("c", {{"PlayCount", 1}})};
    SelectionItems result{track("z", {})};
    CVITunesAutoselectFilter::filterAndRemoveLessRatedItems(working, "PlayCount", result);
    EXPECT_EQ(names(working), (std::vector<std::string>{"b"}));
    EXPECT_EQ(names(result), (std::vector<std::string>{"z", "a", "c"})) << "appended after what was there";
}

TEST(LibraryFilters, MusicChoiceNeverSelectsEveryCopy) {
    const std::vector<std::vector<PropertyValue::Dictionary>> groups = {
        {{}, {}},
        {{{"Rating", 40}}, {{"Rating", 40}}, {{"Rating", 40}}},
        {{{"AlbumName", "A"}}, {{"ArtistName", "B"}}},
        {{{"PlayDate", PropertyDate{5}}}, {{"PlayDate", PropertyDate{5}}}},
        {{{"Rating", 100}}, {{"Rating", 80}}},
    };
    for (const auto& records : groups) {
        SelectionItems items;
        for (std::size_t i = 0; i < records.size(); ++i)
            items.push_back(track(std::to_string(i), records[i]));
        const SelectionItems chosen = CVITunesAutoselectFilter(items).getItemsToSelect();
        EXPECT_EQ(chosen.size(), items.size() - 1) << "group of " << items.size();
    }
}

TEST(LibraryFilters, PhotoEventsFormGroupsOnlyWithTwoOrMoreNamedMembers) {
    auto photo = [](const std::string& name, const char* event) {
        PropertyValue::Dictionary record;
        if (event)
            record[kEventNameKey] = event;
        return track(name, record);
    };
    CViPhotoAutoselectFilter filter({photo("a.jpg", "Sea"), photo("b.jpg", "Trip"), photo("c.jpg", "Sea"),
                                     photo("d.jpg", nullptr), photo("e.jpg", nullptr), photo("f.jpg", "Trip"),
                                     photo("g.jpg", "Alone")});
    filter.getItemsToFilter();
    std::vector<std::vector<std::string>> groups;
    for (const auto& g : filter.equalEventGroups())
        groups.push_back(names(g));
    EXPECT_EQ(groups, (std::vector<std::vector<std::string>>{{"a.jpg", "c.jpg"}, {"b.jpg", "f.jpg"}}))
        << "photos without an event and an event of one photo are left out";
}

TEST(PatternedString, DefaultFolderNamesAreRecognisedAfterTheirCopyMarks) {
    struct Case {
        const char* path;
        bool autonamed;
    };
    for (const Case& c : {Case{"/a/untitled folder", true}, Case{"/a/untitled folder 2", true},
                          Case{"/a/untitled folder (copy)", true}, Case{"/a/Copy of untitled folder", false},
                          Case{"/a/New Folder With Items", true}, Case{"/a/Neuer ordner", true},
                          Case{"/a/untitled folder notes", false}, Case{"/a/Holiday", false},
                          Case{"/a/my untitled folder", false}}) {
        CVPatternedString patterned(c.path);
        EXPECT_EQ(patterned.isCurrentPathComponentAutonamed(), c.autonamed) << c.path;
    }
    CVPatternedString root("/");
    root.moveToNextPathComponent();
    EXPECT_FALSE(root.isCurrentPathComponentAutonamed()) << "past the root there is nothing to match";
}

} // namespace
} // namespace corvel
