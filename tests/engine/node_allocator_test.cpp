#include <algorithm>
#include <cstdint>
#include <gtest/gtest.h>
#include <set>
#include <thread>
#include <vector>

#include "engine/folder.h"
#include "engine/node_allocator.h"

namespace corvel {
namespace {

TEST(BlockPool, BlocksAreDistinctAlignedAndReused) {
    for (const std::size_t size : {std::size_t{8}, std::size_t{104}, std::size_t{512}}) {
        SCOPED_TRACE(size);
        BlockPool& pool = BlockPool::forSize(size);
        EXPECT_EQ(&pool, &BlockPool::forSize(size)) << "one pool per size";
        // More than a chunk holds, so that a second chunk is carved too.
        std::vector<char*> blocks;
        for (std::size_t i = 0; i < std::size_t{2} * 65536 / size + 3; ++i) {
            blocks.push_back(static_cast<char*>(pool.allocate()));
            EXPECT_EQ(reinterpret_cast<std::uintptr_t>(blocks.back()) % BlockPool::kAlignment, 0U);
            std::fill_n(blocks.back(), size, static_cast<char>(i)); // the whole block is ours
        }
        std::vector<char*> sorted = blocks;
        std::sort(sorted.begin(), sorted.end());
        for (std::size_t i = 1; i < sorted.size(); ++i)
            EXPECT_GE(sorted[i] - sorted[i - 1], static_cast<std::ptrdiff_t>(size)) << "blocks never overlap";
        for (std::size_t i = 0; i < blocks.size(); ++i)
            EXPECT_EQ(blocks[i][size - 1], static_cast<char>(i)) << "a block kept what was written to it";
        pool.deallocate(blocks[5]);
        pool.deallocate(blocks[9]);
        const std::set<char*> again = {static_cast<char*>(pool.allocate()),
                                       static_cast<char*>(pool.allocate())};
        EXPECT_EQ(again, (std::set<char*>{blocks[5], blocks[9]})) << "freed blocks are handed out first";
        for (char* block : blocks)
            pool.deallocate(block);
    }
}

TEST(BlockPool, ThreadsNeverShareABlock) {
    BlockPool& pool = BlockPool::forSize(24);
    constexpr int kThreads = 4;
    constexpr int kBlocks = 100000;
    std::vector<std::vector<void*>> got(kThreads);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&, t] {
            for (int i = 0; i < kBlocks; ++i) {
                got[t].push_back(pool.allocate());
                if (i % 3 == 0) { // give some back meanwhile, for the others to take
                    pool.deallocate(got[t].back());
                    got[t].pop_back();
                }
            }
        });
    for (auto& thread : threads)
        thread.join();
    std::set<void*> all;
    std::size_t held = 0;
    for (const auto& blocks : got) {
        all.insert(blocks.begin(), blocks.end());
        held += blocks.size();
    }
    EXPECT_EQ(all.size(), held) << "no block was handed to two holders";
    for (const auto& blocks : got)
        for (void* block : blocks)
            pool.deallocate(block);
}

TEST(BlockPool, NodesMadeInPoolsLiveAndDieAsWithMakeShared) {
    std::weak_ptr<CVFile> watched;
    {
        auto folder = makeNode<CVFolder>("/pool/a", "");
        auto file = makeNode<CVFile>("/pool/a/x.txt", "", 7, 4096);
        folder->addChildFile(file);
        watched = file;
        EXPECT_EQ(file->path(), "/pool/a/x.txt");
        EXPECT_EQ(folder->childrenCount(), 1U);
        EXPECT_EQ(file.use_count(), 2) << "the folder holds it too";
        EXPECT_FALSE(watched.expired());
    }
    EXPECT_TRUE(watched.expired()) << "the node dies with its last holder";
    // Arrays are not pooled; they still work.
    NodeAllocator<std::uint64_t> allocator;
    std::uint64_t* many = allocator.allocate(1000);
    many[999] = 1;
    allocator.deallocate(many, 1000);
}

} // namespace
} // namespace corvel
