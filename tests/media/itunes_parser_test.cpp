#include <gtest/gtest.h>

#include "media/itunes_parser.h"
#include "media/media_library.h"
#include "platform/property_list.h"
#include "support/temp_tree.h"

namespace corvel {
namespace {

PropertyValue track(std::string location, PropertyValue::Dictionary extra = {}) {
    extra["Location"] = std::move(location);
    extra["Name"] = "Name";
    return PropertyValue(std::move(extra));
}

TEST(ITunesParser, TrackTypesFollowTheirPrecedence) {
    struct Case {
        std::string label;
        PropertyValue entry;
        int type;
    };
    const Case cases[] = {
        {"music", track("file://localhost/M/Music/a.mp3"), 0},
        {"podcast beats all", track("file:///M/Audiobooks/a.m4a", {{"Podcast", true}, {"Movie", true}}), 4},
        {"audiobook beats movie", track("file:///M/Audiobooks/b.m4b", {{"Movie", true}}), 3},
        {"movie", track("file:///M/Movies/c.m4v", {{"Movie", true}}), 1},
        {"book", track("file:///M/Books/d.epub"), 2},
        {"movie beats book", track("file:///M/Books/e.m4v", {{"Movie", true}}), 1},
    };
    for (const auto& c : cases)
        EXPECT_EQ(CViTunesParser::trackRecord(c.entry)[kTrackTypeKey].toInt64(), c.type) << c.label;
}

TEST(ITunesParser, RecordsCarryTheTrackData) {
    const PropertyValue music =
        CViTunesParser::trackRecord(track("file://localhost/Users/ada/Music/iTunes/My%20Song%20%C3%A9.mp3",
                                          {{"Artist", "Band"},
                                           {"Album", "Disc"},
                                           {"Play Count", 3},
                                           {"Rating", 80},
                                           {"Play Date", PropertyDate{1e9}}}));
    EXPECT_EQ(*music[kTrackPathKey].asString(), "/Users/ada/Music/iTunes/My Song \xC3\xA9.mp3");
    EXPECT_EQ(*music[kArtistNameKey].asString(), "Band");
    EXPECT_EQ(*music[kAlbumNameKey].asString(), "Disc");
    EXPECT_EQ(music[kPlayCountKey].toInt64(), 3);
    EXPECT_EQ(music[kRatingKey].toInt64(), 80);
    EXPECT_EQ(music[kPlayDateKey].type(), PropertyValue::Type::Date);
    EXPECT_EQ(music[kNumberOfTagsKey].toInt64(), 7);

    const PropertyValue untagged = CViTunesParser::trackRecord(track("file:///M/a.mp3", {{"Artist", "X"}}));
    EXPECT_TRUE(untagged[kAlbumNameKey].isNull()) << "a track without album gets no album key";
    const PropertyValue movie =
        CViTunesParser::trackRecord(track("file:///M/m.m4v", {{"Movie", true}, {"Artist", "X"}}));
    EXPECT_TRUE(movie[kArtistNameKey].isNull()) << "artist and album only for music";
    EXPECT_TRUE(movie[kPlayCountKey].isNull());
}

TEST(ITunesParser, ReadsBinaryAndXmlLibrariesAndSurvivesBadOnes) {
    test::TempTree tree;
    PropertyValue::Dictionary tracks;
    for (int i = 0; i < 5; ++i)
        tracks[std::to_string(100 + i)] = track("file:///M/" + std::to_string(i) + ".mp3");
    tracks["bogus"] = "not a dictionary";
    const PropertyValue library(PropertyValue::Dictionary{{"Tracks", tracks}});
    for (const auto format : {PropertyListFormat::XML, PropertyListFormat::Binary}) {
        CViTunesParser parser;
        ASSERT_TRUE(parser.parseXMLFile(tree.file("lib.xml", propertyListData(library, format))));
        EXPECT_EQ(parser.getTracksArray().size(), 5u);
    }
    CViTunesParser parser;
    EXPECT_FALSE(parser.parseXMLFile(tree.file("bad.xml", "<plist><dict><key>Tracks</key>")));
    // A NUL in a string used to abort the process inside libplist.
    static const char kNul[] = "<plist><dict><key>Tracks</key><dict><key>1</key><dict><key>Name</key>"
                               "<string>a\0b</string></dict></dict></dict></plist>";
    EXPECT_FALSE(parser.parseXMLFile(tree.file("nul.xml", std::string(kNul, sizeof kNul - 1))));
    EXPECT_FALSE(parser.parseXMLFile(
        tree.file("notracks.xml", propertyListData(PropertyValue::Dictionary{}, PropertyListFormat::XML))));
    EXPECT_TRUE(parser.getTracksArray().empty());
}

} // namespace
} // namespace corvel
