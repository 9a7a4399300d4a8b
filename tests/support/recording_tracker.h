#pragma once
// A tracker that keeps every event, for checking what the logic reports.

#include <cstdint>
#include <mutex>
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
};

class RecordingTracker final : public Tracker {
public:
    void trackEvent(std::string_view category, std::string_view action, std::string_view label,
                    std::int64_t value) override {
        std::lock_guard lock(m_mutex);
        m_events.push_back({std::string(category), std::string(action), std::string(label), value});
    }
    std::vector<TrackedEvent> events() const {
        std::lock_guard lock(m_mutex);
        return m_events;
    }

private:
    mutable std::mutex m_mutex;
    std::vector<TrackedEvent> m_events;
};

} // namespace corvel::test
