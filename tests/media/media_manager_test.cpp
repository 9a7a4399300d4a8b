#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/time.h>

#include "media/libraries_hasher.h"
#include "media/media_library.h"
#include "media/media_manager.h"
#include "media/photo_parser.h"
#include "platform/property_list.h"
#include "platform/user_defaults.h"
#include "support/temp_tree.h"

namespace corvel {
namespace {

std::string photoLibraryXml(const std::string& photoPath) {
    return "<plist><dict><key>List of Rolls</key><array><dict><key>RollID</key><integer>1</integer>"
           "<key>RollName</key><string>Trip</string><key>Other</key><string>x</string></dict></array>"
           "<key>Major</key><integer>1</integer><key>Master Image List</key><dict><key>1</key><dict>"
           "<key>MediaType</key><string>Image</string><key>Roll</key><integer>1</integer>"
           "<key>ImagePath</key><string>" +
           photoPath +
           "</string><key>Thumb</key><string>t</string>"
           "</dict></dict></dict></plist>";
}

void setModificationTime(const std::string& path, long seconds) {
    const struct timeval times[2] = {{seconds, 0}, {seconds, 0}};
    ::utimes(path.c_str(), times);
}

class MediaManagerTest : public testing::Test {
protected:
    test::TempTree tree;
    UserDefaults defaults{tree / "defaults.plist"};
    CViMediaManager manager{defaults};
};

TEST_F(MediaManagerTest, EachLibraryIsParsedOncePerScan) {
    const std::string album = tree.file("P.photolibrary/AlbumData.xml", photoLibraryXml("/P/a.jpg"));
    const PropertyValue first = manager.iPhotoLibraryEventOfPhotoAtPath("/P/a.jpg", album);
    EXPECT_EQ(*first[kEventNameKey].asString(), "Trip");
    EXPECT_TRUE(manager.iPhotoLibraryEventOfPhotoAtPath("/P/missing.jpg", album).isNull());
    EXPECT_EQ(manager.parsedLibrariesCount(), 1u);
    // A rewrite between look-ups is not seen until the next scan.
    tree.file("P.photolibrary/AlbumData.xml", photoLibraryXml("/P/b.jpg"));
    EXPECT_TRUE(manager.iPhotoLibraryEventOfPhotoAtPath("/P/b.jpg", album).isNull());
    manager.rescan();
    EXPECT_EQ(manager.parsedLibrariesCount(), 0u);
    EXPECT_FALSE(manager.iPhotoLibraryEventOfPhotoAtPath("/P/b.jpg", album).isNull());
}

TEST_F(MediaManagerTest, MissingLibrariesAreNotRememberedSoALaterLookUpTriesAgain) {
    const std::string xml = tree / "M/iTunes Library.xml";
    EXPECT_TRUE(manager.iTunesTrackInfoAtPath("/M/a.mp3", xml).isNull());
    EXPECT_EQ(manager.parsedLibrariesCount(), 0u);
    const PropertyValue library(PropertyValue::Dictionary{
        {"Tracks", PropertyValue::Dictionary{
                       {"1", PropertyValue::Dictionary{{"Location", "file:///M/a.mp3"}, {"Name", "A"}}}}}});
    tree.file("M/iTunes Library.xml", propertyListData(library, PropertyListFormat::Binary));
    EXPECT_EQ(*manager.iTunesTrackInfoAtPath("/M/a.mp3", xml)[kTrackNameKey].asString(), "A");
    EXPECT_FALSE(manager.parseLibraryIfDidntAlready("", true));
}

TEST_F(MediaManagerTest, ChangeDetectionFollowsTheModificationDate) {
    const std::string album = tree.file("L/AlbumData.xml", photoLibraryXml("/L/a.jpg"));
    setModificationTime(album, 1600000000);
    CVMD5LibrariesHasher hasher(defaults);
    EXPECT_TRUE(hasher.libraryDidChangeFromLastScan(album)) << "never seen before";
    EXPECT_FALSE(hasher.libraryDidChangeFromLastScan(album));
    setModificationTime(album, 1600000100);
    EXPECT_TRUE(hasher.libraryDidChangeFromLastScan(album));
    EXPECT_EQ(defaults.dictionaryForKey(kLibraryHashesKey)->size(), 1u);
    EXPECT_EQ(hasher.MD5HashFromFile(tree / "none"), "");
}

TEST_F(MediaManagerTest, RemovedPhotosStayHiddenUntilTheLibraryChanges) {
    const std::string album = tree.file("L/AlbumData.xml", photoLibraryXml(tree / "L/a.jpg"));
    setModificationTime(album, 1600000000);
    ASSERT_TRUE(
        manager.parseLibraryIfDidntAlready(album, true)); // first parse: the library counts as changed
    defaults.setObject(PropertyValue::Array{tree / "L/a.jpg"}, kRemovedPhotosKey);
    manager.rescan();
    EXPECT_TRUE(manager.iPhotoLibraryEventOfPhotoAtPath(tree / "L/a.jpg", album).isNull())
        << "unchanged: still removed";
    setModificationTime(album, 1600000500);
    manager.rescan();
    EXPECT_FALSE(manager.iPhotoLibraryEventOfPhotoAtPath(tree / "L/a.jpg", album).isNull());
    EXPECT_TRUE(defaults.arrayForKey(kRemovedPhotosKey)->empty());
}

} // namespace
} // namespace corvel
