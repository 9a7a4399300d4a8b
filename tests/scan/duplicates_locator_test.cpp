#include <climits>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <gtest/gtest.h>
#include <mutex>
#include <random>
#include <set>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include "engine/node_cache.h"
#include "engine/node_type.h"
#include "platform/file_access.h"
#include "platform/file_url.h"
#include "platform/main_queue.h"
#include "platform/notification_center.h"
#include "platform/property_list.h"
#include "reference_locator.h"
#include "scan/duplicates_locator.h"
#include "scan_harness.h"
#include "support/long_path.h"
#include "support/other_user.h"
#include "support/run_in_child.h"
#include "support/scoped_mount.h"

namespace corvel {
namespace {

namespace fs = std::filesystem;

// What a scan found, in a comparable form: each group's member paths and removal locks.
using Outcome = std::vector<std::vector<std::pair<std::string, bool>>>;

Outcome outcome(const std::vector<GroupPtr>& groups) {
    Outcome out;
    for (const auto& group : groups) {
        std::vector<std::pair<std::string, bool>> members;
        for (const auto& file : group->files())
            members.emplace_back(file->path(), file->removeForbidden());
        out.push_back(std::move(members));
    }
    return out;
}

// Each group's member paths, in no order.
std::set<std::set<std::string>> memberSets(CVDuplicatesController& results) {
    std::set<std::set<std::string>> groups;
    for (const auto& group : results.duplicatesGroups()) {
        std::set<std::string> members;
        for (const auto& file : group->files())
            members.insert(file->path());
        groups.insert(members);
    }
    return groups;
}

std::string content(char salt, std::size_t size) {
    std::string s(size, '\0');
    for (std::size_t i = 0; i < size; ++i)
        s[i] = static_cast<char>(static_cast<std::size_t>(salt) * 31 + i * 7 + (i >> 9));
    return s;
}

// Records notifications of one scan: from the scan thread (progress) and the main
// thread (start, end) alike.
struct Listener {
    mutable std::mutex mutex;
    std::vector<std::string> names;
    std::vector<double> progress;
    std::vector<ScopedObserver> observers;
    Listener() {
        auto& center = NotificationCenter::defaultCenter();
        observers.emplace_back(center, center.addObserver("", nullptr, [this](const Notification& n) {
            std::lock_guard lock(mutex);
            names.push_back(n.name);
            if (n.name == kProgressUpdatedNotification)
                progress.push_back(n.object.toDouble());
        }));
    }
    int count(const std::string& name) const {
        std::lock_guard lock(mutex);
        return static_cast<int>(std::count(names.begin(), names.end(), name));
    }
};

class Locator : public testing::Test {
protected:
    test::ScanHarness harness;
    test::TempTree tree;

