#pragma once
// Which Trash folder takes the items of a folder, and opening it (made when missing).
//
// Items on the volume (mount) of the home Trash, $XDG_DATA_HOME/Trash, go there. Items on
// any other mount go to a Trash at the top of that mount (its mount point, from the
// mount table; a bind mount is a mount of its own, because rename(2) cannot cross it):
// $topdir/.Trash/$uid when $topdir/.Trash is a real folder (not a symbolic link) with the
// sticky bit, $uid being made there (mode 0700) when missing and having to be a real
// folder the user owns; otherwise $topdir/.Trash-$uid, made (mode 0700) when missing,
// which must be a real folder the user owns. A Trash folder holds files/ and info/, made
// (mode 0700) when missing; neither may be a symbolic link. $uid is the effective user id.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "unique_fd.h"
#include "volumes.h"

namespace corvel {

// Where the Trash folders are; tests give their own.
struct TrashEnvironment {
    // $XDG_DATA_HOME (absolute): the home Trash is dataHome + "/Trash". Empty: no home Trash.
    std::string dataHome;
    // The mount table; nothing: /proc/self/mountinfo is read at every look-up.
    std::optional<std::vector<MountEntry>> mountTable;

    // xdgDataHome() and the live mount table.
    static TrashEnvironment current();
};

// A Trash folder, open. Owns its descriptors.
struct TrashFolder {
    std::string path;         // the Trash folder, symbolic links resolved
    std::string topDirectory; // the mount point of the volume it serves
    bool isHomeTrash = false; // Path= in information files is absolute, not relative to topDirectory
    UniqueFd directory;       // the Trash folder itself
    UniqueFd files;           // path + "/files"
    UniqueFd info;            // path + "/info"
};

// Why no Trash folder was found or opened. reason says what was refused, for logs.
// systemError is the errno of a failure that says nothing about the volume (out of
// descriptors or memory, an input/output error, a full disk): the look-up may succeed
// when tried again. It is 0 when the volume has no usable Trash (read-only, no
// permission, a folder of the wrong kind or owner, another file system).
// damaged says the volume has a Trash folder that cannot be used as it stands (it, or
// its files/ or info/, is not a folder, or not the user's): the user may mend it, and
// deleting instead is no answer.
struct TrashFolderRefusal {
    std::string reason;
    int systemError = 0;
    bool damaged = false;
};

// Whether a system call failing with errnoValue on a Trash folder or its content means
// the volume has no usable Trash for the user, rather than a passing failure.
bool errorMeansNoTrash(int errnoValue);

// Opens the Trash folder for items whose folder is itemFolder (absolute, symbolic links
// resolved), making the folders it needs. Nothing when that volume has no usable Trash
// (none can be made: read-only, no permission, a folder of the wrong kind or owner) or
// a passing failure stopped the look-up; *refusal then says which.
std::optional<TrashFolder> openTrashFolder(const std::string& itemFolder, const TrashEnvironment& environment,
                                           TrashFolderRefusal* refusal = nullptr);

// The Trash folder openTrashFolder would use, found without making or changing
// anything: a folder that is missing counts when the user could make it, one that
// exists only when the user may write in it. Nothing when the volume has no usable Trash,
// or a passing failure stopped the look-up (*refusal as above).
std::optional<std::string> findTrashFolder(const std::string& itemFolder, const TrashEnvironment& environment,
                                           TrashFolderRefusal* refusal = nullptr);

// The path with symbolic links resolved in the part that exists; the missing rest is
// appended as it is ("/real/home/.local/share/Trash" for a Trash not made yet). Empty
// for a relative path.
std::string resolvePathAllowingMissing(const std::string& path);

// The home Trash folder as the environment names it and with its links resolved (none
// without a home Trash).
std::vector<std::string> homeTrashPlaces(const TrashEnvironment& environment);
// Whether the path names an item inside a Trash folder: inside one of homeTrash
// (homeTrashPlaces) or any account's ".local/share/Trash", or inside a folder named
// ".Trash" or ".Trash-UID" (a volume's Trash, wherever the volume is mounted). The path is read as written,
// without looking anything up. Such an item is one emptying of the Trash away from being gone.
bool liesInTrashFolder(std::string_view path, const std::vector<std::string>& homeTrash);

} // namespace corvel
