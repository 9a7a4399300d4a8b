#include "main_queue.h"

#include <future>

namespace corvel {

namespace {
// Initialised before main() runs, on the process's main thread.
const std::thread::id g_processMainThread = std::this_thread::get_id();
} // namespace

MainQueue& MainQueue::shared() {
    static MainQueue queue;
    return queue;
}

MainQueue::MainQueue() : m_mainThread(g_processMainThread) {}

void MainQueue::setMainThread() {
    std::lock_guard lock(m_mutex);
    m_mainThread = std::this_thread::get_id();
}

bool MainQueue::isMainThread() const {
    std::lock_guard lock(m_mutex);
    return m_mainThread == std::this_thread::get_id();
}

void MainQueue::wakeUp() {
    m_condition.notify_all();
    std::function<void()> handler;
    {
        std::lock_guard lock(m_mutex);
        handler = m_wakeUpHandler;
    }
    if (handler)
        handler();
}

void MainQueue::post(Task task) {
    {
        std::lock_guard lock(m_mutex);
        m_tasks.push_back(std::move(task));
    }
    wakeUp();
}

void MainQueue::postAndWait(Task task) {
    if (isMainThread()) {
        task();
        return;
    }
    std::promise<void> done;
    auto finished = done.get_future();
    post([&task, &done] {
        task();
        done.set_value();
    });
    finished.wait();
}

void MainQueue::deliver(Task task) {
    if (isMainThread())
        task();
    else
        post(std::move(task));
}

MainQueue::TimerId MainQueue::addTimer(Clock::duration delay, Clock::duration interval, bool repeating,
                                       Task task) {
    TimerId id;
    {
        std::lock_guard lock(m_mutex);
        id = m_nextTimerId++;
        m_timers.emplace(id, Timer{Clock::now() + delay, interval, repeating, std::move(task)});
    }
    wakeUp();
    return id;
}

MainQueue::TimerId MainQueue::scheduleTimer(Clock::duration delay, Task task) {
    return addTimer(delay, Clock::duration::zero(), false, std::move(task));
}

MainQueue::TimerId MainQueue::scheduleRepeatingTimer(Clock::duration interval, Task task) {
    return addTimer(interval, interval, true, std::move(task));
}

void MainQueue::cancelTimer(TimerId id) {
    std::lock_guard lock(m_mutex);
    m_timers.erase(id);
}

bool MainQueue::runOne() {
    Task task;
    {
        std::unique_lock lock(m_mutex);
        if (!m_tasks.empty()) {
            task = std::move(m_tasks.front());
            m_tasks.pop_front();
        } else {
            const auto now = Clock::now();
            auto due = m_timers.end();
            for (auto it = m_timers.begin(); it != m_timers.end(); ++it)
                if (it->second.due <= now && (due == m_timers.end() || it->second.due < due->second.due))
                    due = it;
            if (due == m_timers.end())
                return false;
            task = due->second.task;
            if (due->second.repeating)
                due->second.due = now + due->second.interval;
            else
                m_timers.erase(due);
        }
    }
    task();
    return true;
}

std::size_t MainQueue::drain() {
    std::size_t count = 0;
    // Only what is ready now: tasks that these tasks queue run too, timers that fall due meanwhile too.
    while (runOne())
        ++count;
    return count;
}

bool MainQueue::nextTimerDeadline(Clock::time_point& deadline) const {
    std::lock_guard lock(m_mutex);
    if (m_timers.empty())
        return false;
    deadline = Clock::time_point::max();
    for (const auto& [id, timer] : m_timers)
        deadline = std::min(deadline, timer.due);
    return true;
}

bool MainQueue::runUntil(const std::function<bool()>& condition, Clock::duration timeout) {
    const auto end = Clock::now() + timeout;
    for (;;) {
        if (condition && condition())
            return true;
        if (runOne())
            continue;
        std::unique_lock lock(m_mutex);
        if (m_stopRequested) {
            m_stopRequested = false;
            return condition && condition();
        }
        const auto now = Clock::now();
        if (now >= end)
            return condition && condition();
        auto wakeAt = end;
        for (const auto& [id, timer] : m_timers)
            wakeAt = std::min(wakeAt, timer.due);
        if (m_tasks.empty() && wakeAt > now)
            m_condition.wait_until(lock, wakeAt);
    }
}

void MainQueue::runFor(Clock::duration duration) {
    runUntil(nullptr, duration);
}

void MainQueue::run() {
    runUntil(nullptr, std::chrono::hours(24 * 365 * 100));
}

void MainQueue::stop() {
    {
        std::lock_guard lock(m_mutex);
        m_stopRequested = true;
    }
    m_condition.notify_all();
}

void MainQueue::setWakeUpHandler(std::function<void()> handler) {
    std::lock_guard lock(m_mutex);
    m_wakeUpHandler = std::move(handler);
}

} // namespace corvel
