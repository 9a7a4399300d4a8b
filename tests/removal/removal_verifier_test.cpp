#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <set>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include "engine/signature.h"
#include "platform/system_log.h"
#include "removal/removal_verifier.h"
#include "removal_harness.h"
#include "support/scoped_mount.h"

namespace corvel {
namespace {

using test::exists;
using test::recordOf;
using test::RemovalHarness;
using test::runPass;
using Outcome = CVRemovalPass::Outcome;

std::string randomBytes(std::size_t size, unsigned seed) {
    std::mt19937 generator(seed);
    std::string bytes(size, '\0');
    for (auto& b : bytes)
        b = static_cast<char>(generator() & 0xff);
    return bytes;
}

// Writes new contents of the same size and puts the modification time back, so only the
// bytes tell the change.
void editKeepingSizeAndTime(const std::string& path, std::size_t offset) {
    struct stat st {};
    ASSERT_EQ(::lstat(path.c_str(), &st), 0);
    const int fd = ::open(path.c_str(), O_RDWR);
    ASSERT_GE(fd, 0);
    char byte = 0;
    EXPECT_EQ(::pread(fd, &byte, 1, static_cast<off_t>(offset)), 1);
    byte = static_cast<char>(byte ^ 0x5a);
    EXPECT_EQ(::pwrite(fd, &byte, 1, static_cast<off_t>(offset)), 1);
    ::close(fd);
    const struct timespec times[2] = {st.st_atim, st.st_mtim};
    ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
}

// Scans the roots with the harness's services and makes the results the pass's.
std::unique_ptr<CVDuplicatesLocator> scanInto(RemovalHarness& h, const std::vector<std::string>& roots) {
    auto locator = h.scan.locator();
    EXPECT_TRUE(locator->scanPaths(roots));
    EXPECT_TRUE(MainQueue::shared().runUntil([&] { return !locator->isScanThreadRunning(); },
                                             std::chrono::seconds(60)));
    locator->waitForScanThread();
    MainQueue::shared().drain();
    h.results = locator->duplicatesController();
    return locator;
}

std::shared_ptr<CVGroup> groupHolding(const CVDuplicatesController& results, const std::string& path) {
    for (const auto& g : results.allDuplicatesGroups())
        for (const auto& f : g->files())
            if (f->path() == path)
                return g;
    return nullptr;
}

// Marks every member but the first of every group, as a careless selection would.
void markAllButFirst(const CVDuplicatesController& results) {
    for (const auto& g : results.allDuplicatesGroups()) {
        const auto files = g->files();
        for (std::size_t i = 1; i < files.size(); ++i)
            files[i]->setNeedToRemove(true);
    }
}

// Every regular file under root with its contents.
void contentsUnder(const std::string& root, std::map<std::string, std::string>& out) {
    DIR* dir = ::opendir(root.c_str());
    if (!dir)
        return;
    while (const dirent* entry = ::readdir(dir)) {
        const std::string name = entry->d_name;
        if (name == "." || name == "..")
            continue;
        const std::string path = root + "/" + name;
        struct stat st {};
        if (::lstat(path.c_str(), &st) != 0)
            continue;
        if (S_ISDIR(st.st_mode))
            contentsUnder(path, out);
        else if (S_ISREG(st.st_mode))
            out[path] = test::TempTree::read(path);
    }
    ::closedir(dir);
}

// ---------------------------------------------------------------------------------------
// Copies that must stay: each case builds a group, marks copies and says why they stay.

struct Built {
    std::vector<std::string> staying; // the marked copies, which must stay as they are
    std::vector<std::string> kept;    // what else must stay
};

struct StayCase {
    const char* name;
    bool toTrash;
    const char* reason; // the start of the failure reason
    std::function<Built(RemovalHarness&)> build;
    const char* detail = ""; // found in the reason after it
    friend void PrintTo(const StayCase& c, std::ostream* os) { *os << c.name; }
};

class CopyThatFailsTheChecks : public testing::TestWithParam<StayCase> {};

TEST_P(CopyThatFailsTheChecks, StaysWhereItIs) {
    const auto& c = GetParam();
    RemovalHarness h;
    const Built built = c.build(h);
    std::map<std::string, std::string> before;
    for (const auto& path : built.staying)
        contentsUnder(path, before), before[path] = exists(path) ? "present" : "";
    auto pass = h.pass(c.toTrash, /*removeEmptyFolders*/ true);
    runPass(*pass);

    for (const auto& path : built.staying) {
        EXPECT_TRUE(exists(path)) << path;
        const auto* record = recordOf(*pass, path);
        ASSERT_NE(record, nullptr) << path;
        EXPECT_EQ(record->outcome, Outcome::Failed) << path;
        EXPECT_TRUE(record->error.starts_with(c.reason)) << record->error;
        EXPECT_NE(record->error.find(c.detail, std::strlen(c.reason)), std::string::npos) << record->error;
    }
    std::map<std::string, std::string> after;
    for (const auto& path : built.staying)
        contentsUnder(path, after), after[path] = exists(path) ? "present" : "";
    EXPECT_EQ(after, before);
    for (const auto& path : built.kept)
        EXPECT_TRUE(exists(path)) << path;
    EXPECT_FALSE(exists(h.homeTrash() + "/files")) << "nothing went to the Trash";
    EXPECT_EQ(pass->removedFiles(), 0u);
    EXPECT_EQ(pass->errorFilesCount(), built.staying.size());
}

Built largeFilesEqualWhereSampled(RemovalHarness& h) {
    // 600000 bytes are compared on samples: the first 10000 bytes and 32 pieces of 300.
    const std::string bytes = randomBytes(600000, 7);
    const std::string kept = h.tree.file("files/kept.bin", bytes);
    const std::string copy = h.tree.file("files/copy.bin", bytes);
    for (std::size_t offset = 12345;; offset += 997) {
        editKeepingSizeAndTime(copy, offset);
        CVSignature a(kept, bytes.size(), kNodeTypeOther, "dyn.bin");
        CVSignature b(copy, bytes.size(), kNodeTypeOther, "dyn.bin");
        if (a.type() == CVSignature::Sampled && a.isEqualTo(b))
            break;
        editKeepingSizeAndTime(copy, offset); // put the byte back, try the next place
    }
    auto locator = scanInto(h, {h.files()});
    auto g = groupHolding(*h.results, copy);
    EXPECT_NE(g, nullptr) << "the scan takes them for copies";
    if (g)
        for (const auto& f : g->files())
            f->setNeedToRemove(f->path() == copy);
    h.locators.push_back(std::move(locator));
    return {{copy}, {kept}};
}

Built folderWithOneDeepDifference(RemovalHarness& h) {
    for (const char* side : {"kept", "copy"}) {
        const std::string root = std::string("files/") + side;
        for (int i = 0; i < 12; ++i)
            h.tree.file(root + "/file" + std::to_string(i) + ".txt", "same " + std::to_string(i));
        h.tree.file(root + "/a/b/c/d/e/deep.txt", std::string(side) == "kept" ? "contents A" : "contents B");
        h.tree.file(root + "/a/b/other.txt", "same");
    }
    h.group({h.files("kept"), h.files("copy")}, {1});
    return {{h.files("copy")}, {h.files("kept")}};
}

Built copyEdited(RemovalHarness& h) {
    auto g = h.copies("kept.txt", {"copy.txt"}, "the same words");
    std::ofstream(g->files()[1]->path(), std::ios::app) << " and more";
    return {{g->files()[1]->path()}, {g->files()[0]->path()}};
}

Built copyEditedTimeKept(RemovalHarness& h) {
    auto g = h.copies("kept.txt", {"copy.txt"}, "the same words");
    editKeepingSizeAndTime(g->files()[1]->path(), 4);
    return {{g->files()[1]->path()}, {g->files()[0]->path()}};
}

Built keptEdited(RemovalHarness& h) {
    auto g = h.copies("kept.txt", {"copy.txt"}, "the same words");
    std::ofstream(g->files()[0]->path(), std::ios::app) << " edited";
    return {{g->files()[1]->path()}, {g->files()[0]->path()}};
}

Built keptGone(RemovalHarness& h) {
    auto g = h.copies("kept.txt", {"copy.txt"}, "the same words");
    ::unlink(g->files()[0]->path().c_str());
    return {{g->files()[1]->path()}, {}};
}

Built keptNowALink(RemovalHarness& h) {
    auto g = h.copies("kept.txt", {"copy.txt"}, "the same words");
    const std::string kept = g->files()[0]->path();
    ::unlink(kept.c_str());
    EXPECT_EQ(::symlink(g->files()[1]->path().c_str(), kept.c_str()), 0);
    return {{g->files()[1]->path()}, {kept}};
}

Built copyReplaced(RemovalHarness& h) {
    auto g = h.copies("kept.txt", {"copy.txt"}, "the same words");
    const std::string other = h.tree.file("files/other.txt", "the same words");
    EXPECT_EQ(::rename(other.c_str(), g->files()[1]->path().c_str()), 0);
    return {{g->files()[1]->path()}, {g->files()[0]->path()}};
}

Built copyNowALink(RemovalHarness& h) {
    auto g = h.copies("kept.txt", {"copy.txt"}, "the same words");
    const std::string copy = g->files()[1]->path();
    ::unlink(copy.c_str());
    EXPECT_EQ(::symlink(g->files()[0]->path().c_str(), copy.c_str()), 0);
    return {{copy}, {g->files()[0]->path()}};
}

Built hardLinkOfTheKept(RemovalHarness& h) {
    const std::string kept = h.tree.file("files/kept.txt", "linked");
    const std::string link = h.files("link.txt");
    EXPECT_EQ(::link(kept.c_str(), link.c_str()), 0);
    h.group({kept, link}, {1});
    return {{link}, {kept}};
}

Built samePathTwice(RemovalHarness& h) {
    const std::string path = h.tree.file("files/twice.txt", "scanned twice");
    h.group({test::scannedNode(path), test::scannedNode(path)}, {1});
    return {{path}, {}};
}

Built everyCopyMarked(RemovalHarness& h) {
    auto g = h.copies("a.txt", {"b.txt"}, "the last two");
    g->files()[0]->setNeedToRemove(true);
    return {{g->files()[0]->path(), g->files()[1]->path()}, {}};
}

Built everyCopyForced(RemovalHarness& h) {
    auto g = h.copies("a.txt", {"b.txt", "c.txt"}, "forced");
    g->files()[0]->setNeedToRemove(true);
    g->setUserForcedAllCopies(true);
    return {{g->files()[0]->path(), g->files()[1]->path(), g->files()[2]->path()}, {}};
}

Built keptInsideTheCopy(RemovalHarness& h) {
    h.tree.file("files/outer/inner/x.txt", "x");
    h.group({h.files("outer/inner"), h.files("outer")}, {1});
    return {{h.files("outer")}, {h.files("outer/inner")}};
}

Built keptHoldsTheCopy(RemovalHarness& h) {
    h.tree.file("files/outer/inner/x.txt", "x");
    h.group({h.files("outer"), h.files("outer/inner")}, {1});
    return {{h.files("outer/inner")}, {h.files("outer")}};
}

std::vector<StayCase> stayCases() {
    struct Named {
        const char* name;
        const char* reason;
        Built (*build)(RemovalHarness&);
        const char* detail = "";
    };
    const Named both[] = {
        {"LargeFilesEqualWhereSampled", kReasonDiffers, largeFilesEqualWhereSampled},
        {"FolderWithOneDeepDifference", kReasonDiffers, folderWithOneDeepDifference},
        {"CopyEditedAfterTheScan", kReasonChanged, copyEdited},
        {"CopyEditedWithItsTimePutBack", kReasonDiffers, copyEditedTimeKept},
        {"CopyReplacedAfterTheScan", kReasonChanged, copyReplaced},
        {"CopyNowALinkToTheKeptCopy", kReasonChanged, copyNowALink},
        {"KeptCopyEditedAfterTheScan", kReasonNoKeptCopy, keptEdited, "kept.txt: changed since the scan)"},
        {"KeptCopyGone", kReasonNoKeptCopy, keptGone, "kept.txt: missing)"},
        {"KeptCopyNowALinkToTheCopy", kReasonNoKeptCopy, keptNowALink, "kept.txt: changed since the scan)"},
        {"HardLinkOfTheKeptCopy", kReasonHardLink, hardLinkOfTheKept},
        {"SamePathTwice", kReasonHardLink, samePathTwice},
        {"EveryCopyMarkedWithoutConsent", kReasonNoKeptCopy, everyCopyMarked},
        {"KeptCopyInsideTheCopy", kReasonNoKeptCopy, keptInsideTheCopy, "outer/inner: lies inside the copy)"},
        {"KeptCopyHoldsTheCopy", kReasonNoKeptCopy, keptHoldsTheCopy, "/outer: holds the copy)"},
    };
    std::vector<StayCase> cases;
    for (const bool toTrash : {true, false})
        for (const auto& n : both)
            cases.push_back({n.name, toTrash, n.reason, n.build, n.detail});
    cases.push_back({"EveryCopyForced", false, kReasonAllCopiesPermanently, everyCopyForced});
    return cases;
}

INSTANTIATE_TEST_SUITE_P(Cases, CopyThatFailsTheChecks, testing::ValuesIn(stayCases()),
                         [](const auto& param) {
                             return std::string(param.param.name) +
                                    (param.param.toTrash ? "ToTrash" : "Delete");
                         });

// ---------------------------------------------------------------------------------------
// Copies that pass.

TEST(RemovalChecks, AnEqualCopyGoesAndNamesItsKeptCopy) {
    RemovalHarness h;
    auto g =
        h.group({h.tree.file("files/differs.txt", "other words"), h.tree.file("files/kept.txt", "same words"),
                 h.tree.file("files/copy.txt", "same words")},
                {2});
    auto pass = h.pass(false);
    runPass(*pass);
    const auto* record = recordOf(*pass, h.files("copy.txt"));
    EXPECT_EQ(record->outcome, Outcome::Deleted) << record->error;
    EXPECT_EQ(record->keptCopy, h.files("kept.txt")) << "the first member that is byte-equal";
}

// A kept copy named in the Trash (a plan edited by hand can name one) is one emptying of the
// Trash away from being gone: it keeps nothing, whichever path names it.
TEST(RemovalChecks, AMemberInTheTrashIsNoKeptCopy) {
    const struct {
        const char* keptIn; // relative to the harness's tree
        bool toTrash;
        const char* throughLink = nullptr; // the kept copy named through this link to keptIn
    } cases[] = {{"data/Trash/files", false},
                 {"data/Trash/files", true},
                 {"files/.Trash-1000/files", false},
                 {"files/other/.local/share/Trash/files", false},
                 {"data/Trash/files", false, "files/link"},
                 // By the path as written: a link named like a Trash folder, to a plain one.
                 {"files/plain", false, "files/.Trash-1000"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.keptIn) + (c.throughLink ? " through a link" : ""));
        RemovalHarness h;
        std::string kept = h.tree.file(std::string(c.keptIn) + "/kept.txt", "the same words");
        if (c.throughLink) {
            ASSERT_EQ(::symlink((h.tree / c.keptIn).c_str(), (h.tree / c.throughLink).c_str()), 0);
            kept = h.tree / (std::string(c.throughLink) + "/kept.txt");
        }
        const std::string copy = h.tree.file("files/copy.txt", "the same words");
        h.group({kept, copy}, {1});
        auto pass = h.pass(c.toTrash);
        runPass(*pass);
        EXPECT_EQ(test::TempTree::read(copy), "the same words");
        EXPECT_EQ(recordOf(*pass, copy)->error,
                  std::string(kReasonNoKeptCopy) + " (" + kept + ": lies in the Trash)");
    }
}

// A folder of the copy's path, or of the kept copy's, swapped for a link during the checks,
// so that the path leads to the user's own copy of the folder elsewhere when it is compared:
// what was compared is not the copy (or not the kept copy), and the check vouches for neither.
TEST(RemovalChecks, APathThatLedElsewhereWhenComparedProvesNothing) {
    const struct {
        const char* swapped; // under files/
        const char* reason;  // the start of the check's reason
    } cases[] = {{"m", kReasonChanged}, {"k2", kReasonDiffers}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.swapped);
        RemovalHarness h;
        for (const char* folder : {"files/k1/g", "files/k2/g", "files/m/g", "files/victim/g"})
            h.tree.file(std::string(folder) + "/x", std::string(folder) == "files/k1/g" ? "other" : "same");
        auto group = h.group({h.files("k1/g"), h.files("k2/g"), h.files("m/g")}, {2});
        bool swapped = false;
        // Polled by the comparison with k1 (which differs), before the one with k2.
        RemovalVerifier verifier([&] {
            if (!std::exchange(swapped, true)) {
                std::filesystem::rename(h.files(c.swapped), h.files(std::string(c.swapped) + ".moved"));
                std::filesystem::create_directory_symlink("victim", h.files(c.swapped));
            }
            return false;
        });
        const RemovalCheck check = verifier.checkBeforeRemoval(*group->files()[2], /*permanently*/ true);
        EXPECT_TRUE(swapped);
        EXPECT_FALSE(check.ok);
        EXPECT_TRUE(check.reason.starts_with(c.reason)) << check.reason;
        EXPECT_TRUE(check.compared.empty());
    }
}

