#include "gui_application.h"

#include <QApplication>
#include <QMenuBar>
#include <QMessageBox>
#include <random>

#include "about_panel.h"
#include "app/app_delegate.h"
#include "app/collector_view_controller.h"
#include "app/locator_adapter.h"
#include "app/results_roles_factory.h"
#include "app/results_view_controller.h"
#include "app/scan_window_collector_host.h"
#include "app/scan_window_controller.h"
#include "app_shell.h"
#include "background_release.h"
#include "desktop_applications.h"
#include "file_manager_reveal.h"
#include "gui_text.h"
#include "main_window.h"
#include "media/media_manager.h"
#include "menu_bar.h"
#include "platform/main_queue.h"
#include "platform/notification_center.h"
#include "platform/resources.h"
#include "platform/string_tables.h"
#include "platform/system_log.h"
#include "platform/tracker.h"
#include "platform/trash.h"
#include "platform/user_defaults.h"
#include "preferences_window.h"
#include "preview_pane.h"
#include "qt_main_queue.h"
#include "removal/achievements_controller.h"
#include "removal/library_app_driver.h"
#include "removal/statistics_controller.h"
#include "results_faces.h"
#include "results_page.h"
#include "return_clicks_buttons.h"
#include "scan_notifier.h"
#include "settings/ignore_list.h"
#include "settings/preferences.h"
#include "settings/scheduler.h"
#include "single_instance.h"

