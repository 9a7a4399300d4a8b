#include <algorithm>
#include <cerrno>
#include <gtest/gtest.h>
#include <random>
#include <sys/stat.h>

#include "engine/node_type.h"
#include "scan/tree_walker.h"
#include "scan_harness.h"

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

} // namespace
} // namespace corvel