// Another file put in the copy's place after the checks, just before the move: the move
// refuses it, and it stays.
TEST(RemovalChecks, AFileSwappedInJustBeforeTheMoveStays) {
    RemovalHarness h;
    auto g = h.copies("kept.txt", {"copy.txt"}, "checked words");
    const std::string copy = g->files()[1]->path();
    h.trash.setBeforeMoveHook([&](const std::string&) {
        const std::string newcomer = h.tree.file("newcomer.txt", "arrived meanwhile");
        ASSERT_EQ(::rename(newcomer.c_str(), copy.c_str()), 0);
    });
    auto pass = h.pass(true);
    runPass(*pass);
    EXPECT_EQ(test::TempTree::read(copy), "arrived meanwhile");
    EXPECT_EQ(recordOf(*pass, copy)->outcome, Outcome::Failed);
    EXPECT_EQ(recordOf(*pass, copy)->error, kReasonChanged);
    std::map<std::string, std::string> trashed;
    contentsUnder(h.homeTrash(), trashed);
    EXPECT_TRUE(trashed.empty()) << trashed.begin()->first;
}

TEST(RemovalChecks, AForcedGroupGoesWholeToTheTrash) {
    RemovalHarness h;
    auto g = h.copies("a.txt", {"b.txt"}, "forced");
    g->files()[0]->setNeedToRemove(true);
    g->setUserForcedAllCopies(true);
    auto pass = h.pass(true);
    runPass(*pass);
    for (const auto& f : g->files()) {
        const auto* record = recordOf(*pass, f->path());
        EXPECT_EQ(record->outcome, Outcome::Trashed) << record->error;
        EXPECT_EQ(test::TempTree::read(record->trashFile), "forced");
        EXPECT_TRUE(exists(record->trashInfo));
        EXPECT_TRUE(record->keptCopy.empty());
    }
}

