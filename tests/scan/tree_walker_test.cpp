#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <fts.h>
#include <functional>
#include <gtest/gtest.h>
#include <random>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include "engine/node_type.h"
#include "scan/folder_walk.h"
#include "scan/tree_walker.h"
#include "scan_harness.h"
#include "support/long_path.h"
#include "support/run_in_child.h"
#include "support/scoped_mount.h"

namespace corvel {
namespace {

// One line per entry with everything the consumer gets, so two walks compare as text.
std::vector<std::string> entries(test::ScanHarness& harness, const std::string& root,
                                 TreeWalker::Options options) {
    std::atomic<bool> going{true};
    harness.ignoreList.updateExcludeList();
    harness.ignoreList.addExcludePathWithRoot(root);
    TreeWalker walker(harness.ignoreList, going, options);
    std::vector<std::string> lines;
    int error = 0;
    const bool opened = walker.walk(
        CVScanPath{root, false},
        [&](const WalkEntry& e) {
            lines.push_back(std::to_string(e.kind) + " " + std::string(e.name) + " [" + std::string(e.path) +
                            "] ign=" + std::to_string(e.ignored) + " hid=" + std::to_string(e.contentHidden) +
                            " und=" + std::to_string(e.contentUndeletable) +
                            " deep=" + std::to_string(e.depthLimited) + " type=" + std::to_string(e.type) +
                            " size=" + std::to_string(e.size) + " ino=" + std::to_string(e.inode) +
                            " err=" + std::to_string(e.error) + " closes=" + std::to_string(e.closesFolder));
        },
        error);
    EXPECT_TRUE(opened) << root;
    return lines;
}

// A random tree: nested folders of random files, with what the walk treats specially
// (hidden names, .DS_Store files and folders, links, bundles, packages, a chain deeper
// than the depth limit, empty folders).
void randomTree(const test::TempTree& tree, std::mt19937& random) {
    auto pick = [&](int n) { return static_cast<int>(random() % static_cast<unsigned>(n)); };
    std::vector<std::string> folders{"root"};
    tree.folder("root");
    for (int i = 0; i < 60; ++i) {
        const std::string parent = folders[static_cast<std::size_t>(pick(static_cast<int>(folders.size())))];
        const char* names[] = {"dir", "Photos.app", ".hidden", "repo", "pkg.bundle", "data"};
        const std::string folder = parent + "/" + names[pick(6)] + std::to_string(i);
        tree.folder(folder);
        folders.push_back(folder);
        if (pick(8) == 0)
            tree.file(folder + "/.git/HEAD", "ref"); // a working copy: hidden content
    }
    for (int i = 0; i < 400; ++i) {
        const std::string parent = folders[static_cast<std::size_t>(pick(static_cast<int>(folders.size())))];
        const char* names[] = {"f", "photo.jpg", ".dot", "notes.txt", "x.swp", ".DS_Store"};
        const std::string name = std::string(names[pick(6)]) + (pick(4) ? std::to_string(i) : "");
        tree.file(parent + "/" + name, std::string(static_cast<std::size_t>(pick(3000)), 'x'));
        if (pick(40) == 0)
            tree.symlink(parent + "/link" + std::to_string(i), tree / parent);
    }
    tree.file("root/dir/.DS_Store/inside", "a folder with that name");
    std::string deep = "root/deep";
    for (int level = 0; level < 30; ++level)
        deep += "/l" + std::to_string(level);
    tree.file(deep + "/bottom.txt", "deep");
}

TEST(TreeWalker, CutsNeverShowInTheEntries) {
    test::ScanHarness harness;
    for (std::uint32_t start = 1; start <= 6; ++start) {
        test::TempTree tree;
        std::mt19937 random(start);
        randomTree(tree, random);
        const std::string root = tree / "root";
        const auto single = entries(harness, root, {0, false});
        ASSERT_GT(single.size(), 150U);
        const TreeWalker::Options variants[] = {
            {0, true},     // every folder cut, all walked by the consumer
            {2, true},     // every folder cut, walked by workers
            {2, false},    // cut when a worker is idle
            {3, true, 16}, // writers ahead of the consumer pause after 16 entries
            {1, true, 1},
        };
        for (const auto& options : variants)
            EXPECT_EQ(entries(harness, root, options), single)
                << "tree " << start << ", threads " << options.threads << ", cut everywhere "
                << options.cutEverywhere << ", buffered " << options.bufferedEntries;
    }
}

TEST(TreeWalker, DepthLimitAndSpecialFoldersCarryIntoCutTasks) {
    test::ScanHarness harness;
    test::TempTree tree;
    std::string plain = "root/plain";
    for (int level = 0; level < 30; ++level)
        plain += "/p" + std::to_string(level);
    tree.file(plain + "/too-deep.txt", "x");
    // Below an application bundle the depth limit does not apply.
    std::string bundle = "root/Tool.app";
    for (int level = 0; level < 30; ++level)
        bundle += "/b" + std::to_string(level);
    tree.file(bundle + "/kept.txt", "x");
    for (const TreeWalker::Options options : {TreeWalker::Options{0, false}, TreeWalker::Options{2, true}}) {
        const auto lines = entries(harness, tree / "root", options);
        auto has = [&](const std::string& name) {
            return std::any_of(lines.begin(), lines.end(), [&](const std::string& l) {
                return l.find(" " + name + " ") != std::string::npos;
            });
        };
        EXPECT_FALSE(has("too-deep.txt"));
        EXPECT_TRUE(has("kept.txt"));
        EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                                [](const std::string& l) { return l.find("deep=1") != std::string::npos; }),
                  1);
    }
}

