#pragma once
// CorvelAppDelegate: the application controller. It runs the start-up sequence, owns the
// one scan window controller (made on first need, never replaced), takes folders handed
// over by a second launch or the file manager, confirms quitting while a scan runs,
// writes the ignore list at quit, forwards every menu command to the scan window or the
// results it holds, and enables the menu items by the scan window's state. It takes no
// scanning decision of its own. Main thread; deferred work goes through MainTimers.
//
// Parts Linux does not build (the tutorial window, the newsletter, update and rating
// frameworks, remote configuration, the install-location check) are roles that may be
// null or are left out; the flags and counters around them still follow their rules.

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "application.h"
#include "directories_manager.h"
#include "main_timers.h"
#include "platform/notification_center.h"
#include "scan_window_view.h"
#include "service_provider.h"

namespace corvel {

class AppShellView;
class AppsVersionChecking;
class CVIgnoreList;
class CVPreferences;
class CVScanWindowController;
class ReminderScheduling;
class StringTables;
class Tracker;
class TutorialPresenting;
class UserDefaults;

inline constexpr const char* kWelcomeTutorialWasShownKey = "WelcomeTutorialWasShown";
inline constexpr const char* kSubscriptionStepWasShownKey = "SubscriptionStepWasShown";
inline constexpr const char* kCVTrackAppKey = "CVTrackApp";
inline constexpr const char* kNeedToSubscribeUserKey = "NeedToSubscribeUser";
inline constexpr const char* kUserSubscriptionEmailKey = "UserSubscriptionEmail";
inline constexpr const char* kForceSubscriptionShownKey = "ForceSubscriptionShown";
inline constexpr const char* kDontShowEasterEggsKey = "DontShowEasterEggs";
inline constexpr const char* kShowDebugMenuKey = "ShowDebugMenu";
inline constexpr const char* kSuppressAppShouldBeMovedKey = "SuppressAppShouldBeMoved";
inline constexpr const char* kShowScanWindowNotification = "ShowScanWindow";
inline constexpr const char* kExportPanelDidCloseNotification = "CVExportPanelDidClose";
// After this moment the first-run tutorial is retired for every launch.
inline constexpr const char* kTutorialCutOffDate = "2016-05-10 08:00:00 +0000";
inline constexpr const char* kSupportSite = "https://www.halvik.com";

// The menu items' tags that validation knows.
enum MenuTag : std::int64_t {
    MenuTagNewScan = 21,
    MenuTagOpenPanel = 22,
    MenuTagRescan = 24,
    MenuTagSearch = 31,
    MenuTagShowResults = 51,
    MenuTagBackToScan = 52,
    MenuTagEnterFullScreen = 53,
    MenuTagAutoCollect = 61,
    MenuTagShowCollector = 62,
    MenuTagPutAllBack = 63,
    MenuTagCollectFilesAtPath = 64,
    MenuTagKeepOldest = 65,
    MenuTagKeepMostRecent = 66,
    MenuTagFirstFavourite = 231,
    MenuTagLastFavourite = 237,
    MenuTagExportDuplicates = 251,
};

struct MenuItemValidation {
    bool enabled;
    // A new title for the item, when validation changes it.
    std::optional<std::string> title;
};

enum class TerminateReply { TerminateNow, TerminateCancel };

// What the start-up log line names.
struct LaunchInfo {
    std::string site = "Linux";
    std::string version;
    std::string buildRevision;
    std::vector<std::string> arguments;
};

// The references must outlive the controller; the pointers may be null.
struct AppDelegateServices {
    AppShellView& shell;
    std::function<std::unique_ptr<CVScanWindowController>()> makeScanWindowController;
    UserDefaults& defaults;
    CVPreferences& preferences;
    CVIgnoreList& ignoreList;
    Tracker& tracker;
    MainTimers& timers;
    NotificationCenter& center;
    StringTables& tables;
    CVDirectoriesManager directories;
    std::function<std::chrono::system_clock::time_point()> now;
    // Whether an application with this identifier is installed.
    std::function<bool(const std::string&)> applicationKnown;
    // Whether the program that serves the file-manager entry can be found.
    std::function<bool()> applicationFound;
    LaunchInfo launch;
    ReminderScheduling* reminder = nullptr;
    TutorialPresenting* tutorial = nullptr;
    AppsVersionChecking* versionChecker = nullptr;
};

class CorvelAppDelegate {
public:
    explicit CorvelAppDelegate(AppDelegateServices services);
    ~CorvelAppDelegate();
    CorvelAppDelegate(const CorvelAppDelegate&) = delete;
    CorvelAppDelegate& operator=(const CorvelAppDelegate&) = delete;

