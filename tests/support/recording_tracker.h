#pragma once
// A tracker that keeps every event, for checking what the logic reports.

#include <cstdint>
#include <mutex>
#include <ostream>
#include <string>
#include <vector>

#include "platform/tracker.h"

namespace corvel::test {

struct TrackedEvent {
    std::string category;
    std::string action;
    std::string label;
    std::int64_t value;
    friend bool operator==(const TrackedEvent&, const TrackedEvent&) = default;
    friend void PrintTo(const TrackedEvent& e, std::ostream* os) {
        *os << "(" << e.category << ", " << e.action << ", " << e.label << ", " << e.value << ")";
    }
};

class RecordingTracker final : public Tracker {
public:
    void trackEvent(std::string_view category, std::string_view action, std::string_view label,
                    std::int64_t value) override {
        std::lock_guard lock(m_mutex);
        m_events.push_back({std::string(category), std::string(action), std::string(label), value});
    }
    void trackView(std::string_view name) override {
        std::lock_guard lock(m_mutex);
        m_views.emplace_back(name);
    }
    std::vector<TrackedEvent> events() const {
        std::lock_guard lock(m_mutex);
        return m_events;
    }
    std::vector<std::string> views() const {
        std::lock_guard lock(m_mutex);
        return m_views;
    }
    void clear() {
        std::lock_guard lock(m_mutex);
        m_events.clear();
        m_views.clear();
    }

private:
    mutable std::mutex m_mutex;
    std::vector<TrackedEvent> m_events;
    std::vector<std::string> m_views;
};

} // namespace corvel::test
