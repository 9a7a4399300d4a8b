#include "trash.h"

#include <algorithm>
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

#include "file_dates.h"
#include "file_io.h"
#include "system_log.h"
#include "trash_directory_sizes.h"
#include "trash_info.h"
#include "trash_names.h"

namespace corvel {

// The item a path names: its folder (absolute, symbolic links resolved) and its name.
struct TrashItemName {
    std::string folder;
    std::string name;
    std::string path() const;
};

namespace {

constexpr unsigned kMaxAttempts = 100000;
constexpr std::size_t kMaxRememberedNames = 65536;
// Up to this many information files in one sync are each fsync'ed; more are flushed with
// one syncfs(2) of their volume.
constexpr std::size_t kSyncEachUpTo = 8;

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

// The failure to find or open the Trash folder of the item at path: "no Trash on this
// volume"; "the Trash folder cannot be used" when one is there but broken (a file where a
// folder belongs); or the system's text for a passing failure (out of descriptors, say).
// Only the first may lead anyone to delete instead.
CVError trashFolderFailure(const std::string& path, const TrashFolderRefusal& refusal) {
    if (refusal.systemError == 0 && refusal.damaged)
        return trashError(kTrashErrorTrashDamaged, path, "the Trash folder cannot be used", refusal.reason);
    if (refusal.systemError == 0)
        return noTrashOnVolume(path, refusal.reason);
    CVError error = systemError(refusal.systemError, path, "cannot open the Trash");
    error.userInfo[kTrashReasonKey] = refusal.reason;
    return error;
}

std::string joinPath(const std::string& folder, const std::string& name) {
    return folder == "/" ? "/" + name : folder + "/" + name;
}

// path is folder itself or inside it.
bool isWithin(const std::string& path, const std::string& folder) {
    return path == folder || (path.starts_with(folder) && (folder == "/" || path[folder.size()] == '/'));
}

// Whether the path ends in the name of an item ("", "/", "." and ".." do not).
bool isItemName(const std::string& path) {
    // A NUL byte would cut the path short in the system calls, naming another item.
    if (path.empty() || path.find('\0') != std::string::npos)
        return false;
    const std::string name = lastPathComponent(path);
    return !name.empty() && name != "/" && name != "." && name != "..";
}

// Refuses to move the Trash folder into itself, or an item out of its own Trash folder.
[[nodiscard]] bool checkPlace(const std::string& path, const TrashItemName& item,
                              const std::string& trashFolder, CVError* error) {
    const std::string itemPath = item.path();
    if (isWithin(itemPath, trashFolder)) {
        setError(error, trashError(kTrashErrorInTrash, path, "is in the Trash already"));
        return false;
    }
    // NOLINTNEXTLINE(readability-suspicious-call-argument): is the Trash folder inside the item?
    if (isWithin(trashFolder, itemPath)) {
        setError(error, trashError(kTrashErrorHoldsTrash, path, "holds the Trash folder " + trashFolder));
        return false;
    }
    return true;
}

// Path= of the information file: absolute for the home Trash, relative to the volume's
// top folder otherwise.
std::string originalPath(const TrashItemName& item, const TrashFolder& trash) {
    std::string itemPath = item.path();
    if (trash.isHomeTrash)
        return itemPath;
    if (trash.topDirectory == "/")
        return itemPath.substr(1);
    return itemPath.substr(trash.topDirectory.size() + 1);
}

} // namespace

bool hasIdentity(const struct stat& st, const TrashItemIdentity& identity) {
    const std::int64_t mtime = nanosecondsSince1970(st.st_mtim);
    return static_cast<std::uint64_t>(st.st_dev) == identity.device &&
           static_cast<std::uint64_t>(st.st_ino) == identity.inode &&
           (!identity.size || static_cast<std::uint64_t>(st.st_size) == *identity.size) &&
           (!identity.modificationTime || mtime == *identity.modificationTime) &&
           (!identity.changeTime || nanosecondsSince1970(st.st_ctim) == *identity.changeTime);
}

std::string TrashItemName::path() const {
    return joinPath(folder, name);
}

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
    TrashBatch batch(*this);
    const std::optional<std::size_t> ticket = batch.add(path, expected, error);
    return ticket && batch.sync(error) && batch.commit(*ticket, trashed, error);
}

