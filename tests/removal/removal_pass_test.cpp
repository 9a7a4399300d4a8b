#include <atomic>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iostream>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "engine/file_sizer.h"
#include "platform/file_io.h"
#include "platform/system_log.h"
#include "platform/volumes.h"
#include "removal/removal_verifier.h"
#include "removal_harness.h"
#include "support/other_user.h"
#include "support/scoped_mount.h"

namespace corvel {
namespace {

using test::exists;
using test::recordOf;
using test::RemovalHarness;
using test::runPass;
using Outcome = CVRemovalPass::Outcome;

std::uint64_t sizeOnDiskOf(const std::vector<std::shared_ptr<CVGroup>>& groups, std::size_t member) {
    std::uint64_t total = 0;
    for (const auto& g : groups)
        total += g->files()[member]->sizeOnDisk();
    return total;
}

std::string replaceAll(std::string text, const std::string& what, const std::string& with) {
    for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + with.size()))
        text.replace(at, what.size(), with);
    return text;
}

// ---------------------------------------------------------------------------------------
// Progress ticks: N / 20 files a tick from 20 files on, every file below.

struct TickCase {
    std::size_t files;
    std::uint64_t step;
    friend void PrintTo(const TickCase& c, std::ostream* os) { *os << c.files << " files"; }
};

class RemovalTicks : public testing::TestWithParam<TickCase> {};

TEST_P(RemovalTicks, ComeEveryStepFiles) {
    const auto& c = GetParam();
    RemovalHarness h;
    for (std::size_t i = 0; i < c.files; ++i)
        h.copies("k" + std::to_string(i), {"c" + std::to_string(i)}, "contents " + std::to_string(i));
    auto pass = h.pass(false);
    runPass(*pass);

    std::vector<std::pair<std::uint64_t, std::uint64_t>> expected;
    for (std::uint64_t handled = c.step; handled <= c.files; handled += c.step)
        expected.emplace_back(handled, c.files);
    EXPECT_EQ(h.view.ticks, expected);
    EXPECT_EQ(pass->removedFiles(), c.files);
}

INSTANTIATE_TEST_SUITE_P(Counts, RemovalTicks,
                         testing::Values(TickCase{1, 1}, TickCase{5, 1}, TickCase{19, 1}, TickCase{20, 1},
                                         TickCase{40, 2}, TickCase{45, 2}, TickCase{60, 3}),
                         [](const auto& param) { return std::to_string(param.param.files) + "Files"; });

TEST(RemovalTicks, FortyFiveFilesGiveTwentyTwoTicks) {
    RemovalHarness h;
    for (std::size_t i = 0; i < 45; ++i)
        h.copies("k" + std::to_string(i), {"c" + std::to_string(i)}, "x" + std::to_string(i));
    auto pass = h.pass(false);
    runPass(*pass);
    EXPECT_EQ(h.view.ticks.size(), 22u);
    EXPECT_EQ(h.view.count("closeShredderAnimation"), 1u);
}

// ---------------------------------------------------------------------------------------
// Stop.

class RemovalStop : public testing::TestWithParam<bool /*toTrash*/> {};

TEST_P(RemovalStop, LeavesTheUnhandledCopiesMarkedAndChangesNoTotals) {
    const bool toTrash = GetParam();
    RemovalHarness h;
    std::vector<std::shared_ptr<CVGroup>> groups;
    for (int i = 0; i < 5; ++i)
        groups.push_back(
            h.copies("k" + std::to_string(i), {"c" + std::to_string(i)}, std::string(100 + i, 'a')));
    h.scan.defaults.setObject(PropertyValue(std::int64_t{777}), kTotalSizeSavedKey);
    HVAchievementsController achievements(h.scan.defaults);
    CVRemovalPass pass({*h.results, h.scan.defaults, h.scan.preferences, h.scan.ignoreList, h.trash, h.driver,
                        h.statistics, achievements, h.view},
                       h.options(toTrash));
    h.view.onTick = [&](std::uint64_t handled, std::uint64_t) {
        if (handled == 2)
            pass.requestStop();
    };
    const PropertyValue recordBefore = h.lastRecord();
    EXPECT_EQ(pass.count(), 5u);
    ScopedLogCapture log;
    runPass(pass);

    EXPECT_TRUE(pass.stopped());
    EXPECT_TRUE(pass.finished());
    for (int i = 0; i < 5; ++i) {
        const auto copy = groups[i]->files()[1];
        const bool handled = i < 2;
        EXPECT_EQ(exists(copy->path()), !handled) << copy->path();
        EXPECT_TRUE(copy->needToRemove()) << copy->path();
        EXPECT_EQ(copy->wasRemoved(), handled) << copy->path();
        const auto* record = recordOf(pass, copy->path());
        ASSERT_NE(record, nullptr);
        EXPECT_EQ(record->outcome,
                  handled ? (toTrash ? Outcome::Trashed : Outcome::Deleted) : Outcome::NotHandled);
    }
    // The copies after the stop were claimed in the Trash with the first two; their
    // information files are gone again.
    if (toTrash) {
        std::size_t infos = 0;
        for (const auto& entry : std::filesystem::directory_iterator(h.homeTrash() + "/info"))
            infos += entry.path().extension() == ".trashinfo";
        EXPECT_EQ(infos, 2u);
    }
    // The collector recounts what is still marked.
    std::uint64_t remainingSize = 0;
    for (int i = 2; i < 5; ++i)
        remainingSize += groups[i]->files()[1]->sizeOnDisk();
    EXPECT_EQ(pass.count(), 3u);
    EXPECT_EQ(pass.size(), remainingSize);
    EXPECT_EQ(pass.errorFilesCount(), 0u);
    // A stopped pass reports to neither the statistics nor the achievements.
    EXPECT_EQ(h.lastRecord(), recordBefore) << h.lastRecord().description();
    EXPECT_EQ(achievements.userTotalSize(), 777u);
    EXPECT_EQ(h.scan.defaults.objectForKey(kTotalSizeSavedKey).toInt64(), 777);
    EXPECT_EQ(h.view.count("reloadCollector"), 1u);
    EXPECT_EQ(h.view.count("closeShredderAnimation"), 0u);
    EXPECT_EQ(h.view.windowStates.back(), 8);
    EXPECT_TRUE(log.contains("Removing was stopped by user"));
    EXPECT_TRUE(log.contains("Removing finished. Complete remove = 0. Removed Count = 5 Size = " +
                             std::to_string(sizeOnDiskOf({groups[0], groups[1]}, 1))));

    // Remove again: the rest goes, and the statistics count the files marked at its start.
    h.view.onTick = nullptr;
    runPass(pass);
    EXPECT_FALSE(pass.stopped());
    for (const auto& g : groups)
        EXPECT_FALSE(exists(g->files()[1]->path()));
    EXPECT_EQ(h.lastRecord()["RemovedFiles"].toInt64(), 3);
    EXPECT_EQ(h.lastRecord()["RemovedSize"].toUInt64(), remainingSize);
}

INSTANTIATE_TEST_SUITE_P(Modes, RemovalStop, testing::Bool(),
                         [](const auto& param) { return param.param ? "ToTrash" : "Delete"; });

// Copies of groups whose every copy the user forced go to the Trash without a comparison,
// so only the pass's own loop hears the stop.
TEST(RemovalStopButton, IsHeardBetweenCopiesThatNeedNoComparison) {
    RemovalHarness h;
    std::vector<std::shared_ptr<CVFile>> files;
    for (int i = 0; i < 3; ++i) {
        auto g = h.copies("a" + std::to_string(i), {"b" + std::to_string(i)}, "forced " + std::to_string(i));
        g->files()[0]->setNeedToRemove(true);
        g->setUserForcedAllCopies(true);
        for (const auto& f : g->files())
            files.push_back(f);
    }
    auto pass = h.pass(true);
    h.view.onTick = [&](std::uint64_t handled, std::uint64_t) {
        if (handled == 2)
            pass->requestStop();
    };
    runPass(*pass);
    for (std::size_t i = 0; i < files.size(); ++i) {
        EXPECT_EQ(exists(files[i]->path()), i >= 2) << files[i]->path();
        EXPECT_EQ(files[i]->wasRemoved(), i < 2) << files[i]->path();
    }
    EXPECT_EQ(pass->count(), 4u);
}

// Stop pressed while the last tick shows: the pass ends once, as a stopped pass.
TEST(RemovalStopButton, PressedAtTheLastTickEndsThePassOnce) {
    RemovalHarness h;
    h.copies("k0", {"c0"}, "zero");
    h.copies("k1", {"c1"}, "one");
    auto pass = h.pass(true);
    h.view.onTick = [&](std::uint64_t handled, std::uint64_t total) {
        if (handled == total)
            pass->shreddList(); // the Stop button
    };
    const PropertyValue recordBefore = h.lastRecord();
    ScopedLogCapture log;
    runPass(*pass);

    std::size_t finishedLines = 0;
    for (const auto& line : log.lines())
        finishedLines += line.starts_with("Removing finished.") ? 1 : 0;
    EXPECT_EQ(finishedLines, 1u);
    EXPECT_EQ(h.view.count("setDoneButtonToolTip"), 1u);
    EXPECT_TRUE(pass->stopped());
    EXPECT_EQ(h.lastRecord(), recordBefore) << "a stopped pass records nothing, and never zeros";
    EXPECT_EQ(h.achievements.lastTimeSize(), 0u);
}

// Whether the process has the file open (the pass's thread reading it).
bool isOpenHere(const std::string& path) {
    DIR* dir = ::opendir("/proc/self/fd");
    if (!dir)
        return false;
    bool open = false;
    while (const dirent* entry = ::readdir(dir)) {
        char target[4096];
        const std::string link = std::string("/proc/self/fd/") + entry->d_name;
        const ssize_t n = ::readlink(link.c_str(), target, sizeof target);
        if (n > 0 && std::string(target, static_cast<std::size_t>(n)) == path)
            open = true;
    }
    ::closedir(dir);
    return open;
}

// Stop pressed while the copy is being compared with the kept copy: the copy was not
// handled, so it stays marked and in the collector, and counts as no failure.
TEST(RemovalStopButton, PressedDuringTheComparisonLeavesTheCopyMarked) {
    RemovalHarness h;
    const std::string kept = h.files("kept.bin");
    const std::string copy = h.files("copy.bin");
    for (const auto& path : {kept, copy}) {
        const int fd = ::open(path.c_str(), O_CREAT | O_WRONLY, 0644);
        ASSERT_GE(fd, 0);
        ASSERT_EQ(::ftruncate(fd, off_t{4} << 30), 0); // sparse: long to compare, nothing on disk
        ::close(fd);
    }
    auto g = h.group({kept, copy}, {1});
    auto pass = h.pass(true);
    std::atomic<bool> ended{false};
    std::thread stopper([&] {
        while (!ended.load()) {
            if (isOpenHere(copy)) {
                pass->requestStop();
                return;
            }
            std::this_thread::yield();
        }
    });
    runPass(*pass);
    ended = true;
    stopper.join();

    const auto file = g->files()[1];
    EXPECT_TRUE(exists(copy));
    EXPECT_TRUE(pass->stopped());
    EXPECT_TRUE(file->needToRemove());
    EXPECT_FALSE(file->wasRemoved());
    EXPECT_EQ(recordOf(*pass, copy)->outcome, Outcome::NotHandled) << recordOf(*pass, copy)->error;
    EXPECT_EQ(pass->errorFilesCount(), 0u);
    EXPECT_EQ(pass->count(), 1u);
}

