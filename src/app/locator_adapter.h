#pragma once
// LocatorAdapter: the real duplicates locator behind the scan window's DuplicatesLocating
// role. It owns the locator; destroying the adapter stops the scan and waits for its
// thread, as destroying the locator does.

#include <memory>

#include "duplicates_locating.h"
#include "scan/duplicates_locator.h"

namespace corvel {

class LocatorAdapter final : public DuplicatesLocating {
public:
    // A locator on the shared ignore list, preferences and store.
    LocatorAdapter();
    explicit LocatorAdapter(std::unique_ptr<CVDuplicatesLocator> locator);

    bool scanPaths(const std::vector<std::string>& paths) override;
    void stopScan() override;
    // Passed on to the locator as it is.
    void setState(ScanState state) override;
    std::shared_ptr<CVDuplicatesController> duplicatesController() const override;

    CVDuplicatesLocator& locator() { return *m_locator; }

    // The factory the application uses: a fresh real locator per scan.
    static LocatorFactory factory();

private:
    std::unique_ptr<CVDuplicatesLocator> m_locator;
};

} // namespace corvel
