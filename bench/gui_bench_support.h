#pragma once
// What the desktop application's timed programs share: a private home and settings
// file under the temporary folder (the user's are never read or written), the
// offscreen platform unless another was asked for, waiting on the event loop, and
// medians. Not thread-safe; the GUI thread only.

#include <QString>
#include <functional>
#include <string>
#include <vector>

namespace corvel::bench {

// Makes a fresh folder under the temporary folder and points HOME, the XDG folders,
// the session bus and the settings file into it; empty on failure. Call before the
// QApplication is made.
std::string isolateHome(const char* label);

// QT_QPA_PLATFORM=offscreen unless the environment already names a platform; the
// platform's notes about what it cannot do are not printed.
void useOffscreenPlatform();

// Processes events until condition holds; false after timeoutMs.
bool waitFor(const std::function<bool()>& condition, int timeoutMs);

// The median of the values (the mean of the middle two for an even count); 0 when empty.
double median(std::vector<double> values);

// "12.3 ms" with one decimal.
std::string milliseconds(double ms);

} // namespace corvel::bench
