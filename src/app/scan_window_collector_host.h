#pragma once
// The scan window controller as the collector's host. Main thread.

#include "collector_view.h"

namespace corvel {

class CVScanWindowController;

class ScanWindowCollectorHost final : public CollectorHost {
public:
    explicit ScanWindowCollectorHost(CVScanWindowController& window) : m_window(window) {}
    void setWindowState(std::int32_t state) override;
    void forceNewScan() override;
    void backToScan() override;

private:
    CVScanWindowController& m_window;
};

} // namespace corvel
