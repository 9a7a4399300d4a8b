#pragma once
// DuplicatesLocating: what the scan window asks of the engine of one scan. The real
// locator (CVDuplicatesLocator) sits behind LocatorAdapter; tests give a fake that posts
// the engine's notifications itself. The scan window makes one per scan through a
// LocatorFactory and owns it. Main thread, except duplicatesController, which the
// notification handlers read on the engine's threads.

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "scan/scan_state.h"

namespace corvel {

class CVDuplicatesController;

class DuplicatesLocating {
public:
    virtual ~DuplicatesLocating() = default;

    // False when the engine refuses to start (an empty list); otherwise the scan runs on
    // the engine's thread and announces itself through the default notification centre.
    virtual bool scanPaths(const std::vector<std::string>& paths) = 0;
    // The scan ends at its next check; what was found stays. Harmless after the end.
    virtual void stopScan() = 0;
    // The engine's state; Idle resets it (the scan stops comparing).
    virtual void setState(ScanState state) = 0;
    // The results of the current scan; null until the scan has started searching.
    // Any thread.
    virtual std::shared_ptr<CVDuplicatesController> duplicatesController() const = 0;
};

using LocatorFactory = std::function<std::unique_ptr<DuplicatesLocating>()>;

} // namespace corvel
