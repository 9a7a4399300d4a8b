#pragma once
// Where the program's resource files are: the default ignore list, the scan phrases,
// the string tables and the type table.

#include <string>
#include <string_view>

namespace corvel {

// The resource folder: $CORVEL_RESOURCES when set, else share/corvel beside the
// program's bin folder (build/share/corvel, /usr/share/corvel), else the source tree's
// resources folder the program was built from.
const std::string& resourceDirectory();

// resourceDirectory() + "/" + relative.
std::string resourcePath(std::string_view relative);

} // namespace corvel
