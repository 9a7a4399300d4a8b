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
