#include "item_status.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

namespace corvel {

namespace {

std::int64_t nanoseconds(const struct statx_timestamp& t) {
    return t.tv_sec * std::int64_t{1000000000} + t.tv_nsec;
}

std::optional<bool> attribute(const struct statx& stx, std::uint64_t which) {
    if ((stx.stx_attributes_mask & which) == 0)
        return std::nullopt;
    return (stx.stx_attributes & which) != 0;
}

} // namespace

int itemStatus(int dirFd, const char* name, ItemStatus& out, bool followLink) {
    struct statx stx {};
    const int flags =
        AT_NO_AUTOMOUNT | (followLink ? 0 : AT_SYMLINK_NOFOLLOW) | (name[0] == '\0' ? AT_EMPTY_PATH : 0);
    if (::statx(dirFd, name, flags, STATX_BASIC_STATS | STATX_MNT_ID, &stx) != 0)
        return errno;
    out.type = stx.stx_mode & S_IFMT;
    out.mode = stx.stx_mode & ~S_IFMT;
    out.size = stx.stx_size;
    out.device = makedev(stx.stx_dev_major, stx.stx_dev_minor);
    out.inode = stx.stx_ino;
    out.owner = stx.stx_uid;
    out.modificationTime = nanoseconds(stx.stx_mtime);
    out.changeTime = nanoseconds(stx.stx_ctime);
    out.mountId =
        (stx.stx_mask & STATX_MNT_ID) != 0 ? std::optional<std::uint64_t>(stx.stx_mnt_id) : std::nullopt;
    out.mountRoot = attribute(stx, STATX_ATTR_MOUNT_ROOT);
    out.immutable = attribute(stx, STATX_ATTR_IMMUTABLE);
    out.appendOnly = attribute(stx, STATX_ATTR_APPEND);
    return 0;
}

} // namespace corvel
