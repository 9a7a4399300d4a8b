// The removal pass's clean-up: a folder a removal emptied goes too (RemoveEmptyFolders).
//
// A folder is taken only through what the removal saw. The removal reports the folder it
// took the copy from (its device and inode, from the descriptor it removed through); the
// clean-up opens the copy's folder path without following a link at its end and goes on
// only when that is the same folder. A folder of the path swapped for a link or for
// another folder meanwhile therefore leads nowhere: the folder it leads to now is never
// read, emptied or removed. The folder is then deleted through the folder holding it now
// (its name there checked again), or moved to the Trash with its identity checked just
// before the move.

#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/file_access.h"
#include "platform/file_dates.h"
#include "platform/file_io.h"
#include "platform/trash.h"
#include "platform/unique_fd.h"
#include "platform/volumes.h"
#include "removal_pass.h"

namespace corvel {

namespace {

bool isFolder(const struct stat& st, const TrashItemIdentity& identity) {
    return S_ISDIR(st.st_mode) && static_cast<std::uint64_t>(st.st_dev) == identity.device &&
           static_cast<std::uint64_t>(st.st_ino) == identity.inode;
}

} // namespace

bool CVRemovalPass::parentMayBeCleaned(const std::string& folder) const {
    if (folder.empty() || folder == "/")
        return false;
    for (const auto& root : m_options.scanRoots)
        if (root == folder || root.starts_with(folder + "/"))
            return false;
    if (isMountRoot(folder))
        return false; // a mount point (a bind mount too)
    if (takesProtectedFolder(folder))
        return false;
    return isDeletableByUser(folder);
}

bool CVRemovalPass::isEmptyForCleanUp(int folderFd, const std::string& folder,
                                      TrashItemIdentity* identity) const {
    // The status first: an entry made after it changes the folder's modification time.
    struct stat st {};
    if (::fstat(folderFd, &st) != 0 || !S_ISDIR(st.st_mode))
        return false;
    *identity = {static_cast<std::uint64_t>(st.st_dev), static_cast<std::uint64_t>(st.st_ino), std::nullopt,
                 nanosecondsSince1970(st.st_mtim), nanosecondsSince1970(st.st_ctim)};
    // A listing through a descriptor of its own (closedir closes it).
    const int listed = ::openat(folderFd, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    DIR* dir = listed < 0 ? nullptr : ::fdopendir(listed);
    if (!dir) {
        if (listed >= 0)
            ::close(listed);
        return false;
    }
    bool empty = true;
    while (const dirent* entry = ::readdir(dir)) {
        const std::string_view name = entry->d_name;
        if (name == "." || name == "..")
            continue;
        const std::string path = folder + "/" + std::string(name);
        // Only a plain file is a leftover: a folder or link of that name is the user's.
        struct stat leftover {};
        if (name == kCleanUpLeftoverName && !m_groupedLeftovers.contains(path) &&
            ::fstatat(::dirfd(dir), entry->d_name, &leftover, AT_SYMLINK_NOFOLLOW) == 0 &&
            S_ISREG(leftover.st_mode))
            continue;
        // A dry run removes nothing: what it would remove counts as gone.
        if (m_options.dryRun && m_gone.contains(path))
            continue;
        empty = false;
        break;
    }
    ::closedir(dir);
    return empty;
}

bool CVRemovalPass::deleteEmptiedFolder(int folderFd, const std::string& folder,
                                        const TrashItemIdentity& identity) const {
    // The folder holding it now, where its name must still be this folder.
    const std::string name = lastPathComponent(folder);
    UniqueFd holder(::openat(folderFd, "..", O_PATH | O_DIRECTORY | O_CLOEXEC));
    struct stat there {};
    const auto stillThere = [&] {
        return ::fstatat(holder.get(), name.c_str(), &there, AT_SYMLINK_NOFOLLOW) == 0 &&
               isFolder(there, identity);
    };
    if (!holder.valid() || !stillThere())
        return false;
    if (m_options.beforeDelete)
        m_options.beforeDelete(folder);
    // Never a recursive delete: only the leftover, then the empty folder, so a file that
    // arrived meanwhile keeps its folder.
    const std::string leftoverName(kCleanUpLeftoverName);
    struct stat leftover {};
    if (::fstatat(folderFd, leftoverName.c_str(), &leftover, AT_SYMLINK_NOFOLLOW) == 0 &&
        S_ISREG(leftover.st_mode))
        ::unlinkat(folderFd, leftoverName.c_str(), 0);
    return stillThere() && ::unlinkat(holder.get(), name.c_str(), AT_REMOVEDIR) == 0;
}

UniqueFd CVRemovalPass::openFolderToClean(const std::string& folder,
                                          const std::optional<FolderIdentity>& removedFrom,
                                          TrashItemIdentity* identity) const {
    if (!parentMayBeCleaned(folder))
        return {};
    UniqueFd opened(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat st {};
    if (!opened.valid() || ::fstat(opened.get(), &st) != 0)
        return {};
    // The folder the copy left, or nothing: the path may lead elsewhere by now.
    if (removedFrom && (static_cast<std::uint64_t>(st.st_dev) != removedFrom->device ||
                        static_cast<std::uint64_t>(st.st_ino) != removedFrom->inode))
        return {};
    if (!isEmptyForCleanUp(opened.get(), folder, identity))
        return {};
    return opened;
}

void CVRemovalPass::noteParentFolderIfEmpty(const std::string& removedPath) {
    const std::string folder = parentPath(removedPath);
    TrashItemIdentity identity;
    if (openFolderToClean(folder, std::nullopt, &identity).valid()) {
        countAsGone(folder);
        m_removedFolders.push_back(folder);
    }
}

void CVRemovalPass::removeParentFolderIfEmpty(const std::string& removedPath, bool moveToTrashFlag,
                                              const FolderIdentity& removedFrom) {
    const std::string folder = parentPath(removedPath);
    TrashItemIdentity identity;
    const UniqueFd opened = openFolderToClean(folder, removedFrom, &identity);
    if (!opened.valid())
        return;
    // Checked again just before the move or the removal: a folder that gained an entry
    // since it was read (a new modification time) stays where it is, with the entry.
    const bool removed = moveToTrashFlag ? m_services.trash.moveToTrash(folder, nullptr, nullptr, identity)
                                         : deleteEmptiedFolder(opened.get(), folder, identity);
    if (removed) {
        countAsGone(folder);
        m_removedFolders.push_back(folder);
    }
}

} // namespace corvel
