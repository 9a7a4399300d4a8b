#include <cstdio>
#include <fcntl.h>
#include <functional>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include "engine/content_comparison.h"
#include "support/other_user.h"
#include "support/scoped_mount.h"
#include "support/temp_tree.h"

namespace corvel {
namespace {

using Outcome = ContentComparison::Outcome;
using test::TempTree;

constexpr std::size_t kChunk = kContentComparisonChunk;

// Bytes that differ from position to position, so a reader at the wrong offset sees other bytes.
std::string patterned(std::size_t size) {
    std::string bytes(size, '\0');
    std::uint64_t x = 0x9E3779B97F4A7C15ULL;
    for (auto& byte : bytes) {
        x = x * 6364136223846793005ULL + 1442695040888963407ULL;
        byte = static_cast<char>(x >> 56);
    }
    return bytes;
}

std::string flipped(std::string bytes, std::size_t at) {
    bytes[at] = static_cast<char>(bytes[at] ^ 0x01);
    return bytes;
}

// The message with {A} and {B} replaced by the compared paths.
std::string expand(std::string text, const std::string& a, const std::string& b) {
    for (const auto& [key, value] : {std::pair<std::string, std::string>{"{A}", a}, {"{B}", b}})
        for (auto at = text.find(key); at != std::string::npos; at = text.find(key, at + value.size()))
            text.replace(at, key.size(), value);
    return text;
}

void makeFifo(const std::string& path) {
    ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0) << path;
}

// Test names from the cases' own names.
struct CaseName {
    template <class Info> std::string operator()(const Info& param) const { return param.param.name; }
};

// ---- Two files -------------------------------------------------------------------------

struct FileCase {
    const char* name;
    std::string contentsA;
    std::string contentsB;
    Outcome outcome;
    std::string message; // with {A} and {B}
    std::uint64_t bytesCompared;
};

void PrintTo(const FileCase& c, std::ostream* out) {
    *out << c.name;
}

class FileComparison : public testing::TestWithParam<FileCase> {};

TEST_P(FileComparison, AnswersAsTheBytesDo) {
    const FileCase& c = GetParam();
    TempTree tree;
    const std::string a = tree.file("a", c.contentsA);
    const std::string b = tree.file("b", c.contentsB);
    for (const auto& result : {compareFileContents(a, b), compareTrees(a, b)}) {
        EXPECT_EQ(result.outcome, c.outcome);
        EXPECT_EQ(result.message, expand(c.message, a, b));
        EXPECT_EQ(result.bytesCompared, c.bytesCompared);
        EXPECT_FALSE(result.sameFile);
    }
}

std::vector<FileCase> fileCases() {
    const std::string big = patterned(3 * kChunk + 17);
    const std::string threeChunks = big.substr(0, 3 * kChunk);
    const std::size_t later = 2 * kChunk + 12345;
    return {
        {"Empty", "", "", Outcome::Equal, "", 0},
        {"OneByte", "x", "x", Outcome::Equal, "", 1},
        {"ExactlyOneChunk", big.substr(0, kChunk), big.substr(0, kChunk), Outcome::Equal, "", kChunk},
        {"OneChunkAndOneByte", big.substr(0, kChunk + 1), big.substr(0, kChunk + 1), Outcome::Equal, "",
         kChunk + 1},
        {"SeveralChunks", big, big, Outcome::Equal, "", big.size()},
        {"FirstByteDiffers", big.substr(0, 100), flipped(big.substr(0, 100), 0), Outcome::Different,
         "{A} differs from {B} at byte 1", 0},
        {"LateInTheFirstChunkDiffers", big.substr(0, kChunk), flipped(big.substr(0, kChunk), 700001),
         Outcome::Different, "{A} differs from {B} at byte 700002", 700001},
        {"LastByteDiffers", big.substr(0, kChunk + 1), flipped(big.substr(0, kChunk + 1), kChunk),
         Outcome::Different, "{A} differs from {B} at byte " + std::to_string(kChunk + 1), kChunk},
        {"MiddleOfALaterChunkDiffers", threeChunks, flipped(threeChunks, later), Outcome::Different,
         "{A} differs from {B} at byte " + std::to_string(later + 1), later},
        {"SizesDiffer", "0123456789", "0123456789a", Outcome::Different, "{A} has 10 bytes, {B} has 11", 0},
        {"EmptyAgainstOneByte", "", "x", Outcome::Different, "{A} has 0 bytes, {B} has 1", 0},
    };
}

INSTANTIATE_TEST_SUITE_P(Cases, FileComparison, testing::ValuesIn(fileCases()), CaseName());

TEST(FileComparisonIdentity, AnAnswerNobodyFilledInIsNotEqual) {
    EXPECT_FALSE(ContentComparison{}.isEqual());
}

TEST(FileComparisonIdentity, AHardLinkIsTheSameFileAndIsNotRead) {
    TempTree tree;
    const std::string a = tree.file("a", patterned(5000));
    const std::string b = tree / "b";
    ASSERT_EQ(::link(a.c_str(), b.c_str()), 0);
    for (const auto& result : {compareFileContents(a, b), compareFileContents(a, a), compareTrees(a, b)}) {
        EXPECT_TRUE(result.isEqual());
        EXPECT_TRUE(result.sameFile);
        EXPECT_EQ(result.bytesCompared, 0u);
    }
}

// Paths whose contents cannot be compared: the answer says why, and is never "equal".
struct RefusalCase {
    const char* name;
    std::function<void(const TempTree&, const std::string& a, const std::string& b)> make;
    std::string message;
};

void PrintTo(const RefusalCase& c, std::ostream* out) {
    *out << c.name;
}

class FileRefusal : public testing::TestWithParam<RefusalCase> {};

TEST_P(FileRefusal, CannotCompare) {
    const RefusalCase& c = GetParam();
    TempTree tree;
    const std::string a = tree / "a";
    const std::string b = tree / "b";
    c.make(tree, a, b);
    const ContentComparison result = compareFileContents(a, b);
    EXPECT_EQ(result.outcome, Outcome::CannotCompare);
    EXPECT_EQ(result.message, expand(c.message, a, b));
}

std::vector<RefusalCase> refusalCases() {
    return {RefusalCase{"MissingFile", [](auto& t, auto&, auto&) { t.file("a", "x"); },
                        "cannot read {B}: No such file or directory"},
            RefusalCase{"Fifo",
                        [](auto& t, auto& a, auto&) {
                            makeFifo(a);
                            t.file("b", "");
                        },
                        "{A} is a FIFO"},
            RefusalCase{"Socket",
                        [](auto& t, auto&, auto&) {
                            t.file("a", "");
                            t.socket("b");
                        },
                        "{B} is a socket"},
            RefusalCase{"Folder",
                        [](auto& t, auto&, auto&) {
                            t.folder("a");
                            t.folder("b");
                        },
                        "{A} is a folder"},
            RefusalCase{"LinkToAnEqualFileIsNotFollowed",
                        [](auto& t, auto&, auto&) {
                            t.file("target", "same");
                            t.symlink("a", "target");
                            t.file("b", "same");
                        },
                        "{A} is a symbolic link"}};
}

INSTANTIATE_TEST_SUITE_P(Cases, FileRefusal, testing::ValuesIn(refusalCases()), CaseName());

// Root reads files whatever their mode, so the comparison runs as another account.
TEST(FileComparisonErrors, AnUnreadableFileCannotBeCompared) {
    TempTree tree;
    const std::string a = tree.file("a", "x");
    const std::string b = tree.file("b", "x");
    test::openToAnotherUser(tree.path());
    ASSERT_EQ(::chmod(a.c_str(), 0644), 0);
    test::makeUnreadableToAnotherUser(b);
    const int answer = test::runAsAnotherUser([&] {
        const ContentComparison result = compareFileContents(a, b);
        if (result.outcome != Outcome::CannotCompare)
            return 1;
        return result.message == "cannot read " + b + ": Permission denied" ? 0 : 2;
    });
    EXPECT_EQ(answer, 0) << "1: not refused, 2: another message, 125: no other account";
}

TEST(FileComparisonStop, StopsBetweenChunks) {
    TempTree tree;
    const std::string bytes = patterned(3 * kChunk);
    const std::string a = tree.file("a", bytes);
    const std::string b = tree.file("b", bytes);
    int polls = 0;
    ContentComparer comparer([&] { return ++polls == 3; });
    const ContentComparison result = comparer.compareFileContents(a, b);
    EXPECT_EQ(result.outcome, Outcome::Stopped);
    EXPECT_EQ(result.message, "stopped");
    EXPECT_EQ(result.bytesCompared, 2 * kChunk);

    const std::atomic<bool> stop{true};
    EXPECT_EQ(compareFileContents(a, b, &stop).outcome, Outcome::Stopped);
    EXPECT_EQ(compareTrees(tree.path(), tree.path() + "/.", &stop).outcome, Outcome::Stopped);
}

// A file written to while it is compared: the bytes read may mix old and new, so the
// answer is "cannot compare", never "equal". The change happens between two chunks.
TEST(FileComparisonChanges, AFileChangedWhileItIsReadCannotBeCompared) {
    const std::string bytes = patterned(2 * kChunk);
    const std::vector<std::pair<const char*, std::function<void(const std::string&)>>> changes = {
        {"rewritten in place",
         [](const std::string& path) {
             const int fd = ::open(path.c_str(), O_WRONLY | O_CLOEXEC);
             ASSERT_EQ(::pwrite(fd, "!", 1, 0), 1);
             ::close(fd);
         }},
        {"truncated", [](const std::string& path) { ASSERT_EQ(::truncate(path.c_str(), kChunk + 1), 0); }},
    };
    for (const auto& [what, changeOf] : changes) {
        SCOPED_TRACE(what);
        const auto& change = changeOf;
        TempTree tree;
        const std::string a = tree.file("a", bytes);
        const std::string b = tree.file("b", bytes);
        // An old modification time, so the change shows even within the clock's resolution.
        const timespec old[2] = {{1000000000, 0}, {1000000000, 0}};
        ASSERT_EQ(::utimensat(AT_FDCWD, a.c_str(), old, 0), 0);
        int polls = 0;
        ContentComparer comparer([&] {
            if (++polls == 2)
                change(a);
            return false;
        });
        const ContentComparison result = comparer.compareFileContents(a, b);
        EXPECT_EQ(result.outcome, Outcome::CannotCompare);
        EXPECT_EQ(result.message, a + " changed during the comparison");
    }
}

// ---- Two trees -------------------------------------------------------------------------

// Writes the same file into both trees "a" and "b".
void both(const TempTree& t, const std::string& rel, const std::string& contents) {
    t.file("a/" + rel, contents);
    t.file("b/" + rel, contents);
}

// A tree with files, an empty file and folder, a multi-chunk file deep down and links.
void baseTree(const TempTree& t) {
    both(t, "top.txt", "hello");
    both(t, "sub/empty", "");
    both(t, "sub/deep/er/big.bin", patterned(kChunk + 5));
    t.folder("a/sub/emptydir");
    t.folder("b/sub/emptydir");
    t.symlink("a/link", "sub/top.txt");
    t.symlink("b/link", "sub/top.txt");
}

struct TreeCase {
    const char* name;
    std::function<void(const TempTree&)> make;
    Outcome outcome;
    std::string message;
};

void PrintTo(const TreeCase& c, std::ostream* out) {
    *out << c.name;
}

class TreeComparison : public testing::TestWithParam<TreeCase> {};

TEST_P(TreeComparison, AnswersAsTheTreesAre) {
    const TreeCase& c = GetParam();
    TempTree tree;
    tree.folder("a");
    tree.folder("b");
    c.make(tree);
    const std::string a = tree / "a";
    const std::string b = tree / "b";
    const ContentComparison result = compareTrees(a, b);
    EXPECT_EQ(result.outcome, c.outcome);
    EXPECT_EQ(result.message, expand(c.message, a, b));
    EXPECT_FALSE(result.sameFile);
}

std::vector<TreeCase> treeCases() {
    return {TreeCase{"EmptyFolders", [](auto&) {}, Outcome::Equal, ""},
            TreeCase{"EqualTrees", baseTree, Outcome::Equal, ""},
            TreeCase{"AFileDeepInsideDiffersInOneByte",
                     [](auto& t) {
                         baseTree(t);
                         t.file("b/sub/deep/er/big.bin", flipped(patterned(kChunk + 5), kChunk + 2));
                     },
                     Outcome::Different,
                     "{A}/sub/deep/er/big.bin differs from {B}/sub/deep/er/big.bin at byte " +
                         std::to_string(kChunk + 3)},
            TreeCase{"AFileInsideDiffersInSize",
                     [](auto& t) {
                         baseTree(t);
                         t.file("b/sub/empty", "x");
                     },
                     Outcome::Different, "{A}/sub/empty has 0 bytes, {B}/sub/empty has 1"},
            TreeCase{"AnExtraFile",
                     [](auto& t) {
                         baseTree(t);
                         t.file("b/sub/extra", "");
                     },
                     Outcome::Different, "{B}/sub/extra is only in {B}"},
            TreeCase{"AMissingFile",
                     [](auto& t) {
                         baseTree(t);
                         t.file("a/sub/deep/only", "");
                     },
                     Outcome::Different, "{A}/sub/deep/only is only in {A}"},
            TreeCase{"AnExtraEmptyFolder",
                     [](auto& t) {
                         baseTree(t);
                         t.folder("b/sub/emptydir/more");
                     },
                     Outcome::Different, "{B}/sub/emptydir/more is only in {B}"},
            TreeCase{"NamesDifferingOnlyInCase",
                     [](auto& t) {
                         t.file("a/Photo.jpg", "p");
                         t.file("b/photo.jpg", "p");
                     },
                     Outcome::Different, "{A}/Photo.jpg is only in {A}"},
            TreeCase{"AFileAgainstAFolder",
                     [](auto& t) {
                         t.file("a/sub/x", "");
                         t.folder("b/sub/x");
                     },
                     Outcome::Different, "{A}/sub/x is a file, {B}/sub/x is a folder"},
            TreeCase{"LinksWithEqualTargetsEvenDangling",
                     [](auto& t) {
                         t.symlink("a/l", "nowhere/at/all");
                         t.symlink("b/l", "nowhere/at/all");
                     },
                     Outcome::Equal, ""},
            TreeCase{"LinksToTheirOwnFoldersAreNotFollowed",
                     [](auto& t) {
                         t.symlink("a/self", ".");
                         t.symlink("b/self", ".");
                         t.symlink("a/up", "..");
                         t.symlink("b/up", "..");
                     },
                     Outcome::Equal, ""},
            TreeCase{"LinksWithDifferentTargets",
                     [](auto& t) {
                         both(t, "t1", "same");
                         both(t, "t2", "same");
                         t.symlink("a/l", "t1");
                         t.symlink("b/l", "t2");
                     },
                     Outcome::Different, R"({A}/l points to "t1", {B}/l to "t2")"},
            TreeCase{"ALinkAgainstAFile",
                     [](auto& t) {
                         both(t, "t", "same");
                         t.symlink("a/l", "t");
                         t.file("b/l", "same");
                     },
                     Outcome::Different, "{A}/l is a symbolic link, {B}/l is a file"},
            TreeCase{"AFifoInside",
                     [](auto& t) {
                         baseTree(t);
                         makeFifo(t / "a/sub/pipe");
                         makeFifo(t / "b/sub/pipe");
                     },
                     Outcome::CannotCompare, "{A}/sub/pipe is a FIFO"},
            TreeCase{"AFifoAgainstAFile",
                     [](auto& t) {
                         t.file("a/p", "");
                         makeFifo(t / "b/p");
                     },
                     Outcome::CannotCompare, "{B}/p is a FIFO"},
            TreeCase{"ASocketInside",
                     [](auto& t) {
                         t.socket("a/s");
                         t.socket("b/s");
                     },
                     Outcome::CannotCompare, "{A}/s is a socket"}};
}

INSTANTIATE_TEST_SUITE_P(Cases, TreeComparison, testing::ValuesIn(treeCases()), CaseName());

TEST(TreeComparisonRoots, AFileAgainstAFolderIsDifferent) {
    TempTree tree;
    const std::string file = tree.file("f", "");
    const std::string folder = tree.folder("d");
    const ContentComparison result = compareTrees(file, folder);
    EXPECT_EQ(result.outcome, Outcome::Different);
    EXPECT_EQ(result.message, file + " is a file, " + folder + " is a folder");
}

TEST(TreeComparisonRoots, AMissingRootCannotBeCompared) {
    TempTree tree;
    const std::string folder = tree.folder("d");
    const ContentComparison result = compareTrees(folder, tree / "gone");
    EXPECT_EQ(result.outcome, Outcome::CannotCompare);
    EXPECT_EQ(result.message, "cannot read " + (tree / "gone") + ": No such file or directory");
}

TEST(TreeComparisonRoots, ALinkGivenWithATrailingSlashIsNotFollowed) {
    TempTree tree;
    tree.file("a/f", "same");
    tree.file("b/f", "same");
    const std::string link = tree.symlink("link", "a");
    const ContentComparison result = compareTrees(link + "/", tree / "b/");
    EXPECT_EQ(result.outcome, Outcome::Different);
    EXPECT_EQ(result.message, link + " is a symbolic link, " + (tree / "b") + " is a folder");
}

TEST(TreeComparisonRoots, TheSameFolderTwiceIsTheSameFile) {
    TempTree tree;
    tree.file("d/f", "x");
    const ContentComparison result = compareTrees(tree / "d", tree / "d/.");
    EXPECT_TRUE(result.isEqual());
    EXPECT_TRUE(result.sameFile);
}

// A status the caller took is used as given, but never vouches for what the path holds
// when it is opened: a file or folder put in its place since then is noticed.
TEST(TreeComparisonRoots, AStatusTakenBeforeTheItemWasReplacedProvesNothing) {
    for (const bool folders : {false, true}) {
        SCOPED_TRACE(folders ? "folders" : "files");
        TempTree tree;
        const std::string a = folders ? tree.file("a/f", "same"), tree / "a" : tree.file("a", "same");
        const std::string b = folders ? tree.file("b/f", "same"), tree / "b" : tree.file("b", "same");
        ItemStatus seenA;
        ItemStatus seenB;
        ASSERT_EQ(itemStatus(AT_FDCWD, a.c_str(), seenA), 0);
        ASSERT_EQ(itemStatus(AT_FDCWD, b.c_str(), seenB), 0);
        EXPECT_TRUE(ContentComparer().compareTrees(a, b, nullptr, &seenA, &seenB).isEqual());
        // The same content under another inode, renamed over the first path.
        const std::string other = folders ? tree.file("c/f", "same"), tree / "c" : tree.file("c", "same");
        ASSERT_EQ(::renameat2(AT_FDCWD, other.c_str(), AT_FDCWD, a.c_str(), RENAME_EXCHANGE), 0);
        const ContentComparison result = ContentComparer().compareTrees(a, b, nullptr, &seenA, &seenB);
        EXPECT_EQ(result.outcome, Outcome::CannotCompare);
        EXPECT_EQ(result.message, a + " changed during the comparison");
        EXPECT_EQ(result.inodeA, seenA.inode);
        // Looked up afresh, the new item is what is compared.
        EXPECT_TRUE(ContentComparer().compareTrees(a, b).isEqual());
    }
}

TEST(TreeComparisonCounts, HardLinksAcrossTheTreesAreEqualWithoutReading) {
    TempTree tree;
    both(tree, "read", patterned(1000));
    tree.file("a/linked", patterned(5000));
    ASSERT_EQ(::link((tree / "a/linked").c_str(), (tree / "b/linked").c_str()), 0);
    const ContentComparison result = compareTrees(tree / "a", tree / "b");
    EXPECT_TRUE(result.isEqual()) << result.message;
    EXPECT_FALSE(result.sameFile);
    EXPECT_EQ(result.bytesCompared, 1000u);
}

TEST(TreeComparisonStop, StopsBetweenEntries) {
    TempTree tree;
    both(tree, "1", "one");
    both(tree, "2", "two");
    both(tree, "3", "three");
    int polls = 0;
    // Polled once before the roots, then before each entry and each chunk of a file.
    ContentComparer comparer([&] { return ++polls == 4; });
    const ContentComparison result = comparer.compareTrees(tree / "a", tree / "b");
    EXPECT_EQ(result.outcome, Outcome::Stopped);
    EXPECT_EQ(result.bytesCompared, 3u); // "one"; "two" was not reached
}

// A folder moved away while the walk is inside it: going back up must not land in the
// folder it was moved to, even when that folder holds what the walk expects next.
TEST(TreeComparisonChanges, AFolderMovedDuringTheWalkIsNoticed) {
    TempTree tree;
    both(tree, "x/f", "");
    both(tree, "y", "same");
    tree.file("elsewhere/y", "same");
    int polls = 0;
    bool moved = false;
    // Polls: the roots, "x", "x/f" (empty: no chunk), then "y" after going back up.
    ContentComparer comparer([&] {
        if (++polls == 3)
            moved = ::rename((tree / "a/x").c_str(), (tree / "elsewhere/x").c_str()) == 0;
        return false;
    });
    const ContentComparison result = comparer.compareTrees(tree / "a", tree / "b");
    ASSERT_TRUE(moved);
    EXPECT_EQ(result.outcome, Outcome::CannotCompare);
    EXPECT_EQ(result.message, tree / "a/x changed during the comparison");
}

TEST(TreeComparisonChanges, AnEntryRemovedDuringTheWalkCannotBeRead) {
    TempTree tree;
    both(tree, "f", "same");
    int polls = 0;
    ContentComparer comparer([&] {
        if (++polls == 2)
            ::unlink((tree / "a/f").c_str());
        return false;
    });
    const ContentComparison result = comparer.compareTrees(tree / "a", tree / "b");
    EXPECT_EQ(result.outcome, Outcome::CannotCompare);
    EXPECT_EQ(result.message, "cannot read " + (tree / "a/f") + ": No such file or directory");
}

TEST(TreeComparisonMounts, AnotherFileSystemInsideRefuses) {
    TempTree tree;
    tree.folder("a/m");
    tree.folder("b/m");
    test::ScopedMount tmpfs("corvel-test", tree / "a/m", "tmpfs", 0);
    if (!tmpfs.mounted())
        GTEST_SKIP() << "mounting a tmpfs needs CAP_SYS_ADMIN";
    const ContentComparison result = compareTrees(tree / "a", tree / "b");
    EXPECT_EQ(result.outcome, Outcome::CannotCompare);
    EXPECT_EQ(result.message, tree / "a/m is on another file system");
}

TEST(TreeComparisonMounts, ABindMountOfTheSameFileSystemInsideRefuses) {
    TempTree tree;
    tree.folder("a/m");
    both(tree, "m/f", "same");
    test::ScopedMount bind(tree / "b/m", tree / "a/m", nullptr, MS_BIND);
    if (!bind.mounted())
        GTEST_SKIP() << "bind mounts need CAP_SYS_ADMIN";
    ASSERT_EQ(TempTree::read(tree / "a/m/f"), "same");
    const ContentComparison result = compareTrees(tree / "a", tree / "b");
    EXPECT_EQ(result.outcome, Outcome::CannotCompare);
    EXPECT_EQ(result.message, tree / "a/m is a mount point");
}

// Folders nested deeper than a path can name: made and removed through descriptors.
class DeepChain {
public:
    DeepChain(const std::string& root, unsigned depth, const std::string& leaf) : m_root(root) {
        int fd = ::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        for (unsigned i = 0; i < depth && fd >= 0; ++i) {
            ::mkdirat(fd, "d", 0700);
            const int next = ::openat(fd, "d", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
            ::close(fd);
            fd = next;
        }
        if (fd >= 0) {
            const int file = ::openat(fd, "f", O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
            if (file >= 0 && ::write(file, leaf.data(), leaf.size()) == static_cast<ssize_t>(leaf.size()))
                m_made = true;
            ::close(file);
            ::close(fd);
        }
    }
    ~DeepChain() {
        int fd = ::open(m_root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        unsigned depth = 0;
        for (int next; fd >= 0 && (next = ::openat(fd, "d", O_RDONLY | O_DIRECTORY | O_CLOEXEC)) >= 0;
             ++depth) {
            ::close(fd);
            fd = next;
        }
        ::unlinkat(fd, "f", 0);
        for (; depth > 0; --depth) {
            const int up = ::openat(fd, "..", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
            ::close(fd);
            fd = up;
            ::unlinkat(fd, "d", AT_REMOVEDIR);
        }
        ::close(fd);
    }
    bool made() const { return m_made; }

private:
    std::string m_root;
    bool m_made = false;
};

std::string chainOf(unsigned depth) {
    std::string chain;
    for (unsigned i = 0; i < depth; ++i)
        chain += "/d";
    return chain;
}

// Two chains of kMaxComparedTreeDepth + 1 folders with differing files at the bottom:
// from the second level the deepest folder is at the bound, from the top it is beyond.
// Thousands of folders are made quickly on a tmpfs; without one the test still runs, slower.
TEST(TreeComparisonDepth, ReachesTheBoundAndRefusesBeyondIt) {
    TempTree tree;
    const std::string scratch = tree.folder("scratch");
    test::ScopedMount tmpfs("corvel-test", scratch, "tmpfs", 0);
    const std::string a = scratch + "/a";
    const std::string b = scratch + "/b";
    ASSERT_EQ(::mkdir(a.c_str(), 0700), 0);
    ASSERT_EQ(::mkdir(b.c_str(), 0700), 0);
    DeepChain chainA(a, kMaxComparedTreeDepth + 1, "1");
    DeepChain chainB(b, kMaxComparedTreeDepth + 1, "2");
    ASSERT_TRUE(chainA.made() && chainB.made());

    const std::string below = chainOf(kMaxComparedTreeDepth);
    const ContentComparison atBound = compareTrees(a + "/d", b + "/d");
    EXPECT_EQ(atBound.outcome, Outcome::Different);
    EXPECT_EQ(atBound.message, a + "/d" + below + "/f differs from " + b + "/d" + below + "/f at byte 1");

    const ContentComparison beyond = compareTrees(a, b);
    EXPECT_EQ(beyond.outcome, Outcome::CannotCompare);
    EXPECT_EQ(beyond.message, a + chainOf(kMaxComparedTreeDepth + 1) + " is nested deeper than 4096 folders");
}

} // namespace
} // namespace corvel
