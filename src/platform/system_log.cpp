#include "system_log.h"

#include <atomic>
#include <cstdio>
#include <mutex>
#include <sys/stat.h>
#include <syslog.h>

#include "text_format.h"

namespace corvel {

namespace {

std::atomic<bool> g_toStderr{false};
std::atomic<bool> g_toSyslog{true};

std::mutex& logMutex() {
    static std::mutex mutex;
    return mutex;
}

std::function<void(const std::string&)>& warningPresenter() {
    static std::function<void(const std::string&)> presenter;
    return presenter;
}

std::vector<std::vector<std::string>*>& captureStack() {
    static std::vector<std::vector<std::string>*> stack;
    return stack;
}

// Whether the system log's socket is there. Without it (a container, a minimal system)
// the C library would try to connect again for every line, four system calls each time;
// the lines then go only to stderr and the captures. Looked at once per process.
bool syslogSocketPresent() {
    static const bool present = [] {
        struct stat st {};
        const bool found = ::stat(_PATH_LOG, &st) == 0 && S_ISSOCK(st.st_mode);
        if (found)
            openlog("corvel", LOG_PID, LOG_USER);
        return found;
    }();
    return present;
}

void logLine(const std::string& text, bool echoOnStderr) {
    if (g_toSyslog && syslogSocketPresent())
        syslog(LOG_USER | LOG_NOTICE, "%s", text.c_str());
    std::lock_guard lock(logMutex());
    if (g_toStderr && echoOnStderr)
        std::fprintf(stderr, "%s\n", text.c_str());
    if (!captureStack().empty())
        captureStack().back()->push_back(text);
}

} // namespace

struct ScopedLogCapture::Impl {
    std::vector<std::string> lines;
};

void systemLog(std::string_view line) {
    logLine(std::string(line), true);
}

void warnUser(std::string_view line) {
    const std::string text(line);
    std::function<void(const std::string&)> presenter;
    {
        std::lock_guard lock(logMutex());
        presenter = warningPresenter();
    }
    logLine(text, !presenter);
    if (presenter)
        presenter(text);
}

void setUserWarningPresenter(std::function<void(const std::string&)> presenter) {
    std::lock_guard lock(logMutex());
    warningPresenter() = std::move(presenter);
}

void systemLogFormat(std::string_view format, std::span<const PropertyValue> args) {
    systemLog(formatString(format, args));
}

void setLogToStderr(bool enabled) {
    g_toStderr = enabled;
}
void setLogToSyslog(bool enabled) {
    g_toSyslog = enabled;
}

ScopedLogCapture::ScopedLogCapture() : m_impl(std::make_unique<Impl>()) {
    std::lock_guard lock(logMutex());
    captureStack().push_back(&m_impl->lines);
}

ScopedLogCapture::~ScopedLogCapture() {
    {
        std::lock_guard lock(logMutex());
        auto& stack = captureStack();
        std::erase(stack, &m_impl->lines);
    }
}

std::vector<std::string> ScopedLogCapture::lines() const {
    std::lock_guard lock(logMutex());
    return m_impl->lines;
}

bool ScopedLogCapture::contains(std::string_view text) const {
    std::lock_guard lock(logMutex());
    for (const auto& l : m_impl->lines)
        if (l.find(text) != std::string::npos)
            return true;
    return false;
}

} // namespace corvel
