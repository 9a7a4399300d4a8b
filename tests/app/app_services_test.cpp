#include <gtest/gtest.h>

#include "app/application.h"
#include "app/directories_manager.h"
#include "app/easter.h"
#include "app/system_version.h"
#include "support/recording_tracker.h"
#include "support/temp_tree.h"

namespace corvel {
namespace {

TEST(MenuAnalytics, EveryMappedMenuCommandIsReportedWithItsLabel) {
    const auto& mapping = CVApplication::menuMapping();
    EXPECT_EQ(mapping.size(), 29u);
    // A few labels as the reports know them, odd spellings included.
    EXPECT_EQ(mapping.at("openFile:"), "Add Folder...");
    EXPECT_EQ(mapping.at("searchAction:"), "Find\u2026");
    EXPECT_EQ(mapping.at("rateOnAppStore:"), "Rate Corvel on App Store...");
    for (const auto& [action, label] : mapping) {
        test::RecordingTracker tracker;
        CVApplication application(tracker);
        int dispatched = 0;
        EXPECT_TRUE(application.sendAction(action, true, [&] { return ++dispatched == 1; }));
        EXPECT_EQ(dispatched, 1);
        EXPECT_EQ(tracker.events(), (std::vector<test::TrackedEvent>{{"Menu Items", label, "", 1}}))
            << action;
    }
}

TEST(MenuAnalytics, OnlyDispatchedMenuCommandsWithALabelAreReported) {
    test::RecordingTracker tracker;
    CVApplication application(tracker);
    EXPECT_FALSE(application.sendAction("newScan:", true, [] { return false; })) << "nothing took it";
    EXPECT_TRUE(application.sendAction("newScan:", false, [] { return true; }))
        << "a button, not a menu item";
    EXPECT_TRUE(application.sendAction("cut:", true, [] { return true; })) << "not in the table";
    EXPECT_TRUE(tracker.events().empty());
}

struct EasterCase {
    int year, month, day;
    bool easter;
};

class EasterPeriod : public testing::TestWithParam<EasterCase> {};

TEST_P(EasterPeriod, RunsFromGoodFridayToEasterMonday) {
    const auto& c = GetParam();
    EXPECT_EQ(isEasterPeriod({c.year, c.month, c.day}), c.easter) << c.year << "-" << c.month << "-" << c.day;
}

INSTANTIATE_TEST_SUITE_P(Days, EasterPeriod,
                         testing::Values(EasterCase{2024, 3, 28, false}, EasterCase{2024, 3, 29, true},
                                         EasterCase{2024, 3, 31, true}, EasterCase{2024, 4, 1, true},
                                         EasterCase{2024, 4, 2, false}, EasterCase{2025, 4, 20, true},
                                         EasterCase{2025, 4, 18, true}, EasterCase{2025, 4, 17, false},
                                         EasterCase{2038, 4, 25, true}, EasterCase{2038, 4, 26, true},
                                         EasterCase{2038, 4, 27, false}, EasterCase{2000, 4, 23, true},
                                         EasterCase{2016, 3, 27, true}, EasterCase{2016, 12, 25, false}));

TEST(EasterPeriod, SundaysOfKnownYears) {
    EXPECT_EQ(easterSunday(2019), (CalendarDay{2019, 4, 21}));
    EXPECT_EQ(easterSunday(2008), (CalendarDay{2008, 3, 23}));
    EXPECT_EQ(easterSunday(2285), (CalendarDay{2285, 3, 22})) << "the earliest possible date";
    EXPECT_EQ(easterSunday(1943), (CalendarDay{1943, 4, 25})) << "the latest possible date";
}

TEST(SystemVersion, IsTheKernelReleasesFirstThreeNumbers) {
    EXPECT_EQ(systemVersionFromRelease("6.1.0-18-amd64"), "6.1.0");
    EXPECT_EQ(systemVersionFromRelease("5.15.153.1-microsoft-standard-WSL2"), "5.15.153");
    EXPECT_EQ(systemVersionFromRelease("6.5"), "6.5.0");
    EXPECT_EQ(systemVersionFromRelease("4.19.0+"), "4.19.0");
    EXPECT_EQ(systemVersionFromRelease("custom"), "0.0.0");
    EXPECT_EQ(systemVersionFromRelease(""), "0.0.0");
    const std::string mine = systemVersion();
    EXPECT_EQ(std::count(mine.begin(), mine.end(), '.'), 2);
    EXPECT_NE(mine, "0.0.0");
}

TEST(FavouriteFolders, FollowUserDirsWithHomeFallbacks) {
    test::TempTree tree;
    const std::string home = tree.folder("home/ada");
    const std::string dirs = tree.file("user-dirs.dirs", "# written by xdg-user-dirs-update\n"
                                                         "XDG_DESKTOP_DIR=\"$HOME/Schreibtisch\"\n"
                                                         "XDG_DOWNLOAD_DIR=\"$HOME/\"\n"
                                                         "XDG_PICTURES_DIR=\"/media/photos\"\n"
                                                         "XDG_VIDEOS_DIR=\"$HOME/Filme\"\n");
    CVDirectoriesManager manager(home, dirs);
    EXPECT_EQ(manager.homeFolderPath(), home);
    EXPECT_EQ(manager.desktopFolderPath(), home + "/Schreibtisch");
    EXPECT_EQ(manager.documentsFolderPath(), home + "/Documents") << "not named: the usual folder";
    EXPECT_EQ(manager.downloadsFolderPath(), home + "/Downloads") << "the home itself means not set";
    EXPECT_EQ(manager.musicFolderPath(), home + "/Music");
    EXPECT_EQ(manager.moviesFolderPath(), home + "/Filme");
    EXPECT_EQ(manager.picturesFolderPath(), "/media/photos");
    CVDirectoriesManager without(home, tree / "missing.dirs");
    EXPECT_EQ(without.desktopFolderPath(), home + "/Desktop");
    EXPECT_EQ(without.moviesFolderPath(), home + "/Videos");
}

} // namespace
} // namespace corvel