// A face that goes away while its pass runs (a window closed, an error in the command
// line) destroys the pass on the main thread while the pass's thread waits for that
// thread. Run in a child process, so a hang is seen and cannot stall the tests.
TEST(RemovalStopButton, APassDestroyedWhileRunningEndsAfterItsCurrentCopy) {
    RemovalHarness h;
    std::vector<std::string> copies;
    for (int i = 0; i < 5; ++i)
        copies.push_back(h.copies("k" + std::to_string(i), {"c" + std::to_string(i)}, "x" + std::to_string(i))
                             ->files()[1]
                             ->path());
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        {
            auto pass = h.pass(true);
            pass->shreddList();
        }
        ::_exit(0);
    }
    int status = 0;
    bool ended = false;
    for (int waited = 0; waited < 1000 && !ended; ++waited) {
        ended = ::waitpid(child, &status, WNOHANG) == child;
        if (!ended)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    if (!ended) {
        ::kill(child, SIGKILL);
        ::waitpid(child, &status, 0);
    }
    ASSERT_TRUE(ended) << "the destructor waited for a thread that waited for it";
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    std::size_t left = 0;
    for (const auto& copy : copies)
        left += exists(copy) ? 1 : 0;
    EXPECT_GE(left, 4u) << "the pass stops after the copy it was handling";
}

// ---------------------------------------------------------------------------------------
// N, not R; failures never stop the pass; the log lines.

TEST(RemovalTotals, StatisticsCountTheFilesMarkedAtTheStart) {
    RemovalHarness h;
    auto a = h.copies("ka", {"ca"}, "alpha");
    auto b = h.copies("kb", {"cb"}, "bravo");
    auto c = h.copies("kc", {"cc"}, "charlie");
    std::ofstream(b->files()[1]->path()) << "BRAVO"; // changed since the scan: it fails
    const std::uint64_t removedSize = a->files()[1]->sizeOnDisk() + c->files()[1]->sizeOnDisk();
    auto pass = h.pass(true);
    runPass(*pass);

    EXPECT_EQ(pass->markedFilesAtStart(), 3u);
    EXPECT_EQ(pass->removedFiles(), 2u);
    EXPECT_EQ(pass->removedSize(), removedSize);
    EXPECT_EQ(h.lastRecord()["RemovedFiles"].toInt64(), 3) << "N, the files marked at the start";
    EXPECT_EQ(h.lastRecord()["RemovedSize"].toUInt64(), removedSize);
    EXPECT_EQ(h.achievements.lastTimeSize(), removedSize);
    EXPECT_EQ(pass->errorFilesCount(), 1u);
    EXPECT_EQ(pass->failedSize(), b->files()[1]->sizeOnDisk());
    ASSERT_EQ(pass->failedFiles().size(), 1u);
    EXPECT_EQ(pass->failedFiles()[0], b->files()[1]);
    EXPECT_EQ(pass->count(), 0u);
    EXPECT_EQ(pass->size(), 0u);
}

TEST(RemovalFailures, NeverStopThePassAndAreLogged) {
    RemovalHarness h;
    auto changed = h.copies("k0", {"c0"}, "zero");
    auto fine1 = h.copies("k1", {"c1"}, "one");
    auto missing = h.copies("k2", {"c2"}, "two");
    auto fine2 = h.copies("k3", {"c3"}, "three");
    std::ofstream(changed->files()[1]->path()) << "ZERO";
    ASSERT_EQ(::unlink(missing->files()[1]->path().c_str()), 0);
    std::uint64_t marked = 0;
    for (const auto& g : {changed, fine1, missing, fine2})
        marked += g->files()[1]->sizeOnDisk();
    const std::uint64_t removed = fine1->files()[1]->sizeOnDisk() + fine2->files()[1]->sizeOnDisk();
    const std::vector<std::tuple<GroupPtr, std::shared_ptr<CVFile>, bool>> outcomes{
        {changed, changed->files()[1], false},
        {fine1, fine1->files()[1], true},
        {missing, missing->files()[1], false},
        {fine2, fine2->files()[1], true}};
    auto pass = h.pass(true);
    ScopedLogCapture log;
    runPass(*pass);

    EXPECT_FALSE(exists(fine1->files()[1]->path()));
    EXPECT_FALSE(exists(fine2->files()[1]->path()));
    EXPECT_TRUE(exists(changed->files()[1]->path()));
    ASSERT_EQ(h.view.handled.size(), 4u);
    EXPECT_FALSE(h.view.handled[0].ok);
    EXPECT_EQ(h.view.handled[0].reason, kReasonChanged);
    EXPECT_TRUE(h.view.handled[1].ok);
    EXPECT_FALSE(h.view.handled[2].ok);
    EXPECT_EQ(h.view.handled[2].reason, "missing");
    EXPECT_TRUE(h.view.handled[3].ok);
    EXPECT_EQ(pass->errorFilesCount(), 2u);

    const auto lines = log.lines();
    auto has = [&](const std::string& line) {
        return std::find(lines.begin(), lines.end(), line) != lines.end();
    };
    EXPECT_TRUE(has("Removing started. Files count = 4 Size to Clean = " + std::to_string(marked)));
    const auto c0 = changed->files()[1];
    EXPECT_TRUE(has("Failed to remove file " + c0->path() +
                    " = changed since the scan size = " + std::to_string(c0->size()) + " type = manual"));
    const auto c1 = fine1->files()[1];
    EXPECT_TRUE(has("Successfully removed file to Trash " + c1->path() +
                    " size = " + std::to_string(c1->size()) + " type = manual"));
    EXPECT_TRUE(log.contains("Removing finished. Complete remove = "));
    EXPECT_TRUE(log.contains(". Removed Count = 4 Size = " + std::to_string(removed)));
    for (const auto& line : lines)
        EXPECT_NE(line, "Removing was stopped by user");

    // What the results show afterwards: the copies removed are gone with their groups; a
    // copy that could not be removed is still a marked member of its group.
    h.results->removeDeletedFiles();
    for (const auto& [group, copy, gone] : outcomes) {
        EXPECT_EQ(copy->wasRemoved(), gone) << copy->path();
        EXPECT_EQ(h.results->fileAtPath(copy->path()) != nullptr, !gone) << copy->path();
        EXPECT_EQ(group->childrenCount(), gone ? 1u : 2u) << copy->path();
        EXPECT_EQ(group->removedFilesCount(), 0u) << copy->path();
        EXPECT_TRUE(copy->needToRemove()) << copy->path();
    }
    EXPECT_EQ(h.results->count(), 2u);
}

TEST(RemovalFailures, DeleteModeLogsWithoutTheTrashWord) {
    RemovalHarness h;
    auto g = h.copies("k", {"c"}, "data");
    g->files()[1]->setSelectionType(kSelectionAutomatic);
    auto pass = h.pass(false);
    ScopedLogCapture log;
    runPass(*pass);
    const auto c = g->files()[1];
    EXPECT_TRUE(log.contains("Successfully removed file " + c->path() + " size = 4 type = automatic"));
    EXPECT_EQ(recordOf(*pass, c->path())->outcome, Outcome::Deleted);
}

// ---------------------------------------------------------------------------------------
// Library dispatch.

constexpr const char* kPhotoRemoveScript = "tell application \"iPhoto\"\nwith timeout of 11 seconds\n"
                                           "select photo library album\n"
                                           "remove (photo 1 whose image path is equal to \"PATH\")\n"
                                           "end timeout\nend tell";
constexpr const char* kPhotoAddScript = "tell application \"iPhoto\"\nwith timeout of 11 seconds\n"
                                        "add (photo 1 whose image path is equal to \"PATH\") to trash album\n"
                                        "end timeout\nend tell";
constexpr const char* kVideoRemoveScript =
    "tell application \"iPhoto\"\nwith timeout of 11 seconds\n"
    "select photo library album\n"
    "remove (photo 1 whose image path is equal to \"PATH\" or original path is equal to \"PATH\")\n"
    "end timeout\nend tell";
constexpr const char* kVideoAddScript = "tell application \"iPhoto\"\nwith timeout of 11 seconds\n"
                                        "add (photo 1 whose image path is equal to \"PATH\" or original path "
                                        "is equal to \"PATH\") to trash album\n"
                                        "end timeout\nend tell";
constexpr const char* kMusicDeleteScript = "tell application \"iTunes\"\nwith timeout of 10 seconds\n"
                                           "set fileTracksList to every file track in library playlist 1\n"
                                           "repeat with currTrack in fileTracksList\n"
                                           "set trackPath to POSIX path of (location of currTrack as text)\n"
                                           "if trackPath is equal to \"PATH\" then delete currTrack\n"
                                           "end repeat\nend timeout\n end tell";

// Calls shredDuplicateFile while a pass runs, as the pass does: outside a pass the
// comparison with the kept copy counts as stopped. A plain marked copy starts the pass;
// the file itself is not marked, so the pass leaves it alone afterwards.
CVError shredDuringAPass(RemovalHarness& h, CVFile& file, bool toTrash, bool& ok) {
    file.setNeedToRemove(false);
    h.copies("start kept", {"start copy"}, "starts the pass");
    auto pass = h.pass(toTrash);
    CVError error;
    h.view.onStart = [&] { ok = pass->shredDuplicateFile(file, toTrash, &error); };
    runPass(*pass);
    return error;
}

struct PhotoCase {
    const char* name;
    const char* version;
    bool movie;
    const char* script;
};

class PhotoLibraryCopy : public testing::TestWithParam<PhotoCase> {};

