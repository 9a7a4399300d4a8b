#pragma once
// Percent-encoding of file paths as byte strings, the form trash information files and
// URIs use: letters, digits, "-", ".", "_", "~" and "/" stay as they are, every other
// byte (spaces, non-ASCII, bytes that are not valid UTF-8) becomes "%XX" with capital
// hex digits. A name is taken as the bytes the file system holds, never re-encoded.

#include <string>
#include <string_view>

namespace corvel {

// "/home/ada/My file\xff" gives "/home/ada/My%20file%FF".
std::string percentEncodePath(std::string_view bytes);

// The bytes back: every "%XX" with two hex digits (either case) becomes its byte; a
// "%" not followed by two hex digits stays as it is.
std::string percentDecode(std::string_view text);

} // namespace corvel
