#include <algorithm>
#include <filesystem>
#include <gtest/gtest.h>

#include "engine/folder.h"
#include "engine/node_cache.h"
#include "engine/node_type.h"
#include "engine/node_type_generator.h"
#include "media/media_manager.h"
#include "platform/file_io.h"
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

// The folders compared carry services of their own, so each test memoises its
// comparisons in its own cache.
class FolderComparison : public testing::Test {
protected:
    std::shared_ptr<CVFolder> build(const std::string& path, CVNodeDelegate* nodeDelegate) {
        return withServices(corvel::build(path, nodeDelegate));
    }
    std::shared_ptr<CVFolder> withServices(std::shared_ptr<CVFolder> top) {
        top->setServices(services);
        return top;
    }
    test::TempTree tree;
    CVNodeCache cache;
    NodeServicesPtr services = std::make_shared<const CVNodeServices>(
        CVNodeServices{CVNodeTypeGenerator::sharedGenerator(), CViMediaManager::sharedInstance(), cache});
    CountingDelegate delegate;
};

TEST_F(FolderComparison, EqualFoldersWithNestedSubfoldersAreDuplicates) {
    for (const char* root : {"A", "B"}) {
        tree.file(std::string(root) + "/one.txt", "first file");
        tree.file(std::string(root) + "/sub/two.bin", std::string(3000, 'z'));
        tree.file(std::string(root) + "/sub/deeper/three.bin", "three");
        tree.file(std::string(root) + "/sub/empty-1", "");
        tree.file(std::string(root) + "/sub/empty-2", "");
    }
    auto a = build(tree / "A", &delegate);
    auto b = build(tree / "B", &delegate);
    EXPECT_TRUE(a->isDuplicateOf(*b)) << "empty files match each other inside folders";
    EXPECT_TRUE(b->isDuplicateOf(*a));
    EXPECT_TRUE(cache.folderChildrenSizeAreEqual(tree / "A/sub", tree / "B/sub").value_or(false));
    EXPECT_TRUE(cache.duplicatedFolder(tree / "B/sub", tree / "A/sub").value_or(false))
        << "sub-folder answers are memoised by the pair, in either order";
    EXPECT_FALSE(CVNodeCache::sharedCache().duplicatedFolder(tree / "A/sub", tree / "B/sub").has_value())
        << "the folders' own services hold the memo, not the shared cache";
    for (const auto& child : a->children())
        EXPECT_FALSE(child->hasSignature()) << "signatures are released after each comparison";
}

// One difference anywhere among many children always tells the folders apart.
struct Difference {
    const char* name;
    const char* path; // under B
    const char* content;
    bool folder;
};

class FolderDifference : public FolderComparison, public testing::WithParamInterface<Difference> {};