TEST(TreeWalker, StoppingEndsTheWalkAndItsWorkers) {
    test::ScanHarness harness;
    test::TempTree tree;
    for (int i = 0; i < 50; ++i)
        tree.file("root/d" + std::to_string(i % 10) + "/f" + std::to_string(i), "x");
    harness.ignoreList.updateExcludeList();
    for (const TreeWalker::Options options :
         {TreeWalker::Options{0, true}, TreeWalker::Options{2, true, 4}}) {
        std::atomic<bool> going{true};
        TreeWalker walker(harness.ignoreList, going, options);
        int seen = 0;
        int error = 0;
        walker.walk(
            CVScanPath{tree / "root", false},
            [&](const WalkEntry&) {
                if (++seen == 10)
                    going = false;
            },
            error);
        EXPECT_EQ(seen, 10) << "nothing is delivered after the stop";
    }
}

TEST(TreeWalker, AMissingRootIsOneFailureThatEndsIt) {
    test::ScanHarness harness;
    test::TempTree tree;
    harness.ignoreList.updateExcludeList();
    std::atomic<bool> going{true};
    TreeWalker walker(harness.ignoreList, going, {2, false});
    int error = 0;
    std::vector<WalkEntry> seen;
    EXPECT_TRUE(walker.walk(
        CVScanPath{tree / "missing", false}, [&](const WalkEntry& e) { seen.push_back(e); }, error));
    ASSERT_EQ(seen.size(), 1U);
    EXPECT_EQ(seen[0].kind, WalkEntry::Failure);
    EXPECT_EQ(seen[0].error, ENOENT);
    EXPECT_TRUE(seen[0].endsRoot);
}