TEST(RemovalChecks, ACopyEqualToALaterMemberGoes) {
    RemovalHarness h;
    // The first unmarked member differs (a sampling coincidence); the second is equal.
    auto g = h.group({h.tree.file("files/copy.txt", "same"), h.tree.file("files/wrong.txt", "SAME"),
                      h.tree.file("files/right.txt", "same")},
                     {0});
    auto pass = h.pass(true);
    runPass(*pass);
    EXPECT_EQ(recordOf(*pass, h.files("copy.txt"))->keptCopy, h.files("right.txt"));
    EXPECT_FALSE(exists(h.files("copy.txt")));
}

// A scan's copies stay removable after the scan's walked tree is gone (the results
// outlive the locator in a face that drops it).
TEST(RemovalChecks, AScannedCopyIsRemovableAfterTheLocatorIsGone) {
    RemovalHarness h;
    h.tree.file("files/a/kept.txt", "scanned words");
    h.tree.file("files/b/copy.txt", "scanned words");
    {
        auto locator = scanInto(h, {h.files()});
        ASSERT_NE(groupHolding(*h.results, h.files("b/copy.txt")), nullptr);
    }
    auto g = groupHolding(*h.results, h.files("b/copy.txt"));
    for (const auto& f : g->files())
        f->setNeedToRemove(f->path() == h.files("b/copy.txt"));
    auto pass = h.pass(true);
    runPass(*pass);
    const auto* record = recordOf(*pass, h.files("b/copy.txt"));
    EXPECT_EQ(record->outcome, Outcome::Trashed) << record->error;
}

