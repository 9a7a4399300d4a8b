#pragma once
// The operating system's version as "major.minor.bugfix", from the kernel's release
// ("6.1.0-18-amd64" gives "6.1.0"; missing parts are 0, so "6.5" gives "6.5.0").

#include <string>
#include <string_view>

namespace corvel {

std::string systemVersionFromRelease(std::string_view release);
// The running kernel's, from uname(2); "0.0.0" when it cannot be read.
std::string systemVersion();

} // namespace corvel