// What fts(3) lists for a tree, physical, without changing directory or crossing
// devices, each folder sorted bytewise: the same outline as outline(), with sizes and
// inodes.
std::vector<std::string> referenceWalk(const std::string& root) {
    auto byName = [](const FTSENT** a, const FTSENT** b) {
        return std::string_view((*a)->fts_name, (*a)->fts_namelen)
            .compare(std::string_view((*b)->fts_name, (*b)->fts_namelen));
    };
    char* paths[] = {const_cast<char*>(root.c_str()), nullptr};
    FTS* fts = ::fts_open(paths, FTS_PHYSICAL | FTS_NOCHDIR | FTS_XDEV, byName);
    std::vector<std::string> lines;
    for (FTSENT* e; fts && (e = ::fts_read(fts)) != nullptr;) {
        const std::string name(e->fts_name, e->fts_namelen);
        const auto detail = [&] {
            return " " + std::to_string(e->fts_statp->st_size) + " " + std::to_string(e->fts_statp->st_ino);
        };
        if (e->fts_info == FTS_D)
            lines.push_back("D " + name + detail());
        else if (e->fts_info == FTS_DP)
            lines.push_back("E " + name);
        else if (e->fts_info == FTS_F)
            lines.push_back("f " + name + detail());
        else if (e->fts_info == FTS_SL || e->fts_info == FTS_SLNONE || e->fts_info == FTS_DEFAULT)
            lines.push_back("~ " + name);
        else
            lines.push_back("! " + std::string(e->fts_path) + " " + std::to_string(e->fts_errno));
    }
    if (fts)
        ::fts_close(fts);
    return lines;
}

// An entry as the consumer got it, its text kept.
struct Seen {
    WalkEntry::Kind kind;
    std::string name;
    std::string path;
    bool pathTooLong;
    int error;
    std::uint64_t size;
    std::uint64_t inode;
};

Seen seenOf(const WalkEntry& e) {
    return {e.kind, std::string(e.name), std::string(e.path), e.pathTooLong, e.error, e.size, e.inode};
}

std::vector<Seen> collect(test::ScanHarness& harness, const std::string& root, TreeWalker::Options options) {
    std::atomic<bool> going{true};
    harness.ignoreList.updateExcludeList();
    harness.ignoreList.addExcludePathWithRoot(root);
    TreeWalker walker(harness.ignoreList, going, options);
    std::vector<Seen> seen;
    int error = 0;
    walker.walk(
        CVScanPath{root, false}, [&](const WalkEntry& e) { seen.push_back(seenOf(e)); }, error);
    return seen;
}

// One line per entry: "D name" for a folder, "E name" for its end, "f name" for a file,
// "~ name" for a link, "! path error" for a failure.
std::vector<std::string> outline(const std::vector<Seen>& seen) {
    std::vector<std::string> lines;
    for (const Seen& e : seen) {
        switch (e.kind) {
        case WalkEntry::Folder:
            lines.push_back("D " + e.name);
            break;
        case WalkEntry::FolderEnd:
            lines.push_back("E " + e.name);
            break;
        case WalkEntry::File:
            lines.push_back("f " + e.name);
            break;
        case WalkEntry::Failure:
            lines.push_back("! " + e.path + " " + std::to_string(e.error));
            break;
        case WalkEntry::Unseen:
            lines.push_back("~ " + e.name);
            break;
        }
    }
    return lines;
}

const TreeWalker::Options kModes[] = {{0, false}, {2, true}, {2, false}};

TEST(TreeWalker, FoldersPastPathMaxAreWalkedAndTheirEntriesMarked) {
    test::ScanHarness harness;
    test::TempTree tree;
    tree.folder("root");
    const test::LongPath chain(tree / "root", "bottom");
    for (const TreeWalker::Options options : kModes) {
        SCOPED_TRACE(options.cutEverywhere);
        const auto seen = collect(harness, tree / "root", options);
        std::size_t folders = 0;
        std::size_t marked = 0;
        for (const Seen& e : seen) {
            EXPECT_NE(e.kind, WalkEntry::Failure) << e.path.size() << " " << std::strerror(e.error);
            if (e.kind == WalkEntry::Folder) {
                ++folders;
                marked += e.pathTooLong ? 1 : 0;
                EXPECT_EQ(e.pathTooLong, e.path.size() >= PATH_MAX) << e.path.size();
            }
        }
        EXPECT_EQ(folders, 23U); // the root and the 22 levels
        EXPECT_GT(marked, 0U);
        EXPECT_LT(marked, 22U);
        const auto bottom =
            std::find_if(seen.begin(), seen.end(), [](const Seen& e) { return e.name == "file"; });
        ASSERT_NE(bottom, seen.end());
        EXPECT_TRUE(bottom->pathTooLong);
        EXPECT_EQ(bottom->size, 6U);
    }
}

