// End-to-end: the options that steer one run (excludes, select lists, keep) and the
// output for scripts (CSV, fdupes, NUL-separated export); nothing of them is stored.

#include <algorithm>
#include <filesystem>
#include <gtest/gtest.h>
#include <map>
#include <nlohmann/json.hpp>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include "cli/corvel_runner.h"
#include "support/other_user.h"
#include "support/temp_tree.h"

namespace corvel {
namespace {

using test::runCorvel;
using test::shellQuoted;

class CorvelSteering : public testing::Test {
protected:
    std::string settings() { return "--settings " + shellQuoted(home / "settings.plist"); }
    // The paths of the groups in the JSON document, each group's members sorted.
    std::vector<std::vector<std::string>> groups(const std::string& json) {
        std::vector<std::vector<std::string>> out;
        const auto doc = nlohmann::json::parse(json);
        for (const auto& group : doc["groups"]) {
            std::vector<std::string> members;
            for (const auto& file : group["files"])
                members.push_back(file["path"].get<std::string>());
            std::sort(members.begin(), members.end());
            out.push_back(members);
        }
        std::sort(out.begin(), out.end());
        return out;
    }
    std::vector<std::string> selected(const std::string& json) {
        std::vector<std::string> out;
        const auto doc = nlohmann::json::parse(json);
        for (const auto& group : doc["groups"])
            for (const auto& file : group["files"])
                if (file["needToRemove"].get<bool>())
                    out.push_back(file["path"].get<std::string>());
        std::sort(out.begin(), out.end());
        return out;
    }
    void setMTime(const std::string& path, time_t seconds) {
        const timeval times[2] = {{seconds, 0}, {seconds, 0}};
        ASSERT_EQ(::utimes(path.c_str(), times), 0);
    }

