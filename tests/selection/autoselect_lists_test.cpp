#include <gtest/gtest.h>

#include "platform/property_list.h"
#include "platform/system_log.h"
#include "platform/user_defaults.h"
#include "platform/user_paths.h"
#include "selection/autoselect_lists.h"
#include "selection/autoselect_separator.h"
#include "support/temp_tree.h"

namespace corvel {
namespace {

CVAutoselectListItem entry(const std::string& path, std::int32_t category, bool enabled = true) {
    CVAutoselectListItem item;
    item.path = path;
    item.category = category;
    item.enabled = enabled;
    return item;
}

class AutoselectListsTest : public testing::Test {
protected:
    test::TempTree tree;
    UserDefaults defaults{tree / "d.plist"};
};

TEST_F(AutoselectListsTest, TheFirstStartWritesTheDownloadsFolderOnly) {
    CVAutoselectLists lists(defaults);
    const auto items = lists.list();
    ASSERT_EQ(items.size(), 1u);
    EXPECT_EQ(items[0].path, userDirectory(UserDirectory::Downloads));
    EXPECT_FALSE(items[0].linkedPath);
    EXPECT_TRUE(items[0].enabled);
    EXPECT_EQ(items[0].category, kAlwaysSelect);
    EXPECT_TRUE(defaults.boolForKey(kAutoSelectDefaultSetKey));
    ASSERT_TRUE(defaults.synchronize());
    const std::string written = test::TempTree::read(defaults.path());
    EXPECT_EQ(written.find("Mail"), std::string::npos) << "no Mail downloads entry nor its flag:\n"
                                                       << written;
    EXPECT_EQ(written.find("/Library/"), std::string::npos);

    // A second start keeps what the user made of the lists and adds nothing.
    lists.setAutoselectList({entry("/data/keep", kNeverSelect)});
    CVAutoselectLists again(defaults);
    ASSERT_EQ(again.list().size(), 1u);
    EXPECT_EQ(again.list()[0].path, "/data/keep");
    EXPECT_FALSE(defaults.hasStoredValueForKey(kAutoselectMailDownloadsSetKey));
}

// A list in the file before anything selected (written by hand, as the README invites) is
// the user's: the first use keeps it as it is, whatever it holds, and a list of the wrong
// type is reported and reads as empty.
TEST_F(AutoselectListsTest, AListStoredBeforeTheFirstUseIsKeptAsItIs) {
    const PropertyValue::Dictionary always{{"Path", "/data/incoming"}, {"Category", 0}, {"Enabled", true}};
    const PropertyValue::Dictionary bytes{
        {"Path", PropertyValue::Data{'/', 'd', 0xe9}}, {"Category", 0}, {"Enabled", true}};
    const struct {
        const char* name;
        PropertyValue stored;
        std::vector<std::string> paths; // what the lists read
        bool reported;
    } cases[] = {
        {"an Always Select entry", PropertyValue::Array{always}, {"/data/incoming"}, false},
        {"a path stored as bytes and a stray element",
         PropertyValue::Array{bytes, "stray"},
         {"/d\xe9"},
         false},
        {"an empty list", PropertyValue::Array{}, {}, false},
        {"a string", "/data/incoming", {}, true},
        {"a dictionary", always, {}, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string path =
            tree.file(std::string("hand-") + std::to_string(&c - cases) + ".plist",
                      propertyListData(PropertyValue::Dictionary{{kAutoselectListKey, c.stored}},
                                       PropertyListFormat::XML));
        ScopedLogCapture log;
        {
            UserDefaults store(path);
            CVAutoselectLists lists(store);
            std::vector<std::string> read;
            for (const auto& item : lists.list())
                read.push_back(item.path);
            EXPECT_EQ(read, c.paths);
            EXPECT_TRUE(store.boolForKey(kAutoSelectDefaultSetKey));
            ASSERT_TRUE(store.synchronize());
        }
        UserDefaults reopened(path);
        EXPECT_EQ(reopened.objectForKey(kAutoselectListKey), c.stored) << "the stored list is unchanged";
        EXPECT_EQ(log.contains("Setting \"AutoselectList\" in " + path + " has the wrong type"), c.reported)
            << testing::PrintToString(log.lines());
    }
}

TEST_F(AutoselectListsTest, AStoredMailDownloadsEntryIsTheUsersAndStays) {
    CVAutoselectListItem mail = entry("/home/ada/Library/Mail Downloads", kAlwaysSelect, false);
    mail.linkedPath = "/home/ada/Library/Containers/com.apple.mail/Data/Library/Mail Downloads";
    const std::vector<CVAutoselectListItem> stored{entry("/data/dl", kAlwaysSelect), mail};
    {
        UserDefaults earlier(tree / "earlier.plist");
        CVAutoselectLists(earlier).setAutoselectList(stored);
        earlier.setBool(true, kAutoSelectDefaultSetKey);
        ASSERT_TRUE(earlier.synchronize());
    }
    const std::string before = test::TempTree::read(tree / "earlier.plist");
    UserDefaults reopened(tree / "earlier.plist");
    EXPECT_EQ(CVAutoselectLists(reopened).list(), stored);
    EXPECT_FALSE(reopened.hasStoredValueForKey(kAutoselectMailDownloadsSetKey));
    ASSERT_TRUE(reopened.synchronize());
    EXPECT_EQ(test::TempTree::read(tree / "earlier.plist"), before) << "the file is left as it was";
}

TEST_F(AutoselectListsTest, EntriesRoundTripAndResetsKeepNeverSelect) {
    CVAutoselectLists lists(defaults);
    CVAutoselectListItem linked = entry("/a", kAlwaysSelect, false);
    linked.linkedPath = "/b";
    lists.setAutoselectList({linked, entry("/n", kNeverSelect)});
    EXPECT_EQ(lists.list()[0], linked);
    lists.removeAutoselectIncludeList();
    ASSERT_EQ(lists.list().size(), 1u);
    EXPECT_EQ(lists.list()[0].path, "/n");
    lists.resetAutoselectPrefferedListWithPath("/n", std::nullopt);
    ASSERT_EQ(lists.list().size(), 1u) << "the same path in either list is replaced";
    EXPECT_EQ(lists.list()[0].category, kAlwaysSelect);
    lists.setEnable(false, "/n");
    EXPECT_FALSE(lists.list()[0].enabled);
    tree.folder("real");
    tree.symlink("link", tree / "real");
    EXPECT_EQ(CVAutoselectListItem::autoselectItemWithPath(tree / "link", kNeverSelect).path, tree / "real");
}

TEST_F(AutoselectListsTest, RelationsToStoredEntries) {
    CVAutoselectLists lists(defaults);
    lists.setAutoselectList({entry("/u/Downloads", kAlwaysSelect), entry("/u/Archive", kNeverSelect, false),
                             entry("/u/Photos", kNeverSelect)});
    struct Case {
        CVAutoselectListItem item;
        AutoselectRelation relation;
        std::string related;
    };
    for (const Case& c : {Case{entry("/u/Downloads", kNeverSelect), kRelationInOtherList, "/u/Downloads"},
                          Case{entry("/u", kNeverSelect), kRelationContainsAlways, "/u/Downloads"},
                          Case{entry("/u/Archive/old", kAlwaysSelect), kRelationInsideNever, "/u/Archive"},
                          Case{entry("/u/Photos", kNeverSelect), kRelationSameEntry, "/u/Photos"},
                          Case{entry("/u/Downloadsx", kNeverSelect), kRelationNone, ""},
                          Case{entry("/elsewhere", kAlwaysSelect), kRelationNone, ""},
                          // Whole components, the root and trailing slashes.
                          Case{entry("/", kNeverSelect), kRelationContainsAlways, "/u/Downloads"},
                          Case{entry("/u/Archive/", kAlwaysSelect), kRelationInOtherList, "/u/Archive"},
                          Case{entry("/u/Photos/x/", kAlwaysSelect), kRelationInsideNever, "/u/Photos"},
                          Case{entry("/u/Photosx", kAlwaysSelect), kRelationNone, ""}}) {
        CVAutoselectListItem related;
        EXPECT_EQ(lists.relationForItem(c.item, &related), c.relation) << c.item.path;
        EXPECT_EQ(related.path, c.related) << c.item.path;
    }
}

std::vector<std::shared_ptr<CVFile>> files(const std::vector<std::string>& paths) {
    std::vector<std::shared_ptr<CVFile>> out;
    for (const auto& p : paths)
        out.push_back(std::make_shared<CVFile>(p, "", 10));
    return out;
}

std::vector<std::string> paths(const std::vector<std::shared_ptr<CVFile>>& items) {
    std::vector<std::string> out;
    for (const auto& i : items)
        out.push_back(i->path());
    return out;
}

TEST_F(AutoselectListsTest, TheSeparatorPrefersTheLongerFolderAndNeverSelectOnTies) {
    CVAutoselectLists lists(defaults);
    lists.setAutoselectList({entry("/u/Downloads", kAlwaysSelect), entry("/u", kNeverSelect),
                             entry("/u/Down", kAlwaysSelect), entry("/v/Off", kAlwaysSelect, false),
                             entry("/w/Same", kAlwaysSelect), entry("/w/Same", kNeverSelect)});
    const auto items = files({"/u/Downloads/x", "/u/Documents/y", "/w/Same/z", "/v/Off/q", "/other/r",
                              "/home/u/Google Drive/s", "/home/u/Nextcloud/t"});
    CVAutoselectSeparator separator(items, defaults);
    EXPECT_EQ(paths(separator.alwaysSelect()), (std::vector<std::string>{"/u/Downloads/x"}));
    EXPECT_EQ(paths(separator.neverSelect()),
              (std::vector<std::string>{"/u/Documents/y", "/w/Same/z", "/home/u/Google Drive/s",
                                        "/home/u/Nextcloud/t"}));
    EXPECT_EQ(CVAutoselectSeparator::getMaxRangeWithStingsArray({"/u", "/u/Down"}, "/u/Downloads/x"), 7u)
        << "a plain prefix: /u/Down claims /u/Downloads";
    EXPECT_FALSE(CVAutoselectSeparator::getMaxRangeWithStingsArray({"/x"}, "/u/a"));
    EXPECT_EQ(separator.whiteList().size(), 3u) << "the disabled entry is left out";
}

struct CloudCase {
    std::string path;
    bool synced;
};

void PrintTo(const CloudCase& c, std::ostream* os) {
    *os << c.path;
}

class CloudFolders : public testing::TestWithParam<CloudCase> {};

TEST_P(CloudFolders, AreNeverChosenAutomatically) {
    const auto items = files({GetParam().path});
    EXPECT_EQ(CVAutoselectSeparator::insideNetworkDrives(items).size(), GetParam().synced ? 1u : 0u);
}

INSTANTIATE_TEST_SUITE_P(
    Paths, CloudFolders,
    testing::Values(CloudCase{"/home/u/Dropbox/a.jpg", true}, CloudCase{"/home/u/Nextcloud/a.jpg", true},
                    CloudCase{"/home/u/OneDrive/a.jpg", true}, CloudCase{"/home/u/onedrive/Docs/a.jpg", true},
                    CloudCase{"/home/u/OneDrive - Contoso/a.jpg", true},
                    CloudCase{"/home/u/MEGA/a.jpg", true}, CloudCase{"/home/u/MEGAsync/a.jpg", true},
                    CloudCase{"/home/u/pCloudDrive/a.jpg", true},
                    CloudCase{"/home/u/pCloud Drive/a.jpg", true}, CloudCase{"/home/u/pCloud/a.jpg", true},
                    CloudCase{"/home/u/pCloud Sync/a.jpg", true},
                    // Names that only begin or end like a service's folder are not synced.
                    CloudCase{"/home/u/OneDriveBackup/a.jpg", false},
                    CloudCase{"/home/u/MEGADrive/a.jpg", false}, CloudCase{"/home/u/Omega/a.jpg", false},
                    CloudCase{"/home/u/pCloudy/a.jpg", false},
                    CloudCase{"/home/u/Pictures/OneDrive.jpg", false}, CloudCase{"/home/u/a.jpg", false}));

} // namespace
} // namespace corvel
