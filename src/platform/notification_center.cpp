#include "notification_center.h"

#include <algorithm>
#include <future>

#include "main_queue.h"

namespace corvel {

NotificationCenter& NotificationCenter::defaultCenter() {
    static NotificationCenter center;
    return center;
}

NotificationCenter::ObserverId NotificationCenter::addObserver(std::string name, const void* sender,
                                                               Handler handler) {
    std::lock_guard lock(m_mutex);
    auto entry = std::make_shared<Entry>();
    entry->id = m_nextId++;
    entry->name = std::move(name);
    entry->sender = sender;
    entry->handler = std::move(handler);
    m_entries.push_back(entry);
    return entry->id;
}

void NotificationCenter::removeObserver(ObserverId id) {
    std::lock_guard lock(m_mutex);
    auto it = std::find_if(m_entries.begin(), m_entries.end(), [id](const auto& e) { return e->id == id; });
    if (it != m_entries.end()) {
        (*it)->alive = false;
        m_entries.erase(it);
    }
}

void NotificationCenter::post(const Notification& notification) {
    std::vector<std::shared_ptr<Entry>> matching;
    {
        std::lock_guard lock(m_mutex);
        for (const auto& e : m_entries)
            if ((e->name.empty() || e->name == notification.name) &&
                (!e->sender || e->sender == notification.sender))
                matching.push_back(e);
    }
    for (const auto& e : matching)
        if (e->alive)
            e->handler(notification);
}

void NotificationCenter::post(std::string name, const void* sender, PropertyValue object) {
    post(Notification{std::move(name), sender, std::move(object), {}});
}

void NotificationCenter::postOnMainThread(Notification notification, bool wait) {
    auto& queue = MainQueue::shared();
    if (wait) {
        queue.postAndWait([this, &notification] { post(notification); });
        return;
    }
    queue.deliver([this, n = std::move(notification)] { post(n); });
}

} // namespace corvel
