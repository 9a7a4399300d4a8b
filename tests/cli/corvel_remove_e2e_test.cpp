// End-to-end: the real corvel removing copies, with a private home and Trash.

#include <csignal>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <nlohmann/json.hpp>
#include <random>
#include <thread>
#include <unistd.h>

#include "corvel_runner.h"
#include "support/temp_tree.h"

namespace corvel {
namespace {

namespace fs = std::filesystem;
using test::shellQuoted;

// Every path under a folder with its content ("<folder>" for folders): what a run must
// leave as it was.
std::map<std::string, std::string> snapshot(const std::string& root) {
    std::map<std::string, std::string> state;
    if (!fs::exists(root))
        return state;
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
        const std::string path = entry.path();
        state[path] = entry.is_directory() ? "<folder>" : test::TempTree::read(path);
    }
    return state;
}

class CorvelRemove : public testing::Test {
protected:
    test::TempTree home;
    test::TempTree tree;
    std::string trashFolder() const { return home / ".local/share/Trash"; }
    std::string settingsFile() const { return home / "settings.plist"; }
    test::CorvelOutcome run(const std::string& arguments) {
        return test::runCorvel(arguments + " --settings " + shellQuoted(settingsFile()) + " </dev/null", home,
                               "XDG_DATA_HOME='" + home.path() + "/.local/share' ");
    }
    // Two groups: a photo with an automatic copy name, a report downloaded twice.
    void buildCopies() {
        const std::string photo(70000, 'p');
        tree.file("Pictures/beach.jpg", photo);
        tree.file("Pictures/Old/beach copy.jpg", photo);
        const std::string report(90000, 'r');
        tree.file("Documents/report.pdf", report);
        tree.file("Documents/Drafts/report (1).pdf", report);
    }
};

TEST_F(CorvelRemove, MarkedCopiesGoToTheTrashAndOneOfEachGroupStays) {
    buildCopies();
    const auto removal = run("scan --json --autoselect --remove --yes " + shellQuoted(tree.path()));
    ASSERT_EQ(removal.status, 0) << removal.err;
    const auto doc = nlohmann::json::parse(removal.out);
    const auto& report = doc["removal"];
    EXPECT_EQ(report["mode"], "trash");
    EXPECT_EQ(report["markedFiles"], 2);
    EXPECT_EQ(report["removedFiles"], 2);
    EXPECT_EQ(report["failedFiles"], 0);
    for (const auto& file : report["files"]) {
        EXPECT_EQ(file["outcome"], "trashed") << file;
        EXPECT_FALSE(fs::exists(file["path"].get<std::string>()));
        EXPECT_TRUE(fs::exists(file["trashFile"].get<std::string>()));
        EXPECT_TRUE(fs::exists(file["keptCopy"].get<std::string>()));
        const std::string info = test::TempTree::read(file["trashInfo"]);
        EXPECT_NE(info.find("[Trash Info]\nPath="), std::string::npos) << info;
    }
    EXPECT_TRUE(fs::exists(tree / "Pictures/beach.jpg"));
    EXPECT_TRUE(fs::exists(tree / "Documents/report.pdf"));
    EXPECT_GT(report["achievements"]["userTotalSize"].get<std::uint64_t>(), 0u);
    // Another Trash implementation sees the entries.
    if (std::system("command -v trash-list >/dev/null 2>&1") == 0) {
        const std::string out = home / "trash-list.txt";
        const std::string command = "HOME='" + home.path() + "' XDG_DATA_HOME='" + home.path() +
                                    "/.local/share' trash-list > '" + out + "' 2>&1";
        ASSERT_EQ(std::system(command.c_str()), 0);
        const std::string listing = test::TempTree::read(out);
        EXPECT_NE(listing.find(tree / "Pictures/Old/beach copy.jpg"), std::string::npos) << listing;
    }
    // The scan and the pass were recorded.
    const auto stats = run("stats --json");
    ASSERT_EQ(stats.status, 0) << stats.err;
    const auto statsDoc = nlohmann::json::parse(stats.out);
    ASSERT_FALSE(statsDoc["scans"].empty());
    EXPECT_EQ(statsDoc["scans"].back()["RemovedFiles"], 2);
}

TEST_F(CorvelRemove, TheTextReportGivesTheSizeAsTheSummaryBeforeItDid) {
    buildCopies();
    const auto removal = run("scan --autoselect --remove --yes " + shellQuoted(tree.path()));
    ASSERT_EQ(removal.status, 0) << removal.err;
    const auto end = removal.out.find(" in 2 duplicates");
    ASSERT_NE(end, std::string::npos) << removal.out;
    const auto start = removal.out.rfind('\n', end) + 1;
    const std::string size = removal.out.substr(start, end - start);
    EXPECT_NE(removal.out.find("\nRemoved 2 of 2 copies, " + size + " moved to the Trash.\n"),
              std::string::npos)
        << removal.out;
}

TEST_F(CorvelRemove, ADryRunChangesNothing) {
    buildCopies();
    ASSERT_EQ(run("scan --min-size 1 " + shellQuoted(tree.path())).status, 0); // creates the settings file
    const auto treeBefore = snapshot(tree.path());
    const std::string settingsBefore = test::TempTree::read(settingsFile());
    struct Case {
        const char* options;
        const char* outcome;
    };
    for (const Case& c : {Case{"--trash", "wouldTrash"}, Case{"--delete", "wouldDelete"},
                          Case{"--trash --remove-empty-folders", "wouldTrash"}}) {
        const auto dry = run(std::string("scan --json --autoselect --remove --dry-run ") + c.options + " " +
                             shellQuoted(tree.path()));
        ASSERT_EQ(dry.status, 0) << c.options << dry.err;
        const auto doc = nlohmann::json::parse(dry.out);
        EXPECT_TRUE(doc["removal"]["dryRun"]);
        ASSERT_EQ(doc["removal"]["files"].size(), 2u);
        for (const auto& file : doc["removal"]["files"])
            EXPECT_EQ(file["outcome"], c.outcome) << c.options << file;
        EXPECT_EQ(snapshot(tree.path()), treeBefore) << c.options;
        EXPECT_FALSE(fs::exists(trashFolder())) << c.options;
        EXPECT_EQ(test::TempTree::read(settingsFile()), settingsBefore) << c.options;
    }
    // The clean-up names the folders it would remove: both copies leave their folder empty.
    const auto dry =
        run("scan --autoselect --remove --dry-run --remove-empty-folders " + shellQuoted(tree.path()));
    EXPECT_NE(dry.out.find("would remove empty folder " + tree / "Pictures/Old"), std::string::npos)
        << dry.out;
    EXPECT_NE(dry.out.find("would remove empty folder " + tree / "Documents/Drafts"), std::string::npos);
}

TEST_F(CorvelRemove, TheTextReportsShowControlBytesEscaped) {
    const std::string name = "copy\n\x1b]0;title\x07.dat";
    const std::string shown = R"(copy\n\x1b]0;title\x07.dat)";
    const std::string content(70000, 'c');
    tree.file("keep/original.dat", content);
    tree.file("Old/" + name, content);
    // The plan marks the copy by its exact name, which no list of lines could hold.
    const auto scan = run("scan --json " + shellQuoted(tree.path()));
    ASSERT_EQ(scan.status, 0) << scan.err;
    auto plan = nlohmann::json::parse(scan.out);
    for (auto& group : plan["groups"])
        for (auto& file : group["files"])
            file["needToRemove"] = file["path"].get<std::string>() == tree / ("Old/" + name);
    const std::string planFile = home.file("plan.json", plan.dump());

    const auto dry = run("remove --dry-run " + shellQuoted(planFile));
    ASSERT_EQ(dry.status, 0) << dry.err;
    EXPECT_NE(dry.out.find("would trash " + tree / ("Old/" + shown) + " to "), std::string::npos) << dry.out;
    const auto removal = run("remove --yes " + shellQuoted(planFile));
    ASSERT_EQ(removal.status, 0) << removal.err;
    EXPECT_NE(removal.out.find("  goes:  " + tree / ("Old/" + shown) + "\n"), std::string::npos)
        << removal.out;
    EXPECT_NE(removal.out.find("trashed " + tree / ("Old/" + shown) + "\n"), std::string::npos)
        << removal.out;
    for (const auto& out : {dry.out, removal.out}) {
        EXPECT_EQ(out.find('\x1b'), std::string::npos);
        EXPECT_EQ(out.find('\x07'), std::string::npos);
    }
    EXPECT_FALSE(fs::exists(tree / ("Old/" + name))) << "the copy went by its real name";
    EXPECT_TRUE(fs::exists(tree / "keep/original.dat"));
}

TEST_F(CorvelRemove, WithoutATerminalOrYesNothingIsTouched) {
    buildCopies();
    const auto before = snapshot(tree.path());
    const auto refused = run("scan --autoselect --remove " + shellQuoted(tree.path()));
    EXPECT_EQ(refused.status, 2) << refused.err;
    EXPECT_NE(refused.err.find("--yes"), std::string::npos) << refused.err;
    EXPECT_EQ(snapshot(tree.path()), before);
    EXPECT_FALSE(fs::exists(trashFolder()));
}

TEST_F(CorvelRemove, WithNothingMarkedNothingIsTouchedAndTheRunSaysHowToChoose) {
    buildCopies();
    const auto before = snapshot(tree.path());
    const auto run0 = run("scan --remove --yes " + shellQuoted(tree.path()));
    EXPECT_EQ(run0.status, 0) << run0.err;
    EXPECT_NE(run0.err.find("no copy is marked for removal: choose copies with --autoselect"),
              std::string::npos)
        << run0.err;
    EXPECT_TRUE(run0.out.ends_with("\nNothing was removed.\n")) << run0.out;
    EXPECT_EQ(snapshot(tree.path()), before);
    EXPECT_FALSE(fs::exists(trashFolder()));
}

TEST_F(CorvelRemove, CopiesWithoutATrashStayAndTheRunSaysWhatElseCanBeDone) {
    buildCopies();
    home.file(".local/share", "a file where the Trash's folder would be");
    const auto before = snapshot(tree.path());
    const auto refused = run("scan --autoselect --remove --yes " + shellQuoted(tree.path()));
    EXPECT_EQ(refused.status, 4) << refused.err;
    EXPECT_NE(refused.err.find("no Trash on this volume"), std::string::npos) << refused.err;
    EXPECT_NE(
        refused.err.find("corvel: 2 copies lie on a volume without a Trash and stayed; --delete removes"),
        std::string::npos)
        << refused.err;
    EXPECT_EQ(snapshot(tree.path()), before);
}

TEST_F(CorvelRemove, OnATerminalTheAnswerDecides) {
    if (std::system("command -v script >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "script(1) is needed to give corvel a terminal";
    buildCopies();
    const auto before = snapshot(tree.path());
    // script(1) runs corvel on a pseudo-terminal and passes the answer to it.
    auto ask = [&](const std::string& answer) {
        const std::string out = home / "terminal.txt";
        const std::string inner = "HOME='" + home.path() + "' XDG_DATA_HOME='" + home.path() +
                                  "/.local/share' " + CORVEL_BINARY +
                                  " scan --autoselect --remove --settings " + shellQuoted(settingsFile()) +
                                  " " + shellQuoted(tree.path());
        const std::string command =
            "printf '" + answer + "\\n' | script -qec \"" + inner + "\" /dev/null > '" + out + "' 2>&1";
        const int status = std::system(command.c_str());
        return std::make_pair(WIFEXITED(status) ? WEXITSTATUS(status) : -1, test::TempTree::read(out));
    };
    const auto [refusedStatus, refused] = ask("n");
    EXPECT_NE(refused.find("Move 2 copies ("), std::string::npos) << refused;
    EXPECT_NE(refused.find(") to the Trash? [y/N]"), std::string::npos) << refused;
    EXPECT_EQ(refusedStatus, 2) << refused;
    EXPECT_EQ(snapshot(tree.path()), before);
    const auto [acceptedStatus, accepted] = ask("y");
    EXPECT_EQ(acceptedStatus, 0) << accepted;
    EXPECT_FALSE(fs::exists(tree / "Pictures/Old/beach copy.jpg"));
    EXPECT_TRUE(fs::exists(tree / "Pictures/beach.jpg"));
}

TEST_F(CorvelRemove, ASelectListMarksByHandAndIsCheckedFirst) {
    buildCopies();
    const std::string list = home.file("list.txt", tree / "Pictures/beach.jpg" + "\n");
    const auto before = snapshot(tree.path());
    struct Case {
        std::string contents;
        std::string options;
        int status;
        const char* message;
    };
    const std::vector<Case> refusals = {
        {tree / "Pictures/nowhere.jpg" + "\n", "", 2, "is not a copy"},
        {tree / "Pictures/beach.jpg" + "\n" + tree / "Pictures/Old/beach copy.jpg" + "\n", "", 2,
         "--allow-all-copies"},
    };
    for (const auto& c : refusals) {
        home.file("refused.txt", c.contents);
        const auto refused = run("scan --remove --yes --select " + shellQuoted(home / "refused.txt") + " " +
                                 shellQuoted(tree.path()));
        EXPECT_EQ(refused.status, c.status) << refused.err;
        EXPECT_NE(refused.err.find(c.message), std::string::npos) << refused.err;
        EXPECT_EQ(snapshot(tree.path()), before);
    }
    // A folder given as the list reads as nothing: it is refused, not taken for an empty list.
    const auto folderList = run("scan --remove --yes --select " + shellQuoted(home.folder("lists")) + " " +
                                shellQuoted(tree.path()));
    EXPECT_EQ(folderList.status, 2) << folderList.err;
    EXPECT_NE(folderList.err.find("lists is a folder"), std::string::npos) << folderList.err;
    EXPECT_EQ(snapshot(tree.path()), before);
    // Without --remove nothing was to be removed, and the message does not say so.
    home.file("refused.txt", refusals[0].contents);
    const auto listing =
        run("scan --select " + shellQuoted(home / "refused.txt") + " " + shellQuoted(tree.path()));
    EXPECT_EQ(listing.status, 2) << listing.err;
    EXPECT_NE(listing.err.find("is not a copy"), std::string::npos) << listing.err;
    EXPECT_EQ(listing.err.find("nothing was removed"), std::string::npos) << listing.err;
    const auto removed =
        run("scan --json --remove --yes --select " + shellQuoted(list) + " " + shellQuoted(tree.path()));
    ASSERT_EQ(removed.status, 0) << removed.err;
    EXPECT_FALSE(fs::exists(tree / "Pictures/beach.jpg"));
    EXPECT_TRUE(fs::exists(tree / "Pictures/Old/beach copy.jpg"));
    EXPECT_TRUE(fs::exists(tree / "Documents/Drafts/report (1).pdf")) << "only the listed copy goes";
}

TEST_F(CorvelRemove, EveryCopyOfAGroupMayGoOnlyToTheTrashWhenForced) {
    buildCopies();
    home.file("all.txt", tree / "Pictures/beach.jpg" + "\n" + tree / "Pictures/Old/beach copy.jpg" + "\n");
    const auto deleting = run("scan --json --remove --yes --delete --allow-all-copies --select " +
                              shellQuoted(home / "all.txt") + " " + shellQuoted(tree.path()));
    EXPECT_EQ(deleting.status, 2) << deleting.err;
    EXPECT_TRUE(fs::exists(tree / "Pictures/beach.jpg"));
    EXPECT_TRUE(fs::exists(tree / "Pictures/Old/beach copy.jpg"));
    EXPECT_NE(deleting.err.find("may only go to the Trash: remove with --trash"), std::string::npos)
        << deleting.err;
    // Its dry run is refused alike, rather than promise the other marked copies.
    home.file("more.txt", tree / "Pictures/beach.jpg" + "\n" + tree / "Pictures/Old/beach copy.jpg" + "\n" +
                              tree / "Documents/Drafts/report (1).pdf" + "\n");
    const auto trying = run("scan --remove --dry-run --delete --allow-all-copies --select " +
                            shellQuoted(home / "more.txt") + " " + shellQuoted(tree.path()));
    EXPECT_EQ(trying.status, 2) << trying.err;
    EXPECT_NE(trying.err.find("may only go to the Trash: remove with --trash"), std::string::npos)
        << trying.err;
    EXPECT_EQ(trying.out.find("would delete"), std::string::npos) << trying.out;
    const auto trashing = run("scan --json --remove --yes --trash --allow-all-copies --select " +
                              shellQuoted(home / "all.txt") + " " + shellQuoted(tree.path()));
    EXPECT_EQ(trashing.status, 0) << trashing.err;
    EXPECT_FALSE(fs::exists(tree / "Pictures/beach.jpg"));
    EXPECT_FALSE(fs::exists(tree / "Pictures/Old/beach copy.jpg"));
}

TEST_F(CorvelRemove, DeleteAndEmptyFolderChoicesHoldForTheRunOnly) {
    buildCopies();
    tree.file("Documents/Drafts/.DS_Store", "finder");
    const auto removal = run("scan --json --autoselect --remove --yes --delete --remove-empty-folders " +
                             shellQuoted(tree.path()));
    ASSERT_EQ(removal.status, 0) << removal.err;
    const auto doc = nlohmann::json::parse(removal.out);
    EXPECT_EQ(doc["removal"]["mode"], "delete");
    for (const auto& file : doc["removal"]["files"])
        EXPECT_EQ(file["outcome"], "deleted");
    EXPECT_FALSE(fs::exists(tree / "Documents/Drafts")) << "left with only .DS_Store";
    EXPECT_FALSE(fs::exists(tree / "Pictures/Old"));
    EXPECT_FALSE(fs::exists(trashFolder()));
    // --keep-empty-folders overrides a stored choice to remove them, for the run.
    buildCopies();
    home.file("keep-folders.plist",
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>"
              "<key>RemoveEmptyFolders</key><true/></dict></plist>\n");
    const auto kept = test::runCorvel("scan --autoselect --remove --yes --keep-empty-folders --settings " +
                                          shellQuoted(home / "keep-folders.plist") + " " +
                                          shellQuoted(tree.path()) + " </dev/null",
                                      home, "XDG_DATA_HOME='" + home.path() + "/.local/share' ");
    ASSERT_EQ(kept.status, 0) << kept.err;
    EXPECT_FALSE(fs::exists(tree / "Pictures/Old/beach copy.jpg"));
    EXPECT_TRUE(fs::exists(tree / "Pictures/Old")) << "kept for this run";
    // Nothing of the choice was stored: the settings file does not name it.
    const std::string settings = test::TempTree::read(settingsFile());
    EXPECT_EQ(settings.find("MoveIntoTrash"), std::string::npos);
    EXPECT_EQ(settings.find("RemoveEmptyFolders"), std::string::npos);
}

TEST_F(CorvelRemove, APlanIsCheckedAgainstWhatTheScanRecorded) {
    buildCopies();
    const auto scan = run("scan --json --autoselect " + shellQuoted(tree.path()));
    ASSERT_EQ(scan.status, 0) << scan.err;
    auto plan = nlohmann::json::parse(scan.out);
    // The user flips the marks of the report group: the original goes, the copy stays.
    for (auto& group : plan["groups"])
        for (auto& file : group["files"])
            if (file["path"].get<std::string>().find("report") != std::string::npos)
                file["needToRemove"] = !file["needToRemove"].get<bool>();
    const std::string planFile = home.file("plan.json", plan.dump());
    // The photo copy changes after the scan (same size, other bytes).
    tree.file("Pictures/Old/beach copy.jpg", std::string(70000, 'q'));
    const auto removal = run("remove --json --yes " + shellQuoted(planFile));
    EXPECT_EQ(removal.status, 4) << removal.err;
    EXPECT_TRUE(fs::exists(tree / "Pictures/Old/beach copy.jpg"));
    EXPECT_NE(removal.err.find("changed since the scan"), std::string::npos) << removal.err;
    EXPECT_FALSE(fs::exists(tree / "Documents/report.pdf"));
    EXPECT_TRUE(fs::exists(tree / "Documents/Drafts/report (1).pdf"));
    // A plan without identities is refused before anything is touched.
    for (auto& group : plan["groups"])
        for (auto& file : group["files"])
            file.erase("inode");
    const auto refused = run("remove --yes " + shellQuoted(home.file("old.json", plan.dump())));
    EXPECT_EQ(refused.status, 2) << refused.err;
}

TEST_F(CorvelRemove, APlanThatCannotBeReadIsRefusedWithItsReason) {
    const std::string folder = home / "folder.json";
    fs::create_directories(folder);
    const struct {
        std::string plan;
        std::string message;
    } cases[] = {
        {home / "missing.json", "cannot read " + (home / "missing.json") + ": No such file or directory"},
        {folder, "cannot read " + folder + ": " + folder + " is a folder"},
        {home.file("text.json", "not json"), "is not a scan document: parse error at line 1"},
        {home.file("list.json", "[]"), "is not a scan document (no \"groups\")"},
    };
    for (const auto& c : cases) {
        const auto refused = run("remove --yes " + shellQuoted(c.plan));
        EXPECT_EQ(refused.status, 2) << c.plan;
        EXPECT_NE(refused.err.find(c.message), std::string::npos) << refused.err;
        EXPECT_NE(refused.err.find("; nothing was removed"), std::string::npos) << refused.err;
    }
}

// Many copies, so that a pass lasts long enough to be interrupted.
std::string buildManyCopies(const test::TempTree& tree, int count) {
    for (int i = 0; i < count; ++i) {
        const std::string data = "content of file number " + std::to_string(i) + std::string(100, 'x');
        tree.file("keep/f" + std::to_string(i) + ".txt", data);
        tree.file("copies/f" + std::to_string(i) + ".txt", data);
    }
    // The two folders must not be copies of each other, or their files would be no group's.
    tree.file("keep/only-here.txt", "not copied");
    std::string list;
    for (int i = 0; i < count; ++i)
        list += tree / ("copies/f" + std::to_string(i) + ".txt") + "\n";
    return list;
}

// Each copy is at its path, or in the Trash with an information file naming it.
void expectEveryCopyAtItsPathOrInTheTrash(const test::TempTree& tree, const std::string& trash, int count) {
    std::map<std::string, std::string> trashed; // original path -> entry name
    if (fs::exists(trash + "/info"))
        for (const auto& entry : fs::directory_iterator(trash + "/info")) {
            const std::string info = test::TempTree::read(entry.path());
            const auto at = info.find("Path=");
            const auto end = info.find('\n', at);
            const std::string name = entry.path().stem();
            if (at != std::string::npos && fs::exists(trash + "/files/" + name))
                trashed[info.substr(at + 5, end - at - 5)] = name;
        }
    for (int i = 0; i < count; ++i) {
        const std::string path = tree / ("copies/f" + std::to_string(i) + ".txt");
        const bool atPath = fs::exists(path);
        const bool inTrash = trashed.contains(path);
        EXPECT_TRUE(atPath != inTrash)
            << path << (atPath ? " is at its path and in the Trash" : " is nowhere");
        EXPECT_TRUE(fs::exists(tree / ("keep/f" + std::to_string(i) + ".txt")));
    }
}

// Ctrl-C, a polite kill, and the terminal closing (SIGHUP) each stop the pass after the
// copy at hand: nothing is left half-moved.
TEST_F(CorvelRemove, ASignalStopsThePassAfterTheCurrentCopy) {
    constexpr int kCount = 1500;
    home.file("list.txt", buildManyCopies(tree, kCount));
    for (const char* signal : {"INT", "TERM", "HUP"}) {
        SCOPED_TRACE(signal);
        const std::string command =
            "HOME='" + home.path() + "' XDG_DATA_HOME='" + home.path() + "/.local/share' " + CORVEL_BINARY +
            " scan --min-size 1 --remove --yes --quiet --settings " + shellQuoted(settingsFile()) +
            " --select " + shellQuoted(home / "list.txt") + " " + shellQuoted(tree.path()) +
            " >/dev/null 2>&1 </dev/null & pid=$!; " + "for i in $(seq 2000); do [ -d '" + trashFolder() +
            "/files' ] && break; sleep 0.01; done; " + "kill -" + signal + " $pid; wait $pid";
        const int status = std::system(command.c_str());
        ASSERT_TRUE(WIFEXITED(status));
        EXPECT_EQ(WEXITSTATUS(status), 130);
        expectEveryCopyAtItsPathOrInTheTrash(tree, trashFolder(), kCount);
        std::size_t left = 0;
        for (int i = 0; i < kCount; ++i)
            left += fs::exists(tree / ("copies/f" + std::to_string(i) + ".txt")) ? 1 : 0;
        EXPECT_GT(left, 0u) << "the pass stopped before the end";
        // The next round starts with every copy back at its path and a new Trash.
        for (const auto& entry : fs::directory_iterator(trashFolder() + "/info")) {
            const std::string info = test::TempTree::read(entry.path());
            const auto at = info.find("Path=") + 5;
            fs::rename(trashFolder() + "/files/" + entry.path().stem().string(),
                       info.substr(at, info.find('\n', at) - at));
        }
        fs::remove_all(trashFolder());
    }
}

TEST_F(CorvelRemove, KilledAtAnyMomentEveryCopyIsAtItsPathOrInTheTrash) {
    constexpr int kCount = 2000;
    home.file("list.txt", buildManyCopies(tree, kCount));
    // One plan, run again after each kill: copies already gone fail as missing.
    const auto scan = run("scan --json --min-size 1 --select " + shellQuoted(home / "list.txt") + " " +
                          shellQuoted(tree.path()));
    ASSERT_EQ(scan.status, 0) << scan.err;
    const std::string plan = home.file("plan.json", scan.out);
    std::mt19937 rng(20261124);
    for (int round = 0; round < 4; ++round) {
        const int delayMs = 20 + static_cast<int>(rng() % 400);
        const std::string command = "HOME='" + home.path() + "' XDG_DATA_HOME='" + home.path() +
                                    "/.local/share' " + CORVEL_BINARY + " remove --yes --quiet --settings " +
                                    shellQuoted(settingsFile()) + " " + shellQuoted(plan) +
                                    " >/dev/null 2>&1 </dev/null & pid=$!; sleep " +
                                    std::to_string(delayMs / 1000.0) + "; kill -9 $pid; wait $pid";
        std::system(command.c_str());
        SCOPED_TRACE(round);
        expectEveryCopyAtItsPathOrInTheTrash(tree, trashFolder(), kCount);
    }
    const auto last = run("remove --yes --quiet " + shellQuoted(plan));
    EXPECT_TRUE(last.status == 0 || last.status == 4) << last.err;
    expectEveryCopyAtItsPathOrInTheTrash(tree, trashFolder(), kCount);
    for (int i = 0; i < kCount; ++i)
        EXPECT_FALSE(fs::exists(tree / ("copies/f" + std::to_string(i) + ".txt")))
            << "the last pass ends the work";
}

} // namespace
} // namespace corvel
