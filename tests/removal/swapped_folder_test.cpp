// A folder of a copy's path swapped for a link while the pass runs (another program, or
// someone who means harm): the removal and the clean-up act only on the folder the copy
// was checked in, never on what the path leads to by then.

#include <filesystem>
#include <gtest/gtest.h>

#include "removal_harness.h"

namespace corvel::test {
namespace {

using Outcome = CVRemovalPass::Outcome;

// files/m renamed to files/m.moved and replaced by a link to files/victim.
void swapCopiesFolderForALink(RemovalHarness& h) {
    std::filesystem::rename(h.files("m"), h.files("m.moved"));
    std::filesystem::create_directory_symlink("victim", h.files("m"));
}

struct Swap {
    const char* name;
    bool toTrash;
    friend void PrintTo(const Swap& c, std::ostream* os) { *os << c.name; }
};

class SwappedFolder : public testing::TestWithParam<Swap> {
protected:
    // Runs the pass with the swap made just before the copy's deletion or move, once.
    std::unique_ptr<CVRemovalPass> runWithSwap(RemovalHarness& h, bool removeEmptyFolders) {
        bool swapped = false;
        auto swapOnce = [&](const std::string&) {
            if (!std::exchange(swapped, true))
                swapCopiesFolderForALink(h);
        };
        auto options = h.options(GetParam().toTrash, removeEmptyFolders);
        if (GetParam().toTrash)
            h.trash.setBeforeMoveHook(swapOnce);
        else
            options.beforeDelete = swapOnce;
        auto pass = h.pass(options);
        runPass(*pass);
        EXPECT_TRUE(swapped);
        return pass;
    }
};

// The user's only copy of a file of the copy's name, in the folder the link leads to.
TEST_P(SwappedFolder, TheFileTheLinkLeadsToStays) {
    RemovalHarness h;
    const std::string victim = h.tree.file("files/victim/x", "the user's only copy");
    h.copies("k/x", {"m/x"}, "same bytes");
    auto pass = runWithSwap(h, false);
    EXPECT_EQ(TempTree::read(victim), "the user's only copy");
    EXPECT_TRUE(exists(h.files("k/x")));
    // The copy checked went, from the folder it was checked in.
    EXPECT_FALSE(exists(h.files("m.moved/x")));
    EXPECT_EQ(recordOf(*pass, h.files("m/x"))->outcome,
              GetParam().toTrash ? Outcome::Trashed : Outcome::Deleted);
}

// A folder holding only a leftover, of the emptied folder's name, where the link leads.
TEST_P(SwappedFolder, TheCleanUpLeavesTheFolderTheLinkLeadsTo) {
    RemovalHarness h;
    const std::string leftover = h.tree.file("files/victim/d/.DS_Store", "the user's view settings");
    h.copies("k/d/x", {"m/d/x"}, "same bytes");
    auto pass = runWithSwap(h, true);
    EXPECT_EQ(TempTree::read(leftover), "the user's view settings");
    EXPECT_FALSE(exists(h.files("m.moved/d/x")));
    EXPECT_TRUE(pass->removedFolders().empty());
}

// Swapped between the scan and the pass: the copy fails, and a copy the pass did not
// remove cleans nothing up, where the path leads now least of all.
TEST_P(SwappedFolder, BeforeThePassNothingIsCleanedUpWhereTheLinkLeads) {
    RemovalHarness h;
    const std::string leftover = h.tree.file("files/victim/d/.DS_Store", "the user's view settings");
    h.copies("k/d/x", {"m/d/x"}, "same bytes");
    swapCopiesFolderForALink(h);
    auto pass = h.pass(GetParam().toTrash, /*removeEmptyFolders*/ true);
    runPass(*pass);
    EXPECT_EQ(TempTree::read(leftover), "the user's view settings");
    EXPECT_EQ(recordOf(*pass, h.files("m/d/x"))->outcome, Outcome::Failed);
    EXPECT_TRUE(pass->removedFolders().empty());
}

INSTANTIATE_TEST_SUITE_P(Modes, SwappedFolder, testing::Values(Swap{"Delete", false}, Swap{"Trash", true}),
                         [](const auto& param) { return std::string(param.param.name); });

// The emptied folder's folder swapped for a link to a folder holding an empty folder of
// the same name, just before the clean-up deletes it: the folder the copy left goes, the
// user's empty folder stays.
TEST(SwappedFolderAtTheCleanUp, TheEmptiedFolderGoesAndNotTheOneTheLinkLeadsTo) {
    RemovalHarness h;
    h.tree.folder("files/victim/d");
    h.copies("k/d/x", {"m/d/x"}, "same bytes");
    auto options = h.options(false, /*removeEmptyFolders*/ true);
    options.beforeDelete = [&](const std::string& path) {
        if (path == h.files("m/d"))
            swapCopiesFolderForALink(h);
    };
    auto pass = h.pass(options);
    runPass(*pass);
    EXPECT_TRUE(exists(h.files("victim/d")));
    EXPECT_FALSE(exists(h.files("m.moved/d")));
    EXPECT_EQ(pass->removedFolders(), std::vector<std::string>{h.files("m/d")});
}

// A locked copy is unlocked for its deletion; its folder is swapped for a link to a folder
// holding the user's locked file of the same name, and the deletion then fails (the
// copy's own folder locked meanwhile): the copy is locked again, wherever its path leads
// by now, and the user's file keeps its lock and its bytes.
TEST(SwappedFolderAtTheLock, ACopyUnlockedForNothingIsLockedAgain) {
    RemovalHarness h;
    if (const std::string why = immutableFlagUnavailable(h.tree); !why.empty())
        GTEST_SKIP() << why;
    ImmutableFlags flags;
    const std::string victim = h.tree.file("files/victim/x", "the user's locked file");
    h.copies("k/x", {"m/x"}, "same bytes");
    ASSERT_TRUE(flags.lock(victim));
    ASSERT_TRUE(flags.lock(h.files("m/x")));
    auto options = h.options(false);
    options.beforeDelete = [&](const std::string&) {
        swapCopiesFolderForALink(h);
        ASSERT_TRUE(flags.lock(h.files("m.moved")));
    };
    auto pass = h.pass(options);
    runPass(*pass);
    EXPECT_EQ(recordOf(*pass, h.files("m/x"))->outcome, Outcome::Failed);
    EXPECT_EQ(isImmutable(h.files("m.moved/x")), std::optional<bool>(true));
    EXPECT_EQ(isImmutable(victim), std::optional<bool>(true));
    EXPECT_EQ(TempTree::read(victim), "the user's locked file");
    EXPECT_EQ(TempTree::read(h.files("m.moved/x")), "same bytes");
}

} // namespace
} // namespace corvel::test
