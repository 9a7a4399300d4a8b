#include "app_delegate.h"

#include <cctype>
#include <cstdio>
#include <sys/stat.h>

#include "app_shell_view.h"
#include "apps_version_checking.h"
#include "easter.h"
#include "platform/app_info.h"
#include "platform/string_tables.h"
#include "platform/system_log.h"
#include "platform/text_format.h"
#include "platform/tracker.h"
#include "platform/user_defaults.h"
#include "platform/user_paths.h"
#include "scan/duplicates_locator.h"
#include "scan_window_controller.h"
#include "settings/ignore_list.h"
#include "settings/preferences.h"
#include "settings/reminder_scheduling.h"
#include "system_version.h"
#include "tutorial_presenting.h"

namespace corvel {

namespace {

constexpr auto kArrowAfterFlipDelay = std::chrono::milliseconds(100);

// "YYYY-MM-DD HH:MM:SS +HHMM" as a moment; the epoch when it cannot be read.
std::chrono::system_clock::time_point parseDate(const char* text) {
    using namespace std::chrono;
    int y = 0, mo = 0, d = 0, h = 0, mi = 0, s = 0, zone = 0;
    char sign = '+';
    if (std::sscanf(text, "%d-%d-%d %d:%d:%d %c%4d", &y, &mo, &d, &h, &mi, &s, &sign, &zone) != 8)
        return system_clock::time_point{};
    const sys_days day =
        year_month_day{year{y}, month{static_cast<unsigned>(mo)}, std::chrono::day{static_cast<unsigned>(d)}};
    const auto offset = minutes{(zone / 100) * 60 + zone % 100} * (sign == '-' ? -1 : 1);
    return system_clock::time_point{day} + hours{h} + minutes{mi} + seconds{s} - offset;
}

std::string withoutTrailingSlashes(std::string path) {
    while (path.size() > 1 && path.back() == '/')
        path.pop_back();
    return path;
}

bool isDirectory(const std::string& path) {
    struct stat st {};
    return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// An absolute address: a scheme, "://", and no blank or control character.
bool isWellFormedURL(const std::string& url) {
    const auto colon = url.find("://");
    if (colon == std::string::npos || colon == 0 || colon + 3 >= url.size() ||
        !std::isalpha(static_cast<unsigned char>(url[0])))
        return false;
    for (std::size_t i = 0; i < colon; ++i) {
        const auto c = static_cast<unsigned char>(url[i]);
        if (!std::isalnum(c) && c != '+' && c != '-' && c != '.')
            return false;
    }
    for (const char c : url)
        if (static_cast<unsigned char>(c) <= ' ' || c == 0x7f)
            return false;
    return true;
}

PropertyValue arrayOf(const std::vector<std::string>& paths) {
    return PropertyValue(PropertyValue::Array(paths.begin(), paths.end()));
}

} // namespace

CorvelAppDelegate::CorvelAppDelegate(AppDelegateServices services)
    : m_services(std::move(services)), m_application(m_services.tracker),
      m_serviceProvider(
          [this, alive = std::weak_ptr<bool>(m_alive)](const std::vector<std::string>& paths) {
              if (alive.lock())
                  checkAndAddFoldersForScan(paths);
          },
          m_services.timers, m_services.applicationFound) {
    if (!m_services.now)
        m_services.now = [] { return std::chrono::system_clock::now(); };
    if (!m_services.applicationKnown)
        m_services.applicationKnown = [](const std::string&) { return false; };
    if (m_services.launch.version.empty())
        m_services.launch.version = applicationVersion();
}

CorvelAppDelegate::~CorvelAppDelegate() {
    m_observers.clear();
    m_alive.reset();
}

std::string CorvelAppDelegate::text(const char* key) const {
    return m_services.tables.localizedString(key);
}

std::string CorvelAppDelegate::button(const char* key) const {
    return m_services.tables.localizedString(key, "Buttons");
}

void CorvelAppDelegate::track(const char* category, const char* action, const std::string& label,
                              std::int64_t value) {
    m_services.tracker.trackEvent(category, action, label, value);
}

CVScanWindowController& CorvelAppDelegate::ensureScanWindowController() {
    if (!m_scanWindowController)
        m_scanWindowController = m_services.makeScanWindowController();
    return *m_scanWindowController;
}

std::int32_t CorvelAppDelegate::windowState() const {
    return m_scanWindowController ? m_scanWindowController->windowState() : 0;
}

const std::string& CorvelAppDelegate::realHome() {
    if (!m_realHome)
        m_realHome = realHomeDirectory();
    return *m_realHome;
}

// ---- Start ----------------------------------------------------------------------------

void CorvelAppDelegate::applicationWillFinishLaunching() {
    auto& center = m_services.center;
    m_observers.emplace_back(center,
                             center.addObserver(kExportPanelDidCloseNotification, nullptr,
                                                [this](const Notification&) { exportPanelDidClose(); }));
}

bool CorvelAppDelegate::tutorialCutOffPassed() const {
    return m_services.now() > parseDate(kTutorialCutOffDate);
}

void CorvelAppDelegate::applicationDidFinishLaunching() {
    auto& defaults = m_services.defaults;
    const auto& launch = m_services.launch;
    systemLogf("Corvel %@ v. %@ (%@) started with arguments %@.", launch.site, launch.version,
               launch.buildRevision, arrayOf(launch.arguments));

    auto& center = m_services.center;
    m_observers.emplace_back(center,
                             center.addObserver(kShowScanWindowNotification, nullptr,
                                                [this](const Notification&) { tutorialWindowDidClose(); }));
    m_observers.emplace_back(
        center, center.addObserver(kScanStartedNotification, nullptr,
                                   [this](const Notification&) { showSubscriptionWindowIfNeeded(); }));

    defaults.registerDefaults({{kWelcomeTutorialWasShownKey, false}, {kSubscriptionStepWasShownKey, false}});
    defaults.registerDefaults({{kCVTrackAppKey, true}});

    if (tutorialCutOffPassed()) {
        defaults.setBool(true, kWelcomeTutorialWasShownKey);
        defaults.setBool(true, kSubscriptionStepWasShownKey);
    }

    const bool firstRun = !defaults.boolForKey(kWelcomeTutorialWasShownKey) ||
                          !defaults.boolForKey(kSubscriptionStepWasShownKey);
    if (firstRun && m_services.tutorial) {
        m_services.tutorial->showIntroTutorial();
        m_services.tracker.trackView("Intro Tutorial");
        track("Tutorial", "Tutorial Started", "");
        defaults.setBool(true, kWelcomeTutorialWasShownKey);
        defaults.setBool(true, kSubscriptionStepWasShownKey);
    } else {
        // Without a tutorial the first run opens on the scan window too. A pending
        // newsletter subscription is not sent: nothing leaves the machine.
        auto& scanWindow = ensureScanWindowController();
        scanWindow.showWindow();
        m_services.timers.scheduleTimer(std::chrono::milliseconds(0),
                                        [this, alive = std::weak_ptr<bool>(m_alive)] {
                                            if (alive.lock() && m_scanWindowController)
                                                m_scanWindowController->scanControl().setupArrowAnimation();
                                        });
    }

    const std::int64_t launchCount = defaults.integerForKey(kLaunchCountKey);
    if (m_services.preferences.finderServiceEnabled()) {
        m_services.preferences.setFinderServiceEnabled(true);
        if (launchCount == 0)
            m_services.shell.updateDynamicServices();
    }
    if (launchCount != 0)
        updateConfigurationFile();
    defaults.setInteger(launchCount + 1, kLaunchCountKey);
    CVError saveError;
    if (!defaults.synchronize(&saveError))
        systemLogf("Could not save the preferences = %@", saveError.localizedDescription());

    track("Statistics", "OS", systemVersion());
    if (launchCount == 0) {
        track("Statistics", "First Launch", "First Launch");
        const bool detected = m_services.applicationKnown("com.halvik.Tidewell2") ||
                              m_services.applicationKnown("com.halvik.Tidewell3");
        track("Statistics", "First Launch",
              std::string("Tidewell ") + (detected ? "Detected" : "Not Detected"));
    }
    track("Statistics", "App Launch Total", "", launchCount + 1);

    if (isEasterPeriodNow(m_services.now()) && !defaults.boolForKey(kDontShowEasterEggsKey))
        m_services.shell.setApplicationIcon("EasterIcon");
    if (defaults.boolForKey(kShowDebugMenuKey))
        m_services.shell.addDebugMenu();
    if (m_services.reminder)
        m_services.reminder->rescheduleExistingReminder();
}

void CorvelAppDelegate::updateConfigurationFile() {
    auto* checker = m_services.versionChecker;
    if (!checker)
        return;
    if (m_services.preferences.autoUpdateConfigurationFiles())
        checker->updateConfigurationFile();
    else
        checker->checkSupportedVersions();
}

void CorvelAppDelegate::tutorialWindowDidClose() {
    auto* tutorial = m_services.tutorial;
    if (tutorial && tutorial->isTutorialOpen() && tutorial->isSeparateMode()) {
        tutorial->closeTutorial();
        return;
    }
    showScanWindow();
}

void CorvelAppDelegate::showScanWindow() {
    ensureScanWindowController();
    m_services.timers.scheduleTimer(std::chrono::milliseconds(0),
                                    [this, alive = std::weak_ptr<bool>(m_alive)] {
                                        if (alive.lock())
                                            flipWindowAndSetup();
                                    });
}

void CorvelAppDelegate::flipWindowAndSetup() {
    if (m_services.tutorial)
        m_services.tutorial->flipToScanWindow();
    ensureScanWindowController().showWindow();
    m_services.timers.scheduleTimer(kArrowAfterFlipDelay, [this, alive = std::weak_ptr<bool>(m_alive)] {
        if (alive.lock() && m_scanWindowController)
            m_scanWindowController->scanControl().setupArrowAnimation();
    });
    updateConfigurationFile();
}

void CorvelAppDelegate::showSubscriptionWindowIfNeeded() {
    auto* tutorial = m_services.tutorial;
    auto& defaults = m_services.defaults;
    if (!tutorial || defaults.hasStoredValueForKey(kNeedToSubscribeUserKey) ||
        defaults.integerForKey(kLaunchCountKey) < 2 || defaults.boolForKey(kForceSubscriptionShownKey) ||
        tutorial->isTutorialOpen())
        return;
    tutorial->showSubscriptionWindow();
    defaults.setBool(true, kForceSubscriptionShownKey);
}

// ---- Folders handed over --------------------------------------------------------------

void CorvelAppDelegate::applicationOpenFiles(const std::vector<std::string>& paths) {
    auto& scanWindow = ensureScanWindowController();
    if (!scanWindow.acceptIconDrop())
        return;
    track("Dropzone", "Add Items", "Drag and Drop \u2013 Icon");
    if (paths.empty())
        return;
    m_services.timers.scheduleTimer(kFolderHandOverDelay,
                                    [this, paths, alive = std::weak_ptr<bool>(m_alive)] {
                                        if (alive.lock())
                                            checkAndAddFoldersForScan(paths);
                                    });
}

void CorvelAppDelegate::checkAndAddFoldersForScan(const std::vector<std::string>& paths) {
    const std::string home = homeDirectory();
    std::vector<std::string> folders;
    for (const auto& path : paths) {
        if (!isDirectory(path))
            continue;
        folders.push_back(withoutTrailingSlashes(path) == home ? realHome() : path);
    }
    if (folders.empty()) {
        systemLogf("Nothing to scan in %@", arrayOf(paths));
        return;
    }
    auto& scanWindow = ensureScanWindowController();
    if (scanWindow.windowState() != WindowStateIdle || scanWindow.openPanelIsShown())
        return;
    scanWindow.scanControl().addFoldersForScan(folders, false);
}

void CorvelAppDelegate::addPathForImmediateScan(const std::string& path) {
    auto& scanWindow = ensureScanWindowController();
    scanWindow.orderOutWindowIfMiniaturized();
    scanWindow.scanControl().addFoldersForScan({path}, true);
}

// ---- Quit -----------------------------------------------------------------------------

TerminateReply CorvelAppDelegate::applicationShouldTerminate() {
    const std::int32_t state = windowState();
    if ((state == WindowStateStarting || state == WindowStateScanning) && m_terminationStatus == 0) {
        if (!m_quitSheetShown) {
            m_quitSheetShown = true;
            m_services.shell.showQuitSheet(text("AlertMessageText_QuitingCorvelQuestion"),
                                           text("AlertAdditionalText_QuitingCorvelQuestion"),
                                           button("ButtonTitle_ContinueScan"),
                                           button("ButtonTitle_QuitCorvel"),
                                           [this, alive = std::weak_ptr<bool>(m_alive)](AlertChoice choice) {
                                               if (alive.lock())
                                                   sheetDidEnd(choice);
                                           });
        }
        return TerminateReply::TerminateCancel;
    }
    if (m_terminationStatus == 1) {
        m_terminationStatus = 0;
        return TerminateReply::TerminateCancel;
    }
    track("Statistics", "Quit", "Quit");
    return TerminateReply::TerminateNow;
}

void CorvelAppDelegate::sheetDidEnd(AlertChoice choice) {
    m_quitSheetShown = false;
    m_terminationStatus = choice == AlertChoice::Default ? 1 : 2;
    m_services.shell.terminate();
}

void CorvelAppDelegate::applicationWillTerminate() {
    m_services.ignoreList.synchronize();
    // Linux programs are installed by the package manager: there is no install location to check.
    systemLog("Corvel terminated.");
}

// ---- Menu commands --------------------------------------------------------------------

void CorvelAppDelegate::newScan() {
    if (m_scanWindowController)
        m_scanWindowController->newScan();
}

void CorvelAppDelegate::rescan() {
    if (m_scanWindowController)
        m_scanWindowController->rescan();
}

void CorvelAppDelegate::openFile() {
    ensureScanWindowController().addScanPath(false);
}

void CorvelAppDelegate::showResultsAction() {
    if (m_scanWindowController)
        m_scanWindowController->showResults(false);
}

void CorvelAppDelegate::backToScanAction() {
    if (m_scanWindowController)
        m_scanWindowController->backToScan(false);
}

void CorvelAppDelegate::showCollector() {
    if (m_scanWindowController)
        m_scanWindowController->showCollector();
}

void CorvelAppDelegate::autoCollect() {
    if (m_scanWindowController)
        m_scanWindowController->autoSelectAll();
}

void CorvelAppDelegate::putAllFilesBack() {
    if (!m_scanWindowController)
        return;
    if (windowState() == WindowStateResults)
        m_scanWindowController->putAllFilesBack();
    else
        m_scanWindowController->putAllFilesBackFromList();
}

void CorvelAppDelegate::searchAction() {
    if (m_scanWindowController)
        m_scanWindowController->makeSearchFieldKey();
}

void CorvelAppDelegate::collectDuplicatesOfFolder() {
    if (!m_scanWindowController)
        return;
    m_scanWindowController->orderOutWindowIfMiniaturized();
    if (auto* results = m_scanWindowController->resultsViewController())
        results->openPathToCollectFiles();
}

void CorvelAppDelegate::keepAllOldestFiles() {
    if (auto* results = m_scanWindowController ? m_scanWindowController->resultsViewController() : nullptr)
        results->keepOldestFilesAction();
}

void CorvelAppDelegate::keepAllMostRecentFiles() {
    if (auto* results = m_scanWindowController ? m_scanWindowController->resultsViewController() : nullptr)
        results->keepMostRecentFilesAction();
}

void CorvelAppDelegate::exportSelectedDupes() {
    // Only a results view can open the panel (and announce its closing): without one the
    // menus must not stay disabled.
    auto* results = m_scanWindowController ? m_scanWindowController->resultsViewController() : nullptr;
    if (!results)
        return;
    m_exportPanelIsOpened = true;
    results->exportSelectedDupes();
}

void CorvelAppDelegate::exportPanelDidClose() {
    m_exportPanelIsOpened = false;
}

void CorvelAppDelegate::scanHomeFolder() {
    addPathForImmediateScan(m_services.directories.homeFolderPath());
}

void CorvelAppDelegate::scanDesktop() {
    addPathForImmediateScan(m_services.directories.desktopFolderPath());
}

void CorvelAppDelegate::scanDocuments() {
    addPathForImmediateScan(m_services.directories.documentsFolderPath());
}

void CorvelAppDelegate::scanDownloads() {
    addPathForImmediateScan(m_services.directories.downloadsFolderPath());
}

void CorvelAppDelegate::scanMusic() {
    addPathForImmediateScan(m_services.directories.musicFolderPath());
}

void CorvelAppDelegate::scanMovies() {
    addPathForImmediateScan(m_services.directories.moviesFolderPath());
}

void CorvelAppDelegate::scanPictures() {
    addPathForImmediateScan(m_services.directories.picturesFolderPath());
}

void CorvelAppDelegate::showAboutPanel() {
    m_services.shell.showAboutPanel();
}

void CorvelAppDelegate::showPreferences() {
    m_services.shell.showPreferences();
}

void CorvelAppDelegate::showWelcomeTutorial() {
    auto* tutorial = m_services.tutorial;
    if (!tutorial)
        return;
    if (tutorial->isTutorialOpen())
        tutorial->bringTutorialToFront();
    else
        tutorial->showTutorialSeparately();
}

void CorvelAppDelegate::supportAction() {
    goSupportWithAction(0);
}

void CorvelAppDelegate::FAQAction() {
    goSupportWithAction(1);
}

void CorvelAppDelegate::requestFeatureAction() {
    goSupportWithAction(2);
}

void CorvelAppDelegate::feedbackAction() {
    m_services.shell.openFeedbackWindow();
}

void CorvelAppDelegate::rateOnAppStore() {
    m_services.shell.openRatingsPage();
}

void CorvelAppDelegate::showAnalyticsWindow() {
    m_services.shell.showAnalyticsWindow();
}

std::string CorvelAppDelegate::supportAddress(std::int64_t action) {
    static const char* const pages[] = {"/app_help_request/contact_support", "/app_help_request/faq",
                                        "/app_help_request/suggest_feature"};
    const std::string page =
        action >= 0 && action <= 2 ? std::string(kSupportSite) + pages[action] : std::string();
    return formatf("%@&%@", page, m_services.preferences.defaultSiteArguments());
}

void CorvelAppDelegate::goSupportWithAction(std::int64_t action) {
    const std::string address = supportAddress(action);
    if (!isWellFormedURL(address)) {
        systemLogf("Failed to create URL object from string %@", address);
        return;
    }
    if (!m_services.shell.openURL(address))
        systemLogf("Didn't succeed in opening this url: %@ ", address);
}

void CorvelAppDelegate::updateMainWindowState(std::int32_t state) {
    ensureScanWindowController().setWindowState(state);
}

// ---- Menu validation ------------------------------------------------------------------

MenuItemValidation CorvelAppDelegate::validateMenuItem(std::int64_t tag) {
    if (m_exportPanelIsOpened || m_services.shell.isRatingPromptShown())
        return {false, std::nullopt};
    const std::int32_t state = windowState();
    const CVScanWindowController* scanWindow = m_scanWindowController.get();
    switch (tag) {
    case MenuTagNewScan:
        return {state == WindowStateCleaned || (state >= 1 && state <= 7), std::nullopt};
    case MenuTagOpenPanel:
        return {scanWindow && scanWindow->windowIsVisible() && state == WindowStateIdle, std::nullopt};
    case MenuTagRescan:
        return {state >= 3 && state <= 7, std::nullopt};
    case MenuTagSearch:
    case MenuTagBackToScan:
    case MenuTagCollectFilesAtPath:
        return {state == WindowStateResults, std::nullopt};
    case MenuTagShowResults:
        return {state == WindowStateScanning || state == WindowStateFound, std::nullopt};
    case MenuTagEnterFullScreen:
        return {state > 6, std::nullopt};
    case MenuTagAutoCollect:
    case MenuTagKeepOldest:
    case MenuTagKeepMostRecent:
        return {scanWindow && scanWindow->validateAutoCollectItem(), std::nullopt};
    case MenuTagShowCollector: {
        const bool collectorShown = state == WindowStateCollector || state == WindowStateCleaned;
        return {scanWindow && scanWindow->validateShowCollectorItem(),
                text(collectorShown ? "MenuItemTitle_HideSelectedDuplicates"
                                    : "MenuItemTitle_ShowSelectedDuplicates")};
    }
    case MenuTagPutAllBack:
        return {scanWindow && scanWindow->validatePutAllBackItem(), std::nullopt};
    case MenuTagExportDuplicates:
        return {scanWindow && scanWindow->collectorNotEmpty(), std::nullopt};
    default:
        if (tag >= MenuTagFirstFavourite && tag <= MenuTagLastFavourite)
            return {state == WindowStateIdle && !(scanWindow && scanWindow->openPanelIsShown()),
                    std::nullopt};
        return {true, std::nullopt};
    }
}

} // namespace corvel
