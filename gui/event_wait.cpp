#include "event_wait.h"

#include <QCoreApplication>
#include <QElapsedTimer>

namespace corvel {

bool processEventsUntil(const std::function<bool()>& condition, int timeoutMs, int pollMs) {
    QElapsedTimer timer;
    timer.start();
    while (!condition()) {
        if (timer.elapsed() > timeoutMs)
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, pollMs);
    }
    return true;
}

} // namespace corvel