    test::TempTree home;
    test::TempTree tree;
};

TEST_F(CorvelSteering, ExcludesLeaveOutWhatTheyMatchForThisRunOnly) {
    for (const char* folder : {"keep", "work", "node_modules"}) {
        tree.file(std::string(folder) + "/a.bin", std::string(60000, 'a'));
        tree.file(std::string(folder) + "/b.txt", std::string(60000, 'b'));
        tree.file(std::string(folder) + "/own", std::string(folder) + " alone"); // no two folders are copies
    }
    const std::string globs = home.file("globs", "# build output\n\nnode_modules\r\n*.txt\n");
    struct Case {
        std::string options;
        std::vector<std::vector<std::string>> groups;
    };
    const std::string k = tree / "keep", w = tree / "work", n = tree / "node_modules";
    for (const Case& c :
         {Case{"--exclude node_modules", {{k + "/a.bin", w + "/a.bin"}, {k + "/b.txt", w + "/b.txt"}}},
          Case{"--exclude node_modules --exclude '*.TXT'", {{k + "/a.bin", w + "/a.bin"}}},
          Case{"--exclude-from " + shellQuoted(globs), {{k + "/a.bin", w + "/a.bin"}}},
          Case{"--exclude " + shellQuoted(w) + " --exclude '*.bin'", {{k + "/b.txt", n + "/b.txt"}}}}) {
        const auto run = runCorvel("scan --json --min-size 1 " + c.options + " " + settings() + " " +
                                       shellQuoted(tree.path()),
                                   home);
        ASSERT_EQ(run.status, 0) << c.options << "\n" << run.err;
        EXPECT_EQ(groups(run.out), c.groups) << c.options;
    }
    const std::string stored = test::TempTree::read(home / "settings.plist");
    EXPECT_EQ(stored.find("IgnoreRegexpString"), std::string::npos) << stored;
    EXPECT_EQ(stored.find("node_modules"), std::string::npos) << stored;
    const auto missing = runCorvel("scan --exclude-from " + shellQuoted(home / "none") + " " + settings() +
                                       " " + shellQuoted(tree.path()),
                                   home);
    EXPECT_EQ(missing.status, 2);
    EXPECT_NE(missing.err.find("--exclude-from"), std::string::npos) << missing.err;
}

TEST_F(CorvelSteering, SelectListsOfThisRunTellAutoselectWhereCopiesGo) {
    for (const char* folder : {"originals", "copies"})
        for (int i = 0; i < 3; ++i)
            tree.file(std::string(folder) + "/" + std::to_string(i) + ".jpg", std::string(60000 + i, 'p'));
    tree.file("originals/only.txt", "keeps the folders apart");
    const std::string o = tree / "originals", c = tree / "copies";
    const std::vector<std::string> copies = {c + "/0.jpg", c + "/1.jpg", c + "/2.jpg"};
    struct Case {
        std::string options;
        std::vector<std::string> selected;
    };
    // Never Select only forbids: alone it leaves the choice open, so nothing is selected.
    for (const Case& k :
         {Case{"--always-select " + shellQuoted(c), copies}, Case{"--never-select " + shellQuoted(o), {}},
          Case{"--never-select " + shellQuoted(o) + " --always-select " + shellQuoted(c), copies},
          Case{"--never-select " + shellQuoted(c) + " --always-select " + shellQuoted(o),
               {o + "/0.jpg", o + "/1.jpg", o + "/2.jpg"}}}) {
        const auto run = runCorvel("scan --json --autoselect " + k.options + " " + settings() + " " +
                                       shellQuoted(tree.path()),
                                   home);
        ASSERT_EQ(run.status, 0) << k.options << "\n" << run.err;
        EXPECT_EQ(selected(run.out), k.selected) << k.options << "\n" << run.err;
    }
    const std::string stored = test::TempTree::read(home / "settings.plist");
    EXPECT_EQ(stored.find(o), std::string::npos) << stored;
    EXPECT_EQ(stored.find(c), std::string::npos) << stored;
    const auto notAFolder = runCorvel("scan --autoselect --always-select " + shellQuoted(c + "/0.jpg") + " " +
                                          settings() + " " + shellQuoted(tree.path()),
                                      home);
    EXPECT_EQ(notAFolder.status, 2);
    EXPECT_NE(notAFolder.err.find("is not a folder"), std::string::npos) << notAFolder.err;
}

TEST_F(CorvelSteering, KeepOldestOrNewestSelectsTheOtherCopies) {
    const std::string a = tree.file("a/x.bin", std::string(60000, 'x'));
    const std::string b = tree.file("b/x.bin", std::string(60000, 'x'));
    const std::string c = tree.file("c/x.bin", std::string(60000, 'x'));
    for (const char* folder : {"a", "b", "c"})
        tree.file(std::string(folder) + "/own", std::string(folder) + " alone"); // no two folders are copies
    setMTime(a, 1500000000);
    setMTime(b, 1400000000); // the oldest
    setMTime(c, 1600000000); // the newest
    struct Case {
        std::string keep;
        std::vector<std::string> selected;
    };
    for (const Case& k : {Case{"oldest", {a, c}}, Case{"newest", {a, b}}}) {
        const auto run = runCorvel(
            "scan --json --keep " + k.keep + " " + settings() + " " + shellQuoted(tree.path()), home);
        ASSERT_EQ(run.status, 0) << run.err;
        EXPECT_EQ(selected(run.out), k.selected) << k.keep;
    }
    EXPECT_EQ(runCorvel("scan --keep biggest " + settings() + " " + shellQuoted(tree.path()), home).status,
              2);
    EXPECT_EQ(
        runCorvel("scan --keep oldest --autoselect " + settings() + " " + shellQuoted(tree.path()), home)
            .status,
        2);
}

// Splits CSV text as RFC 4180 reads it: quoted fields may hold commas, quotes and line breaks.
std::vector<std::vector<std::string>> parseCsv(const std::string& text) {
    std::vector<std::vector<std::string>> rows(1);
    std::string field;
    bool quoted = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char ch = text[i];
        if (quoted) {
            if (ch == '"' && i + 1 < text.size() && text[i + 1] == '"')
                field += '"', ++i;
            else if (ch == '"')
                quoted = false;
            else
                field += ch;
        } else if (ch == '"') {
            quoted = true;
        } else if (ch == ',') {
            rows.back().push_back(field), field.clear();
        } else if (ch == '\r' && i + 1 < text.size() && text[i + 1] == '\n') {
            rows.back().push_back(field), field.clear(), rows.emplace_back(), ++i;
        } else {
            field += ch;
        }
    }
    if (rows.back().empty())
        rows.pop_back();
    return rows;
}

TEST_F(CorvelSteering, ScriptFormatsReadBackToTheSameGroups) {
    const std::string odd = "a \"quoted\", odd\nname.bin";
    const std::string first = tree.file("one/" + odd, std::string(60000, 'q'));
    const std::string second = tree.file("two/plain.bin", std::string(60000, 'q'));
    setMTime(first, 1400000000); // the older: --keep newest selects it
    ASSERT_EQ(::link(second.c_str(), (tree / "two/link.bin").c_str()), 0);
    tree.file("one/other.bin", std::string(70000, 'r'));
    tree.file("two/other.bin", std::string(70000, 'r'));
    const std::string scan = settings() + " " + shellQuoted(tree.path());
    const auto json = runCorvel("scan --json " + scan, home);
    ASSERT_EQ(json.status, 0) << json.err;
    const auto expected = groups(json.out);

    const auto csv = runCorvel("scan --format csv " + scan, home);
    ASSERT_EQ(csv.status, 0) << csv.err;
    const auto rows = parseCsv(csv.out);
    ASSERT_FALSE(rows.empty());
    EXPECT_EQ(rows[0], (std::vector<std::string>{"group", "category", "size", "size_on_disk", "selected",
                                                 "hard_link", "path"}));
    std::map<std::string, std::vector<std::string>> byGroup;
    std::size_t links = 0;
    for (std::size_t r = 1; r < rows.size(); ++r) {
        ASSERT_EQ(rows[r].size(), 7u) << r;
        byGroup[rows[r][0]].push_back(rows[r][6]);
        links += rows[r][5] == "yes";
    }
    std::vector<std::vector<std::string>> fromCsv;
    for (auto& [number, members] : byGroup) {
        std::sort(members.begin(), members.end());
        fromCsv.push_back(members);
    }
    std::sort(fromCsv.begin(), fromCsv.end());
    EXPECT_EQ(fromCsv, expected);
    EXPECT_EQ(links, 1u);

    const auto fdupes =
        runCorvel("scan --format fdupes --exclude " + shellQuoted("*name.bin") + " " + scan, home);
    ASSERT_EQ(fdupes.status, 0) << fdupes.err;
    // Left alone, the two names of one file are no duplicates.
    EXPECT_EQ(fdupes.out, (tree / "one/other.bin") + "\n" + (tree / "two/other.bin") + "\n\n") << fdupes.out;
    EXPECT_EQ(runCorvel("scan --format xml " + scan, home).status, 2);

    // The export of a name with a line feed, NUL-separated.
    const auto exported =
        runCorvel("scan --keep newest --export " + shellQuoted(home / "export") + " -0 " + scan, home);
    ASSERT_EQ(exported.status, 0) << exported.err;
    const std::string bytes = test::TempTree::read(home / "export");
    std::vector<std::string> paths;
    for (std::size_t at = 0, end; (end = bytes.find('\0', at)) != std::string::npos; at = end + 1)
        paths.push_back(bytes.substr(at, end - at));
    ASSERT_FALSE(bytes.empty());
    EXPECT_EQ(bytes.back(), '\0');
    const auto doc = runCorvel("scan --json --keep newest " + scan, home);
    std::vector<std::string> chosen = selected(doc.out);
    std::sort(paths.begin(), paths.end());
    EXPECT_EQ(paths, chosen);
    EXPECT_EQ(chosen, std::vector<std::string>{first});
}

TEST_F(CorvelSteering, UnremovableGroupsShowWhenAsked) {
    // Files of this account in folders another account may read but not change.
    tree.file("ro/a/x.bin", std::string(60000, 'x'));
    tree.file("ro/b/x.bin", std::string(60000, 'x'));
    tree.file("ro/a/only.txt", "apart");
    test::openToAnotherUser(home.path());
    test::openToAnotherUser(tree / "ro"); // and the folders above; a/ and b/ stay 0755
    for (const char* folder : {"ro/a", "ro/b"})
        ASSERT_EQ(::chmod((tree / folder).c_str(), 0755), 0);
    const std::string scan = settings() + " " + shellQuoted(tree / "ro");
    const auto run = [&](const std::string& options) {
        test::CorvelOutcome outcome{};
        const std::string out = home / "out.txt";
        const std::string command = "HOME='" + home.path() + "' XDG_CONFIG_HOME='" + home.path() +
                                    "/.config' " + CORVEL_BINARY + std::string(" scan --json ") + options +
                                    " " + scan + " >'" + out + "' 2>/dev/null";
        outcome.status = test::runAsAnotherUser([&] {
            ::execl("/bin/sh", "sh", "-c", command.c_str(), static_cast<char*>(nullptr));
            return 127;
        });
        outcome.out = test::TempTree::read(out);
        return outcome;
    };
    const auto hidden = run("");
    ASSERT_EQ(hidden.status, 0);
    EXPECT_TRUE(groups(hidden.out).empty()) << hidden.out;
    const auto visible = run("--show-unremovable");
    ASSERT_EQ(visible.status, 0);
    EXPECT_EQ(groups(visible.out),
              (std::vector<std::vector<std::string>>{{tree / "ro/a/x.bin", tree / "ro/b/x.bin"}}));
    EXPECT_EQ(test::TempTree::read(home / "settings.plist").find("ShowFilesWithNoPermissions"),
              std::string::npos);
}

// Two large files equal on every sample the scan reads but different in between: what
// scripts read never offers one as a copy of the other.
TEST_F(CorvelSteering, ScriptOutputsNeverListFilesThatOnlyLookAlike) {
    std::string content(700000, 's');
    tree.file("a/big.bin", content);
    content[350008] = 'X'; // between the samples
    tree.file("b/big.bin", content);
    tree.file("a/own", "apart");
    const std::string scan = settings() + " --min-size 1 " + shellQuoted(tree.path());
    const auto text = runCorvel("scan " + scan, home);
    ASSERT_NE(text.out.find("compared by samples"), std::string::npos) << text.out;
    EXPECT_EQ(runCorvel("scan --format fdupes " + scan, home).out, "");
    const auto csv = runCorvel("scan --format csv " + scan, home);
    EXPECT_EQ(parseCsv(csv.out).size(), 1u) << csv.out; // the header only
    const auto exported =
        runCorvel("scan --keep oldest --export " + shellQuoted(home / "list") + " " + scan, home);
    ASSERT_EQ(exported.status, 0) << exported.err;
    EXPECT_EQ(test::TempTree::read(home / "list"), "");
}

TEST_F(CorvelSteering, ExportNeverWritesOverSomeonesFile) {
    const std::string copy = tree.file("a/x.bin", std::string(60000, 'x'));
    setMTime(tree.file("b/x.bin", std::string(60000, 'x')), 1400000000); // the oldest: kept
    tree.file("a/own", "apart");
    const std::string notes = home.file("notes.txt", "my notes\n");
    const std::string scan = settings() + " --keep oldest " + shellQuoted(tree.path());
    for (const std::string& target : {copy, notes, home.folder("a folder")}) {
        const auto run = runCorvel("scan --export " + shellQuoted(target) + " " + scan, home);
        EXPECT_EQ(run.status, 2) << target << "\n" << run.err;
        EXPECT_NE(run.err.find("--export"), std::string::npos) << run.err;
    }
    EXPECT_EQ(test::TempTree::read(copy), std::string(60000, 'x'));
    EXPECT_EQ(test::TempTree::read(notes), "my notes\n");
    // An earlier export, in either form, is replaced.
    const std::string list = home.file("list", "/earlier/path\n\n");
    ASSERT_EQ(runCorvel("scan --export " + shellQuoted(list) + " " + scan, home).status, 0);
    EXPECT_NE(test::TempTree::read(list).find("/x.bin\n"), std::string::npos);
    ASSERT_EQ(runCorvel("scan --export " + shellQuoted(list) + " -0 " + scan, home).status, 0);
    ASSERT_EQ(runCorvel("scan --export " + shellQuoted(list) + " " + scan, home).status, 0);
}

TEST_F(CorvelSteering, SelectReadsWhatExportWrites) {
    tree.file("a/line\nfeed.bin", std::string(60000, 'n'));
    setMTime(tree.file("b/line\nfeed.bin", std::string(60000, 'n')), 1400000000); // --keep newest selects it
    tree.file("b/x.bin", std::string(61000, 'r'));
    tree.file("c/x.bin", std::string(61000, 'r'));
    tree.file("a/own", "apart");
    const std::string scan = settings() + " " + shellQuoted(tree.path());
    // A name with a line feed round-trips through a NUL-separated list.
    const std::string nulList = home / "nul-list";
    const auto exported =
        runCorvel("scan --export " + shellQuoted(nulList) + " -0 --keep newest " + scan, home);
    ASSERT_EQ(exported.status, 0) << exported.err;
    const auto fromNul = runCorvel("scan --json --select " + shellQuoted(nulList) + " -0 " + scan, home);
    ASSERT_EQ(fromNul.status, 0) << fromNul.err;
    EXPECT_EQ(selected(fromNul.out), selected(runCorvel("scan --json --keep newest " + scan, home).out));
    EXPECT_FALSE(selected(fromNul.out).empty());
    // One path per line cannot hold that name: read back, it would name two paths, one of
    // them perhaps a copy meant to stay. The export refuses and writes nothing; -0 does not.
    const std::string lines = home / "lines";
    const auto perLine = runCorvel("scan --export " + shellQuoted(lines) + " --keep newest " + scan, home);
    EXPECT_EQ(perLine.status, 1) << perLine.err;
    EXPECT_NE(perLine.err.find("--export: 1 path holds a line break"), std::string::npos) << perLine.err;
    EXPECT_FALSE(std::filesystem::exists(lines)) << "nothing was written";
    const auto perLineOut = runCorvel("scan --export - --keep newest " + scan, home);
    EXPECT_EQ(perLineOut.status, 1);
    EXPECT_EQ(perLineOut.out, "");
    EXPECT_EQ(exported.err.find("line break"), std::string::npos) << exported.err;
    // A relative path is taken from the working folder.
    const std::string relative =
        std::filesystem::relative(tree / "b/x.bin", std::filesystem::current_path()).string();
    ASSERT_NE(relative[0], '/');
    const std::string list = home.file("relative", relative + "\n");
    const auto fromRelative = runCorvel("scan --json --select " + shellQuoted(list) + " " + scan, home);
    ASSERT_EQ(fromRelative.status, 0) << fromRelative.err;
    EXPECT_EQ(selected(fromRelative.out), std::vector<std::string>{tree / "b/x.bin"});
    EXPECT_EQ(runCorvel("scan -0 " + scan, home).status, 2) << "-0 without --export or --select";
}

} // namespace
} // namespace corvel