TEST_P(PhotoLibraryCopy, GoesThroughTheApplicationAndIsNeverTouched) {
    const auto& c = GetParam();
    for (const bool toTrash : {true, false}) {
        RemovalHarness h;
        auto g = h.copies("kept.jpg", {"Library/Masters/photo.jpg"}, "jpeg bytes");
        const auto photo = g->files()[1];
        h.putInLibrary(*photo, kNodeTypeCurrentIPhotoLibrary);
        photo->setInfo(PropertyValue::Dictionary{{"iPhotoVersion", c.version}, {"PhotoIsMovie", c.movie}});
        h.scan.defaults.setObject(PropertyValue(PropertyValue::Array{PropertyValue("/earlier/photo.jpg")}),
                                  kRemovedPhotosKey);
        struct stat before {};
        ::lstat(photo->path().c_str(), &before);
        auto pass = h.pass(toTrash);
        runPass(*pass);

        EXPECT_EQ(h.driver.launched, std::vector<std::string>{"com.apple.iphoto"});
        EXPECT_EQ(h.driver.scripts, std::vector<std::string>{replaceAll(c.script, "PATH", photo->path())});
        struct stat after {};
        ASSERT_EQ(::lstat(photo->path().c_str(), &after), 0) << "the application removes the photo, not we";
        EXPECT_EQ(after.st_ino, before.st_ino);
        EXPECT_EQ(test::TempTree::read(photo->path()), "jpeg bytes");
        EXPECT_FALSE(exists(h.homeTrash() + "/files/photo.jpg"));
        EXPECT_TRUE(h.view.handled.at(0).ok);
        EXPECT_TRUE(pass->iPhotoWasLaunched());
        EXPECT_EQ(h.view.count("showLibraryPopup photos"), 1u);
        EXPECT_EQ(h.view.count("hideLibraryPopup photos"), 1u);
        const PropertyValue expected(
            PropertyValue::Array{PropertyValue("/earlier/photo.jpg"), PropertyValue(photo->path())});
        EXPECT_EQ(h.scan.defaults.objectForKey(kRemovedPhotosKey), expected);
        UserDefaults onDisk(h.scan.defaults.path());
        EXPECT_EQ(onDisk.objectForKey(kRemovedPhotosKey), expected) << "flushed at the end of the pass";
    }
}

INSTANTIATE_TEST_SUITE_P(Versions, PhotoLibraryCopy,
                         testing::Values(PhotoCase{"Before93", "9.2.1", false, kPhotoAddScript},
                                         PhotoCase{"Exactly93", "9.3", false, kPhotoRemoveScript},
                                         PhotoCase{"Ten", "10.1", false, kPhotoRemoveScript},
                                         PhotoCase{"VideoBefore93", "8.1", true, kVideoAddScript},
                                         PhotoCase{"VideoAfter93", "9.4.2", true, kVideoRemoveScript}),
                         [](const auto& param) { return std::string(param.param.name); });

TEST(PhotoLibraryCopies, CantGetErrorIsRetriedOnce) {
    struct Case {
        std::vector<std::optional<PropertyValue::Dictionary>> answers;
        std::size_t scripts;
        bool ok;
    };
    const PropertyValue::Dictionary cantGet{{kScriptErrorNumberKey, std::int64_t{-1728}}};
    const PropertyValue::Dictionary other{{kScriptErrorNumberKey, std::int64_t{-1712}}};
    const Case cases[] = {
        {{cantGet, std::nullopt}, 2, true},
        {{cantGet, cantGet}, 2, false},
        {{other}, 1, false},
        {{cantGet, other}, 2, false},
    };
    for (const auto& c : cases) {
        RemovalHarness h;
        auto g = h.copies("kept.jpg", {"Library/photo.jpg"}, "jpeg");
        const auto photo = g->files()[1];
        h.putInLibrary(*photo, kNodeTypeCurrentIPhotoLibrary);
        photo->setInfo(PropertyValue::Dictionary{{"iPhotoVersion", "9.5"}});
        h.driver.scriptAnswers.assign(c.answers.begin(), c.answers.end());
        ScopedLogCapture log;
        bool ok = false;
        const CVError error = shredDuringAPass(h, *photo, true, ok);

        EXPECT_EQ(ok, c.ok);
        ASSERT_EQ(h.driver.scripts.size(), c.scripts);
        EXPECT_EQ(h.driver.scripts.front(), h.driver.scripts.back());
        EXPECT_EQ(
            log.contains("Received can't get trash error. Will try to recover by removing photo again."),
            c.answers[0] == cantGet);
        EXPECT_TRUE(exists(photo->path()));
        if (c.ok) {
            EXPECT_EQ(h.scan.defaults.arrayForKey(kRemovedPhotosKey)->size(), 1u);
        } else {
            EXPECT_EQ(error.domain, "com.halvik.Corvel.iPhotoRemoveError");
            EXPECT_EQ(error.code, 100500);
            EXPECT_TRUE(error.userInfo.count(kScriptErrorNumberKey)) << "carries the script's error";
            EXPECT_FALSE(h.scan.defaults.arrayForKey(kRemovedPhotosKey).has_value());
        }
    }
}

TEST(PhotoLibraryCopies, ALaunchFailureFailsEachCopyAndIsRetriedForTheNext) {
    RemovalHarness h;
    std::vector<std::shared_ptr<CVFile>> photos;
    for (int i = 0; i < 3; ++i) {
        auto g = h.copies("kept" + std::to_string(i) + ".jpg", {"Library/p" + std::to_string(i) + ".jpg"},
                          "jpeg " + std::to_string(i));
        photos.push_back(g->files()[1]);
        h.putInLibrary(*photos.back(), kNodeTypeCurrentIPhotoLibrary);
    }
    h.driver.launchAnswers = {false, false, true};
    auto pass = h.pass(true);
    runPass(*pass);

    EXPECT_EQ(h.driver.launched, std::vector<std::string>(3, "com.apple.iphoto"));
    EXPECT_EQ(h.driver.scripts.size(), 1u) << "only the launched application gets a script";
    ASSERT_EQ(h.view.handled.size(), 3u);
    EXPECT_FALSE(h.view.handled[0].ok);
    EXPECT_FALSE(h.view.handled[1].ok);
    EXPECT_TRUE(h.view.handled[2].ok);
    EXPECT_EQ(h.view.count("showLibraryPopup photos"), 3u);
    EXPECT_EQ(h.view.count("hideLibraryPopup photos"), 3u);
    for (const auto& photo : photos)
        EXPECT_TRUE(exists(photo->path()));
    EXPECT_EQ(pass->errorFilesCount(), 2u);

    // The error itself.
    RemovalHarness again;
    auto g = again.copies("kept.jpg", {"Library/p.jpg"}, "jpeg");
    again.putInLibrary(*g->files()[1], kNodeTypeCurrentIPhotoLibrary);
    again.driver.launchByDefault = false;
    bool ok = true;
    const CVError error = shredDuringAPass(again, *g->files()[1], true, ok);
    EXPECT_FALSE(ok);
    EXPECT_EQ(error.domain, "com.halvik.Corvel.iPhotoLaunchError");
    EXPECT_EQ(error.code, 100501);
    EXPECT_TRUE(again.driver.scripts.empty());
}

TEST(MusicLibraryCopies, AreDeletedFromTheLibraryThenTrashed) {
    RemovalHarness h;
    auto g = h.copies("kept.mp3", {"iTunes Media/Music/song.mp3"}, "mp3 bytes");
    const auto track = g->files()[1];
    h.putInLibrary(*track, kNodeTypeCurrentITunesLibrary);
    auto pass = h.pass(true);
    runPass(*pass);

    EXPECT_EQ(h.driver.launched, std::vector<std::string>{"com.apple.itunes"});
    EXPECT_EQ(h.driver.scripts,
              std::vector<std::string>{replaceAll(kMusicDeleteScript, "PATH", track->path())});
    EXPECT_FALSE(exists(track->path()));
    EXPECT_EQ(test::TempTree::read(h.homeTrash() + "/files/song.mp3"), "mp3 bytes");
    EXPECT_TRUE(pass->iTunesWasLaunched());
    EXPECT_EQ(h.view.count("showLibraryPopup music"), 1u);
    EXPECT_FALSE(h.scan.defaults.arrayForKey(kRemovedPhotosKey).has_value());
}

// ---------------------------------------------------------------------------------------
// Copies moved to the Trash in windows: each window's copies are checked and their names
// claimed (the next window while one is moved), then moved one by one.

std::size_t countIn(const std::string& folder, const std::string& extension = {}) {
    std::size_t count = 0;
    if (exists(folder))
        for (const auto& entry : std::filesystem::directory_iterator(folder))
            count += extension.empty() || entry.path().extension() == extension;
    return count;
}

// Waits until the Trash holds count information files (claims made by the pass's worker).
bool claimsReach(const RemovalHarness& h, std::size_t count) {
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (countIn(h.homeTrash() + "/info") < count && std::chrono::steady_clock::now() < until)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return countIn(h.homeTrash() + "/info") >= count;
}

// Something done to the later copies after the next one was checked and claimed, just
// before the first copy (c0) moves; what they must then become. With windows of one copy
// c1 was prepared by the worker and c2 is checked after the change; with one window all
// three were checked before it.
struct MeanwhileCase {
    const char* name;
    std::function<void(CVFile& copy)> change; // done to c1 and c2
    Outcome outcome;
    std::string error;
    friend void PrintTo(const MeanwhileCase& c, std::ostream* os) { *os << c.name; }
};

class RemovalWindowMeanwhile : public testing::TestWithParam<std::tuple<MeanwhileCase, std::size_t>> {};

TEST_P(RemovalWindowMeanwhile, LeavesAChangedCopyWhereItIs) {
    const MeanwhileCase& c = std::get<0>(GetParam());
    const std::size_t windowCopies = std::get<1>(GetParam());
    RemovalHarness h;
    std::vector<std::shared_ptr<CVFile>> copies;
    for (int i = 0; i < 3; ++i)
        copies.push_back(
            h.copies("k" + std::to_string(i), {"c" + std::to_string(i)}, "contents " + std::to_string(i))
                ->files()[1]);
    bool nextClaimed = false;
    h.trash.setBeforeMoveHook([&](const std::string& trashFile) {
        if (!trashFile.ends_with("/c0"))
            return;
        nextClaimed = claimsReach(h, 2);
        for (int i = 1; i < 3; ++i)
            c.change(*copies[i]);
    });
    auto options = h.options(true);
    options.windowCopies = windowCopies;
    auto pass = h.pass(options);
    runPass(*pass);
    EXPECT_TRUE(nextClaimed);
    EXPECT_FALSE(exists(copies[0]->path()));
    for (int i = 1; i < 3; ++i) {
        EXPECT_TRUE(exists(copies[i]->path()));
        const auto* record = recordOf(*pass, copies[i]->path());
        ASSERT_NE(record, nullptr);
        EXPECT_EQ(record->outcome, c.outcome);
        EXPECT_EQ(record->error, c.error);
    }
    EXPECT_EQ(countIn(h.homeTrash() + "/info"), 1u);
    EXPECT_EQ(countIn(h.homeTrash() + "/files"), 1u);
}

