#include <algorithm>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>

#include "engine/folder.h"
#include "scan/size_groups.h"

namespace corvel {
namespace {

std::vector<std::string> pathsOf(std::span<NodePtr> nodes) {
    std::vector<std::string> paths;
    for (const auto& node : nodes)
        paths.push_back(node->path());
    return paths;
}

TEST(SizeGroups, FilesSizesHeldTwiceInWalkOrderAndDropsTheRest) {
    struct Case {
        const char* name;
        std::vector<std::uint64_t> sizes; // one node per entry, named /n0, /n1, ... in walk order
        std::vector<std::uint64_t> filedSizes;
        std::vector<std::vector<std::string>> nodesBySize; // for each filed size, largest first
    };
    const std::vector<Case> cases = {
        {"nothing", {}, {}, {}},
        {"every size alone", {3, 1, 2}, {}, {}},
        {"sizes interleaved keep the walk's order",
         {5, 3, 5, 7, 3, 5},
         {5, 3},
         {{"/n0", "/n2", "/n5"}, {"/n1", "/n4"}}},
        {"the smallest and largest sizes",
         {0, UINT64_MAX, 0, UINT64_MAX},
         {UINT64_MAX, 0},
         {{"/n1", "/n3"}, {"/n0", "/n2"}}},
        {"one size only", {9, 9}, {9}, {{"/n0", "/n1"}}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        SizeGroups groups;
        for (std::size_t i = 0; i < c.sizes.size(); ++i)
            groups.add(std::make_shared<CVFile>("/n" + std::to_string(i), "", c.sizes[i]));
        groups.file();
        EXPECT_EQ(groups.sizesLargestFirst(), c.filedSizes);
        EXPECT_EQ(groups.size(), c.filedSizes.size());
        for (std::size_t k = 0; k < c.filedSizes.size(); ++k)
            EXPECT_EQ(pathsOf(groups.nodes(c.filedSizes[k])), c.nodesBySize[k]) << "size " << c.filedSizes[k];
        for (const std::uint64_t size : c.sizes) {
            if (std::count(c.sizes.begin(), c.sizes.end(), size) == 1) {
                EXPECT_TRUE(groups.nodes(size).empty()) << "size " << size << " held once";
            }
        }
        EXPECT_TRUE(groups.nodes(4).empty()) << "a size nobody has";
    }
}

// Many nodes in random order of sizes (long cycles for the reordering in place): the
// filing is what a stable sort by size gives, without the sizes held once.
// Sizes from 2^51 up leave too few bits beside 5,000 places and are filed the other way.
TEST(SizeGroups, FilesAsAStableSortBySizeWould) {
    std::mt19937 random(7);
    for (const std::uint64_t base : {std::uint64_t{0}, std::uint64_t{1} << 50, std::uint64_t{1} << 51})
        for (const std::uint64_t distinct : {2u, 50u, 3000u}) {
            SCOPED_TRACE(std::to_string(distinct) + " sizes from " + std::to_string(base));
            SizeGroups groups;
            std::vector<NodePtr> added;
            for (int i = 0; i < 5000; ++i) {
                added.push_back(
                    std::make_shared<CVFile>("/n" + std::to_string(i), "", base + random() % distinct));
                groups.add(added.back());
            }
            groups.file();
            std::vector<NodePtr> expected = added;
            std::stable_sort(expected.begin(), expected.end(),
                             [](const NodePtr& a, const NodePtr& b) { return a->size() < b->size(); });
            std::erase_if(expected, [&](const NodePtr& node) {
                return std::count_if(added.begin(), added.end(), [&](const NodePtr& other) {
                           return other->size() == node->size();
                       }) == 1;
            });
            std::vector<NodePtr> filed;
            const auto sizes = groups.sizesLargestFirst();
            for (auto it = sizes.rbegin(); it != sizes.rend(); ++it)
                for (const auto& node : groups.nodes(*it))
                    filed.push_back(node);
            EXPECT_EQ(filed, expected);
        }
}

TEST(SizeGroups, FilesAFolderBySizeItHasWhenFiledAndClearLetsGo) {
    SizeGroups groups;
    auto folder = std::make_shared<CVFolder>("/folder", "");
    auto file = std::make_shared<CVFile>("/file", "", 10);
    groups.add(folder);
    groups.add(file);
    folder->setSize(10); // a folder's size is final only when the walk leaves it
    groups.file();
    EXPECT_EQ(pathsOf(groups.nodes(10)), (std::vector<std::string>{"/folder", "/file"}));
    const std::weak_ptr<CVFile> watched = file;
    file.reset();
    EXPECT_FALSE(watched.expired()) << "the filing holds its nodes";
    groups.clear();
    EXPECT_TRUE(watched.expired());
    EXPECT_TRUE(groups.empty());
}

} // namespace
} // namespace corvel
