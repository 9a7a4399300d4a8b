#include "trash_folder.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "file_io.h"
#include "user_paths.h"

namespace corvel {

namespace {

enum class Mode { Open, Find };

// A refusal that is the volume's: no usable Trash there.
void explain(TrashFolderRefusal* refusal, const std::string& text, bool damaged = false) {
    if (refusal) {
        refusal->reason = text;
        refusal->systemError = 0;
        refusal->damaged = damaged;
    }
}

// A system call on path failed with errnoValue: the volume's refusal, or a passing failure.
void explainFailure(TrashFolderRefusal* refusal, const std::string& path, int errnoValue) {
    if (refusal) {
        refusal->reason = path + ": " + std::strerror(errnoValue);
        refusal->systemError = errorMeansNoTrash(errnoValue) ? 0 : errnoValue;
        refusal->damaged = false;
    }
}

std::string joinPath(const std::string& folder, const std::string& name) {
    return folder == "/" ? "/" + name : folder + "/" + name;
}

int openFolderAt(int parent, const char* name) {
    return ::openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
}

bool userMayWriteIn(int parent, const char* name) {
    return ::faccessat(parent, name, W_OK | X_OK, AT_EACCESS) == 0;
}

// name in parent is, or (Open) has just been made, a real folder; with ownerMustBe set,
// one the given user owns. *out gets it open. In Find mode nothing is made: a missing
// folder counts when the user may make it (*out stays closed), an existing one when the
// user may write in it.
[[nodiscard]] bool realFolder(int parent, const std::string& parentPath, const char* name,
                              std::optional<uid_t> ownerMustBe, Mode mode, UniqueFd* out,
                              TrashFolderRefusal* refusal) {
    const std::string path = joinPath(parentPath, name);
    struct stat st {};
    if (::fstatat(parent, name, &st, AT_SYMLINK_NOFOLLOW) != 0) {
        if (errno != ENOENT) {
            explainFailure(refusal, path, errno);
            return false;
        }
        if (mode == Mode::Find) {
            if (!userMayWriteIn(parent, ".")) {
                explainFailure(refusal, parentPath, errno);
                return false;
            }
            return true;
        }
        if (::mkdirat(parent, name, 0700) != 0 && errno != EEXIST) {
            explainFailure(refusal, path, errno);
            return false;
        }
    } else if (!S_ISDIR(st.st_mode) || (ownerMustBe && st.st_uid != *ownerMustBe)) {
        const std::string what = S_ISLNK(st.st_mode)    ? " is a symbolic link, not a folder"
                                 : !S_ISDIR(st.st_mode) ? " is not a folder"
                                                        : " belongs to user " + std::to_string(st.st_uid) +
                                                              ", not to user " + std::to_string(*ownerMustBe);
        explain(refusal, path + what, true);
        return false;
    } else if (mode == Mode::Find && !userMayWriteIn(parent, name)) {
        explainFailure(refusal, path, errno);
        return false;
    }
    UniqueFd folder(openFolderAt(parent, name));
    if (!folder.valid()) {
        explainFailure(refusal, path, errno);
        return false;
    }
    // Checked again on the open folder: it may have been swapped since the look above.
    if (::fstat(folder.get(), &st) != 0 || !S_ISDIR(st.st_mode) ||
        (ownerMustBe && st.st_uid != *ownerMustBe)) {
        explain(refusal, path + " changed while it was opened");
        return false;
    }
    *out = std::move(folder);
    return true;
}

// files/ and info/ of an open Trash folder (Open), or whether they could be used (Find:
// trashFolder is not valid when the Trash folder itself is still to be made).
[[nodiscard]] bool contentFolders(const UniqueFd& trashFolder, TrashFolder& found, Mode mode,
                                  TrashFolderRefusal* refusal) {
    if (mode == Mode::Find && !trashFolder.valid())
        return true;
    return realFolder(trashFolder.get(), found.path, "files", std::nullopt, mode, &found.files, refusal) &&
           realFolder(trashFolder.get(), found.path, "info", std::nullopt, mode, &found.info, refusal);
}

// The deepest folder of path that exists.
std::string existingAncestor(std::string path) {
    struct stat st {};
    while (path.size() > 1 && ::lstat(path.c_str(), &st) != 0)
        path = parentPath(path);
    return path;
}

// The Trash must be on the item's file system: rename(2) cannot leave it.
[[nodiscard]] bool sameFileSystem(const std::string& itemFolder, const std::string& trashPath,
                                  TrashFolderRefusal* refusal) {
    struct stat item {};
    struct stat trash {};
    if (::stat(itemFolder.c_str(), &item) != 0 || ::stat(existingAncestor(trashPath).c_str(), &trash) != 0) {
        explainFailure(refusal, itemFolder, errno);
        return false;
    }
    if (item.st_dev != trash.st_dev) {
        explain(refusal, trashPath + " is on another file system than " + itemFolder);
        return false;
    }
    return true;
}

// A refusal at the home Trash is the Trash's own damage when something else than a folder
// stands at its path (a file, a link that leads nowhere).
void noteDamage(TrashFolderRefusal* refusal, const std::string& path) {
    struct stat st {};
    if (refusal && refusal->systemError == 0 && ::lstat(path.c_str(), &st) == 0 && !S_ISDIR(st.st_mode))
        refusal->damaged = true;
}

std::optional<TrashFolder> homeTrash(const std::string& resolvedHomeTrash, const std::string& volume,
                                     Mode mode, TrashFolderRefusal* refusal) {
    TrashFolder found;
    found.path = resolvedHomeTrash;
    found.topDirectory = volume;
    found.isHomeTrash = true;
    if (mode == Mode::Find) {
        struct stat st {};
        if (::lstat(found.path.c_str(), &st) != 0) {
            const std::string ancestor = existingAncestor(found.path);
            if (::access(ancestor.c_str(), W_OK | X_OK) != 0) {
                explainFailure(refusal, ancestor, errno);
                return std::nullopt;
            }
            return found;
        }
    } else {
        CVError error;
        if (!makeDirectories(found.path, &error)) {
            if (error.domain == kPosixErrorDomain)
                explainFailure(refusal, found.path, static_cast<int>(error.code));
            else
                explain(refusal, error.localizedDescription());
            noteDamage(refusal, found.path);
            return std::nullopt;
        }
    }
    found.directory = UniqueFd(::open(found.path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!found.directory.valid()) {
        explainFailure(refusal, found.path, errno);
        noteDamage(refusal, found.path);
        return std::nullopt;
    }
    if (!contentFolders(found.directory, found, mode, refusal))
        return std::nullopt;
    return found;
}

std::optional<TrashFolder> volumeTrash(const std::string& top, Mode mode, TrashFolderRefusal* refusal) {
    const uid_t uid = ::geteuid();
    const std::string uidName = std::to_string(uid);
    UniqueFd topFolder(::open(top.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!topFolder.valid()) {
        explainFailure(refusal, top, errno);
        return std::nullopt;
    }

    // $topdir/.Trash/$uid: only in a real, sticky .Trash (another user cannot then
    // rename or remove our $uid folder).
    struct stat st {};
    TrashFolderRefusal shared{joinPath(top, ".Trash") + " is missing"};
    if (::fstatat(topFolder.get(), ".Trash", &st, AT_SYMLINK_NOFOLLOW) != 0) {
        if (errno != ENOENT)
            explainFailure(&shared, joinPath(top, ".Trash"), errno);
    } else if (!S_ISDIR(st.st_mode) || !(st.st_mode & S_ISVTX)) {
        shared.reason = joinPath(top, ".Trash") + " is not a folder with the sticky bit";
    } else if (UniqueFd sharedFolder(openFolderAt(topFolder.get(), ".Trash")); !sharedFolder.valid()) {
        explainFailure(&shared, joinPath(top, ".Trash"), errno);
    } else if (struct stat opened{}; ::fstat(sharedFolder.get(), &opened) != 0 ||
                                     opened.st_ino != st.st_ino || opened.st_dev != st.st_dev ||
                                     !(opened.st_mode & S_ISVTX)) {
        shared.reason = joinPath(top, ".Trash") + " changed while it was opened";
    } else {
        TrashFolder found;
        found.path = joinPath(joinPath(top, ".Trash"), uidName);
        found.topDirectory = top;
        UniqueFd own;
        if (realFolder(sharedFolder.get(), joinPath(top, ".Trash"), uidName.c_str(), uid, mode, &own,
                       &shared) &&
            contentFolders(own, found, mode, &shared)) {
            found.directory = std::move(own);
            return found;
        }
    }
    // A passing failure is not a refusal: the shared Trash may serve when tried again, and
    // items are not to be spread over two Trash folders because of it.
    if (shared.systemError != 0) {
        if (refusal)
            *refusal = shared;
        return std::nullopt;
    }

    // $topdir/.Trash-$uid.
    TrashFolder found;
    const std::string name = ".Trash-" + uidName;
    found.path = joinPath(top, name);
    found.topDirectory = top;
    TrashFolderRefusal own;
    UniqueFd ownFolder;
    if (realFolder(topFolder.get(), top, name.c_str(), uid, mode, &ownFolder, &own) &&
        contentFolders(ownFolder, found, mode, &own)) {
        found.directory = std::move(ownFolder);
        return found;
    }
    if (refusal)
        *refusal = TrashFolderRefusal{shared.reason + "; " + own.reason, own.systemError, own.damaged};
    return std::nullopt;
}

std::optional<TrashFolder> locate(const std::string& itemFolder, const TrashEnvironment& environment,
                                  Mode mode, TrashFolderRefusal* refusal) {
    if (itemFolder.empty() || itemFolder[0] != '/') {
        explain(refusal, "not an absolute folder: " + itemFolder);
        return std::nullopt;
    }
    std::vector<MountEntry> table;
    if (environment.mountTable) {
        table = *environment.mountTable;
    } else {
        errno = 0;
        table = readMountTable();
        // Without the table every path would seem to be on the root volume; a table that
        // could not be read for want of descriptors or memory stops the look-up instead.
        if (table.empty() && errno != 0 && !errorMeansNoTrash(errno)) {
            explainFailure(refusal, "/proc/self/mountinfo", errno);
            return std::nullopt;
        }
    }
    const std::string volume = volumePathOfPath(itemFolder, table);
    std::optional<TrashFolder> found;
    const std::string resolvedHomeTrash = environment.dataHome.empty()
                                              ? std::string()
                                              : resolvePathAllowingMissing(environment.dataHome + "/Trash");
    if (!resolvedHomeTrash.empty() && volumePathOfPath(resolvedHomeTrash, table) == volume)
        found = homeTrash(resolvedHomeTrash, volume, mode, refusal);
    else
        found = volumeTrash(volume, mode, refusal);
    if (found && !sameFileSystem(itemFolder, found->path, refusal))
        return std::nullopt;
    return found;
}

} // namespace

bool errorMeansNoTrash(int errnoValue) {
    switch (errnoValue) {
    case EROFS:  // a read-only volume
    case EACCES: // no permission
    case EPERM:
    case ENOTDIR: // something else than a folder where one must be
    case ELOOP:   // a symbolic link where a real folder must be
    case ENOENT:  // a folder that vanished
    case EXDEV:   // another file system
        return true;
    default:
        return false;
    }
}

std::vector<std::string> homeTrashPlaces(const TrashEnvironment& environment) {
    if (environment.dataHome.empty())
        return {};
    const std::string home = environment.dataHome + "/Trash";
    return {home, resolvePathAllowingMissing(home)};
}

bool liesInTrashFolder(std::string_view path, const std::vector<std::string>& homeTrash) {
    for (const std::string& folder : homeTrash)
        if (path.size() > folder.size() && path.starts_with(folder) && path[folder.size()] == '/')
            return true;
    // Any account's home Trash where the standard places it.
    if (path.find("/.local/share/Trash/") != std::string_view::npos)
        return true;
    const std::string_view prefix = ".Trash-";
    for (std::size_t start = 0; start < path.size();) {
        const std::size_t end = std::min(path.find('/', start), path.size());
        const std::string_view part = path.substr(start, end - start);
        const std::string_view uid =
            part.starts_with(prefix) ? part.substr(prefix.size()) : std::string_view();
        const bool isTrash = part == ".Trash" ||
                             (!uid.empty() && uid.find_first_not_of("0123456789") == std::string_view::npos);
        if (isTrash && end < path.size()) // a folder above the item, not the item itself
            return true;
        start = end + 1;
    }
    return false;
}

TrashEnvironment TrashEnvironment::current() {
    TrashEnvironment environment;
    environment.dataHome = xdgDataHome();
    return environment;
}

std::string resolvePathAllowingMissing(const std::string& path) {
    if (path.empty() || path[0] != '/')
        return {};
    std::string existing = path;
    std::string rest;
    for (;;) {
        char resolved[PATH_MAX];
        if (::realpath(existing.c_str(), resolved))
            return rest.empty() ? std::string(resolved) : joinPath(resolved, rest);
        if (existing == "/")
            return path;
        const std::string name = lastPathComponent(existing);
        rest = rest.empty() ? name : name + "/" + rest;
        existing = parentPath(existing);
    }
}

std::optional<TrashFolder> openTrashFolder(const std::string& itemFolder, const TrashEnvironment& environment,
                                           TrashFolderRefusal* refusal) {
    return locate(itemFolder, environment, Mode::Open, refusal);
}

std::optional<std::string> findTrashFolder(const std::string& itemFolder, const TrashEnvironment& environment,
                                           TrashFolderRefusal* refusal) {
    auto found = locate(itemFolder, environment, Mode::Find, refusal);
    if (!found)
        return std::nullopt;
    return found->path;
}

} // namespace corvel