// Names whose byte order differs from a signed or locale-aware order, links, a fifo,
// empty folders and files: every walk mode lists what a path walk lists, in its order.
TEST(TreeWalker, ListsWhatAPathWalkListsInTheSameOrder) {
    test::ScanHarness harness;
    const char* stems[] = {"a",    "B", "a b", "a-b", "a_b", "\xc3\x84", "\xe2\x82\xac",
                           "\xff", "z", "Z9",  "10",  "9"};
    for (std::uint32_t start = 1; start <= 3; ++start) {
        test::TempTree tree;
        std::mt19937 random(start);
        auto pick = [&](std::size_t n) { return static_cast<std::size_t>(random() % n); };
        std::vector<std::string> folders{"root"};
        tree.folder("root");
        for (int i = 0; i < 40; ++i) {
            const std::string folder = folders[pick(folders.size())] + "/" + stems[pick(std::size(stems))] +
                                       "d" + std::to_string(i % 3);
            tree.folder(folder);
            folders.push_back(folder);
        }
        for (int i = 0; i < 150; ++i) {
            const std::string parent = folders[pick(folders.size())];
            tree.file(parent + "/" + stems[pick(std::size(stems))] + std::to_string(i % 7),
                      std::string(pick(5000), 'x'));
            if (pick(20) == 0)
                tree.symlink(parent + "/" + stems[pick(std::size(stems))] + "-link" + std::to_string(i),
                             tree / parent);
        }
        ::mkfifo((tree / "root/a fifo").c_str(), 0600);
        tree.socket("root/a socket");
        const std::string root = tree / "root";
        const auto reference = referenceWalk(root);
        ASSERT_GT(reference.size(), 150U);
        for (const TreeWalker::Options options : kModes) {
            std::vector<std::string> lines;
            for (const Seen& e : collect(harness, root, options)) {
                const std::string line = outline({e})[0];
                lines.push_back(e.kind == WalkEntry::Folder || e.kind == WalkEntry::File
                                    ? line + " " + std::to_string(e.size) + " " + std::to_string(e.inode)
                                    : line);
            }
            EXPECT_EQ(lines, reference) << "tree " << start << ", threads " << options.threads;
        }
    }
}

// root/Tool.app/d/d/.../d, levels deep, each d holding a.txt and an empty folder z
// (inside an application there is no depth limit); answers the walk's outline.
std::vector<std::string> deepTree(const test::TempTree& tree, std::size_t levels) {
    std::string level = "root/Tool.app";
    std::vector<std::string> expected{"D root", "D Tool.app"};
    for (std::size_t i = 0; i < levels; ++i) {
        level += "/d";
        tree.file(level + "/a.txt", "a");
        tree.folder(level + "/z");
        expected.insert(expected.end(), {"D d", "f a.txt"});
    }
    for (std::size_t i = 0; i < levels; ++i)
        expected.insert(expected.end(), {"D z", "E z", "E d"});
    expected.insert(expected.end(), {"E Tool.app", "E root"});
    return expected;
}