    // A scan on this thread (the main thread): "scanFinished" runs inline.
    std::shared_ptr<CVDuplicatesController> scan(CVDuplicatesLocator& locator,
                                                 const std::vector<std::string>& roots) {
        locator.asyncScanPaths(roots);
        MainQueue::shared().drain();
        return locator.duplicatesController();
    }
};

TEST_F(Locator, AnEmptyPathListStartsNothing) {
    Listener listener;
    auto locator = harness.locator();
    EXPECT_FALSE(locator->scanPaths({}));
    MainQueue::shared().drain();
    EXPECT_TRUE(listener.names.empty());
}

TEST_F(Locator, ThreeIdenticalFilesMakeOneGroupAndScanEndsWithNotifications) {
    for (const char* name : {"a/x.bin", "b/y.bin", "c/z.bin"})
        tree.file(name, content('x', 70000));
    tree.file("d/other.bin", content('o', 70000));
    Listener listener;
    auto locator = harness.locator();
    ASSERT_TRUE(locator->scanPaths({tree.path()}));
    ASSERT_TRUE(MainQueue::shared().runUntil([&] { return !locator->isScanThreadRunning(); },
                                             std::chrono::seconds(30)));
    locator->waitForScanThread();
    MainQueue::shared().drain();
    const auto results = locator->duplicatesController();
    ASSERT_EQ(results->duplicatesGroups().size(), 1u);
    EXPECT_EQ(results->duplicatesGroups()[0]->childrenCount(), 3u);
    EXPECT_EQ(listener.count(kScanStartedNotification), 1);
    EXPECT_EQ(listener.count(kScanFinishedNotification), 1);
    EXPECT_EQ(locator->state(), ScanState::Idle);
}

TEST_F(Locator, ProgressEndsAt199ForFewGroupsAndAt100ForMany) {
    for (const int groups : {30, 31}) {
        test::TempTree many;
        for (int i = 0; i < groups; ++i)
            for (const char* side : {"a", "b"})
                many.file(std::string(side) + "/f" + std::to_string(i),
                          content(static_cast<char>(i), 1000 + i));
        // Unequal extras keep the two folders from being duplicates of each other.
        many.file("a/extra", content('1', 10));
        many.file("b/extra", content('2', 20));
        Listener listener;
        auto locator = harness.locator();
        locator->setMinimumSizeOverride(1);
        scan(*locator, {many.path()});
        ASSERT_FALSE(listener.progress.empty());
        if (groups == 30) {
            EXPECT_EQ(listener.progress, (std::vector<double>{99.0, 199.0}));
        } else {
            EXPECT_DOUBLE_EQ(listener.progress.front(), 2.0);
            EXPECT_DOUBLE_EQ(listener.progress.back(), 100.0);
            EXPECT_EQ(listener.progress.size(), 2u + 31u) << "a step per size group, then the rest";
        }
        EXPECT_EQ(locator->duplicatesController()->count(), static_cast<std::uint64_t>(groups));
    }
}

TEST_F(Locator, ProgressEndsAt100WhenNoSizeReachesTheAutomaticMinimum) {
    // Default settings: every size group lies below the automatic minimum, so none
    // counts as useful, and the top count still searches them.
    for (int i = 0; i < 40; ++i)
        for (const char* side : {"a", "b"})
            tree.file(std::string(side) + "/f" + std::to_string(i), content(static_cast<char>(i), 1000 + i));
    tree.file("a/extra", content('1', 10));
    tree.file("b/extra", content('2', 20));
    Listener listener;
    auto locator = harness.locator();
    scan(*locator, {tree.path()});
    ASSERT_FALSE(listener.progress.empty());
    for (const double value : listener.progress)
        EXPECT_TRUE(std::isfinite(value));
    EXPECT_DOUBLE_EQ(listener.progress.back(), 100.0);
    EXPECT_DOUBLE_EQ(locator->progress(), 100.0);
    EXPECT_EQ(locator->duplicatesController()->count(), 40u);
}

TEST_F(Locator, MinimumSizeAndTheTopCountDecideWhichSizesAreSearched) {
    tree.file("a/big", content('b', 60000));
    tree.file("b/big", content('b', 60000));
    tree.file("a/mid1", content('m', 40000));
    tree.file("b/mid1", content('m', 40000));
    tree.file("a/mid2", content('n', 40000));
    tree.file("b/mid2", content('n', 40000));
    tree.file("a/small", content('s', 30000));
    tree.file("b/small", content('s', 30000));
    tree.file("a/extra", content('1', 10));
    tree.file("b/extra", content('2', 20));
    struct Case {
        std::uint64_t topCount;
        std::size_t groups;
        const char* why;
    };
    for (const Case& c : {Case{0, 1, "no top count: only sizes from 50000 up"},
                          Case{3, 3, "the top count runs out after the 40000 groups"},
                          Case{2, 4, "two groups at 40000 wrap the count: every smaller size is searched"}}) {
        harness.preferences.setTopFilesCount(c.topCount);
        auto locator = harness.locator();
        EXPECT_EQ(scan(*locator, {tree.path()})->duplicatesGroups().size(), c.groups) << c.why;
    }
    harness.preferences.setTopFilesCount(100);
    auto locator = harness.locator();
    locator->setMinimumSizeOverride(35000);
    EXPECT_EQ(scan(*locator, {tree.path()})->duplicatesGroups().size(), 3u)
        << "a hard minimum ignores the top count";
    harness.defaults.setBool(true, "OverrideMinSize");
    harness.defaults.setDouble(0.0, "MinScanSize");
    auto everything = harness.locator();
    EXPECT_EQ(scan(*everything, {tree.path()})->duplicatesGroups().size(), 4u)
        << "the slider at 0 locates all";
}

TEST_F(Locator, NamesOfOneFileAloneMakeNoGroup) {
    tree.file("a/orig", content('h', 60000));
    ASSERT_EQ(::link((tree / "a/orig").c_str(), (tree / "a/link1").c_str()), 0);
    ASSERT_EQ(::link((tree / "a/orig").c_str(), (tree / "a/link2").c_str()), 0);
    tree.file("b/p", content('p', 61000));
    ASSERT_EQ(::link((tree / "b/p").c_str(), (tree / "b/plink").c_str()), 0);
    tree.file("b/pcopy", content('p', 61000));
    auto locator = harness.locator();
    const Outcome found = outcome(scan(*locator, {tree.path()})->duplicatesGroups());
    ASSERT_EQ(found.size(), 1u) << "three names of one file free nothing; two links and a copy do";
    EXPECT_EQ(found[0].size(), 3u);
}

TEST_F(Locator, AGroupOfLockedCopiesIsShownOnlyWhenAskedFor) {
    test::TempTree locked;
    locked.file("x/one", content('l', 62000));
    locked.file("y/two", content('l', 62000));
    CVError error;
    if (!setImmutable(locked / "x", true, &error) || !setImmutable(locked / "y", true, &error))
        GTEST_SKIP() << "cannot lock folders here: " << error.localizedDescription();
    auto lockedLocator = harness.locator();
    EXPECT_TRUE(scan(*lockedLocator, {locked.path()})->duplicatesGroups().empty());
    harness.defaults.setBool(true, kShowFilesWithNoPermissionsKey);
    auto showing = harness.locator();
    const Outcome shown = outcome(scan(*showing, {locked.path()})->duplicatesGroups());
    ASSERT_EQ(shown.size(), 1u);
    EXPECT_TRUE(shown[0][0].second && shown[0][1].second);
    EXPECT_TRUE(setImmutable(locked / "x", false, &error));
    EXPECT_TRUE(setImmutable(locked / "y", false, &error));
}

// A locked file among removable copies: the group stays, that member may not go.
TEST_F(Locator, ALockedCopyAmongRemovableOnesStaysInItsGroupButMayNotGo) {
    test::TempTree mixed;
    mixed.file("one", content('m', 63000));
    mixed.file("two", content('m', 63000));
    CVError error;
    if (!setImmutable(mixed / "two", true, &error))
        GTEST_SKIP() << "cannot lock files here: " << error.localizedDescription();
    auto mixedLocator = harness.locator();
    const Outcome members = outcome(scan(*mixedLocator, {mixed.path()})->duplicatesGroups());
    EXPECT_TRUE(setImmutable(mixed / "two", false, &error));
    ASSERT_EQ(members.size(), 1u);
    for (const auto& [path, forbidden] : members[0])
        EXPECT_EQ(forbidden, path == mixed / "two") << path;
}

TEST_F(Locator, StoppingMidScanKeepsWhatWasFoundAndPostsNoFinish) {
    for (int i = 0; i < 40; ++i)
        for (const char* side : {"a", "b"})
            tree.file(std::string(side) + "/f" + std::to_string(i), content(static_cast<char>(i), 2000 + i));
    tree.file("a/extra", content('1', 10));
    tree.file("b/extra", content('2', 20));
    Listener listener;
    auto locator = harness.locator();
    locator->setMinimumSizeOverride(1);
    auto& center = NotificationCenter::defaultCenter();
    ScopedObserver stopper(
        center, center.addObserver(kProgressUpdatedNotification, nullptr, [&](const Notification& n) {
            if (n.object.toDouble() > 30.0)
                locator->stopScan();
        }));
    const auto results = scan(*locator, {tree.path()});
    EXPECT_EQ(listener.count(kScanFinishedNotification), 0);
    EXPECT_EQ(locator->state(), ScanState::Idle);
    EXPECT_GT(results->count(), 0u);
    EXPECT_LT(results->count(), 40u);
}

// Every node of a walk, once (sub-folders stand twice in their parents).
std::vector<NodePtr> walkedNodes(const CVFilesHierarchy& hierarchy) {
    std::vector<NodePtr> nodes;
    std::set<const CVNode*> seen;
    std::vector<NodePtr> pending(hierarchy.topNodes().rbegin(), hierarchy.topNodes().rend());
    while (!pending.empty()) {
        NodePtr node = pending.back();
        pending.pop_back();
        if (!seen.insert(node.get()).second)
            continue;
        nodes.push_back(node);
        for (auto it = node->children().rbegin(); it != node->children().rend(); ++it)
            pending.push_back(*it);
    }
    return nodes;
}

std::shared_ptr<CVFile> walkedFile(const CVFilesHierarchy& hierarchy, const std::string& path) {
    for (const auto& node : walkedNodes(hierarchy))
        if (node->path() == path)
            return std::dynamic_pointer_cast<CVFile>(node);
    return nullptr;
}

// The groups of a walk searched with every size taking part.
Outcome searchWalk(CVDuplicatesLocator& locator, CVFilesHierarchy& hierarchy) {
    locator.setMinimumSizeOverride(1);
    locator.startSearching();
    locator.locateDuplicatesInDictionary(hierarchy.filesGroupedBySize());
    return outcome(locator.duplicatesController()->allDuplicatesGroups());
}

// A folder node built by hand around real files, with their inode numbers (a group of
// nodes without them would read as hard links of one file).
std::shared_ptr<CVFolder> handBuiltFolder(const std::string& path, const std::vector<std::string>& files,
                                          CVNodeDelegate* delegate, const NodeServicesPtr& services) {
    auto folder = std::make_shared<CVFolder>(path, "");
    folder->setServices(services);
    folder->setType(kNodeTypePlainFolder);
    folder->setDelegate(delegate);
    struct stat st {};
    ::stat(path.c_str(), &st);
    folder->setInodeNumber(st.st_ino);
    for (const auto& file : files) {
        ::stat(file.c_str(), &st);
        auto node = std::make_shared<CVFile>(file, "", static_cast<std::uint64_t>(st.st_size));
        node->setInodeNumber(st.st_ino);
        folder->addChildFile(node);
    }
    return folder;
}

// A file removed between the walk and the reading of its content is named once, with
// its reason, though both the folder comparison and its size group meet it; a file
// that shrank meanwhile was read (its content changed) and is not named. Neither joins
// a group.
TEST_F(Locator, AFileThatCannotBeReadIsNamedOnceWithItsReason) {
    for (const std::string side : {"x", "y"}) {
        tree.file(side + "/f", content('f', 70000));
        tree.file(side + "/g", content('g', 80000));
        tree.file(side + "/h", content('h', 90000));
    }
    auto locator = harness.locator();
    auto hierarchy = harness.walk({tree.path()}, locator.get());
    ::unlink((tree / "y/g").c_str());
    ::truncate((tree / "y/h").c_str(), 100);
    const Outcome found = searchWalk(*locator, *hierarchy);
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0][0].first, tree / "x/f");
    const std::vector<UnreadFile> named = locator->unreadFiles().named();
    ASSERT_EQ(named.size(), 1u);
    EXPECT_EQ(named[0].path, tree / "y/g");
    EXPECT_EQ(named[0].reason, "No such file or directory");
    EXPECT_EQ(locator->unreadFiles().count(), 1u);
}

