#pragma once
// NotificationCenter: named notifications with a sender, an object value and a user-info
// dictionary, delivered to the observers registered for the name (and, when they asked,
// for the sender).

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "property_value.h"

namespace corvel {

struct Notification {
    std::string name;
    // Identity of the poster, compared by address only; nullptr when none.
    const void* sender = nullptr;
    // A value that travels with the notification (the progress of "ProgressUpdated").
    PropertyValue object;
    PropertyValue::Dictionary userInfo;
};

class NotificationCenter {
public:
    using ObserverId = std::uint64_t;
    using Handler = std::function<void(const Notification&)>;

    // The default centre of the process.
    static NotificationCenter& defaultCenter();

    // Registers a handler for notifications with this name (every name when empty) and
    // this sender (every sender when nullptr). Any thread.
    ObserverId addObserver(std::string name, const void* sender, Handler handler);
    // After this returns, the handler is not called again (a call already under way on
    // another thread may still finish). Safe from inside a handler.
    void removeObserver(ObserverId id);

    // Calls the matching handlers on the calling thread, in the order they were added.
    void post(const Notification& notification);
    void post(std::string name, const void* sender = nullptr, PropertyValue object = {});
    // Delivers on the main queue: at once when called there, otherwise queued; with
    // wait, a caller on another thread blocks until the handlers have run.
    void postOnMainThread(Notification notification, bool wait = false);

private:
    struct Entry {
        ObserverId id;
        std::string name;
        const void* sender;
        Handler handler;
        std::atomic<bool> alive{true};
    };
    std::mutex m_mutex;
    std::vector<std::shared_ptr<Entry>> m_entries;
    ObserverId m_nextId = 1;
};

// Removes its observation when destroyed; movable, not copyable.
class ScopedObserver {
public:
    ScopedObserver() = default;
    ScopedObserver(NotificationCenter& center, NotificationCenter::ObserverId id)
        : m_center(&center), m_id(id) {}
    ScopedObserver(ScopedObserver&& other) noexcept : m_center(other.m_center), m_id(other.m_id) {
        other.m_center = nullptr;
    }
    ScopedObserver& operator=(ScopedObserver&& other) noexcept {
        if (this != &other) {
            reset();
            m_center = other.m_center;
            m_id = other.m_id;
            other.m_center = nullptr;
        }
        return *this;
    }
    ScopedObserver(const ScopedObserver&) = delete;
    ScopedObserver& operator=(const ScopedObserver&) = delete;
    ~ScopedObserver() { reset(); }
    void reset() {
        if (m_center)
            m_center->removeObserver(m_id);
        m_center = nullptr;
    }

private:
    NotificationCenter* m_center = nullptr;
    NotificationCenter::ObserverId m_id = 0;
};

} // namespace corvel
