#include <algorithm>
#include <cerrno>
#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <set>
#include <thread>
#include <vector>

#include "engine/node.h"
#include "scan/unread_files.h"

namespace corvel {
namespace {

std::vector<std::shared_ptr<CVFile>> files(std::size_t count) {
    std::vector<std::shared_ptr<CVFile>> made;
    for (std::size_t i = 0; i < count; ++i)
        made.push_back(std::make_shared<CVFile>("/data/file" + std::to_string(i), "", 10));
    return made;
}

struct Cap {
    std::size_t noted;
    std::size_t limit;
};

class UnreadFilesCap : public testing::TestWithParam<Cap> {};

// Every file is counted once however often it is noted; the first ones up to the limit
// are kept by name, with the reason of their first note, and listed by path.
TEST_P(UnreadFilesCap, KeepsTheFirstNamesAndCountsEachFileOnce) {
    const auto [noted, limit] = GetParam();
    UnreadFiles unread(limit);
    const auto made = files(noted);
    for (const auto& file : made)
        unread.note(*file, EACCES);
    for (const auto& file : made)
        unread.note(*file, ENOENT);
    EXPECT_EQ(unread.count(), noted);
    const auto named = unread.named();
    std::vector<std::string> expected; // the first ones noted, listed by path
    for (std::size_t i = 0; i < std::min(noted, limit); ++i)
        expected.push_back("/data/file" + std::to_string(i));
    std::sort(expected.begin(), expected.end());
    ASSERT_EQ(named.size(), expected.size());
    for (std::size_t i = 0; i < named.size(); ++i) {
        EXPECT_EQ(named[i].path, expected[i]);
        EXPECT_EQ(named[i].reason, "Permission denied");
    }
    unread.clear();
    EXPECT_EQ(unread.count(), 0u);
    EXPECT_TRUE(unread.named().empty());
}

// Paths past PATH_MAX are the walk's to name (the folder where they begin), not each
// file's; a socket (ENXIO on opening) has nothing to read. Other errors are noted.
TEST(UnreadFiles, APathTooLongOrASocketIsNotNoted) {
    for (const auto& [error, noted] :
         {std::pair{ENAMETOOLONG, 0u}, std::pair{ENXIO, 0u}, std::pair{EACCES, 1u}}) {
        UnreadFiles unread;
        const auto made = files(1);
        unread.note(*made[0], error);
        EXPECT_EQ(unread.count(), noted) << std::strerror(error);
    }
}

INSTANTIATE_TEST_SUITE_P(Sizes, UnreadFilesCap,
                         testing::Values(Cap{0, 3}, Cap{1, 3}, Cap{3, 3}, Cap{4, 3}, Cap{50, 0},
                                         Cap{1000, UnreadFiles::kNamedLimit}));

// Reader threads meeting the same files at once still name each file once.
TEST(UnreadFiles, ThreadsNotingTheSameFilesNameEachOnce) {
    constexpr std::size_t kFiles = 2000;
    UnreadFiles unread;
    const auto made = files(kFiles);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            for (std::size_t i = 0; i < kFiles; ++i)
                unread.note(*made[(i + static_cast<std::size_t>(t) * 97) % kFiles], EIO);
        });
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(unread.count(), kFiles);
    const auto named = unread.named();
    EXPECT_EQ(named.size(), UnreadFiles::kNamedLimit);
    std::set<std::string> distinct;
    for (const auto& file : named)
        distinct.insert(file.path);
    EXPECT_EQ(distinct.size(), named.size());
}

} // namespace
} // namespace corvel