// ---------------------------------------------------------------------------------------
// The same files reached twice: nothing may be lost, whatever was marked.

// The contents of the files under root, whatever their paths.
std::multiset<std::string> contentsLeft(const std::string& root) {
    std::map<std::string, std::string> files;
    contentsUnder(root, files);
    std::multiset<std::string> contents;
    for (const auto& [path, bytes] : files)
        contents.insert(bytes);
    return contents;
}

void expectEveryContentsLeft(const std::string& root, const std::vector<std::string>& contents,
                             const char* mode) {
    const auto left = contentsLeft(root);
    for (const auto& c : contents)
        EXPECT_TRUE(left.contains(c)) << c << " is gone (" << mode << ")";
}

// The scan folds a folder given again (as itself, with a slash, through a link, or inside
// another root) into one walk; whatever the careless selection, something stays.
TEST(RemovalChecks, TheSameFolderGivenAsSeveralRootsLosesNothing) {
    for (const bool toTrash : {true, false}) {
        RemovalHarness h;
        h.tree.file("files/docs/a.txt", "alpha");
        h.tree.file("files/docs/sub/b.txt", "bravo");
        h.tree.file("files/docs/copy of a.txt", "alpha");
        h.tree.symlink("files/alias", "docs");
        auto locator =
            scanInto(h, {h.files("docs"), h.files("docs/sub"), h.files("alias"), h.files("docs/")});
        ASSERT_FALSE(h.results->allDuplicatesGroups().empty());
        markAllButFirst(*h.results);
        auto pass = h.pass(toTrash);
        runPass(*pass);
        expectEveryContentsLeft(h.files("docs"), {"alpha", "bravo"}, toTrash ? "trash" : "delete");
    }
}

