#include <gtest/gtest.h>
#include <sys/stat.h>

#include "engine/node_type.h"
#include "engine/node_type_generator.h"
#include "platform/property_list.h"
#include "platform/user_defaults.h"
#include "support/run_in_child.h"
#include "support/temp_tree.h"

namespace corvel {
namespace {

class NodeTypes : public testing::Test {
protected:
    test::TempTree tree;
    UserDefaults defaults{tree / "defaults.plist"};
    CVNodeTypeGenerator generator{defaults, tree / "home", tree / "realhome"};
};

TEST_F(NodeTypes, FilesAreTypedByIdentifierThenByExtensionPattern) {
    struct Case {
        std::string name;
        std::int32_t type;
    };
    for (const Case& c :
         {Case{"a.txt", 2},       Case{"a.pdf", 2},    Case{"a.docx", 2}, Case{"a.pptx", 2},
          Case{"a.key", 2},       Case{"a.JPG", 3},    Case{"a.cr2", 3},  Case{"a.eps", 3},
          Case{"a.mkv", 5},       Case{"a.mov", 5},    Case{"a.mp3", 4},  Case{"song.FLAC", 4},
          Case{"a.zip", 6},       Case{"a.iso", 6},    Case{"a.ccd", 6},  Case{"a.arc", 6},
          Case{"a.zz", 6},        Case{"a.docset", 2}, Case{"a.ttf", 1},  Case{"a.weird", 1},
          Case{"noextension", 1}, Case{".hidden", 1}})
        EXPECT_EQ(generator.nodeTypeOfFile("/x/" + c.name), c.type) << c.name;
}

TEST_F(NodeTypes, FoldersAreTypedByExtensionAndLibraryFiles) {
    tree.file("Music/iTunes/iTunes Music Library.xml", "<plist/>");
    tree.file("Old Photos/AlbumData.xml", "<plist/>");
    struct Case {
        std::string name;
        std::int32_t type;
    };
    for (const Case& c : {Case{"Notes.rtfd", 18}, Case{"Scan.lpdf", 18}, Case{"x.zip", 6}, Case{"x.odt", 2},
                          Case{"Talk.screenflow", 19}, Case{"Calc.app", 9}, Case{"Pics.photolibrary", 13},
                          Case{"Old Photos", 13}, Case{"Music/iTunes", 10}, Case{"Lib.aplibrary", 17},
                          Case{"Proj.approject", 17}, Case{"Plugin.bundle", 8}, Case{"Booth.photobooth", 16},
                          Case{"Plain", 7}, Case{"version.1.2", 7}})
        EXPECT_EQ(generator.nodeTypeOfFolder(tree / c.name), c.type) << c.name;
}

TEST_F(NodeTypes, WithoutIAppsPreferencesNoLibraryIsCurrent) {
    EXPECT_EQ(generator.currentIPhotoLibPath(), "none");
    EXPECT_EQ(generator.currentITunesLibPath(), "none");
    EXPECT_EQ(generator.maxiPhotoTested(), "910.42");
    EXPECT_EQ(generator.maxiTunesTested(), "12.4.1.6");
}

TEST_F(NodeTypes, TheCurrentLibrariesComeFromTheIAppsPreferences) {
    tree.file("music/iTunes/iTunes Library.xml", "<plist/>");
    tree.folder("pics/Main.photolibrary");
    const PropertyValue prefs(PropertyValue::Dictionary{
        {"iTunesRecentDatabases",
         PropertyValue::Array{"file://localhost" + tree / "music/iTunes/iTunes%20Library.xml"}},
        {"iPhotoRecentDatabases",
         PropertyValue::Array{"file://" + tree / "pics/Main.photolibrary/AlbumData.xml"}}});
    // The first place is unreadable; the account's real home holds a binary list.
    tree.file("home/Library/Preferences/com.apple.iApps.plist", "garbage");
    tree.file("realhome/Library/Preferences/com.apple.iApps.plist",
              propertyListData(prefs, PropertyListFormat::Binary));
    EXPECT_EQ(generator.currentITunesLibPath(), tree / "music/iTunes");
    EXPECT_EQ(generator.nodeTypeOfFolder(tree / "music/iTunes"), kNodeTypeCurrentITunesLibrary);
    EXPECT_EQ(generator.nodeTypeOfFolder(tree / "pics/Main.photolibrary"), kNodeTypeCurrentIPhotoLibrary);

    tree.file("realhome/Library/Preferences/com.apple.iApps.plist",
              propertyListData(PropertyValue::Dictionary{{"iTunesRecentDatabases", PropertyValue::Array{}}},
                               PropertyListFormat::XML));
    EXPECT_EQ(generator.currentITunesLibPath(), tree / "music/iTunes") << "read once until prepared again";
    generator.prepareGenerator();
    EXPECT_EQ(generator.currentITunesLibPath(), "none");
    EXPECT_EQ(generator.nodeTypeOfFolder(tree / "music/iTunes"), kNodeTypeITunesLibrary);
}

TEST(NodeTypeHelpers, VersionsAndExtensions) {
    EXPECT_EQ(compareVersion("12.4.1.6", "12.4.1.6"), 0);
    EXPECT_EQ(compareVersion("12.10", "12.4.1.6"), 1);
    EXPECT_EQ(compareVersion("9.6", "910.42"), -1);
    EXPECT_EQ(compareVersion("1.0", "1"), 0);
    EXPECT_EQ(pathExtension("/a/b.tar.gz"), "gz");
    EXPECT_EQ(pathExtension("/a/.bashrc"), "");
    EXPECT_EQ(pathExtension("/a.b/c"), "");
    EXPECT_EQ(pathExtension("/a/b."), "");
    EXPECT_TRUE(isFolderType(kNodeTypePlainFolder));
    EXPECT_FALSE(isFolderType(kNodeTypeArchive));
    EXPECT_TRUE(isMediaLibType(kNodeTypeApertureLibrary));
    EXPECT_FALSE(isMediaLibType(kNodeTypeDocumentPackage));
    EXPECT_TRUE(isITunesLibFileType(kNodeTypeNewerITunesLibrary));
    EXPECT_TRUE(isIPhotoLibFileType(kNodeTypeIPhotoLibrary));
}

// Run in a child that is killed if the read blocks: nothing writes to the fifo.
TEST_F(NodeTypes, APreferenceFileThatIsNotARegularFileIsSkipped) {
    tree.folder("home/Library/Preferences");
    const std::string fifo = tree / "home/Library/Preferences/com.apple.iApps.plist";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    tree.file("realhome/Library/Preferences/com.apple.iApps.plist",
              propertyListData(
                  PropertyValue::Dictionary{{"iPhotoRecentDatabases",
                                             PropertyValue::Array{"file://" + tree / "pics/AlbumData.xml"}}},
                  PropertyListFormat::XML));
    EXPECT_EQ(test::runInChild([&] { return generator.currentIPhotoLibPath() == tree / "pics" ? 0 : 1; }), 0)
        << "-1: the read hung; 1: the next preference file was not read";

    // A stop request ends the read of the preferences; the walk's next start reads them again.
    generator.prepareGenerator();
    generator.stopReadingPreferences();
    EXPECT_EQ(generator.currentIPhotoLibPath(), "none");
    generator.prepareGenerator();
    EXPECT_EQ(generator.currentIPhotoLibPath(), tree / "pics");
}

} // namespace
} // namespace corvel
