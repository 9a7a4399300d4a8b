#include <filesystem>
#include <functional>
#include <gtest/gtest.h>

#include "engine/folder.h"
#include "scan/folder_fingerprint.h"
#include "scan_harness.h"

namespace corvel {
namespace {

namespace fs = std::filesystem;

// Two folders "one" and "two", walked; a change to "two" after the walk (or none).
struct FolderPair {
    const char* name;
    std::vector<std::pair<std::string, std::string>> one; // relative path, content ("/" ends a folder)
    std::vector<std::pair<std::string, std::string>> two;
    std::function<void(const test::TempTree&)> afterWalk;
    enum Expect { Same, Different, OneHasNone } expect;
};

void make(const test::TempTree& tree, const std::string& top,
          const std::vector<std::pair<std::string, std::string>>& entries) {
    tree.folder(top);
    for (const auto& [relative, data] : entries) {
        if (relative.ends_with('/'))
            tree.folder(top + "/" + relative);
        else
            tree.file(top + "/" + relative, data);
    }
}

TEST(FolderFingerprint, EqualFoldersShareOneAndFoldersThatDifferDoNot) {
    const std::string a(5000, 'a');
    const std::string b(5000, 'b');
    const FolderPair cases[] = {
        {"copies",
         {{"x.bin", a}, {"s/y.bin", b}, {"e", ""}},
         {{"x.bin", a}, {"s/y.bin", b}, {"e", ""}},
         {},
         FolderPair::Same},
        {"empty folders", {}, {}, {}, FolderPair::Same},
        {"empty sub-folders", {{"s/", ""}, {"x.bin", a}}, {{"s/", ""}, {"x.bin", a}}, {}, FolderPair::Same},
        {"content", {{"x.bin", a}}, {{"x.bin", b}}, {}, FolderPair::Different},
        {"a name", {{"x.bin", a}}, {{"y.bin", a}}, {}, FolderPair::Different},
        {"contents swapped between names",
         {{"x.bin", a}, {"y.bin", b}},
         {{"x.bin", b}, {"y.bin", a}},
         {},
         FolderPair::Different},
        {"a sub-folder's content", {{"s/x.bin", a}}, {{"s/x.bin", b}}, {}, FolderPair::Different},
        {"a folder where a file stands", {{"s/x.bin", a}}, {{"s", a}}, {}, FolderPair::Different},
        {"an extra empty file", {{"x.bin", a}}, {{"x.bin", a}, {"z", ""}}, {}, FolderPair::Different},
        {"a bundle inside",
         {{"x.bin", a}, {"Tool.app/Contents/Info.plist", b}},
         {{"x.bin", a}, {"Tool.app/Contents/Info.plist", b}},
         {},
         FolderPair::OneHasNone},
        {"a file gone since the walk",
         {{"x.bin", a}},
         {{"x.bin", a}},
         [](const test::TempTree& tree) { fs::remove(tree / "two/x.bin"); },
         FolderPair::OneHasNone},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        test::ScanHarness harness;
        test::TempTree tree;
        make(tree, "one", c.one);
        make(tree, "two", c.two);
        auto locator = harness.locator();
        auto hierarchy = harness.walk({tree / "one", tree / "two"}, locator.get());
        if (c.afterWalk)
            c.afterWalk(tree);
        const auto& tops = hierarchy->topNodes();
        ASSERT_EQ(tops.size(), 2U);
        KeptBytesBudget nothingKept(0);
        const std::function<SignatureDigest(CVFile&)> digestOf = [&](CVFile& file) {
            return digestOfFile(file, &nothingKept);
        };
        const std::function<bool()> keepGoing = [] { return true; };
        const auto printOf = [&](const NodePtr& top) {
            return folderFingerprint(dynamic_cast<const CVFolder&>(*top), digestOf, keepGoing);
        };
        const FolderFingerprint one = printOf(tops[0]);
        const FolderFingerprint two = printOf(tops[1]);
        switch (c.expect) {
        case FolderPair::Same:
            ASSERT_TRUE(one && two);
            EXPECT_EQ(*one, *two);
            break;
        case FolderPair::Different:
            ASSERT_TRUE(one && two);
            EXPECT_NE(*one, *two);
            break;
        case FolderPair::OneHasNone:
            EXPECT_FALSE(two.has_value());
            break;
        }
        if (!c.one.empty()) { // stopped on the way: none
            EXPECT_FALSE(
                folderFingerprint(dynamic_cast<const CVFolder&>(*tops[0]), digestOf, [] { return false; }));
        }
    }
}

TEST(FolderCandidates, FoldersSharingAFingerprintOrHavingNoneAreComparedInOrder) {
    std::vector<NodePtr> nodes;
    for (int k = 0; k < 7; ++k) {
        const std::string path = "/t/n" + std::to_string(k);
        if (k == 3) // a file among the folders of a size group
            nodes.push_back(std::make_shared<CVFile>(path, "n3", 10));
        else
            nodes.push_back(std::make_shared<CVFolder>(path, "n" + std::to_string(k), 10));
    }
    const std::uint64_t A = 7;
    const std::uint64_t B = 9;
    const std::vector<FolderFingerprint> prints = {A, std::nullopt, A, std::nullopt, B, std::nullopt, A};
    const FolderCandidates fingerprinted(nodes, prints);
    const FolderCandidates everyPair(nodes);
    struct Case {
        std::size_t i;
        std::vector<std::size_t> fingerprinted;
        std::vector<std::size_t> everyPair;
    };
    const Case cases[] = {
        {0, {1, 2, 5, 6}, {1, 2, 4, 5, 6}}, // its own fingerprint and those without one
        {1, {2, 4, 5, 6}, {2, 4, 5, 6}},    // none: every later folder
        {2, {5, 6}, {4, 5, 6}},
        {4, {5}, {5, 6}},
        {6, {}, {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.i);
        EXPECT_EQ(fingerprinted.after(c.i), c.fingerprinted);
        EXPECT_EQ(everyPair.after(c.i), c.everyPair);
    }
}

} // namespace
} // namespace corvel
