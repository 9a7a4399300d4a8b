// corvel-screenshots OUT_DIR TREE: renders every page and panel of the desktop
// application to PNG files in OUT_DIR, scanning TREE (the demo tree) for real. It runs
// with a home, configuration and settings file of its own under the temporary folder,
// so the user's settings are never read or written. Meant for the offscreen platform
// (QT_QPA_PLATFORM=offscreen), where the main window is 1280x800 at most.

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QMessageBox>
#include <QPixmap>
#include <QPushButton>
#include <QTabWidget>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "app/app_delegate.h"
#include "app/scan_window_controller.h"
#include "app_shell.h"
#include "gui_application.h"
#include "main_window.h"
#include "platform/main_queue.h"
#include "platform/user_defaults.h"
#include "preferences_window.h"

using namespace corvel;
using namespace corvel::gui;

namespace {

bool waitFor(const std::function<bool()>& condition, int timeoutMs) {
    QElapsedTimer timer;
    timer.start();
    while (!condition()) {
        if (timer.elapsed() > timeoutMs)
            return false;
        QApplication::processEvents(QEventLoop::AllEvents, 10);
    }
    return true;
}

void settle() {
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < 150)
        QApplication::processEvents(QEventLoop::AllEvents, 10);
}

bool save(QWidget* widget, const QString& folder, const char* name) {
    settle();
    const QString path = folder + "/" + name + ".png";
    const bool ok = widget->grab().save(path);
    std::fprintf(stderr, "%s %s\n", ok ? "wrote" : "could not write", qPrintable(path));
    return ok;
}

// A private home for this run: nothing of the user's is read or written.
std::string isolate() {
    std::string root = QDir::tempPath().toStdString() + "/corvel-screenshots-XXXXXX";
    if (!::mkdtemp(root.data()))
        return {};
    QDir().mkpath(QString::fromStdString(root + "/.config"));
    ::setenv("HOME", root.c_str(), 1);
    ::setenv("XDG_CONFIG_HOME", (root + "/.config").c_str(), 1);
    ::setenv("XDG_DATA_HOME", (root + "/.local/share").c_str(), 1);
    ::setenv("XDG_STATE_HOME", (root + "/.local/state").c_str(), 1);
    ::setenv("XDG_RUNTIME_DIR", root.c_str(), 1);
    ::setenv("DBUS_SESSION_BUS_ADDRESS", ("unix:path=" + root + "/no-bus").c_str(), 1);
    ::setenv("CORVEL_SETTINGS", (root + "/.config/screenshots.plist").c_str(), 1);
    UserDefaults::setStandardPath(root + "/.config/screenshots.plist");
    return root;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: corvel-screenshots OUT_DIR TREE\n");
        return 2;
    }
    const std::string home = isolate();
    if (home.empty()) {
        std::fprintf(stderr, "corvel-screenshots: cannot make a private home\n");
        return 1;
    }
    MainQueue::shared().setMainThread();
    QApplication app(argc, argv);
    QApplication::setFont(QFont("DejaVu Sans", 10));
    const QString out = QString::fromLocal8Bit(argv[1]);
    QDir().mkpath(out);
    const std::string tree = argv[2];
    int failures = 0;
    auto shot = [&](QWidget* w, const char* name) { failures += save(w, out, name) ? 0 : 1; };

    GuiApplication gui({QString::fromStdString(home + "/corvel-gui.socket"), {}, {}});
    gui.start();
    MainWindow& window = gui.window();
    shot(&window, "scan");

    gui.delegate().checkAndAddFoldersForScan({tree + "/Pictures", tree + "/Downloads", tree + "/Documents"});
    shot(&window, "scan-folders");

    // The scan of the tree itself; the picture is taken as soon as it runs.
    gui.delegate().scanWindowController()->startScanAction(false);
    waitFor([&] { return gui.delegate().scanWindowController()->windowState() != WindowStateIdle; }, 5000);
    shot(&window, "scanning");
    if (!waitFor([&] { return gui.delegate().scanWindowController()->windowState() >= WindowStateFound; },
                 60000)) {
        std::fprintf(stderr, "corvel-screenshots: the scan did not end\n");
        return 1;
    }
    shot(&window, "found");

    gui.delegate().showAboutPanel();
    shot(gui.shell().aboutPanel(), "about");
    gui.shell().aboutPanel()->close();

    gui.delegate().showPreferences();
    auto* prefs = dynamic_cast<PreferencesWindow*>(gui.shell().preferencesWindow());
    const char* tabs[] = {"preferences-general", "preferences-ignore", "preferences-selection"};
    for (int i = 0; i < 3; ++i) {
        prefs->tabs()->setCurrentIndex(i);
        shot(prefs, tabs[i]);
    }
    prefs->close();

    // The quit sheet, as it shows over a running scan.
    gui.delegate().updateMainWindowState(WindowStateScanning);
    gui.shell().setQuitAction([] {});
    gui.shell().quitRequested();
    if (QMessageBox* sheet = gui.shell().quitSheet()) {
        shot(sheet, "quit-sheet");
        sheet->defaultButton()->click();
    }
    settle();
    gui.delegate().updateMainWindowState(WindowStateFound);
    return failures == 0 ? 0 : 1;
}
