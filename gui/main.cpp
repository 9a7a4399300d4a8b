// corvel-gui: the desktop application. Folders given on the command line (paths or
// file:// URLs, as a file manager's "Scan with Corvel" passes them) go to the running
// instance when there is one; otherwise this process starts the window with them.

#include <QApplication>
#include <QFile>
#include <QUrl>
#include <string>
#include <vector>

#include "app_shell.h"
#include "gui_application.h"
#include "local_paths.h"
#include "platform/main_queue.h"

int main(int argc, char** argv) {
    corvel::MainQueue::shared().setMainThread();
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