struct TrashBatch::Folder {
    int failure = 0;       // errno of resolving or opening the folder; 0 when usable
    std::string resolved;  // where fd lies, symbolic links resolved
    UniqueFd fd;           // O_PATH
    struct stat opened {}; // fd's status when opened
    bool trashLooked = false;
    std::shared_ptr<TrashFolder> trash; // null: no Trash on the volume (refusal says why)
    TrashFolderRefusal refusal;
    bool foundLooked = false; // the look-up without making anything, for trashDirectoryFor
    std::optional<std::string> found;
    TrashFolderRefusal refusalFound;
    // The folder (or one above it) was moved away after it was opened, into the Trash by
    // an item of this batch or of an earlier one: fd leads there now, and what was inside
    // is no longer at its path.
    bool movedAway = false;
    bool placeChecked = false; // whether the path was seen to still lead to fd
};

struct TrashBatch::Item {
    enum class State { Written, Synced, Moved, Dropped };
    std::string path; // as given
    std::shared_ptr<Folder> folder;
    std::string name; // in folder
    std::optional<TrashItemIdentity> expected;
    std::string entry; // in files/
    std::string hintKey;
    unsigned attempt = 0;
    bool isFolder = false;
    UniqueFd info; // kept open until the sync for the first few items of a sync
    std::int64_t infoMTime = 0;
    State state = State::Written;

    std::string infoName() const { return entry + ".trashinfo"; }
};

TrashBatch::TrashBatch(Trash& trash) : m_trash(trash) {}

TrashBatch::~TrashBatch() {
    for (std::size_t ticket = 0; ticket < m_items.size(); ++ticket)
        drop(ticket);
}

std::shared_ptr<TrashBatch::Folder> TrashBatch::folderOfItem(const std::string& path, struct stat* itemStat,
                                                             CVError* error) {
    if (!isItemName(path)) {
        setError(error, trashError(kTrashErrorNotAName, path, "not the name of a file or folder"));
        return nullptr;
    }
    const std::string given = parentPath(path);
    std::shared_ptr<Folder>& folder = m_folders[given];
    if (!folder) {
        folder = std::make_shared<Folder>();
        char resolved[PATH_MAX];
        if (!::realpath(given.c_str(), resolved)) {
            folder->failure = errno;
        } else {
            // O_PATH: moving an item out of a folder needs write and search permission, not read.
            folder->fd = UniqueFd(::open(resolved, O_PATH | O_DIRECTORY | O_CLOEXEC));
            if (!folder->fd.valid() || ::fstat(folder->fd.get(), &folder->opened) != 0)
                folder->failure = errno;
            // A folder of the path swapped for a link after it was resolved leads the open
            // elsewhere: the information file names where the folder opened really lies.
            else
                folder->resolved = placeOfOpenFolder(folder->fd.get()).value_or(resolved);
        }
    }
    if (folder->failure != 0) {
        setError(error, systemError(folder->failure, path));
        return nullptr;
    }
    if (::fstatat(folder->fd.get(), lastPathComponent(path).c_str(), itemStat, AT_SYMLINK_NOFOLLOW) != 0) {
        setError(error, systemError(errno, path));
        return nullptr;
    }
    return folder;
}