INSTANTIATE_TEST_SUITE_P(
    Windows, RemovalWindowMeanwhile,
    testing::Combine(
        testing::Values(MeanwhileCase{"EditedInPlace",
                                      [](CVFile& copy) {
                                          std::ofstream(copy.path(), std::ios::app) << " edited";
                                      },
                                      Outcome::Failed, "changed since the scan"},
                        MeanwhileCase{"TouchedAtTheSameSize",
                                      [](CVFile& copy) {
                                          const timespec later[2] = {{0, UTIME_OMIT}, {2000000000, 0}};
                                          ::utimensat(AT_FDCWD, copy.path().c_str(), later, 0);
                                      },
                                      Outcome::Failed, "changed since the scan"},
                        MeanwhileCase{"Unmarked", [](CVFile& copy) { copy.setNeedToRemove(false); },
                                      Outcome::NotHandled, ""}),
        testing::Values(std::size_t{1}, std::size_t{1024})),
    [](const auto& param) {
        return std::string(std::get<0>(param.param).name) + "InWindowsOf" +
               std::to_string(std::get<1>(param.param));
    });

// Two groups that keep each other's copy (a plan can say so): the first move takes the
// kept copy of the second, which must then stay, checked before or not.
class RemovalKeptCopyTaken : public testing::TestWithParam<std::size_t> {};

TEST_P(RemovalKeptCopyTaken, ByAnEarlierMoveLeavesTheCopyWhereItIs) {
    RemovalHarness h;
    const std::string p = h.tree.file("files/p.txt", "same bytes");
    const std::string q = h.tree.file("files/q.txt", "same bytes");
    h.group({p, q}, {1}); // p stays, q goes
    h.group({q, p}, {1}); // q stays, p goes
    bool secondClaimed = false;
    h.trash.setBeforeMoveHook([&](const std::string& trashFile) {
        if (trashFile.ends_with("/q.txt"))
            secondClaimed = claimsReach(h, 2);
    });
    auto options = h.options(true);
    options.windowCopies = GetParam();
    auto pass = h.pass(options);
    runPass(*pass);
    EXPECT_TRUE(secondClaimed) << "p was checked while q was still there";
    EXPECT_FALSE(exists(q));
    EXPECT_EQ(test::TempTree::read(p), "same bytes");
    ASSERT_EQ(pass->records().size(), 2u);
    EXPECT_EQ(pass->records()[0].outcome, Outcome::Trashed);
    EXPECT_EQ(pass->records()[1].outcome, Outcome::Failed);
    EXPECT_EQ(pass->records()[1].error, std::string(kReasonNoKeptCopy) + " (" + q + ": missing)");
    EXPECT_EQ(countIn(h.homeTrash() + "/info"), 1u);
}

INSTANTIATE_TEST_SUITE_P(Windows, RemovalKeptCopyTaken, testing::Values(std::size_t{1}, std::size_t{1024}),
                         [](const auto& param) { return "InWindowsOf" + std::to_string(param.param); });

// Windows of four copies: the second is checked and claimed while the first moves; a stop
// in the first undoes the claims of both.
TEST(RemovalWindows, AStopLeavesTheWindowPreparedAheadWhereItWas) {
    RemovalHarness h;
    constexpr std::size_t kCopies = 10;
    std::vector<std::shared_ptr<CVFile>> copies;
    for (std::size_t i = 0; i < kCopies; ++i)
        copies.push_back(
            h.copies("k" + std::to_string(i), {"c" + std::to_string(i)}, "n " + std::to_string(i))
                ->files()[1]);
    // A locked copy of the second window is unlocked for its claim, and locked again.
    test::ImmutableFlags flags;
    const bool canLock = test::immutableFlagUnavailable(h.tree).empty();
    if (canLock) {
        ASSERT_TRUE(flags.lock(copies[5]->path()));
    }
    auto options = h.options(true);
    options.windowCopies = 4;
    auto pass = h.pass(options);
    bool secondWindowClaimed = false;
    h.view.onTick = [&](std::uint64_t handled, std::uint64_t) {
        if (handled != 2)
            return;
        // The worker claims the second window meanwhile: four more information files.
        secondWindowClaimed = claimsReach(h, 8) && countIn(h.homeTrash() + "/info") == 8;
        pass->requestStop();
    };
    runPass(*pass);
    ASSERT_TRUE(pass->stopped());
    EXPECT_TRUE(secondWindowClaimed);
    for (std::size_t i = 0; i < kCopies; ++i) {
        const auto* record = recordOf(*pass, copies[i]->path());
        ASSERT_NE(record, nullptr) << i;
        EXPECT_EQ(record->outcome, i < 2 ? Outcome::Trashed : Outcome::NotHandled) << i;
        EXPECT_EQ(exists(copies[i]->path()), i >= 2) << i;
        EXPECT_TRUE(copies[i]->needToRemove()) << i;
    }
    EXPECT_EQ(countIn(h.homeTrash() + "/info", ".trashinfo"), 2u);
    EXPECT_EQ(countIn(h.homeTrash() + "/files"), 2u);
    EXPECT_EQ(pass->count(), kCopies - 2);
    if (canLock) {
        EXPECT_EQ(isImmutable(copies[5]->path()), std::optional<bool>(true));
    } else {
        std::cout << "[ NOTE     ] the immutable flag is not available here: locking again not checked\n";
    }
}

// Without a usable Trash a copy fails and stays: nothing falls back to deleting it, neither a
// plain copy (moved in windows) nor a music-library copy (moved one at a time).
TEST(RemovalWithoutATrash, FailsEveryCopyAndDeletesNothing) {
    RemovalHarness h;
    auto plain = h.copies("kept.txt", {"plain.txt"}, "text");
    auto music = h.copies("kept.mp3", {"iTunes Media/Music/song.mp3"}, "mp3 bytes");
    h.putInLibrary(*music->files()[1], kNodeTypeCurrentITunesLibrary);
    h.tree.file("data", "a file where the Trash's folder would be");
    auto pass = h.pass(true);
    runPass(*pass);

    for (const auto& copy : {plain->files()[1], music->files()[1]}) {
        EXPECT_TRUE(exists(copy->path())) << copy->path();
        const auto* record = recordOf(*pass, copy->path());
        ASSERT_NE(record, nullptr) << copy->path();
        EXPECT_EQ(record->outcome, Outcome::Failed) << copy->path();
        EXPECT_FALSE(record->error.empty()) << copy->path();
    }
    const auto* plainRecord = recordOf(*pass, plain->files()[1]->path());
    EXPECT_TRUE(plainRecord->noTrashOnVolume);
    EXPECT_TRUE(plainRecord->error.starts_with("no Trash on this volume (")) << plainRecord->error;
    EXPECT_NE(plainRecord->error.find(h.tree / "data"), std::string::npos)
        << "the reason names what stood in the way: " << plainRecord->error;
}

TEST(MusicLibraryCopies, AFailedScriptLeavesTheFile) {
    for (const bool launches : {true, false}) {
        RemovalHarness h;
        auto g = h.copies("kept.mp3", {"iTunes Media/song.mp3"}, "mp3");
        const auto track = g->files()[1];
        h.putInLibrary(*track, kNodeTypeCurrentITunesLibrary);
        h.driver.launchByDefault = launches;
        h.driver.scriptAnswers = {PropertyValue::Dictionary{{kScriptErrorNumberKey, std::int64_t{-1708}}}};
        bool ok = true;
        const CVError error = shredDuringAPass(h, *track, false, ok);
        EXPECT_FALSE(ok);
        EXPECT_TRUE(exists(track->path()));
        EXPECT_EQ(error.domain,
                  launches ? "com.halvik.Corvel.iTunesRemoveError" : "com.halvik.Corvel.iTunesLaunchError");
        EXPECT_EQ(error.code, launches ? 100500 : 100501);
    }
}

TEST(LinuxLibraryDriver, FailsEveryLibraryCopyAndTouchesNothing) {
    RemovalHarness h;
    auto photos = h.copies("kept.jpg", {"Photos/p.jpg"}, "jpeg");
    auto music = h.copies("kept.mp3", {"Music/s.mp3"}, "mp3");
    auto plain = h.copies("kept.txt", {"plain.txt"}, "text");
    h.putInLibrary(*photos->files()[1], kNodeTypeCurrentIPhotoLibrary);
    h.putInLibrary(*music->files()[1], kNodeTypeCurrentITunesLibrary);
    LinuxLibraryAppDriver linuxDriver;
    CVRemovalPass pass(h.services(linuxDriver), h.options(true));
    runPass(pass);

    EXPECT_TRUE(exists(photos->files()[1]->path()));
    EXPECT_TRUE(exists(music->files()[1]->path()));
    EXPECT_FALSE(exists(plain->files()[1]->path()));
    EXPECT_EQ(recordOf(pass, photos->files()[1]->path())->outcome, Outcome::Failed);
    EXPECT_EQ(recordOf(pass, music->files()[1]->path())->outcome, Outcome::Failed);
    EXPECT_EQ(pass.errorFilesCount(), 2u);
    EXPECT_FALSE(h.scan.defaults.arrayForKey(kRemovedPhotosKey).has_value());
    for (const auto* path : {"/files/p.jpg", "/files/s.mp3"})
        EXPECT_FALSE(exists(h.homeTrash() + path));

    EXPECT_TRUE(h.view.handled.at(0).reason.find("started") != std::string::npos)
        << h.view.handled.at(0).reason;

    RemovalHarness again;
    auto track = again.copies("kept.mp3", {"Music/s.mp3"}, "mp3");
    again.putInLibrary(*track->files()[1], kNodeTypeCurrentITunesLibrary);
    again.copies("start kept", {"start copy"}, "starts the pass");
    CVRemovalPass direct(again.services(linuxDriver), again.options(true));
    CVError error;
    bool ok = true;
    again.view.onStart = [&] { ok = direct.shredDuplicateFile(*track->files()[1], true, &error); };
    runPass(direct);
    EXPECT_FALSE(ok);
    EXPECT_EQ(error.domain, "com.halvik.Corvel.iTunesLaunchError");
    EXPECT_EQ(error.code, 100501);
    EXPECT_TRUE(exists(track->files()[1]->path()));
}

// ---------------------------------------------------------------------------------------
// Locked copies.

class LockedCopies : public testing::Test {
protected:
    void SetUp() override {
        const std::string why = test::immutableFlagUnavailable(h.tree);
        if (!why.empty())
            GTEST_SKIP() << why;
    }
    RemovalHarness h;
    test::ImmutableFlags flags; // cleared before the trees go
};

TEST_F(LockedCopies, AreUnlockedAndRemoved) {
    for (const bool toTrash : {true, false}) {
        auto g = h.copies(toTrash ? "keptT" : "keptD", {toTrash ? "lockedT" : "lockedD"}, "locked contents");
        const std::string copy = g->files()[1]->path();
        const std::string kept = g->files()[0]->path();
        ASSERT_TRUE(flags.lock(copy));
        ASSERT_TRUE(flags.lock(kept));
        auto pass = h.pass(toTrash);
        runPass(*pass);
        EXPECT_FALSE(exists(copy));
        EXPECT_EQ(recordOf(*pass, copy)->outcome, toTrash ? Outcome::Trashed : Outcome::Deleted)
            << recordOf(*pass, copy)->error;
        EXPECT_EQ(isImmutable(kept), std::optional<bool>(true)) << "the kept copy stays locked";
    }
    EXPECT_EQ(test::TempTree::read(h.homeTrash() + "/files/lockedT"), "locked contents");
}