// The folder comparison reads the children itself: a child it cannot read is named
// even when no size group reads it.
TEST_F(Locator, AFolderComparisonNamesTheChildItCouldNotRead) {
    std::vector<std::string> a;
    std::vector<std::string> b;
    for (const char* name : {"1", "2"}) {
        a.push_back(tree.file(std::string("a/") + name, content(name[0], 5000)));
        b.push_back(tree.file(std::string("b/") + name, content(name[0], 5000)));
    }
    auto locator = harness.locator();
    auto folderA = handBuiltFolder(tree / "a", a, locator.get(), harness.nodes);
    auto folderB = handBuiltFolder(tree / "b", b, locator.get(), harness.nodes);
    locator->startSearching(); // an idle locator stops folder comparisons at once
    ::unlink(b[1].c_str());
    EXPECT_FALSE(folderA->isDuplicateOf(*folderB, false));
    const std::vector<UnreadFile> named = locator->unreadFiles().named();
    ASSERT_EQ(named.size(), 1u);
    EXPECT_EQ(named[0].path, b[1]);
    EXPECT_EQ(named[0].reason, "No such file or directory");
}

// An AlbumData.xml laid out as the photo application writes it (the list of rolls, a
// key between the lists, the master image list), listing one photo by its path.
std::string albumDataListing(const std::string& photoPath) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n<dict>\n"
           "\t<key>Application Version</key>\n\t<string>9.6.1</string>\n"
           "\t<key>List of Rolls</key>\n\t<array>\n\t\t<dict>\n"
           "\t\t\t<key>RollID</key>\n\t\t\t<integer>1</integer>\n"
           "\t\t\t<key>RollName</key>\n\t\t\t<string>Trip</string>\n\t\t</dict>\n\t</array>\n"
           "\t<key>Major Version</key>\n\t<integer>2</integer>\n"
           "\t<key>Master Image List</key>\n\t<dict>\n\t\t<key>1</key>\n\t\t<dict>\n"
           "\t\t\t<key>MediaType</key>\n\t\t\t<string>Image</string>\n"
           "\t\t\t<key>Roll</key>\n\t\t\t<integer>1</integer>\n"
           "\t\t\t<key>ImagePath</key>\n\t\t\t<string>" +
           photoPath +
           "</string>\n\t\t\t<key>ThumbPath</key>\n\t\t\t<string>/thumbs/x.jpg</string>\n"
           "\t\t</dict>\n\t</dict>\n</dict>\n</plist>\n";
}

TEST_F(Locator, APhotoLibraryFileThatTheLibraryDoesNotListTakesNoPart) {
    // Both photos lie in the library's Masters folder; the library lists only one. Each
    // has a copy outside the library.
    const std::string listed = tree.file("Photos/Masters/listed.jpg", content('l', 60000));
    const std::string unlisted = tree.file("Photos/Masters/unlisted.jpg", content('u', 61000));
    tree.file("Photos/AlbumData.xml", albumDataListing(listed));
    const std::string listedCopy = tree.file("loose/a.jpg", content('l', 60000));
    const std::string unlistedCopy = tree.file("loose/b.jpg", content('u', 61000));
    auto locator = harness.locator();
    auto hierarchy = harness.walk({tree.path()}, locator.get());
    const auto library = walkedFile(*hierarchy, tree / "Photos");
    ASSERT_TRUE(library);
    ASSERT_EQ(library->type(), kNodeTypeIPhotoLibrary);

    struct Case {
        std::string path;
        bool ignored;
    };
    for (const Case& c :
         {Case{listed, false}, Case{unlisted, true}, Case{listedCopy, false}, Case{unlistedCopy, false}}) {
        const auto file = walkedFile(*hierarchy, c.path);
        ASSERT_TRUE(file) << c.path;
        EXPECT_EQ(locator->ignoreFile(*file), c.ignored) << c.path;
    }
    const Outcome found = searchWalk(*locator, *hierarchy);
    EXPECT_EQ(found, (Outcome{{{listed, true}, {listedCopy, false}}}))
        << "the unlisted photo and its copy make no group";
}

