#include "gui_bench_support.h"

#include <QApplication>
#include <QDir>
#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "event_wait.h"
#include "private_home.h"

namespace corvel::bench {

std::string isolateHome(const char* label) {
    return makePrivateHome(label);
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
    return processEventsUntil(condition, timeoutMs);
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