TEST_F(LockedCopies, AreLockedAgainWhenTheRemovalFails) {
    for (const bool toTrash : {true, false}) {
        const std::string folder = toTrash ? "lockedFolderT" : "lockedFolderD";
        auto g = h.copies("kept" + folder, {folder + "/copy"}, "contents");
        const std::string copy = g->files()[1]->path();
        ASSERT_TRUE(flags.lock(copy));
        ASSERT_TRUE(flags.lock(h.files(folder)));
        auto pass = h.pass(toTrash, /*removeEmptyFolders*/ true);
        runPass(*pass);
        EXPECT_TRUE(exists(copy));
        EXPECT_EQ(recordOf(*pass, copy)->outcome, Outcome::Failed);
        EXPECT_EQ(isImmutable(copy), std::optional<bool>(true)) << (toTrash ? "trash" : "delete");
        EXPECT_EQ(test::TempTree::read(copy), "contents");
    }
}

// ---------------------------------------------------------------------------------------
// Clean-up of the emptied parent folder.

struct CleanUpSetup {
    std::string copy;
    std::string folder;                 // the copy's folder
    std::vector<std::string> mustStay;  // besides the kept copy
    std::vector<std::string> scanRoots; // besides files/
};

struct CleanUpCase {
    const char* name;
    bool toTrash;
    std::optional<bool> option; // the pass's option; nothing: the preference decides
    bool preference;            // "RemoveEmptyFolders"
    bool folderGoes;
    std::function<CleanUpSetup(RemovalHarness&)> setup;
    friend void PrintTo(const CleanUpCase& c, std::ostream* os) { *os << c.name; }
};

// kept.txt in files/, the copy in files/a/ (or where the case says).
CleanUpSetup copyIn(RemovalHarness& h, const std::string& folder, const std::vector<std::string>& extras) {
    h.tree.file("files/kept.txt", "same");
    const std::string copy = h.tree.file(folder + "/copy.txt", "same");
    std::vector<std::string> stay;
    for (const auto& extra : extras)
        stay.push_back(h.tree.file(folder + "/" + extra, "extra"));
    h.group({h.files("kept.txt"), copy}, {1});
    return {copy, h.tree / folder, stay, {}};
}

// As copyIn, with a ".DS_Store" beside the copy that is the kept copy of another group.
CleanUpSetup copyWithGroupedLeftover(RemovalHarness& h) {
    CleanUpSetup s = copyIn(h, "files/a", {".DS_Store"});
    const std::string other = h.tree.file("files/b/.DS_Store", "extra");
    h.group({s.folder + "/.DS_Store", other}, {});
    s.mustStay.push_back(s.folder + "/.DS_Store");
    return s;
}

// As copyIn, with a ".DS_Store" that is a folder holding a user's file: content, not a
// leftover, so the folder is not empty (and delete mode uses only unlink and rmdir).
CleanUpSetup copyBesideAFolderNamedLikeALeftover(RemovalHarness& h) {
    CleanUpSetup s = copyIn(h, "files/a", {});
    s.mustStay.push_back(h.tree.file("files/a/.DS_Store/user file.txt", "keep me"));
    return s;
}

class ParentCleanUp : public testing::TestWithParam<CleanUpCase> {};

TEST_P(ParentCleanUp, RemovesOnlyAFolderLeftEmpty) {
    const auto& c = GetParam();
    RemovalHarness h;
    h.scan.defaults.setBool(c.preference, kRemoveEmptyFoldersKey);
    const CleanUpSetup s = c.setup(h);
    auto options = h.options(c.toTrash);
    options.removeEmptyFolders = c.option;
    options.scanRoots.insert(options.scanRoots.end(), s.scanRoots.begin(), s.scanRoots.end());
    auto pass = h.pass(options);
    runPass(*pass);

    EXPECT_FALSE(exists(s.copy));
    EXPECT_EQ(recordOf(*pass, s.copy)->outcome, c.toTrash ? Outcome::Trashed : Outcome::Deleted);
    EXPECT_TRUE(exists(h.files("kept.txt")));
    EXPECT_EQ(exists(s.folder), !c.folderGoes);
    EXPECT_EQ(pass->removedFolders(),
              c.folderGoes ? std::vector<std::string>{s.folder} : std::vector<std::string>{});
    for (const auto& path : s.mustStay) {
        if (!c.folderGoes || !path.starts_with(s.folder + "/")) {
            EXPECT_TRUE(exists(path)) << path;
        }
    }
    if (c.folderGoes && c.toTrash) {
        const std::string name = s.folder.substr(s.folder.rfind('/') + 1);
        EXPECT_TRUE(exists(h.homeTrash() + "/files/" + name)) << "the folder is in the Trash";
    }
}

INSTANTIATE_TEST_SUITE_P(
    Cases, ParentCleanUp,
    testing::Values(CleanUpCase{"OnlyDSStoreLeftTrash", true, true, false, true,
                                [](RemovalHarness& h) { return copyIn(h, "files/a", {".DS_Store"}); }},
                    CleanUpCase{"OnlyDSStoreLeftDelete", false, true, false, true,
                                [](RemovalHarness& h) { return copyIn(h, "files/a", {".DS_Store"}); }},
                    CleanUpCase{"NothingLeftDelete", false, true, false, true,
                                [](RemovalHarness& h) { return copyIn(h, "files/a", {}); }},
                    // A ".DS_Store" that a group holds (a hand-edited plan: the only other copy of
                    // its content may be this one) is content, not a leftover.
                    CleanUpCase{"AGroupedDSStoreIsContentTrash", true, true, false, false,
                                [](RemovalHarness& h) { return copyWithGroupedLeftover(h); }},
                    CleanUpCase{"AGroupedDSStoreIsContentDelete", false, true, false, false,
                                [](RemovalHarness& h) { return copyWithGroupedLeftover(h); }},
                    CleanUpCase{"TwoEntriesLeftTrash", true, true, false, false,
                                [](RemovalHarness& h) {
                                    return copyIn(h, "files/a", {".DS_Store", "other.txt"});
                                }},
                    CleanUpCase{"TwoEntriesLeftDelete", false, true, false, false,
                                [](RemovalHarness& h) {
                                    return copyIn(h, "files/a", {".DS_Store", "other.txt"});
                                }},
                    CleanUpCase{"AHiddenFileLeftTrash", true, true, false, false,
                                [](RemovalHarness& h) { return copyIn(h, "files/a", {".hidden"}); }},
                    CleanUpCase{"OptionOff", true, false, true, false,
                                [](RemovalHarness& h) { return copyIn(h, "files/a", {".DS_Store"}); }},
                    CleanUpCase{"PreferenceOn", true, std::nullopt, true, true,
                                [](RemovalHarness& h) { return copyIn(h, "files/a", {".DS_Store"}); }},
                    CleanUpCase{"PreferenceOff", false, std::nullopt, false, false,
                                [](RemovalHarness& h) { return copyIn(h, "files/a", {".DS_Store"}); }},
                    CleanUpCase{"NeverAScanRootTrash", true, true, false, false,
                                [](RemovalHarness& h) {
                                    auto s = copyIn(h, "files/a", {".DS_Store"});
                                    s.scanRoots = {h.files("a")};
                                    return s;
                                }},
                    CleanUpCase{"NeverAScanRootDelete", false, true, false, false,
                                [](RemovalHarness& h) {
                                    auto s = copyIn(h, "files/a", {".DS_Store"});
                                    s.scanRoots = {h.files("a")};
                                    return s;
                                }},
                    CleanUpCase{"NeverAScanRootWrittenWithASlash", false, true, false, false,
                                [](RemovalHarness& h) {
                                    auto s = copyIn(h, "files/a", {});
                                    s.scanRoots = {h.files("a") + "/"};
                                    return s;
                                }},
                    CleanUpCase{"OnlyOneLevel", false, true, false, true,
                                [](RemovalHarness& h) {
                                    auto s = copyIn(h, "files/a/b", {".DS_Store"});
                                    s.mustStay.push_back(h.files("a"));
                                    return s;
                                }},
                    CleanUpCase{"DeleteIsNeverRecursive", false, true, false, false,
                                [](RemovalHarness& h) { return copyBesideAFolderNamedLikeALeftover(h); }},
                    CleanUpCase{"AFolderNamedLikeALeftoverIsContentTrash", true, true, false, false,
                                [](RemovalHarness& h) { return copyBesideAFolderNamedLikeALeftover(h); }},
                    CleanUpCase{"ALinkNamedLikeALeftoverIsContentTrash", true, true, false, false,
                                [](RemovalHarness& h) {
                                    auto s = copyIn(h, "files/a", {});
                                    const std::string link = s.folder + "/.DS_Store";
                                    EXPECT_EQ(::symlink("../kept.txt", link.c_str()), 0);
                                    s.mustStay.push_back(link);
                                    return s;
                                }}),
    [](const auto& param) { return std::string(param.param.name); });

// A file that arrives in the emptied folder while the clean-up moves it to the Trash (after
// the folder was read, before the rename) keeps the folder where it is, also when the
// folder's modification time is put back after it (as rsync and cp -a do).
TEST(ParentCleanUpGuards, AFolderThatGainsAFileIsNotMovedToTheTrash) {
    for (const bool timePutBack : {false, true}) {
        SCOPED_TRACE(timePutBack ? "time put back" : "time left");
        RemovalHarness h;
        const CleanUpSetup s = copyIn(h, "files/a", {});
        bool arrived = false;
        h.trash.setBeforeMoveHook([&](const std::string& trashFile) {
            if (!trashFile.ends_with("/a"))
                return;
            struct stat before {};
            ASSERT_EQ(::lstat(s.folder.c_str(), &before), 0);
            std::ofstream(s.folder + "/late.txt") << "new";
            const timespec times[2] = {before.st_atim, before.st_mtim};
            if (timePutBack) {
                ASSERT_EQ(::utimensat(AT_FDCWD, s.folder.c_str(), times, 0), 0);
            }
            arrived = true;
        });
        auto pass = h.pass(true, true);
        runPass(*pass);
        EXPECT_FALSE(exists(s.copy));
        ASSERT_TRUE(arrived) << "the clean-up did not try to move the folder";
        EXPECT_TRUE(exists(s.folder + "/late.txt"));
        EXPECT_TRUE(pass->removedFolders().empty());
    }
}

