#pragma once
// The system log: plain diagnostic lines with no levels. Lines go to syslog (LOG_USER),
// to stderr when enabled (the command line's --verbose), and to an installed sink
// (tests capture lines with ScopedLogCapture). Any thread.

#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "property_value.h"

namespace corvel {

void systemLog(std::string_view line);
// Formats with formatString (text_format.h) and logs the result.
void systemLogFormat(std::string_view format, std::span<const PropertyValue> args);
template <typename... Args> void systemLogf(std::string_view format, const Args&... args) {
    const PropertyValue values[] = {PropertyValue(args)..., PropertyValue()};
    systemLogFormat(format, std::span<const PropertyValue>(values, sizeof...(Args)));
}

void setLogToStderr(bool enabled);
void setLogToSyslog(bool enabled);

// A line the user must see whatever the log settings: a settings file left alone or set
// aside, a setting of the wrong type, an ignore pattern that does not compile. It is
// logged like any line (but not echoed on stderr a second time) and handed to the
// presenter the face installed; the command line prints it on stderr. Without a
// presenter it is only logged. Any thread; the presenter runs on the caller's thread.
void warnUser(std::string_view line);
void setUserWarningPresenter(std::function<void(const std::string&)> presenter);

// Collects every logged line while alive; captures nest (the innermost collects).
class ScopedLogCapture {
public:
    ScopedLogCapture();
    ~ScopedLogCapture();
    ScopedLogCapture(const ScopedLogCapture&) = delete;
    ScopedLogCapture& operator=(const ScopedLogCapture&) = delete;

    std::vector<std::string> lines() const;
    // True when some captured line contains the text.
    bool contains(std::string_view text) const;

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

} // namespace corvel
