#include "scan_window_collector_host.h"

#include "scan_window_controller.h"

namespace corvel {

void ScanWindowCollectorHost::setWindowState(std::int32_t state) {
    m_window.setWindowState(state);
}

void ScanWindowCollectorHost::forceNewScan() {
    m_window.forceNewScan();
}

void ScanWindowCollectorHost::backToScan() {
    m_window.backToScan(true);
}

} // namespace corvel