// Folders the ignore list protects: the home folder and the user folders in it.
TEST(ParentCleanUpGuards, NeverRemovesAProtectedFolder) {
    for (const bool toTrash : {true, false}) {
        for (const char* folder : {"", "/Downloads", "/Music"}) {
            RemovalHarness h;
            const std::string protectedFolder = h.home() + folder;
            ASSERT_TRUE(h.scan.ignoreList.isFolderForbiddenToRemove(protectedFolder)) << protectedFolder;
            const std::string kept = h.tree.file("files/kept.txt", "same");
            const std::string copy = protectedFolder + "/copy.txt";
            ASSERT_TRUE(makeDirectories(protectedFolder, nullptr));
            std::ofstream(copy) << "same";
            std::ofstream(protectedFolder + "/.DS_Store") << "finder";
            h.group({kept, copy}, {1});
            auto pass = h.pass(toTrash, true);
            runPass(*pass);
            EXPECT_FALSE(exists(copy));
            EXPECT_TRUE(exists(protectedFolder + "/.DS_Store")) << protectedFolder;
            EXPECT_TRUE(pass->removedFolders().empty());
        }
    }
}

// A copy that is the home folder or one of its standard folders stays, whatever a plan
// or a selection marked: the copy fails, and its kept copy is not touched either.
TEST(ProtectedFolders, AreNeverRemovedAsCopies) {
    for (const bool toTrash : {true, false}) {
        for (const char* folder : {"", "/Pictures"}) {
            RemovalHarness h;
            const std::string protectedFolder = h.home() + folder;
            ASSERT_TRUE(makeDirectories(protectedFolder, nullptr));
            std::ofstream(protectedFolder + "/photo.jpg") << "same";
            const std::string backup = h.tree.folder("files/backup");
            std::ofstream(backup + "/photo.jpg") << "same";
            h.group({backup, protectedFolder}, {1});
            auto pass = h.pass(toTrash, false);
            runPass(*pass);
            EXPECT_TRUE(exists(protectedFolder + "/photo.jpg")) << protectedFolder;
            EXPECT_TRUE(exists(backup + "/photo.jpg"));
            ASSERT_EQ(pass->records().size(), 1u);
            EXPECT_EQ(pass->records()[0].outcome, Outcome::Failed);
            EXPECT_EQ(pass->records()[0].error, kReasonProtectedFolder);
        }
    }
}

// The same folder named through a link (a home moved elsewhere and linked back, a plan
// written with another spelling) is the same protected folder.
TEST(ProtectedFolders, AreKnownUnderAnotherPath) {
    RemovalHarness h;
    const std::string pictures = h.home() + "/Pictures";
    ASSERT_TRUE(makeDirectories(pictures, nullptr));
    std::ofstream(pictures + "/photo.jpg") << "same";
    const std::string backup = h.tree.folder("files/backup");
    std::ofstream(backup + "/photo.jpg") << "same";
    const std::string linkedHome = h.tree.symlink("files/linked home", h.home());
    h.group({backup, linkedHome + "/Pictures"}, {1});
    auto pass = h.pass(true, false);
    runPass(*pass);
    EXPECT_TRUE(exists(pictures + "/photo.jpg"));
    ASSERT_EQ(pass->records().size(), 1u);
    EXPECT_EQ(pass->records()[0].error, kReasonProtectedFolder);
}

// The same folders reached through a bind mount (of home, or of the folder above it) show
// another path but the same folder: still protected, as copies and in the clean-up.
TEST(ProtectedFolders, AreKnownThroughABindMount) {
    struct Case {
        bool bindAboveHome; // else home itself is bound
        const char* copyInView;
    };
    for (const bool toTrash : {true, false}) {
        for (const Case c : {Case{false, "/Pictures"}, Case{false, ""}, Case{true, ""}}) {
            const char* copyInView = c.copyInView;
            RemovalHarness h;
            const std::string pictures = h.home() + "/Pictures";
            ASSERT_TRUE(makeDirectories(pictures, nullptr));
            std::ofstream(pictures + "/photo.jpg") << "same";
            const std::string view = h.tree.folder("files/view");
            test::ScopedMount bind(c.bindAboveHome ? parentPath(h.home()) : h.home(), view, nullptr, MS_BIND);
            if (!bind.mounted())
                GTEST_SKIP() << bind.why();
            // A backup that matches the copy taken through the view.
            const std::string backup = h.tree.folder("files/backup");
            if (*copyInView == '\0') {
                ASSERT_TRUE(makeDirectories(backup + "/Pictures", nullptr));
                std::ofstream(backup + "/Pictures/photo.jpg") << "same";
            } else {
                std::ofstream(backup + "/photo.jpg") << "same";
            }
            h.group({backup, view + copyInView}, {1});
            auto pass = h.pass(toTrash, false);
            runPass(*pass);
            EXPECT_TRUE(exists(pictures + "/photo.jpg")) << copyInView << c.bindAboveHome;
            ASSERT_EQ(pass->records().size(), 1u);
            EXPECT_EQ(pass->records()[0].error, kReasonProtectedFolder) << copyInView << c.bindAboveHome;
        }
    }
}

TEST(ParentCleanUpGuards, NeverRemovesAProtectedFolderReachedThroughABindMount) {
    for (const bool toTrash : {true, false}) {
        RemovalHarness h;
        const std::string music = h.home() + "/Music";
        ASSERT_TRUE(makeDirectories(music, nullptr));
        const std::string view = h.tree.folder("files/view");
        test::ScopedMount bind(h.home(), view, nullptr, MS_BIND);
        if (!bind.mounted())
            GTEST_SKIP() << bind.why();
        const std::string kept = h.tree.file("files/kept.txt", "same");
        std::ofstream(music + "/copy.txt") << "same";
        h.group({kept, view + "/Music/copy.txt"}, {1});
        auto pass = h.pass(toTrash, true);
        runPass(*pass);
        EXPECT_FALSE(exists(music + "/copy.txt"));
        EXPECT_TRUE(exists(music)) << (toTrash ? "trash" : "delete");
        EXPECT_TRUE(pass->removedFolders().empty());
    }
}

// A copy that is itself a mount point (a mounted volume, a bind mount) is never emptied: what
// is mounted there may lie outside every folder the user named, and the mount point itself
// could not go anyway.
TEST(RemovalGuards, AMountPointIsNeverACopy) {
    for (const bool toTrash : {true, false}) {
        for (const bool bindMount : {false, true}) {
            RemovalHarness h;
            const std::string backup = h.tree.folder("files/backup");
            std::ofstream(backup + "/photo.jpg") << "same";
            const std::string mounted = h.tree.folder("files/volume");
            const std::string source = h.tree.folder("elsewhere");
            test::ScopedMount mount(bindMount ? source : "corvel-test", mounted,
                                    bindMount ? nullptr : "tmpfs", bindMount ? MS_BIND : 0);
            if (!mount.mounted())
                GTEST_SKIP() << mount.why();
            std::ofstream(mounted + "/photo.jpg") << "same";
            h.group({backup, mounted}, {1});
            auto pass = h.pass(toTrash, false);
            runPass(*pass);
            EXPECT_TRUE(exists(mounted + "/photo.jpg")) << (bindMount ? "bind" : "tmpfs");
            ASSERT_EQ(pass->records().size(), 1u);
            EXPECT_EQ(pass->records()[0].outcome, Outcome::Failed);
            EXPECT_EQ(pass->records()[0].error, kReasonMountPoint);
        }
    }
}

// A path with a NUL byte in it (a hand-edited plan) would reach the system as the path
// before the NUL: another file, which must not go in its place.
TEST(RemovalGuards, APathWithANulByteIsNeverActedOn) {
    for (const bool toTrash : {true, false}) {
        RemovalHarness h;
        const std::string kept = h.tree.file("files/kept", "same");
        const std::string other = h.tree.file("files/other", "same");
        h.group({kept, other + std::string(1, '\0') + "junk"}, {1});
        auto pass = h.pass(toTrash, false);
        runPass(*pass);
        EXPECT_TRUE(exists(other)) << (toTrash ? "trash" : "delete");
        ASSERT_EQ(pass->records().size(), 1u);
        EXPECT_EQ(pass->records()[0].outcome, Outcome::Failed);
        EXPECT_EQ(pass->records()[0].error, "its path holds a NUL byte");
    }
}

// Copies spread over many folders, under a low limit on open descriptors: a window keeps
// each of its folders (and that folder's Trash) open, so windows take few enough folders
// for every copy to go.
TEST(RemovalWindows, CopiesInManyFoldersStayWithinTheDescriptorLimit) {
    constexpr int kFolders = 300;
    RemovalHarness h;
    for (int i = 0; i < kFolders; ++i)
        h.copies("keep/k" + std::to_string(i), {"d" + std::to_string(i) + "/copy"},
                 "same " + std::to_string(i));
    struct rlimit before {};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
    struct rlimit low = before;
    low.rlim_cur = std::min<rlim_t>(before.rlim_cur, 640);
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &low), 0);
    auto pass = h.pass(true);
    runPass(*pass);
    ::setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_EQ(pass->removedFiles(), static_cast<std::uint64_t>(kFolders));
    for (const auto& record : pass->records())
        EXPECT_EQ(record.outcome, Outcome::Trashed) << record.file->path() << ": " << record.error;
}

