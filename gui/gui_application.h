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

#include "app/main_timers.h"

namespace corvel {
class CorvelAppDelegate;
class QtMainQueue;
class ResultsRolesFactory;
} // namespace corvel

namespace corvel::gui {

class AppShell;
class MainWindow;
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

private:
    GuiOptions m_options;
    std::unique_ptr<QtMainQueue> m_queue;
    std::unique_ptr<MainQueueTimers> m_timers;
    std::unique_ptr<MainWindow> m_window;
    std::unique_ptr<ScanNotifier> m_notifier;
    std::unique_ptr<ResultsRolesFactory> m_resultsFactory;
    std::unique_ptr<AppShell> m_shell;
    std::unique_ptr<SingleInstance> m_instance;
    std::unique_ptr<CorvelAppDelegate> m_delegate;
    std::unique_ptr<MenuBar> m_menus;
};

} // namespace corvel::gui
