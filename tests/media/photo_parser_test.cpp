#include <gtest/gtest.h>

#include "media/media_library.h"
#include "media/photo_parser.h"
#include "platform/system_log.h"
#include "platform/user_defaults.h"
#include "support/temp_tree.h"

namespace corvel {
namespace {

struct Roll {
    std::string id;
    std::string name; // written as is: may hold entity references
};
struct Photo {
    std::string mediaType;
    std::string roll;
    std::string path;
};

// An AlbumData.xml laid out as the photo application writes it: version, the list of
// rolls, a top-level key between the lists, then the master image list.
std::string albumData(const std::vector<Roll>& rolls, const std::vector<Photo>& photos,
                      const std::string& doctype = {}) {
    std::string xml = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n" + doctype +
                      "<plist version=\"1.0\">\n<dict>\n"
                      "\t<key>Application Version</key>\n\t<string>9.6.1</string>\n"
                      "\t<key>List of Albums</key>\n\t<array>\n\t\t<dict>\n\t\t\t<key>AlbumName</key>\n"
                      "\t\t\t<string>Not a roll</string>\n\t\t</dict>\n\t</array>\n"
                      "\t<key>List of Rolls</key>\n\t<array>\n";
    for (const auto& roll : rolls)
        xml += "\t\t<dict>\n\t\t\t<key>RollID</key>\n\t\t\t<integer>" + roll.id +
               "</integer>\n\t\t\t<key>RollName</key>\n\t\t\t<string>" + roll.name +
               "</string>\n\t\t\t<key>RollDateAsTimerInterval</key>\n\t\t\t<real>3.1e8</real>\n\t\t</dict>\n";
    xml += "\t</array>\n\t<key>Major Version</key>\n\t<integer>2</integer>\n\t<key>Master Image "
           "List</key>\n\t<dict>\n";
    int n = 1;
    for (const auto& photo : photos) {
        xml += "\t\t<key>" + std::to_string(n++) +
               "</key>\n\t\t<dict>\n\t\t\t<key>MediaType</key>\n\t\t\t<string>" + photo.mediaType +
               "</string>\n\t\t\t<key>Caption</key>\n\t\t\t<string>c</string>\n";
        if (!photo.roll.empty())
            xml += "\t\t\t<key>Roll</key>\n\t\t\t<integer>" + photo.roll + "</integer>\n";
        xml += "\t\t\t<key>ImagePath</key>\n\t\t\t<string>" + photo.path +
               "</string>\n\t\t\t<key>ThumbPath</key>\n\t\t\t<string>/thumbs/x.jpg</string>\n\t\t</dict>\n";
    }
    xml += "\t</dict>\n</dict>\n</plist>\n";
    return xml;
}

class PhotoParserTest : public testing::Test {
protected:
    test::TempTree tree;
    UserDefaults defaults{tree / "defaults.plist"};
    CViPhotoParser parser{defaults};
};

TEST_F(PhotoParserTest, PhotosTakeTheEventOfTheirRoll) {
    const std::string path =
        tree.file("Lib.photolibrary/AlbumData.xml",
                  albumData({{"5", "Summer &amp; Sea"}, {"7", "Caf&#233; &lt;night&gt;"}},
                            {{"Image", "5", "/lib/Masters/a.jpg"},
                             {"Movie", "7", "/lib/Masters/b.mov"},
                             {"Image", "99", "/lib/Masters/c.jpg"},
                             {"Image", "", "/lib/Masters/R&amp;D.jpg"}}));
    ASSERT_TRUE(parser.parseXMLFile(path, true));
    const auto& photos = parser.getPhotosArray();
    ASSERT_EQ(photos.size(), 4u);
    struct Expected {
        std::string name, id, path;
        bool movie;
    };
    const Expected expected[] = {{"Summer & Sea", "5", "/lib/Masters/a.jpg", false},
                                 {"Caf\xC3\xA9 <night>", "7", "/lib/Masters/b.mov", true},
                                 {"Unknown", "-1", "/lib/Masters/c.jpg", false},
                                 {"Unknown", "-1", "/lib/Masters/R&D.jpg", false}};
    for (std::size_t i = 0; i < 4; ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(*photos[i][kEventNameKey].asString(), expected[i].name);
        EXPECT_EQ(*photos[i][kEventIDKey].asString(), expected[i].id);
        EXPECT_EQ(*photos[i][kPhotoPathKey].asString(), expected[i].path);
        EXPECT_EQ(photos[i][kPhotoIsMovieKey].toBool(), expected[i].movie);
        EXPECT_EQ(*photos[i][kPhotoVersionKey].asString(), "9.6.1");
    }
}

TEST_F(PhotoParserTest, InternalEntitiesExpandAndExternalOnesAreNeverLoaded) {
    const std::string secret = tree.file("secret.txt", "TOP SECRET");
    const std::string internal = albumData({{"1", "&trip;"}}, {{"Image", "1", "/p/a.jpg"}},
                                           "<!DOCTYPE plist [<!ENTITY trip \"Road Trip\">]>\n");
    ASSERT_TRUE(parser.parseXMLFile(tree.file("i/AlbumData.xml", internal), true));
    ASSERT_EQ(parser.getPhotosArray().size(), 1u);
    EXPECT_EQ(*parser.getPhotosArray()[0][kEventNameKey].asString(), "Road Trip");

    const std::string external =
        albumData({{"1", "&leak;"}}, {{"Image", "1", "/p/a.jpg"}},
                  "<!DOCTYPE plist [<!ENTITY leak SYSTEM \"file://" + secret + "\">]>\n");
    ScopedLogCapture log;
    parser.parseXMLFile(tree.file("e/AlbumData.xml", external), true);
    for (const auto& photo : parser.getPhotosArray())
        EXPECT_EQ(photo[kEventNameKey].toString().find("SECRET"), std::string::npos);
}

TEST_F(PhotoParserTest, MalformedAndMissingFilesGiveNoRecordsAndALogLine) {
    ScopedLogCapture log;
    EXPECT_FALSE(parser.parseXMLFile(tree / "missing/AlbumData.xml", true));
    EXPECT_TRUE(parser.getPhotosArray().empty());
    std::string broken = albumData({{"1", "A"}}, {{"Image", "1", "/p/a.jpg"}});
    broken.resize(broken.size() / 3);
    EXPECT_FALSE(parser.parseXMLFile(tree.file("b/AlbumData.xml", broken + "<<<"), true));
    EXPECT_TRUE(parser.getPhotosArray().empty());
    EXPECT_EQ(log.lines().size(), 2u);
    std::string billion = R"(<?xml version="1.0"?><!DOCTYPE lolz [<!ENTITY lol "lol">)";
    std::string previous = "lol";
    for (int i = 1; i <= 9; ++i) {
        billion += "<!ENTITY lol" + std::to_string(i) + " \"";
        for (int j = 0; j < 10; ++j)
            billion += "&" + previous + ";";
        billion += "\">";
        previous = "lol" + std::to_string(i);
    }
    billion += "]><plist><key>List of Rolls</key><string>&" + previous + ";</string></plist>";
    EXPECT_FALSE(parser.parseXMLFile(tree.file("bomb/AlbumData.xml", billion), true));
}

TEST_F(PhotoParserTest, RemovedPhotosAreSkippedOnlyWhileCheckingIsOn) {
    const std::string path =
        tree.file("Lib/AlbumData.xml", albumData({{"1", "E"}}, {{"Image", "1", "/Lib/Masters/a.jpg"},
                                                                {"Image", "1", "/Lib/Masters/b.jpg"}}));
    defaults.setObject(PropertyValue::Array{"/Lib/Masters/a.jpg", tree / "Other/x.jpg"}, kRemovedPhotosKey);
    ASSERT_TRUE(parser.parseXMLFile(path, true));
    ASSERT_EQ(parser.getPhotosArray().size(), 1u);
    EXPECT_EQ(*parser.getPhotosArray()[0][kPhotoPathKey].asString(), "/Lib/Masters/b.jpg");
    EXPECT_TRUE(parser.photoContainsInAlreadyRemovedList("/Lib/Masters/a.jpg"));

    // Without checking (the library changed), the list loses this library's entries.
    defaults.setObject(PropertyValue::Array{tree / "Lib/Masters/a.jpg", tree / "Other/x.jpg"},
                       kRemovedPhotosKey);
    ASSERT_TRUE(parser.parseXMLFile(path, false));
    EXPECT_EQ(parser.getPhotosArray().size(), 2u);
    EXPECT_EQ(*defaults.arrayForKey(kRemovedPhotosKey), (PropertyValue::Array{tree / "Other/x.jpg"}));
}

} // namespace
} // namespace corvel
