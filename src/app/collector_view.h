#pragma once
// CollectorView: the face of the collector that CVCollectorViewController drives: the
// list of the copies chosen for removal (by group), the amount line, the slide in and out,
// and, as a CVRemovalView, everything a removal pass shows. The desktop application draws
// it; tests record what it was told. Main thread.

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "engine/group.h"
#include "removal/removal_view.h"
#include "scan_window_view.h"

namespace corvel {

// One group of the collector's list with its copies marked for removal.
struct CollectorListGroup {
    std::shared_ptr<CVGroup> group;
    std::vector<std::shared_ptr<CVFile>> files;
};

// The finish screen after a pass that removed everything it could.
struct CleanupSummary {
    std::uint64_t sizeFreed = 0;
    std::string sizeFreedText;
    std::uint64_t totalSaved = 0;
    std::string totalSavedText;
    std::int64_t level = 1;
    std::string rank;
    bool advertise = false;
};

class CollectorView : public CVRemovalView {
public:
    // The list, every group expanded.
    virtual void showList(const std::vector<CollectorListGroup>& groups) = 0;
    virtual void deselectAllRows() = 0;
    virtual void setAmountLine(const std::string& text) = 0;
    virtual void setRemoveButtonEnabled(bool enabled) = 0;
    // The collector slides over the results; done runs when the animation ended.
    virtual void slideIn(std::function<void()> done) = 0;
    // The list (or the failed-files list) slides away, or the collector hides at once when
    // neither is visible; done runs when that ended.
    virtual void slideOut(std::function<void()> done) = 0;
    virtual void setInformationPanelHidden(bool hidden) = 0;
    virtual void setListFirstResponder(bool first) = 0;
    virtual AlertChoice runModalAlert(const std::string& message, const std::string& informative,
                                      const std::string& defaultButton,
                                      const std::string& alternateButton) = 0;
    // The finish screen's figures and the failed files of the last pass.
    virtual void showCleanupSummary(const CleanupSummary& summary) = 0;
    virtual void showFailedFiles(const std::vector<std::shared_ptr<CVFile>>& files) = 0;
    // The selection message of the last selecting operation (warning empty for none).
    virtual void showSelectionMessage(const std::string& /*warning*/, const std::string& /*details*/) {}
    // Where the copies listed will go (the Trash, or deleted for good), said beside the
    // list each time it opens, so that a permanent deletion is never a surprise.
    virtual void setRemovalMode(bool /*toTrash*/) {}
    virtual void hideAdvertisement() {}
    virtual void closeSharingWindow() {}
};

// What the collector asks of the scan window: its state, a new scan, the way back.
class CollectorHost {
public:
    virtual ~CollectorHost() = default;
    virtual void setWindowState(std::int32_t state) = 0;
    virtual void forceNewScan() = 0;
    virtual void backToScan() = 0;
};

} // namespace corvel