// The scan's nodes use the services the locator was given: the library is parsed by its
// media manager, its files are typed by its generator and the folder comparisons are
// memoised in its cache, never in the shared ones, and two scans on services of their own find the same.
TEST_F(Locator, NodesUseTheServicesTheLocatorWasGiven) {
    const std::string photo = tree.file("Photos/Masters/listed.jpg", content('l', 60000));
    tree.file("Photos/AlbumData.xml", albumDataListing(photo));
    tree.file("loose/a.jpg", content('l', 60000));
    for (const char* side : {"A", "B"}) {
        tree.file(std::string(side) + "/sub/x.bin", content('x', 9000));
        tree.file(std::string(side) + "/y.bin", content('y', 8000));
    }
    // An extension no other test uses, so that typing it through the shared generator shows.
    const std::string probe = tree.file("probe/one.servicesprobe", content('s', 3000));
    tree.file("probe/two.servicesprobe", content('s', 3000));
    const std::size_t sharedLibraries = CViMediaManager::sharedInstance().parsedLibrariesCount();
    const std::size_t sharedExtensions = CVNodeTypeGenerator::sharedGenerator().knownExtensionsCount();

    auto found = [&](test::ScanHarness& own) {
        auto locator = own.locator();
        locator->setMinimumSizeOverride(1);
        locator->asyncScanPaths({tree.path()});
        MainQueue::shared().drain();
        return outcome(locator->duplicatesController()->allDuplicatesGroups());
    };
    const Outcome first = found(harness);
    EXPECT_EQ(harness.media.parsedLibrariesCount(), 1U) << "the library is read through the given manager";
    EXPECT_EQ(CViMediaManager::sharedInstance().parsedLibrariesCount(), sharedLibraries);
    EXPECT_GE(harness.generator.knownExtensionsCount(), 3U) << "files are typed by the given generator";
    EXPECT_EQ(CVNodeTypeGenerator::sharedGenerator().knownExtensionsCount(), sharedExtensions);
    EXPECT_TRUE(harness.cache.duplicatedFolder(tree / "A/sub", tree / "B/sub").value_or(false));
    EXPECT_FALSE(CVNodeCache::sharedCache().duplicatedFolder(tree / "A/sub", tree / "B/sub").has_value());

    test::ScanHarness other;
    EXPECT_EQ(found(other), first);
    EXPECT_EQ(other.media.parsedLibrariesCount(), 1U);
    const Outcome expected{{{photo, true}, {tree / "loose/a.jpg", false}},
                           {{tree / "A", false}, {tree / "B", false}},
                           {{probe, false}, {tree / "probe/two.servicesprobe", false}}};
    EXPECT_EQ(first, expected);
}

// A fifo named like a library file, and another at the library preferences path: the
// scan (run in a child that is killed if it hangs) ends and still finds the copies.
TEST_F(Locator, FifosNamedLikeLibraryFilesOrPreferencesNeverHoldTheScan) {
    tree.file("Photos/Masters/a.jpg", content('p', 50000));
    const std::string song = tree.file("Music/Media/a.mp3", content('m', 51000));
    tree.file("loose/a.jpg", content('p', 50000));
    const std::string songCopy = tree.file("loose/a.mp3", content('m', 51000));
    harness.settings.folder("home/Library/Preferences");
    for (const std::string& fifo : {tree / "Photos/AlbumData.xml", tree / "Music/iTunes Library.xml",
                                    harness.settings / "home/Library/Preferences/com.apple.iApps.plist"})
        ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0) << fifo;
    const int answer = test::runInChild(
        [&] {
            auto locator = harness.locator();
            const auto results = scan(*locator, {tree.path()});
            if (!results || results->duplicatesGroups().size() != 1)
                return 1;
            const auto members = outcome(results->duplicatesGroups())[0];
            return members.size() == 2 && members[0].first == song && members[1].first == songCopy ? 0 : 2;
        },
        20);
    EXPECT_NE(answer, test::kChildTimedOut) << "the scan hung";
    EXPECT_EQ(answer, 0) << "one group, the song and its copy: the music library lists nothing and frees "
                            "its files; the photo library lists nothing, so its photo takes no part";
}

// The home folder and its standard folders may hold what a backup holds: the group is
// found, but they can never be chosen to go.
TEST_F(Locator, HomeStandardFoldersAreFoundButNeverRemovable) {
    const std::string pictures = harness.settings.folder("home/Pictures");
    harness.settings.file("home/Pictures/p.jpg", content('p', 60000));
    harness.settings.file("home/Pictures/q.jpg", content('q', 60000));
    harness.settings.file("home/notes.txt", content('n', 60000)); // so that home is not a copy too
    const std::string backup = tree.folder("backup/Pictures");
    tree.file("backup/Pictures/p.jpg", content('p', 60000));
    tree.file("backup/Pictures/q.jpg", content('q', 60000));
    auto locator = harness.locator();
    const auto results = scan(*locator, {harness.settings / "home", tree.path()});
    ASSERT_TRUE(results);
    Outcome found = outcome(results->duplicatesGroups());
    Outcome expected{{{backup, false}, {pictures, true}}};
    for (Outcome* sorted : {&found, &expected})
        for (auto& group : *sorted)
            std::sort(group.begin(), group.end());
    EXPECT_EQ(found, expected);
}

// Reached through a bind mount, a standard folder is the same folder; and a folder that is
// a mount point (a bind mount, a mounted volume) could only be emptied, never removed: the
// groups are found, and those members can never be chosen to go.
TEST_F(Locator, ProtectedFoldersUnderAnotherPathAndMountPointsAreNeverRemovable) {
    harness.settings.folder("home/Pictures");
    harness.settings.file("home/Pictures/p.jpg", content('p', 60000));
    harness.settings.file("home/notes.txt", content('n', 60000)); // so that home is not a copy too
    const std::string view = tree.folder("view");
    test::ScopedMount bind(harness.settings / "home", view, nullptr, MS_BIND);
    if (!bind.mounted())
        GTEST_SKIP() << bind.why();
    const std::string backup = tree.folder("backup/Pictures");
    tree.file("backup/Pictures/p.jpg", content('p', 60000));
    const std::string volume = tree.folder("volume");
    test::ScopedMount mounted("corvel-test", volume, "tmpfs", 0);
    if (!mounted.mounted())
        GTEST_SKIP() << mounted.why();
    tree.file("volume/v.bin", content('v', 70000));
    const std::string volumeBackup = tree.folder("backup/volume");
    tree.file("backup/volume/v.bin", content('v', 70000));
    auto locator = harness.locator();
    const auto results = scan(*locator, {view, backup, volume, volumeBackup});
    ASSERT_TRUE(results);
    Outcome found = outcome(results->duplicatesGroups());
    Outcome expected{{{backup, false}, {view + "/Pictures", true}}, {{volumeBackup, false}, {volume, true}}};
    for (Outcome* sorted : {&found, &expected}) {
        for (auto& group : *sorted)
            std::sort(group.begin(), group.end());
        std::sort(sorted->begin(), sorted->end());
    }
    EXPECT_EQ(found, expected);
}

