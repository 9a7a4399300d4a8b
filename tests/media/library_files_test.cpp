// Library description files that are not what they claim: fifos and devices named like
// a library file, reads stopped half-way, and photo libraries whose entities multiply
// their text.

#include <chrono>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "media/itunes_parser.h"
#include "media/media_library.h"
#include "media/media_manager.h"
#include "media/photo_parser.h"
#include "platform/property_list.h"
#include "platform/system_log.h"
#include "platform/user_defaults.h"
#include "support/run_in_child.h"
#include "support/temp_tree.h"

namespace corvel {
namespace {

class LibraryFiles : public testing::Test {
protected:
    std::string fifo(const std::string& relative) {
        tree.folder(relative.substr(0, relative.rfind('/')));
        std::string path = tree / relative;
        EXPECT_EQ(::mkfifo(path.c_str(), 0600), 0);
        return path;
    }

    test::TempTree tree;
    UserDefaults defaults{tree / "defaults.plist"};
};

// Each parse runs in a child that is killed when it hangs (the fifo has no writer).
TEST_F(LibraryFiles, AFifoNamedLikeALibraryFileIsNoLibraryAndNeverBlocks) {
    const std::string music = fifo("Music/iTunes/iTunes Library.xml");
    const std::string photos = fifo("Old Photos/AlbumData.xml");
    EXPECT_EQ(test::runInChild([&] {
                  ScopedLogCapture log;
                  CViTunesParser parser;
                  return !parser.parseXMLFile(music) && parser.getTracksArray().empty() &&
                                 log.lines().size() == 1 &&
                                 log.lines()[0].find("not a regular file") != std::string::npos
                             ? 0
                             : 1;
              }),
              0)
        << "-1: the music library parse hung";
    EXPECT_EQ(test::runInChild([&] {
                  ScopedLogCapture log;
                  CViPhotoParser parser(defaults);
                  return !parser.parseXMLFile(photos, true) && parser.getPhotosArray().empty() &&
                                 log.lines().size() == 1 &&
                                 log.lines()[0].find("not a regular file") != std::string::npos
                             ? 0
                             : 1;
              }),
              0)
        << "-1: the photo library parse hung";
    // The manager remembers such a file as a library without records: asked again, it
    // does not try again.
    EXPECT_EQ(test::runInChild([&] {
                  CViMediaManager manager(defaults);
                  const bool known = manager.parseLibraryIfDidntAlready(photos, true) &&
                                     manager.parseLibraryIfDidntAlready(music, false);
                  return known && manager.parsedLibrariesCount() == 2 &&
                                 manager.iPhotoLibraryEventOfPhotoAtPath("/p/a.jpg", photos).isNull()
                             ? 0
                             : 1;
              }),
              0)
        << "-1: the manager hung";
}

TEST_F(LibraryFiles, ALinkOrADeviceIsNotReadEither) {
    const std::string real =
        tree.file("elsewhere/iTunes Library.xml",
                  propertyListData(PropertyValue::Dictionary{{"Tracks", PropertyValue::Dictionary{}}},
                                   PropertyListFormat::XML));
    const std::string link = tree.symlink("Music/iTunes Library.xml", real);
    CViTunesParser parser;
    ScopedLogCapture log;
    EXPECT_TRUE(parser.parseXMLFile(real));
    EXPECT_FALSE(parser.parseXMLFile(link));
    CViPhotoParser photos(defaults);
    EXPECT_FALSE(photos.parseXMLFile("/dev/zero", true)) << "a device is never read";
    EXPECT_EQ(log.lines().size(), 2u);
}

// A photo library large enough to take several chunks.
std::string largePhotoLibrary(int rolls) {
    std::string xml = "<plist><dict><key>List of Rolls</key><array>";
    for (int i = 0; i < rolls; ++i)
        xml += "<dict><key>RollID</key><integer>" + std::to_string(i) +
               "</integer><key>RollName</key><string>Roll " + std::to_string(i) + "</string></dict>";
    return xml + "</array></dict></plist>";
}

TEST_F(LibraryFiles, AStopRequestEndsAParseHalfWayAndTheLibraryIsNotRemembered) {
    const std::string album = tree.file("P/AlbumData.xml", largePhotoLibrary(20'000));
    struct stat st {};
    ASSERT_EQ(::stat(album.c_str(), &st), 0);
    ASSERT_GT(st.st_size, 3 * 65536);
    ScopedLogCapture log;
    int polls = 0;
    CViPhotoParser parser(defaults);
    EXPECT_FALSE(parser.parseXMLFile(album, true, [&] { return ++polls > 1; }));
    EXPECT_EQ(polls, 2) << "stopped before the second chunk";
    EXPECT_TRUE(parser.parseXMLFile(album, true)) << "the file itself is fine";

    CViMediaManager manager(defaults);
    manager.stopParsing();
    EXPECT_FALSE(manager.parseLibraryIfDidntAlready(album, true));
    EXPECT_EQ(manager.parsedLibrariesCount(), 0u) << "a stopped parse is tried again later";
    manager.resumeParsing();
    EXPECT_TRUE(manager.parseLibraryIfDidntAlready(album, true));
    EXPECT_EQ(manager.parsedLibrariesCount(), 1u);
}

// An internal entity of entitySize bytes referenced references times in each of
// elements roll names.
struct EntityBomb {
    const char* name;
    std::size_t entitySize;
    int references;
    int elements;
    bool bounded; // true: within the bounds, read in full
};

std::string entityLibrary(const EntityBomb& bomb) {
    std::string xml = "<?xml version=\"1.0\"?>\n<!DOCTYPE plist [<!ENTITY big \"" +
                      std::string(bomb.entitySize, 'x') +
                      "\">]>\n<plist><dict><key>List of Rolls</key><array>";
    std::string refs;
    for (int r = 0; r < bomb.references; ++r)
        refs += "&big;";
    for (int e = 0; e < bomb.elements; ++e)
        xml += "<dict><key>RollID</key><integer>" + std::to_string(e) +
               "</integer><key>RollName</key><string>" + refs + "</string></dict>";
    xml += "</array><key>Major</key><integer>1</integer><key>Master Image List</key><dict><key>1</key><dict>"
           "<key>MediaType</key><string>Image</string><key>Roll</key><integer>0</integer>"
           "<key>ImagePath</key><string>/p/a.jpg</string><key>Thumb</key><string>t</string>"
           "</dict></dict></dict></plist>";
    return xml;
}

class EntityBombs : public testing::TestWithParam<EntityBomb> {
protected:
    test::TempTree tree;
    UserDefaults defaults{tree / "defaults.plist"};
};

TEST_P(EntityBombs, TextPastTheBoundsStopsTheReaderWithALogLine) {
    const EntityBomb& bomb = GetParam();
    const std::string path = tree.file("Lib/AlbumData.xml", entityLibrary(bomb));
    ScopedLogCapture log;
    CViPhotoParser parser(defaults);
    const auto start = std::chrono::steady_clock::now();
    const bool parsed = parser.parseXMLFile(path, true);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
    if (bomb.bounded) {
        ASSERT_TRUE(parsed);
        ASSERT_EQ(parser.getPhotosArray().size(), 1u);
        EXPECT_EQ(parser.getPhotosArray()[0][kEventNameKey].asString()->size(),
                  bomb.entitySize * static_cast<std::size_t>(bomb.references))
            << "entities within the bounds are expanded in full";
        return;
    }
    EXPECT_FALSE(parsed);
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_NE(log.lines()[0].find("expands to too much text"), std::string::npos) << log.lines()[0];
    for (const auto& photo : parser.getPhotosArray())
        EXPECT_LE(photo[kEventNameKey].toString().size(), kMaxLibraryElementTextBytes);
}

INSTANTIATE_TEST_SUITE_P(
    PhotoLibraries, EntityBombs,
    testing::Values(EntityBomb{"OneElementOverItsBound", 10'000, 200, 1, false},
                    EntityBomb{"ManyElementsOverTheDocumentBound", 200'000, 1, 100, false},
                    EntityBomb{"WithinTheBounds", 10'000, 50, 3, true}),
    [](const testing::TestParamInfo<EntityBomb>& param) { return std::string(param.param.name); });

} // namespace
} // namespace corvel
