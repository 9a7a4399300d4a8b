#include <filesystem>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include "engine/node_type.h"
#include "platform/notification_center.h"
#include "platform/user_paths.h"
#include "results/duplicates_controller.h"
#include "support/other_user.h"
#include "support/scoped_mount.h"
#include "support/temp_tree.h"

namespace corvel {
namespace {

// The size on disk of a small file: one block.
constexpr std::uint64_t kBlock = 4096;

FilePtr file(const std::string& path, std::uint64_t disk = kBlock) {
    return std::make_shared<CVFile>(path, "", 100, disk);
}

GroupPtr group(const std::vector<FilePtr>& files, std::int32_t type = -1) {
    auto g = CVGroup::initWithCVFile(files.front());
    for (std::size_t i = 1; i < files.size(); ++i)
        g->addFile(files[i]);
    if (type >= 0)
        g->setType(static_cast<NodeType>(type));
    return g;
}

struct Counts {
    std::int32_t id;
    std::uint64_t count, files, size;
};

std::vector<Counts> counts(const CVDuplicatesController& c) {
    std::vector<Counts> out;
    for (const auto& meta : c.metaGroups())
        out.push_back({meta->groupID(), meta->count(), meta->filesCount(), meta->size()});
    return out;
}

void expectCounts(const CVDuplicatesController& c, const std::vector<Counts>& expected) {
    const auto actual = counts(c);
    ASSERT_EQ(actual.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(actual[i].id, expected[i].id);
        EXPECT_EQ(actual[i].count, expected[i].count);
        EXPECT_EQ(actual[i].files, expected[i].files);
        EXPECT_EQ(actual[i].size, expected[i].size);
    }
}

TEST(DuplicatesController, CategoriesAppearInOrderOfFirstGroup) {
    CVDuplicatesController results;
    expectCounts(results, {{0, 0, 0, 0}});
    results.addGroup(group({file("/a/x.jpg"), file("/b/x.jpg")}));
    results.addGroup(group({file("/a/s.mp3"), file("/b/s.mp3"), file("/c/s.mp3")}));
    results.addGroup(group({file("/a/y.png"), file("/b/y.png")}));
    results.addGroup(group({file("/a/odd"), file("/b/odd")}, 25));
    expectCounts(
        results,
        {{0, 4, 9, 9 * kBlock}, {3, 2, 4, 4 * kBlock}, {4, 1, 3, 3 * kBlock}, {1, 1, 2, 2 * kBlock}});
    EXPECT_EQ(results.count(), 4u);
    EXPECT_EQ(results.size(), 9u * 4096);
    EXPECT_EQ(results.allFiles().size(), 9u);
    EXPECT_EQ(CVMetaGroup::stringType(3), "Pictures");
    EXPECT_EQ(CVMetaGroup::imageForID(7), "RedDot");
    EXPECT_EQ(CVMetaGroup::colorForID(4), (RGBColor{0, 153 / 255.0, 1.0}));
    EXPECT_EQ(CVMetaGroup::imageForID(12), "");
}

TEST(DuplicatesController, TheFilterNarrowsGroupsAndCategoriesUntilCleared) {
    CVDuplicatesController results;
    auto selected = file("/a/x.jpg");
    results.addGroup(group({selected, file("/b/x.jpg")}));
    results.addGroup(group({file("/a/s.mp3"), file("/b/s.mp3")}));
    selected->setNeedToRemove(true);
    results.setFilterPredicate("(needToRemove == 1)");
    ASSERT_EQ(results.duplicatesGroups().size(), 1u);
    EXPECT_EQ(results.duplicatesGroups()[0]->groupPath(), "/a/x.jpg");
    expectCounts(results, {{0, 1, 2, 2 * kBlock}, {3, 1, 2, 2 * kBlock}});
    results.setFilterPredicate("(metaGroupType == 4)");
    EXPECT_EQ(results.duplicatesGroups()[0]->groupPath(), "/a/s.mp3");
    results.setFilterPredicate("title contains[c] 'X'");
    EXPECT_EQ(results.duplicatesGroups().size(), 1u);
    results.setFilterPredicate("");
    EXPECT_EQ(results.duplicatesGroups().size(), 2u);
    expectCounts(results, {{0, 2, 4, 4 * kBlock}, {3, 1, 2, 2 * kBlock}, {4, 1, 2, 2 * kBlock}});
    EXPECT_EQ(results.allDuplicatesGroups().size(), 2u);
}

TEST(DuplicatesController, RemovingFilesShrinksAndDropsGroups) {
    CVDuplicatesController results;
    auto a = file("/a/x"), b = file("/b/x"), c = file("/c/x");
    auto d = file("/a/y"), e = file("/b/y");
    results.addGroup(group({a, b, c}));
    results.addGroup(group({d, e}));
    results.removeFiles({a});
    EXPECT_EQ(results.duplicatesGroups().size(), 2u);
    EXPECT_EQ(results.duplicatesGroups()[0]->childrenCount(), 2u);
    results.removeFiles({d});
    ASSERT_EQ(results.duplicatesGroups().size(), 1u) << "the second-to-last file takes its group along";
    EXPECT_EQ(results.fileAtPath("/b/y"), nullptr);
    results.removeFiles({d}); // twice is harmless
    expectCounts(results, {{0, 1, 2, 2 * kBlock}, {1, 1, 2, 2 * kBlock}});
    b->setWasRemoved(true);
    results.removeDeletedFiles();
    EXPECT_TRUE(results.duplicatesGroups().empty());
    expectCounts(results, {{0, 0, 0, 0}});
}

TEST(DuplicatesController, GroupsAddedAroundARemovalAreFoundByPath) {
    CVDuplicatesController results;
    auto a = file("/a/x"), b = file("/b/x"), c = file("/a/y"), d = file("/b/y");
    const auto first = group({a, b});
    results.addGroup(first);
    results.addGroup(group({c, d}));
    ASSERT_EQ(results.fileAtPath("/b/y"), d); // both groups filed by path
    results.removeGroup(first);
    auto e = file("/a/z"), f = file("/b/z");
    results.addGroup(group({e, f}));
    EXPECT_EQ(results.fileAtPath("/b/z"), f) << "a group added after a removal is filed too";
    EXPECT_EQ(results.fileAtPath("/a/x"), nullptr);
    EXPECT_EQ(results.allFiles().size(), 4u);
}

TEST(DuplicatesController, RenamesFollowTheFileOrDropItIntoTheTrash) {
    CVDuplicatesController results;
    auto a = file("/a/x"), b = file("/b/x"), c = file("/c/x");
    results.addGroup(group({a, b, c}));
    results.changeFilePath("/a/x", "/a/renamed");
    EXPECT_EQ(a->path(), "/a/renamed");
    EXPECT_EQ(results.fileAtPath("/a/renamed"), a);
    EXPECT_EQ(results.fileAtPath("/a/x"), nullptr);
    results.changeFilePath("/b/x", xdgDataHome() + "/Trash/files/x");
    EXPECT_EQ(results.fileAtPath("/b/x"), nullptr);
    EXPECT_EQ(results.allDuplicatesGroups()[0]->childrenCount(), 2u);
    auto d = file("/d/x"), e = file("/e/x");
    results.addGroup(group({d, e}));
    results.changeFilePath("/d/x", "/media/usb/.Trash-1000/files/x");
    EXPECT_EQ(results.fileAtPath("/e/x"), nullptr) << "a group left with one file leaves with it";
    results.changeFilePath("/c/x", "/c/x");
    EXPECT_EQ(results.fileAtPath("/c/x"), nullptr) << "a rename to itself drops the file from the table";
    results.changeFilePath("/unknown", "/elsewhere");
    EXPECT_EQ(results.fileAtPath("/elsewhere"), nullptr);
}

TEST(DuplicatesController, ExportListsSelectedCopiesGroupByGroup) {
    CVDuplicatesController results;
    auto a = file("/g1/a"), b = file("/g1/b"), k = file("/g1/keep");
    auto c = file("/g2/c"), k2 = file("/g2/keep");
    auto n1 = file("/g3/n1"), n2 = file("/g3/n2");
    results.addGroup(group({k, a, b}));
    results.addGroup(group({n1, n2}));
    results.addGroup(group({c, k2}));
    test::TempTree tree;
    EXPECT_TRUE(results.exportSelectedDupesToPath(tree / "none.txt", nullptr));
    EXPECT_EQ(test::TempTree::read(tree / "none.txt"), "");
    for (const auto& f : {a, b, c})
        f->setNeedToRemove(true);
    EXPECT_EQ(results.exportText(), "/g1/a\n/g1/b\n\n/g2/c\n\n");
    int closed = 0;
    ScopedObserver observer(NotificationCenter::defaultCenter(),
                            NotificationCenter::defaultCenter().addObserver(
                                "CVExportPanelDidClose", nullptr, [&](const Notification&) { ++closed; }));
    ASSERT_TRUE(results.exportSelectedDupesToPath(tree / "out.txt", nullptr));
    EXPECT_EQ(test::TempTree::read(tree / "out.txt"), "/g1/a\n/g1/b\n\n/g2/c\n\n");
    CVError error;
    EXPECT_FALSE(results.exportSelectedDupesToPath(tree / "missing/dir/out.txt", &error));
    EXPECT_EQ(closed, 2);
}

// A name with a line feed would read back from a one-per-line list as two paths, and the
// second may be a copy meant to stay: such a list is never written; NUL-separated ones are.
TEST(DuplicatesController, ExportRefusesALinePerPathListWhenASelectedPathHoldsALineBreak) {
    CVDuplicatesController results;
    auto copy = file("/g1/a\n/g1/keep"), keep = file("/g1/keep");
    auto unselected = file("/g2/b\nc"), other = file("/g2/d");
    results.addGroup(group({keep, copy}));
    results.addGroup(group({unselected, other}));
    other->setNeedToRemove(true);
    test::TempTree tree;
    const std::string list = tree.file("list.txt", "/the/old/list\n\n");
    EXPECT_EQ(results.selectedPathsWithLineBreakCount(), 0u) << "an unselected name does not count";
    ASSERT_TRUE(results.exportSelectedDupesToPath(list, nullptr));
    copy->setNeedToRemove(true);
    EXPECT_EQ(results.selectedPathsWithLineBreakCount(), 1u);
    tree.file("list.txt", "/the/old/list\n\n");
    CVError error;
    EXPECT_FALSE(results.exportSelectedDupesToPath(list, &error));
    EXPECT_EQ(error.code, EINVAL);
    EXPECT_NE(error.localizedDescription().find("1 selected path holds a line break"), std::string::npos)
        << error.localizedDescription();
    EXPECT_EQ(test::TempTree::read(list), "/the/old/list\n\n") << "the list was replaced";
    ASSERT_TRUE(results.exportSelectedDupesToPath(list, nullptr, true));
    EXPECT_EQ(test::TempTree::read(list), std::string("/g1/a\n/g1/keep\0/g2/d\0", 21));
}

// Adds groups of two, the second file selected, until the export text is about bytes long.
void addSelectedGroups(CVDuplicatesController& results, std::size_t bytes) {
    const std::string longName(200, 'n');
    for (std::size_t i = 0; i * (longName.size() + 16) < bytes; ++i) {
        auto keep = file("/keep/" + std::to_string(i) + longName);
        auto copy = file("/copy/" + std::to_string(i) + longName);
        copy->setNeedToRemove(true);
        results.addGroup(group({keep, copy}));
    }
}

std::vector<std::string> namesIn(const std::string& folder) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

TEST(DuplicatesController, ExportOnAFullDiskLeavesTheOldListAsItWas) {
    test::TempTree tree;
    const std::string disk = tree.folder("disk");
    test::ScopedMount small("tmpfs", disk, "tmpfs", MS_NOSUID | MS_NODEV, "size=32k,mode=0755");
    if (!small.mounted())
        GTEST_SKIP()
            << "mounting a 32 KiB tmpfs needs root (CAP_SYS_ADMIN); the read-only folder test covers the "
               "failure path without it";
    const std::string list = tree.file("disk/list.txt", "/the/old/list\n\n");
    CVDuplicatesController results;
    addSelectedGroups(results, 32 * kBlock);
    CVError error;
    EXPECT_FALSE(results.exportSelectedDupesToPath(list, &error));
    EXPECT_EQ(error.code, ENOSPC) << error.localizedDescription();
    EXPECT_TRUE(test::TempTree::read(list) == "/the/old/list\n\n") << "the old list changed";
    EXPECT_EQ(namesIn(disk), std::vector<std::string>{"list.txt"}) << "no temporary file is left";
}

TEST(DuplicatesController, ExportWhereNoTemporaryMayBeMadeLeavesTheOldListAsItWas) {
    // The list itself may be written, its folder may not: replacing it in place could leave
    // half a list, so the export fails and the list stays.
    test::TempTree tree;
    const std::string folder = tree.folder("lists");
    const std::string list = tree.file("lists/list.txt", "/the/old/list\n\n");
    test::openToAnotherUser(folder);
    ASSERT_EQ(::chmod(list.c_str(), 0666), 0);
    ASSERT_EQ(::chmod(folder.c_str(), 0555), 0);
    CVDuplicatesController results;
    addSelectedGroups(results, 4096);
    const int status = test::runAsAnotherUser([&] {
        CVError error;
        const bool written = results.exportSelectedDupesToPath(list, &error);
        return written ? 1 : (error.code == EACCES ? 0 : 2);
    });
    ::chmod(folder.c_str(), 0755);
    EXPECT_EQ(status, 0) << "1: the export answered success, 2: it failed for another reason";
    EXPECT_TRUE(test::TempTree::read(list) == "/the/old/list\n\n") << "the old list changed";
    EXPECT_EQ(namesIn(folder), std::vector<std::string>{"list.txt"});
}

TEST(DuplicatesController, ExportReplacesTheListThroughALinkAndKeepsItsMode) {
    test::TempTree tree;
    const std::string list = tree.file("real/list.txt", "old\n");
    ASSERT_EQ(::chmod(list.c_str(), 0640), 0);
    const std::string link = tree.symlink("link.txt", list);
    CVDuplicatesController results;
    addSelectedGroups(results, 1);
    ASSERT_TRUE(results.exportSelectedDupesToPath(link, nullptr));
    struct stat st {};
    ASSERT_EQ(::lstat(link.c_str(), &st), 0);
    EXPECT_TRUE(S_ISLNK(st.st_mode)) << "the link stays a link";
    ASSERT_EQ(::stat(list.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0640u);
    EXPECT_EQ(test::TempTree::read(list), results.exportText());
    EXPECT_EQ(namesIn(tree / "real"), std::vector<std::string>{"list.txt"});

    // A new list gets the mode any new file gets: 0666 less the umask.
    const mode_t previous = ::umask(027);
    const bool written = results.exportSelectedDupesToPath(tree / "new.txt", nullptr);
    ::umask(previous);
    ASSERT_TRUE(written);
    ASSERT_EQ(::stat((tree / "new.txt").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0640u);
}

TEST(DuplicatesController, ExportToAPipeWritesStraightAndAFolderIsRefused) {
    test::TempTree tree;
    const std::string fifo = tree / "pipe";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    CVDuplicatesController results;
    addSelectedGroups(results, 1);
    std::string received;
    std::thread reader([&] { received = test::TempTree::read(fifo); });
    const bool written = results.exportSelectedDupesToPath(fifo, nullptr);
    reader.join();
    EXPECT_TRUE(written);
    EXPECT_EQ(received, results.exportText());
    struct stat st {};
    ASSERT_EQ(::lstat(fifo.c_str(), &st), 0);
    EXPECT_TRUE(S_ISFIFO(st.st_mode)) << "the pipe is not replaced by a file";

    const std::string folder = tree.folder("folder");
    tree.file("folder/kept", "kept");
    CVError error;
    EXPECT_FALSE(results.exportSelectedDupesToPath(folder, &error));
    EXPECT_EQ(error.code, EISDIR) << error.localizedDescription();
    EXPECT_EQ(test::TempTree::read(folder + "/kept"), "kept");
    EXPECT_EQ(namesIn(tree.path()), (std::vector<std::string>{"folder", "pipe"}));
}

} // namespace
} // namespace corvel
