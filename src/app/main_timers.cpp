#include "main_timers.h"

#include "platform/main_queue.h"

namespace corvel {

MainTimers::TimerId MainQueueTimers::scheduleTimer(Duration delay, Task task) {
    return m_queue.scheduleTimer(delay, std::move(task));
}

MainTimers::TimerId MainQueueTimers::scheduleRepeatingTimer(Duration interval, Task task) {
    return m_queue.scheduleRepeatingTimer(interval, std::move(task));
}

void MainQueueTimers::cancelTimer(TimerId id) {
    if (id != 0)
        m_queue.cancelTimer(id);
}

} // namespace corvel
