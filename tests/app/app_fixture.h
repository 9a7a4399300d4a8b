#pragma once
// A scan window controller wired to fakes, with its own store, statistics, notification
// centre and main queue, for the application tests.

#include <gtest/gtest.h>
#include <random>

#include "app/scan_window_controller.h"
#include "app_fakes.h"
#include "platform/main_queue.h"
#include "platform/resources.h"
#include "platform/string_tables.h"
#include "platform/user_defaults.h"
#include "removal/statistics_controller.h"
#include "support/recording_tracker.h"
#include "support/temp_tree.h"

namespace corvel::test {

class ScanWindowFixture {
public:
    explicit ScanWindowFixture(std::uint64_t randomStart = 7) : m_random(randomStart) {
        engine.center = &center;
        dropZone.control = &controller->scanControl();
    }

    void drain() { queue.drain(); }
    void drop(const std::vector<std::string>& paths) {
        controller->scanControl().addFoldersForScan(paths, false);
    }
    void start() {
        controller->startScanAction(false);
        drain();
    }

    std::string text(const char* key) { return StringTables::shared().localizedString(key); }
    std::string button(const char* key) { return StringTables::shared().localizedString(key, "Buttons"); }
    std::string phrase(const char* key) { return StringTables::shared().localizedString(key, "Scenarios"); }

    TempTree scratch;
    // Two real folders the tests drop.
    std::string folderA = scratch.folder("Photos");
    std::string folderB = scratch.folder("Music");
    UserDefaults store{scratch / "settings.plist"};
    CVStatisticsController statistics{store};
    RecordingTracker tracker;
    MainQueue queue;
    NotificationCenter center;
    FakeTimers timers;
    FakeScanWindowView view;
    FakeDropZoneView dropZone;
    FakeEngine engine;
    FakeResultsFactory resultsFactory;
    CountingReminder reminder;
    RecordingScanNotifications notifications;
    int mediaRescans = 0;

private:
    std::mt19937_64 m_random;

public:
    std::unique_ptr<CVScanWindowController> controller =
        std::make_unique<CVScanWindowController>(ScanWindowServices{
            view, dropZone, engine.factory(), resultsFactory, statistics, store, tracker, queue, timers,
            center, StringTables::shared(), [this] { return m_random(); },
            resourcePath("ScanTextScenarios.plist"), [this] { ++mediaRescans; }, &reminder, &notifications});
};

} // namespace corvel::test
