#include <gtest/gtest.h>
#include <sys/mount.h>

#include "engine/node_type.h"
#include "engine/node_type_generator.h"
#include "platform/property_list.h"
#include "platform/resources.h"
#include "platform/system_log.h"
#include "platform/user_defaults.h"
#include "settings/ignore_list.h"
#include "support/other_user.h"
#include "support/temp_tree.h"

namespace corvel {
namespace {

// A small default list written for the rule tests.
PropertyValue testList(const std::string& pattern) {
    auto record = [](const std::string& value, bool on = true) {
        return PropertyValue(PropertyValue::Dictionary{{"Value", value}, {"Enabled", on}});
    };
    return PropertyValue::Dictionary{
        {"SystemPaths",
         PropertyValue::Dictionary{{"Value", PropertyValue::Array{"/sys", "lost+found", "~/Library"}}}},
        {"FileNames", PropertyValue::Array{"Thumbs.db", "junk"}},
        {"IgnoreRegexpString", pattern},
        {"BundleFiles", PropertyValue::Array{".git"}},
        {"UnremovableExtentions", PropertyValue::Array{"app"}},
        {"UnremovableFolders", PropertyValue::Array{"~", "~/Pictures"}},
        {"Directories", PropertyValue::Array{record("~/Excluded"), record("/data/off", false)}},
        {"ExtentionsGroups",
         PropertyValue::Array{
             PropertyValue::Dictionary{
                 {"ID", 1}, {"Enabled", true}, {"Extentions", PropertyValue::Array{"tmp", "JPG"}}},
             PropertyValue::Dictionary{
                 {"ID", 2}, {"Enabled", false}, {"Extentions", PropertyValue::Array{"iso"}}}}},
        {"FilePathes", PropertyValue::Array{record("/home/ada/secret.txt")}},
    };
}

class IgnoreListTest : public testing::Test {
protected:
    void make(const std::string& pattern = "(~$)") {
        resource =
            tree.file("IgnoreList.plist", propertyListData(testList(pattern), PropertyListFormat::XML));
        list = std::make_unique<CVIgnoreList>(defaults, resource, environment(), generator);
        list->updateExcludeList();
    }
    CVIgnoreList::Environment environment() {
        return {"/home/ada", "/home/ada", [](const std::string& p) {
                    return p.starts_with("/media/usb") ? std::string("/media/usb") : std::string("/");
                }};
    }
    test::TempTree tree;
    UserDefaults defaults{tree / "d.plist"};
    CVNodeTypeGenerator generator{defaults, tree / "home", tree / "home"};
    std::string resource;
    std::unique_ptr<CVIgnoreList> list;
};

struct VerdictCase {
    std::string path;
    NodeType folderType;
    bool ignoreLibrary;
    ScanVerdict verdict;
};

void PrintTo(const VerdictCase& c, std::ostream* os) {
    *os << c.path;
}

class Verdicts : public IgnoreListTest, public testing::WithParamInterface<VerdictCase> {};

TEST_P(Verdicts, FirstRuleThatFiresDecides) {
    make();
    list->addExcludePathWithRoot("/");
    list->addExcludePathWithRoot("/home/ada");
    const auto& c = GetParam();
    EXPECT_EQ(list->isPathForbiddenToScan(c.path, c.folderType, c.ignoreLibrary, false), c.verdict)
        << list->description();
}

INSTANTIATE_TEST_SUITE_P(
    Rules, Verdicts,
    testing::Values(
        // dot names come before every list, even a name in the file-name list
        VerdictCase{"/home/ada/.hidden.txt", kNodeTypePlainFolder, false, ScanRefusedHidden},
        VerdictCase{"/home/ada/.thumbs.db", kNodeTypePlainFolder, false, ScanRefusedHidden},
        VerdictCase{"/sys/.x", kNodeTypePlainFolder, false, ScanRefusedHidden},
        // file names only with an extension, compared lowercase as name or base name
        VerdictCase{"/home/ada/THUMBS.DB", kNodeTypePlainFolder, false, ScanRefusedFileName},
        VerdictCase{"/home/ada/junk.txt", kNodeTypePlainFolder, false, ScanRefusedFileName},
        VerdictCase{"/home/ada/junk", kNodeTypePlainFolder, false, ScanAllowed},
        // system paths (4) and user paths (5), by whole components
        VerdictCase{"/sys", kNodeTypePlainFolder, false, ScanRefusedSystemPath},
        VerdictCase{"/sys/kernel/x", kNodeTypePlainFolder, false, ScanRefusedSystemPath},
        VerdictCase{"/system", kNodeTypePlainFolder, false, ScanAllowed},
        VerdictCase{"/lost+found/a", kNodeTypePlainFolder, false, ScanRefusedSystemPath},
        VerdictCase{"/home/ada/Excluded/a.txt", kNodeTypePlainFolder, false, ScanRefusedUserPath},
        VerdictCase{"/home/ada/ExcludedToo", kNodeTypePlainFolder, false, ScanAllowed},
        VerdictCase{"/data/off/a", kNodeTypePlainFolder, false, ScanAllowed},
        VerdictCase{"/home/ada/secret.txt", kNodeTypePlainFolder, false, ScanRefusedUserPath},
        // the ~/Library exception for forced roots
        VerdictCase{"/home/ada/Library/Mail Downloads/a.pdf", kNodeTypePlainFolder, false,
                    ScanRefusedSystemPath},
        VerdictCase{"/home/ada/Library/Mail Downloads/a.pdf", kNodeTypePlainFolder, true, ScanAllowed},
        // extension groups: enabled only, and taken as written (capitals never match)
        VerdictCase{"/home/ada/a.tmp", kNodeTypePlainFolder, false, ScanRefusedExtension},
        VerdictCase{"/home/ada/photo.jpg", kNodeTypePlainFolder, false, ScanAllowed},
        VerdictCase{"/home/ada/disk.iso", kNodeTypePlainFolder, false, ScanAllowed},
        // the pattern, anywhere in the lowercased path
        VerdictCase{"/home/ada/notes.txt~", kNodeTypePlainFolder, false, ScanRefusedPattern},
        // inside a photo library only the four picture folders are entered
        VerdictCase{"/p/Lib.photolibrary/Thumbnails", kNodeTypeIPhotoLibrary, false, ScanRefusedSystemPath},
        VerdictCase{"/p/Lib.photolibrary/Masters", kNodeTypeCurrentIPhotoLibrary, false, ScanAllowed},
        VerdictCase{"/p/Lib.photolibrary/masters", kNodeTypeIPhotoLibrary, false, ScanRefusedSystemPath}));

TEST_F(IgnoreListTest, SystemPathsAreRegisteredPerRootByPrefixInBothDirections) {
    make();
    list->addExcludePathWithRoot("/home/ada/Pictures");
    EXPECT_TRUE(list->currentPathsToExclude().size() == 1 &&
                list->currentPathsToExclude()[0] == "/home/ada/secret.txt")
        << "unrelated system and user paths are not registered for this root: " << list->description();
    list->addExcludePathWithRoot("/sys/kernel");
    ASSERT_EQ(list->currentPathsToExclude().back(), "/sys") << "a root inside a system path registers it";
    EXPECT_TRUE(list->isSystemPathIndex(list->currentPathsToExclude().size() - 1));
    list->addExcludePathWithRoot("/media/usb/Photos");
    EXPECT_NE(list->currentPathsToExclude().back(), "/media/usb/lost+found") << "not inside this root";
    list->addExcludePathWithRoot("/media/usb");
    EXPECT_EQ(list->currentPathsToExclude().back(), "/media/usb/lost+found")
        << "relative entries sit at the volume root";
    const std::size_t before = list->currentPathsToExclude().size();
    list->addExcludePathWithRoot("/sys/kernel");
    EXPECT_EQ(list->currentPathsToExclude().size(), before) << "no entry twice";
    list->updateExcludeList();
    EXPECT_EQ(list->currentPathsToExclude().size(), 1u) << "a new scan starts afresh";
    EXPECT_FALSE(list->isSystemPathIndex(0));
}

TEST_F(IgnoreListTest, TheSubpathTestWantsWholeComponents) {
    EXPECT_TRUE(CVIgnoreList::isSubpath("/a/b", "/a/b"));
    EXPECT_TRUE(CVIgnoreList::isSubpath("/a/b/c", "/a/b"));
    EXPECT_FALSE(CVIgnoreList::isSubpath("/a/bc", "/a/b"));
    EXPECT_TRUE(CVIgnoreList::isSubpath("/anything", "/"));
    EXPECT_FALSE(CVIgnoreList::isSubpath("/x/a/b", "/a/b"));
}

TEST_F(IgnoreListTest, PatternsCombineOnlyWithANonEmptyDefault) {
    make("");
    defaults.setObject("secret", kIgnoreRegexpStringKey);
    EXPECT_EQ(list->isPathForbiddenToScan("/home/ada/secret-plan.txt", kNodeTypePlainFolder, false, false),
              ScanAllowed)
        << "a user pattern with an empty default pattern has no effect";
    EXPECT_EQ(list->additionalRegex(), nullptr);

    make("\\.bak$");
    EXPECT_EQ(list->isPathForbiddenToScan("/home/ada/secret-plan.txt", kNodeTypePlainFolder, false, false),
              ScanRefusedPattern);
    EXPECT_EQ(list->isPathForbiddenToScan("/home/ada/old.BAK", kNodeTypePlainFolder, false, false),
              ScanRefusedPattern);
    defaults.setObject("", kIgnoreRegexpStringKey);
    EXPECT_EQ(list->isPathForbiddenToScan("/home/ada/secret-plan.txt", kNodeTypePlainFolder, false, false),
              ScanAllowed)
        << "edits of the user's pattern apply at once";

    ScopedLogCapture log;
    defaults.setObject("(unclosed", kIgnoreRegexpStringKey);
    EXPECT_EQ(list->isPathForbiddenToScan("/home/ada/a.txt", kNodeTypePlainFolder, false, false),
              ScanAllowed);
    EXPECT_TRUE(log.contains("Failed to create regular exp from string (\\.bak$)|((unclosed)"));
}

// A user pattern that does not compile applies in no form: not the one it replaced, and
// not a part of it. The shipped pattern still does its work, and the user hears why.
TEST_F(IgnoreListTest, ABrokenUserPatternLeavesNoUserPatternInForce) {
    make("\\.bak$");
    defaults.setObject("secret", kIgnoreRegexpStringKey);
    ASSERT_EQ(list->isPathForbiddenToScan("/home/ada/secret-plan.txt", kNodeTypePlainFolder, false, false),
              ScanRefusedPattern);
    ScopedLogCapture log;
    defaults.setObject("secret(", kIgnoreRegexpStringKey);
    EXPECT_EQ(list->isPathForbiddenToScan("/home/ada/secret-plan.txt", kNodeTypePlainFolder, false, false),
              ScanAllowed)
        << "the pattern before the edit no longer applies";
    EXPECT_EQ(list->isPathForbiddenToScan("/home/ada/old.bak", kNodeTypePlainFolder, false, false),
              ScanRefusedPattern)
        << "the shipped pattern still applies";
    const auto copy = list->additionalRegexCopy();
    ASSERT_TRUE(copy.has_value());
    EXPECT_FALSE(copy->search("/home/ada/secret-plan.txt")) << "the walk's copy agrees";
    EXPECT_TRUE(log.contains("Failed to create regular exp from string (\\.bak$)|(secret()"));
    EXPECT_TRUE(log.contains("The ignore pattern \"secret(\" is not a valid regular expression"))
        << testing::PrintToString(log.lines());
}

// Linux file systems tell "Photos" from "photos": so do the path verdicts.
TEST_F(IgnoreListTest, PathVerdictsCompareCaseSensitively) {
    make();
    list->excludePathsList().push_back(CVIgnoreList::pathsRecordsWithURLs({"file:///data/Photos"})[0]);
    list->updateExcludeList();
    list->addExcludePathWithRoot("/data");
    list->addExcludePathWithRoot("/home/ada");
    list->addExcludePathWithRoot("/");
    const std::pair<const char*, ScanVerdict> cases[] = {
        {"/data/Photos/a.jpg", ScanRefusedUserPath},
        {"/data/photos/a.jpg", ScanAllowed},
        {"/data/PHOTOS", ScanAllowed},
        {"/home/ada/secret.txt", ScanRefusedUserPath},
        {"/home/ada/Secret.txt", ScanAllowed},
        {"/home/ada/excluded/a.txt", ScanAllowed},
        {"/SYS/kernel", ScanAllowed},
        {"/sys/kernel", ScanRefusedSystemPath},
        // names and extensions are not paths: still compared in lower case
        {"/home/ada/THUMBS.DB", ScanRefusedFileName},
        {"/home/ada/A.TMP", ScanRefusedExtension},
    };
    for (const auto& [path, verdict] : cases)
        EXPECT_EQ(list->isPathForbiddenToScan(path, kNodeTypePlainFolder, false, false), verdict)
            << path << "\n"
            << list->description();
    list->updateExcludeList();
    list->addExcludePathWithRoot("/Data");
    EXPECT_EQ(list->currentPathsToExclude().size(), 1u)
        << "/data/Photos does not concern the root /Data: " << list->description();
    list->addExcludePathWithRoot("/home/ada");
    EXPECT_EQ(list->isPathForbiddenToScan("/home/ada/Library/x", kNodeTypePlainFolder, true, false),
              ScanAllowed);
    EXPECT_EQ(list->isPathForbiddenToScan("/home/ada/library/x", kNodeTypePlainFolder, true, false),
              ScanAllowed);
    EXPECT_EQ(list->isPathForbiddenToScan("/home/ada/Library/x", kNodeTypePlainFolder, false, false),
              ScanRefusedSystemPath);
}

// An "IgnoreList" that is not a dictionary is the user's (a hand edit gone wrong): it is
// reported and stays in the file, and the shipped lists apply meanwhile.
TEST_F(IgnoreListTest, AnIgnoreListOfTheWrongTypeIsLeftInTheFile) {
    resource = tree.file("IgnoreList.plist", propertyListData(testList("(~$)"), PropertyListFormat::XML));
    const std::string path =
        tree.file("wrong.plist",
                  propertyListData(PropertyValue::Dictionary{{kIgnoreListKey, PropertyValue::Array{"/data"}}},
                                   PropertyListFormat::XML));
    const std::string original = test::TempTree::read(path);
    ScopedLogCapture log;
    {
        UserDefaults store(path);
        CVIgnoreList ignoreList(store, resource, environment(), generator);
        EXPECT_EQ(ignoreList.excludePathsList().size(), 2u) << "the shipped lists";
        // Saving the lists (an exclusion, the program quitting) leaves the user's value too.
        ignoreList.excludeFilesList().push_back(
            PropertyValue::Dictionary{{"Value", "/data/x"}, {"Enabled", true}});
        ignoreList.synchronize();
        ASSERT_TRUE(store.synchronize());
    }
    EXPECT_EQ(test::TempTree::read(path), original);
    EXPECT_TRUE(log.contains("Setting \"IgnoreList\" in " + path + " has the wrong type"))
        << testing::PrintToString(log.lines());
}

// A settings file that cannot be read is left as it is: the user's lists in it are not
// replaced by the shipped ones, whatever the ignore list saves.
TEST_F(IgnoreListTest, AnUnreadableSettingsFileKeepsTheUserLists) {
    resource =
        tree.file("open/IgnoreList.plist", propertyListData(testList("(~$)"), PropertyListFormat::XML));
    const std::string original = propertyListData(
        PropertyValue::Dictionary{
            {kIgnoreListKey,
             PropertyValue::Dictionary{{kDirectoriesKey, PropertyValue::Array{PropertyValue::Dictionary{
                                                             {"Value", "/data/Mine"}, {"Enabled", true}}}},
                                       {kExtentionsGroupsKey, PropertyValue::Array{}},
                                       {kFilePathesKey, PropertyValue::Array{}}}}},
        PropertyListFormat::XML);
    const std::string path = tree.file("open/settings.plist", original);
    test::makeUnreadableToAnotherUser(path);
    const int status = test::runAsAnotherUser([&] {
        UserDefaults store(path);
        CVNodeTypeGenerator types(store, tree / "home", tree / "home");
        CVIgnoreList ignoreList(store, resource, environment(), types);
        ignoreList.excludePathsList().push_back(CVIgnoreList::pathsRecordsWithURLs({"file:///x"})[0]);
        ignoreList.synchronize();
        ignoreList.resetExcludeItemsToDefaults();
        return ignoreList.excludePathsList().size() == 2 ? 0 : 1; // the shipped lists, in memory
    });
    EXPECT_EQ(status, 0);
    EXPECT_EQ(test::TempTree::read(path), original);
}

TEST_F(IgnoreListTest, HiddenContentAndUnremovableDecisions) {
    make();
    auto type = static_cast<NodeType>(-1);
    tree.file("repo/.git/HEAD", "ref");
    EXPECT_TRUE(list->isPathContentHidden(tree / "repo", type));
    EXPECT_EQ(type, kNodeTypePlainFolder);
    EXPECT_FALSE(list->isPathContentHidden(tree.folder("plain"), type));
    EXPECT_TRUE(list->isPathContentHidden(tree.folder("Tool.app"), type));
    EXPECT_EQ(type, kNodeTypeApplication);
    EXPECT_TRUE(list->isPathContentHidden(tree.folder("Notes.rtfd"), type));
    EXPECT_TRUE(list->isPathContentHidden(tree.folder("x.bundle"), type));
    EXPECT_FALSE(list->isPathContentHidden(tree.folder("a.zip"), type));
    EXPECT_EQ(type, kNodeTypeArchive);
    EXPECT_TRUE(list->isPathContentHidden(tree.folder("Applications/Adobe Photoshop"), type));

    EXPECT_TRUE(list->isPathContentForbiddenToRemove("/x/Tool.app"));
    EXPECT_FALSE(list->isPathContentForbiddenToRemove("/x/Tool.APP"));
    EXPECT_FALSE(list->isPathContentForbiddenToRemove("/x/app"));
    EXPECT_TRUE(list->isFolderForbiddenToRemove("/home/ada"));
    EXPECT_TRUE(list->isFolderForbiddenToRemove("/home/ada/Pictures"));
    EXPECT_FALSE(list->isFolderForbiddenToRemove("/home/ada/pictures"));
}

TEST(ProtectedFolders, AFolderIsCoveredWhenItIsOrHoldsOne) {
    const std::vector<std::string> protectedFolders{"/home/ada", "/home/ada/Pictures", "/data/Docs"};
    const struct {
        const char* folder;
        bool covered;
    } cases[] = {
        {"/home/ada", true},    {"/home/ada/Pictures", true}, {"/home", true},           {"/", true},
        {"/data", true},        {"/data/Docs", true},         {"/data/Docs/old", false}, {"/data/Doc", false},
        {"/data/Docs2", false}, {"/home/ada/Music2", false},  {"/srv", false},
    };
    for (const auto& c : cases)
        EXPECT_EQ(CVIgnoreList::coversProtectedFolder(c.folder, protectedFolders), c.covered) << c.folder;
    EXPECT_FALSE(CVIgnoreList::coversProtectedFolder("/home/ada/Sync", {"/home/ada/Sync2/Docs"}));
}

TEST_F(IgnoreListTest, TheUserListsPersistAndAMissingListComesFromTheResource) {
    make();
    EXPECT_EQ(list->excludePathsList().size(), 2u) << "copied from the resource";
    ASSERT_TRUE(defaults.dictionaryForKey(kIgnoreListKey));
    list->excludePathsList().push_back(CVIgnoreList::pathsRecordsWithURLs({"file:///data/My%20Films"})[0]);
    list->excludeExtentionsGroups().push_back(CVIgnoreList::generateNewExcludeGroupWithExtensions({"mkv"}));
    list->synchronize();

    UserDefaults reopened(tree / "d.plist");
    CVIgnoreList again(reopened, resource, environment(), generator);
    ASSERT_EQ(again.excludePathsList().size(), 3u);
    EXPECT_EQ(*again.excludePathsList()[2]["Value"].asString(), "/data/My Films");
    EXPECT_EQ(again.excludeExtentionsGroups()[2]["ID"].toInt64(), -1);
    again.updateExcludeList();
    again.addExcludePathWithRoot("/data");
    EXPECT_EQ(again.isPathForbiddenToScan("/data/My Films/a.avi", kNodeTypePlainFolder, false, false),
              ScanRefusedUserPath);
    EXPECT_EQ(again.isPathForbiddenToScan("/data/b.mkv", kNodeTypePlainFolder, false, false),
              ScanRefusedExtension);
    EXPECT_EQ(again.generateUniqueIDForKey("anything"), -1);

    again.resetExcludeItemsToDefaults();
    EXPECT_EQ(again.excludePathsList().size(), 2u);
}

TEST_F(IgnoreListTest, AnExcludedPathThatIsNotUtf8IsKeptAndStillExcludes) {
    make();
    // Written as data (a settings file holds only valid UTF-8 text), read back as the path.
    const std::string folder = "/data/caf\xE9";
    PropertyValue::Dictionary record =
        *CVIgnoreList::pathsRecordsWithURLs({"file:///data/x"})[0].asDictionary();
    record[kRecordValueKey] = PropertyValue(folder);
    list->excludePathsList().push_back(PropertyValue(record));
    list->synchronize();

    UserDefaults reopened(tree / "d.plist");
    CVIgnoreList again(reopened, resource, environment(), generator);
    ASSERT_EQ(again.excludePathsList().size(), 3u);
    EXPECT_EQ(again.excludePathsList()[2][kRecordValueKey].textOrBytes(), folder);
    again.updateExcludeList();
    again.addExcludePathWithRoot("/data");
    EXPECT_EQ(again.isPathForbiddenToScan(folder + "/a.avi", kNodeTypePlainFolder, false, false),
              ScanRefusedUserPath);
    EXPECT_EQ(again.isPathForbiddenToScan("/data/cafe/a.avi", kNodeTypePlainFolder, false, false),
              ScanAllowed);
}

TEST_F(IgnoreListTest, AMissingResourceIsLoggedAndExcludesNothing) {
    ScopedLogCapture log;
    CVIgnoreList empty(defaults, tree / "missing.plist", environment(), generator);
    empty.updateExcludeList();
    empty.addExcludePathWithRoot("/");
    EXPECT_TRUE(log.contains("Failed to initialize ignore list at path"));
    EXPECT_EQ(empty.isPathForbiddenToScan("/sys/x", kNodeTypePlainFolder, false, false), ScanAllowed);
    EXPECT_EQ(empty.isPathForbiddenToScan("/x/.hidden", kNodeTypePlainFolder, false, false),
              ScanRefusedHidden);
}

TEST_F(IgnoreListTest, ATimeMachineBackupIsRefused) {
    make();
    tree.file("Backups.backupdb/com.apple.timemachine.machineid.plist", "<plist/>");
    EXPECT_EQ(list->isPathForbiddenToScan(tree / "Backups.backupdb", kNodeTypeUnknown, false),
              ScanRefusedTimeMachine);
}

// The shipped Linux list, on this machine's real mounts.
class ShippedIgnoreList : public testing::Test {
protected:
    test::TempTree tree;
    UserDefaults defaults{tree / "d.plist"};
    CVNodeTypeGenerator generator{defaults, tree / "home", tree / "home"};
    CVIgnoreList list{defaults, resourcePath("IgnoreList.plist"),
                      CVIgnoreList::Environment{"/home/ada", "/home/ada", nullptr}, generator};

