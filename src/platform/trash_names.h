#pragma once
// Names of entries in a Trash folder. An item is kept as files/NAME beside its
// information file info/NAME.trashinfo, so NAME must leave room for ".trashinfo" within
// the file system's 255-byte limit on a name. Pure functions; any thread.

#include <cstddef>
#include <string>
#include <string_view>

namespace corvel {

// The longest NAME a Trash entry may have (255 - strlen(".trashinfo")).
inline constexpr std::size_t kMaxTrashEntryName = 245;

// The name to try on the given attempt (1, 2, 3, ...) for an item called name:
// attempt 1 is the name itself, attempt N > 1 inserts ".N" before the extension
// ("report.pdf" gives "report.2.pdf", ".bashrc" gives ".bashrc.2"). Folders have no
// extension (keepExtension false: "photos.2020" gives "photos.2020.2"). An extension is
// the part from the last "." that is not the first byte, 2 to 16 bytes long. A name
// that would pass kMaxTrashEntryName is shortened before the extension and the counter,
// never inside a UTF-8 character when the name is valid UTF-8 there.
std::string trashEntryName(std::string_view name, unsigned attempt, bool keepExtension);

// The first bytes of text, at most maxBytes, cut before a UTF-8 character that would
// not fit whole (up to 3 more bytes dropped when the cut falls inside one).
std::string_view truncateUtf8(std::string_view text, std::size_t maxBytes);

} // namespace corvel