// A snapshot made of hard links ("cp -al") holds the very same files as its folder:
// grouping the two would free nothing and hide the copies inside. A real copy of the
// folder still groups with it.
TEST_F(Locator, AFolderOfHardLinksIsNoCopyOfItsFolder) {
    const std::string g = tree.file("x/g", content('g', 80000));
    const std::string g2 = tree.file("x/g2", content('g', 80000));
    tree.file("x/sub/other", content('o', 70000));
    for (const char* name : {"g", "g2", "sub/other"}) {
        tree.folder("snap/sub");
        ASSERT_EQ(::link((tree / "x/" + name).c_str(), (tree / "snap/" + name).c_str()), 0) << name;
    }
    // A snapshot where only some files are links still frees space: it is a copy.
    tree.file("partly/g2", content('g', 80000));
    tree.file("partly/sub/other", content('o', 70000));
    ASSERT_EQ(::link(g.c_str(), (tree / "partly/g").c_str()), 0);
    // Then among many other folders of their size, which the search fingerprints.
    for (const bool amongMany : {false, true}) {
        for (std::size_t n = 0; amongMany && n < kFingerprintedFoldersFrom; ++n)
            tree.file("many/" + std::to_string(n) + "/g", content(static_cast<char>('A' + n), 230000));
        for (const bool withARealCopy : {false, true}) {
            SCOPED_TRACE(std::string(amongMany ? "among many, " : "") +
                         (withARealCopy ? "a real copy" : "links"));
            fs::remove_all(tree / "real");
            if (withARealCopy) {
                tree.file("real/g", content('g', 80000));
                tree.file("real/g2", content('g', 80000));
                tree.file("real/sub/other", content('o', 70000));
            }
            auto locator = harness.locator();
            const auto results = scan(*locator, {tree.path()});
            ASSERT_TRUE(results);
            const auto groups = memberSets(*results);
            if (withARealCopy)
                EXPECT_EQ(groups,
                          (std::set<std::set<std::string>>{{tree / "x", tree / "real", tree / "partly"},
                                                           {tree / "snap/g", tree / "snap/g2"}}));
            else
                EXPECT_EQ(groups, (std::set<std::set<std::string>>{{tree / "x", tree / "partly"},
                                                                   {tree / "snap/g", tree / "snap/g2"}}));
        }
    }
}

// A link under another name is no snapshot: the folder holding it may still be a copy
// of another folder.
TEST_F(Locator, AFolderLinkingAFileUnderAnotherNameIsStillACopy) {
    const std::string x = tree.file("a/x", content('h', 60000));
    tree.folder("b");
    ASSERT_EQ(::link(x.c_str(), (tree / "b/y").c_str()), 0);
    tree.file("c/y", content('h', 60000));
    auto locator = harness.locator();
    const auto results = scan(*locator, {tree.path()});
    ASSERT_TRUE(results);
    const auto groups = memberSets(*results);
    EXPECT_EQ(groups, (std::set<std::set<std::string>>{{tree / "b", tree / "c"}}));
}

TEST_F(Locator, AFileThatAnITunesLibraryDoesNotListIsFreedFromTheLibrary) {
    const std::string listed = tree.file("Music/Media/listed.mp3", content('l', 60000));
    const std::string unlisted = tree.file("Music/Media/unlisted.mp3", content('u', 61000));
    const PropertyValue library(PropertyValue::Dictionary{
        {"Tracks", PropertyValue::Dictionary{{"1", PropertyValue::Dictionary{
                                                       {"Location", fileURLStringFromPath(listed)},
                                                       {"Name", "Listed"},
                                                   }}}}});
    tree.file("Music/iTunes Library.xml", propertyListData(library, PropertyListFormat::XML));
    const std::string listedCopy = tree.file("loose/a.mp3", content('l', 60000));
    const std::string unlistedCopy = tree.file("loose/b.mp3", content('u', 61000));
    auto locator = harness.locator();
    auto hierarchy = harness.walk({tree.path()}, locator.get());
    const auto libraryFolder = walkedFile(*hierarchy, tree / "Music");
    ASSERT_TRUE(libraryFolder);
    ASSERT_EQ(libraryFolder->type(), kNodeTypeITunesLibrary);
    for (const std::string& inside : {listed, unlisted}) {
        const auto file = walkedFile(*hierarchy, inside);
        ASSERT_TRUE(file);
        EXPECT_TRUE(file->removeForbidden()) << "the walk protects the library's files: " << inside;
    }

    const Outcome found = searchWalk(*locator, *hierarchy);
    EXPECT_EQ(found,
              (Outcome{{{unlisted, false}, {unlistedCopy, false}}, {{listed, true}, {listedCopy, false}}}))
        << "the file the library does not list may be removed like any other";
    struct Case {
        std::string path;
        bool inLibrary;
    };
    for (const Case& c : {Case{listed, true}, Case{unlisted, false}, Case{listedCopy, false}}) {
        const auto file = walkedFile(*hierarchy, c.path);
        ASSERT_TRUE(file) << c.path;
        EXPECT_EQ(file->rootFolder() == libraryFolder, c.inLibrary) << c.path;
        EXPECT_EQ(file->rootFolder() != nullptr, c.inLibrary) << c.path;
    }
}

// Paths of hand-made size-group members: 'D' a plain folder, 'K' a folder of another
// type (an archive-named folder), 'f' a file.
NodePtr sortNode(char kind, const std::string& path) {
    if (kind == 'f')
        return std::make_shared<CVFile>(path, "", 10);
    auto folder = std::make_shared<CVFolder>(path, "");
    folder->setType(kind == 'D' ? kNodeTypePlainFolder : kNodeTypeArchive);
    return folder;
}

TEST(SizeGroupOrder, PlainFoldersComeFirstShorterPathsFirstAndTheRestKeepTheirOrder) {
    struct Case {
        const char* label;
        std::vector<std::pair<char, std::string>> nodes;
        std::vector<std::string> sorted;
    };
    const Case cases[] = {
        {"files only keep their order", {{'f', "/b"}, {'f', "/a"}, {'f', "/c"}}, {"/b", "/a", "/c"}},
        {"a folder goes before the files",
         {{'f', "/f1"}, {'D', "/d/x"}, {'f', "/f2"}},
         {"/d/x", "/f1", "/f2"}},
        {"shorter paths first",
         {{'D', "/a/bb/cc"}, {'D', "/a/b"}, {'D', "/a/bbbb"}},
         {"/a/b", "/a/bbbb", "/a/bb/cc"}},
        {"by the length of the path, not its depth",
         {{'D', "/a/bbbbbbb"}, {'D', "/a/b/c"}},
         {"/a/b/c", "/a/bbbbbbb"}},
        {"paths of equal length keep their order", {{'D', "/a/y"}, {'D', "/a/x"}}, {"/a/y", "/a/x"}},
        {"other folder types stay among the files",
         {{'f', "/z"}, {'K', "/k.zip"}, {'D', "/a/b/c"}, {'f', "/y"}, {'D', "/a/b"}},
         {"/a/b", "/a/b/c", "/z", "/k.zip", "/y"}},
    };
    for (const Case& c : cases) {
        std::vector<NodePtr> nodes;
        for (const auto& [kind, path] : c.nodes)
            nodes.push_back(sortNode(kind, path));
        CVDuplicatesLocator::sortSizeGroup(nodes);
        std::vector<std::string> paths;
        for (const auto& node : nodes)
            paths.push_back(node->path());
        EXPECT_EQ(paths, c.sorted) << c.label;
    }
}

