#pragma once
// The program's own identity.

#include <string>

namespace corvel {

// The version the program was built as ("0.1.0").
std::string applicationVersion();
// The product name, "Corvel".
std::string applicationName();

} // namespace corvel
