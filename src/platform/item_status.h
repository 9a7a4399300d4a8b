#pragma once
// What one look at an item's own entry says (statx; a final symbolic link is not
// followed and nothing is automounted): its identity, kind, size, times, owner, and
// whether it is the top of a mount or locked. Callers that need several of these ask
// once, instead of once per question.

#include <cstdint>
#include <optional>

namespace corvel {

// Which item: its device and inode.
struct ItemIdentity {
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    bool operator==(const ItemIdentity&) const = default;
};

struct ItemStatus {
    std::uint32_t type = 0; // the S_IFMT bits of the mode
    std::uint32_t mode = 0; // the permission bits, sticky bit included
    std::uint64_t size = 0;
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    std::uint32_t owner = 0;
    std::int64_t modificationTime = 0; // nanoseconds since 1970
    std::int64_t changeTime = 0;       // nanoseconds since 1970; no program can set it
    // Unknown where the kernel or the file system does not say (mount facts before Linux
    // 5.8; the flags on file systems that keep none, or keep them where statx cannot see).
    std::optional<std::uint64_t> mountId;
    std::optional<bool> mountRoot;
    std::optional<bool> immutable;
    std::optional<bool> appendOnly;
};

// The entry name in the folder dirFd (AT_FDCWD: name is a path; empty: dirFd itself) into
// out; 0, or the errno value when it cannot be looked at. followLink: a final symbolic link
// is followed, for what it leads to.
int itemStatus(int dirFd, const char* name, ItemStatus& out, bool followLink = false);

// Whether the two are one item (device and inode).
inline bool sameItem(const ItemStatus& a, const ItemStatus& b) {
    return a.device == b.device && a.inode == b.inode;
}

} // namespace corvel