    ScanVerdict rootVerdict(const std::string& root) {
        list.updateExcludeList();
        list.addExcludePathWithRoot(root);
        return list.isPathForbiddenToScan(root, kNodeTypeUnknown, false, true);
    }
};

TEST_F(ShippedIgnoreList, SystemAndHiddenRootsAreRefusedUserFoldersAllowed) {
    EXPECT_EQ(rootVerdict("/proc"), ScanRefusedSystemPath);
    EXPECT_EQ(rootVerdict("/usr/share"), ScanRefusedSystemPath);
    EXPECT_EQ(rootVerdict("/home/ada/.config"), ScanRefusedHidden);
    EXPECT_EQ(rootVerdict("/home/ada/.cache/thumbnails"), ScanRefusedSystemPath);
    EXPECT_EQ(rootVerdict("/home/ada/Pictures"), ScanAllowed);
    EXPECT_EQ(rootVerdict("/home/ada/snap"), ScanRefusedUserPath);
    EXPECT_EQ(rootVerdict("/"), ScanAllowed);
    EXPECT_EQ(list.isPathForbiddenToScan("/etc/passwd", kNodeTypePlainFolder, false, false),
              ScanRefusedSystemPath);
    EXPECT_EQ(list.isPathForbiddenToScan("/home/ada/Pictures/Thumbs.db", kNodeTypePlainFolder, false, false),
              ScanRefusedFileName);
    EXPECT_EQ(
        list.isPathForbiddenToScan("/home/ada/Downloads/film.mkv.part", kNodeTypePlainFolder, false, false),
        ScanRefusedPattern);
    EXPECT_EQ(list.isPathForbiddenToScan("/home/ada/vm/disk.qcow2", kNodeTypePlainFolder, false, false),
              ScanRefusedExtension);
    EXPECT_EQ(list.isPathForbiddenToScan("/home/ada/Pictures/a.jpg", kNodeTypePlainFolder, false, false),
              ScanAllowed);
}

TEST_F(ShippedIgnoreList, AFolderOnAnotherMountedVolumeIsAllowed) {
    const std::string mountPoint = tree.folder("usb");
    if (::mount("corvel-test", mountPoint.c_str(), "tmpfs", 0, "size=1m") != 0)
        GTEST_SKIP() << "cannot mount a scratch volume here";
    tree.folder("usb/Photos");
    EXPECT_EQ(rootVerdict(mountPoint + "/Photos"), ScanAllowed);
    EXPECT_EQ(rootVerdict(mountPoint), ScanAllowed);
    EXPECT_EQ(list.currentPathsToExclude().back(), mountPoint + "/$Recycle.Bin")
        << "the volume's own system folders are registered at its root";
    EXPECT_EQ(list.isPathForbiddenToScan(mountPoint + "/lost+found", kNodeTypePlainFolder, false, true),
              ScanRefusedSystemPath);
    ::umount(mountPoint.c_str());
}

} // namespace
} // namespace corvel
