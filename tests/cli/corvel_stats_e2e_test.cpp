// End-to-end: the statistics a completed "corvel scan" records, and "corvel stats"
// reading them without ever writing the settings file.

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>
#include <unistd.h>

#include "corvel_runner.h"
#include "platform/property_list.h"

namespace corvel {
namespace {

using test::shellQuoted;

class CorvelStats : public testing::Test {
protected:
    test::TempTree home;
    test::TempTree tree;
    std::string settingsFile = home / "settings.plist";
    std::string settings() const { return "--settings " + shellQuoted(settingsFile); }
    test::CorvelOutcome corvel(const std::string& arguments, const std::string& environment = {}) const {
        return test::runCorvel(arguments, home, environment);
    }
    void writeSettings(const PropertyValue::Dictionary& values) const {
        home.file("settings.plist", propertyListData(PropertyValue(values), PropertyListFormat::XML));
    }
};

// What identifies a file's state on disk: its bytes, its inode (a rewrite renames a new
// file over it) and its modification time.
struct FileState {
    bool exists;
    std::string bytes;
    ino_t inode;
    timespec modified;
    friend bool operator==(const FileState& a, const FileState& b) {
        return a.exists == b.exists && a.bytes == b.bytes && a.inode == b.inode &&
               a.modified.tv_sec == b.modified.tv_sec && a.modified.tv_nsec == b.modified.tv_nsec;
    }
};

FileState fileState(const std::string& path) {
    struct stat st {};
    if (::lstat(path.c_str(), &st) != 0)
        return {false, {}, 0, {}};
    return {true, test::TempTree::read(path), st.st_ino, st.st_mtim};
}

TEST_F(CorvelStats, EachCompletedScanAddsARecordWithWhatItFound) {
    tree.file("a/photo.jpg", std::string(120000, 'p'));
    tree.file("b/photo.jpg", std::string(120000, 'p'));
    tree.file("b/photo copy.jpg", std::string(120000, 'p'));
    tree.file("c/only.txt", "alone");
    const auto first = corvel("scan --json " + settings() + " " + shellQuoted(tree.path()));
    ASSERT_EQ(first.status, 0) << first.err;
    const auto found = nlohmann::json::parse(first.out)["summary"];
    const auto second =
        corvel("scan " + settings() + " " + shellQuoted(tree / "a") + " " + shellQuoted(tree / "c"));
    ASSERT_EQ(second.status, 0) << second.err;
    // Scans that never completed leave no record.
    EXPECT_EQ(corvel("scan " + settings() + " " + shellQuoted(tree / "missing")).status, 2);
    EXPECT_EQ(corvel("scan " + settings() + " /proc").status, 3);
    EXPECT_EQ(corvel("scan --frobnicate " + settings() + " " + shellQuoted(tree.path())).status, 2);

    const auto stats = corvel("stats --json " + settings());
    ASSERT_EQ(stats.status, 0) << stats.err;
    const auto doc = nlohmann::json::parse(stats.out);
    const auto expected = nlohmann::json::parse(R"({"scans":[
        {"NumberOfFoldersDropped":1,"FoundFiles":3,"FoundSize":0},
        {"NumberOfFoldersDropped":2,"FoundFiles":0,"FoundSize":0}],
        "totalSizeSaved":0,"level":1,"rank":"Green Private"})");
    auto withSize = expected;
    withSize["scans"][0]["FoundSize"] = found["size"];
    EXPECT_EQ(found["files"], 3);
    EXPECT_GT(found["size"].get<std::uint64_t>(), 0u);
    EXPECT_EQ(doc, withSize) << stats.out;
}

