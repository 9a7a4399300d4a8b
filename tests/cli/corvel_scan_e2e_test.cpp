// End-to-end: the real corvel binary on trees built here, read through its JSON.

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "corvel_runner.h"
#include "json_writer.h"
#include "platform/file_io.h"
#include "platform/property_list.h"
#include "report.h"
#include "support/long_path.h"
#include "support/other_user.h"
#include "support/scoped_mount.h"
#include "support/temp_tree.h"

namespace corvel {
namespace {

struct Outcome {
    int status;
    std::string out;
    std::string err;
};

// Runs corvel with home as its home and configuration folder. environment goes before
// the command ("env -u CORVEL_SETTINGS", "CORVEL_SETTINGS=..."); asAnotherUser runs it
// under another account (see support/other_user.h), with home open to that account.
Outcome corvelWith(const std::string& environment, const std::string& arguments, const test::TempTree& home,
                   bool asAnotherUser = false) {
    const std::string outFile = home / "stdout.txt";
    const std::string errFile = home / "stderr.txt";
    const std::string command = "HOME='" + home.path() + "' XDG_CONFIG_HOME='" + home.path() + "/.config' " +
                                environment + " " + CORVEL_BINARY + " " + arguments + " >'" + outFile +
                                "' 2>'" + errFile + "'";
    Outcome run{};
    if (asAnotherUser && ::geteuid() == 0) {
        // As root, through setpriv(1) to the unprivileged "nobody" account, as a user would.
        const std::string dropped =
            "setpriv --reuid=65534 --regid=65534 --clear-groups /bin/sh -c " + test::shellQuoted(command);
        const int status = std::system(dropped.c_str());
        run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    } else if (asAnotherUser) {
        run.status = test::runAsAnotherUser([&] {
            ::execl("/bin/sh", "sh", "-c", command.c_str(), static_cast<char*>(nullptr));
            return 127;
        });
    } else {
        const int status = std::system(command.c_str());
        run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    run.out = test::TempTree::read(outFile);
    run.err = test::TempTree::read(errFile);
    return run;
}

Outcome corvel(const std::string& arguments, const test::TempTree& home) {
    return corvelWith("", arguments, home);
}

// A file large enough to be compared on samples (600,000 bytes), and the same file
// with one byte changed between the head and the first sampled piece.
std::pair<std::string, std::string> sampledFileAndAlteredCopy() {
    std::string big(600000, '\0');
    for (std::size_t i = 0; i < big.size(); ++i)
        big[i] = static_cast<char>('a' + (i * 7919 % 26));
    std::string altered = big;
    altered[15000] = '#';
    return {big, altered};
}

std::string quoted(const std::string& path) {
    return "'" + path + "'";
}

class CorvelScan : public testing::Test {
protected:
    test::TempTree home;
    test::TempTree tree;
    std::string settings() { return "--settings " + quoted(home / "settings.plist"); }
};

TEST_F(CorvelScan, JsonListsTheGroupsWithTheirFiles) {
    const std::string photo(120000, 'p');
    tree.file("Pictures/beach.jpg", photo);
    tree.file("Backup/beach.jpg", photo);
    tree.file("Backup/old/beach copy.jpg", photo);
    tree.file("Music/song.mp3", std::string(80000, 's'));
    tree.file("Backup/song.mp3", std::string(80000, 's'));
    tree.file("Pictures/unique.jpg", std::string(90000, 'u'));
    tree.file("Pictures/small.txt", "tiny"); // below the automatic minimum, but among the top groups
    tree.file("Backup/small.txt", "tiny");
    const Outcome run = corvel("scan --json " + settings() + " " + quoted(tree.path()), home);
    ASSERT_EQ(run.status, 0) << run.err;
    const auto doc = nlohmann::json::parse(run.out);
    EXPECT_EQ(doc["roots"], nlohmann::json::array({tree.path()}));
    ASSERT_EQ(doc["groups"].size(), 3u) << run.out;
    const auto& pictures = doc["groups"][0];
    EXPECT_EQ(pictures["category"], "Pictures");
    EXPECT_EQ(pictures["categoryId"], 3);
    EXPECT_EQ(pictures["nodeType"], 3);
    EXPECT_EQ(pictures["size"], 120000);
    std::set<std::string> paths;
    std::uint64_t total = 0;
    for (const auto& file : pictures["files"]) {
        paths.insert(file["path"]);
        EXPECT_FALSE(file["isFolder"]);
        EXPECT_EQ(file["size"], 120000);
        EXPECT_EQ(file["selectionType"], "none");
        EXPECT_FALSE(file["needToRemove"]);
        total += file["sizeOnDisk"].get<std::uint64_t>();
    }
    EXPECT_EQ(paths, (std::set<std::string>{tree / "Pictures/beach.jpg", tree / "Backup/beach.jpg",
                                            tree / "Backup/old/beach copy.jpg"}));
    EXPECT_EQ(pictures["totalSize"], total);
    EXPECT_EQ(doc["groups"][1]["category"], "Music");
    EXPECT_EQ(doc["groups"][2]["category"], "Documents");
    EXPECT_EQ(doc["summary"]["groups"], 3);
    EXPECT_EQ(doc["summary"]["files"], 7);

    const Outcome limited =
        corvel("scan --json --min-size 100000 " + settings() + " " + quoted(tree.path()), home);
    ASSERT_EQ(limited.status, 0);
    EXPECT_EQ(nlohmann::json::parse(limited.out)["groups"].size(), 1u);

    const Outcome text = corvel("scan " + settings() + " " + quoted(tree.path()), home);
    EXPECT_NE(text.out.find("Pictures: 3 copies of 120 KB"), std::string::npos) << text.out;
    EXPECT_NE(text.out.find("3 groups, 7 files"), std::string::npos);
    EXPECT_TRUE(text.err.empty()) << "no progress when stderr is not a terminal: " << text.err;
}

TEST_F(CorvelScan, DuplicateFoldersAreOneGroup) {
    for (const char* root : {"A/Album", "B/Album Copy"}) {
        tree.file(std::string(root) + "/1.jpg", std::string(70000, '1'));
        tree.file(std::string(root) + "/2.jpg", std::string(71000, '2'));
    }
    tree.file("A/other.bin", std::string(10, 'a'));
    const Outcome run = corvel("scan --json " + settings() + " " + quoted(tree.path()), home);
    ASSERT_EQ(run.status, 0) << run.err;
    const auto doc = nlohmann::json::parse(run.out);
    ASSERT_EQ(doc["groups"].size(), 1u) << run.out;
    EXPECT_EQ(doc["groups"][0]["category"], "Folders");
    EXPECT_TRUE(doc["groups"][0]["files"][0]["isFolder"]);
}

TEST_F(CorvelScan, FoldersNotReadCompletelyAreNamedOnceAndMakeNoFolderGroup) {
    // A and B are equal but for a sub-folder the other account cannot read; C holds 21
    // more of those, so that the list is cut short.
    for (const char* side : {"A", "B"}) {
        tree.file(std::string(side) + "/1.jpg", std::string(70000, '1'));
        tree.file(std::string(side) + "/2.jpg", std::string(71000, '2'));
        tree.file(std::string(side) + "/part/x.jpg", std::string(72000, side[0]));
        ::chmod((tree / (std::string(side) + "/part")).c_str(), 0700);
    }
    for (int i = 0; i < 21; ++i) {
        const std::string locked = tree.folder("C/l" + std::to_string(100 + i));
        ::chmod(locked.c_str(), 0700);
    }
    test::openToAnotherUser(home.path());
    for (const char* folder : {"", "/A", "/B", "/C"})
        test::openToAnotherUser(tree.path() + folder);
    const Outcome run = corvelWith("", "scan --json " + settings() + " " + quoted(tree.path()), home, true);
    ASSERT_EQ(run.status, 0) << run.err;
    const auto doc = nlohmann::json::parse(run.out);
    ASSERT_EQ(doc["groups"].size(), 2u) << run.out;
    for (const auto& group : doc["groups"]) {
        EXPECT_NE(group["category"], "Folders") << run.out;
        EXPECT_FALSE(group["files"][0]["isFolder"]) << run.out;
    }
    std::vector<std::string> lines;
    for (std::size_t at = 0, end; (end = run.err.find('\n', at)) != std::string::npos; at = end + 1)
        lines.push_back(run.err.substr(at, end - at));
    ASSERT_EQ(lines.size(), 21u) << run.err;
    EXPECT_EQ(lines[0], "corvel: cannot read " + (tree / "A/part") + ": Permission denied");
    EXPECT_EQ(lines[1], "corvel: cannot read " + (tree / "B/part") + ": Permission denied");
    EXPECT_EQ(lines[19], "corvel: cannot read " + (tree / "C/l117") + ": Permission denied");
    EXPECT_EQ(lines[20], "corvel: and 3 more could not be read");
}

// A file listed by the walk whose content the account may not read is named once, with
// the reason, also under --quiet; the groups and the exit status are those of the files
// that could be read.
TEST_F(CorvelScan, AFileThatCannotBeReadIsNamedOnceAndTheRestGroupsAsBefore) {
    const std::string data(70000, 'd');
    tree.file("a.bin", data);
    tree.file("b.bin", data);
    const std::string locked = tree.file("c.bin", data);
    test::makeUnreadableToAnotherUser(locked);
    test::openToAnotherUser(home.path());
    for (const std::string options : {"--json", "--json --quiet"}) {
        const Outcome run =
            corvelWith("", "scan " + options + " " + settings() + " " + quoted(tree.path()), home, true);
        EXPECT_EQ(run.status, 0) << options << "\n" << run.err;
        EXPECT_EQ(run.err, "corvel: cannot read " + locked + ": Permission denied\n") << options;
        const auto doc = nlohmann::json::parse(run.out);
        ASSERT_EQ(doc["groups"].size(), 1u) << run.out;
        std::set<std::string> paths;
        for (const auto& file : doc["groups"][0]["files"])
            paths.insert(file["path"]);
        EXPECT_EQ(paths, (std::set<std::string>{tree / "a.bin", tree / "b.bin"}));
    }
}

// Folders the walk could not read and files whose content could not be read share one
// cap: the folders first, then the files, 20 lines, then what is left of both.
TEST_F(CorvelScan, UnreadFoldersAndFilesAreNamedUnderOneCap) {
    for (int i = 0; i < 15; ++i)
        ::chmod(tree.folder("locked/l" + std::to_string(100 + i)).c_str(), 0700);
    std::set<std::string> files;
    for (int i = 0; i < 10; ++i) {
        const std::string file = tree.file("files/f" + std::to_string(i), std::string(60000, 'f'));
        test::makeUnreadableToAnotherUser(file);
        files.insert(file);
    }
    tree.file("files/open", std::string(60000, 'f'));
    test::openToAnotherUser(home.path());
    for (const char* folder : {"", "/locked", "/files"})
        test::openToAnotherUser(tree.path() + folder);
    const Outcome run = corvelWith("", "scan --json " + settings() + " " + quoted(tree.path()), home, true);
    ASSERT_EQ(run.status, 0) << run.err;
    std::vector<std::string> lines;
    for (std::size_t at = 0, end; (end = run.err.find('\n', at)) != std::string::npos; at = end + 1)
        lines.push_back(run.err.substr(at, end - at));
    ASSERT_EQ(lines.size(), 21u) << run.err;
    for (int i = 0; i < 15; ++i)
        EXPECT_EQ(lines[static_cast<std::size_t>(i)], "corvel: cannot read " +
                                                          (tree / ("locked/l" + std::to_string(100 + i))) +
                                                          ": Permission denied");
    std::set<std::string> named;
    for (std::size_t i = 15; i < 20; ++i) {
        const std::string prefix = "corvel: cannot read ";
        const std::string suffix = ": Permission denied";
        ASSERT_TRUE(lines[i].starts_with(prefix) && lines[i].ends_with(suffix)) << lines[i];
        named.insert(lines[i].substr(prefix.size(), lines[i].size() - prefix.size() - suffix.size()));
    }
    EXPECT_EQ(named.size(), 5u) << run.err;
    for (const auto& path : named)
        EXPECT_TRUE(files.contains(path)) << path;
    EXPECT_EQ(lines[20], "corvel: and 5 more could not be read");
}

TEST_F(CorvelScan, FoldersReachingPastPathMaxAreNamedAndMakeNoFolderGroup) {
    // A and B are equal, down to a chain of folders past PATH_MAX ending in an empty
    // file in each: only their readable files group.
    std::vector<std::unique_ptr<test::LongPath>> chains;
    for (const std::string side : {"A", "B"}) {
        tree.file(side + "/photo.jpg", std::string(70000, 'p'));
        chains.push_back(std::make_unique<test::LongPath>(tree / side, ""));
    }
    const Outcome run = corvel("scan --json " + settings() + " " + quoted(tree.path()), home);
    ASSERT_EQ(run.status, 0) << run.err;
    const auto doc = nlohmann::json::parse(run.out);
    ASSERT_EQ(doc["groups"].size(), 1u) << run.out;
    EXPECT_FALSE(doc["groups"][0]["files"][0]["isFolder"]) << run.out;
    std::vector<std::string> lines;
    for (std::size_t at = 0, end; (end = run.err.find('\n', at)) != std::string::npos; at = end + 1)
        lines.push_back(run.err.substr(at, end - at));
    ASSERT_EQ(lines.size(), 2u) << run.err;
    for (std::size_t i = 0; i < 2; ++i) {
        EXPECT_TRUE(lines[i].starts_with("corvel: cannot read " + chains[i]->deepestReachable() + "/"));
        EXPECT_TRUE(lines[i].ends_with(": File name too long"));
    }
}

TEST_F(CorvelScan, FolderGroupsAreExactAndTheSameOnEveryRun) {
    // Copies written in another order, a near copy differing in one child of three, and
    // nested folders with empty files.
    const std::vector<std::pair<std::string, std::string>> files = {{"a.txt", std::string(3000, 'a')},
                                                                    {"b.txt", std::string(3000, 'b')},
                                                                    {"c.txt", std::string(3000, 'c')}};
    for (const auto& [name, data] : files)
        tree.file("Original/" + name, data);
    for (auto it = files.rbegin(); it != files.rend(); ++it)
        tree.file("Reversed copy/" + it->first, it->second);
    tree.file("Near copy/a.txt", std::string(3000, 'a'));
    tree.file("Near copy/b.txt", std::string(2999, 'b') + "x");
    tree.file("Near copy/c.txt", std::string(3000, 'c'));
    for (const char* root : {"Project", "Backup/Project"}) {
        tree.file(std::string(root) + "/src/main.c", "int main() { return 0; }\n");
        tree.file(std::string(root) + "/src/.keep", "");
        tree.file(std::string(root) + "/empty", "");
        tree.file(std::string(root) + "/notes.md", std::string(500, 'n'));
    }
    std::string first;
    for (int run = 0; run < 20; ++run) {
        const Outcome scan =
            corvel("scan --json --min-size 1 " + settings() + " " + quoted(tree.path()), home);
        ASSERT_EQ(scan.status, 0) << scan.err;
        if (run == 0)
            first = scan.out;
        else
            ASSERT_EQ(scan.out, first) << "run " << run;
    }
    const auto doc = nlohmann::json::parse(first);
    std::set<std::set<std::string>> folderGroups;
    for (const auto& group : doc["groups"]) {
        if (!group["files"][0]["isFolder"])
            continue;
        std::set<std::string> members;
        for (const auto& file : group["files"])
            members.insert(file["path"]);
        folderGroups.insert(members);
    }
    EXPECT_EQ(folderGroups, (std::set<std::set<std::string>>{{tree / "Original", tree / "Reversed copy"},
                                                             {tree / "Project", tree / "Backup/Project"}}))
        << first;
}

TEST_F(CorvelScan, GroupsComparedOnSamplesSaySoAndVerifyConfirmsThem) {
    // Large files equal in every sampled piece; one pair differs elsewhere.
    const auto [big, altered] = sampledFileAndAlteredCopy();
    tree.file("same/one.bin", big);
    tree.file("same/two.bin", big);
    std::string other = big;
    other[0] = 'Z'; // another head: a group of its own
    std::string otherAltered = other;
    otherAltered[15000] = '#';
    tree.file("differ/one.bin", other);
    tree.file("differ/two.bin", otherAltered);
    std::string third = big; // two pairs alike on their samples: split, nothing dropped
    third[0] = 'Y';
    std::string thirdAltered = third;
    thirdAltered[15000] = '#';
    for (const char* name : {"pairs/one.bin", "pairs/two.bin"})
        tree.file(name, third);
    for (const char* name : {"pairs/three.bin", "pairs/four.bin"})
        tree.file(name, thirdAltered);
    tree.file("small/a.txt", "small and whole");
    tree.file("small/b.txt", "small and whole");
    auto groupsOf = [](const nlohmann::json& doc) {
        std::map<std::string, bool> verified; // first member's folder -> verified
        for (const auto& group : doc["groups"]) {
            const std::string path = group["files"][0]["path"];
            verified[path.substr(0, path.rfind('/'))] = group["verified"];
        }
        return verified;
    };
    const Outcome sampled =
        corvel("scan --json --min-size 1 " + settings() + " " + quoted(tree.path()), home);
    ASSERT_EQ(sampled.status, 0) << sampled.err;
    EXPECT_EQ(groupsOf(nlohmann::json::parse(sampled.out)),
              (std::map<std::string, bool>{{tree / "same", false},
                                           {tree / "differ", false},
                                           {tree / "pairs", false},
                                           {tree / "small", true}}));
    const Outcome text = corvel("scan --min-size 1 " + settings() + " " + quoted(tree.path()), home);
    EXPECT_NE(text.out.find("compared by samples"), std::string::npos) << text.out;

    const Outcome verified =
        corvel("scan --json --verify --min-size 1 " + settings() + " " + quoted(tree.path()), home);
    ASSERT_EQ(verified.status, 0) << verified.err;
    EXPECT_EQ(
        groupsOf(nlohmann::json::parse(verified.out)),
        (std::map<std::string, bool>{{tree / "same", true}, {tree / "pairs", true}, {tree / "small", true}}))
        << "the pair that differs beyond its samples is dropped";
    const auto doc = nlohmann::json::parse(verified.out);
    EXPECT_EQ(std::count_if(doc["groups"].begin(), doc["groups"].end(),
                            [](const auto& group) { return group["files"].size() == 2; }),
              4)
        << "same, small and the two pairs";
    EXPECT_NE(verified.err.find("--verify: 1 group split and 1 dropped"), std::string::npos) << verified.err;
}

// The walk leaves some things out of the tree (links, pipes, sockets, devices, hidden and
// excluded folders), so two folders whose nodes match may still differ there: such a group
// is only sampled, and --verify compares the folders whole, splitting those that differ.
TEST_F(CorvelScan, FoldersHoldingWhatTheWalkLeavesOutAreComparedWholeByVerify) {
    struct Case {
        const char* name;
        std::function<void(const std::string& folder, bool second)> add;
        bool equal;
        const char* options;
    };
    const Case cases[] = {
        {"hidden folders that differ",
         [&](const std::string& f, bool second) { tree.file(f + "/.cfg/key", second ? "two" : "one"); },
         false, ""},
        {"equal hidden folders", [&](const std::string& f, bool) { tree.file(f + "/.cfg/key", "same"); },
         true, ""},
        {"excluded folders that differ",
         [&](const std::string& f, bool second) { tree.file(f + "/node_modules/p", second ? "2" : "1"); },
         false, "--exclude node_modules"},
        {"links to other places",
         [&](const std::string& f, bool second) { tree.symlink(f + "/link", second ? "/b" : "/a"); }, false,
         ""},
        {"links to one place", [&](const std::string& f, bool) { tree.symlink(f + "/link", "/a"); }, true,
         ""},
        {"pipes", [&](const std::string& f, bool) { ::mkfifo((tree / (f + "/p")).c_str(), 0600); }, false,
         ""},
        {"sockets", [&](const std::string& f, bool) { tree.socket(f + "/s"); }, false, ""},
        {"a link in one folder only",
         [&](const std::string& f, bool second) {
             if (second)
                 tree.symlink(f + "/link", "/a");
         },
         false, ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string root = tree.folder(c.name);
        for (const bool second : {false, true}) {
            const std::string folder = std::string(c.name) + (second ? "/b" : "/a");
            tree.file(folder + "/f", std::string("the same file ") + c.name);
            c.add(folder, second);
        }
        // Each member's folder -> whether its group is verified.
        auto groupsOf = [&](const std::string& options) {
            const Outcome run = corvel("scan --json --min-size 1 " + options + " " + c.options + " " +
                                           settings() + " " + quoted(root),
                                       home);
            EXPECT_EQ(run.status, 0) << run.err;
            const auto doc = nlohmann::json::parse(run.out);
            std::map<std::string, bool> found;
            for (const auto& group : doc["groups"])
                for (const auto& file : group["files"])
                    found[std::string(file["path"]).substr(root.size() + 1)] = group["verified"];
            return found;
        };
        EXPECT_EQ(groupsOf(""), (std::map<std::string, bool>{{"a", false}, {"b", false}})) << "sampled";
        using Verified = std::map<std::string, bool>;
        const Verified whole = {{"a", true}, {"b", true}};
        const Verified split = {{"a/f", true}, {"b/f", true}};
        EXPECT_EQ(groupsOf("--verify"), c.equal ? whole : split);
    }
}

// Two folders equal on their samples but not on every byte hide the copies inside them
// from the file comparison: the verified modes compare such folders whole first, so those
// copies are still found (and the folders are not offered).
TEST_F(CorvelScan, VerifiedModesFindTheCopiesInsideFoldersThatDifferBeyondTheirSamples) {
    const auto [big, altered] = sampledFileAndAlteredCopy();
    tree.file("base.bin", big);
    for (const char* folder : {"one", "two"})
        tree.file(std::string(folder) + "/a.bin", big);
    tree.file("one/b.bin", big);
    tree.file("two/b.bin", altered);
    const std::set<std::string> copies = {tree / "base.bin", tree / "one/a.bin", tree / "one/b.bin",
                                          tree / "two/a.bin"};
    for (const std::string mode : {"--verify --json", "--format fdupes"}) {
        const Outcome run =
            corvel("scan --min-size 1 " + mode + " " + settings() + " " + quoted(tree.path()), home);
        ASSERT_EQ(run.status, 0) << mode << "\n" << run.err;
        std::set<std::string> found;
        for (const std::string& path : {tree / "base.bin", tree / "one/a.bin", tree / "one/b.bin",
                                        tree / "two/a.bin", tree / "two/b.bin", tree / "one", tree / "two"})
            if (run.out.find(path + (mode.starts_with("--verify") ? "\"" : "\n")) != std::string::npos)
                found.insert(path);
        EXPECT_EQ(found, copies) << mode << "\n" << run.out;
    }
}

TEST_F(CorvelScan, NamesThatAreNotUtf8AreWrittenWithSurrogateEscapes) {
    const std::string name = "caf\xE9 \xFF.jpg";
    tree.file("a/" + name, std::string(60000, 'c'));
    tree.file("b/" + name, std::string(60000, 'c'));
    tree.file("a/keeps the folders apart", "1");
    const Outcome run = corvel("scan --json " + settings() + " " + quoted(tree.path()), home);
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_NE(run.out.find("caf\\udce9 \\udcff.jpg"), std::string::npos) << run.out;
    const std::string key = R"("path":")";
    const auto at = run.out.find(key);
    ASSERT_NE(at, std::string::npos);
    const auto end = run.out.find('"', at + key.size());
    const std::string decoded =
        cli::decodeJsonString(std::string_view(run.out).substr(at + key.size(), end - at - key.size()));
    EXPECT_TRUE(decoded == tree / ("a/" + name) || decoded == tree / ("b/" + name))
        << "the path comes back byte for byte";
}

TEST_F(CorvelScan, ControlBytesInNamesAreEscapedInTextAndExactInJson) {
    // A line feed would split the path over two lines; the escape sequence would turn the
    // terminal red; the backslash is doubled so the shown "\n" cannot be mistaken.
    const std::string name = "evil\n\x1b[31mred\\x.dat";
    const std::string shown = R"(evil\n\x1b[31mred\\x.dat)";
    tree.file("a/" + name, std::string(60000, 'e'));
    tree.file("b/" + name, std::string(60000, 'e'));
    tree.file("a/keeps the folders apart", "1");
    const Outcome text = corvel("scan " + settings() + " " + quoted(tree.path()), home);
    ASSERT_EQ(text.status, 0) << text.err;
    EXPECT_EQ(text.out.find('\x1b'), std::string::npos) << "no escape byte reaches the terminal";
    for (const char* folder : {"/a/", "/b/"})
        EXPECT_NE(text.out.find("  " + tree.path() + folder + shown + "\n"), std::string::npos) << text.out;
    EXPECT_EQ(text.out.find("evil\n"), std::string::npos) << "the path stays on one line";

    const Outcome json = corvel("scan --json " + settings() + " " + quoted(tree.path()), home);
    ASSERT_EQ(json.status, 0) << json.err;
    const auto doc = nlohmann::json::parse(json.out);
    std::set<std::string> paths;
    for (const auto& group : doc["groups"])
        for (const auto& file : group["files"])
            paths.insert(file["path"].get<std::string>());
    EXPECT_EQ(paths, (std::set<std::string>{tree / ("a/" + name), tree / ("b/" + name)}))
        << "JSON keeps the names exact";
}

TEST_F(CorvelScan, ExitStatusesTellWhatHappened) {
    tree.file("x/a.txt", "a");
    tree.file("red\x1b[31mname", "a file, named with a terminal escape");
    tree.symlink("loop1", tree / "loop2");
    tree.symlink("loop2", tree / "loop1");
    struct Case {
        std::string arguments;
        int status;
        std::string message;
    };
    for (const Case& c :
         {Case{"scan " + quoted(tree / "x"), 0, ""},
          Case{"scan " + quoted(tree / "missing"), 2, "missing: no such file or directory"},
          Case{"scan " + quoted(tree / "loop1"), 2, "loop1: too many levels of symbolic links"},
          Case{"scan ''", 2, "corvel: an empty path was given"},
          Case{"scan --export '' " + quoted(tree / "x"), 2, "--export: an empty file name"},
          Case{"scan --select '' " + quoted(tree / "x"), 2, "--select: an empty file name"},
          Case{"scan --exclude-from '' " + quoted(tree / "x"), 2, "--exclude-from: an empty file name"},
          Case{"remove ''", 2, "an empty file name"},
          Case{"scan " + quoted(tree / "red\x1b[31mname"), 2, "red\\x1b[31mname: not a folder"},
          Case{"scan --frobnicate " + quoted(tree / "x"), 2, "frobnicate"},
          Case{"scan", 2, "paths"},
          Case{"", 2, "a command is required"},
          Case{"frobnicate", 2, "frobnicate is not a command"},
          Case{"scan --frobnicate", 2, "not understood: --frobnicate"},
          Case{"scan --min-size 1.5M " + quoted(tree / "x"), 2, "not a size: 1.5M"},
          Case{"scan --export - --json " + quoted(tree / "x"), 2, "would both write to stdout"},
          Case{"scan --export - --remove --dry-run " + quoted(tree / "x"), 2,
               "--export and --remove cannot be combined"},
          Case{"scan --export " + quoted(tree / "missing/list.txt") + " " + quoted(tree / "x"), 2,
               "missing does not exist"},
          Case{"scan /proc", 3, "cannot scan /proc: it is a protected system folder"},
          Case{"scan " + quoted(home.folder(".hidden")), 3, "hidden folders are not scanned"},
          Case{"scan --min-size lots " + quoted(tree / "x"), 2, "min-size"}}) {
        const Outcome run = corvel(c.arguments + " " + settings(), home);
        EXPECT_EQ(run.status, c.status) << c.arguments << "\n" << run.err;
        EXPECT_NE(run.err.find(c.message), std::string::npos) << c.arguments << "\n" << run.err;
    }
    EXPECT_EQ(corvel("--version", home).out.rfind("Corvel ", 0), 0u);
    EXPECT_NE(corvel("scan --help", home).out.find("--min-size"), std::string::npos);
}

TEST_F(CorvelScan, ExportWritesTheSelectedCopiesAndSettingsAreKept) {
    tree.file("a/x.bin", std::string(60000, 'x'));
    tree.file("b/x.bin", std::string(60000, 'x'));
    const Outcome run = corvel(
        "scan --export " + quoted(home / "export.txt") + " " + settings() + " " + quoted(tree.path()), home);
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(test::TempTree::read(home / "export.txt"), "")
        << "nothing is selected without automatic selection";
    EXPECT_NE(test::TempTree::read(home / "settings.plist").find("IgnoreList"), std::string::npos)
        << "the settings file is created with the user's part of the ignore list";
}

} // namespace
} // namespace corvel

namespace corvel {
namespace {

std::map<std::string, std::pair<bool, std::string>> selections(const nlohmann::json& doc) {
    std::map<std::string, std::pair<bool, std::string>> out;
    for (const auto& group : doc["groups"])
        for (const auto& file : group["files"])
            out[file["path"]] = {file["needToRemove"].get<bool>(), file["selectionType"].get<std::string>()};
    return out;
}

TEST_F(CorvelScan, AutoselectChoosesCopiesAndAlwaysKeepsOne) {
    const std::string a(60000, 'a'), b(61000, 'b'), c(62000, 'c'), d(63000, 'd'), e(64000, 'e');
    tree.file("Photos/beach.jpg", a);
    tree.file("Photos/beach copy.jpg", a);
    tree.file("Photos/beach copy 2.jpg", a);
    tree.file("Work/report.pdf", b);
    tree.file("Always/report.pdf", b);
    tree.file("Keep/contract.pdf", c);
    tree.file("Keep/contract copy.pdf", c);
    tree.file("Always/both.zip", d);
    tree.file("Always/sub/both.zip", d);
    tree.file("Dropbox/notes.txt", e);
    tree.file("Notes/notes copy.txt", e);
    tree.file("Notes/other", "keeps the folders apart");
    // The lists as a user keeps them in the settings file.
    PropertyValue::Array list;
    for (const auto& [path, category] : {std::pair{tree / "Always", 0}, std::pair{tree / "Keep", 1}})
        list.emplace_back(
            PropertyValue::Dictionary{{"Path", path}, {"Category", category}, {"Enabled", true}});
    home.file("settings.plist",
              propertyListData(PropertyValue::Dictionary{{"AutoselectList", list},
                                                         {"AutoSelectDefaultSet", true},
                                                         {"AutoselectMailDownloadsSet", true}},
                               PropertyListFormat::XML));
    const Outcome run = corvel("scan --json --autoselect --export " + quoted(home / "export.txt") + " " +
                                   settings() + " " + quoted(tree.path()),
                               home);
    ASSERT_EQ(run.status, 0) << run.err;
    const auto doc = nlohmann::json::parse(run.out);
    const auto chosen = selections(doc);
    auto isSelected = [&](const std::string& relative) { return chosen.at(tree / relative).first; };
    EXPECT_FALSE(isSelected("Photos/beach.jpg"));
    EXPECT_TRUE(isSelected("Photos/beach copy.jpg"));
    EXPECT_TRUE(isSelected("Photos/beach copy 2.jpg"));
    EXPECT_EQ(chosen.at(tree / "Photos/beach copy.jpg").second, "automatic");
    EXPECT_TRUE(isSelected("Always/report.pdf")) << "the copy in the always-select folder";
    EXPECT_FALSE(isSelected("Work/report.pdf"));
    EXPECT_FALSE(isSelected("Keep/contract.pdf"));
    EXPECT_FALSE(isSelected("Keep/contract copy.pdf"))
        << "never-select folders are never chosen, copy name or not";
    EXPECT_NE(isSelected("Always/both.zip"), isSelected("Always/sub/both.zip"))
        << "all white: one copy stays";
    EXPECT_FALSE(isSelected("Dropbox/notes.txt")) << "cloud folders are never chosen";
    for (const auto& group : doc["groups"]) {
        bool kept = false;
        for (const auto& file : group["files"])
            kept = kept || !file["needToRemove"].get<bool>();
        EXPECT_TRUE(kept) << group.dump();
    }
    EXPECT_NE(run.err.find("duplicates were selected automatically"), std::string::npos) << run.err;
    const std::string exported = test::TempTree::read(home / "export.txt");
    for (const char* selected :
         {"Photos/beach copy.jpg\n", "Photos/beach copy 2.jpg\n", "Always/report.pdf\n\n"})
        EXPECT_NE(exported.find(tree / selected), std::string::npos) << exported;
    EXPECT_EQ(exported.find(tree / "Photos/beach.jpg"), std::string::npos);
}

// Settings files the user named, or that cannot be read, are never changed.
class CorvelSettingsFile : public CorvelScan {
protected:
    void SetUp() override {
        tree.file("a/x.bin", std::string(60000, 'x'));
        tree.file("b/x.bin", std::string(60000, 'x'));
    }
    // The files in a folder whose names start with prefix.
    static std::vector<std::string> filesStartingWith(const std::string& folder, const std::string& prefix) {
        std::vector<std::string> names;
        if (DIR* dir = ::opendir(folder.c_str())) {
            while (const dirent* entry = ::readdir(dir))
                if (std::string(entry->d_name).rfind(prefix, 0) == 0)
                    names.emplace_back(entry->d_name);
            ::closedir(dir);
        }
        return names;
    }
    static bool isLink(const std::string& path) {
        struct stat st {};
        return ::lstat(path.c_str(), &st) == 0 && S_ISLNK(st.st_mode);
    }
    const std::string shellScript = "# ~/.bashrc\nexport PATH=\"$HOME/bin:$PATH\"\nalias ll='ls -l'\n";
};

TEST_F(CorvelSettingsFile, ANamedFileThatIsNotASettingsFileIsAUsageErrorAndUntouched) {
    const std::string bashrc = home.file("bashrc", shellScript);
    const std::string link = home.symlink("linked-settings", bashrc);
    const std::string empty = home.file("empty", "");
    const std::string array =
        home.file("array.plist", propertyListData(PropertyValue::Array{1}, PropertyListFormat::XML));
    struct Case {
        std::string environment;
        std::string arguments;
        std::string file;
    };
    for (const Case& c :
         {Case{"", "--settings " + quoted(bashrc), bashrc}, Case{"", "--settings " + quoted(link), bashrc},
          Case{"", "--settings " + quoted(empty), empty}, Case{"", "--settings " + quoted(array), array},
          Case{"", "--settings " + quoted(home.path()), home.path()},
          Case{"CORVEL_SETTINGS=" + quoted(bashrc), "", bashrc}}) {
        const std::string before = isDirectory(c.file) ? std::string() : test::TempTree::read(c.file);
        const Outcome run =
            corvelWith(c.environment, "scan " + c.arguments + " " + quoted(tree.path()), home);
        EXPECT_EQ(run.status, 2) << c.environment << c.arguments << "\n" << run.err;
        EXPECT_NE(run.err.find("is not a settings file"), std::string::npos) << run.err;
        EXPECT_TRUE(run.out.empty()) << "nothing was scanned: " << run.out;
        if (!isDirectory(c.file)) {
            EXPECT_EQ(test::TempTree::read(c.file), before) << c.file;
        }
    }
    EXPECT_TRUE(isLink(link)) << "the link is still a link";
    EXPECT_TRUE(filesStartingWith(home.path(), "bashrc.").empty());
    EXPECT_TRUE(filesStartingWith(home.path(), "linked-settings.").empty());
    EXPECT_TRUE(filesStartingWith(home.path(), "empty.").empty());
    EXPECT_TRUE(filesStartingWith(home.path(), "array.plist.").empty());
}

// An empty name (an unset variable in a script) is refused: it would otherwise mean the
// user's own settings file.
TEST_F(CorvelSettingsFile, AnEmptyNameIsAUsageErrorAndTheDefaultFileIsNotTouched) {
    const std::string path = home / ".config/corvel/com.halvik.Corvel.plist";
    for (const std::string& command :
         {"scan " + quoted(tree.path()), std::string("stats"), std::string("remind --status"),
          "remove " + quoted(tree / "plan.json")}) {
        const Outcome run = corvelWith("env -u CORVEL_SETTINGS", command + " --settings ''", home);
        EXPECT_EQ(run.status, 2) << command << "\n" << run.err;
        EXPECT_NE(run.err.find("--settings: an empty file name"), std::string::npos) << run.err;
        EXPECT_FALSE(pathExists(path, false)) << command;
    }
}

TEST_F(CorvelSettingsFile, TheDefaultFileIsRepairedAndTheDamagedOneKeptWithATimestamp) {
    const std::string damaged = "<plist><dict><key>MoveIntoTrash</key><false/>";
    const std::string folder = home / ".config/corvel";
    const std::string path = home.file(".config/corvel/com.halvik.Corvel.plist", damaged);
    const Outcome run = corvelWith("env -u CORVEL_SETTINGS", "scan " + quoted(tree.path()), home);
    ASSERT_EQ(run.status, 0) << run.err;
    const auto aside = filesStartingWith(folder, "com.halvik.Corvel.plist.corrupt-");
    ASSERT_EQ(aside.size(), 1u) << run.err;
    EXPECT_EQ(test::TempTree::read(folder + "/" + aside[0]), damaged);
    // The name carries the time it was set aside: .corrupt-YYYYMMDD-HHMMSS.
    const std::string stamp = aside[0].substr(std::string("com.halvik.Corvel.plist.corrupt-").size());
    EXPECT_EQ(stamp.size(), 15u) << aside[0];
    EXPECT_EQ(stamp.find_first_not_of("0123456789-"), std::string::npos) << aside[0];
    EXPECT_NE(run.err.find(aside[0]), std::string::npos) << "stderr says where it went: " << run.err;
    PropertyValue repaired;
    EXPECT_TRUE(readPropertyListFile(path, repaired, nullptr)) << "a new settings file in its place";

    // A second damaged file goes beside the first, never over it.
    home.file(".config/corvel/com.halvik.Corvel.plist", "second damage");
    ASSERT_EQ(corvelWith("env -u CORVEL_SETTINGS", "scan " + quoted(tree.path()), home).status, 0);
    const auto both = filesStartingWith(folder, "com.halvik.Corvel.plist.corrupt-");
    ASSERT_EQ(both.size(), 2u);
    std::set<std::string> contents;
    for (const auto& name : both)
        contents.insert(test::TempTree::read(folder + "/" + name));
    EXPECT_EQ(contents, (std::set<std::string>{damaged, "second damage"}));
}

TEST_F(CorvelSettingsFile, AnUnreadableFileIsLeftAsItIsAndTheScanGoesOn) {
    const std::string original = propertyListData(
        PropertyValue::Dictionary{
            {"IgnoreList",
             PropertyValue::Dictionary{{"Directories", PropertyValue::Array{PropertyValue::Dictionary{
                                                           {"Value", "/data/Mine"}, {"Enabled", true}}}},
                                       {"ExtentionsGroups", PropertyValue::Array{}},
                                       {"FilePathes", PropertyValue::Array{}}}},
            {"MoveIntoTrash", true}},
        PropertyListFormat::XML);
    test::openToAnotherUser(home.path());
    test::openToAnotherUser(tree.path());
    test::openToAnotherUser(tree / "a");
    test::openToAnotherUser(tree / "b");
    const std::string named = home.file("named.plist", original);
    const std::string standard = home.file(".config/corvel/com.halvik.Corvel.plist", original);
    test::openToAnotherUser(home / ".config");
    test::makeUnreadableToAnotherUser(named);
    test::makeUnreadableToAnotherUser(standard);
    struct Case {
        std::string environment;
        std::string arguments;
        std::string file;
    };
    for (const Case& c :
         {Case{"", "--settings " + quoted(named), named}, Case{"CORVEL_SETTINGS=" + quoted(named), "", named},
          Case{"env -u CORVEL_SETTINGS", "", standard}}) {
        const Outcome run =
            corvelWith(c.environment, "scan --json " + c.arguments + " " + quoted(tree.path()), home, true);
        ASSERT_EQ(run.status, 0) << c.environment << c.arguments << "\n" << run.err;
        EXPECT_EQ(nlohmann::json::parse(run.out)["groups"].size(), 1u) << "the scan ran with the defaults";
        EXPECT_NE(run.err.find("could not be read"), std::string::npos) << run.err;
        EXPECT_NE(run.err.find(c.file), std::string::npos) << run.err;
        EXPECT_EQ(test::TempTree::read(c.file), original);
        struct stat st {};
        ASSERT_EQ(::stat(c.file.c_str(), &st), 0);
        EXPECT_EQ(st.st_mode & 07777, 0u);
        EXPECT_EQ(st.st_uid, ::geteuid()) << "not replaced by a file of the other account";
    }
}

TEST_F(CorvelSettingsFile, AWrongTypedRemovalSettingIsReportedAndTheDefaultUsed) {
    const std::string path =
        home.file("settings.plist", propertyListData(PropertyValue::Dictionary{{"MoveIntoTrash", "NO"}},
                                                     PropertyListFormat::XML));
    const Outcome run = corvel("scan " + settings() + " " + quoted(tree.path()), home);
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_NE(run.err.find("\"MoveIntoTrash\""), std::string::npos) << run.err;
    EXPECT_NE(run.err.find("wrong type"), std::string::npos) << run.err;
    PropertyValue file;
    ASSERT_TRUE(readPropertyListFile(path, file, nullptr));
    EXPECT_EQ(file["MoveIntoTrash"].toString(), "NO") << "the user's value is kept";
}

// The sizes of the groups found, smallest first.
std::vector<std::uint64_t> groupSizes(const std::string& json) {
    std::vector<std::uint64_t> sizes;
    const auto doc = nlohmann::json::parse(json);
    for (const auto& group : doc["groups"])
        sizes.push_back(group["files"][0]["size"].get<std::uint64_t>());
    std::sort(sizes.begin(), sizes.end());
    return sizes;
}

TEST_F(CorvelScan, SizesTakeSuffixesAndBadSizesAreUsageErrors) {
    for (const std::uint64_t size : {2000u, 60000u, 200000u})
        for (const char* side : {"a", "b"})
            tree.file(std::string(side) + "/" + std::to_string(size) + ".bin", std::string(size, 'z'));
    tree.file("a/only.txt", "keeps the folders apart");
    struct Case {
        std::string options;
        std::vector<std::uint64_t> sizes;
    };
    for (const Case& c :
         {Case{"--min-size 50k", {60000, 200000}}, Case{"--min-size 100KiB", {200000}},
          Case{"--min-size 1 --max-size 60k", {2000, 60000}}, Case{"--min-size 1 --max-size 1999", {}},
          Case{"--min-size 1M", {}}, Case{"--max-size 200000", {2000, 60000, 200000}}}) {
        const Outcome run =
            corvel("scan --json " + c.options + " " + settings() + " " + quoted(tree.path()), home);
        ASSERT_EQ(run.status, 0) << c.options << "\n" << run.err;
        EXPECT_EQ(groupSizes(run.out), c.sizes) << c.options << "\n" << run.out.substr(0, 600);
    }
    for (const std::string bad : {"--min-size -5", "--min-size=-1k", "--max-size abc", "--min-size 1.5k",
                                  "--min-size 99999999999999999999G", "--min-size 20000000000000000000000",
                                  "--min-size 10 --max-size 5", "--max-size", "--min-size 0.2M"}) {
        const Outcome run = corvel("scan " + bad + " " + settings() + " " + quoted(tree.path()), home);
        EXPECT_EQ(run.status, 2) << bad << "\n" << run.out << run.err;
        EXPECT_NE(run.err.find("size"), std::string::npos) << bad << "\n" << run.err;
        EXPECT_TRUE(run.err.starts_with("corvel: ")) << bad << "\n" << run.err;
        EXPECT_EQ(run.out, "") << bad;
    }
}

TEST_F(CorvelScan, AFolderThatCannotBeReadLeavesNothingToScanAndFails) {
    tree.file("open/x.bin", std::string(60000, 'x'));
    tree.file("open/y.bin", std::string(60000, 'x'));
    tree.file("closed/x.bin", std::string(60000, 'x'));
    tree.file("closed/y.bin", std::string(60000, 'x'));
    test::openToAnotherUser(home.path());
    test::openToAnotherUser(tree.path());
    test::openToAnotherUser(tree / "open");
    // Not listed at all; listed, but not one entry could be looked at (no search right).
    for (const auto& [mode, named] : {std::pair<mode_t, std::string>{0700, tree / "closed"},
                                      std::pair<mode_t, std::string>{0704, tree / "closed/x.bin"}}) {
        ::chmod((tree / "closed").c_str(), mode);
        const Outcome closed =
            corvelWith("", "scan " + settings() + " " + quoted(tree / "closed"), home, true);
        EXPECT_EQ(closed.status, 1) << mode << closed.out << closed.err;
        EXPECT_EQ(closed.err, "corvel: cannot read " + named +
                                  ": Permission denied\ncorvel: the folder could not be read\n");
        EXPECT_EQ(closed.out, "");
    }
    ::chmod((tree / "closed").c_str(), 0700);
    // With another folder that can be read, the scan goes on and says what it missed.
    const Outcome both = corvelWith(
        "", "scan " + settings() + " " + quoted(tree / "closed") + " " + quoted(tree / "open"), home, true);
    EXPECT_EQ(both.status, 0) << both.err;
    EXPECT_EQ(both.err, "corvel: cannot read " + (tree / "closed") + ": Permission denied\n");
    EXPECT_NE(both.out.find(tree / "open/y.bin"), std::string::npos) << both.out;
}

TEST_F(CorvelScan, SummarySaysWhatCanBeFreedAndMarksHardLinks) {
    const std::string big = tree.file("a/big.bin", std::string(70000, 'b'));
    ASSERT_EQ(::link(big.c_str(), (tree / "a/big-link.bin").c_str()), 0);
    tree.file("b/big.bin", std::string(70000, 'b'));
    tree.file("c/big.bin", std::string(70000, 'b'));
    tree.file("a/small.txt", std::string(100, 's'));
    tree.file("b/small.txt", std::string(100, 's'));
    const Outcome json = corvel("scan --json --min-size 1 " + settings() + " " + quoted(tree.path()), home);
    ASSERT_EQ(json.status, 0) << json.err;
    const auto doc = nlohmann::json::parse(json.out);
    std::uint64_t expected = 0;
    std::uint64_t bigPerCopy = 0;
    for (const auto& group : doc["groups"]) {
        std::uint64_t perCopy = 0;
        for (const auto& file : group["files"])
            perCopy = std::max(perCopy, file["sizeOnDisk"].get<std::uint64_t>());
        // Four names of the big file are three files: two can go; of the small one, one.
        const bool fourNames = group["files"].size() == 4;
        expected += perCopy * (fourNames ? 2 : 1);
        bigPerCopy = fourNames ? perCopy : bigPerCopy;
    }
    ASSERT_EQ(doc["groups"].size(), 2u);
    EXPECT_GT(expected, 140000u);
    EXPECT_EQ(doc["summary"]["reclaimable"], expected);
    EXPECT_EQ(doc["summary"]["selectedFiles"], 0);

    const Outcome text = corvel("scan --min-size 1 " + settings() + " " + quoted(tree.path()), home);
    std::size_t marked = 0;
    for (std::size_t at = 0;
         (at = text.out.find("(hard link: the same file as one above)", at)) != std::string::npos; ++at)
        ++marked;
    EXPECT_EQ(marked, 1u) << text.out;
    const std::string line = text.out.substr(text.out.rfind('\n', text.out.size() - 2) + 1);
    EXPECT_EQ(line, "2 groups, 6 files, " + cli::sizeText(doc["summary"]["size"].get<std::uint64_t>()) +
                        " on disk in duplicates, " + cli::sizeText(expected) + " reclaimable\n");
    const std::string list = home.file("chosen.txt", tree / "c/big.bin" + "\n");
    const Outcome chosen = corvel(
        "scan --select " + quoted(list) + " --min-size 1 " + settings() + " " + quoted(tree.path()), home);
    EXPECT_NE(chosen.out.find(", " + cli::sizeText(bigPerCopy) + " selected (1 copy)\n"), std::string::npos)
        << chosen.out;
}

TEST_F(CorvelScan, AutomaticMinimumSaysWhenSmallerSizesWereLeft) {
    // 101 pairs of small files of different sizes: the automatic rule looks for the 100
    // largest groups below 50 kB and leaves the last one.
    for (int i = 0; i < 101; ++i)
        for (const char* side : {"a", "b"})
            tree.file(std::string(side) + "/" + std::to_string(i) + ".txt", std::string(1000 + i, 'q'));
    tree.file("a/only.txt", "keeps the folders apart");
    const std::string note = "--min-size 1 compares every size";
    const Outcome automatic = corvel("scan --json " + settings() + " " + quoted(tree.path()), home);
    ASSERT_EQ(automatic.status, 0) << automatic.err;
    EXPECT_EQ(nlohmann::json::parse(automatic.out)["groups"].size(), 100u);
    EXPECT_NE(automatic.err.find(note), std::string::npos) << automatic.err;
    const Outcome every = corvel("scan --json --min-size 1 " + settings() + " " + quoted(tree.path()), home);
    EXPECT_EQ(nlohmann::json::parse(every.out)["groups"].size(), 101u);
    EXPECT_EQ(every.err.find(note), std::string::npos) << every.err;
}

TEST_F(CorvelScan, HelpNamesItsPlaceholdersExitStatusesAndExamples) {
    const Outcome top = corvel("--help", home);
    EXPECT_EQ(top.status, 0);
    for (const char* text :
         {"Exit status:", "  3  a folder refused", "Examples:", "corvel scan --autoselect"})
        EXPECT_NE(top.out.find(text), std::string::npos) << text << "\n" << top.out;
    const Outcome scan = corvel("scan --help", home);
    for (const char* text : {"paths PATH", "--min-size SIZE", "--max-size SIZE", "--export FILE",
                             "--settings FILE", "--select FILE", "500k = 500,000 bytes"})
        EXPECT_NE(scan.out.find(text), std::string::npos) << text << "\n" << scan.out;
    EXPECT_NE(corvel("remove --help", home).out.find("PLAN.json"), std::string::npos);
}

// /var holds three protected folders on every Debian system; the scan only reads.
TEST_F(CorvelScan, ProtectedFoldersInsideARootAreNamedOnce) {
    const Outcome run = corvel("scan --min-size 1G " + settings() + " /var", home);
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_NE(run.err.find("corvel: skipped 3 protected folders: /var/cache, /var/lib, /var/spool\n"),
              std::string::npos)
        << run.err;
    const Outcome none = corvel("scan " + settings() + " " + quoted(tree.folder("plain")), home);
    EXPECT_EQ(none.err.find("protected"), std::string::npos) << none.err;
}

// The walk stays on each folder's file system: a drive mounted inside is named, and is
// scanned when given beside the other folders.
TEST_F(CorvelScan, ADriveMountedInsideIsNamedAndScannedWhenGivenBesideTheOthers) {
    const std::string disk = tree.folder("media/disk");
    test::ScopedMount mounted("corvel-test", disk, "tmpfs", 0, "size=1m");
    if (!mounted.mounted())
        GTEST_SKIP() << mounted.why();
    tree.file("media/disk/photo.jpg", std::string(70000, 'p'));
    tree.file("media/photos/photo.jpg", std::string(70000, 'p'));
    const Outcome inside = corvel("scan --json " + settings() + " " + quoted(tree / "media"), home);
    ASSERT_EQ(inside.status, 0) << inside.err;
    EXPECT_TRUE(nlohmann::json::parse(inside.out)["groups"].empty()) << inside.out;
    EXPECT_NE(inside.err.find("corvel: not looked into, on another file system: " + disk + "\n"),
              std::string::npos)
        << inside.err;
    const Outcome beside =
        corvel("scan --json " + settings() + " " + quoted(tree / "media/photos") + " " + quoted(disk), home);
    ASSERT_EQ(beside.status, 0) << beside.err;
    EXPECT_EQ(nlohmann::json::parse(beside.out)["groups"].size(), 1u) << beside.out;
    EXPECT_EQ(beside.err.find("another file system"), std::string::npos) << beside.err;
}

} // namespace
} // namespace corvel