TEST_F(Locator, TheShallowerFolderLeadsItsGroupAndHidesTheFilesInside) {
    // One size holds everything: each root, its folders and the file inside. The first
    // root's copy sits deeper (a/x) than the second root itself (b).
    const std::string first = tree.file("a/x/A/f", content('s', 5000));
    const std::string second = tree.file("b/A/f", content('s', 5000));
    auto locator = harness.locator();
    auto hierarchy = harness.walk({tree / "a", tree / "b"}, locator.get());
    EXPECT_EQ(searchWalk(*locator, *hierarchy), (Outcome{{{tree / "b", false}, {tree / "a/x", false}}}))
        << "folders are compared before the files of their size, shorter paths first";
}

TEST_F(Locator, LargeTextDocumentsAreComparedWholeAndOtherLargeFilesBySamples) {
    // 600000 bytes each; the copies differ in one byte outside the head and the sampled pieces.
    std::string data = content('t', 600000);
    for (const char* name : {"one.txt", "one.bin"})
        tree.file(std::string("r/") + name, data);
    data[15000] ^= 1;
    for (const char* name : {"two.txt", "two.bin"})
        tree.file(std::string("r/") + name, data);
    auto locator = harness.locator();
    auto hierarchy = harness.walk({tree / "r"}, locator.get());
    EXPECT_EQ(searchWalk(*locator, *hierarchy),
              (Outcome{{{tree / "r/one.bin", false}, {tree / "r/two.bin", false}}}))
        << "only the sampled pair is taken for equal";
}

// Two folders equal on their samples but not on every byte: confirmed whole, they are
// no copies, and the files inside them are compared as files (here a loose file and
// three copies of it, which the folder group would have hidden).
TEST_F(Locator, FoldersConfirmedWholeThatDifferLeaveTheirFilesToTheFileComparison) {
    std::string data = content('s', 600000);
    tree.file("r/base.bin", data);
    for (const char* folder : {"r/one", "r/two"})
        tree.file(std::string(folder) + "/a.bin", data);
    tree.file("r/one/b.bin", data);
    data[15000] ^= 1; // outside every sampled piece
    tree.file("r/two/b.bin", data);
    tree.file("r/same1/c.bin", data);
    tree.file("r/same2/c.bin", data);
    const Outcome sampledFolders = {{{tree / "r/one", false}, {tree / "r/two", false}},
                                    {{tree / "r/same1", false}, {tree / "r/same2", false}}};
    // The files are grouped on their samples too; confirming file groups comes after.
    const Outcome confirmedFolders = {{{tree / "r/same1", false}, {tree / "r/same2", false}},
                                      {{tree / "r/base.bin", false},
                                       {tree / "r/one/a.bin", false},
                                       {tree / "r/one/b.bin", false},
                                       {tree / "r/two/a.bin", false},
                                       {tree / "r/two/b.bin", false}}};
    for (const bool confirmed : {false, true}) {
        SCOPED_TRACE(confirmed ? "confirmed whole" : "on samples");
        auto locator = harness.locator();
        locator->setFoldersConfirmedWhole(confirmed);
        auto hierarchy = harness.walk({tree / "r"}, locator.get());
        EXPECT_EQ(searchWalk(*locator, *hierarchy), confirmed ? confirmedFolders : sampledFolders);
        const auto groups = locator->duplicatesController()->allDuplicatesGroups();
        ASSERT_FALSE(groups.empty());
        EXPECT_EQ(groups[confirmed ? 0 : 1]->contentVerified(), confirmed)
            << "a folder group confirmed whole needs no second confirmation";
    }
}

// Random trees: sizes from a small set so that size groups collide, contents from a
// small pool so that many are equal, large sampled files, copied folders, hard links,
// links, and roots given twice (every node then stands twice with the same path).
void buildRandomTree(const test::TempTree& tree, std::mt19937& rng) {
    const std::size_t sizes[] = {1, 17, 4096, 4096, 60000, 60000, 510000, 600000};
    auto pick = [&](std::size_t n) { return static_cast<std::size_t>(rng() % n); };
    const std::vector<std::string> folders = {"r", "r/a", "r/b", "r/a/c", "r/b/d", "r/e"};
    for (int n = 0; n < 24; ++n) {
        const std::size_t size = sizes[pick(std::size(sizes))];
        const char salt = static_cast<char>('a' + pick(3));
        std::string data = content(salt, size);
        if (size == 600000 && pick(2) == 0)
            data[15000] ^= 1; // outside every sampled piece: still equal by signature
        const char* extension = pick(3) == 0 ? ".txt" : ".bin";
        tree.file(folders[pick(folders.size())] + "/f" + std::to_string(n) + extension, data);
    }
    // A folder that is one item (an archive-named folder, a package) holding a single
    // file has that file's size: the file, a loose copy of it and a copy of the folder
    // share one size group, where the order of comparison decides what is found.
    if (pick(2) == 0) {
        const std::string folder = pick(2) == 0 ? "r/b/pack.zip" : "r/b/pack.pages";
        const std::string data = content(static_cast<char>('a' + pick(3)), sizes[pick(std::size(sizes))]);
        tree.file(folder + "/inner.bin", data);
        tree.file("r/" + std::string(pick(2) == 0 ? "0" : "z") + "-loose.bin", data);
        tree.folder("r/e");
        fs::copy(tree / folder, tree / ("r/e/" + folder.substr(4)), fs::copy_options::recursive);
    }
    tree.folder("r/e");
    if (pick(2) == 0 && fs::exists(tree / "r/a"))
        fs::copy(tree / "r/a", tree / "r/copy-of-a", fs::copy_options::recursive);
    if (pick(2) == 0 && fs::exists(tree / "r/b"))
        fs::copy(tree / "r/b", tree / "r/e/copy-of-b", fs::copy_options::recursive);
    for (int n = 0; n < 2; ++n) {
        const std::string target = tree / ("r/f-linked" + std::to_string(n));
        tree.file("r/f-linked" + std::to_string(n), content('a', 60000));
        ::link(target.c_str(), (target + "-hard").c_str());
    }
    tree.symlink("r/sym", tree / "r/f-linked0");
}

