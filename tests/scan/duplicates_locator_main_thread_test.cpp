// The locator driven from the main thread, as the application drives it: scans started
// and locators dropped by tasks on the main queue while a scan waits for that queue to
// run its finishScan. A deadlock ends the program through the hang guard.

#include <algorithm>
#include <chrono>
#include <functional>
#include <gtest/gtest.h>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/main_queue.h"
#include "platform/notification_center.h"
#include "scan/duplicates_locator.h"
#include "scan_harness.h"
#include "support/hang_guard.h"

namespace corvel {
namespace {

using namespace std::chrono_literals;

std::string content(char salt, std::size_t size) {
    std::string s(size, '\0');
    for (std::size_t i = 0; i < size; ++i)
        s[i] = static_cast<char>(static_cast<std::size_t>(salt) * 31 + i * 7 + (i >> 9));
    return s;
}

// Polls on the calling thread (the main thread, without running its queue).
bool waitUntil(const std::function<bool()>& condition, std::chrono::seconds timeout = 30s) {
    const auto end = std::chrono::steady_clock::now() + timeout;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(1ms);
    }
    return true;
}

// The start and end notifications, in order, and each finished scan's groups (their
// members' paths) as the locator holds them at "scanFinished". Main thread only.
struct ScanEvents {
    std::vector<std::string> names;
    std::vector<std::vector<std::vector<std::string>>> finishedGroups;
    std::vector<ScopedObserver> observers;

    explicit ScanEvents(const std::unique_ptr<CVDuplicatesLocator>& locator) {
        auto& center = NotificationCenter::defaultCenter();
        observers.emplace_back(
            center, center.addObserver(kScanStartedNotification, nullptr,
                                       [this](const Notification&) { names.emplace_back("started"); }));
        observers.emplace_back(
            center,
            center.addObserver(kScanFinishedNotification, nullptr, [this, &locator](const Notification&) {
                names.emplace_back("finished");
                std::vector<std::vector<std::string>> groups;
                for (const auto& group : locator->duplicatesController()->allDuplicatesGroups()) {
                    std::vector<std::string> paths;
                    for (const auto& file : group->files())
                        paths.push_back(file->path());
                    groups.push_back(paths);
                }
                finishedGroups.push_back(groups);
            }));
    }
    int count(const std::string& name) const {
        return static_cast<int>(std::count(names.begin(), names.end(), name));
    }
};

class LocatorOnTheMainThread : public testing::Test {
protected:
    test::ScanHarness harness;
    test::TempTree one;
    test::TempTree two;
    MainQueue& queue = MainQueue::shared();
    std::unique_ptr<CVDuplicatesLocator> locator = harness.locator();

    void SetUp() override {
        ASSERT_TRUE(queue.isMainThread());
        one.file("x1.bin", content('x', 70000));
        one.file("x2.bin", content('x', 70000));
        two.file("y1.bin", content('y', 80000));
        two.file("y2.bin", content('y', 80000));
        two.file("y3.bin", content('y', 80000));
    }

    void TearDown() override {
        // Whatever a test left queued runs before the next test.
        if (locator) {
            queue.runUntil([&] { return !locator->isScanThreadRunning(); }, 60s);
            locator->waitForScanThread();
        }
        queue.drain();
    }

