#include <gtest/gtest.h>

#include "app/locator_adapter.h"
#include "app/scan_window_collector_host.h"
#include "app/scan_window_controller.h"
#include "platform/resources.h"
#include "platform/string_tables.h"
#include "results_fixture.h"

namespace corvel {
namespace {

// A whole session without a display: a real scan through the scan window, automatic
// selection, the collector, one copy kept, the rest removed to a scratch Trash.
struct WholeFlow : test::ResultsHarness {
    test::FakeScanWindowView window;
    test::FakeDropZoneView dropZone;
    MainQueueTimers mainTimers{MainQueue::shared()};
    CVResultsRolesFactory factory{services(), faces};
    std::unique_ptr<CVScanWindowController> controller =
        std::make_unique<CVScanWindowController>(ScanWindowServices{
            window, dropZone, [this] { return std::make_unique<LocatorAdapter>(scan.locator()); }, factory,
            statistics, scan.defaults, tracker, MainQueue::shared(), mainTimers,
            NotificationCenter::defaultCenter(), StringTables::shared(), [] { return 5u; },
            CVScanScenario::defaultResourceFile(), [] {}, &reminder, nullptr});
    ScanWindowCollectorHost collectorHost{*controller};

    WholeFlow() {
        factory.setHost(&collectorHost);
        factory.setRemovalPacing(false);
        dropZone.control = &controller->scanControl();
        controller->showWindow();
    }
    ~WholeFlow() {
        controller.reset();
        MainQueue::shared().drain();
    }
    bool runUntil(const std::function<bool()>& condition) {
        const bool met = MainQueue::shared().runUntil(condition, std::chrono::seconds(60));
        MainQueue::shared().drain();
        return met;
    }
};

TEST(ResultsFlow, ScanAutoSelectKeepOneRemoveToTheTrashAndClose) {
    WholeFlow f;
    const std::string photo(150'000, 'p');
    const std::string song(120'000, 's');
    const std::string root = f.tree.folder("files/scan");
    const std::string photoA = f.tree.file("files/scan/one/photo.jpg", photo);
    const std::string photoB = f.tree.file("files/scan/two/photo copy.jpg", photo);
    const std::string photoC = f.tree.file("files/scan/three/photo copy 2.jpg", photo);
    const std::string songA = f.tree.file("files/scan/one/song.mp3", song);
    const std::string songB = f.tree.file("files/scan/two/song copy.mp3", song);
    f.tree.file("files/scan/one/unique.txt", "nothing like it");

    f.controller->scanControl().addFoldersForScan({root}, true);
    ASSERT_TRUE(f.runUntil([&] {
        const auto state = f.controller->windowState();
        return state != WindowStateStarting && state != WindowStateScanning;
    }));
    ASSERT_EQ(f.controller->windowState(), WindowStateFound);

    f.controller->showResults(false);
    EXPECT_EQ(f.controller->windowState(), WindowStateResults);
    auto* results = dynamic_cast<CVResultsViewController*>(f.controller->resultsViewController());
    auto* collector = dynamic_cast<CVCollectorViewController*>(f.controller->collectorViewController());
    ASSERT_NE(results, nullptr);
    ASSERT_NE(collector, nullptr);
    EXPECT_EQ(f.faces.results->groups.size(), 2u);

    f.controller->autoSelectAll();
    // The copy names are chosen; the originals stay.
    EXPECT_EQ(collector->count(), 3u);
    EXPECT_TRUE(f.controller->collectorNotEmpty());

    f.controller->showCollector();
    EXPECT_EQ(f.controller->windowState(), WindowStateCollector);
    ASSERT_EQ(f.faces.collector->list.size(), 2u);
    std::shared_ptr<CVFile> keep;
    for (const auto& entry : f.faces.collector->list)
        for (const auto& file : entry.files)
            if (file->path() == photoC)
                keep = file;
    ASSERT_NE(keep, nullptr);
    collector->keepFile(keep);
    EXPECT_EQ(collector->count(), 2u);

    collector->shreddList();
    EXPECT_EQ(f.controller->windowState(), WindowStateRemoving);
    ASSERT_TRUE(f.runUntil([&] { return !collector->removalPass()->isPassThreadRunning(); }));
    EXPECT_EQ(f.controller->windowState(), WindowStateCleaned);
    collector->doneButtonAction();
    EXPECT_EQ(f.controller->windowState(), WindowStateResults);

    // The disk: the two chosen copies are in the Trash, with their information files.
    EXPECT_TRUE(test::exists(photoA));
    EXPECT_FALSE(test::exists(photoB));
    EXPECT_TRUE(test::exists(photoC));
    EXPECT_TRUE(test::exists(songA));
    EXPECT_FALSE(test::exists(songB));
    EXPECT_TRUE(test::exists(f.homeTrash() + "/files/photo copy.jpg"));
    EXPECT_TRUE(test::exists(f.homeTrash() + "/info/photo copy.jpg.trashinfo"));
    EXPECT_TRUE(test::exists(f.homeTrash() + "/files/song copy.mp3"));
    EXPECT_TRUE(test::exists(f.homeTrash() + "/info/song copy.mp3.trashinfo"));

    // The statistics of the scan carry the removal.
    const auto records = CVStatisticsController::scanRecords(f.scan.defaults);
    ASSERT_TRUE(records && records->size() == 1);
    EXPECT_EQ((*records)[0][kRemovedFilesKey].toUInt64(), 2u);
    EXPECT_GT((*records)[0][kRemovedSizeKey].toUInt64(), 270'000u);
    EXPECT_GT(f.achievements.userTotalSize(), 270'000u);

    // The results left: the photo group with its two remaining copies; the song's is gone.
    ASSERT_EQ(f.faces.results->groups.size(), 1u);
    EXPECT_EQ(f.faces.results->groups[0]->files().size(), 2u);
    EXPECT_EQ(collector->count(), 0u);
    EXPECT_FALSE(f.controller->collectorNotEmpty());
}

} // namespace
} // namespace corvel