// A root bound inside itself shows every item at two paths with one device and inode.
TEST(RemovalChecks, ARootBoundInsideItselfLosesNothing) {
    for (const bool toTrash : {true, false}) {
        const char* mode = toTrash ? "trash" : "delete";
        RemovalHarness h;
        const std::string root = h.files("root");
        h.tree.file("files/root/a.txt", "alpha");
        h.tree.file("files/root/sub/b.txt", "bravo");
        h.tree.file("files/root/copy of a.txt", "alpha");
        h.tree.file("files/root/sub copy/b.txt", "bravo");
        const std::string inside = h.tree.folder("files/root/inside");
        test::ScopedMount bind(root, inside, nullptr, MS_BIND);
        if (!bind.mounted())
            GTEST_SKIP() << "needs root and mount(2) for a bind mount (" << bind.why() << ")";

        // The walk does not enter the folder again, so a scan makes no such group.
        auto locator = scanInto(h, {root});
        ASSERT_FALSE(h.results->allDuplicatesGroups().empty());
        markAllButFirst(*h.results);
        auto pass = h.pass(toTrash);
        runPass(*pass);
        expectEveryContentsLeft(root, {"alpha", "bravo"}, mode);
    }
}

// Groups that name one item at both paths (a plan edited by hand), either path kept.
TEST(RemovalChecks, AnItemAndItsBindMountedSelfAreNeverTakenForTwoCopies) {
    for (const bool toTrash : {true, false}) {
        const char* mode = toTrash ? "trash" : "delete";
        RemovalHarness h;
        const std::string root = h.files("root");
        const std::string a = h.tree.file("files/root/a.txt", "alpha");
        h.tree.file("files/root/sub/b.txt", "bravo");
        const std::string inside = h.tree.folder("files/root/inside");
        test::ScopedMount bind(root, inside, nullptr, MS_BIND);
        if (!bind.mounted())
            GTEST_SKIP() << "needs root and mount(2) for a bind mount (" << bind.why() << ")";
        h.group({a, inside + "/a.txt"}, {1});
        h.group({inside + "/sub", root + "/sub"}, {1});
        auto pass = h.pass(toTrash);
        runPass(*pass);
        EXPECT_EQ(test::TempTree::read(a), "alpha") << mode;
        EXPECT_EQ(test::TempTree::read(root + "/sub/b.txt"), "bravo") << mode;
        ASSERT_EQ(pass->records().size(), 2u);
        for (const auto& record : pass->records())
            EXPECT_EQ(record.error, kReasonHardLink) << record.file->path();
    }
}

