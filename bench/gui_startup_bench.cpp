// bench_gui_startup [RUNS]: the desktop application's start-up, from the start of a
// process to its first window shown, painted and processing events. Each run starts this
// program again as a child (--child) that does what corvel-gui's main does (the
// QApplication, the look for a running instance, the whole start-up sequence) and writes
// one byte to a pipe when the shown main window has painted once and the event loop has
// then run a posted timer. The parent times posix_spawn to that byte. The first run,
// which writes the settings file of a first launch, is reported apart; the median is over
// the later runs, as a user's usual launch. Offscreen, in a private home.

#include <QApplication>
#include <QEvent>
#include <QTimer>
#include <QWidget>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <poll.h>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

#include "app_shell.h"
#include "gui_application.h"
#include "gui_bench_support.h"
#include "main_window.h"
#include "platform/main_queue.h"

extern char** environ;

using namespace corvel;
using namespace corvel::gui;

namespace {

// Reports once: on the first paint of the shown main window, a zero timer is posted; when
// the loop runs it, the byte goes out and the child quits.
class FirstPaint final : public QObject {
public:
    FirstPaint(int fd, QWidget* window) : m_fd(fd), m_window(window) {}
    bool eventFilter(QObject* watched, QEvent* event) override {
        if (event->type() == QEvent::Paint && !m_seen && watched == m_window && m_window->isVisible()) {
            m_seen = true;
            QTimer::singleShot(0, this, [this] {
                const char byte = 'r';
                if (::write(m_fd, &byte, 1) != 1)
                    std::perror("bench_gui_startup");
                ::close(m_fd);
                QApplication::quit();
            });
        }
        return QObject::eventFilter(watched, event);
    }

private:
    int m_fd;
    QWidget* m_window;
    bool m_seen = false;
};

int runChild(int argc, char** argv, int fd, const std::string& home) {
    bench::useOffscreenPlatform();
    MainQueue::shared().setMainThread();
    QApplication::setHighDpiScaleFactorRoundingPolicy(Qt::HighDpiScaleFactorRoundingPolicy::PassThrough);
    QApplication app(argc, argv);
    QApplication::setApplicationName("corvel-gui");
    QApplication::setApplicationDisplayName("Corvel");
    QApplication::setDesktopFileName("com.halvik.Corvel");
    QApplication::setWindowIcon(applicationIcon());
    GuiApplication gui({QString::fromStdString(home + "/corvel-gui.socket"), {}, {}});
    if (gui.handOverToRunningInstance())
        return 1;
    gui.start();
    // Painting waits for the event loop, so the filter is in place in time.
    FirstPaint watcher(fd, &gui.window());
    gui.window().installEventFilter(&watcher);
    const int code = QApplication::exec();
    gui.window().removeEventFilter(&watcher);
    return code;
}

// One child from spawn to its byte, in milliseconds; negative on failure.
double timeOneStart(const char* self) {
    int fds[2];
    if (::pipe(fds) != 0)
        return -1;
    const std::string fd = std::to_string(fds[1]);
    char* args[] = {const_cast<char*>(self), const_cast<char*>("--child"), const_cast<char*>(fd.c_str()),
                    nullptr};
    pid_t child = 0;
    const auto start = std::chrono::steady_clock::now();
    if (::posix_spawn(&child, self, nullptr, nullptr, args, environ) != 0)
        return -1;
    ::close(fds[1]);
    pollfd wait{fds[0], POLLIN, 0};
    double ms = -1;
    char byte = 0;
    if (::poll(&wait, 1, 20000) == 1 && ::read(fds[0], &byte, 1) == 1)
        ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    ::close(fds[0]);
    int status = 0;
    ::waitpid(child, &status, 0);
    return ms;
}

} // namespace

int main(int argc, char** argv) {
    if (argc == 3 && std::strcmp(argv[1], "--child") == 0) {
        const char* home = std::getenv("HOME");
        return runChild(argc, argv, std::atoi(argv[2]), home ? home : "/tmp");
    }
    const int runs = argc > 1 ? std::max(1, std::atoi(argv[1])) : 7;
    const std::string home = bench::isolateHome("corvel-bench-startup");
    if (home.empty()) {
        std::fprintf(stderr, "bench_gui_startup: cannot make a private home\n");
        return 1;
    }
    bench::useOffscreenPlatform();
    const std::string self = std::filesystem::canonical("/proc/self/exe").string();
    std::vector<double> later;
    std::printf("bench_gui_startup: process start to the first painted, event-processing window\n");
    for (int run = 0; run <= runs; ++run) {
        const double ms = timeOneStart(self.c_str());
        if (ms < 0) {
            std::fprintf(stderr, "bench_gui_startup: the child did not report\n");
            return 1;
        }
        std::printf("run %d%s: %s\n", run, run == 0 ? " (first launch)" : "",
                    bench::milliseconds(ms).c_str());
        std::fflush(stdout);
        if (run > 0)
            later.push_back(ms);
    }
    const double m = bench::median(later);
    std::printf("median of %d later launches: %s (target < 500 ms)\n", runs, bench::milliseconds(m).c_str());
    std::error_code ignored;
    std::filesystem::remove_all(home, ignored);
    return m < 500 ? 0 : 3;
}