namespace corvel::gui {
GuiApplication::GuiApplication(GuiOptions options) : m_options(std::move(options)) {
    if (m_options.socketPath.isEmpty())
        m_options.socketPath = SingleInstance::defaultSocketPath();
    m_instance = std::make_unique<SingleInstance>(m_options.socketPath);
    m_release = std::make_shared<BackgroundRelease>();
}

GuiApplication::~GuiApplication() {
    // The controllers go first: they stop a running scan and wait for its thread, whose
    // last notifications still reach the queue.
    m_menus.reset();
    m_delegate.reset();
    m_collectorHost.reset();
    m_shell.reset();
    m_window.reset();
    MainQueue::shared().drain();
    m_queue.reset();
}

bool GuiApplication::handOverToRunningInstance() {
    return m_instance->handOver(m_options.folders);
}

void GuiApplication::start() {
    MainQueue& mainQueue = MainQueue::shared();
    m_queue = std::make_unique<QtMainQueue>(mainQueue);
    m_timers = std::make_unique<MainQueueTimers>(mainQueue);
    UserDefaults& defaults = UserDefaults::standardUserDefaults();

    m_returnClicks = std::make_unique<ReturnClicksButtons>();
    QCoreApplication::instance()->installEventFilter(m_returnClicks.get());
    m_window = std::make_unique<MainWindow>(defaults);
    m_window->setWindowIcon(applicationIcon());
    m_notifier = std::make_unique<ScanNotifier>(*m_window);
    m_shell = std::make_unique<AppShell>(m_window.get());

    // A message the user must see (a settings file set aside, a pattern that does not
    // compile) is shown once the event loop runs.
    QPointer<MainWindow> window(m_window.get());
    const auto present = [window](const std::string& line) {
        MainQueue::shared().post([window, line] {
            if (window)
                QMessageBox::warning(window, windowText("Window_Title"), qs(line));
        });
    };
    setUserWarningPresenter(present);
    // The settings were opened before there was a window to tell what was wrong with them.
    if (const std::string& problem = defaults.openingProblem(); !problem.empty())
        present(problem);

    CVPreferences& preferences = CVPreferences::sharedInstance();
    ReminderScheduling* reminder = CVScheduler::sharedInstance();
    auto random = std::make_shared<std::mt19937_64>(std::random_device{}());

    m_reveal = std::make_unique<FileManagerReveal>();
    m_applications = std::make_unique<DesktopApplications>(m_window.get());
    m_preview = std::make_unique<PreviewWindow>(m_window.get());
    m_trash = std::make_unique<Trash>();
    m_libraryDriver = std::make_unique<LinuxLibraryAppDriver>();
    m_achievements = std::make_unique<HVAchievementsController>(defaults);
    m_faces = std::make_unique<ResultsPageFaces>();
    ResultsServices resultsServices{defaults,
                                    preferences,
                                    CVIgnoreList::sharedIgnoreList(),
                                    NotificationCenter::defaultCenter(),
                                    mainQueue,
                                    *m_timers,
                                    sharedTracker(),
                                    *m_reveal,
                                    *m_applications,
                                    *m_trash,
                                    *m_libraryDriver,
                                    CVStatisticsController::sharedInstance(),
                                    *m_achievements,
                                    m_preview.get(),
                                    reminder};
    m_resultsFactory = std::make_unique<CVResultsRolesFactory>(resultsServices, *m_faces);

    ScanWindowServices scanServices{*m_window,
                                    *m_window->scanPage()->dropZone(),
                                    m_makeLocator ? m_makeLocator
                                                  : ReleasingLocator::factory(mainQueue, m_release),
                                    *m_resultsFactory,
                                    CVStatisticsController::sharedInstance(),
                                    defaults,
                                    sharedTracker(),
                                    mainQueue,
                                    *m_timers,
                                    NotificationCenter::defaultCenter(),
                                    StringTables::shared(),
                                    [random] { return (*random)(); },
                                    resourcePath("ScanTextScenarios.plist"),
                                    [] { CViMediaManager::sharedInstance().rescan(); },
                                    reminder,
                                    m_notifier.get()};
    MainWindow* mainWindow = m_window.get();
    AppDelegateServices services{*m_shell,
                                 [this, scanServices, mainWindow] {
                                     auto controller = std::make_unique<CVScanWindowController>(scanServices);
                                     mainWindow->setController(controller.get());
                                     m_collectorHost = std::make_unique<ScanWindowCollectorHost>(*controller);
                                     m_resultsFactory->setHost(m_collectorHost.get());
                                     return controller;
                                 },
                                 defaults,
                                 preferences,
                                 CVIgnoreList::sharedIgnoreList(),
                                 sharedTracker(),
                                 *m_timers,
                                 NotificationCenter::defaultCenter(),
                                 StringTables::shared(),
                                 CVDirectoriesManager(),
                                 [] { return std::chrono::system_clock::now(); },
                                 [](const std::string&) { return false; },
                                 [] { return true; },
                                 LaunchInfo{"Linux", PROJECT_VERSION_STRING, "", m_options.arguments},
                                 reminder,
                                 nullptr,
                                 nullptr};
    m_delegate = std::make_unique<CorvelAppDelegate>(std::move(services));
    m_shell->setDelegate(m_delegate.get());
    m_shell->setPanelMakers([this] { return new AboutPanel(PROJECT_VERSION_STRING, m_window.get()); },
                            [this] {
                                auto* prefs = new PreferencesWindow(
                                    UserDefaults::standardUserDefaults(), CVPreferences::sharedInstance(),
                                    CVIgnoreList::sharedIgnoreList(), CVScheduler::sharedInstance(),
                                    m_window.get());
                                return prefs;
                            });
    m_menus =
        std::make_unique<MenuBar>(m_window->menuBar(), *m_delegate, [this] { m_shell->quitRequested(); });
    m_shell->setMenuBar(m_window->menuBar());
    m_window->setResultsWidgetProvider([this](ResultsViewRole& role) -> QWidget* {
        auto* results = dynamic_cast<CVResultsViewController*>(&role);
        auto* face = results ? dynamic_cast<ResultsFace*>(&results->view()) : nullptr;
        CVScanWindowController* scanWindow = m_delegate->scanWindowController();
        if (!face || !face->page() || !scanWindow)
            return nullptr;
        ResultsPage* page = face->page();
        page->bind(results, scanWindow,
                   dynamic_cast<CVCollectorViewController*>(scanWindow->collectorViewController()));
        QPointer<ResultsPage> watched(page);
        m_window->setSearchHandlers(
            [watched] {
                if (watched)
                    watched->clearSearch();
            },
            [watched] {
                if (watched)
                    watched->focusSearch();
            });
        return page;
    });
    m_window->setQuickLookCloser([this] { m_preview->closePreview(); });
    m_window->setCloseHandler([this] { return m_shell->quitRequested(); });

    m_instance->listen([this](const std::vector<std::string>& paths) {
        if (paths.empty()) {
            m_window->makeKeyAndOrderFront();
            return;
        }
        m_delegate->applicationOpenFiles(paths);
    });

    m_delegate->applicationWillFinishLaunching();
    m_delegate->applicationDidFinishLaunching();
    if (!m_options.folders.empty())
        m_delegate->applicationOpenFiles(m_options.folders);
}

ResultsPage* GuiApplication::resultsPage() const {
    CVScanWindowController* window = m_delegate ? m_delegate->scanWindowController() : nullptr;
    auto* results =
        window ? dynamic_cast<CVResultsViewController*>(window->resultsViewController()) : nullptr;
    auto* face = results ? dynamic_cast<ResultsFace*>(&results->view()) : nullptr;
    return face ? face->page() : nullptr;
}

} // namespace corvel::gui