// ---------------------------------------------------------------------------------------
// The verifier on its own.

TEST(RemovalVerifier, SaysWhyACopyIsNotWhatTheScanSaw) {
    test::TempTree tree;
    struct Case {
        const char* name;
        std::function<void(const std::string&)> change;
        bool unchanged;
        const char* reason;
    };
    const Case cases[] = {
        {"untouched", [](const std::string&) {}, true, ""},
        {"missing", [](const std::string& p) { ::unlink(p.c_str()); }, false, "missing"},
        {"longer", [](const std::string& p) { std::ofstream(p, std::ios::app) << "!"; }, false,
         kReasonChanged},
        {"touched",
         [](const std::string& p) {
             const struct timespec times[2] = {{0, UTIME_OMIT}, {12345, 678}};
             ::utimensat(AT_FDCWD, p.c_str(), times, 0);
         },
         false, kReasonChanged},
        {"a folder now",
         [](const std::string& p) {
             ::unlink(p.c_str());
             ::mkdir(p.c_str(), 0700);
         },
         false, kReasonChanged},
        {"replaced, size and time kept",
         [](const std::string& p) {
             struct stat st {};
             ::stat(p.c_str(), &st);
             const std::string other = p + ".new";
             std::ofstream(other) << "contents";
             const struct timespec times[2] = {st.st_atim, st.st_mtim};
             ::utimensat(AT_FDCWD, other.c_str(), times, 0);
             ::rename(other.c_str(), p.c_str());
         },
         false, kReasonChanged},
    };
    for (const auto& c : cases) {
        const std::string path = tree.file(std::string(c.name) + ".txt", "contents");
        auto node = test::scannedNode(path);
        c.change(path);
        std::string reason;
        EXPECT_EQ(RemovalVerifier::isUnchangedSinceScan(*node, &reason), c.unchanged) << c.name;
        EXPECT_EQ(reason, c.reason) << c.name;
    }
    // A node no walk recorded is never trusted.
    const std::string path = tree.file("unrecorded.txt", "x");
    CVFile unrecorded(path, "unrecorded.txt", 1, 4096);
    EXPECT_FALSE(RemovalVerifier::isUnchangedSinceScan(unrecorded, nullptr));
}

TEST(RemovalVerifier, AStopRequestEndsTheComparison) {
    test::TempTree tree;
    const std::string bytes = randomBytes(3 << 20, 3);
    auto kept = test::scannedNode(tree.file("kept.bin", bytes));
    auto copy = test::scannedNode(tree.file("copy.bin", bytes));
    auto g = CVGroup::initWithCVFile(kept);
    g->addFile(copy);
    copy->setNeedToRemove(true);
    RemovalVerifier verifier([] { return true; });
    const RemovalCheck check = verifier.checkBeforeRemoval(*copy, false);
    EXPECT_FALSE(check.ok);
    EXPECT_EQ(check.reason, "stopped");
    RemovalVerifier going;
    const RemovalCheck passes = going.checkBeforeRemoval(*copy, true);
    EXPECT_TRUE(passes.ok) << passes.reason;
    EXPECT_EQ(passes.keptCopy, kept->path());
}

} // namespace
} // namespace corvel
