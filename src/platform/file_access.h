#pragma once
// What the user may do to a path: remove it, and the immutable flag that forbids it.

#include <cstdint>
#include <optional>
#include <string>

#include "error.h"
#include "item_status.h"
#include "unique_fd.h"

namespace corvel {

// Whether the current user may remove the item at path: the item exists (a dangling
// symbolic link counts), its parent folder is writable and searchable by the user,
// the sticky-bit rule of the parent allows it (the user owns the item or the parent,
// or is root), and neither the item nor the parent is immutable or append-only.
bool isDeletableByUser(const std::string& path);

// What removing an entry needs to know of the folder that holds it: a caller deciding
// for many entries of one folder reads it once.
struct FolderRemovalAccess {
    bool usable = false; // the folder exists, is writable and searchable by the user, and is not locked
    bool sticky = false;
    unsigned owner = 0;
    int refusal = 0; // why the user may not write or search it (an errno value; 0 when they may)
};
FolderRemovalAccess folderRemovalAccess(const std::string& folder);
// isDeletableByUser for an item of a folder whose access was read before.
bool isDeletableByUser(const std::string& path, const FolderRemovalAccess& folder);

// What removing an item needs to know of the item itself.
struct ItemRemovalAccess {
    bool exists = false;
    unsigned owner = 0;
    bool locked = false; // an immutable or append-only file or folder
};
// Of the item at path, a final symbolic link not followed.
ItemRemovalAccess itemRemovalAccess(const std::string& path);
// Of an item whose status the caller took (a caller with the file open takes it from the
// descriptor, without a path look-up).
ItemRemovalAccess itemRemovalAccess(const ItemStatus& status);
// isDeletableByUser for an item and its folder whose access was read before.
bool isDeletableByUser(const ItemRemovalAccess& item, const FolderRemovalAccess& folder);

// Why the item at path could not be taken out of its folder now, as an errno value (0:
// it could): the folder is on a read-only volume (EROFS), not writable or searchable by
// the user (EACCES), locked, or sticky and neither it nor the item is the user's (EPERM).
// The item's own lock counts only when the user may not change it (mayChangeImmutableFlags):
// a removal unlocks a locked item first.
int removalRefusal(const std::string& path);
// The same for an item of a folder whose access was read before (folderRemovalAccess of
// its parent).
int removalRefusal(const std::string& path, const FolderRemovalAccess& folder);

// Why the folder at path could not be moved into another folder now, as an errno value (0:
// it could), on top of removalRefusal: the move rewrites the folder's own ".." entry, so
// the user must be able to write in the folder itself.
int folderMoveRefusal(const std::string& folder);

// Whether this process may set and clear the immutable flag (the CAP_LINUX_IMMUTABLE
// capability, which root has).
bool mayChangeImmutableFlags();

// The immutable flag of a file or folder (chattr +i). Nothing when it cannot be read:
// the item is missing, a symbolic link, or on a file system without such flags.
std::optional<bool> isImmutable(const std::string& path);

// Opens the item at path to change its flags (a final symbolic link is not opened, a
// device or FIFO never blocks the open). With expected, the item opened must be that one,
// else nothing is answered (ESTALE): a folder of the path swapped meanwhile never leads a
// flag change to another item. Invalid, with the error, on failure.
UniqueFd openForFlagChange(const std::string& path, std::optional<ItemIdentity> expected, CVError* error);

// Sets or clears the immutable flag of an item open with openForFlagChange (path names it
// in the error). Needs the CAP_LINUX_IMMUTABLE capability (root) and a file system that
// keeps the flag; otherwise answers false with a POSIX error. A caller that unlocks an
// item for a while keeps the descriptor to lock that same item again, wherever its path
// leads by then.
[[nodiscard]] bool setImmutable(int fd, const std::string& path, bool immutable, CVError* error);
// The same through the item at path (openForFlagChange, then the change).
[[nodiscard]] bool setImmutable(const std::string& path, bool immutable, CVError* error,
                                std::optional<ItemIdentity> expected = std::nullopt);

} // namespace corvel
