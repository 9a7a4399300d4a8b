#include "gui_bench_support.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "platform/user_defaults.h"

namespace corvel::bench {

std::string isolateHome(const char* label) {
    std::string root = QDir::tempPath().toStdString() + "/" + label + "-XXXXXX";
    if (!::mkdtemp(root.data()))
        return {};
    QDir().mkpath(QString::fromStdString(root + "/.config"));
    ::setenv("HOME", root.c_str(), 1);
    ::setenv("XDG_CONFIG_HOME", (root + "/.config").c_str(), 1);
    ::setenv("XDG_DATA_HOME", (root + "/.local/share").c_str(), 1);
    ::setenv("XDG_STATE_HOME", (root + "/.local/state").c_str(), 1);
    ::setenv("XDG_CACHE_HOME", (root + "/.cache").c_str(), 1);
    ::setenv("XDG_RUNTIME_DIR", root.c_str(), 1);
    ::setenv("DBUS_SESSION_BUS_ADDRESS", ("unix:path=" + root + "/no-bus").c_str(), 1);
    ::setenv("CORVEL_SETTINGS", (root + "/.config/bench.plist").c_str(), 1);
    UserDefaults::setStandardPath(root + "/.config/bench.plist");
    return root;
}

void useOffscreenPlatform() {
    ::setenv("QT_QPA_PLATFORM", "offscreen", 0);
    // The offscreen platform's notes that it cannot raise or resize windows to hints.
    qInstallMessageHandler([](QtMsgType type, const QMessageLogContext&, const QString& message) {
        if (message.startsWith("This plugin does not support"))
            return;
        std::fprintf(stderr, "%s\n", qPrintable(message));
        if (type == QtFatalMsg)
            std::abort();
    });
}

bool waitFor(const std::function<bool()>& condition, int timeoutMs) {
    QElapsedTimer timer;
    timer.start();
    while (!condition()) {
        if (timer.elapsed() > timeoutMs)
            return false;
        QApplication::processEvents(QEventLoop::AllEvents, 5);
    }
    return true;
}

double median(std::vector<double> values) {
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    const std::size_t mid = values.size() / 2;
    return values.size() % 2 ? values[mid] : (values[mid - 1] + values[mid]) / 2;
}

std::string milliseconds(double ms) {
    char line[32];
    std::snprintf(line, sizeof line, "%.1f ms", ms);
    return line;
}

} // namespace corvel::bench