    // Application life.
    void applicationWillFinishLaunching();
    void applicationDidFinishLaunching();
    // Folders handed over by a second launch (or dropped on the program's icon).
    void applicationOpenFiles(const std::vector<std::string>& paths);
    TerminateReply applicationShouldTerminate();
    // The quit sheet's end: the default button continues the scan.
    void sheetDidEnd(AlertChoice choice);
    bool applicationShouldTerminateAfterLastWindowClosed() const { return true; }
    void applicationWillTerminate();

    // Keeps the directories among the paths ($HOME as the account's home) and adds them to
    // the targets when the scan window is idle with no open panel; otherwise drops them.
    void checkAndAddFoldersForScan(const std::vector<std::string>& paths);
    void addPathForImmediateScan(const std::string& path);

    // Menu commands.
    void newScan();
    void rescan();
    void openFile();
    void showResultsAction();
    void backToScanAction();
    void showCollector();
    void autoCollect();
    void putAllFilesBack();
    void searchAction();
    void collectDuplicatesOfFolder();
    void keepAllOldestFiles();
    void keepAllMostRecentFiles();
    void exportSelectedDupes();
    void scanHomeFolder();
    void scanDesktop();
    void scanDocuments();
    void scanDownloads();
    void scanMusic();
    void scanMovies();
    void scanPictures();
    void showAboutPanel();
    void showPreferences();
    void showWelcomeTutorial();
    void supportAction();
    void FAQAction();
    void requestFeatureAction();
    void feedbackAction();
    void rateOnAppStore();
    void showAnalyticsWindow();

    // 0 contact support, 1 FAQ, 2 suggest a feature; opens the page with the site arguments.
    void goSupportWithAction(std::int64_t action);
    // The address goSupportWithAction opens ("%@&%@" of page and site arguments).
    std::string supportAddress(std::int64_t action);

    MenuItemValidation validateMenuItem(std::int64_t tag);

    void updateMainWindowState(std::int32_t state);
    std::int32_t terminationStatus() const { return m_terminationStatus; }
    void setTerminationStatus(std::int32_t status) { m_terminationStatus = status; }
    bool exportPanelIsOpened() const { return m_exportPanelIsOpened; }

    // Notification handlers.
    void exportPanelDidClose();
    void tutorialWindowDidClose();
    void showSubscriptionWindowIfNeeded();

    CVScanWindowController* scanWindowController() const { return m_scanWindowController.get(); }
    CVServiceProvider& serviceProvider() { return m_serviceProvider; }
    CVApplication& application() { return m_application; }
    // The account's home that a handed-over $HOME stands for (read once).
    const std::string& realHome();

private:
    CVScanWindowController& ensureScanWindowController();
    void showScanWindow();
    void flipWindowAndSetup();
    void updateConfigurationFile();
    bool tutorialCutOffPassed() const;
    std::int32_t windowState() const;
    void track(const char* category, const char* action, const std::string& label, std::int64_t value = 1);
    std::string text(const char* key) const;
    std::string button(const char* key) const;

    AppDelegateServices m_services;
    // Deferred work checks it: the controller may be gone when a timer fires.
    std::shared_ptr<bool> m_alive = std::make_shared<bool>(true);
    CVApplication m_application;
    CVServiceProvider m_serviceProvider;
    std::unique_ptr<CVScanWindowController> m_scanWindowController;
    bool m_exportPanelIsOpened = false;
    std::int32_t m_terminationStatus = 0;
    bool m_quitSheetShown = false;
    std::optional<std::string> m_realHome;
    std::vector<ScopedObserver> m_observers;
};

} // namespace corvel