std::optional<std::size_t> TrashBatch::add(const std::string& path,
                                           const std::optional<TrashItemIdentity>& expected, CVError* error) {
    struct stat itemStat {};
    std::shared_ptr<Folder> folder = folderOfItem(path, &itemStat, error);
    if (!folder)
        return std::nullopt;
    const TrashItemName item{folder->resolved, lastPathComponent(path)};
    if (expected && !hasIdentity(itemStat, *expected)) {
        setError(error, trashError(kTrashErrorItemChanged, path, "changed since the scan"));
        return std::nullopt;
    }

    const TrashFolder* place = trashPlaceFor(*folder, path, item, error);
    if (!place)
        return std::nullopt;

    Item claimed;
    claimed.path = path;
    claimed.folder = folder;
    claimed.name = item.name;
    claimed.expected = expected;
    claimed.isFolder = S_ISDIR(itemStat.st_mode);
    claimed.hintKey = place->path + '\0' + item.name;
    if (!claimName(claimed, *place, trashInfoText(originalPath(item, *place), std::time(nullptr)), error))
        return std::nullopt;
    m_items.push_back(std::move(claimed));
    return m_items.size() - 1;
}

const TrashFolder* TrashBatch::trashPlaceFor(Folder& folder, const std::string& path,
                                             const TrashItemName& item, CVError* error) {
    // Refused before anything is made: the home Trash would be made inside the item.
    const Trash& trash = m_trash;
    if (!m_homeTrash)
        m_homeTrash = trash.m_environment.dataHome.empty()
                          ? std::string()
                          : resolvePathAllowingMissing(trash.m_environment.dataHome + "/Trash");
    if (!m_homeTrash->empty() && isWithin(*m_homeTrash, item.path())) {
        setError(error, trashError(kTrashErrorHoldsTrash, path, "holds the Trash folder " + *m_homeTrash));
        return nullptr;
    }
    if (!folder.trashLooked) {
        if (auto opened = openTrashFolder(folder.resolved, trash.m_environment, &folder.refusal))
            folder.trash = std::make_shared<TrashFolder>(std::move(*opened));
        // A passing failure is tried again for the next item.
        folder.trashLooked = folder.trash || folder.refusal.systemError == 0;
    }
    if (!folder.trash) {
        systemLog(std::string(folder.refusal.systemError == 0 ? "Trash: no Trash for "
                                                              : "Trash: cannot open the Trash for ") +
                  path + ": " + folder.refusal.reason);
        setError(error, trashFolderFailure(path, folder.refusal));
        return nullptr;
    }
    if (!checkPlace(path, item, folder.trash->path, error))
        return nullptr;
    return folder.trash.get();
}

