#include "qt_main_queue.h"

#include <QCoreApplication>
#include <QMetaObject>
#include <algorithm>
#include <chrono>

#include "platform/main_queue.h"

namespace corvel {

QtMainQueue::QtMainQueue(MainQueue& queue, QObject* parent) : QObject(parent), m_queue(queue) {
    m_queue.setMainThread();
    m_timer.setSingleShot(true);
    m_timer.setTimerType(Qt::PreciseTimer);
    connect(&m_timer, &QTimer::timeout, this, &QtMainQueue::drainNow);
    m_guard->receiver = this;
    m_queue.setWakeUpHandler([guard = m_guard] {
        if (guard->drainPending.exchange(true))
            return;
        std::lock_guard lock(guard->mutex);
        if (guard->receiver)
            QMetaObject::invokeMethod(guard->receiver, &QtMainQueue::drainNow, Qt::QueuedConnection);
    });
    scheduleDrain();
}

QtMainQueue::~QtMainQueue() {
    m_queue.setWakeUpHandler({});
    std::lock_guard lock(m_guard->mutex);
    m_guard->receiver = nullptr;
}

void QtMainQueue::scheduleDrain() {
    if (m_guard->drainPending.exchange(true))
        return;
    QMetaObject::invokeMethod(this, &QtMainQueue::drainNow, Qt::QueuedConnection);
}

void QtMainQueue::drainNow() {
    m_guard->drainPending.store(false);
    m_queue.drain();
    armTimer();
}

void QtMainQueue::armTimer() {
    MainQueue::Clock::time_point deadline;
    if (!m_queue.nextTimerDeadline(deadline)) {
        m_timer.stop();
        return;
    }
    const auto wait =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - MainQueue::Clock::now());
    const auto ms = std::clamp<std::int64_t>(wait.count() + 1, 0, 24 * 3600 * 1000);
    m_timer.start(static_cast<int>(ms));
}

} // namespace corvel
