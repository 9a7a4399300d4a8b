#include "background_release.h"

#include "app/locator_adapter.h"
#include "platform/main_queue.h"
#include "results/duplicates_controller.h"
#include "scan/files_hierarchy.h"

namespace corvel::gui {

BackgroundRelease::BackgroundRelease() : m_thread([this] { run(); }) {}

BackgroundRelease::~BackgroundRelease() {
    {
        std::lock_guard lock(m_mutex);
        m_stop = true;
    }
    m_wake.notify_one();
    m_thread.join();
}

void BackgroundRelease::release(std::shared_ptr<void> holder) {
    if (!holder)
        return;
    {
        std::lock_guard lock(m_mutex);
        m_queue.push_back(std::move(holder));
    }
    m_wake.notify_one();
}

void BackgroundRelease::waitUntilIdle() {
    std::unique_lock lock(m_mutex);
    m_idle.wait(lock, [this] { return m_queue.empty() && !m_busy; });
}

void BackgroundRelease::run() {
    std::unique_lock lock(m_mutex);
    for (;;) {
        m_wake.wait(lock, [this] { return m_stop || !m_queue.empty(); });
        if (m_queue.empty()) // stopping, nothing left
            return;
        std::shared_ptr<void> holder = std::move(m_queue.front());
        m_queue.pop_front();
        m_busy = true;
        lock.unlock();
        holder.reset();
        lock.lock();
        m_busy = false;
        if (m_queue.empty())
            m_idle.notify_all();
    }
}

ReleasingLocator::ReleasingLocator(std::unique_ptr<LocatorAdapter> locator, MainQueue& mainQueue,
                                   std::weak_ptr<BackgroundRelease> release)
    : m_locator(std::move(locator)), m_mainQueue(mainQueue), m_release(std::move(release)) {}

ReleasingLocator::~ReleasingLocator() {
    CVDuplicatesLocator& engine = m_locator->locator();
    if (engine.isScanThreadRunning()) {
        // Stopped and waited for here, as the locator itself does.
        m_locator.reset();
        return;
    }
    struct FinishedScan {
        std::shared_ptr<CVFilesHierarchy> hierarchy;
        std::shared_ptr<CVDuplicatesController> results;
    };
    auto scan =
        std::make_shared<FinishedScan>(FinishedScan{engine.hierarchy(), engine.duplicatesController()});
    m_locator.reset();
    m_mainQueue.post([release = m_release, scan]() mutable {
        if (auto thread = release.lock())
            thread->release(std::move(scan));
    });
}

bool ReleasingLocator::scanPaths(const std::vector<std::string>& paths) {
    return m_locator->scanPaths(paths);
}

void ReleasingLocator::stopScan() {
    m_locator->stopScan();
}

void ReleasingLocator::setState(ScanState state) {
    m_locator->setState(state);
}

std::shared_ptr<CVDuplicatesController> ReleasingLocator::duplicatesController() const {
    return m_locator->duplicatesController();
}

LocatorFactory ReleasingLocator::factory(MainQueue& mainQueue, std::weak_ptr<BackgroundRelease> release) {
    return [&mainQueue, release] {
        return std::make_unique<ReleasingLocator>(std::make_unique<LocatorAdapter>(), mainQueue, release);
    };
}

} // namespace corvel::gui
