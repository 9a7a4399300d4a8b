#include <algorithm>
#include <filesystem>
#include <gtest/gtest.h>

#include "engine/folder.h"
#include "engine/node_cache.h"
#include "engine/node_type.h"
#include "support/temp_tree.h"

namespace corvel {
namespace {

class CountingDelegate : public CVNodeDelegate {
public:
    mutable int checks = 0;
    bool stopAfter = false;
    int limit = 0;
    bool stopSignaturesComparing() const override {
        ++checks;
        return stopAfter && checks > limit;
    }
};

// Builds folder nodes for a real folder as the walk does: sub-folders are attached on
// entry and again on exit.
std::shared_ptr<CVFolder> build(const std::string& path, CVNodeDelegate* delegate) {
    auto folder = std::make_shared<CVFolder>(path, "");
    folder->setType(kNodeTypePlainFolder);
    folder->setDelegate(delegate);
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(path))
        names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    for (const auto& name : names) {
        const std::string child = path + "/" + name;
        if (std::filesystem::is_directory(child)) {
            auto sub = build(child, delegate);
            folder->addChildFile(sub);
            folder->addChildFile(sub);
        } else {
            folder->addChildFile(std::make_shared<CVFile>(child, "", std::filesystem::file_size(child)));
        }
    }
    return folder;
}

class FolderComparison : public testing::Test {
protected:
    void SetUp() override {
        CVFolder::setComparisonCache(&cache);
        CVFolder::restartRandomSource(7);
    }
    void TearDown() override { CVFolder::setComparisonCache(nullptr); }
    test::TempTree tree;
    CVNodeCache cache;
    CountingDelegate delegate;
};

TEST_F(FolderComparison, EqualFoldersWithNestedSubfoldersAreDuplicates) {
    for (const char* root : {"A", "B"}) {
        tree.file(std::string(root) + "/one.txt", "first file");
        tree.file(std::string(root) + "/sub/two.bin", std::string(3000, 'z'));
        tree.file(std::string(root) + "/sub/deeper/three.bin", "three");
    }
    auto a = build(tree / "A", &delegate);
    auto b = build(tree / "B", &delegate);
    EXPECT_TRUE(a->isDuplicateOf(*b));
    EXPECT_TRUE(cache.folderChildrenSizeAreEqual(tree / "B/sub").value_or(false))
        << "sub-folder sizes memoised by b's path";
}

TEST_F(FolderComparison, DifferentSizesOrCountsOrContentAreNotDuplicates) {
    tree.file("A/x.bin", "12345");
    tree.file("A/y.bin", "abc");
    tree.file("B/x.bin", "12345");
    tree.file("B/y.bin", "abcd");  // other size
    tree.file("C/x.bin", "12345"); // fewer children
    tree.file("D/x.bin", "12345");
    tree.file("D/y.bin", "xyz"); // same sizes, other content
    auto a = build(tree / "A", &delegate);
    EXPECT_FALSE(a->isDuplicateOf(*build(tree / "B", &delegate)));
    EXPECT_FALSE(a->isDuplicateOf(*build(tree / "C", &delegate)));
    CVFolder::restartRandomSource(1);
    // Two children, two samples: with a fixed random start both positions may or may not be
    // drawn, so compare often enough that the differing one is drawn.
    bool anyDifferent = false;
    for (int i = 0; i < 20; ++i)
        anyDifferent = anyDifferent || !a->isDuplicateOf(*build(tree / "D", &delegate));
    EXPECT_TRUE(anyDifferent);
    EXPECT_FALSE(a->isDuplicateOf(*std::make_shared<CVFile>(tree / "A/x.bin", "", 5)));
}

TEST_F(FolderComparison, AFolderIsNeverADuplicateOfAFolderInsideIt) {
    tree.file("P/Q/a.bin", "a");
    auto p = build(tree / "P", &delegate);
    auto q = std::dynamic_pointer_cast<CVFolder>(p->children()[0]);
    ASSERT_TRUE(q);
    // Make the counts and sizes agree so that only nesting decides.
    auto outer = std::make_shared<CVFolder>(tree / "P", "");
    outer->setType(kNodeTypePlainFolder);
    outer->addChildFile(std::make_shared<CVFile>(tree / "P/Q/a.bin", "", 1));
    EXPECT_FALSE(outer->isDuplicateOf(*q));
    EXPECT_FALSE(q->isDuplicateOf(*outer));
}

TEST_F(FolderComparison, EmptyFoldersCompareEqualAndManyChildrenAreSampledTenTimes) {
    auto e1 = build(tree.folder("E1"), &delegate);
    auto e2 = build(tree.folder("E2"), &delegate);
    EXPECT_TRUE(e1->isDuplicateOf(*e2));

    for (const char* root : {"M", "N"})
        for (int i = 0; i < 25; ++i)
            tree.file(std::string(root) + "/f" + std::to_string(100 + i), "content " + std::to_string(i));
    auto m = build(tree / "M", &delegate);
    auto n = build(tree / "N", &delegate);
    delegate.checks = 0;
    EXPECT_TRUE(m->isDuplicateOf(*n));
    // One check on entry, one in the size pass, two per sampled pair: ten samples.
    EXPECT_EQ(delegate.checks, 1 + 1 + 2 * 10);
    for (const auto& child : m->children())
        EXPECT_FALSE(child->hasSignature()) << "signatures are released after each sample";
}

TEST_F(FolderComparison, SubFolderAnswersAreRememberedByTheSecondFoldersPath) {
    for (const char* root : {"A", "B"})
        tree.file(std::string(root) + "/inner/file.bin", "same");
    auto a = build(tree / "A", &delegate);
    auto b = build(tree / "B", &delegate);
    cache.setDuplicatedFolder(tree / "B/inner", false);
    EXPECT_FALSE(a->isDuplicateOf(*b)) << "the memo answers for the sub-folder";
    cache.resetCache();
    EXPECT_TRUE(a->isDuplicateOf(*b));
    EXPECT_TRUE(cache.duplicatedFolder(tree / "B/inner").value_or(false));
}

TEST_F(FolderComparison, AStopRequestEndsTheComparison) {
    for (const char* root : {"A", "B"})
        tree.file(std::string(root) + "/x", "same");
    auto a = build(tree / "A", &delegate);
    auto b = build(tree / "B", &delegate);
    delegate.stopAfter = true;
    delegate.limit = 0;
    EXPECT_FALSE(a->isDuplicateOf(*b));
}

} // namespace
} // namespace corvel
