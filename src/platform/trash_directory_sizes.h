#pragma once
// The directorysizes file of a Trash folder: a cache of the disk space taken by each
// trashed folder, one line per folder, "SIZE MTIME NAME": the bytes of the blocks the
// folder and everything in it use (what `du -B1 -s` counts), the modification time in
// seconds of the folder's information file, and the folder's name in files/
// percent-encoded. Other Trash implementations read it to size the Trash quickly.

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "error.h"

namespace corvel {

// The disk space of the tree at path (a folder or anything else) as `du -B1 -s` counts
// it: st_blocks * 512 summed over every entry, symbolic links not followed, other file
// systems not entered, a file with several hard links inside counted once. Entries that
// cannot be read are skipped.
std::uint64_t diskUsageOfTree(const std::string& path);

// The directorysizes text with the line for name (as it is in files/, not encoded)
// replaced or added at the end. Lines of folders for which stillTrashed answers false
// are dropped; lines that cannot be read are kept as they are. Pure; any thread.
std::string updatedDirectorySizes(std::string_view text, std::string_view name, std::uint64_t size,
                                  std::int64_t infoModificationTime,
                                  const std::function<bool(const std::string& name)>& stillTrashed);

// Records the folder files/NAME in the directorysizes file of the Trash folder open at
// trashDirectoryFd (whose path is trashDirectory, used for messages): reads the file,
// updates it as above (dropping folders no longer in files/) and replaces it
// atomically (a temporary file in the Trash folder, fsync'ed, renamed over it). Answers
// false with an error when the file cannot be written; the Trash entry itself is
// untouched either way. Two processes updating at once: the last one wins.
[[nodiscard]] bool recordTrashedFolderSize(int trashDirectoryFd, const std::string& trashDirectory,
                                           const std::string& name, std::uint64_t size,
                                           std::int64_t infoModificationTime, CVError* error);

} // namespace corvel
