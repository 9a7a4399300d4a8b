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

void explain(std::string* whyNot, const std::string& text) {
    if (whyNot)
        *whyNot = text;
}

std::string systemReason(const std::string& path, int errnoValue) {
    return path + ": " + std::strerror(errnoValue);
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
                              std::string* whyNot) {
    const std::string path = joinPath(parentPath, name);
    struct stat st {};
    if (::fstatat(parent, name, &st, AT_SYMLINK_NOFOLLOW) != 0) {
        if (errno != ENOENT) {
            explain(whyNot, systemReason(path, errno));
            return false;
        }
        if (mode == Mode::Find) {
            if (!userMayWriteIn(parent, ".")) {
                explain(whyNot, systemReason(parentPath, errno));
                return false;
            }
            return true;
        }
        if (::mkdirat(parent, name, 0700) != 0 && errno != EEXIST) {
            explain(whyNot, systemReason(path, errno));
            return false;
        }
    } else if (!S_ISDIR(st.st_mode) || (ownerMustBe && st.st_uid != *ownerMustBe)) {
        explain(whyNot, path + (ownerMustBe ? " is not a folder of user " + std::to_string(*ownerMustBe)
                                            : " is not a folder"));
        return false;
    } else if (mode == Mode::Find && !userMayWriteIn(parent, name)) {
        explain(whyNot, systemReason(path, errno));
        return false;
    }
    UniqueFd folder(openFolderAt(parent, name));
    if (!folder.valid()) {
        explain(whyNot, systemReason(path, errno));
        return false;
    }
    // Checked again on the open folder: it may have been swapped since the look above.
    if (::fstat(folder.get(), &st) != 0 || !S_ISDIR(st.st_mode) ||
        (ownerMustBe && st.st_uid != *ownerMustBe)) {
        explain(whyNot, path + " changed while it was opened");
        return false;
    }
    *out = std::move(folder);
    return true;
}

// files/ and info/ of an open Trash folder (Open), or whether they could be used (Find:
// trashFolder is not valid when the Trash folder itself is still to be made).
[[nodiscard]] bool contentFolders(const UniqueFd& trashFolder, TrashFolder& found, Mode mode,
                                  std::string* whyNot) {
    if (mode == Mode::Find && !trashFolder.valid())
        return true;
    return realFolder(trashFolder.get(), found.path, "files", std::nullopt, mode, &found.files, whyNot) &&
           realFolder(trashFolder.get(), found.path, "info", std::nullopt, mode, &found.info, whyNot);
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
                                  std::string* whyNot) {
    struct stat item {};
    struct stat trash {};
    if (::stat(itemFolder.c_str(), &item) != 0 || ::stat(existingAncestor(trashPath).c_str(), &trash) != 0) {
        explain(whyNot, systemReason(itemFolder, errno));
        return false;
    }
    if (item.st_dev != trash.st_dev) {
        explain(whyNot, trashPath + " is on another file system than " + itemFolder);
        return false;
    }
    return true;
}

