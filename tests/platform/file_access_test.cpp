#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/file_access.h"
#include "support/other_user.h"
#include "support/temp_tree.h"

namespace corvel {
namespace {

constexpr uid_t kNobody = 65534;

TEST(FileAccess, OwnerOfTheParentMayRemoveAndDanglingLinksCount) {
    test::TempTree tree;
    EXPECT_TRUE(isDeletableByUser(tree.file("a/file.txt", "x")));
    EXPECT_TRUE(isDeletableByUser(tree.folder("a/sub")));
    EXPECT_TRUE(isDeletableByUser(tree.symlink("a/dangling", "/no/such/target")));
    EXPECT_FALSE(isDeletableByUser(tree / "a/missing"));
}

// Each case is decided in a child process that runs as an unprivileged account.
TEST(FileAccess, PermissionsAndTheStickyBitDecideForOtherUsers) {
    if (::geteuid() != 0)
        GTEST_SKIP() << "needs root to act as another account";
    test::TempTree tree;
    ::chmod(tree.path().c_str(), 0755);
    struct Case {
        std::string name;
        mode_t folderMode;
        uid_t fileOwner;
        bool expected;
    };
    const Case cases[] = {
        {"open", 0777, 0, true},
        {"readonly", 0755, 0, false},
        {"sticky-foreign", 01777, 0, false},
        {"sticky-own", 01777, kNobody, true},
        {"no-search", 0776, kNobody, false},
    };
    for (const auto& c : cases) {
        const std::string dir = tree.folder(c.name);
        const std::string file = tree.file(c.name + "/f", "x");
        ASSERT_EQ(::chown(file.c_str(), c.fileOwner, c.fileOwner), 0);
        ASSERT_EQ(::chmod(dir.c_str(), c.folderMode), 0);
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            if (::setgid(kNobody) != 0 || ::setuid(kNobody) != 0)
                ::_exit(2);
            ::_exit(isDeletableByUser(file) ? 1 : 0);
        }
        int status = 0;
        ::waitpid(child, &status, 0);
        ASSERT_TRUE(WIFEXITED(status));
        ASSERT_NE(WEXITSTATUS(status), 2) << "could not switch account";
        EXPECT_EQ(WEXITSTATUS(status) == 1, c.expected) << c.name;
    }
}

TEST(FileAccess, TheImmutableFlagIsReadSetAndCleared) {
    test::TempTree tree;
    const std::string file = tree.file("locked.txt", "x");
    const auto flag = isImmutable(file);
    if (!flag)
        GTEST_SKIP() << "the file system under " << tree.path() << " keeps no inode flags";
    EXPECT_FALSE(*flag);
    CVError error;
    if (!setImmutable(file, true, &error))
        GTEST_SKIP() << "cannot set the flag here: " << error.localizedDescription();
    EXPECT_TRUE(isImmutable(file).value_or(false));
    EXPECT_FALSE(isDeletableByUser(file));
    const std::string sibling = tree.file("inside/x", "y");
    ASSERT_TRUE(setImmutable(tree / "inside", true, &error));
    EXPECT_FALSE(isDeletableByUser(sibling)) << "an immutable parent forbids removal too";
    ASSERT_TRUE(setImmutable(tree / "inside", false, &error));
    ASSERT_TRUE(setImmutable(file, false, &error));
    EXPECT_FALSE(isImmutable(file).value_or(true));
    EXPECT_TRUE(isDeletableByUser(file));
    EXPECT_FALSE(isImmutable(tree.symlink("link", file)).has_value());
    EXPECT_FALSE(setImmutable(tree / "missing", true, &error));
    EXPECT_EQ(error.domain, kPosixErrorDomain);
}

// An append-only folder lets nothing be removed from it, though the user may write in it.
TEST(FileAccess, AnAppendOnlyFolderForbidsRemoval) {
    test::TempTree tree;
    const std::string folder = tree.folder("append-only");
    const std::string file = tree.file("append-only/x", "x");
    const auto setAppendOnly = [&](bool on) {
        const int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        int flags = 0;
        const bool done = fd >= 0 && ::ioctl(fd, FS_IOC_GETFLAGS, &flags) == 0 &&
                          (flags = on ? (flags | FS_APPEND_FL) : (flags & ~FS_APPEND_FL),
                           ::ioctl(fd, FS_IOC_SETFLAGS, &flags) == 0);
        if (fd >= 0)
            ::close(fd);
        return done;
    };
    if (!setAppendOnly(true))
        GTEST_SKIP() << "cannot set the append-only flag here";
    const bool deletable = isDeletableByUser(file);
    const bool unlinked = ::unlink(file.c_str()) == 0;
    ASSERT_TRUE(setAppendOnly(false));
    EXPECT_FALSE(unlinked) << "the system refuses it";
    EXPECT_FALSE(deletable);
}

// A locked item is no refusal for a user who may unlock it (a removal does that first), and
// is one for a user who may not.
TEST(FileAccess, ALockedItemRefusesItsRemovalOnlyToAUserWhoCannotUnlockIt) {
    test::TempTree tree;
    const std::string file = tree.file("folder/locked.txt", "x");
    test::giveToAnotherUser(tree.path()); // a locked file can no longer change hands
    CVError error;
    if (!setImmutable(file, true, &error))
        GTEST_SKIP() << "cannot set the flag here: " << error.localizedDescription();
    EXPECT_EQ(removalRefusal(file), mayChangeImmutableFlags() ? 0 : EPERM);
    const int answer = test::runAsAnotherUser([&] {
        if (mayChangeImmutableFlags())
            return 3;
        return removalRefusal(file) == EPERM ? 0 : 1;
    });
    ASSERT_TRUE(setImmutable(file, false, &error));
    EXPECT_EQ(answer, 0) << "1: not refused, 3: the other account may unlock it, 125: no other account";
}

// The item meant (device and inode) is checked on the open descriptor: a path that leads
// elsewhere by then, as a folder swapped for a link would make it, changes nothing there.
TEST(FileAccess, TheImmutableFlagChangesOnlyOnTheItemMeant) {
    test::TempTree tree;
    const std::string meant = tree.file("meant/x", "the copy");
    const std::string other = tree.file("other/x", "the user's locked file");
    struct stat st {};
    ASSERT_EQ(::lstat(meant.c_str(), &st), 0);
    const ItemIdentity identity{st.st_dev, st.st_ino};
    CVError error;
    if (!setImmutable(other, true, &error))
        GTEST_SKIP() << "cannot set the flag here: " << error.localizedDescription();
    for (const bool lock : {false, true}) {
        SCOPED_TRACE(lock ? "lock" : "unlock");
        ASSERT_TRUE(setImmutable(other, !lock, nullptr));
        EXPECT_FALSE(setImmutable(other, lock, &error, identity));
        EXPECT_EQ(error.code, ESTALE);
        EXPECT_EQ(isImmutable(other), std::optional<bool>(!lock));
        EXPECT_TRUE(setImmutable(meant, lock, &error, identity)) << error.localizedDescription();
        EXPECT_EQ(isImmutable(meant), std::optional<bool>(lock));
    }
    (void)setImmutable(other, false, nullptr);
}

} // namespace
} // namespace corvel
