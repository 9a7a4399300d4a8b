#pragma once
// QtMainQueue: runs a MainQueue's tasks and timers inside Qt's event loop. A task queued
// from any thread wakes the GUI thread through a queued call (one outstanding call at a
// time, so a burst of posts costs one wake-up); after each drain a single-shot QTimer is
// armed for the next MainQueue timer. Create it on the GUI thread, which becomes the
// queue's main thread; it must outlive nothing that posts after it is destroyed (the
// destructor removes the wake-up handler).

#include <QObject>
#include <QTimer>
#include <atomic>
#include <memory>
#include <mutex>

namespace corvel {

class MainQueue;

class QtMainQueue final : public QObject {
public:
    explicit QtMainQueue(MainQueue& queue, QObject* parent = nullptr);
    ~QtMainQueue() override;
    QtMainQueue(const QtMainQueue&) = delete;
    QtMainQueue& operator=(const QtMainQueue&) = delete;

    // Runs what is ready now and re-arms the timer. GUI thread.
    void drainNow();

private:
    void scheduleDrain();
    void armTimer();

    MainQueue& m_queue;
    QTimer m_timer;
    // Shared with the wake-up handler, which may run on any thread, even while this
    // object is being destroyed: the receiver is cleared under the lock first.
    struct Guard {
        std::mutex mutex;
        QtMainQueue* receiver = nullptr;
        // A queued drain is on its way.
        std::atomic<bool> drainPending{false};
    };
    std::shared_ptr<Guard> m_guard = std::make_shared<Guard>();
};

} // namespace corvel
