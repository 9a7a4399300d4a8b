#pragma once
// The text of a Trash information file (info/NAME.trashinfo). Pure functions; any thread.

#include <ctime>
#include <string>
#include <string_view>

namespace corvel {

// "[Trash Info]\nPath=P\nDeletionDate=D\n" where P is originalPath percent-encoded
// byte by byte (so a newline or a byte that is not UTF-8 cannot break the file) and D
// is trashDeletionDate(deletionTime). originalPath is absolute for the home Trash and
// relative to the volume's top folder for a Trash on another volume.
std::string trashInfoText(std::string_view originalPath, std::time_t deletionTime);

// The time as "YYYY-MM-DDThh:mm:ss" in the local time zone.
std::string trashDeletionDate(std::time_t time);

} // namespace corvel
