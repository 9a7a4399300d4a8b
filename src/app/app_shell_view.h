#pragma once
// AppShellView: the application object's side that the application controller drives:
// the quit sheet, the application's icon and menus, the browser, and the windows of
// parts that live elsewhere (about panel, preferences). The Qt application implements
// it; tests give a fake. Main thread.

#include <functional>
#include <string>

#include "scan_window_view.h"

namespace corvel {

class AppShellView {
public:
    virtual ~AppShellView() = default;

    // A sheet on the scan window; the completion gets the button chosen.
    virtual void showQuitSheet(const std::string& message, const std::string& informative,
                               const std::string& defaultButton, const std::string& alternateButton,
                               std::function<void(AlertChoice)> completion) = 0;
    // Asks the application to quit again (it asks the controller's applicationShouldTerminate).
    virtual void terminate() = 0;

    virtual void setApplicationIcon(const std::string& imageName) = 0;
    // Appends "Debug" with its one item "Analytics" to the main menu.
    virtual void addDebugMenu() = 0;
    // The desktop's list of file-manager actions should be read again.
    virtual void updateDynamicServices() = 0;
    // Opens the address in the default browser; false when that failed.
    virtual bool openURL(const std::string& url) = 0;
    // A prompt that takes over the menus is on screen (all items are disabled meanwhile).
    virtual bool isRatingPromptShown() const = 0;

    virtual void showAboutPanel() = 0;
    virtual void showPreferences() = 0;
    // Parts of the product Linux does not have (feedback framework, store rating,
    // analytics); the face says so or does nothing.
    virtual void openFeedbackWindow() = 0;
    virtual void openRatingsPage() = 0;
    virtual void showAnalyticsWindow() = 0;
};

} // namespace corvel
