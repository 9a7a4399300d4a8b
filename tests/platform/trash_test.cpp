#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <set>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "platform/file_io.h"
#include "platform/trash.h"
#include "support/scoped_mount.h"
#include "support/temp_tree.h"

namespace corvel {
namespace {

std::set<std::string> listFolder(const std::string& path) {
    std::set<std::string> names;
    if (DIR* dir = ::opendir(path.c_str())) {
        while (const dirent* entry = ::readdir(dir))
            if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0)
                names.insert(entry->d_name);
        ::closedir(dir);
    }
    return names;
}

bool exists(const std::string& path) {
    struct stat st {};
    return ::lstat(path.c_str(), &st) == 0;
}

mode_t permissions(const std::string& path) {
    struct stat st {};
    return ::lstat(path.c_str(), &st) == 0 ? (st.st_mode & 07777) : 0;
}

// The keys of an information file; "header" holds its first line.
std::map<std::string, std::string> readInfo(const std::string& path) {
    std::map<std::string, std::string> keys;
    const std::string text = test::TempTree::read(path);
    std::size_t start = 0;
    for (std::size_t end; (end = text.find('\n', start)) != std::string::npos; start = end + 1) {
        const std::string line = text.substr(start, end - start);
        const auto equals = line.find('=');
        if (start == 0)
            keys["header"] = line;
        else if (equals != std::string::npos)
            keys[line.substr(0, equals)] = line.substr(equals + 1);
    }
    return keys;
}

// Runs a shell command; the exit status and what it printed (stdout and stderr).
std::pair<int, std::string> runShell(const std::string& command) {
    std::string output;
    FILE* pipe = ::popen((command + " 2>&1").c_str(), "r");
    if (!pipe)
        return {-1, {}};
    char buffer[4096];
    while (const std::size_t n = std::fread(buffer, 1, sizeof buffer, pipe))
        output.append(buffer, n);
    const int status = ::pclose(pipe);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, output};
}

using test::ScopedMount;

#define SKIP_UNLESS_MOUNTED(mount)                                                                           \
    if (!(mount).mounted())                                                                                  \
    GTEST_SKIP() << "needs root and mount(2) (" << (mount).why() << ")"

class TrashTest : public ::testing::Test {
protected:
    // Paths in the tree with symbolic links resolved, as the Trash reports them.
    std::string real(const std::string& relative) const {
        return resolvePathAllowingMissing(tree / relative);
    }
    std::string homeTrash() const { return real("data/Trash"); }
    std::string uid() const { return std::to_string(::geteuid()); }

    // The home Trash lives in the tree; the mount table is the live one unless given.
    TrashEnvironment environment(std::optional<std::vector<MountEntry>> table = std::nullopt) const {
        TrashEnvironment env;
        env.dataHome = tree / "data";
        env.mountTable = std::move(table);
        return env;
    }
    // The live table plus tree/volume as a volume of its own: not a real mount, which
    // renames do not mind, so the rules for other volumes can be tried without root.
    std::vector<MountEntry> tableWithVolume(const std::string& volume) const {
        auto table = readMountTable();
        table.push_back(MountEntry{real(volume), "test", "test"});
        return table;
    }

    test::TempTree tree;
};

TEST_F(TrashTest, FileGoesToTheHomeTrashWithItsInformation) {
    const std::string item = tree.file("docs/My report.pdf", "contents");
    Trash trash(environment());
    const std::time_t before = std::time(nullptr);
    TrashedItem trashed;
    CVError error;
    ASSERT_TRUE(trash.moveToTrash(item, &trashed, &error)) << error.localizedDescription();
    const std::time_t after = std::time(nullptr);

    EXPECT_FALSE(exists(item));
    EXPECT_EQ(trashed.trashDirectory, homeTrash());
    EXPECT_EQ(trashed.trashFile, homeTrash() + "/files/My report.pdf");
    EXPECT_EQ(trashed.trashInfo, homeTrash() + "/info/My report.pdf.trashinfo");
    EXPECT_EQ(test::TempTree::read(trashed.trashFile), "contents");
    const auto info = readInfo(trashed.trashInfo);
    EXPECT_EQ(info.at("header"), "[Trash Info]");
    EXPECT_EQ(info.at("Path"), real("docs") + "/My%20report.pdf");
    struct tm parsed {};
    ASSERT_NE(::strptime(info.at("DeletionDate").c_str(), "%Y-%m-%dT%H:%M:%S", &parsed), nullptr);
    EXPECT_EQ(info.at("DeletionDate").size(), 19u);
    parsed.tm_isdst = -1;
    const std::time_t deleted = std::mktime(&parsed);
    EXPECT_GE(deleted, before);
    EXPECT_LE(deleted, after);
    for (const char* folder : {"data/Trash", "data/Trash/files", "data/Trash/info"})
        EXPECT_EQ(permissions(tree / folder), 0700u) << folder;
    EXPECT_FALSE(exists(homeTrash() + "/directorysizes")) << "only folders are recorded";
    struct stat folder {};
    ASSERT_EQ(::stat((tree / "docs").c_str(), &folder), 0);
    EXPECT_EQ(trashed.folderDevice, static_cast<std::uint64_t>(folder.st_dev));
    EXPECT_EQ(trashed.folderInode, static_cast<std::uint64_t>(folder.st_ino));
}

