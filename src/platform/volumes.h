#pragma once
// Volumes (mount points) from the kernel's mount table.

#include <string>
#include <string_view>
#include <vector>

#include "item_status.h"

namespace corvel {

struct MountEntry {
    std::string mountPoint;
    std::string fileSystemType;
    std::string source;
};

// The entries of a mountinfo file (default: this process's). Escaped characters in
// mount points (\040 for a space) are decoded; malformed lines are skipped. Empty when
// the file cannot be read.
std::vector<MountEntry> readMountTable(const std::string& mountInfoPath = "/proc/self/mountinfo");

// The mount point whose path is the longest prefix of the absolute path, by whole
// components ("/" at least). The path is taken as given: symbolic links are not resolved.
std::string volumePathOfPath(std::string_view path, const std::vector<MountEntry>& table);
std::string volumePathOfPath(std::string_view path);

// Whether the item at path (a link itself, not what it points to) is the top of a mount:
// a mounted volume, or a folder or file bind-mounted there. Removing such an item can
// only empty what is mounted there, which may lie outside every folder the user named.
// False when the item cannot be examined.
bool isMountRoot(const std::string& path);
// The same of an item whose status was just taken (itemStatus).
bool isMountRoot(const std::string& path, const ItemStatus& status);

// False for network and user-space (FUSE) file systems and for paths that cannot be
// examined; true for disks, removable media, tmpfs and the like.
bool isLocalVolume(const std::string& path);

} // namespace corvel
