#pragma once
// BackgroundRelease: lets go of large structures (a finished scan's tree of nodes and its
// results) on a thread of its own, so that freeing hundreds of thousands of nodes never
// holds up the window. Whatever is handed over must no longer be read or written by
// anyone else; the last reference is then dropped on the release thread.
//
// ReleasingLocator: the real duplicates locator behind the scan window, whose finished
// scan is let go of through a BackgroundRelease. A scan whose thread still runs is
// stopped and waited for on the caller's thread as before; only the data of a scan that
// has ended moves. The hand-over waits for the main queue's next turn, so the scan
// window has dropped its results views (their references) by then; when the release is
// gone by then, the data is let go of on the main thread.
//
// Both are made and destroyed on the GUI thread; the release thread ends with the
// BackgroundRelease, after dropping everything still queued.

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>

#include "app/duplicates_locating.h"

namespace corvel {
class LocatorAdapter;
class MainQueue;
} // namespace corvel

namespace corvel::gui {

class BackgroundRelease {
public:
    BackgroundRelease();
    ~BackgroundRelease();
    BackgroundRelease(const BackgroundRelease&) = delete;
    BackgroundRelease& operator=(const BackgroundRelease&) = delete;

    // Takes the reference; it is dropped on the release thread. Any thread.
    void release(std::shared_ptr<void> holder);
    // Returns once everything handed over so far has been dropped. Tests and benchmarks.
    void waitUntilIdle();

private:
    void run();

    std::mutex m_mutex;
    std::condition_variable m_wake;
    std::condition_variable m_idle;
    std::deque<std::shared_ptr<void>> m_queue;
    bool m_busy = false;
    bool m_stop = false;
    std::thread m_thread;
};

class ReleasingLocator final : public DuplicatesLocating {
public:
    ReleasingLocator(std::unique_ptr<LocatorAdapter> locator, MainQueue& mainQueue,
                     std::weak_ptr<BackgroundRelease> release);
    ~ReleasingLocator() override;

    bool scanPaths(const std::vector<std::string>& paths) override;
    void stopScan() override;
    void setState(ScanState state) override;
    std::shared_ptr<CVDuplicatesController> duplicatesController() const override;

    // A factory of real locators released this way.
    static LocatorFactory factory(MainQueue& mainQueue, std::weak_ptr<BackgroundRelease> release);

private:
    std::unique_ptr<LocatorAdapter> m_locator;
    MainQueue& m_mainQueue;
    std::weak_ptr<BackgroundRelease> m_release;
};

} // namespace corvel::gui
