// Deleting a copy permanently takes only what its comparison saw: whatever arrives in the
// copy, or changes in it, between its comparison and its deletion stays where it is.

#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <thread>

#include "removal/compared_tree_removal.h"
#include "removal_harness.h"

namespace corvel::test {
namespace {

using Outcome = CVRemovalPass::Outcome;

// The copy "copy" of the kept folder "kept" under files/, both holding a/x and b.
std::shared_ptr<CVFile> folderCopy(RemovalHarness& h) {
    for (const char* folder : {"kept", "copy"}) {
        h.tree.file(std::string("files/") + folder + "/a/x", "the same x");
        h.tree.file(std::string("files/") + folder + "/b", "the same b");
    }
    return h.group({h.files("kept"), h.files("copy")}, {1})->files()[1];
}

// Other bytes at the same size, the modification time set back as some tools do: only
// the change time, which no program sets, tells. The wait lets the clock that stamps it move on.
void rewriteKeepingTime(const std::string& path) {
    struct stat before {};
    ASSERT_EQ(::lstat(path.c_str(), &before), 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    std::fstream(path, std::ios::in | std::ios::out) << "X";
    const timespec times[2] = {before.st_atim, before.st_mtim};
    ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
}

struct LateChange {
    const char* name;
    bool folder;                                    // a folder copy, else the file copy "copy"
    std::function<void(const std::string&)> change; // done to the copy's path just before its deletion
    Outcome outcome;
    std::string error;              // the record's error, from its start
    std::vector<std::string> stays; // under the copy
    std::vector<std::string> gone;  // under the copy
    friend void PrintTo(const LateChange& c, std::ostream* os) { *os << c.name; }
};

class PermanentDeletion : public testing::TestWithParam<LateChange> {};

TEST_P(PermanentDeletion, TakesOnlyWhatWasCompared) {
    const LateChange& c = GetParam();
    RemovalHarness h;
    const auto copy = c.folder ? folderCopy(h) : h.copies("kept", {"copy"}, "the same bytes")->files()[1];
    auto options = h.options(false);
    options.beforeDelete = c.change;
    auto pass = h.pass(options);
    runPass(*pass);
    const auto* record = recordOf(*pass, copy->path());
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(record->outcome, c.outcome);
    EXPECT_TRUE(record->error.starts_with(c.error)) << record->error;
    for (const auto& path : c.stays)
        EXPECT_TRUE(exists(h.files("copy" + path))) << path;
    for (const auto& path : c.gone)
        EXPECT_FALSE(exists(h.files("copy" + path))) << path;
    EXPECT_TRUE(exists(h.files(c.folder ? "kept/a/x" : "kept")));
}

INSTANTIATE_TEST_SUITE_P(
    Changes, PermanentDeletion,
    testing::Values(
        LateChange{"NothingChanged", true, [](const std::string&) {}, Outcome::Deleted, "", {}, {""}},
        LateChange{"AFileWrittenIntoASubfolder",
                   true,
                   [](const std::string& copy) { std::ofstream(copy + "/a/new.txt") << "written late"; },
                   Outcome::Failed,
                   "2 of its 4 entries deleted, each as compared; ",
                   {"/a/new.txt", "/a", ""},
                   {"/a/x", "/b"}},
        LateChange{
            "AComparedFileEdited",
            true,
            [](const std::string& copy) { std::ofstream(copy + "/a/x", std::ios::app) << " and more"; },
            Outcome::Failed,
            "1 of its 4 entries deleted, each as compared; ",
            {"/a/x"},
            {"/b"}},
        LateChange{"AComparedFolderSwappedForALink",
                   true,
                   [](const std::string& copy) {
                       std::filesystem::rename(copy + "/a", copy + "/../elsewhere");
                       std::filesystem::create_directory_symlink("../elsewhere", copy + "/a");
                   },
                   Outcome::Failed,
                   "1 of its 4 entries deleted, each as compared; ",
                   {"/a", "/../elsewhere/x"},
                   {"/b"}},
        LateChange{"AComparedFileRewrittenWithItsTimePutBack",
                   true,
                   [](const std::string& copy) { rewriteKeepingTime(copy + "/a/x"); },
                   Outcome::Failed,
                   "1 of its 4 entries deleted, each as compared; ",
                   {"/a/x"},
                   {"/b"}},
        LateChange{"AFileCopyRewrittenWithItsTimePutBack",
                   false,
                   [](const std::string& copy) { rewriteKeepingTime(copy); },
                   Outcome::Failed,
                   "changed since the scan",
                   {""},
                   {}},
        LateChange{"AFileCopyEdited",
                   false,
                   [](const std::string& copy) { std::ofstream(copy, std::ios::app) << " and more"; },
                   Outcome::Failed,
                   "changed since the scan",
                   {""},
                   {}}),
    [](const auto& param) { return std::string(param.param.name); });

// A locked entry inside a folder copy: the deletion unlocks only the copy itself, so the
// entry stays; the dry run says so before, and the real run leaves it with its bytes.
TEST(PermanentDeletionOfALockedEntry, TheDryRunSaysTheCopyWouldFailAndItDoes) {
    RemovalHarness h;
    if (const std::string why = immutableFlagUnavailable(h.tree); !why.empty())
        GTEST_SKIP() << why;
    ImmutableFlags flags;
    const auto copy = folderCopy(h);
    ASSERT_TRUE(flags.lock(h.files("copy/a/x")));
    auto options = h.options(false);
    options.dryRun = true;
    auto dry = h.pass(options);
    runPass(*dry);
    const auto* said = recordOf(*dry, copy->path());
    ASSERT_NE(said, nullptr);
    EXPECT_EQ(said->outcome, Outcome::WouldFail);
    EXPECT_EQ(said->error, "remove " + h.files("copy/a/x") + ": " + std::strerror(EPERM));
    auto pass = h.pass(false);
    runPass(*pass);
    const auto* done = recordOf(*pass, copy->path());
    ASSERT_NE(done, nullptr);
    EXPECT_EQ(done->outcome, Outcome::Failed);
    EXPECT_TRUE(
        done->error.starts_with("1 of its 4 entries deleted, each as compared; " + h.files("copy/a/x")))
        << done->error;
    EXPECT_EQ(TempTree::read(h.files("copy/a/x")), "the same x");
}

// Two names of one file inside the copy: removing the first gives the file a new change
// time, which must not keep the second.
TEST(PermanentDeletionOfHardLinks, TakesEveryNameOfAComparedFile) {
    RemovalHarness h;
    h.tree.file("files/kept/x", "same");
    h.tree.file("files/kept/y", "same");
    h.tree.file("files/copy/x", "same");
    ASSERT_EQ(::link(h.files("copy/x").c_str(), h.files("copy/y").c_str()), 0);
    const auto copy = h.group({h.files("kept"), h.files("copy")}, {1})->files()[1];
    auto pass = h.pass(false);
    runPass(*pass);
    const auto* record = recordOf(*pass, copy->path());
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(record->outcome, Outcome::Deleted) << record->error;
    EXPECT_FALSE(exists(h.files("copy")));
}

// The list a comparison gives is what the removal goes by: a folder first, then its
// entries, each with its identity; an entry gone meanwhile is no failure.
TEST(ComparedTreeRemoval, GoesByTheComparisonsList) {
    TempTree tree;
    for (const char* side : {"a", "b"}) {
        tree.file(std::string(side) + "/f", "file");
        tree.file(std::string(side) + "/sub/g", "other");
        tree.symlink(std::string(side) + "/link", "f");
    }
    ContentComparer comparer;
    std::vector<ComparedEntry> compared;
    ASSERT_TRUE(comparer.compareTrees(tree / "a", tree / "b", &compared).isEqual());
    std::vector<std::pair<unsigned, std::string>> listed;
    for (const auto& entry : compared)
        listed.emplace_back(entry.depth, entry.name);
    EXPECT_EQ(listed, (std::vector<std::pair<unsigned, std::string>>{
                          {0, ""}, {1, "f"}, {1, "link"}, {1, "sub"}, {2, "g"}}));
    EXPECT_EQ(compared[1].size, 4u);
    std::filesystem::remove(tree / "a/sub/g");
    std::string why;
    EXPECT_TRUE(removeComparedTree(tree / "a", compared, &why)) << why;
    EXPECT_FALSE(exists(tree / "a"));
    EXPECT_TRUE(exists(tree / "b/sub/g"));
    // Without the folder's own entry first, nothing is removed.
    EXPECT_FALSE(removeComparedTree(tree / "b", {}, &why));
    EXPECT_TRUE(exists(tree / "b/f"));
}

} // namespace
} // namespace corvel::test