// Searches the roots size group by size group, and through a whole threaded search
// with several budgets of kept bytes, and expects the groups the plain pairwise search
// finds each time; found gets how many groups that is.
void expectWhatPairwiseComparisonFinds(test::ScanHarness& harness, const std::vector<std::string>& roots,
                                       int& found) {
    auto fastLocator = harness.locator();
    auto fastWalk = harness.walk(roots, fastLocator.get());
    auto referenceLocator = harness.locator();
    auto referenceWalk = harness.walk(roots, referenceLocator.get());
    fastLocator->startSearching();
    referenceLocator->startSearching();

    auto& fastSizes = fastWalk->filesGroupedBySize();
    auto& referenceSizes = referenceWalk->filesGroupedBySize();
    ASSERT_EQ(fastSizes.size(), referenceSizes.size());
    harness.cache.resetCache();
    Outcome fast;
    for (const std::uint64_t size : fastSizes.sizesLargestFirst())
        for (auto& group : outcome(fastLocator->findDuplicatesInSizeGroup(fastSizes.nodes(size))))
            fast.push_back(group);
    harness.cache.resetCache();
    Outcome reference;
    for (const std::uint64_t size : referenceSizes.sizesLargestFirst())
        for (auto& group :
             outcome(test::referenceFindDuplicatesInSizeGroup(*referenceLocator, referenceSizes.nodes(size))))
            reference.push_back(group);
    ASSERT_EQ(fast, reference);

    // The same through a whole search, where reader threads sort the files ahead:
    // with the usual budget of kept bytes, none (every shared digest read again), and
    // room for one whole signature of 60,000 bytes at a time.
    for (const std::uint64_t limit : {kKeptBytesBudget, std::uint64_t{0}, std::uint64_t{60000}}) {
        SCOPED_TRACE("kept bytes " + std::to_string(limit));
        auto threadedLocator = harness.locator();
        threadedLocator->setMinimumSizeOverride(1);
        threadedLocator->setKeptBytesLimit(limit);
        auto threadedWalk = harness.walk(roots, threadedLocator.get());
        threadedLocator->startSearching();
        harness.cache.resetCache();
        threadedLocator->locateDuplicatesInDictionary(threadedWalk->filesGroupedBySize());
        ASSERT_EQ(outcome(threadedLocator->duplicatesController()->allDuplicatesGroups()), reference);
    }
    found = static_cast<int>(reference.size());
}

TEST_F(Locator, DigestBucketsFindExactlyWhatPairwiseComparisonFinds) {
    std::mt19937 rng(20261121);
    int compared = 0;
    for (int round = 0; round < 40; ++round) {
        SCOPED_TRACE(round);
        test::TempTree tree2;
        buildRandomTree(tree2, rng);
        std::vector<std::string> roots{tree2 / "r"};
        if (rng() % 4 == 0)
            roots.push_back(tree2 / "r"); // the same root twice: same-path doubles
        int found = 0;
        expectWhatPairwiseComparisonFinds(harness, roots, found);
        if (HasFatalFailure())
            return;
        compared += found;
    }
    EXPECT_GT(compared, 100) << "the random trees must actually hold duplicates";
}

// Many folders of one size (8,192 bytes), so that the search fingerprints them: one
// file or two, files in sub-folders, an empty file beside, contents from a small pool
// and names from a few, and bundles. A loose file of that size shares the size group.
void buildManySameSizeFolders(const test::TempTree& tree, std::mt19937& rng) {
    auto pick = [&](std::size_t n) { return static_cast<std::size_t>(rng() % n); };
    auto salt = [&] { return static_cast<char>('a' + pick(2)); };
    const std::size_t folders = kFingerprintedFoldersFrom + pick(24);
    for (std::size_t n = 0; n < folders; ++n) {
        // Bundles are compared by their "Contents/Info.plist" alone.
        const std::size_t shape = pick(5);
        const bool bundle = pick(shape == 3 ? 2 : 10) == 0;
        const std::string folder = "r/d" + std::to_string(n) + (bundle ? ".app" : "");
        switch (shape) {
        case 0:
            tree.file(folder + "/a.bin", content(salt(), 8192));
            break;
        case 1:
            tree.file(folder + "/a.bin", content(salt(), 4096));
            tree.file(folder + (pick(2) == 0 ? "/b.bin" : "/c.bin"), content(salt(), 4096));
            break;
        case 2:
            tree.file(folder + "/s/a.bin", content(salt(), 4096));
            tree.file(folder + "/t/a.bin", content(salt(), 4096));
            break;
        case 3:
            tree.file(folder + "/Contents/Info.plist", content(salt(), 4096));
            tree.file(folder + "/a.bin", content(salt(), 4096));
            break;
        default:
            tree.file(folder + "/a.bin", content(salt(), 8192));
            tree.file(folder + "/empty", "");
            break;
        }
    }
    tree.file("r/loose.bin", content(salt(), 8192));
}

TEST_F(Locator, ManyFoldersOfOneSizeFindExactlyWhatPairwiseComparisonFinds) {
    std::mt19937 rng(20261125);
    int compared = 0;
    for (int round = 0; round < 12; ++round) {
        SCOPED_TRACE(round);
        test::TempTree tree2;
        buildManySameSizeFolders(tree2, rng);
        int found = 0;
        expectWhatPairwiseComparisonFinds(harness, {tree2 / "r"}, found);
        if (HasFatalFailure())
            return;
        compared += found;
    }
    EXPECT_GT(compared, 50) << "the folders must actually hold copies";
}

// A part of a folder the walk cannot read, made the same way in two folders that are
// otherwise equal (and whose unread parts differ).
enum class Unread { Nothing, UnlistableFolder, UnexaminableEntries, PathTooLong, TooDeep };

struct UnreadCase {
    const char* name;
    Unread part;
    const char* reason; // why each folder holding it is named
};

class FolderNotReadCompletely : public Locator,
                                public testing::WithParamInterface<std::tuple<UnreadCase, bool>> {};

// The outcome and the folders not read completely, as text: each group's members and each
// folder's first two components below top with its reason.
std::string describe(const Outcome& groups, const std::vector<IncompleteFolder>& incomplete,
                     const std::string& top) {
    std::string text;
    for (const auto& group : groups) {
        text += "group:";
        for (const auto& member : group)
            text += " " + member.first.substr(top.size() + 1);
        text += "\n";
    }
    for (const auto& folder : incomplete) {
        const std::string relative =
            folder.path.size() > top.size() ? folder.path.substr(top.size() + 1) : "";
        const std::size_t second = relative.find('/', relative.find('/') + 1);
        text += "incomplete: " + relative.substr(0, second) + ": " + folder.reason + "\n";
    }
    return text;
}