    // Starts a scan of the tree and waits, on the main thread and without running its
    // queue, until the scan waits for the main thread to run its finishScan.
    void scanUntilItWaitsForTheMainThread(const test::TempTree& tree) {
        ASSERT_TRUE(locator->scanPaths({tree.path()}));
        ASSERT_TRUE(waitUntil([&] { return locator->isWaitingForMainThread(); }))
            << "the scan never reached its end";
    }
};

TEST_F(LocatorOnTheMainThread, TwoScansBackToBackFromTheMainQueue) {
    test::HangGuard guard(120s, "two scans back to back from the main queue");
    ScanEvents events(locator);
    bool secondAccepted = false;
    queue.post([&] {
        scanUntilItWaitsForTheMainThread(one);
        // The first scan waits for this very thread: the call must not wait for it.
        secondAccepted = locator->scanPaths({two.path()});
    });
    ASSERT_TRUE(queue.runUntil([&] { return events.count("finished") == 2; }, 60s));
    ASSERT_TRUE(queue.runUntil([&] { return !locator->isScanThreadRunning(); }, 60s));
    locator->waitForScanThread();
    queue.drain();

    EXPECT_TRUE(secondAccepted);
    EXPECT_EQ(events.names, (std::vector<std::string>{"started", "finished", "started", "finished"}));
    ASSERT_EQ(events.finishedGroups.size(), 2u);
    EXPECT_EQ(events.finishedGroups[0],
              (std::vector<std::vector<std::string>>{{one / "x1.bin", one / "x2.bin"}}));
    EXPECT_EQ(events.finishedGroups[1],
              (std::vector<std::vector<std::string>>{{two / "y1.bin", two / "y2.bin", two / "y3.bin"}}));
    EXPECT_EQ(locator->state(), ScanState::Idle);
    EXPECT_FALSE(locator->isWaitingForMainThread());
}

TEST_F(LocatorOnTheMainThread, DestroyingALocatorWhileItsScanWaitsForTheMainThread) {
    test::HangGuard guard(120s, "destroying a locator whose scan waits for the main thread");
    ScanEvents events(locator);
    bool destroyed = false;
    queue.post([&] {
        scanUntilItWaitsForTheMainThread(one);
        locator.reset();
        destroyed = true;
    });
    ASSERT_TRUE(queue.runUntil([&] { return destroyed; }, 60s));
    // The dropped finishScan is still queued: running it must not reach the dead locator.
    queue.drain();
    EXPECT_EQ(events.names, (std::vector<std::string>{"started"}));
}

TEST_F(LocatorOnTheMainThread, AScanQueuedBehindAWaitingOneNeverBeginsWhenTheLocatorGoes) {
    test::HangGuard guard(120s, "destroying a locator with a second scan queued");
    ScanEvents events(locator);
    bool destroyed = false;
    queue.post([&] {
        scanUntilItWaitsForTheMainThread(one);
        locator->scanPaths({two.path()});
        locator.reset();
        destroyed = true;
    });
    ASSERT_TRUE(queue.runUntil([&] { return destroyed; }, 60s));
    queue.drain();
    EXPECT_EQ(events.names, (std::vector<std::string>{"started"}));
}

TEST_F(LocatorOnTheMainThread, StoppingWhileTheFinishWaitsPostsNoFinishAndTheNextScanRuns) {
    test::HangGuard guard(120s, "stopping a scan that waits for the main thread");
    ScanEvents events(locator);
    queue.post([&] {
        scanUntilItWaitsForTheMainThread(one);
        locator->stopScan();
    });
    ASSERT_TRUE(queue.runUntil([&] { return !locator->isScanThreadRunning(); }, 60s));
    locator->waitForScanThread();
    queue.drain();
    EXPECT_EQ(events.names, (std::vector<std::string>{"started"}));
    EXPECT_EQ(locator->state(), ScanState::Idle);

    // A stop covers the scans asked for before it, not the next one.
    ASSERT_TRUE(locator->scanPaths({two.path()}));
    ASSERT_TRUE(queue.runUntil([&] { return events.count("finished") == 1; }, 60s));
    EXPECT_EQ(events.names, (std::vector<std::string>{"started", "started", "finished"}));
    ASSERT_EQ(events.finishedGroups.size(), 1u);
    EXPECT_EQ(events.finishedGroups[0].size(), 1u);
}

TEST_F(LocatorOnTheMainThread, AStopRightAfterScanPathsCoversTheScanNotYetBegun) {
    test::HangGuard guard(120s, "a scan stopped before it began");
    ScanEvents events(locator);
    // The first scan waits for the main thread, so the second cannot begin before the stop.
    scanUntilItWaitsForTheMainThread(one);
    ASSERT_TRUE(locator->scanPaths({two.path()}));
    locator->stopScan();
    ASSERT_TRUE(queue.runUntil([&] { return !locator->isScanThreadRunning(); }, 60s));
    locator->waitForScanThread();
    queue.drain();
    EXPECT_EQ(events.names, (std::vector<std::string>{"started"}));
    EXPECT_EQ(locator->state(), ScanState::Idle);
}

TEST_F(LocatorOnTheMainThread, CategoryCountersAreReadWhileTheScanAddsToThem) {
    // Many groups, so the scan thread adds to the counters while this thread reads them.
    test::TempTree many;
    for (int i = 0; i < 300; ++i)
        for (const char* side : {"a", "b"})
            many.file(std::string(side) + "/f" + std::to_string(i) + ".txt",
                      content(static_cast<char>(i), 60000 + static_cast<std::size_t>(i)));
    many.file("a/extra", content('1', 10));
    many.file("b/extra", content('2', 20));
    ASSERT_TRUE(locator->scanPaths({many.path()}));
    std::uint64_t lastCount = 0, lastFiles = 0, lastSize = 0;
    while (locator->isScanThreadRunning()) {
        queue.drain();
        if (const auto results = locator->duplicatesController()) {
            for (const auto& meta : results->metaGroups()) {
                if (meta->groupID() != kMetaGroupAll)
                    continue;
                const std::uint64_t count = meta->count(), files = meta->filesCount(), size = meta->size();
                EXPECT_GE(count, lastCount);
                EXPECT_GE(files, lastFiles);
                EXPECT_GE(size, lastSize);
                lastCount = count, lastFiles = files, lastSize = size;
            }
        }
        std::this_thread::yield();
    }
    locator->waitForScanThread();
    queue.drain();
    const auto all = locator->duplicatesController()->mainMetaGroup();
    EXPECT_EQ(all->count(), 300u);
    EXPECT_EQ(all->filesCount(), 600u);
    EXPECT_GE(all->count(), lastCount);
}

} // namespace
} // namespace corvel