TEST_P(FolderDifference, IsAlwaysFound) {
    const Difference d = GetParam();
    for (const char* root : {"A", "B"}) {
        for (int i = 0; i < 24; ++i)
            tree.file(std::string(root) + "/f" + std::to_string(100 + i), "content " + std::to_string(i));
        tree.file(std::string(root) + "/sub/deep/leaf.txt", "leaf!");
        tree.file(std::string(root) + "/sub/other.txt", "other");
    }
    const std::string changed = tree / (std::string("B/") + d.path);
    if (d.folder) {
        std::filesystem::remove(changed);
        tree.file(std::string("B/") + d.path + "/inside", "x");
    } else if (d.content) {
        tree.file(std::string("B/") + d.path, d.content);
    } else {
        std::filesystem::rename(tree / "B/f117", tree / (std::string("B/") + d.path));
    }
    auto a = build(tree / "A", &delegate);
    auto b = build(tree / "B", &delegate);
    // Many times: a sampled comparison would miss the difference now and then.
    for (int i = 0; i < 20; ++i) {
        cache.resetCache();
        EXPECT_FALSE(a->isDuplicateOf(*b)) << d.name;
        EXPECT_FALSE(b->isDuplicateOf(*a)) << d.name;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Children, FolderDifference,
    testing::Values(Difference{"same size, other content", "f117", "content 1x", false},
                    Difference{"one byte deep inside", "sub/deep/leaf.txt", "leaf?", false},
                    Difference{"other size", "f103", "content", false},
                    Difference{"same content under another name", "f117-renamed", nullptr, false},
                    Difference{"a folder where a file stands", "f123", nullptr, true}),
    [](const auto& param) { return "Case" + std::to_string(param.index); });

TEST_F(FolderComparison, FewerChildrenOrAFileAreNotDuplicates) {
    tree.file("A/x.bin", "12345");
    tree.file("A/y.bin", "abc");
    tree.file("C/x.bin", "12345");
    auto a = build(tree / "A", &delegate);
    EXPECT_FALSE(a->isDuplicateOf(*build(tree / "C", &delegate)));
    EXPECT_FALSE(a->isDuplicateOf(*std::make_shared<CVFile>(tree / "A/x.bin", "", 5)));
}

// A folder node built by hand (not from a listing), holding the given children.
std::shared_ptr<CVFolder> folderNode(const std::string& path, const std::vector<NodePtr>& children,
                                     CVNodeDelegate* delegate) {
    auto folder = std::make_shared<CVFolder>(path, "");
    folder->setType(kNodeTypePlainFolder);
    folder->setDelegate(delegate);
    for (const auto& child : children)
        folder->addChildFile(child);
    return folder;
}

// Two folders that agree at every position (names, sizes, contents, a sub-folder
// included) and differ only in where they stand: the folder at `first` against the one
// at `second`. Each is built by hand from its own files, so that a folder inside the
// other is not among the other's children.
struct Placement {
    const char* label;
    const char* first;
    const char* second;
    bool duplicates;
};

void PrintTo(const Placement& p, std::ostream* os) {
    *os << p.label;
}

class FolderNesting : public FolderComparison, public testing::WithParamInterface<Placement> {
protected:
    std::shared_ptr<CVFolder> handBuilt(const std::string& relative) {
        const std::string folder = tree / relative;
        const std::string f = tree.file(relative + "/f", "the same bytes everywhere");
        const std::string h = tree.file(relative + "/g/h", "and the same here");
        auto g = folderNode(folder + "/g", {std::make_shared<CVFile>(h, "", std::filesystem::file_size(h))},
                            &delegate);
        return withServices(folderNode(
            folder, {std::make_shared<CVFile>(f, "", std::filesystem::file_size(f)), g}, &delegate));
    }
};

TEST_P(FolderNesting, OnlyAFolderInsideTheOtherIsRefused) {
    const Placement p = GetParam();
    auto first = handBuilt(p.first);
    auto second = handBuilt(p.second);
    ASSERT_EQ(first->childrenCount(), second->childrenCount());
    ASSERT_EQ(first->size(), second->size());
    EXPECT_EQ(first->isDuplicateOf(*second), p.duplicates) << p.label;
    cache.resetCache();
    EXPECT_EQ(second->isDuplicateOf(*first), p.duplicates) << p.label << ", compared the other way round";
}

INSTANTIATE_TEST_SUITE_P(
    Places, FolderNesting,
    testing::Values(Placement{"a folder directly inside the other", "X", "X/Y", false},
                    Placement{"several levels down", "X", "X/a/b/Y", false},
                    Placement{"side by side", "X", "Z", true},
                    Placement{"beside a folder whose name starts alike", "X", "X-backup/Y", true},
                    Placement{"at other depths, not inside each other", "A/X", "B/c/d/X", true}),
    [](const auto& param) { return "Case" + std::to_string(param.index); });

TEST_F(FolderComparison, EmptyFoldersCompareEqual) {
    auto e1 = build(tree.folder("E1"), &delegate);
    auto e2 = build(tree.folder("E2"), &delegate);
    EXPECT_TRUE(e1->isDuplicateOf(*e2));
}

TEST_F(FolderComparison, SubFolderAnswersAreRememberedByThePair) {
    tree.file("A/inner/file.bin", "diff");
    for (const char* root : {"B", "C"})
        tree.file(std::string(root) + "/inner/file.bin", "same");
    auto a = build(tree / "A", &delegate);
    auto b = build(tree / "B", &delegate);
    auto c = build(tree / "C", &delegate);
    EXPECT_FALSE(a->isDuplicateOf(*b));
    EXPECT_FALSE(cache.duplicatedFolder(tree / "A/inner", tree / "B/inner").value_or(true));
    // B's inner folder differs from A's, not from C's.
    EXPECT_TRUE(c->isDuplicateOf(*b));
    cache.setDuplicatedFolder(tree / "B/inner", tree / "C/inner", false);
    EXPECT_FALSE(b->isDuplicateOf(*c)) << "the memo answers for the pair";
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

// Files that outlive their tree (as group members do) keep the tree's services, also
// from a sub-folder that died after the top one; a node under no tree has the defaults.
TEST_F(FolderComparison, FilesThatOutliveTheirTreeKeepItsServices) {
    tree.file("T/top.txt", "top");
    tree.file("T/sub/deeper/deep.txt", "deep");
    auto top = build(tree / "T", &delegate);
    auto file = [&](const std::shared_ptr<CVFolder>& folder, const char* name) -> NodePtr {
        for (const auto& child : folder->children())
            if (lastPathComponent(child->storedPath()) == name)
                return child;
        return nullptr;
    };
    NodePtr topFile = file(top, "top.txt");
    auto sub = std::dynamic_pointer_cast<CVFolder>(file(top, "sub"));
    ASSERT_TRUE(topFile && sub);
    NodePtr deepFile = file(std::dynamic_pointer_cast<CVFolder>(file(sub, "deeper")), "deep.txt");
    ASSERT_TRUE(deepFile);
    sub.reset();
    EXPECT_EQ(&dynamic_cast<CVFile&>(*deepFile).services(), services.get()) << "found through its folders";
    top.reset();
    for (const auto& node : {topFile, deepFile}) {
        const auto& survivor = dynamic_cast<CVFile&>(*node);
        EXPECT_EQ(survivor.parentFolder(), nullptr);
        EXPECT_EQ(&survivor.services(), services.get()) << survivor.path();
        EXPECT_EQ(survivor.sharedServices(), services) << survivor.path();
    }
    const CVFile loose(tree / "T/top.txt", "", 3);
    EXPECT_EQ(&loose.services(), defaultNodeServices().get());
    EXPECT_EQ(loose.sharedServices(), nullptr);
}

} // namespace
} // namespace corvel
