#pragma once
// File URLs ("file:///home/ada/My%20Music/a.mp3") and the paths they stand for.

#include <optional>
#include <string>
#include <string_view>

namespace corvel {

// The path of a file URL: "file:///p", "file://localhost/p" or "file:/p", with %XX
// escapes decoded (the bytes are kept as they are, UTF-8 or not) and a trailing slash
// of a folder URL kept. Nothing for other schemes, other hosts or a bad escape.
std::optional<std::string> filePathFromURLString(std::string_view url);

// The file URL of an absolute path ("file:///..."), with every byte outside the
// unreserved set and "/" percent-encoded.
std::string fileURLStringFromPath(std::string_view path);

// The text with every byte outside the unreserved set (letters, digits, "-._~") and
// the characters in keep written as %XX.
std::string percentEncode(std::string_view text, std::string_view keep = {});
// The value of a hexadecimal digit, or -1.
int hexDigitValue(char c);

} // namespace corvel
