#include <gtest/gtest.h>

#include "platform/main_queue.h"
#include "platform/user_defaults.h"
#include "selection/autoselect_lists.h"
#include "selection/selecting_controller.h"
#include "support/temp_tree.h"

namespace corvel {
namespace {

struct FakeDisplay : CVSelectingControllerDisplay {
    std::vector<std::pair<std::int64_t, std::int64_t>> changes;
    std::vector<std::pair<std::string, std::string>> messages; // warning, details
    void shouldIncSelectedSize(std::int64_t size, std::int64_t count) override {
        changes.emplace_back(size, count);
    }
    void shouldIncSelectedSize(std::int64_t size, std::int64_t count, const std::string& warning,
                               const std::string& details) override {
        changes.emplace_back(size, count);
        messages.emplace_back(warning, details);
    }
};

struct FakeDelegate : CVSelectingControllerDelegate {
    std::vector<std::string> calls;
    void selectingDidStarted() override { calls.emplace_back("started"); }
    void selectingDidFinished() override { calls.emplace_back("finished"); }
    void selectingDidFailedForItem(const SelectionItem& /*item*/) override { calls.emplace_back("failed"); }
    void selectingDidSuccessedForItem(const SelectionItem& /*item*/) override {
        calls.emplace_back("succeeded");
    }
};

class SelectingControllerTest : public testing::Test {
protected:
    void SetUp() override {
        defaults.setBool(true, kAutoSelectDefaultSetKey);
        defaults.setBool(true, kAutoselectMailDownloadsSetKey);
        controller.setDisplay(&display);
    }
    std::shared_ptr<CVGroup> group(const std::vector<std::string>& paths, std::int64_t mtime = 7) {
        std::shared_ptr<CVGroup> g;
        for (const auto& p : paths) {
            auto f = std::make_shared<CVFile>(p, "", 1000, 4096);
            f->setStatMTime(mtime);
            if (!g)
                g = CVGroup::initWithCVFile(f);
            else
                g->addFile(f);
        }
        m_groups.push_back(g);
        return g;
    }
    test::TempTree tree;
    UserDefaults defaults{tree / "d.plist"};
    FakeDisplay display;
    FakeDelegate delegate;
    CVSelectingController controller{&delegate, defaults};
    std::vector<std::shared_ptr<CVGroup>> m_groups;
};

TEST_F(SelectingControllerTest, MessagesFollowTheCountAndType) {
    struct Case {
        std::uint64_t count;
        std::int32_t type;
        std::string details, warning;
    };
    for (const Case& c : {Case{1, 4, "1 duplicate was selected automatically.", ""},
                          Case{1, 2, "1 duplicate was selected.", ""},
                          Case{5, 4, "5 duplicates were selected automatically.", ""},
                          Case{3, 3, "3 duplicates were selected.", ""},
                          Case{0, 3, "Please select the copies to remove by hand.",
                               "All copies have the same modification date."},
                          Case{0, 4, "Please select the copies to remove by hand.",
                               "No automatic selection rule applies to these copies."}}) {
        const auto [details, warning] = CVSelectingController::messageFor(c.count, c.type);
        EXPECT_EQ(details, c.details);
        EXPECT_EQ(warning, c.warning);
    }
}

TEST_F(SelectingControllerTest, AutoselectingGroupsCountsSizesAndWords) {
    auto plain = group({"/a/x.bin", "/b/y.bin"});
    auto named = group({"/p/photo.jpg", "/p/photo copy.jpg", "/p/photo copy 2.jpg"});
    controller.autoselectGroups({plain, named});
    MainQueue::shared().drain();
    ASSERT_EQ(display.messages.size(), 1u);
    EXPECT_EQ(display.messages[0].second, "2 duplicates were selected automatically.");
    EXPECT_EQ(display.changes.back(), (std::pair<std::int64_t, std::int64_t>{2 * 4096, 2}));
    EXPECT_EQ(named->filesToRemoveCount(), 2) << "counts are announced by manifest";
    EXPECT_EQ(plain->filesToRemoveCount(), 0);
    EXPECT_EQ(delegate.calls, (std::vector<std::string>{"started", "finished"}));

    controller.autoselectGroups({plain});
    EXPECT_EQ(display.messages.back().first, "No automatic selection rule applies to these copies.");
    controller.keepOldestItemsInGroupsArray({plain});
    EXPECT_EQ(display.messages.back().first, "All copies have the same modification date.");

    controller.deselectGroup(named);
    MainQueue::shared().drain();
    EXPECT_EQ(display.changes.back(), (std::pair<std::int64_t, std::int64_t>{-2 * 4096, -2}));
    EXPECT_EQ(named->filesToRemoveCount(), 0);
}

TEST_F(SelectingControllerTest, SelectingTheLastCopyNeedsForce) {
    auto g = group({"/a/x", "/b/x"});
    const auto files = g->files();
    controller.selectItem(files[0], g, false);
    MainQueue::shared().drain();
    EXPECT_TRUE(files[0]->needToRemove());
    EXPECT_EQ(display.changes.back(), (std::pair<std::int64_t, std::int64_t>{4096, 1}));
    controller.selectItem(files[1], g, false);
    EXPECT_FALSE(files[1]->needToRemove()) << "the last copy is not selected unforced";
    EXPECT_EQ(delegate.calls.back(), "failed");
    controller.selectItem(files[1], g, true);
    EXPECT_TRUE(files[1]->needToRemove());
    MainQueue::shared().drain();
    EXPECT_EQ(g->filesToRemoveCount(), 2);
    controller.deselectItem(files[1]);
    MainQueue::shared().drain();
    EXPECT_EQ(g->filesToRemoveCount(), 1);
    EXPECT_EQ(files[1]->selectionType(), kSelectionManual);
}

TEST_F(SelectingControllerTest, SelectingAndDeselectingLikeAFolder) {
    auto g = group({"/home/u/Downloads/a.bin", "/home/u/Work/a.bin", "/home/u/Downloads/old/a.bin"});
    const auto files = g->files();
    const auto downloads = CVPathComponent::initWithSourse("/home/u/Downloads", "", kComponentFolder);
    EXPECT_EQ(downloads.title, "Downloads");
    controller.selectGroupsInArray({g}, downloads);
    EXPECT_TRUE(files[0]->needToRemove());
    EXPECT_FALSE(files[1]->needToRemove());
    EXPECT_TRUE(files[2]->needToRemove());
    EXPECT_EQ(files[0]->selectionType(), kSelectionWeak);
    controller.deselectGroupsInArray({g}, downloads);
    EXPECT_FALSE(files[0]->needToRemove());
    // When every copy is alike, the automatic selection decides instead.
    auto all = group({"/home/u/Downloads/b copy.bin", "/home/u/Downloads/b.bin"});
    controller.selectGroupsInArray({all}, downloads);
    EXPECT_EQ(all->files()[0]->needToRemove(), true);
    EXPECT_EQ(all->files()[1]->needToRemove(), false);
    EXPECT_STREQ(CVPathComponent::parserKeyForPathComponentKind(kComponentEvent), "EventID");
}

} // namespace
} // namespace corvel