// Information files name the folder an item left where that folder really lies, even when
// the path given led there through a link that has changed since.
TEST_F(TrashTest, AnOpenFolderIsPlacedWhereItLiesNow) {
    tree.folder("real/inner");
    tree.folder("gone (deleted)");
    ASSERT_EQ(::symlink("real", (tree / "link").c_str()), 0);
    const int fd = ::open((tree / "link/inner").c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(placeOfOpenFolder(fd), real("real/inner"));
    ASSERT_EQ(::rename((tree / "real/inner").c_str(), (tree / "real/moved").c_str()), 0);
    EXPECT_EQ(placeOfOpenFolder(fd), real("real/moved"));
    ASSERT_EQ(::rmdir((tree / "real/moved").c_str()), 0);
    EXPECT_EQ(placeOfOpenFolder(fd), std::nullopt);
    ::close(fd);
    // A folder whose own name ends like the kernel's mark of a removed one is still a place.
    const int named = ::open((tree / "gone (deleted)").c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    ASSERT_GE(named, 0);
    EXPECT_EQ(placeOfOpenFolder(named), real("gone (deleted)"));
    ::close(named);
}

TEST_F(TrashTest, SymbolicLinkGoesItselfAndItsTargetStays) {
    const std::string target = tree.file("target.txt", "kept");
    const std::string link = tree.symlink("link", target);
    TrashedItem trashed;
    CVError error;
    ASSERT_TRUE(Trash(environment()).moveToTrash(link, &trashed, &error)) << error.localizedDescription();
    EXPECT_EQ(test::TempTree::read(target), "kept");
    struct stat st {};
    ASSERT_EQ(::lstat(trashed.trashFile.c_str(), &st), 0);
    EXPECT_TRUE(S_ISLNK(st.st_mode));
}

TEST_F(TrashTest, ThreeItemsOfOneNameGetNumberedNames) {
    for (const bool sharedObject : {true, false}) {
        SCOPED_TRACE(sharedObject ? "one Trash object" : "a Trash object per move");
        const std::string name = sharedObject ? "report.pdf" : "memo";
        Trash shared(environment());
        std::vector<std::string> names;
        for (const char* folder : {"a", "b", "c"}) {
            const std::string relative = std::string(folder) + "/" + name;
            const std::string item = tree.file(relative, folder);
            Trash own(environment());
            TrashedItem trashed;
            CVError error;
            ASSERT_TRUE((sharedObject ? shared : own).moveToTrash(item, &trashed, &error))
                << error.localizedDescription();
            EXPECT_EQ(test::TempTree::read(trashed.trashFile), folder);
            EXPECT_EQ(readInfo(trashed.trashInfo).at("Path"), real(relative));
            names.push_back(trashed.trashFile.substr(trashed.trashFile.rfind('/') + 1));
        }
        if (sharedObject)
            EXPECT_EQ(names, (std::vector<std::string>{"report.pdf", "report.2.pdf", "report.3.pdf"}));
        else
            EXPECT_EQ(names, (std::vector<std::string>{"memo", "memo.2", "memo.3"}));
    }
}

TEST_F(TrashTest, ClaimNeverOverwritesAnotherInformationFile) {
    tree.file("data/Trash/info/report.pdf.trashinfo", "[Trash Info]\nPath=/elsewhere/report.pdf\n");
    tree.folder("data/Trash/files");
    const std::string item = tree.file("a/report.pdf", "mine");
    TrashedItem trashed;
    CVError error;
    ASSERT_TRUE(Trash(environment()).moveToTrash(item, &trashed, &error)) << error.localizedDescription();
    EXPECT_EQ(trashed.trashFile, homeTrash() + "/files/report.2.pdf");
    EXPECT_EQ(test::TempTree::read(homeTrash() + "/info/report.pdf.trashinfo"),
              "[Trash Info]\nPath=/elsewhere/report.pdf\n");
}

// Entries without their information files (left by a crash of some program) keep their
// names: an information file made durable never describes one of them, not even while
// the item is still on its way.
TEST_F(TrashTest, AnEntryWithoutInformationKeepsItsName) {
    tree.file("data/Trash/files/report.pdf", "orphan");
    tree.file("data/Trash/files/report.2.pdf", "orphan 2");
    tree.folder("data/Trash/info");
    const std::string item = tree.file("a/report.pdf", "mine");
    Trash trash(environment());
    TrashBatch batch(trash);
    CVError error;
    const auto ticket = batch.add(item, std::nullopt, &error);
    ASSERT_TRUE(ticket) << error.localizedDescription();
    ASSERT_TRUE(batch.sync(&error)) << error.localizedDescription();
    EXPECT_EQ(listFolder(homeTrash() + "/info"), std::set<std::string>{"report.3.pdf.trashinfo"});
    TrashedItem trashed;
    ASSERT_TRUE(batch.commit(*ticket, &trashed, &error)) << error.localizedDescription();
    EXPECT_EQ(trashed.trashFile, homeTrash() + "/files/report.3.pdf");
    EXPECT_EQ(test::TempTree::read(homeTrash() + "/files/report.pdf"), "orphan");
    EXPECT_EQ(test::TempTree::read(homeTrash() + "/files/report.2.pdf"), "orphan 2");
    EXPECT_EQ(listFolder(homeTrash() + "/info"), std::set<std::string>{"report.3.pdf.trashinfo"});
}

TEST_F(TrashTest, MoveNeverReplacesAnEntryThatAppearsAfterTheClaim) {
    const std::string item = tree.file("a/report.pdf", "mine");
    Trash trash(environment());
    int calls = 0;
    trash.setBeforeMoveHook([&](const std::string& trashFile) {
        if (calls++ == 0)
            tree.file(trashFile.substr(tree.path().size() + 1), "arrived meanwhile");
    });
    TrashedItem trashed;
    CVError error;
    ASSERT_TRUE(trash.moveToTrash(item, &trashed, &error)) << error.localizedDescription();
    EXPECT_EQ(calls, 2);
    EXPECT_EQ(test::TempTree::read(homeTrash() + "/files/report.pdf"), "arrived meanwhile");
    EXPECT_EQ(test::TempTree::read(homeTrash() + "/files/report.2.pdf"), "mine");
    EXPECT_EQ(listFolder(homeTrash() + "/info"), std::set<std::string>{"report.2.pdf.trashinfo"});
}

// Many items in one batch: more than are fsync'ed one by one, so the volume is flushed
// once; items of one name from two folders get numbered names within the batch.
TEST_F(TrashTest, BatchMovesEveryItemWithItsInformation) {
    constexpr int kItems = 30;
    std::vector<std::string> items;
    for (int i = 0; i < kItems; ++i)
        items.push_back(tree.file((i % 2 ? "a/" : "b/") + std::string("same.txt.") + std::to_string(i / 2),
                                  "item " + std::to_string(i)));
    items.push_back(tree.file("a/one name", "first"));
    items.push_back(tree.file("b/one name", "second"));
    Trash trash(environment());
    TrashBatch batch(trash);
    std::vector<std::size_t> tickets;
    for (const auto& item : items) {
        CVError error;
        const auto ticket = batch.add(item, std::nullopt, &error);
        ASSERT_TRUE(ticket) << error.localizedDescription();
        tickets.push_back(*ticket);
        EXPECT_TRUE(exists(item)) << "nothing moves before the information is durable";
    }
    CVError error;
    ASSERT_TRUE(batch.sync(&error)) << error.localizedDescription();
    std::set<std::string> infos;
    std::vector<std::string> contents;
    for (const auto& item : items)
        contents.push_back(test::TempTree::read(item));
    for (std::size_t i = 0; i < items.size(); ++i) {
        TrashedItem trashed;
        ASSERT_TRUE(batch.commit(tickets[i], &trashed, &error)) << error.localizedDescription();
        EXPECT_FALSE(exists(items[i]));
        const std::string folder = real(lastPathComponent(parentPath(items[i])));
        std::string name = lastPathComponent(items[i]);
        if (name == "one name")
            name = "one%20name";
        EXPECT_EQ(readInfo(trashed.trashInfo).at("Path"), folder + "/" + name);
        EXPECT_EQ(test::TempTree::read(trashed.trashFile), contents[i]);
        infos.insert(lastPathComponent(trashed.trashInfo));
    }
    EXPECT_EQ(infos.size(), items.size());
    EXPECT_EQ(listFolder(homeTrash() + "/files").size(), items.size());
    EXPECT_TRUE(infos.contains("one name.trashinfo"));
    EXPECT_TRUE(infos.contains("one name.2.trashinfo"));
}

TEST_F(TrashTest, BatchItemsNotMovedKeepTheirPlaceAndLeaveNoInformation) {
    const std::string dropped = tree.file("a/dropped.txt", "1");
    const std::string unsynced = tree.file("a/unsynced.txt", "2");
    const std::string pending = tree.file("a/pending.txt", "3");
    Trash trash(environment());
    {
        TrashBatch batch(trash);
        CVError error;
        const auto first = batch.add(dropped, std::nullopt, &error);
        const auto second = batch.add(unsynced, std::nullopt, &error);
        ASSERT_TRUE(first && second);
        EXPECT_FALSE(batch.commit(*second, nullptr, &error))
            << "never moved before its information is synced";
        ASSERT_TRUE(batch.sync(&error));
        batch.drop(*first);
        EXPECT_FALSE(batch.commit(*first, nullptr, &error)) << "a dropped item stays";
        ASSERT_TRUE(batch.add(pending, std::nullopt, &error));
        EXPECT_EQ(listFolder(homeTrash() + "/info").size(), 2u);
    } // the batch ends with the synced and the unsynced item still pending
    for (const auto& item : {dropped, unsynced, pending})
        EXPECT_TRUE(exists(item)) << item;
    EXPECT_EQ(listFolder(homeTrash() + "/info"), std::set<std::string>{});
    EXPECT_EQ(listFolder(homeTrash() + "/files"), std::set<std::string>{});
}

// An item claimed inside a folder that an earlier item of the batch took into the Trash
// is no longer at its path: it stays where it went, inside the trashed folder, and no
// information file is left for it.
TEST_F(TrashTest, BatchItemInsideAFolderTrashedBeforeItStaysInThatFolder) {
    // An item of the folder goes first, so the folder was seen in its place before it moved.
    const std::string before = tree.file("a/sub/before.txt", "first");
    const std::string inner = tree.file("a/sub/inner.txt", "inside");
    const std::string folder = tree / "a/sub";
    Trash trash(environment());
    TrashBatch batch(trash);
    CVError error;
    const auto earlier = batch.add(before, std::nullopt, &error);
    const auto first = batch.add(folder, std::nullopt, &error);
    const auto second = batch.add(inner, std::nullopt, &error);
    ASSERT_TRUE(earlier && first && second) << error.localizedDescription();
    ASSERT_TRUE(batch.sync(&error)) << error.localizedDescription();
    ASSERT_TRUE(batch.commit(*earlier, nullptr, &error)) << error.localizedDescription();
    ASSERT_TRUE(batch.commit(*first, nullptr, &error)) << error.localizedDescription();
    EXPECT_FALSE(batch.commit(*second, nullptr, &error));
    EXPECT_EQ(error.localizedDescription(), "missing");
    EXPECT_EQ(test::TempTree::read(homeTrash() + "/files/sub/inner.txt"), "inside");
    EXPECT_EQ(listFolder(homeTrash() + "/files"), (std::set<std::string>{"before.txt", "sub"}));
    EXPECT_EQ(listFolder(homeTrash() + "/info"),
              (std::set<std::string>{"before.txt.trashinfo", "sub.trashinfo"}));
}

// The same when the folder went with an earlier batch: the next batch was prepared (its
// folders opened) while the one before it still moved its items.
TEST_F(TrashTest, BatchItemInsideAFolderAnEarlierBatchTrashedStaysInThatFolder) {
    const std::string inner = tree.file("a/sub/inner.txt", "inside");
    Trash trash(environment());
    TrashBatch earlier(trash);
    TrashBatch later(trash);
    CVError error;
    const auto folder = earlier.add(tree / "a/sub", std::nullopt, &error);
    const auto item = later.add(inner, std::nullopt, &error);
    ASSERT_TRUE(folder && item) << error.localizedDescription();
    ASSERT_TRUE(earlier.sync(&error) && later.sync(&error)) << error.localizedDescription();
    ASSERT_TRUE(earlier.commit(*folder, nullptr, &error)) << error.localizedDescription();
    EXPECT_FALSE(later.commit(*item, nullptr, &error));
    EXPECT_EQ(error.localizedDescription(), "missing");
    EXPECT_EQ(test::TempTree::read(homeTrash() + "/files/sub/inner.txt"), "inside");
    EXPECT_EQ(listFolder(homeTrash() + "/info"), std::set<std::string>{"sub.trashinfo"});
}

TEST_F(TrashTest, BatchItemReplacedAfterItsClaimStays) {
    const std::string item = tree.file("a/copy.txt", "scanned");
    struct stat st {};
    ASSERT_EQ(::lstat(item.c_str(), &st), 0);
    Trash trash(environment());
    TrashBatch batch(trash);
    CVError error;
    const auto ticket = batch.add(
        item,
        TrashItemIdentity{
            static_cast<std::uint64_t>(st.st_dev), static_cast<std::uint64_t>(st.st_ino), {}, {}, {}},
        &error);
    ASSERT_TRUE(ticket);
    ASSERT_TRUE(batch.sync(&error));
    ASSERT_EQ(::rename(tree.file("a/other.txt", "another file").c_str(), item.c_str()), 0);
    EXPECT_FALSE(batch.commit(*ticket, nullptr, &error));
    EXPECT_EQ(error.code, kTrashErrorItemChanged);
    EXPECT_EQ(test::TempTree::read(item), "another file");
    EXPECT_EQ(listFolder(homeTrash() + "/info"), std::set<std::string>{});
}

TEST_F(TrashTest, BatchItemEditedInPlaceAfterItsClaimStays) {
    struct Edit {
        const char* name;
        std::function<void(const std::string&)> apply;
    };
    const std::vector<Edit> edits = {
        {"appended to", [](const std::string& path) { std::ofstream(path, std::ios::app) << " and more"; }},
        {"rewritten at the same size, later",
         [](const std::string& path) {
             std::ofstream(path, std::ios::in | std::ios::out) << "SCANNED";
             const timespec later[2] = {{0, UTIME_OMIT}, {2000000000, 0}};
             ::utimensat(AT_FDCWD, path.c_str(), later, 0);
         }},
    };
    for (const Edit& edit : edits) {
        SCOPED_TRACE(edit.name);
        const std::string item = tree.file(std::string("a/") + edit.name + ".txt", "scanned");
        struct stat st {};
        ASSERT_EQ(::lstat(item.c_str(), &st), 0);
        const TrashItemIdentity scanned{st.st_dev,
                                        st.st_ino,
                                        static_cast<std::uint64_t>(st.st_size),
                                        st.st_mtim.tv_sec * 1000000000LL + st.st_mtim.tv_nsec,
                                        {}};
        Trash trash(environment());
        TrashBatch batch(trash);
        CVError error;
        const auto ticket = batch.add(item, scanned, &error);
        ASSERT_TRUE(ticket) << error.localizedDescription();
        ASSERT_TRUE(batch.sync(&error));
        edit.apply(item);
        EXPECT_FALSE(batch.commit(*ticket, nullptr, &error));
        EXPECT_EQ(error.code, kTrashErrorItemChanged);
        EXPECT_TRUE(exists(item));
        EXPECT_EQ(listFolder(homeTrash() + "/info"), std::set<std::string>{});
        EXPECT_EQ(listFolder(homeTrash() + "/files"), std::set<std::string>{});
    }
}

TEST_F(TrashTest, FailedMoveLeavesNoInformationFile) {
    const std::string item = tree.file("a/vanishing.txt", "x");
    Trash trash(environment());
    trash.setBeforeMoveHook([&](const std::string&) { ::unlink(item.c_str()); });
    CVError error;
    EXPECT_FALSE(trash.moveToTrash(item, nullptr, &error));
    EXPECT_EQ(error.domain, kPosixErrorDomain);
    EXPECT_EQ(error.code, ENOENT);
    EXPECT_EQ(listFolder(homeTrash() + "/info"), std::set<std::string>{});
    EXPECT_EQ(listFolder(homeTrash() + "/files"), std::set<std::string>{});
}

TEST_F(TrashTest, AnotherItemAtThePathIsNeverMoved) {
    const std::string item = tree.file("a/copy.txt", "scanned");
    struct stat st {};
    ASSERT_EQ(::lstat(item.c_str(), &st), 0);
    const TrashItemIdentity scanned{st.st_dev, st.st_ino, {}, {}, {}};

    // Replaced before the move starts: refused before anything is made.
    ASSERT_EQ(::rename(item.c_str(), (tree / "a/aside.txt").c_str()), 0);
    tree.file("a/copy.txt", "new one");
    CVError error;
    EXPECT_FALSE(Trash(environment()).moveToTrash(item, nullptr, &error, scanned));
    EXPECT_EQ(error.code, kTrashErrorItemChanged);
    EXPECT_EQ(error.localizedDescription(), "changed since the scan");
    EXPECT_FALSE(exists(homeTrash()));

    // Replaced while the information file is written: the new item stays, no information is left.
    ASSERT_EQ(::rename((tree / "a/aside.txt").c_str(), item.c_str()), 0);
    Trash trash(environment());
    trash.setBeforeMoveHook([&](const std::string&) {
        ::rename(item.c_str(), (tree / "a/aside.txt").c_str());
        tree.file("a/copy.txt", "arrived meanwhile");
    });
    EXPECT_FALSE(trash.moveToTrash(item, nullptr, &error, scanned));
    EXPECT_EQ(error.code, kTrashErrorItemChanged);
    EXPECT_EQ(test::TempTree::read(item), "arrived meanwhile");
    EXPECT_EQ(test::TempTree::read(tree / "a/aside.txt"), "scanned");
    EXPECT_EQ(listFolder(homeTrash() + "/info"), std::set<std::string>{});
    EXPECT_EQ(listFolder(homeTrash() + "/files"), std::set<std::string>{});

    // The expected item moves.
    trash.setBeforeMoveHook(nullptr);
    const std::string aside = tree / "a/aside.txt";
    TrashedItem trashed;
    ASSERT_TRUE(trash.moveToTrash(aside, &trashed, &error, scanned)) << error.localizedDescription();
    EXPECT_EQ(test::TempTree::read(trashed.trashFile), "scanned");
}

TEST_F(TrashTest, LongNamesAreShortenedAndThePathKeepsTheWholeName) {
    const std::string name = std::string(251, 'n') + ".txt";
    ASSERT_EQ(name.size(), 255u);
    std::set<std::string> entries;
    for (const char* folder : {"a", "b"}) {
        const std::string item = tree.file(std::string(folder) + "/" + name, folder);
        TrashedItem trashed;
        CVError error;
        ASSERT_TRUE(Trash(environment()).moveToTrash(item, &trashed, &error)) << error.localizedDescription();
        const std::string entry = trashed.trashFile.substr(trashed.trashFile.rfind('/') + 1);
        EXPECT_LE(entry.size() + std::strlen(".trashinfo"), 255u);
        EXPECT_TRUE(entry.ends_with(".txt")) << entry;
        EXPECT_EQ(readInfo(trashed.trashInfo).at("Path"), real(folder) + "/" + name);
        EXPECT_EQ(test::TempTree::read(trashed.trashFile), folder);
        entries.insert(entry);
    }
    EXPECT_EQ(entries.size(), 2u);
}

TEST_F(TrashTest, NameThatIsNotUtf8IsEncodedByteByByte) {
    const std::string item = tree.file("caf\xff \xe9.txt", "bytes");
    TrashedItem trashed;
    CVError error;
    ASSERT_TRUE(Trash(environment()).moveToTrash(item, &trashed, &error)) << error.localizedDescription();
    EXPECT_EQ(trashed.trashFile, homeTrash() + "/files/caf\xff \xe9.txt");
    EXPECT_EQ(readInfo(trashed.trashInfo).at("Path"), real("") + "/caf%FF%20%E9.txt");
    EXPECT_EQ(test::TempTree::read(trashed.trashFile), "bytes");
}

TEST_F(TrashTest, TrashedFoldersAreRecordedInDirectorySizes) {
    tree.file("one/My Photos/a.jpg", std::string(20000, 'a'));
    tree.file("one/My Photos/sub/b.jpg", std::string(9000, 'b'));
    tree.file("two/My Photos/c.jpg", "c");
    Trash trash(environment());
    std::vector<TrashedItem> trashed(2);
    for (int i = 0; i < 2; ++i) {
        CVError error;
        ASSERT_TRUE(
            trash.moveToTrash(tree / (i == 0 ? "one/My Photos" : "two/My Photos"), &trashed[i], &error))
            << error.localizedDescription();
    }
    EXPECT_EQ(trashed[1].trashFile, homeTrash() + "/files/My Photos.2");
    std::string expected;
    for (const TrashedItem& item : trashed) {
        struct stat info {};
        ASSERT_EQ(::stat(item.trashInfo.c_str(), &info), 0);
        const auto [status, du] = runShell("du -B1 -s '" + item.trashFile + "' | cut -f1");
        ASSERT_EQ(status, 0) << du;
        const std::string name = item.trashFile.substr(item.trashFile.rfind('/') + 1);
        expected += du.substr(0, du.find('\n')) + " " + std::to_string(info.st_mtim.tv_sec) + " " +
                    (name == "My Photos" ? "My%20Photos" : "My%20Photos.2") + "\n";
    }
    EXPECT_EQ(test::TempTree::read(homeTrash() + "/directorysizes"), expected);
}

TEST_F(TrashTest, RefusesWhatCannotBeTrashed) {
    tree.file("data/keep.txt", "x");
    const std::string inTrash = tree.file("data/Trash/files/old.txt", "old");
    struct Case {
        std::string path;
        std::string domain;
        std::int64_t code;
    };
    for (const Case& c :
         {Case{tree / "data", kTrashErrorDomain, kTrashErrorHoldsTrash},
          Case{tree.path(), kTrashErrorDomain, kTrashErrorHoldsTrash},
          Case{inTrash, kTrashErrorDomain, kTrashErrorInTrash},
          Case{homeTrash() + "/files", kTrashErrorDomain, kTrashErrorInTrash},
          Case{"/", kTrashErrorDomain, kTrashErrorNotAName},
          Case{tree / "a/..", kTrashErrorDomain, kTrashErrorNotAName},
          Case{"", kTrashErrorDomain, kTrashErrorNotAName},
          Case{tree / "data/keep.txt" + std::string(1, '\0') + "x", kTrashErrorDomain, kTrashErrorNotAName},
          Case{tree / "missing.txt", kPosixErrorDomain, ENOENT}}) {
        CVError error;
        EXPECT_FALSE(Trash(environment()).moveToTrash(c.path, nullptr, &error)) << c.path;
        EXPECT_EQ(error.domain, c.domain) << c.path;
        EXPECT_EQ(error.code, c.code) << c.path;
        CVError dryError;
        EXPECT_FALSE(Trash(environment()).trashDirectoryFor(c.path, &dryError)) << c.path;
        EXPECT_EQ(dryError.code, c.code) << c.path;
    }
    EXPECT_EQ(test::TempTree::read(inTrash), "old");
    EXPECT_EQ(test::TempTree::read(tree / "data/keep.txt"), "x");
    EXPECT_EQ(listFolder(homeTrash() + "/info"), std::set<std::string>{});
}

TEST_F(TrashTest, FolderThatWouldHoldTheHomeTrashIsRefusedBeforeAnythingIsMade) {
    tree.file("home/notes.txt", "x");
    TrashEnvironment env;
    env.dataHome = tree / "home/.local/share";
    CVError error;
    EXPECT_FALSE(Trash(env).moveToTrash(tree / "home", nullptr, &error));
    EXPECT_EQ(error.code, kTrashErrorHoldsTrash);
    EXPECT_EQ(listFolder(tree / "home"), std::set<std::string>{"notes.txt"});
}

TEST_F(TrashTest, DryRunNamesTheHomeTrashWithoutMakingIt) {
    const std::string item = tree.file("docs/a.txt", "x");
    CVError error;
    const auto folder = Trash(environment()).trashDirectoryFor(item, &error);
    ASSERT_TRUE(folder) << error.localizedDescription();
    EXPECT_EQ(*folder, homeTrash());
    EXPECT_FALSE(exists(tree / "data"));
    EXPECT_TRUE(exists(item));
}

// The rules for a volume other than the home Trash's: which Trash folder an item in
// VOLUME/sub/ goes to, or none.
struct VolumeCase {
    const char* name;
    std::function<void(const std::string& volume)> prepare;
    std::string expected; // relative to the volume; empty: no Trash on this volume
    bool needsRoot = false;
};

void PrintTo(const VolumeCase& c, std::ostream* out) {
    *out << c.name;
}

const std::string kUid = std::to_string(::geteuid());

void makeFolder(const std::string& path, mode_t mode) {
    ASSERT_EQ(::mkdir(path.c_str(), mode), 0) << path;
    ASSERT_EQ(::chmod(path.c_str(), mode), 0) << path;
}

class VolumeTrash : public TrashTest, public ::testing::WithParamInterface<VolumeCase> {};

TEST_P(VolumeTrash, PicksTheTrashFolderTheRulesAllow) {
    const VolumeCase& c = GetParam();
    if (c.needsRoot && ::geteuid() != 0)
        GTEST_SKIP() << "needs root to give a folder to another user";
    const std::string volume = real("vol");
    const std::string item = tree.file("vol/sub/item.txt", "item");
    tree.folder("vol/elsewhere");
    c.prepare(volume);
    const auto table = tableWithVolume("vol");
    Trash trash(environment(table));

    const std::set<std::string> before = listFolder(volume);
    CVError dryError;
    const auto predicted = trash.trashDirectoryFor(item, &dryError);
    EXPECT_EQ(listFolder(volume), before) << "a dry run changes nothing";

    TrashedItem trashed;
    CVError error;
    const bool moved = trash.moveToTrash(item, &trashed, &error);
    if (c.expected.empty()) {
        // The volume has a Trash folder, broken: mended, not deleted around.
        EXPECT_FALSE(moved);
        EXPECT_EQ(error.domain, kTrashErrorDomain);
        EXPECT_EQ(error.code, kTrashErrorTrashDamaged);
        EXPECT_EQ(error.localizedDescription(), "the Trash folder cannot be used");
        EXPECT_FALSE(predicted);
        EXPECT_EQ(dryError.code, kTrashErrorTrashDamaged);
        EXPECT_EQ(test::TempTree::read(item), "item");
    } else {
        ASSERT_TRUE(moved) << error.localizedDescription();
        EXPECT_EQ(trashed.trashDirectory, volume + "/" + c.expected);
        EXPECT_EQ(predicted.value_or("none"), volume + "/" + c.expected);
        EXPECT_EQ(trashed.trashFile, volume + "/" + c.expected + "/files/item.txt");
        EXPECT_EQ(readInfo(trashed.trashInfo).at("Path"), "sub/item.txt");
        EXPECT_EQ(permissions(volume + "/" + c.expected), 0700u);
        EXPECT_FALSE(exists(item));
    }
    EXPECT_EQ(listFolder(volume + "/elsewhere"), std::set<std::string>{}) << "nothing went through a link";
    EXPECT_FALSE(exists(homeTrash())) << "another volume never uses the home Trash";
}

INSTANTIATE_TEST_SUITE_P(
    Rules, VolumeTrash,
    ::testing::Values(
        VolumeCase{"NoSharedTrash", [](const std::string&) {}, ".Trash-" + kUid},
        VolumeCase{"StickySharedTrash", [](const std::string& v) { makeFolder(v + "/.Trash", 01777); },
                   ".Trash/" + kUid},
        VolumeCase{"SharedTrashWithoutStickyBit",
                   [](const std::string& v) { makeFolder(v + "/.Trash", 0777); }, ".Trash-" + kUid},
        VolumeCase{"SharedTrashIsALink",
                   [](const std::string& v) {
                       ASSERT_EQ(::chmod((v + "/elsewhere").c_str(), 01777), 0);
                       ASSERT_EQ(::symlink("elsewhere", (v + "/.Trash").c_str()), 0);
                   },
                   ".Trash-" + kUid},
        VolumeCase{
            "SharedTrashIsAFile",
            [](const std::string& v) { ASSERT_EQ(::close(::creat((v + "/.Trash").c_str(), 0644)), 0); },
            ".Trash-" + kUid},
        VolumeCase{"UserFolderInSharedTrashIsALink",
                   [](const std::string& v) {
                       makeFolder(v + "/.Trash", 01777);
                       ASSERT_EQ(::symlink("../elsewhere", (v + "/.Trash/" + kUid).c_str()), 0);
                   },
                   ".Trash-" + kUid},
        VolumeCase{"UserFolderInSharedTrashBelongsToAnother",
                   [](const std::string& v) {
                       makeFolder(v + "/.Trash", 01777);
                       makeFolder(v + "/.Trash/" + kUid, 0700);
                       ASSERT_EQ(::chown((v + "/.Trash/" + kUid).c_str(), 4321, 4321), 0);
                   },
                   ".Trash-" + kUid, true},
        VolumeCase{"PrivateTrashIsALink",
                   [](const std::string& v) {
                       ASSERT_EQ(::symlink("elsewhere", (v + "/.Trash-" + kUid).c_str()), 0);
                   },
                   ""},
        VolumeCase{"PrivateTrashBelongsToAnother",
                   [](const std::string& v) {
                       makeFolder(v + "/.Trash-" + kUid, 0700);
                       ASSERT_EQ(::chown((v + "/.Trash-" + kUid).c_str(), 4321, 4321), 0);
                   },
                   "", true},
        VolumeCase{"PrivateTrashFilesFolderIsALink",
                   [](const std::string& v) {
                       makeFolder(v + "/.Trash-" + kUid, 0700);
                       ASSERT_EQ(::symlink("../elsewhere", (v + "/.Trash-" + kUid + "/files").c_str()), 0);
                   },
                   ""}),
    [](const ::testing::TestParamInfo<VolumeCase>& param) { return std::string(param.param.name); });

// Real mounts: tmpfs volumes and bind mounts made by the test (root only).

TEST_F(TrashTest, ItemOnAnotherMountGoesToThatVolumesTrash) {
    const std::string mountPoint = tree.folder("mnt");
    ScopedMount mount("tmpfs", mountPoint, "tmpfs", 0, "size=1m");
    SKIP_UNLESS_MOUNTED(mount);
    const std::string item = tree.file("mnt/dir/f.txt", "on tmpfs");
    TrashedItem trashed;
    CVError error;
    Trash trash(environment());
    EXPECT_EQ(trash.trashDirectoryFor(item, &error).value_or("none"), real("mnt") + "/.Trash-" + uid());
    ASSERT_TRUE(trash.moveToTrash(item, &trashed, &error)) << error.localizedDescription();
    EXPECT_EQ(trashed.trashFile, real("mnt") + "/.Trash-" + uid() + "/files/f.txt");
    EXPECT_EQ(readInfo(trashed.trashInfo).at("Path"), "dir/f.txt");
    EXPECT_EQ(permissions(real("mnt") + "/.Trash-" + uid()), 0700u);
    EXPECT_FALSE(exists(homeTrash()));
}

TEST_F(TrashTest, TrashOnAnotherFileSystemIsNeverUsedEvenWhenTheTableMissesTheMount) {
    const std::string mountPoint = tree.folder("mnt");
    ScopedMount mount("tmpfs", mountPoint, "tmpfs", 0, "size=1m");
    SKIP_UNLESS_MOUNTED(mount);
    const std::string item = tree.file("mnt/f.txt", "stays");
    std::vector<MountEntry> table;
    for (const MountEntry& entry : readMountTable())
        if (entry.mountPoint != real("mnt"))
            table.push_back(entry);
    Trash trash(environment(table));
    CVError dryError;
    EXPECT_FALSE(trash.trashDirectoryFor(item, &dryError)) << "the dry run must not promise the home Trash";
    EXPECT_EQ(dryError.code, kTrashErrorNoTrashOnVolume);
    CVError error;
    EXPECT_FALSE(trash.moveToTrash(item, nullptr, &error));
    EXPECT_EQ(error.code, kTrashErrorNoTrashOnVolume);
    EXPECT_EQ(test::TempTree::read(item), "stays");
    EXPECT_EQ(listFolder(homeTrash() + "/info"), std::set<std::string>{});
}

TEST_F(TrashTest, BindMountIsAVolumeOfItsOwnAndNeverCrossed) {
    tree.file("source/f.txt", "bound");
    const std::string bound = tree.folder("bound");
    ScopedMount mount(tree / "source", bound, nullptr, MS_BIND);
    SKIP_UNLESS_MOUNTED(mount);

    // The live table knows the bind mount: its top holds the Trash.
    {
        TrashedItem trashed;
        CVError error;
        ASSERT_TRUE(Trash(environment()).moveToTrash(tree / "bound/f.txt", &trashed, &error))
            << error.localizedDescription();
        EXPECT_EQ(trashed.trashFile, real("bound") + "/.Trash-" + uid() + "/files/f.txt");
        EXPECT_EQ(readInfo(trashed.trashInfo).at("Path"), "f.txt");
    }
    // A table without it sends the item to the home Trash on the same file system,
    // which rename(2) refuses (EXDEV): the item stays, nothing is copied, no
    // information file is left.
    tree.file("source/g.txt", "stays");
    std::vector<MountEntry> table;
    for (const MountEntry& entry : readMountTable())
        if (entry.mountPoint != real("bound"))
            table.push_back(entry);
    Trash trash(environment(table));
    CVError error;
    EXPECT_FALSE(trash.moveToTrash(tree / "bound/g.txt", nullptr, &error));
    EXPECT_EQ(error.domain, kTrashErrorDomain);
    EXPECT_EQ(error.code, kTrashErrorNoTrashOnVolume);
    EXPECT_EQ(error.localizedDescription(), "no Trash on this volume");
    EXPECT_EQ(test::TempTree::read(tree / "bound/g.txt"), "stays");
    EXPECT_EQ(listFolder(homeTrash() + "/info"), std::set<std::string>{});
    EXPECT_EQ(listFolder(homeTrash() + "/files"), std::set<std::string>{});
}

// A home Trash that is there but broken (a file where a folder belongs, files/ a link) is
// not "no Trash on this volume": the copy stays, and nothing suggests deleting it instead.
TEST_F(TrashTest, ABrokenHomeTrashCannotBeUsedAndIsLeftAsItIs) {
    const struct {
        const char* name;
        std::function<void(const std::string&)> breakIt;
    } cases[] = {
        {"a file", [](const std::string& t) { ASSERT_EQ(::close(::creat(t.c_str(), 0644)), 0); }},
        {"files/ a link",
         [](const std::string& t) {
             makeFolder(t, 0700);
             makeFolder(t + "/info", 0700);
             ASSERT_EQ(::symlink("/tmp", (t + "/files").c_str()), 0);
         }},
        {"info/ a file",
         [](const std::string& t) {
             makeFolder(t, 0700);
             makeFolder(t + "/files", 0700);
             ASSERT_EQ(::close(::creat((t + "/info").c_str(), 0644)), 0);
         }},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        std::filesystem::remove_all(homeTrash());
        ::mkdir(parentPath(homeTrash()).c_str(), 0700);
        c.breakIt(homeTrash());
        const std::string item = tree.file("home-item.txt", "stays");
        Trash trash(environment());
        CVError error;
        EXPECT_FALSE(trash.trashDirectoryFor(item, &error));
        EXPECT_EQ(error.code, kTrashErrorTrashDamaged) << error.localizedDescription();
        EXPECT_FALSE(trash.moveToTrash(item, nullptr, &error));
        EXPECT_EQ(error.domain, kTrashErrorDomain);
        EXPECT_EQ(error.code, kTrashErrorTrashDamaged);
        EXPECT_EQ(error.localizedDescription(), "the Trash folder cannot be used");
        EXPECT_EQ(test::TempTree::read(item), "stays");
    }
    std::filesystem::remove_all(homeTrash());
}

TEST_F(TrashTest, ReadOnlyVolumeHasNoTrash) {
    for (const bool trashMadeBefore : {false, true}) {
        SCOPED_TRACE(trashMadeBefore ? "Trash folder made before" : "no Trash folder");
        const std::string mountPoint = tree.folder(trashMadeBefore ? "ro2" : "ro1");
        ScopedMount mount("tmpfs", mountPoint, "tmpfs", 0, "size=1m");
        SKIP_UNLESS_MOUNTED(mount);
        const std::string item = tree.file((trashMadeBefore ? "ro2" : "ro1") + std::string("/f.txt"), "ro");
        if (trashMadeBefore) {
            tree.folder("ro2/.Trash-" + uid() + "/files");
            tree.folder("ro2/.Trash-" + uid() + "/info");
        }
        ASSERT_EQ(::mount(nullptr, mountPoint.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0)
            << std::strerror(errno);
        Trash trash(environment());
        CVError error;
        EXPECT_FALSE(trash.trashDirectoryFor(item, &error));
        EXPECT_EQ(error.code, kTrashErrorNoTrashOnVolume);
        EXPECT_FALSE(trash.moveToTrash(item, nullptr, &error));
        EXPECT_EQ(error.domain, kTrashErrorDomain);
        EXPECT_EQ(error.code, kTrashErrorNoTrashOnVolume);
        EXPECT_EQ(test::TempTree::read(item), "ro");
    }
}

TEST_F(TrashTest, FullVolumeFailsWhileWritingTheInformationAndMovesNothing) {
    const std::string mountPoint = tree.folder("full");
    ScopedMount mount("tmpfs", mountPoint, "tmpfs", 0, "size=64k");
    SKIP_UNLESS_MOUNTED(mount);
    const std::string item = tree.file("full/victim.txt", "precious");
    // Fill the volume to the last block.
    {
        const int fd = ::open((tree / "full/filler").c_str(), O_WRONLY | O_CREAT, 0600);
        ASSERT_GE(fd, 0);
        const std::string block(4096, 'z');
        while (::write(fd, block.data(), block.size()) > 0) {
        }
        ASSERT_EQ(errno, ENOSPC);
        ::close(fd);
    }
    CVError error;
    EXPECT_FALSE(Trash(environment()).moveToTrash(item, nullptr, &error));
    EXPECT_EQ(error.domain, kPosixErrorDomain);
    EXPECT_EQ(error.code, ENOSPC);
    EXPECT_EQ(test::TempTree::read(item), "precious");
    EXPECT_EQ(listFolder(real("full") + "/.Trash-" + uid() + "/info"), std::set<std::string>{});
    EXPECT_EQ(listFolder(real("full") + "/.Trash-" + uid() + "/files"), std::set<std::string>{});
}

// Every descriptor of the process taken but `left`, under a low soft limit, until destroyed.
class DescriptorsTaken {
public:
    explicit DescriptorsTaken(int left) {
        ::getrlimit(RLIMIT_NOFILE, &m_limit);
        struct rlimit low = m_limit;
        low.rlim_cur = std::min<rlim_t>(m_limit.rlim_cur, 256);
        ::setrlimit(RLIMIT_NOFILE, &low);
        for (int fd; (fd = ::open("/dev/null", O_RDONLY | O_CLOEXEC)) >= 0;)
            m_taken.push_back(fd);
        for (; left > 0 && !m_taken.empty(); --left) {
            ::close(m_taken.back());
            m_taken.pop_back();
        }
    }
    ~DescriptorsTaken() {
        for (const int fd : m_taken)
            ::close(fd);
        ::setrlimit(RLIMIT_NOFILE, &m_limit);
    }
    DescriptorsTaken(const DescriptorsTaken&) = delete;
    DescriptorsTaken& operator=(const DescriptorsTaken&) = delete;

private:
    struct rlimit m_limit {};
    std::vector<int> m_taken;
};

// A Trash that cannot be opened for want of descriptors is not a volume without a Trash:
// saying so would suggest deleting instead. The next item looks again.
TEST_F(TrashTest, ThePassingFailureOfATrashLookUpIsNotAVolumeWithoutTrash) {
    tree.folder("data/Trash/files");
    tree.folder("data/Trash/info");
    for (const bool dryRun : {true, false}) {
        SCOPED_TRACE(dryRun ? "dry run" : "move");
        const std::string item = tree.file(dryRun ? "a/dry.txt" : "a/moved.txt", "keep");
        Trash trash(environment());
        const auto attempt = [&](TrashBatch& batch, const std::string& path, CVError* error) {
            if (dryRun)
                return batch.trashDirectoryFor(path, error).has_value();
            const auto ticket = batch.add(path, std::nullopt, error);
            return ticket && batch.sync(error) && batch.commit(*ticket, nullptr, error);
        };
        CVError error;
        {
            // The same steps once with descriptors to spare: a sanitizer's first look at a
            // type needs some of its own.
            TrashBatch warmUp(trash);
            ASSERT_TRUE(attempt(warmUp, tree.file(dryRun ? "b/warm-dry.txt" : "b/warm-moved.txt"), &error))
                << error.localizedDescription();
        }
        TrashBatch batch(trash);
        {
            const DescriptorsTaken taken(1); // the item's folder takes the last one
            EXPECT_FALSE(attempt(batch, item, &error));
        }
        EXPECT_EQ(error.domain, kPosixErrorDomain) << error.localizedDescription();
        EXPECT_EQ(error.code, EMFILE);
        EXPECT_EQ(test::TempTree::read(item), "keep");
        EXPECT_EQ(listFolder(homeTrash() + "/info").count("moved.txt.trashinfo"), 0U);
        EXPECT_TRUE(attempt(batch, item, &error)) << error.localizedDescription();
        EXPECT_EQ(exists(item), dryRun);
    }
}

// Another implementation lists and restores what we trash: trash-cli (Debian).

bool haveTrashCli() {
    return ::access("/usr/bin/trash-list", X_OK) == 0 && ::access("/usr/bin/trash-restore", X_OK) == 0;
}

TEST_F(TrashTest, TrashCliListsAndRestoresOurEntries) {
    if (!haveTrashCli())
        GTEST_SKIP() << "trash-cli is not installed (trash-list, trash-restore)";
    const std::string mountPoint = tree.folder("mnt");
    ScopedMount mount("tmpfs", mountPoint, "tmpfs", 0, "size=1m");
    std::vector<std::string> relatives = {"work/notes today.txt", "work/sub/folder"};
    if (mount.mounted())
        relatives.push_back("mnt/other volume.txt");
    else
        std::printf("(no tmpfs: %s; only the home Trash is tried)\n", mount.why().c_str());
    const std::string shellEnvironment =
        "env HOME='" + tree / "home" + "' XDG_DATA_HOME='" + tree / "data" + "' ";
    Trash trash(environment());
    for (const std::string& relative : relatives) {
        SCOPED_TRACE(relative);
        if (relative.ends_with("folder"))
            tree.file(relative + "/inner.txt", "inner");
        else
            tree.file(relative, "text of " + relative);
        CVError error;
        TrashedItem trashed;
        ASSERT_TRUE(trash.moveToTrash(tree / relative, &trashed, &error)) << error.localizedDescription();

        const auto [listStatus, listing] = runShell(shellEnvironment + "trash-list");
        EXPECT_EQ(listStatus, 0) << listing;
        EXPECT_NE(listing.find(" " + real(relative) + "\n"), std::string::npos) << listing;

        const auto [restoreStatus, restoring] =
            runShell("echo 0 | " + shellEnvironment + "trash-restore '" + real(relative) + "'");
        EXPECT_EQ(restoreStatus, 0) << restoring;
        if (relative.ends_with("folder"))
            EXPECT_EQ(test::TempTree::read(tree / relative + "/inner.txt"), "inner") << restoring;
        else
            EXPECT_EQ(test::TempTree::read(tree / relative), "text of " + relative) << restoring;
        EXPECT_FALSE(exists(trashed.trashInfo));
        EXPECT_FALSE(exists(trashed.trashFile));
    }
}

} // namespace
} // namespace corvel
