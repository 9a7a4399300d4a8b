// corvel-gui: the desktop application. Folders given on the command line (paths or
// file:// URLs, as a file manager's "Scan with Corvel" passes them) go to the running
// instance when there is one; otherwise this process starts the window with them.

#include <QApplication>
#include <QFile>
#include <QUrl>
#include <cstdio>
#include <string>
#include <vector>

#include "app_shell.h"
#include "gui_application.h"
#include "local_paths.h"
#include "platform/app_info.h"
#include "platform/main_queue.h"
#include "platform/process_limits.h"

namespace {

// --help and --version answer on stdout without opening a window (no display needed);
// answers whether one of them was given.
bool answeredInformationRequest(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument == "--help" || argument == "-h") {
            std::fputs("Usage: corvel-gui [FOLDER...]\n"
                       "Opens Corvel's window. Folders given (paths or file:// URLs) are added to the scan;\n"
                       "when Corvel is already open, they go to its window.\n"
                       "\n"
                       "  -h, --help     this text\n"
                       "  --version      the version\n"
                       "\n"
                       "Settings: $CORVEL_SETTINGS, else $XDG_CONFIG_HOME/corvel/com.halvik.Corvel.plist.\n"
                       "The command line is corvel (corvel --help).\n",
                       stdout);
            return true;
        }
        if (argument == "--version") {
            std::printf("%s %s\n", corvel::applicationName().c_str(), corvel::applicationVersion().c_str());
            return true;
        }
    }
    return false;
}

} // namespace

int main(int argc, char** argv) {
    if (answeredInformationRequest(argc, argv))
        return 0;
    corvel::MainQueue::shared().setMainThread();
    corvel::raiseOpenFileLimit();
    QApplication::setHighDpiScaleFactorRoundingPolicy(Qt::HighDpiScaleFactorRoundingPolicy::PassThrough);
    QApplication app(argc, argv);
    QApplication::setApplicationName("corvel-gui");
    QApplication::setApplicationDisplayName("Corvel");
    QApplication::setDesktopFileName("com.halvik.Corvel");
    QApplication::setApplicationVersion(PROJECT_VERSION_STRING);
    QApplication::setWindowIcon(corvel::gui::applicationIcon());

    corvel::gui::GuiOptions options;
    const QStringList arguments = QApplication::arguments();
    for (const QString& argument : arguments)
        options.arguments.push_back(argument.toStdString());
    // The raw arguments: a folder's name need not be valid UTF-8.
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument.empty() || argument[0] == '-')
            continue;
        if (argument.starts_with("file:")) {
            if (auto path =
                    corvel::gui::localPathFromUrl(QUrl::fromEncoded(QByteArray::fromStdString(argument))))
                options.folders.push_back(*path);
        } else {
            options.folders.push_back(argument);
        }
    }

    corvel::gui::GuiApplication gui(options);
    if (gui.handOverToRunningInstance())
        return 0;
    gui.start();
    return QApplication::exec();
}
