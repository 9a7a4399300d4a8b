#include "trash.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

#include "file_io.h"
#include "system_log.h"
#include "trash_directory_sizes.h"
#include "trash_info.h"
#include "trash_names.h"

namespace corvel {

namespace {

constexpr unsigned kMaxAttempts = 100000;
constexpr std::size_t kMaxRememberedNames = 65536;

CVError trashError(TrashErrorCode code, const std::string& path, const std::string& description,
                   const std::string& reason = {}) {
    CVError error(kTrashErrorDomain, code, description);
    error.userInfo[kFilePathErrorKey] = path;
    if (!reason.empty())
        error.userInfo[kTrashReasonKey] = reason;
    return error;
}

CVError noTrashOnVolume(const std::string& path, const std::string& reason) {
    return trashError(kTrashErrorNoTrashOnVolume, path, "no Trash on this volume", reason);
}

// errno as a value: the system's text, after what was being done when there is more to say.
CVError systemError(int errnoValue, const std::string& path, const std::string& doing = {}) {
    const std::string text = std::strerror(errnoValue);
    CVError error(kPosixErrorDomain, errnoValue, doing.empty() ? text : doing + ": " + text);
    error.userInfo[kFilePathErrorKey] = path;
    return error;
}

// A read-only volume, or a Trash folder the user may not write in: this volume has no
// Trash for the user, which is not a fault of the item.
bool meansNoTrash(int errnoValue) {
    return errnoValue == EROFS || errnoValue == EACCES || errnoValue == EPERM;
}

std::string joinPath(const std::string& folder, const std::string& name) {
    return folder == "/" ? "/" + name : folder + "/" + name;
}

// path is folder itself or inside it.
bool isWithin(const std::string& path, const std::string& folder) {
    return path == folder || (path.starts_with(folder) && (folder == "/" || path[folder.size()] == '/'));
}

// The item a path names: its folder (absolute, symbolic links resolved) and its name.
struct ItemName {
    std::string folder;
    std::string name;
    std::string path() const { return joinPath(folder, name); }
};

bool splitItemPath(const std::string& path, ItemName& item, CVError* error) {
    const std::string name = lastPathComponent(path);
    if (path.empty() || name.empty() || name == "/" || name == "." || name == "..") {
        setError(error, trashError(kTrashErrorNotAName, path, "not the name of a file or folder"));
        return false;
    }
    char resolved[PATH_MAX];
    if (!::realpath(parentPath(path).c_str(), resolved)) {
        setError(error, systemError(errno, path));
        return false;
    }
    item.folder = resolved;
    item.name = name;
    return true;
}

// Refuses to move the Trash folder into itself, or an item out of its own Trash folder.
bool checkPlace(const std::string& path, const ItemName& item, const std::string& trashFolder,
                CVError* error) {
    const std::string itemPath = item.path();
    if (isWithin(itemPath, trashFolder)) {
        setError(error, trashError(kTrashErrorInTrash, path, "is in the Trash already"));
        return false;
    }
    if (isWithin(trashFolder, itemPath)) {
        setError(error, trashError(kTrashErrorHoldsTrash, path, "holds the Trash folder " + trashFolder));
        return false;
    }
    return true;
}

// Path= of the information file: absolute for the home Trash, relative to the volume's
// top folder otherwise.
std::string originalPath(const ItemName& item, const TrashFolder& trash) {
    const std::string itemPath = item.path();
    if (trash.isHomeTrash)
        return itemPath;
    if (trash.topDirectory == "/")
        return itemPath.substr(1);
    return itemPath.substr(trash.topDirectory.size() + 1);
}

} // namespace

Trash::Trash(TrashEnvironment environment) : m_environment(std::move(environment)) {}

unsigned Trash::firstAttempt(const std::string& key) {
    std::lock_guard lock(m_mutex);
    const auto it = m_nextAttempt.find(key);
    return it == m_nextAttempt.end() ? 1 : it->second;
}

void Trash::rememberAttempt(const std::string& key, unsigned attempt) {
    std::lock_guard lock(m_mutex);
    if (m_nextAttempt.size() >= kMaxRememberedNames)
        m_nextAttempt.clear();
    m_nextAttempt[key] = attempt;
}

bool Trash::moveToTrash(const std::string& path, TrashedItem* trashed, CVError* error,
                        const std::optional<TrashItemIdentity>& expected) {
    ItemName item;
    if (!splitItemPath(path, item, error))
        return false;
    // O_PATH: moving an item out of a folder needs write and search permission, not read.
    UniqueFd folder(::open(item.folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    struct stat itemStat {};
    if (!folder.valid() || ::fstatat(folder.get(), item.name.c_str(), &itemStat, AT_SYMLINK_NOFOLLOW) != 0) {
        setError(error, systemError(errno, path));
        return false;
    }
    const auto isExpected = [&](const struct stat& st) {
        return !expected || (static_cast<std::uint64_t>(st.st_dev) == expected->device &&
                             static_cast<std::uint64_t>(st.st_ino) == expected->inode);
    };
    if (!isExpected(itemStat)) {
        setError(error, trashError(kTrashErrorItemChanged, path, "changed since the scan"));
        return false;
    }

    // Refused before anything is made: the home Trash would be made inside the item.
    if (!m_environment.dataHome.empty()) {
        const std::string homeTrash = resolvePathAllowingMissing(m_environment.dataHome + "/Trash");
        if (!homeTrash.empty() && isWithin(homeTrash, item.path())) {
            setError(error, trashError(kTrashErrorHoldsTrash, path, "holds the Trash folder " + homeTrash));
            return false;
        }
    }

    std::string whyNot;
    std::optional<TrashFolder> trash = openTrashFolder(item.folder, m_environment, &whyNot);
    if (!trash) {
        systemLog("Trash: no Trash for " + path + ": " + whyNot);
        setError(error, noTrashOnVolume(path, whyNot));
        return false;
    }
    if (!checkPlace(path, item, trash->path, error))
        return false;

    const std::string infoText = trashInfoText(originalPath(item, *trash), std::time(nullptr));
    const bool isFolder = S_ISDIR(itemStat.st_mode);
    const std::string hintKey = trash->path + '\0' + item.name;
    const unsigned first = firstAttempt(hintKey);
    for (unsigned attempt = first; attempt < first + kMaxAttempts; ++attempt) {
        const std::string entry = trashEntryName(item.name, attempt, !isFolder);
        // An entry in files/ without its information file (left by a crash of some
        // program) keeps its name too.
        struct stat taken {};
        if (::fstatat(trash->files.get(), entry.c_str(), &taken, AT_SYMLINK_NOFOLLOW) == 0)
            continue;
        if (errno != ENOENT) {
            setError(error, systemError(errno, path, "cannot use the name " + entry + " in the Trash"));
            return false;
        }

        // 1. Claim the name.
        const std::string infoName = entry + ".trashinfo";
        UniqueFd info(::openat(trash->info.get(), infoName.c_str(),
                               O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
        if (!info.valid()) {
            const int saved = errno;
            if (saved == EEXIST)
                continue;
            if (meansNoTrash(saved)) {
                const std::string reason = trash->path + "/info: " + std::strerror(saved);
                systemLog("Trash: no Trash for " + path + ": " + reason);
                setError(error, noTrashOnVolume(path, reason));
            } else {
                setError(error, systemError(saved, path, "cannot create the Trash information file"));
            }
            return false;
        }

        // 2. Write it and make it durable before the item moves.
        struct stat infoStat {};
        if (!writeAll(info.get(), infoText) || ::fsync(info.get()) != 0 ||
            ::fstat(info.get(), &infoStat) != 0 || !info.close() || ::fsync(trash->info.get()) != 0) {
            const int saved = errno;
            info.reset();
            ::unlinkat(trash->info.get(), infoName.c_str(), 0);
            ::fsync(trash->info.get());
            setError(error, systemError(saved, path, "cannot write the Trash information file"));
            return false;
        }

        // 3. Move the item; never over an entry that is there.
        if (m_beforeMove)
            m_beforeMove(trash->path + "/files/" + entry);
        struct stat now {};
        if (expected && (::fstatat(folder.get(), item.name.c_str(), &now, AT_SYMLINK_NOFOLLOW) != 0 ||
                         !isExpected(now))) {
            ::unlinkat(trash->info.get(), infoName.c_str(), 0);
            ::fsync(trash->info.get());
            setError(error, trashError(kTrashErrorItemChanged, path, "changed since the scan"));
            return false;
        }
        if (::renameat2(folder.get(), item.name.c_str(), trash->files.get(), entry.c_str(),
                        RENAME_NOREPLACE) != 0) {
            const int saved = errno;
            if (::unlinkat(trash->info.get(), infoName.c_str(), 0) != 0)
                systemLog("Trash: cannot remove " + trash->path + "/info/" + infoName +
                          " after a failed move: " + std::strerror(errno));
            ::fsync(trash->info.get());
            if (saved == EEXIST)
                continue;
            if (saved == EXDEV || saved == EROFS) {
                const std::string reason =
                    std::string("rename to ") + trash->path + "/files: " + std::strerror(saved);
                systemLog("Trash: no Trash for " + path + ": " + reason);
                setError(error, noTrashOnVolume(path, reason));
            } else {
                setError(error, systemError(saved, path));
            }
            return false;
        }
        rememberAttempt(hintKey, attempt + 1);

        TrashedItem done;
        done.trashDirectory = trash->path;
        done.trashFile = trash->path + "/files/" + entry;
        done.trashInfo = trash->path + "/info/" + infoName;
        // 4. The size cache; the move stands whatever happens here.
        if (isFolder) {
            CVError sizeError;
            if (!recordTrashedFolderSize(trash->directory.get(), trash->path, entry,
                                         diskUsageOfTree(done.trashFile),
                                         static_cast<std::int64_t>(infoStat.st_mtim.tv_sec), &sizeError))
                systemLog("Trash: " + sizeError.localizedDescription());
        }
        if (trashed)
            *trashed = std::move(done);
        return true;
    }
    setError(error, trashError(kTrashErrorNoFreeName, path, "no free name in the Trash"));
    return false;
}

std::optional<std::string> Trash::trashDirectoryFor(const std::string& path, CVError* error) const {
    ItemName item;
    if (!splitItemPath(path, item, error))
        return std::nullopt;
    struct stat itemStat {};
    if (::lstat(item.path().c_str(), &itemStat) != 0) {
        setError(error, systemError(errno, path));
        return std::nullopt;
    }
    std::string whyNot;
    std::optional<std::string> folder = findTrashFolder(item.folder, m_environment, &whyNot);
    if (!folder) {
        setError(error, noTrashOnVolume(path, whyNot));
        return std::nullopt;
    }
    if (!checkPlace(path, item, *folder, error))
        return std::nullopt;
    return folder;
}

} // namespace corvel
