#include "tracker.h"

namespace corvel {

namespace {

std::shared_ptr<Tracker>& installed() {
    static std::shared_ptr<Tracker> tracker = std::make_shared<NullTracker>();
    return tracker;
}

} // namespace

Tracker& sharedTracker() {
    return *installed();
}

void setSharedTracker(std::shared_ptr<Tracker> tracker) {
    installed() = tracker ? std::move(tracker) : std::make_shared<NullTracker>();
}

} // namespace corvel
