#pragma once
// Where the program's resource files are: the default ignore list, the scan phrases,
// the string tables and the type table.

#include <string>
#include <string_view>

namespace corvel {

// The resource folder, the first of: $CORVEL_RESOURCES when set (even when it is not a
// folder, so checkResources() names the mistake); share/corvel beside the program's bin
// folder (build/share/corvel, /usr/share/corvel, or wherever an installed tree was moved);
// the install prefix's share/corvel the program was built for. "" when none exists.
// Computed once; thread-safe.
const std::string& resourceDirectory();

// resourceDirectory() + "/" + relative.
std::string resourcePath(std::string_view relative);

// True when directory holds, as readable regular files, every resource a program cannot do
// without: the ignore list that protects system folders, the type table, the scan phrases
// and the default string table. Otherwise
// false and *error (when given) names the first one missing (its full path and the reason)
// or says that no resource folder was found; nothing is changed.
[[nodiscard]] bool checkResources(const std::string& directory, std::string* error);

} // namespace corvel
