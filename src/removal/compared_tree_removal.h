#pragma once
// Permanent removal of a folder copy, limited to what its comparison with the kept copy
// saw. The comparison of a large folder takes time, and a file may be written into the
// folder meanwhile or after it: a recursive delete would take that file too, though it
// was never compared with anything. Here every listed entry is checked again just before
// it goes (device and inode; a file also its size, modification time and change time, which
// no program can set back), entries are
// removed relative to their open folders (a folder swapped for a link is never followed),
// and folders are removed with rmdir, so anything that appeared or changed stays, with
// the folders that hold it.

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "engine/content_comparison.h"

struct stat;

namespace corvel {

// Whether st (an lstat of the entry) is the entry as it was compared: the same device,
// inode and type, and for a file the same size, modification time and change time.
bool isAsCompared(const struct stat& st, const ComparedEntry& entry);

// Removes the folder at path as listed in compared (ContentComparer::compareTrees's list
// of the folder's side, the folder itself first). True when the folder is gone; false
// with *why naming the first entry that stayed and why ("PATH: changed since the
// comparison", "PATH: holds entries the comparison did not see", or a system error);
// everything else listed is removed even then. parentFd: the folder holding the tree,
// opened by the caller (the tree's top is then looked up there, and the path serves only
// in messages); -1 opens the path's folder.
// removed, when given, counts the entries that went (folders included).
[[nodiscard]] bool removeComparedTree(const std::string& path, const std::vector<ComparedEntry>& compared,
                                      std::string* why, int parentFd = -1, std::size_t* removed = nullptr);

// Why removeComparedTree could not remove every entry below the folder at path now, as
// the user's rights stand (nothing is removed here, for a dry run): the first entry it
// would have to leave and an errno value (a folder the user may not change, a locked
// entry, which the removal does not unlock). Nothing when every entry could go.
struct EntryRefusal {
    std::string path;
    int error = 0;
};
std::optional<EntryRefusal> comparedTreeRefusal(const std::string& path,
                                                const std::vector<ComparedEntry>& compared);

} // namespace corvel
