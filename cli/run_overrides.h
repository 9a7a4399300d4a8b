#pragma once
// Options that steer one run of the command line without storing anything: paths left
// out of the scan (globs), and folders added to the Always/Never Select lists. They go
// into the settings store as values for this run only (UserDefaults::setVolatileObject),
// so the ignore list and the automatic selection see them and the file never does.

#include <string>
#include <string_view>
#include <vector>

namespace corvel {
class UserDefaults;
}

namespace corvel::cli {

struct RunOverrides {
    std::vector<std::string> excludes;     // globs
    std::string excludeFrom;               // a file of globs, one per line ("#" starts a comment)
    std::vector<std::string> alwaysSelect; // folders
    std::vector<std::string> neverSelect;  // folders
    bool showUnremovable = false;          // groups whose copies the user cannot remove
};

// The ignore pattern (an ICU regular expression searched in the lower-cased path) that
// matches what the glob matches: "*" and "?" within one path component, "**" across
// components, "[...]" a class ("[!...]" negated). A glob without "/" matches the last
// component of a path; one with "/" the whole path ("/" at its start) or its end.
std::string globToIgnorePattern(std::string_view glob);

// Puts the overrides into defaults for this run. False with *message (nothing applied)
// when --exclude-from cannot be read or a select folder is not a folder.
[[nodiscard]] bool applyRunOverrides(const RunOverrides& overrides, UserDefaults& defaults,
                                     std::string* message);

} // namespace corvel::cli
