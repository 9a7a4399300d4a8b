// End-to-end: corvel refuses to run without its resource files instead of scanning without
// the protected-folder list, and runs from a complete copy of them anywhere.

#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <ostream>

#include "corvel_runner.h"

namespace corvel {
namespace {

using test::shellQuoted;

class CorvelResources : public testing::Test {
protected:
    test::TempTree home;
    test::TempTree tree;
    test::TempTree copy;
    std::string resources = copy / "share/corvel";

    void SetUp() override {
        const char* shipped = std::getenv("CORVEL_RESOURCES");
        ASSERT_NE(shipped, nullptr) << "CORVEL_RESOURCES must name the source tree's resources";
        copy.folder("share");
        std::filesystem::copy(shipped, resources, std::filesystem::copy_options::recursive);
        tree.file("a/song.mp3", std::string(90000, 's'));
        tree.file("b/song.mp3", std::string(90000, 's'));
        tree.file("a/notes.txt", "only here");
    }
    test::CorvelOutcome scan(const std::string& resourceFolder) const {
        return test::runCorvel("scan --min-size 1 --settings " + shellQuoted(home / "settings.plist") + " " +
                                   shellQuoted(tree.path()),
                               home, "CORVEL_RESOURCES=" + shellQuoted(resourceFolder) + " ");
    }
};

TEST_F(CorvelResources, ACompleteCopyAnywhereFindsTheDuplicates) {
    const auto run = scan(resources);
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_NE(run.out.find(tree / "a/song.mp3"), std::string::npos) << run.out;
    EXPECT_NE(run.out.find(tree / "b/song.mp3"), std::string::npos) << run.out;
}

TEST_F(CorvelResources, AFolderThatDoesNotExistIsAnErrorNamingIt) {
    const auto run = scan(copy / "nowhere");
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, "");
    EXPECT_NE(run.err.find("corvel: cannot read the resource " + copy.path() + "/nowhere/IgnoreList.plist"),
              std::string::npos)
        << run.err;
}

struct Damage {
    const char* resource;
    bool folderInItsPlace;
    friend std::ostream& operator<<(std::ostream& out, const Damage& damage) {
        return out << damage.resource << (damage.folderInItsPlace ? " (a folder in its place)" : "");
    }
};

class CorvelMissingResource : public CorvelResources, public testing::WithParamInterface<Damage> {};

// Every command stops before doing anything, with the file's path on stderr; a scan prints
// no group and the settings file is not created.
TEST_P(CorvelMissingResource, StopsEveryCommandWithAClearError) {
    const std::string path = resources + "/" + GetParam().resource;
    std::filesystem::remove(path);
    if (GetParam().folderInItsPlace)
        std::filesystem::create_directory(path);
    const std::string environment = "CORVEL_RESOURCES=" + shellQuoted(resources) + " ";
    const std::string settings = " --settings " + shellQuoted(home / "settings.plist");
    for (const std::string& command : {"scan --min-size 1" + settings + " " + shellQuoted(tree.path()),
                                       "stats" + settings, "remind --status" + settings}) {
        SCOPED_TRACE(command);
        const auto run = test::runCorvel(command, home, environment);
        EXPECT_EQ(run.status, 1);
        EXPECT_EQ(run.out, "");
        EXPECT_NE(run.err.find("corvel: cannot read the resource " + path + ": "), std::string::npos)
            << run.err;
        EXPECT_NE(run.err.find("CORVEL_RESOURCES"), std::string::npos) << run.err;
    }
    EXPECT_FALSE(std::filesystem::exists(home / "settings.plist"));
}

INSTANTIATE_TEST_SUITE_P(EachRequiredFile, CorvelMissingResource,
                         testing::Values(Damage{"IgnoreList.plist", false}, Damage{"IgnoreList.plist", true},
                                         Damage{"TypeIdentifiers.json", false},
                                         Damage{"ScanTextScenarios.plist", false},
                                         Damage{"en.lproj/Localizable.strings", false}));

} // namespace
} // namespace corvel