TEST_P(FolderNotReadCompletely, NeverMakesAFolderGroupButItsReadFilesStillGroup) {
    const UnreadCase c = std::get<0>(GetParam());
    const bool cutEverywhere = std::get<1>(GetParam());
    const std::string top = tree / "top";
    for (const char* side : {"A", "B"}) {
        const std::string folder = std::string("top/") + side;
        tree.file(folder + "/1.bin", content('1', 5000));
        tree.file(folder + "/2.bin", content('2', 6000));
        // What the walk cannot read differs between the two sides.
        const std::string unseen = content(c.part == Unread::Nothing ? 'u' : side[0], 3000);
        std::string deep = folder + "/part";
        if (c.part == Unread::TooDeep)
            for (int level = 0; level < CVFilesHierarchy::kMaxPlainDepth; ++level)
                deep += "/d";
        if (c.part == Unread::PathTooLong)
            tree.folder(deep);
        else
            tree.file(deep + "/x.bin", unseen);
    }
    // Folders are made for their owner alone: open them to the other account, which
    // must also be able to remove what it finds, or no group is kept.
    test::openToAnotherUser(tree.path());
    for (const auto& entry : fs::recursive_directory_iterator(tree.path()))
        if (entry.is_directory())
            ::chmod(entry.path().c_str(), 0777);
    std::vector<std::unique_ptr<test::LongPath>> longPaths;
    for (const char* side : {"A", "B"}) {
        const std::string part = top + "/" + side + "/part";
        if (c.part == Unread::UnlistableFolder)
            ::chmod(part.c_str(), 0700);
        else if (c.part == Unread::UnexaminableEntries)
            ::chmod(part.c_str(), 0744); // its names can be listed, not examined
        else if (c.part == Unread::PathTooLong)
            longPaths.push_back(std::make_unique<test::LongPath>(part, content(side[0], 3000)));
    }

    // Root reads every folder: the walk runs where another account's permissions apply.
    int channel[2];
    ASSERT_EQ(::pipe(channel), 0);
    const int status = test::runAsAnotherUser([&] {
        ::close(channel[0]);
        auto locator = harness.locator();
        auto hierarchy = std::make_unique<CVFilesHierarchy>(std::vector<CVScanPath>{{top, false}},
                                                            harness.hierarchyServices());
        hierarchy->setNodeDelegate(locator.get());
        hierarchy->setWalkOptions({cutEverywhere ? 2U : 0U, cutEverywhere});
        hierarchy->rescan();
        harness.cache.resetCache();
        const std::string text =
            describe(searchWalk(*locator, *hierarchy), hierarchy->incompleteFolders(), top);
        const bool written =
            ::write(channel[1], text.data(), text.size()) == static_cast<ssize_t>(text.size());
        return written ? 0 : 1;
    });
    ::close(channel[1]);
    std::string found;
    char buffer[4096];
    for (ssize_t n; (n = ::read(channel[0], buffer, sizeof buffer)) > 0;)
        found.append(buffer, static_cast<std::size_t>(n));
    ::close(channel[0]);
    ASSERT_EQ(status, 0);

    std::string expected;
    if (c.part == Unread::Nothing) {
        expected = "group: A B\n";
    } else {
        expected = "group: A/2.bin B/2.bin\ngroup: A/1.bin B/1.bin\n";
        for (const char* side : {"A", "B"})
            expected += std::string("incomplete: ") + side + "/part: " + c.reason + "\n";
    }
    EXPECT_EQ(found, expected);
}

INSTANTIATE_TEST_SUITE_P(
    Walk, FolderNotReadCompletely,
    testing::Combine(
        testing::Values(UnreadCase{"Nothing", Unread::Nothing, ""},
                        UnreadCase{"UnlistableFolder", Unread::UnlistableFolder, "Permission denied"},
                        UnreadCase{"UnexaminableEntries", Unread::UnexaminableEntries, "Permission denied"},
                        UnreadCase{"PathTooLong", Unread::PathTooLong, "File name too long"},
                        UnreadCase{"TooDeep", Unread::TooDeep,
                                   "it lies deeper than the walk goes (26 folders down)"}),
        testing::Bool()),
    [](const auto& param) {
        return std::string(std::get<0>(param.param).name) + (std::get<1>(param.param) ? "Cut" : "OnePass");
    });

} // namespace
} // namespace corvel

namespace corvel {
namespace {

class LocatorWalk : public Locator, public testing::WithParamInterface<TreeWalker::Options> {};

// The last child of that name (a sub-folder stands twice, the last one carries its size).
NodePtr childNamed(const NodePtr& folder, const std::string& name) {
    NodePtr found;
    for (const auto& child : folder->children())
        if (child->storedPath() == name)
            found = child;
    return found;
}

// Two equal folders, each holding the same chains of folders past PATH_MAX: one with a
// file at its bottom, one with an empty file, which folder comparison would not need to
// read. The walk lists every level, but what lies past PATH_MAX can be neither read nor
// removed by path: the files there group with nothing, and no folder holding a chain is
// ever a folder group, though A/hollow and B/hollow compare equal.
TEST_P(LocatorWalk, FoldersReachingPastPathMaxAreListedButNeverAFolderGroup) {
    std::vector<std::unique_ptr<test::LongPath>> chains;
    for (const std::string side : {"A", "B"}) {
        tree.file("top/" + side + "/1.bin", content('1', 5000));
        tree.file("top/" + side + "/deep/2.bin", content('2', 6000));
        tree.file("top/" + side + "/hollow/4.bin", content('4', 4000));
        chains.push_back(
            std::make_unique<test::LongPath>(tree / ("top/" + side + "/deep"), content('3', 3000)));
        chains.push_back(std::make_unique<test::LongPath>(tree / ("top/" + side + "/hollow"), ""));
    }
    const std::string top = tree / "top";
    auto locator = harness.locator();
    CVFilesHierarchy hierarchy({{top, false}}, harness.hierarchyServices());
    hierarchy.setNodeDelegate(locator.get());
    hierarchy.setWalkOptions(GetParam());
    hierarchy.rescan();

    // Every level of a chain is a node, down to the file at the bottom.
    std::size_t levels = 0;
    std::uint64_t bottomSize = 0;
    NodePtr node = childNamed(childNamed(hierarchy.topNodes().at(0), "A"), "deep");
    for (NodePtr below; node && (below = childNamed(node, std::string(200, 'n'))); node = below)
        ++levels;
    if (const NodePtr bottom = node ? childNamed(node, "file") : nullptr)
        bottomSize = bottom->size();
    EXPECT_EQ(levels, 22U);
    EXPECT_EQ(bottomSize, 3000U);

    harness.cache.resetCache();
    const std::string found = describe(searchWalk(*locator, hierarchy), hierarchy.incompleteFolders(), top);
    EXPECT_EQ(found, "group: A/deep/2.bin B/deep/2.bin\n"
                     "group: A/1.bin B/1.bin\n"
                     "group: A/hollow/4.bin B/hollow/4.bin\n"
                     "incomplete: A/deep: File name too long\n"
                     "incomplete: A/hollow: File name too long\n"
                     "incomplete: B/deep: File name too long\n"
                     "incomplete: B/hollow: File name too long\n");
    // Each chain is named once, at the deepest folder whose own path still fits.
    ASSERT_EQ(hierarchy.incompleteFolders().size(), 4U);
    const std::string& named = hierarchy.incompleteFolders()[0].path;
    EXPECT_TRUE(named.starts_with(chains[0]->deepestReachable() + "/")) << named.size();
    EXPECT_LT(named.size(), std::size_t{PATH_MAX});
    EXPECT_GE(named.size() + 201, std::size_t{PATH_MAX});
}

INSTANTIATE_TEST_SUITE_P(Walk, LocatorWalk,
                         testing::Values(TreeWalker::Options{0, false}, TreeWalker::Options{2, true}),
                         [](const auto& param) { return param.param.cutEverywhere ? "Cut" : "OnePass"; });

} // namespace
} // namespace corvel
