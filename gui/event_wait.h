#pragma once
// Waiting on the event loop for programs that drive the desktop application themselves
// (the screenshots, the timed programs). The GUI thread only.

#include <functional>

namespace corvel {

// Processes events, sleeping at most pollMs at a time, until condition holds; false when
// timeoutMs pass first.
bool processEventsUntil(const std::function<bool()>& condition, int timeoutMs, int pollMs = 5);

} // namespace corvel
