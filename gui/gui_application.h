#pragma once
// GuiApplication: the desktop application put together. It runs the main queue inside
// Qt's event loop, makes the main window, the shell, the menus, the application and scan
// window controllers over the process's shared settings, preferences, ignore list and
// statistics, and takes folders handed over by later launches. One per process, made
// after the QApplication; the settings file is the standard store's (CORVEL_SETTINGS or
// $XDG_CONFIG_HOME/corvel/com.halvik.Corvel.plist). GUI thread.

#include <QObject>
#include <QString>
#include <memory>
#include <string>
#include <vector>

#include "app/duplicates_locating.h"
#include "app/main_timers.h"

namespace corvel {
class CorvelAppDelegate;
class CVResultsRolesFactory;
class HVAchievementsController;
class LinuxLibraryAppDriver;
class QtMainQueue;
class ScanWindowCollectorHost;
class Trash;
} // namespace corvel

namespace corvel::gui {

class AppShell;
class BackgroundRelease;
class DesktopApplications;
class ReturnClicksButtons;
class FileManagerReveal;
class MainWindow;
class PreviewWindow;
class ResultsPage;
class ResultsPageFaces;
class MenuBar;
class ScanNotifier;
class SingleInstance;

struct GuiOptions {
    // Where instances meet; empty: SingleInstance::defaultSocketPath().
    QString socketPath;
    // Folders given on the command line, handed to the window as a later launch's would be.
    std::vector<std::string> folders;
    std::vector<std::string> arguments;
};

class GuiApplication {
public:
    explicit GuiApplication(GuiOptions options);
    ~GuiApplication();
    GuiApplication(const GuiApplication&) = delete;
    GuiApplication& operator=(const GuiApplication&) = delete;

    // Makes the engine of each scan in place of the real duplicates locator (the
    // benchmarks hand over results built in memory). Before start(); empty restores the
    // real one.
    void setLocatorFactory(LocatorFactory factory) { m_makeLocator = std::move(factory); }
    // Hands the folders to a running instance; true when one took them and this process
    // should exit without a window.
    bool handOverToRunningInstance();
    // Listens for later launches, runs the start-up sequence and shows the window; the
    // command line's folders follow as a hand-over does.
    void start();

    CorvelAppDelegate& delegate() { return *m_delegate; }
    MainWindow& window() { return *m_window; }
    AppShell& shell() { return *m_shell; }
    MenuBar& menus() { return *m_menus; }
    SingleInstance& instance() { return *m_instance; }
    // The results page shown, or null before the results were shown.
    ResultsPage* resultsPage() const;
    CVResultsRolesFactory& resultsFactory() { return *m_resultsFactory; }
    FileManagerReveal& reveal() { return *m_reveal; }
    BackgroundRelease& release() { return *m_release; }

private:
    GuiOptions m_options;
    LocatorFactory m_makeLocator;
    // Finished scans are let go of on its thread.
    std::shared_ptr<BackgroundRelease> m_release;
    std::unique_ptr<QtMainQueue> m_queue;
    std::unique_ptr<MainQueueTimers> m_timers;
    std::unique_ptr<MainWindow> m_window;
    std::unique_ptr<ScanNotifier> m_notifier;
    // What the results and the collector work with.
    std::unique_ptr<FileManagerReveal> m_reveal;
    std::unique_ptr<DesktopApplications> m_applications;
    std::unique_ptr<PreviewWindow> m_preview;
    std::unique_ptr<Trash> m_trash;
    std::unique_ptr<LinuxLibraryAppDriver> m_libraryDriver;
    std::unique_ptr<HVAchievementsController> m_achievements;
    std::unique_ptr<ResultsPageFaces> m_faces;
    std::unique_ptr<CVResultsRolesFactory> m_resultsFactory;
    std::unique_ptr<ScanWindowCollectorHost> m_collectorHost;
    std::unique_ptr<AppShell> m_shell;
    std::unique_ptr<SingleInstance> m_instance;
    std::unique_ptr<CorvelAppDelegate> m_delegate;
    std::unique_ptr<MenuBar> m_menus;
    std::unique_ptr<ReturnClicksButtons> m_returnClicks; // filters every window's keys
};

} // namespace corvel::gui
