#pragma once
// MainQueue: the main thread's work queue and timers. Views and everything they observe
// are touched only from tasks run here. The command line and the tests drive it with the
// plain run loop below (run, runFor, runUntil, drain); the desktop application drains
// it from its own event loop, woken through setWakeUpHandler.

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <thread>

namespace corvel {

class MainQueue {
public:
    using Task = std::function<void()>;
    using Clock = std::chrono::steady_clock;
    using TimerId = std::uint64_t;

    // The process-wide queue. Its main thread is the process's main thread (the one
    // that ran main()) unless setMainThread says otherwise; so is a new queue's.
    static MainQueue& shared();

    MainQueue();
    MainQueue(const MainQueue&) = delete;
    MainQueue& operator=(const MainQueue&) = delete;

    // Declares the calling thread the main thread.
    void setMainThread();
    bool isMainThread() const;

    // Queues a task to run on the main thread, after every task queued before it. Any thread.
    void post(Task task);
    // Runs the task on the main thread and returns when it has run. On the main thread
    // it runs at once. From another thread it blocks until the main thread drains the
    // queue, so the main thread must be running its loop.
    void postAndWait(Task task);
    // Runs the task at once on the main thread, otherwise queues it (never blocks).
    void deliver(Task task);

    // Timers fire on the main thread. A repeating timer fires every interval until
    // cancelled; a one-shot timer once. Cancelling an unknown or spent timer is harmless.
    TimerId scheduleTimer(Clock::duration delay, Task task);
    TimerId scheduleRepeatingTimer(Clock::duration interval, Task task);
    void cancelTimer(TimerId id);

    // Run loop, main thread only. drain runs the queued tasks and due timers without
    // waiting and answers how many it ran; runFor runs for the given time; runUntil
    // runs until the condition holds (checked after each task) or the timeout passes,
    // answering whether it holds; run runs until stop is called.
    std::size_t drain();
    void runFor(Clock::duration duration);
    bool runUntil(const std::function<bool()>& condition, Clock::duration timeout);
    void run();
    // Makes run return after its current task. Any thread.
    void stop();

    // Called (from any thread) when a task is queued or a timer scheduled, so a foreign
    // event loop knows to call drain; nextTimerDeadline says when the next timer is due.
    void setWakeUpHandler(std::function<void()> handler);
    bool nextTimerDeadline(Clock::time_point& deadline) const;

private:
    struct Timer {
        Clock::time_point due;
        Clock::duration interval;
        bool repeating;
        Task task;
    };

    TimerId addTimer(Clock::duration delay, Clock::duration interval, bool repeating, Task task);
    // Runs one ready task or due timer; answers false when there was none.
    bool runOne();
    void wakeUp();

    mutable std::mutex m_mutex;
    std::condition_variable m_condition;
    std::deque<Task> m_tasks;
    std::map<TimerId, Timer> m_timers;
    TimerId m_nextTimerId = 1;
    bool m_stopRequested = false;
    std::thread::id m_mainThread;
    std::function<void()> m_wakeUpHandler;
};

} // namespace corvel
