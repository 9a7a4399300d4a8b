#include "locator_adapter.h"

namespace corvel {

LocatorAdapter::LocatorAdapter() : m_locator(std::make_unique<CVDuplicatesLocator>()) {}

LocatorAdapter::LocatorAdapter(std::unique_ptr<CVDuplicatesLocator> locator)
    : m_locator(std::move(locator)) {}

bool LocatorAdapter::scanPaths(const std::vector<std::string>& paths) {
    return m_locator->scanPaths(paths);
}

void LocatorAdapter::stopScan() {
    m_locator->stopScan();
}

void LocatorAdapter::setState(ScanState state) {
    m_locator->setState(state);
}

std::shared_ptr<CVDuplicatesController> LocatorAdapter::duplicatesController() const {
    return m_locator->duplicatesController();
}

LocatorFactory LocatorAdapter::factory() {
    return [] { return std::make_unique<LocatorAdapter>(); };
}

} // namespace corvel
