#pragma once
// ScanNotifying: tells the user outside the window that a scan is over (a desktop
// notification). The scan window holds a pointer that may be null when the desktop has
// no notification service. Main thread.

#include <cstdint>

namespace corvel {

class ScanNotifying {
public:
    virtual ~ScanNotifying() = default;
    virtual void postScanCompleteNotificationWithSize(std::uint64_t size) = 0;
    virtual void postScanCompleteNotificationAndNothingFound() = 0;
};

} // namespace corvel