std::optional<TrashFolder> homeTrash(const std::string& resolvedHomeTrash, const std::string& volume,
                                     Mode mode, std::string* whyNot) {
    TrashFolder found;
    found.path = resolvedHomeTrash;
    found.topDirectory = volume;
    found.isHomeTrash = true;
    if (mode == Mode::Find) {
        struct stat st {};
        if (::lstat(found.path.c_str(), &st) != 0) {
            const std::string ancestor = existingAncestor(found.path);
            if (::access(ancestor.c_str(), W_OK | X_OK) != 0) {
                explain(whyNot, systemReason(ancestor, errno));
                return std::nullopt;
            }
            return found;
        }
    } else {
        CVError error;
        if (!makeDirectories(found.path, &error)) {
            explain(whyNot, error.localizedDescription());
            return std::nullopt;
        }
    }
    found.directory = UniqueFd(::open(found.path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!found.directory.valid()) {
        explain(whyNot, systemReason(found.path, errno));
        return std::nullopt;
    }
    if (!contentFolders(found.directory, found, mode, whyNot))
        return std::nullopt;
    return found;
}

std::optional<TrashFolder> volumeTrash(const std::string& top, Mode mode, std::string* whyNot) {
    const uid_t uid = ::geteuid();
    const std::string uidName = std::to_string(uid);
    UniqueFd topFolder(::open(top.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!topFolder.valid()) {
        explain(whyNot, systemReason(top, errno));
        return std::nullopt;
    }

    // $topdir/.Trash/$uid: only in a real, sticky .Trash (another user cannot then
    // rename or remove our $uid folder).
    struct stat st {};
    std::string sharedReason = joinPath(top, ".Trash") + " is missing";
    if (::fstatat(topFolder.get(), ".Trash", &st, AT_SYMLINK_NOFOLLOW) == 0) {
        UniqueFd shared(openFolderAt(topFolder.get(), ".Trash"));
        struct stat opened {};
        if (!S_ISDIR(st.st_mode) || !(st.st_mode & S_ISVTX)) {
            sharedReason = joinPath(top, ".Trash") + " is not a folder with the sticky bit";
        } else if (!shared.valid() || ::fstat(shared.get(), &opened) != 0 || opened.st_ino != st.st_ino ||
                   opened.st_dev != st.st_dev || !(opened.st_mode & S_ISVTX)) {
            sharedReason = joinPath(top, ".Trash") + " changed while it was opened";
        } else {
            TrashFolder found;
            found.path = joinPath(joinPath(top, ".Trash"), uidName);
            found.topDirectory = top;
            UniqueFd own;
            if (realFolder(shared.get(), joinPath(top, ".Trash"), uidName.c_str(), uid, mode, &own,
                           &sharedReason) &&
                contentFolders(own, found, mode, &sharedReason)) {
                found.directory = std::move(own);
                return found;
            }
        }
    }

    // $topdir/.Trash-$uid.
    TrashFolder found;
    const std::string name = ".Trash-" + uidName;
    found.path = joinPath(top, name);
    found.topDirectory = top;
    std::string reason;
    UniqueFd own;
    if (realFolder(topFolder.get(), top, name.c_str(), uid, mode, &own, &reason) &&
        contentFolders(own, found, mode, &reason)) {
        found.directory = std::move(own);
        return found;
    }
    explain(whyNot, sharedReason + "; " + reason);
    return std::nullopt;
}

std::optional<TrashFolder> locate(const std::string& itemFolder, const TrashEnvironment& environment,
                                  Mode mode, std::string* whyNot) {
    if (itemFolder.empty() || itemFolder[0] != '/') {
        explain(whyNot, "not an absolute folder: " + itemFolder);
        return std::nullopt;
    }
    const std::vector<MountEntry> table = environment.mountTable ? *environment.mountTable : readMountTable();
    const std::string volume = volumePathOfPath(itemFolder, table);
    std::optional<TrashFolder> found;
    const std::string resolvedHomeTrash = environment.dataHome.empty()
                                              ? std::string()
                                              : resolvePathAllowingMissing(environment.dataHome + "/Trash");
    if (!resolvedHomeTrash.empty() && volumePathOfPath(resolvedHomeTrash, table) == volume)
        found = homeTrash(resolvedHomeTrash, volume, mode, whyNot);
    else
        found = volumeTrash(volume, mode, whyNot);
    if (found && !sameFileSystem(itemFolder, found->path, whyNot))
        return std::nullopt;
    return found;
}

} // namespace

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
                                           std::string* whyNot) {
    return locate(itemFolder, environment, Mode::Open, whyNot);
}

std::optional<std::string> findTrashFolder(const std::string& itemFolder, const TrashEnvironment& environment,
                                           std::string* whyNot) {
    auto found = locate(itemFolder, environment, Mode::Find, whyNot);
    if (!found)
        return std::nullopt;
    return found->path;
}

} // namespace corvel
