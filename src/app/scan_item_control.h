#pragma once
// RGScanItemControl: the drop zone of the scan window, its list of targets. Folders
// dropped or chosen are merged into the list (the new batch first, then the earlier
// targets; each path once, and a folder inside another target is covered by it); the
// zone shows one target by its icon and name and several by a composite icon and
// "ScanItemControlString_FoldersCount". Its drawing (icons, progress ring, finish marks,
// arrow) is the ScanItemControlView's; the scan window is its delegate. Main thread.

#include <cstdint>
#include <string>
#include <vector>

namespace corvel {

class Tracker;

// How a scan ended, as the drop zone draws it.
enum class FinishMark : std::int32_t { Found = 0, Nothing = 1, Error = 2 };

// The drop zone's drawing.
class ScanItemControlView {
public:
    virtual ~ScanItemControlView() = default;
    // The arrow flies away as folders arrive.
    virtual void startArrowFlyAway() = 0;
    // The arrow's idle animation (after launch, after the tutorial).
    virtual void setupArrowAnimation() = 0;
    // One path: its icon at 160 × 160 points and name; several: a composite of their
    // icons and name (the folder-count text).
    virtual void showTargets(const std::vector<std::string>& paths, const std::string& name) = 0;
    virtual void startScanningAnimation() = 0;
    // The progress ring, 0 to 1.
    virtual void setProgress(double fraction) = 0;
    virtual void playFinishMark(FinishMark mark) = 0;
    // Clears the zone for new folders; when the animation is over the view calls
    // RGScanItemControl::animationDidReset.
    virtual void resetAnimation() = 0;
};

// What the drop zone asks of the scan window.
class RGScanItemControlDelegate {
public:
    virtual ~RGScanItemControlDelegate() = default;
    // The targets were replaced; folderName is what the zone shows for them.
    virtual void addPathsForScan(const std::vector<std::string>& paths, const std::string& folderName) = 0;
    // Folders given with start-immediately: scan them now.
    virtual void startScanFromDropZone() = 0;
    // The last targets were taken away.
    virtual void stopScanFromDropZone() = 0;
    // The context menu's "refresh".
    virtual void refreshDrop() = 0;
    // The zone has cleared itself for a new scan.
    virtual void readyToResan() = 0;
};

class RGScanItemControl {
public:
    static constexpr std::int64_t kRefreshMenuItemTag = 1234;

    RGScanItemControl(ScanItemControlView& view, Tracker& tracker);
    void setDelegate(RGScanItemControlDelegate* delegate) { m_delegate = delegate; }

    // Without startImmediately the new paths are merged before the earlier targets and
    // "refresh" is enabled; with it they alone replace the targets and the scan starts.
    void addFoldersForScan(const std::vector<std::string>& paths, bool startImmediately);
    // Takes the paths out of the targets; when none remain the scan window goes idle.
    void removeLastDroppedArray(const std::vector<std::string>& paths);
    // Replaces the targets and tells the view and the delegate.
    void updateIconAndTitleWithArray(const std::vector<std::string>& paths);

    const std::vector<std::string>& items() const { return m_items; }
    bool refreshEnabled() const { return m_refreshEnabled; }
    // The context menu: the item tagged 1234 only while refresh is enabled; others always.
    bool validateMenuItem(std::int64_t tag) const;
    void refreshMenuAction();
    // A click on the zone (reported; the view then handles it as a click).
    void mouseDown();

    // Drawing requests from the scan window.
    void startScanningAnimation();
    void setProgress(double fraction);
    void playFinishMark(FinishMark mark);
    void setupArrowAnimation();
    // Forgets the targets, disables refresh and clears the zone.
    void resetAnimation();
    // The view's answer to resetAnimation.
    void animationDidReset();

    // What the zone shows for the targets: the one folder's name, or
    // "ScanItemControlString_FoldersCount" with the count; empty for none.
    static std::string displayNameForTargets(const std::vector<std::string>& paths);
    // The targets after adding a batch: each path once (trailing slashes ignored), the
    // new batch first, a folder inside another one dropped.
    static std::vector<std::string> mergedTargets(const std::vector<std::string>& added,
                                                  const std::vector<std::string>& previous);

private:
    ScanItemControlView& m_view;
    Tracker& m_tracker;
    RGScanItemControlDelegate* m_delegate = nullptr;
    std::vector<std::string> m_items;
    bool m_refreshEnabled = false;
};

} // namespace corvel