// A volume made read-only after the scan: the dry run says the copy would fail, as the real
// run then does, and the failure does not suggest deleting instead, which would fail too.
TEST(RemovalOnAReadOnlyVolume, TheDryRunSaysWhatTheRealRunDoesAndNoDeletingIsSuggested) {
    for (const bool toTrash : {true, false}) {
        SCOPED_TRACE(toTrash ? "to the Trash" : "deleting outright");
        RemovalHarness h;
        const std::string volume = h.tree.folder("files/volume");
        test::ScopedMount mount("corvel-test", volume, "tmpfs", 0, "size=1m");
        if (!mount.mounted())
            GTEST_SKIP() << mount.why();
        const std::string kept = h.tree.file("files/kept.txt", "same");
        const std::string copy = h.tree.file("files/volume/copy.txt", "same");
        h.group({kept, copy}, {1});
        ASSERT_EQ(::mount(nullptr, volume.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0)
            << std::strerror(errno);
        auto dry = h.dryRun(toTrash);
        auto real = h.pass(toTrash, false);
        runPass(*real);
        ASSERT_EQ(dry->records().size(), 1u);
        ASSERT_EQ(real->records().size(), 1u);
        EXPECT_EQ(dry->records()[0].outcome, Outcome::WouldFail);
        EXPECT_EQ(real->records()[0].outcome, Outcome::Failed);
        const std::string said = toTrash ? "no Trash on this volume (" : "remove " + copy + ": ";
        EXPECT_TRUE(dry->records()[0].error.starts_with(said)) << dry->records()[0].error;
        EXPECT_TRUE(real->records()[0].error.starts_with(said)) << real->records()[0].error;
        EXPECT_FALSE(real->records()[0].noTrashOnVolume);
        EXPECT_TRUE(exists(copy));
    }
}

// A copy in a folder the user may not change (here a folder made read-only for its owner,
// who is not root: root may change every folder, so the dry run runs as another account
// that owns the tree): the dry run says it would fail rather than promise a removal.
TEST(RemovalDryRunRefusals, AFolderTheUserMayNotChangeIsNamed) {
    for (const bool toTrash : {true, false}) {
        SCOPED_TRACE(toTrash ? "trash" : "delete");
        RemovalHarness h;
        const std::string kept = h.tree.file("files/kept.txt", "same");
        const std::string copy = h.tree.file("files/locked/copy.txt", "same");
        h.group({kept, copy}, {1});
        test::giveToAnotherUser(h.tree.path());
        ASSERT_EQ(::chmod(h.files("locked").c_str(), 0555), 0);
        const int answer = test::runAsAnotherUser([&] {
            auto dry = h.dryRun(toTrash);
            if (dry->records().size() != 1 || dry->records()[0].outcome != Outcome::WouldFail)
                return 1;
            return dry->records()[0].error.find(std::strerror(EACCES)) != std::string::npos ? 0 : 2;
        });
        ::chmod(h.files("locked").c_str(), 0755);
        EXPECT_EQ(answer, 0) << "1: no refusal, 2: another reason, 125: no other account";
        EXPECT_EQ(test::TempTree::read(copy), "same");
    }
}

// A folder copy the user may not write in: moving it would rewrite its ".." entry, so the
// dry run says it would fail, as the move then does (as another account: root may).
TEST(RemovalDryRunRefusals, AFolderCopyTheUserMayNotWriteInWouldNotMove) {
    RemovalHarness h;
    h.tree.file("files/kept/x", "same");
    h.tree.file("files/copy/x", "same");
    h.group({h.files("kept"), h.files("copy")}, {1});
    test::giveToAnotherUser(h.tree.path());
    ASSERT_EQ(::chmod(h.files("copy").c_str(), 0555), 0);
    const int answer = test::runAsAnotherUser([&] {
        auto dry = h.dryRun(true);
        if (dry->records().size() != 1 || dry->records()[0].outcome != Outcome::WouldFail ||
            dry->records()[0].error != std::strerror(EACCES))
            return 1;
        auto pass = h.pass(true);
        runPass(*pass);
        return pass->records()[0].outcome == Outcome::Failed ? 0 : 2;
    });
    ::chmod(h.files("copy").c_str(), 0755);
    EXPECT_EQ(answer, 0) << "1: the dry run promised the move, 2: the move went, 125: no other account";
    EXPECT_EQ(test::TempTree::read(h.files("copy/x")), "same");
}

TEST(ParentCleanUpGuards, NeverTouchesAMountPoint) {
    RemovalHarness h;
    const std::string mountPoint = h.tree.folder("files/volume");
    test::ScopedMount mount("tmpfs", mountPoint, "tmpfs", 0, "size=1m");
    if (!mount.mounted())
        GTEST_SKIP() << "needs root and mount(2) for a tmpfs (" << mount.why() << ")";
    ASSERT_EQ(volumePathOfPath(mountPoint), mountPoint);
    const std::string kept = h.tree.file("files/kept.txt", "same");
    const std::string copy = h.tree.file("files/volume/copy.txt", "same");
    const std::string finder = h.tree.file("files/volume/.DS_Store", "finder");
    h.group({kept, copy}, {1});
    auto pass = h.pass(false, true);
    runPass(*pass);
    EXPECT_FALSE(exists(copy));
    EXPECT_TRUE(exists(finder)) << "nothing inside a mount point is cleaned";
    EXPECT_EQ(volumePathOfPath(mountPoint), mountPoint);
    EXPECT_TRUE(pass->removedFolders().empty());
}

// ---------------------------------------------------------------------------------------
// The end of a pass, on its own thread or called on the main thread.

enum class RunOn { PassThread, MainThread };

void run(CVRemovalPass& pass, RunOn on) {
    if (on == RunOn::PassThread) {
        runPass(pass);
    } else {
        pass.cleanDuplicates();
        MainQueue::shared().drain();
    }
}

class RemovalEnd : public testing::TestWithParam<RunOn> {};

TEST_P(RemovalEnd, ACompletePassReportsEverywhereAndFlushesTheSettings) {
    RemovalHarness h;
    h.scan.defaults.setObject(PropertyValue(std::int64_t{4000000000 - 10}), kTotalSizeSavedKey);
    HVAchievementsController achievements(h.scan.defaults);
    auto a = h.copies("ka", {"ca"}, std::string(3000, 'a'));
    auto b = h.copies("kb", {"cb1", "cb2"}, std::string(5000, 'b'));
    const std::uint64_t removed =
        a->files()[1]->sizeOnDisk() + b->files()[1]->sizeOnDisk() + b->files()[2]->sizeOnDisk();
    CVRemovalPass pass({*h.results, h.scan.defaults, h.scan.preferences, h.scan.ignoreList, h.trash, h.driver,
                        h.statistics, achievements, h.view},
                       h.options(true));
    run(pass, GetParam());

    EXPECT_FALSE(pass.stopped());
    EXPECT_TRUE(pass.complete());
    EXPECT_EQ(h.view.cleanedNotifications, std::vector<std::uint64_t>{removed});
    EXPECT_EQ(h.view.doneToolTips, std::vector<std::string>{"Scan another folder"});
    EXPECT_EQ(h.view.count("showSuccessView"), 1u);
    EXPECT_EQ(h.view.count("showErrorList"), 0u);
    EXPECT_EQ(h.view.count("endShredderAnimations"), 1u);
    EXPECT_EQ(h.view.count("reloadCollector"), 0u);
    EXPECT_EQ(h.view.windowStates.back(), 10);
    EXPECT_EQ(pass.count(), 0u);
    EXPECT_EQ(pass.size(), 0u);
    EXPECT_TRUE(pass.needRefreshing());

    EXPECT_EQ(achievements.lastTimeSize(), removed);
    EXPECT_EQ(achievements.userTotalSize(), 4000000000 - 10 + removed);
    EXPECT_EQ(achievements.userLevel(), 2) << "the level follows the new total";
    EXPECT_EQ(h.lastRecord()["RemovedSize"].toUInt64(), removed);
    EXPECT_EQ(h.lastRecord()["RemovedFiles"].toInt64(), 3);

    UserDefaults onDisk(h.scan.defaults.path());
    EXPECT_EQ(onDisk.objectForKey(kTotalSizeSavedKey).toUInt64(), 4000000000 - 10 + removed);
    const auto records = onDisk.arrayForKey(kUserStatisticsArrayKey);
    ASSERT_TRUE(records.has_value());
    EXPECT_EQ(records->back()["RemovedFiles"].toInt64(), 3);
}

TEST_P(RemovalEnd, APassWithFailuresShowsTheErrorListWithTheUndeletedSize) {
    RemovalHarness h;
    h.copies("ka", {"ca"}, std::string(3000, 'a'));
    auto b = h.copies("kb", {"cb"}, std::string(9000, 'b'));
    std::ofstream(b->files()[0]->path()) << "kept copy edited";
    auto pass = h.pass(false);
    run(*pass, GetParam());

    EXPECT_EQ(pass->errorFilesCount(), 1u);
    EXPECT_EQ(pass->failedSize(), b->files()[1]->sizeOnDisk());
    EXPECT_EQ(h.view.count("showSuccessView"), 0u);
    ASSERT_EQ(h.view.errorListTexts.size(), 1u);
    EXPECT_NE(h.view.errorListTexts[0].find(stringWithSize(pass->failedSize())), std::string::npos)
        << h.view.errorListTexts[0];
    EXPECT_EQ(pass->count(), 0u);
}

TEST_P(RemovalEnd, AGroupLeftWithCopiesMakesThePassIncomplete) {
    RemovalHarness h;
    h.scan.defaults.setBool(true, kRemoveHardAnimationsKey);
    h.copies("ka", {"ca"}, "alpha");
    auto b = h.group({h.tree.file("files/kb", "bravo"), h.tree.file("files/cb1", "bravo"),
                      h.tree.file("files/cb2", "bravo")},
                     {1});
    auto pass = h.pass(true);
    run(*pass, GetParam());
    EXPECT_FALSE(pass->complete());
    EXPECT_EQ(h.view.doneToolTips, std::vector<std::string>{"Back to the results"});
    EXPECT_EQ(h.view.count("endShredderAnimations"), 0u) << "RemoveHardAnimations skips them";
    EXPECT_TRUE(exists(b->files()[2]->path()));
}

INSTANTIATE_TEST_SUITE_P(Threads, RemovalEnd, testing::Values(RunOn::PassThread, RunOn::MainThread),
                         [](const auto& param) {
                             return param.param == RunOn::PassThread ? "PassThread" : "MainThread";
                         });

TEST(RemovalEnd, NothingMarkedEndsAtOnce) {
    RemovalHarness h;
    h.group({h.tree.file("files/a", "x"), h.tree.file("files/b", "x")}, {});
    auto pass = h.pass(true);
    ScopedLogCapture log;
    pass->shreddList();
    EXPECT_FALSE(pass->isPassThreadRunning());
    EXPECT_TRUE(pass->finished());
    EXPECT_TRUE(log.contains("Removing finished. Complete remove = 0. Removed Count = 0 Size = 0"));
    EXPECT_EQ(h.view.count("showSuccessView"), 1u);
    EXPECT_EQ(h.view.count("startShredderAnimation"), 0u);
}

TEST(RemovalEnd, TheButtonsFollowThePass) {
    RemovalHarness h;
    h.copies("k", {"c"}, "data");
    auto pass = h.pass(true);
    runPass(*pass);
    const std::vector<std::string> start(h.view.calls.begin(), h.view.calls.begin() + 4);
    EXPECT_EQ(start, (std::vector<std::string>{"closeButton off", "windowState 9", "setRemoveButton Stop",
                                               "startShredderAnimation"}));
    const std::vector<std::string> end(h.view.calls.end() - 6, h.view.calls.end());
    EXPECT_EQ(end,
              (std::vector<std::string>{"postCleanedNotification", "buttons on", "closeButton on",
                                        "endShredderAnimations", "setDoneButtonToolTip", "showSuccessView"}));
}

// ---------------------------------------------------------------------------------------
// Dry run.

// Everything about the items under path: kind, mode, size, times, inode, contents.
void snapshot(const std::string& path, std::map<std::string, std::string>& out) {
    struct stat st {};
    if (::lstat(path.c_str(), &st) != 0)
        return;
    std::string state = std::to_string(st.st_mode) + " " + std::to_string(st.st_size) + " " +
                        std::to_string(st.st_mtim.tv_sec) + "." + std::to_string(st.st_mtim.tv_nsec) + " " +
                        std::to_string(st.st_ino);
    if (S_ISREG(st.st_mode))
        state += " " + test::TempTree::read(path);
    out[path] = state;
    if (S_ISDIR(st.st_mode)) {
        DIR* dir = ::opendir(path.c_str());
        while (const dirent* entry = dir ? ::readdir(dir) : nullptr) {
            const std::string name = entry->d_name;
            if (name != "." && name != "..")
                snapshot(path + "/" + name, out);
        }
        if (dir)
            ::closedir(dir);
    }
}

std::string fileBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

// The marked copies of h run twice, in windows of window copies: as a dry run, then for real.
std::pair<std::unique_ptr<CVRemovalPass>, std::unique_ptr<CVRemovalPass>>
dryAndRealRuns(RemovalHarness& h, bool toTrash, std::size_t window) {
    auto options = h.options(toTrash);
    options.windowCopies = window;
    auto real = h.pass(options);
    options.dryRun = true;
    auto dry = h.pass(options);
    runPass(*dry);
    runPass(*real);
    return {std::move(dry), std::move(real)};
}

// Copies that lie inside, or are kept inside, a folder copy removed earlier in the same
// pass (in the same window of moves, or in an earlier one): the dry run says of each
// what the real run then does.
void checkDryRunAgainstRealRun(bool toTrash, std::size_t window) {
    RemovalHarness h;
    for (const char* folder : {"x", "y"}) {
        h.tree.file(std::string("files/") + folder + "/f", "inner");
        h.tree.file(std::string("files/") + folder + "/g", "other");
    }
    h.tree.file("files/z/f", "inner");
    h.tree.file("files/v/g", "other");
    h.group({h.files("y"), h.files("x")}, {1});     // x goes, y stays
    h.group({h.files("x/f"), h.files("z/f")}, {1}); // z/f would be kept only by x/f
    h.group({h.files("v/g"), h.files("x/g")}, {1}); // x/g went with x
    // Two groups that keep each other's copies, the kept ones named through a linked
    // folder ("alias" is "r"): only the first copy can go.
    h.tree.file("files/r/a", "pair");
    h.tree.file("files/r/b", "pair");
    ASSERT_EQ(::symlink("r", h.files("alias").c_str()), 0);
    h.group({h.files("alias/b"), h.files("r/a")}, {1});
    h.group({h.files("alias/a"), h.files("r/b")}, {1});
    auto [dry, real] = dryAndRealRuns(h, toTrash, window);
    ASSERT_EQ(dry->records().size(), 5u);
    ASSERT_EQ(real->records().size(), 5u);
    const std::map<Outcome, Outcome> said = {{Outcome::WouldTrash, Outcome::Trashed},
                                             {Outcome::WouldDelete, Outcome::Deleted},
                                             {Outcome::WouldFail, Outcome::Failed}};
    for (std::size_t i = 0; i < 5; ++i) {
        const auto& before = dry->records()[i];
        const auto& done = real->records()[i];
        SCOPED_TRACE(done.file->path());
        EXPECT_EQ(before.file, done.file);
        EXPECT_EQ(said.at(before.outcome), done.outcome);
        EXPECT_EQ(before.error, done.error);
    }
    EXPECT_EQ(real->records()[0].outcome, toTrash ? Outcome::Trashed : Outcome::Deleted);
    EXPECT_EQ(real->records()[1].error,
              std::string(kReasonNoKeptCopy) + " (" + h.files("x/f") + ": missing)");
    EXPECT_EQ(real->records()[2].error, "missing");
    EXPECT_EQ(real->records()[3].outcome, toTrash ? Outcome::Trashed : Outcome::Deleted);
    EXPECT_EQ(real->records()[4].error,
              std::string(kReasonNoKeptCopy) + " (" + h.files("alias/a") + ": missing)");
    EXPECT_TRUE(exists(h.files("r/b")));
    EXPECT_TRUE(exists(h.files("z/f")));
    EXPECT_TRUE(exists(h.files("y/f")));
}

// Run once to the Trash and once for deleting outright.
class RemovalDryRun : public testing::TestWithParam<bool> {};

TEST_P(RemovalDryRun, ChangesNothingAndSaysWhatWouldHappen) {
    const bool toTrash = GetParam();
    RemovalHarness h;
    auto goes =
        h.group({h.tree.file("files/kept.txt", "same"), h.tree.file("files/a/copy.txt", "same")}, {1});
    h.tree.file("files/a/.DS_Store", "finder");
    auto changed = h.copies("k2.txt", {"c2.txt"}, "two");
    std::ofstream(changed->files()[1]->path()) << "TWO";
    auto photo = h.copies("k3.jpg", {"Library/p.jpg"}, "jpeg");
    h.putInLibrary(*photo->files()[1], kNodeTypeCurrentIPhotoLibrary);
    h.tree.file("data/Trash/files/old.txt", "trashed before");
    h.tree.file("data/Trash/info/old.txt.trashinfo", "[Trash Info]\nPath=/x/old.txt\n");
    ASSERT_TRUE(h.scan.defaults.synchronize());
    std::map<std::string, std::string> before;
    std::map<std::string, std::string> after;
    snapshot(h.tree.path(), before);
    const std::string settingsBefore = fileBytes(h.scan.defaults.path());
    // A change not yet saved stays unsaved: the dry run writes no settings.
    h.scan.defaults.setObject(PropertyValue("not saved yet"), "UnsavedChoice");

    auto pass = h.dryRun(toTrash, true);

    snapshot(h.tree.path(), after);
    EXPECT_EQ(after, before);
    EXPECT_EQ(fileBytes(h.scan.defaults.path()), settingsBefore);
    h.scan.defaults.removeObjectForKey("UnsavedChoice");
    ASSERT_TRUE(h.scan.defaults.synchronize());
    EXPECT_EQ(fileBytes(h.scan.defaults.path()), settingsBefore) << "nothing changed in memory either";
    EXPECT_TRUE(h.driver.launched.empty());

    const auto* record = recordOf(*pass, goes->files()[1]->path());
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(record->outcome, toTrash ? Outcome::WouldTrash : Outcome::WouldDelete);
    EXPECT_EQ(record->trashDirectory, toTrash ? h.homeTrash() : "");
    EXPECT_EQ(record->keptCopy, goes->files()[0]->path());
    record = recordOf(*pass, changed->files()[1]->path());
    EXPECT_EQ(record->outcome, Outcome::WouldFail);
    EXPECT_EQ(record->error, kReasonChanged);
    record = recordOf(*pass, photo->files()[1]->path());
    EXPECT_EQ(record->outcome, Outcome::WouldFail);
    EXPECT_FALSE(record->error.empty());
    EXPECT_EQ(pass->removedFolders(), std::vector<std::string>{h.files("a")});
    EXPECT_FALSE(goes->files()[1]->wasRemoved());
    EXPECT_TRUE(goes->files()[1]->needToRemove());
    EXPECT_EQ(pass->count(), 3u);
    EXPECT_TRUE(h.view.cleanedNotifications.empty());
    EXPECT_EQ(h.achievements.lastTimeSize(), 0u);
}

TEST_P(RemovalDryRun, SaysWhatTheRealRunDoesWithItemsInsideAnEarlierCopy) {
    const bool toTrash = GetParam();
    for (const std::size_t window : {std::size_t{1024}, std::size_t{1}}) {
        SCOPED_TRACE("windows of " + std::to_string(window));
        checkDryRunAgainstRealRun(toTrash, window);
    }
}

// Folders that an earlier removal of the pass changed: an item removed before the folder
// copy that holds it (p/f, then p; u/d/f, then u further down), and items removed from a
// folder kept for another copy (q/f, then t kept by q; k/sub/x, then l kept by k). The
// folder copies stay, and the dry run says so. In windows of 1 the next window is checked
// while the one before moves, so the reason depends on which comes first there.
void checkFoldersChangedEarlier(bool toTrash, std::size_t window) {
    RemovalHarness h;
    for (const char* file : {"p/f", "q/f", "s/f", "t/f", "w/f"})
        h.tree.file(std::string("files/") + file, "folder");
    for (const char* file : {"u/d/f", "v/d/f", "w/d/f", "k/sub/x", "l/sub/x", "m/x"})
        h.tree.file(std::string("files/") + file, "deep");
    h.group({h.files("w/f"), h.files("p/f")}, {1});
    h.group({h.files("s"), h.files("p")}, {1});
    h.group({h.files("w/f"), h.files("q/f")}, {1});
    h.group({h.files("q"), h.files("t")}, {1});
    h.group({h.files("w/d/f"), h.files("u/d/f")}, {1});
    h.group({h.files("v"), h.files("u")}, {1});
    h.group({h.files("m/x"), h.files("k/sub/x")}, {1});
    h.group({h.files("k"), h.files("l")}, {1});
    auto [dry, real] = dryAndRealRuns(h, toTrash, window);
    ASSERT_EQ(dry->records().size(), 8u);
    ASSERT_EQ(real->records().size(), 8u);
    const std::string deeper = "an item inside it goes earlier in this run (";
    const std::vector<std::string> reasons = {
        "", kReasonChanged,
        "", std::string(kReasonNoKeptCopy) + " (" + h.files("q") + ": " + kReasonChanged + ")",
        "", deeper + h.files("u/d/f") + ")",
        "", std::string(kReasonNoKeptCopy) + " (" + h.files("k") + ": " + deeper + h.files("k/sub/x") + "))"};
    for (std::size_t i = 0; i < reasons.size(); ++i) {
        const auto& before = dry->records()[i];
        const auto& done = real->records()[i];
        SCOPED_TRACE(done.file->path());
        const bool goes = reasons[i].empty();
        EXPECT_EQ(before.outcome,
                  goes ? (toTrash ? Outcome::WouldTrash : Outcome::WouldDelete) : Outcome::WouldFail);
        EXPECT_EQ(done.outcome, goes ? (toTrash ? Outcome::Trashed : Outcome::Deleted) : Outcome::Failed);
        EXPECT_EQ(before.error, reasons[i]);
        if (window > 1) {
            EXPECT_EQ(done.error, reasons[i]);
        }
    }
    for (const char* stays : {"p", "t/f", "u/d", "l/sub/x", "s/f", "q", "v/d/f", "k", "m/x"})
        EXPECT_TRUE(exists(h.files(stays))) << stays;
}

TEST_P(RemovalDryRun, FoldersThatEarlierRemovalsChangedStay) {
    for (const std::size_t window : {std::size_t{1024}, std::size_t{1}}) {
        SCOPED_TRACE("windows of " + std::to_string(window));
        checkFoldersChangedEarlier(GetParam(), window);
    }
}

INSTANTIATE_TEST_SUITE_P(Removal, RemovalDryRun, testing::Bool(),
                         [](const auto& param) { return param.param ? "ToTheTrash" : "DeletingOutright"; });

} // namespace
} // namespace corvel
