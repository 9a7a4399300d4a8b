#pragma once
// ScanWindowView: everything visual of the scan window that its controller drives. The
// Qt window implements it; tests give a fake that records the calls. The drop zone's
// drawing is a separate role (ScanItemControlView). Main thread.

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace corvel {

class CollectorRole;
class ResultsViewRole;

// What the stop button does when clicked.
enum class StopButtonAction { CancelScan, NewScan };
// Which button of a two-button alert the user chose.
enum class AlertChoice { Default, Alternate };

struct WindowSize {
    double width = 0;
    double height = 0;
    friend bool operator==(const WindowSize&, const WindowSize&) = default;
};

class ScanWindowView {
public:
    virtual ~ScanWindowView() = default;

    // The two status lines; the animation time applies to the next text change.
    virtual void setStatus(const std::string& text) = 0;
    virtual void setSubStatus(const std::string& text) = 0;
    virtual void setStatusAnimationTime(double seconds) = 0;

    // Buttons (titles and tool tips are already localised).
    virtual void setStartButtonHidden(bool hidden) = 0;
    virtual void setPlusButtonHidden(bool hidden) = 0;
    virtual void setStopButton(const std::string& title, const std::string& toolTip,
                               StopButtonAction action) = 0;
    virtual void setStopButtonHidden(bool hidden) = 0;
    virtual void setResultsButton(const std::string& title, const std::string& toolTip) = 0;
    virtual void setResultsButtonHidden(bool hidden) = 0;
    virtual void setResultsButtonEnabled(bool enabled) = 0;
    // The collector button shows the collector's size and count while bound.
    virtual void bindCollectorButton(CollectorRole& collector) = 0;
    virtual void unbindCollectorButton() = 0;

    // The window.
    virtual void showWindow() = 0;
    virtual bool isVisible() const = 0;
    virtual bool isKeyWindow() const = 0;
    virtual bool isMiniaturized() const = 0;
    virtual void makeKeyAndOrderFront() = 0;
    // Folders dropped anywhere on the window.
    virtual void setDropsEnabled(bool enabled) = 0;
    virtual void clearUndoActions() = 0;
    // A modal alert; answers the button chosen. The default button is the answer that
    // changes nothing: Return and Escape (or closing the alert) both choose it.
    virtual AlertChoice runModalAlert(const std::string& message, const std::string& informative,
                                      const std::string& defaultButton,
                                      const std::string& alternateButton) = 0;
    // The folder-choosing sheet (several folders allowed, prompt on its OK button); the
    // completion gets the chosen paths, or nothing when cancelled.
    virtual void showOpenPanel(const std::string& prompt,
                               std::function<void(std::optional<std::vector<std::string>>)> completion) = 0;
    virtual void clearSearchField() = 0;
    virtual void makeSearchFieldKey() = 0;
    virtual void closeQuickLook() = 0;
    virtual bool isFullScreen() const = 0;
    virtual void exitFullScreen() = 0;

    // Switches the content to the results view: resizable, at least minSize, its frame
    // kept under "ResultsWindowBounds"; done runs when the switch has finished.
    virtual void showResultsContent(ResultsViewRole& results, WindowSize minSize,
                                    std::function<void()> done) = 0;
    // Back to the scan view at its fixed size.
    virtual void showScanContent() = 0;
};

} // namespace corvel