bool TrashBatch::claimName(Item& claimed, const TrashFolder& place, const std::string& infoText,
                           CVError* error) {
    const unsigned first = m_trash.firstAttempt(claimed.hintKey);
    for (unsigned attempt = first; attempt < first + kMaxAttempts; ++attempt) {
        const std::string entry = trashEntryName(claimed.name, attempt, !claimed.isFolder);
        // An entry in files/ without its information file (left by a crash of some
        // program) keeps its name too.
        struct stat taken {};
        if (::fstatat(place.files.get(), entry.c_str(), &taken, AT_SYMLINK_NOFOLLOW) == 0)
            continue;
        if (errno != ENOENT) {
            setError(error,
                     systemError(errno, claimed.path, "cannot use the name " + entry + " in the Trash"));
            return false;
        }

        // 1. Claim the name.
        const std::string infoName = entry + ".trashinfo";
        UniqueFd info(::openat(place.info.get(), infoName.c_str(),
                               O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
        if (!info.valid()) {
            const int saved = errno;
            if (saved == EEXIST)
                continue;
            if (errorMeansNoTrash(saved)) {
                const std::string reason = place.path + "/info: " + std::strerror(saved);
                systemLog("Trash: no Trash for " + claimed.path + ": " + reason);
                setError(error, noTrashOnVolume(claimed.path, reason));
            } else {
                setError(error, systemError(saved, claimed.path, "cannot create the Trash information file"));
            }
            return false;
        }

        // 2. Write it; sync() makes it durable. Only a few stay open for their own fsync.
        struct stat infoStat {};
        const bool keepOpen = m_items.size() - m_firstUnsynced < kSyncEachUpTo;
        if (!writeAll(info.get(), infoText) || ::fstat(info.get(), &infoStat) != 0 ||
            (!keepOpen && !info.close())) {
            const int saved = errno;
            info.reset();
            ::unlinkat(place.info.get(), infoName.c_str(), 0);
            setError(error, systemError(saved, claimed.path, "cannot write the Trash information file"));
            return false;
        }
        claimed.entry = entry;
        claimed.attempt = attempt;
        claimed.info = std::move(info);
        claimed.infoMTime = static_cast<std::int64_t>(infoStat.st_mtim.tv_sec);
        return true;
    }
    setError(error, trashError(kTrashErrorNoFreeName, claimed.path, "no free name in the Trash"));
    return false;
}

bool TrashBatch::sync(CVError* error) {
    const std::size_t begin = m_firstUnsynced;
    m_firstUnsynced = m_items.size();
    bool allOpen = true;
    std::vector<const TrashFolder*> places;
    for (std::size_t i = begin; i < m_items.size(); ++i) {
        const Item& item = m_items[i];
        if (item.state != Item::State::Written)
            continue;
        allOpen = allOpen && item.info.valid();
        const TrashFolder* place = item.folder->trash.get();
        if (std::find(places.begin(), places.end(), place) == places.end())
            places.push_back(place);
    }
    // A few files: each file and its folder. More: one flush of each volume, far cheaper
    // than an fsync per file, which commits the journal each time.
    int failure = 0;
    std::string failedPlace;
    for (std::size_t i = begin; i < m_items.size(); ++i) {
        Item& item = m_items[i];
        if (item.info.valid() && ((allOpen && ::fsync(item.info.get()) != 0) || !item.info.close()) &&
            failure == 0) {
            failure = errno;
            failedPlace = item.folder->trash->path;
        }
    }
    for (const TrashFolder* place : places)
        if ((allOpen ? ::fsync(place->info.get()) : ::syncfs(place->info.get())) != 0 && failure == 0) {
            failure = errno;
            failedPlace = place->path;
        }
    for (std::size_t i = begin; i < m_items.size(); ++i) {
        Item& item = m_items[i];
        if (item.state != Item::State::Written)
            continue;
        if (failure == 0)
            item.state = Item::State::Synced;
        else
            removeInformation(item);
    }
    if (failure != 0) {
        setError(error, systemError(failure, failedPlace, "cannot write the Trash information file"));
        return false;
    }
    return true;
}

bool TrashBatch::commit(std::size_t ticket, TrashedItem* trashed, CVError* error) {
    if (ticket >= m_items.size() || m_items[ticket].state != Item::State::Synced) {
        setError(error, systemError(EINVAL, ticket < m_items.size() ? m_items[ticket].path : std::string(),
                                    "not ready to move"));
        return false;
    }
    Item& item = m_items[ticket];
    Folder& folder = *item.folder;
    const TrashFolder& place = *folder.trash;
    if (!folder.placeChecked) {
        // Once per folder: a batch prepared while the one before it moved its items may
        // have opened a folder that one of them then took into the Trash.
        folder.placeChecked = true;
        struct stat atPath {};
        if (::lstat(folder.resolved.c_str(), &atPath) != 0 || folder.opened.st_dev != atPath.st_dev ||
            folder.opened.st_ino != atPath.st_ino)
            folder.movedAway = true;
    }
    if (folder.movedAway) {
        removeInformation(item);
        setError(error, trashError(kTrashErrorItemChanged, item.path, "missing"));
        return false;
    }

    // 3. Move the item; never over an entry that is there.
    const std::string trashFile = place.path + "/files/" + item.entry;
    if (m_trash.m_beforeMove)
        m_trash.m_beforeMove(trashFile);
    struct stat now {};
    if (item.expected && (::fstatat(folder.fd.get(), item.name.c_str(), &now, AT_SYMLINK_NOFOLLOW) != 0 ||
                          !hasIdentity(now, *item.expected))) {
        removeInformation(item);
        setError(error, trashError(kTrashErrorItemChanged, item.path, "changed since the scan"));
        return false;
    }
    if (::renameat2(folder.fd.get(), item.name.c_str(), place.files.get(), item.entry.c_str(),
                    RENAME_NOREPLACE) != 0) {
        const int saved = errno;
        removeInformation(item);
        if (saved == EEXIST) // taken meanwhile: a move of its own under the next free name
            return m_trash.moveToTrash(item.path, trashed, error, item.expected);
        if (saved == EXDEV || saved == EROFS) {
            const std::string reason =
                std::string("rename to ") + place.path + "/files: " + std::strerror(saved);
            systemLog("Trash: no Trash for " + item.path + ": " + reason);
            setError(error, noTrashOnVolume(item.path, reason));
        } else {
            setError(error, systemError(saved, item.path));
        }
        return false;
    }
    item.state = Item::State::Moved;
    m_trash.rememberAttempt(item.hintKey, item.attempt + 1);
    if (item.isFolder) {
        const std::string moved = joinPath(folder.resolved, item.name);
        for (auto& [given, other] : m_folders)
            if (isWithin(other->resolved, moved))
                other->movedAway = true;
    }

    TrashedItem done;
    done.folderDevice = static_cast<std::uint64_t>(folder.opened.st_dev);
    done.folderInode = static_cast<std::uint64_t>(folder.opened.st_ino);
    done.trashDirectory = place.path;
    done.trashFile = trashFile;
    done.trashInfo = place.path + "/info/" + item.infoName();
    // 4. The size cache; the move stands whatever happens here.
    if (item.isFolder) {
        CVError sizeError;
        if (!recordTrashedFolderSize(place.directory.get(), place.path, item.entry,
                                     diskUsageOfTree(done.trashFile), item.infoMTime, &sizeError))
            systemLog("Trash: " + sizeError.localizedDescription());
    }
    if (trashed)
        *trashed = std::move(done);
    return true;
}

void TrashBatch::drop(std::size_t ticket) {
    if (ticket < m_items.size() &&
        (m_items[ticket].state == Item::State::Written || m_items[ticket].state == Item::State::Synced))
        removeInformation(m_items[ticket]);
}

void TrashBatch::removeInformation(Item& item) {
    item.info.reset();
    item.state = Item::State::Dropped;
    const TrashFolder& place = *item.folder->trash;
    if (::unlinkat(place.info.get(), item.infoName().c_str(), 0) != 0)
        systemLog("Trash: cannot remove " + place.path + "/info/" + item.infoName() +
                  " of an item that stays: " + std::strerror(errno));
}

std::optional<std::string> Trash::trashDirectoryFor(const std::string& path, CVError* error) {
    return TrashBatch(*this).trashDirectoryFor(path, error);
}

std::optional<std::string> TrashBatch::trashDirectoryFor(const std::string& path, CVError* error) {
    struct stat itemStat {};
    std::shared_ptr<Folder> folder = folderOfItem(path, &itemStat, error);
    if (!folder)
        return std::nullopt;
    const TrashItemName item{folder->resolved, lastPathComponent(path)};
    std::string place;
    if (folder->trash) {
        place = folder->trash->path;
    } else {
        if (!folder->foundLooked) {
            folder->found = findTrashFolder(folder->resolved, m_trash.m_environment, &folder->refusalFound);
            folder->foundLooked = folder->found || folder->refusalFound.systemError == 0;
        }
        if (!folder->found) {
            setError(error, trashFolderFailure(path, folder->refusalFound));
            return std::nullopt;
        }
        place = *folder->found;
    }
    if (!checkPlace(path, item, place, error))
        return std::nullopt;
    return place;
}

} // namespace corvel