TEST_F(CorvelStats, TextShowsOneLinePerScanTheTotalLevelAndRank) {
    writeSettings({{"UserStatisticsArray",
                    PropertyValue::Array{PropertyValue::Dictionary{{"NumberOfFoldersDropped", 2},
                                                                   {"FoundSize", 6500000},
                                                                   {"FoundFiles", 14},
                                                                   {"RemovedSize", 1200000},
                                                                   {"RemovedFiles", 3}},
                                         PropertyValue::Dictionary{{"NumberOfFoldersDropped", 1}}}},
                   {"TotalSizeSaved", 150000000000LL}});
    const auto text = corvel("stats " + settings());
    ASSERT_EQ(text.status, 0) << text.err;
    EXPECT_EQ(text.out, "Scan 1: 2 folders; found 14 files, 6.5 MB; removed 3 files, 1.2 MB\n"
                        "Scan 2: 1 folder; not finished\n"
                        "Total size saved: 150 GB\n"
                        "Level 6: Tropical Marshal\n");
    EXPECT_EQ(text.err, "");

    const auto json = corvel("stats --json " + settings());
    ASSERT_EQ(json.status, 0) << json.err;
    EXPECT_EQ(nlohmann::json::parse(json.out), nlohmann::json::parse(R"({"scans":[
        {"NumberOfFoldersDropped":2,"FoundSize":6500000,"FoundFiles":14,"RemovedSize":1200000,"RemovedFiles":3},
        {"NumberOfFoldersDropped":1}],
        "totalSizeSaved":150000000000,"level":6,"rank":"Tropical Marshal"})"));
}

TEST_F(CorvelStats, NeverWritesTheSettingsFile) {
    writeSettings({{"MinScanSize", 3.0}, {"UserStatisticsArray", PropertyValue::Array{}}});
    const FileState before = fileState(settingsFile);
    for (const char* arguments : {"stats ", "stats --json "}) {
        const auto run = corvel(arguments + settings());
        EXPECT_EQ(run.status, 0) << run.err;
        EXPECT_TRUE(fileState(settingsFile) == before)
            << arguments << "must not create \"TotalSizeSaved\" or touch the file:\n"
            << test::TempTree::read(settingsFile);
    }
}

TEST_F(CorvelStats, NoSettingsFileShowsNothingAndCreatesNone) {
    const std::string unborn = home / "fresh/settings.plist";
    for (const auto& [arguments, environment] :
         {std::pair<std::string, std::string>{"stats --settings " + shellQuoted(unborn), ""},
          std::pair<std::string, std::string>{"stats", "CORVEL_SETTINGS=" + shellQuoted(unborn) + " "}}) {
        const auto run = corvel(arguments, environment);
        ASSERT_EQ(run.status, 0) << run.err;
        EXPECT_EQ(run.out, "No scans recorded.\nTotal size saved: Zero KB\nLevel 1: Green Private\n");
        EXPECT_FALSE(fileState(unborn).exists) << arguments;
        EXPECT_FALSE(fileState(home / "fresh").exists) << arguments;
    }
}

TEST_F(CorvelStats, AFileThatIsNotASettingsFileIsReportedAndLeftAsItIs) {
    home.file("settings.plist", "these are my notes, not settings\n");
    const FileState before = fileState(settingsFile);
    struct Case {
        std::string arguments;
        std::string environment;
        int status;
    };
    // The reminder's status reads the same file, and is as plain about it.
    for (const Case& c :
         {Case{"stats " + settings(), "", 2}, Case{"stats --json " + settings(), "", 2},
          Case{"stats", "CORVEL_SETTINGS=" + shellQuoted(settingsFile) + " ", 1},
          Case{"remind --status " + settings(), "", 2}, Case{"remind --status --json " + settings(), "", 2},
          Case{"remind --status", "CORVEL_SETTINGS=" + shellQuoted(settingsFile) + " ", 1}}) {
        const auto run = corvel(c.arguments, c.environment);
        EXPECT_EQ(run.status, c.status) << c.arguments << "\n" << run.err;
        EXPECT_NE(run.err.find(settingsFile + " is not a settings file"), std::string::npos) << run.err;
        EXPECT_EQ(run.out, "");
        EXPECT_TRUE(fileState(settingsFile) == before) << c.arguments;
        EXPECT_FALSE(fileState(settingsFile + ".corrupt").exists) << "not even set aside";
    }
}

TEST_F(CorvelStats, StatisticsOfAnotherTypeAreReportedNotShown) {
    writeSettings({{"UserStatisticsArray", "hand-written"}, {"TotalSizeSaved", 4000000000LL}});
    const auto run = corvel("stats --json " + settings());
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_NE(run.err.find("is not a list of scans"), std::string::npos) << run.err;
    EXPECT_EQ(
        nlohmann::json::parse(run.out),
        nlohmann::json::parse(R"({"scans":[],"totalSizeSaved":4000000000,"level":2,"rank":"Shrub Capral"})"));
}

} // namespace
} // namespace corvel