// A tree far deeper than the descriptors a pass keeps, walked under a descriptor limit
// that allows little more: every level is entered and, on the way back up, each
// folder's remaining entries are still read.
TEST(TreeWalker, ADeepTreeIsWalkedWithABoundedNumberOfDescriptors) {
    test::ScanHarness harness;
    test::TempTree tree;
    const auto expected = deepTree(tree, 3 * FolderWalk::kOpenFolders);
    for (const TreeWalker::Options options : kModes) {
        const int status = test::runInChild([&] {
            // New descriptors take the lowest free numbers: leave this many free.
            rlim_t open = 0;
            for ([[maybe_unused]] const auto& fd : std::filesystem::directory_iterator("/proc/self/fd"))
                ++open;
            // Each task being walked (one per thread) holds its own descriptors.
            const rlim_t limit = open + (options.threads + 1) * FolderWalk::kOpenFolders + 8;
            const rlimit few{limit, limit};
            if (::setrlimit(RLIMIT_NOFILE, &few) != 0)
                return 2;
            return outline(collect(harness, tree / "root", options)) == expected ? 0 : 1;
        });
        EXPECT_EQ(status, 0) << "threads " << options.threads << ", cut everywhere " << options.cutEverywhere;
    }
    EXPECT_EQ(outline(collect(harness, tree / "root", {0, false})), expected);
}

// Records a pass's entries and runs a step when a given one comes.
class StepSink final : public WalkSink {
public:
    std::vector<Seen> seen;
    std::function<void(const Seen&)> onEntry;
    bool going() const override { return true; }
    void emit(const WalkEntry& e) override {
        seen.push_back(seenOf(e));
        if (onEntry)
            onEntry(seen.back());
    }
    bool mayCut() override { return false; }
    void cut(std::string /*path*/, WalkContext /*context*/) override {}
};

// A folder moved away while the pass is deep inside it: the pass goes on inside it, and
// on the way back up its ".." leads elsewhere; the folder it left is found again by its
// path, checked to be the same, and its remaining entries are read from there.
TEST(FolderWalk, AFolderMovedAwayWhileWalkedDoesNotLeadBackToTheWrongParent) {
    test::ScanHarness harness;
    test::TempTree tree;
    const std::size_t levels = FolderWalk::kOpenFolders + 8;
    const auto expected = deepTree(tree, levels);
    tree.folder("elsewhere");
    harness.ignoreList.updateExcludeList();
    harness.ignoreList.addExcludePathWithRoot(tree / "root");

    StepSink sink;
    std::size_t entered = 0;
    bool moved = false;
    sink.onEntry = [&](const Seen& e) {
        if (e.kind == WalkEntry::Folder && e.name == "d" && ++entered == levels) // the deepest level
            moved = std::rename((tree / "root/Tool.app/d/d/d").c_str(), (tree / "elsewhere/d").c_str()) == 0;
    };
    const CVScanPath root{tree / "root", false};
    FolderWalk walk(harness.ignoreList, root, nullptr, sink);
    int error = 0;
    ASSERT_TRUE(walk.walkRoot(error));
    ASSERT_TRUE(moved);
    EXPECT_EQ(outline(sink.seen), expected);
}

// A bind mount of a folder inside itself leads back up: reported once, without an error
// number, and not entered. A file system mounted inside is listed as a folder and not
// entered.
TEST(TreeWalker, AFolderLeadingBackUpIsOneFailureAndAnotherDeviceIsNotEntered) {
    test::ScanHarness harness;
    test::TempTree tree;
    tree.file("root/a/b/x.txt", "x");
    tree.folder("root/a/b/loop");
    tree.file("root/m/under-the-mount.txt", "hidden by the mount");
    const test::ScopedMount loop(tree / "root/a", tree / "root/a/b/loop", nullptr, MS_BIND);
    const test::ScopedMount other("none", tree / "root/m", "tmpfs", 0);
    if (!loop.mounted() || !other.mounted())
        GTEST_SKIP() << "cannot mount here: " << loop.why() << other.why();
    std::ofstream(tree / "root/m/on-the-mount.txt") << "y";
    const std::vector<std::string> expected{"D root",  "D a",   "D b", "! " + (tree / "root/a/b/loop") + " 0",
                                            "f x.txt", "E b",   "E a", "D m",
                                            "E m",     "E root"};
    for (const TreeWalker::Options options : kModes)
        EXPECT_EQ(outline(collect(harness, tree / "root", options)), expected)
            << "threads " << options.threads << ", cut everywhere " << options.cutEverywhere;
}

} // namespace
} // namespace corvel
