#include "application.h"

#include "platform/tracker.h"

namespace corvel {

CVApplication::CVApplication(Tracker& tracker) : m_tracker(tracker) {}

const std::map<std::string, std::string, std::less<>>& CVApplication::menuMapping() {
    static const std::map<std::string, std::string, std::less<>> mapping = {
        {"scanPictures:", "Pictures"},
        {"scanDocuments:", "Documents"},
        {"supportAction:", "Contact Support"},
        {"requestFeatureAction:", "Suggest a Feature..."},
        {"backToScanAction:", "Back to Scan"},
        {"openFile:", "Add Folder..."},
        {"keepAllMostRecentFiles:", "Keep the Newest Files"},
        {"keepAllOldestFiles:", "Keep the Oldest Files"},
        {"toggleFullScreen:", "Enter Full Screen"},
        {"showResultsAction:", "Show Results"},
        {"collectDuplicatesOfFolder:", "Select All Duplicates in..."},
        {"autoCollect:", "Auto Select Duplicates"},
        {"showCollector:", "Show Selected Duplicates"},
        {"rescan:", "Rescan"},
        {"scanDownloads:", "Downloads"},
        {"rateOnAppStore:", "Rate Corvel on App Store..."},
        {"putAllFilesBack:", "Deselect All Duplicates"},
        {"scanDesktop:", "Desktop"},
        {"showWelcomeTutorial:", "Show Welcome Tutorial"},
        {"showAboutPanel:", "About Corvel"},
        {"FAQAction:", "Corvel Help"},
        {"searchAction:", "Find\u2026"},
        {"scanMusic:", "Music"},
        {"showPreferences:", "Preferences\u2026"},
        {"newScan:", "New Scan"},
        {"scanMovies:", "Movies"},
        {"exportSelectedDupes:", "Export Selected Duplicates as List..."},
        {"feedbackAction:", "Provide Feedback\u2026"},
        {"scanHomeFolder:", "Home Folder"},
    };
    return mapping;
}

bool CVApplication::sendAction(std::string_view action, bool senderIsMenuItem,
                               const std::function<bool()>& dispatch) {
    const bool dispatched = dispatch && dispatch();
    if (!dispatched || !senderIsMenuItem)
        return dispatched;
    const auto& mapping = menuMapping();
    if (const auto it = mapping.find(action); it != mapping.end())
        m_tracker.trackEvent("Menu Items", it->second, "", 1);
    return dispatched;
}

} // namespace corvel
