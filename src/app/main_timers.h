#pragma once
// MainTimers: the one-shot and repeating timers the controllers schedule on the main
// thread (the phrase timer, the deferred folder hand-over, the drop-zone arrow). The
// application uses MainQueueTimers; tests give a fake that records the delays and fires
// the timers when told. Main thread.

#include <chrono>
#include <cstdint>
#include <functional>

namespace corvel {

class MainQueue;

class MainTimers {
public:
    using TimerId = std::uint64_t;
    using Task = std::function<void()>;
    using Duration = std::chrono::steady_clock::duration;

    virtual ~MainTimers() = default;
    // Runs the task once, on the main thread, after the delay. Answers a non-zero id.
    virtual TimerId scheduleTimer(Duration delay, Task task) = 0;
    // Runs the task every interval until cancelled. Answers a non-zero id.
    virtual TimerId scheduleRepeatingTimer(Duration interval, Task task) = 0;
    // Unknown, spent or zero ids are harmless.
    virtual void cancelTimer(TimerId id) = 0;
};

// The timers of a MainQueue.
class MainQueueTimers final : public MainTimers {
public:
    explicit MainQueueTimers(MainQueue& queue) : m_queue(queue) {}
    TimerId scheduleTimer(Duration delay, Task task) override;
    TimerId scheduleRepeatingTimer(Duration interval, Task task) override;
    void cancelTimer(TimerId id) override;

private:
    MainQueue& m_queue;
};

} // namespace corvel
