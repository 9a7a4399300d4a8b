#include "file_access.h"

#include <cerrno>
#include <cstdint>
#include <fcntl.h>
#include <linux/capability.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "file_io.h"
#include "item_status.h"
#include "unique_fd.h"

namespace corvel {

namespace {

// Opens without following a final symbolic link and without blocking on devices or fifos.
int openForFlags(const std::string& path) {
    return ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY);
}

std::optional<int> readFlags(const std::string& path) {
    struct stat st {};
    if (::lstat(path.c_str(), &st) != 0 || !(S_ISREG(st.st_mode) || S_ISDIR(st.st_mode)))
        return std::nullopt;
    const int fd = openForFlags(path);
    if (fd < 0)
        return std::nullopt;
    int flags = 0;
    const int rc = ::ioctl(fd, FS_IOC_GETFLAGS, &flags);
    ::close(fd);
    if (rc != 0)
        return std::nullopt;
    return flags;
}

// The immutable and append-only attributes, which statx reports without opening the item
// (file systems that keep no such flags report them as unknown, taken as unset here).
bool forbidsRemoval(const ItemStatus& st) {
    return st.immutable.value_or(false) || st.appendOnly.value_or(false);
}

} // namespace

FolderRemovalAccess folderRemovalAccess(const std::string& folder) {
    FolderRemovalAccess access;
    if (::access(folder.c_str(), W_OK | X_OK) != 0) {
        access.refusal = errno;
        return access;
    }
    ItemStatus dir;
    if (itemStatus(AT_FDCWD, folder.c_str(), dir, /*followLink*/ true) != 0)
        return access;
    access.usable = !forbidsRemoval(dir);
    access.sticky = (dir.mode & S_ISVTX) != 0;
    access.owner = dir.owner;
    return access;
}

ItemRemovalAccess itemRemovalAccess(const ItemStatus& status) {
    // A link's own flags do not lock it; only files and folders carry them.
    const bool flagged = status.type == S_IFREG || status.type == S_IFDIR;
    return ItemRemovalAccess{true, status.owner, flagged && forbidsRemoval(status)};
}

ItemRemovalAccess itemRemovalAccess(const std::string& path) {
    ItemStatus item;
    return itemStatus(AT_FDCWD, path.c_str(), item) == 0 ? itemRemovalAccess(item) : ItemRemovalAccess{};
}

bool isDeletableByUser(const ItemRemovalAccess& item, const FolderRemovalAccess& folder) {
    if (!folder.usable || !item.exists || item.locked)
        return false;
    if (!folder.sticky)
        return true;
    const uid_t uid = ::geteuid();
    return uid == 0 || uid == item.owner || uid == folder.owner;
}

bool isDeletableByUser(const std::string& path, const FolderRemovalAccess& folder) {
    return folder.usable && isDeletableByUser(itemRemovalAccess(path), folder);
}

bool isDeletableByUser(const std::string& path) {
    return isDeletableByUser(path, folderRemovalAccess(parentPath(path)));
}

int removalRefusal(const std::string& path) {
    return removalRefusal(path, folderRemovalAccess(parentPath(path)));
}

int removalRefusal(const std::string& path, const FolderRemovalAccess& folder) {
    if (folder.refusal != 0)
        return folder.refusal;
    ItemRemovalAccess item = itemRemovalAccess(path);
    if (!item.exists)
        return ENOENT;
    if (mayChangeImmutableFlags())
        item.locked = false;
    return isDeletableByUser(item, folder) ? 0 : EPERM;
}

int folderMoveRefusal(const std::string& folder) {
    return ::access(folder.c_str(), W_OK) == 0 ? 0 : errno;
}

bool mayChangeImmutableFlags() {
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct data[_LINUX_CAPABILITY_U32S_3]{};
    if (::syscall(SYS_capget, &header, data) != 0)
        return ::geteuid() == 0;
    return (data[CAP_TO_INDEX(CAP_LINUX_IMMUTABLE)].effective & CAP_TO_MASK(CAP_LINUX_IMMUTABLE)) != 0;
}

std::optional<bool> isImmutable(const std::string& path) {
    // statx answers without opening the item where the file system reports the flag
    // (ext4, btrfs, XFS); elsewhere the flags are asked of an open descriptor.
    ItemStatus status;
    if (itemStatus(AT_FDCWD, path.c_str(), status) != 0)
        return std::nullopt;
    if (status.type != S_IFREG && status.type != S_IFDIR)
        return std::nullopt;
    if (status.immutable)
        return status.immutable;
    const auto flags = readFlags(path);
    if (!flags)
        return std::nullopt;
    return (*flags & FS_IMMUTABLE_FL) != 0;
}

UniqueFd openForFlagChange(const std::string& path, std::optional<ItemIdentity> expected, CVError* error) {
    UniqueFd fd(openForFlags(path));
    if (!fd.valid()) {
        setError(error, posixError(errno, path, "Cannot open"));
        return fd;
    }
    struct stat st {};
    if (expected &&
        (::fstat(fd.get(), &st) != 0 || st.st_dev != expected->device || st.st_ino != expected->inode)) {
        CVError stale(kPosixErrorDomain, ESTALE, path + " leads to another item than the one checked");
        stale.userInfo[kFilePathErrorKey] = path;
        setError(error, stale);
        return UniqueFd();
    }
    return fd;
}

bool setImmutable(int fd, const std::string& path, bool immutable, CVError* error) {
    int flags = 0;
    if (::ioctl(fd, FS_IOC_GETFLAGS, &flags) != 0) {
        setError(error, posixError(errno, path, "Cannot read the flags of"));
        return false;
    }
    flags = immutable ? (flags | FS_IMMUTABLE_FL) : (flags & ~FS_IMMUTABLE_FL);
    if (::ioctl(fd, FS_IOC_SETFLAGS, &flags) != 0) {
        setError(error, posixError(errno, path, "Cannot change the flags of"));
        return false;
    }
    return true;
}

bool setImmutable(const std::string& path, bool immutable, CVError* error,
                  std::optional<ItemIdentity> expected) {
    const UniqueFd fd = openForFlagChange(path, expected, error);
    return fd.valid() && setImmutable(fd.get(), path, immutable, error);
}

} // namespace corvel
