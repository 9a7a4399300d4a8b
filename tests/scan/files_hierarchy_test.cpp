#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <iostream>
#include <optional>
#include <set>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include "engine/node_type.h"
#include "platform/notification_center.h"
#include "platform/system_log.h"
#include "scan/files_hierarchy.h"
#include "scan_harness.h"

namespace corvel {
namespace {

// Every node under the top nodes, once (sub-folders stand twice in their parents).
void visit(const NodePtr& node, std::set<const CVNode*>& seen, std::vector<NodePtr>& nodes) {
    if (!seen.insert(node.get()).second)
        return;
    nodes.push_back(node);
    for (const auto& child : node->children())
        visit(child, seen, nodes);
}

std::vector<NodePtr> allNodes(const CVFilesHierarchy& h) {
    std::vector<NodePtr> nodes;
    std::set<const CVNode*> seen;
    for (const auto& top : h.topNodes())
        visit(top, seen, nodes);
    return nodes;
}

NodePtr find(const CVFilesHierarchy& h, const std::string& path) {
    for (const auto& n : allNodes(h))
        if (n->path() == path)
            return n;
    return nullptr;
}

// Whether the node is filed for comparison. Only sizes held twice are filed: a test
// gives the node a twin of its size in another root.
bool inSizeGroups(CVFilesHierarchy& h, const std::string& path) {
    SizeGroups& groups = h.filesGroupedBySize();
    for (const std::uint64_t size : groups.sizesLargestFirst())
        for (const auto& n : groups.nodes(size))
            if (n->path() == path)
                return true;
    return false;
}

class Walk : public testing::Test {
protected:
    test::ScanHarness harness;
    test::TempTree tree;
};

TEST_F(Walk, HiddenItemsAreIgnoredNodesAndLinksAndDSStoreAreLeftOut) {
    tree.file("top/photo.jpg", "jpeg bytes");
    tree.file("top/.secret", "hidden bytes");
    tree.file("top/.hiddendir/inside.txt", "inside");
    tree.file("top/.DS_Store", "finder junk");
    tree.symlink("top/link.jpg", tree / "top/photo.jpg");
    tree.symlink("top/dangling", tree / "nowhere");
    tree.file("twins/photo", "jpeg bytes");
    tree.file("twins/secret", "hidden bytes");
    auto h = harness.walk({tree / "top", tree / "twins"}, nullptr);
    EXPECT_TRUE(find(*h, tree / "top/photo.jpg"));
    auto secret = std::dynamic_pointer_cast<CVFile>(find(*h, tree / "top/.secret"));
    ASSERT_TRUE(secret);
    EXPECT_TRUE(secret->ignore());
    EXPECT_FALSE(inSizeGroups(*h, tree / "top/.secret"));
    auto hiddenDir = std::dynamic_pointer_cast<CVFolder>(find(*h, tree / "top/.hiddendir"));
    ASSERT_TRUE(hiddenDir);
    EXPECT_TRUE(hiddenDir->ignore());
    EXPECT_FALSE(find(*h, tree / "top/.hiddendir/inside.txt")) << "a refused folder is not entered";
    EXPECT_FALSE(find(*h, tree / "top/.DS_Store"));
    EXPECT_FALSE(find(*h, tree / "top/link.jpg"));
    EXPECT_FALSE(find(*h, tree / "top/dangling"));
    EXPECT_TRUE(inSizeGroups(*h, tree / "top/photo.jpg"));
}

TEST_F(Walk, AFolderNamedDSStoreIsDroppedWithoutClosingItsParent) {
    tree.file("top/.DS_Store/inside", "x");
    for (int i = 0; i < 20; ++i) // some of them come after the dropped folder
        tree.file("top/f" + std::to_string(i), "y");
    auto h = harness.walk({tree / "top"}, nullptr);
    ASSERT_EQ(h->topNodes().size(), 1U);
    const auto& top = h->topNodes()[0];
    EXPECT_EQ(top->children().size(), 20U);
    EXPECT_EQ(top->size(), 20U);
    EXPECT_FALSE(find(*h, tree / "top/.DS_Store/inside"));
}

TEST_F(Walk, FoldersStandTwiceInTheirParentAndCarryTheirSize) {
    tree.file("top/sub/a.bin", std::string(1000, 'a'));
    tree.file("top/sub/b.bin", std::string(500, 'b'));
    tree.file("top/c.bin", std::string(10, 'c'));
    tree.folder("top/empty");
    tree.file("twins/sub", std::string(1500, 's'));
    tree.file("twins/empty");
    tree.file("twins/empty-too");
    auto h = harness.walk({tree / "top", tree / "twins"}, nullptr);
    auto top = std::dynamic_pointer_cast<CVFolder>(h->topNodes().at(0));
    ASSERT_TRUE(top);
    int subEntries = 0;
    for (const auto& child : top->children())
        if (child->path() == tree / "top/sub")
            ++subEntries;
    EXPECT_EQ(subEntries, 2) << "once on entry, once on exit";
    EXPECT_EQ(find(*h, tree / "top/sub")->size(), 1500u);
    EXPECT_EQ(top->size(), 1510u) << "the entry added size 0, the exit the final 1500";
    // Candidate folders: sizes and children, not empty ones.
    EXPECT_TRUE(inSizeGroups(*h, tree / "top/sub"));
    EXPECT_FALSE(inSizeGroups(*h, tree / "top/empty"));
    EXPECT_EQ(std::dynamic_pointer_cast<CVFile>(find(*h, tree / "top/sub/a.bin"))->parentFolder()->path(),
              tree / "top/sub");
}

TEST_F(Walk, DeepPlainFoldersStopAtTheDepthLimit) {
    std::string path = "top";
    for (int level = 1; level <= 28; ++level)
        path += "/d" + std::to_string(level);
    tree.file(path + "/deep.txt", "deep");
    ScopedLogCapture log;
    auto h = harness.walk({tree / "top"}, nullptr);
    std::string at26 = "top";
    for (int level = 1; level <= 26; ++level)
        at26 += "/d" + std::to_string(level);
    EXPECT_TRUE(find(*h, tree / at26)) << "the folder at the limit is there";
    EXPECT_FALSE(find(*h, tree / (at26 + "/d27"))) << "but not entered";
    EXPECT_FALSE(find(*h, tree / (path + "/deep.txt")));
    EXPECT_TRUE(log.contains("Deepest Level Reached"));
}

TEST_F(Walk, RootsInsideRootsAreDropped) {
    tree.file("a/Pictures/x.jpg", "x");
    tree.file("a/y.jpg", "y");
    auto h = harness.walk({tree / "a", tree / "a/Pictures"}, nullptr);
    ASSERT_EQ(h->rootPaths().size(), 1u);
    EXPECT_EQ(h->rootPaths()[0].path, tree / "a");
    EXPECT_EQ(h->topNodes().size(), 1u);
}

// Volumes are told apart here by device numbers, not by the mount table the hierarchy reads.
bool onTheRootVolume(const std::string& path) {
    struct stat root {};
    struct stat st {};
    return ::stat("/", &root) == 0 && ::stat(path.c_str(), &st) == 0 && st.st_dev == root.st_dev;
}

bool onAnotherVolume(const std::string& path) {
    struct stat st {};
    return ::stat(path.c_str(), &st) == 0 && !onTheRootVolume(path);
}

// A folder on the volume of "/" itself.
std::optional<std::string> folderOnTheRootVolume() {
    for (const char* path : {"/usr", "/etc", "/var", "/opt"})
        if (onTheRootVolume(path))
            return std::string(path);
    return std::nullopt;
}

std::string realPath(const std::string& path) {
    char* resolved = ::realpath(path.c_str(), nullptr);
    std::string real = resolved ? resolved : path;
    std::free(resolved);
    return real;
}

TEST(RootCover, ARootInsideAnotherIsLeftOutUnlessTheOtherIsTheWholeDiskAndItLiesOnAnotherVolume) {
    struct Case {
        std::string path;
        std::string otherRoot;
        bool covered;
        const char* why;
        bool needsOtherVolume;
    };
    std::vector<Case> cases = {
        {"/proc", "/", false, "the walk of / does not enter another volume", true},
        {"/dev/shm", "/", false, "the walk of / does not enter another volume", true},
        {"/proc/sys", "/proc", true, "inside a root that is not the whole disk", false},
        {"/dev/shm", "/dev", true, "another volume, but not under the whole disk", false},
        {"/procfs", "/proc", false, "a name that only begins like the other root", false},
        {"/proc", "/proc/sys", false, "the outer root is not inside the inner one", false},
        {"/", "/", false, "the same root", false},
    };
    if (const auto folder = folderOnTheRootVolume())
        cases.push_back({*folder, "/", true, "the whole disk covers its own volume", false});
    else
        ADD_FAILURE() << "no folder on the volume of / to try";
    for (const Case& c : cases) {
        if (c.needsOtherVolume && !onAnotherVolume(c.path)) {
            std::cout << "[ SKIPPED  ] " << c.path << " is not on a volume of its own here\n";
            continue;
        }
        EXPECT_EQ(CVFilesHierarchy::isRootCoveredBy(c.path, c.otherRoot), c.covered)
            << c.path << " under " << c.otherRoot << ": " << c.why;
    }
}

TEST(RootCover, AVolumeMountedInsideTheTemporaryFolderIsWalkedOnItsOwnUnderTheWholeDisk) {
    test::TempTree tree;
    const std::string mountPoint = realPath(tree.folder("volume"));
    if (::mount("tmpfs", mountPoint.c_str(), "tmpfs", MS_NOSUID | MS_NODEV, "size=1m") != 0)
        GTEST_SKIP() << "cannot mount a tmpfs here (" << std::strerror(errno) << "); it takes root";
    struct Unmount {
        std::string path;
        ~Unmount() { ::umount2(path.c_str(), MNT_DETACH); }
    } unmount{mountPoint};
    EXPECT_FALSE(CVFilesHierarchy::isRootCoveredBy(mountPoint, "/"));
    EXPECT_FALSE(CVFilesHierarchy::isRootCoveredBy(mountPoint + "/inside", "/"));
    EXPECT_TRUE(CVFilesHierarchy::isRootCoveredBy(mountPoint, realPath(tree.path())))
        << "a root that is not the whole disk covers the volumes inside it";
    const std::string beside = realPath(tree.folder("beside"));
    if (onTheRootVolume(beside)) {
        EXPECT_TRUE(CVFilesHierarchy::isRootCoveredBy(beside, "/")) << "its neighbour on the volume of /";
    }
}

TEST_F(Walk, UnderTheWholeDiskARootOnAnotherVolumeIsKeptAndOneOnItsVolumeDropped) {
    const auto sameVolume = folderOnTheRootVolume();
    if (!sameVolume || !onAnotherVolume("/proc"))
        GTEST_SKIP() << "needs a folder on the volume of / and /proc on a volume of its own";
    // "/" is never walked: a hidden root given last is refused before any walk begins,
    // and by then every other root has been decided.
    const std::string refused = realPath(tree.folder(".hidden"));
    ASSERT_NE(harness.ignoreList.isPathForbiddenToScan(refused, kNodeTypeUnknown, false, true), ScanAllowed);
    std::vector<std::string> stoppedAt;
    ScopedObserver observer(
        NotificationCenter::defaultCenter(),
        NotificationCenter::defaultCenter().addObserver("", nullptr, [&](const Notification& n) {
            if (n.name.find("droppedFiles") != std::string::npos)
                stoppedAt.push_back(n.userInfo.at("path").toString());
        }));
    auto h = harness.walk({*sameVolume, "/proc", "/", refused}, nullptr);
    ASSERT_EQ(stoppedAt.size(), 1u) << "a refused root stops the scan";
    EXPECT_FALSE(h->canContinue());
    EXPECT_TRUE(h->topNodes().empty()) << "nothing is walked";
    std::vector<std::string> kept;
    for (const auto& root : h->rootPaths())
        kept.push_back(root.path);
    EXPECT_EQ(std::count(kept.begin(), kept.end(), *sameVolume), 0) << "the walk of / covers it";
    EXPECT_EQ(std::count(kept.begin(), kept.end(), "/proc"), 1) << "the walk of / does not enter it";
}

TEST_F(Walk, TheSameFolderGivenTwiceOrThroughALinkIsWalkedOnce) {
    tree.file("a/x.jpg", "same bytes");
    tree.file("a/y.jpg", "same bytes");
    tree.symlink("link-to-a", tree / "a");
    tree.file("twin/of-a", std::string(20, 't'));
    auto h = harness.walk({tree / "a", tree / "link-to-a", tree / "a/.", tree / "a", tree / "twin"}, nullptr);
    ASSERT_EQ(h->rootPaths().size(), 2u);
    EXPECT_EQ(h->rootPaths()[0].path, tree / "a");
    EXPECT_EQ(h->topNodes().size(), 2u);
    std::multiset<std::string> filed;
    SizeGroups& groups = h->filesGroupedBySize();
    for (const std::uint64_t size : groups.sizesLargestFirst())
        for (const auto& node : groups.nodes(size))
            filed.insert(node->path());
    EXPECT_EQ(filed, (std::multiset<std::string>{tree / "a", tree / "a/x.jpg", tree / "a/y.jpg",
                                                 tree / "twin", tree / "twin/of-a"}))
        << "each item is filed once";
}

TEST_F(Walk, RefusedRootsStopTheScanWithTheirNotification) {
    struct Case {
        std::string root;
        const char* notification;
    };
    tree.folder(".hidden");
    tree.folder("snapfolder");
    harness.ignoreList.excludePathsList().push_back(
        PropertyValue::Dictionary{{"Value", tree / "excluded"}, {"Enabled", true}});
    tree.folder("excluded");
    for (const Case& c : {Case{tree / ".hidden", kDroppedFilesAreSystemNotification},
                          Case{"/usr/share", kDroppedFilesAreSystemNotification},
                          Case{tree / "excluded", kDroppedFilesAreIgnoredNotification}}) {
        std::string heard;
        ScopedObserver observer(
            NotificationCenter::defaultCenter(),
            NotificationCenter::defaultCenter().addObserver("", nullptr, [&](const Notification& n) {
                if (n.name.find("droppedFiles") != std::string::npos) {
                    heard = n.name;
                    EXPECT_EQ(n.userInfo.at("path").toString(), c.root);
                }
            }));
        auto h = harness.walk({tree / "snapfolder", c.root}, nullptr);
        EXPECT_EQ(heard, c.notification) << c.root;
        EXPECT_FALSE(h->canContinue());
        EXPECT_TRUE(h->topNodes().empty()) << "nothing is walked";
    }
}

TEST_F(Walk, WhenEveryRootFailsTheErrorIsPosted) {
    int errors = 0;
    ScopedObserver observer(
        NotificationCenter::defaultCenter(),
        NotificationCenter::defaultCenter().addObserver(kErrorOccuredWhileScanningNotification, nullptr,
                                                        [&](const Notification&) { ++errors; }));
    ScopedLogCapture log;
    auto one = harness.walk({tree / "gone1", tree.folder("present")}, nullptr);
    EXPECT_EQ(errors, 0);
    auto all = harness.walk({tree / "gone1", tree / "gone2"}, nullptr);
    EXPECT_EQ(errors, 1);
    EXPECT_TRUE(log.contains("Error scanning '" + tree / "gone1"));
}

TEST_F(Walk, LibrariesAndBundlesProtectAndHideTheirContent) {
    tree.file("top/Music/iTunes/iTunes Library.xml", "<plist><dict/></plist>");
    tree.file("top/Music/iTunes/Album Artwork/a.itc", "art");
    tree.file("top/Music/iTunes/Media/song.mp3", "song");
    tree.file("top/repo/.git/HEAD", "ref");
    tree.file("top/repo/main.c", "int main;");
    tree.file("top/Tool.app/Contents/Info.plist", "<plist/>");
    tree.file("twins/repo", "int main;"); // the working copy's size: hidden content does not count
    auto h = harness.walk({tree / "top", tree / "twins"}, nullptr);
    auto library = std::dynamic_pointer_cast<CVFolder>(find(*h, tree / "top/Music/iTunes"));
    ASSERT_TRUE(library);
    EXPECT_EQ(library->type(), kNodeTypeITunesLibrary);
    auto song = std::dynamic_pointer_cast<CVFile>(find(*h, tree / "top/Music/iTunes/Media/song.mp3"));
    EXPECT_TRUE(song->removeForbidden());
    EXPECT_EQ(song->rootFolder(), library);
    EXPECT_TRUE(
        std::dynamic_pointer_cast<CVFile>(find(*h, tree / "top/Music/iTunes/Album Artwork"))->ignore());
    EXPECT_TRUE(std::dynamic_pointer_cast<CVFile>(find(*h, tree / "top/repo/main.c"))->ignore())
        << "a working copy's files are hidden content";
    EXPECT_TRUE(inSizeGroups(*h, tree / "top/repo")) << "the working copy is still compared as a whole";
    EXPECT_EQ(find(*h, tree / "top/Tool.app")->type(), kNodeTypeApplication);
}

} // namespace
} // namespace corvel
