#pragma once
// Moving files and folders to the freedesktop Trash, and saying where they would go.
//
// A move is a rename and nothing else: an item is never copied, so a volume whose items
// cannot be renamed into a Trash (another file system, a bind mount, a read-only
// volume, no Trash folder that can be used or made) fails "no Trash on this volume" and
// the item stays where it is. The order of a move keeps every item either at its path
// or in the Trash with its information file, whenever the process or the machine stops:
//   1. claim NAME by creating info/NAME.trashinfo with O_EXCL (a name taken, or
//      files/NAME present, moves on to the next name: "report.2.pdf", "report.3.pdf");
//   2. write it, fsync it and fsync info/;
//   3. renameat2(RENAME_NOREPLACE) the item to files/NAME; when that fails, the
//      information file is removed again;
//   4. for a folder, record its size in the directorysizes file.
// A TrashBatch runs these steps for many items at once: the information files of all of
// them are made durable together (step 2), then the items move one by one (step 3).
// Which Trash folder a volume uses is in trash_folder.h; the entry names in
// trash_names.h; the information text in trash_info.h.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "error.h"
#include "trash_folder.h"

struct stat;

namespace corvel {

struct TrashFolder;
struct TrashItemName;

inline constexpr const char* kTrashErrorDomain = "com.halvik.Corvel.TrashError";
// The user-info key of a failure's detail (which folder was refused and why), for logs.
inline constexpr const char* kTrashReasonKey = "CVTrashReason";

enum TrashErrorCode : int {
    kTrashErrorNoTrashOnVolume = 1, // "no Trash on this volume"
    kTrashErrorInTrash = 2,         // the item is in the Trash already
    kTrashErrorHoldsTrash = 3,      // the item is a folder that holds the Trash folder
    kTrashErrorNoFreeName = 4,      // every name tried was taken
    kTrashErrorNotAName = 5,        // the path names no item ("", "/", ".", "..")
    kTrashErrorItemChanged = 6,     // another item than the expected one is at the path
    kTrashErrorTrashDamaged = 7,    // "the Trash folder cannot be used": it is there, but broken
};

// Which item a caller means: the device and inode it saw (lstat), and when given, the
// size and the modification time (nanoseconds) it saw, so that an item edited in place
// since is not taken for the one the caller checked.
struct TrashItemIdentity {
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    std::optional<std::uint64_t> size;
    std::optional<std::int64_t> modificationTime;
    // The status-change time (nanoseconds), which no program can set back: an entry added
    // to a folder changes it even when the folder's modification time is put back.
    std::optional<std::int64_t> changeTime;
};

// Whether st (an lstat of the path) is the item the identity names.
bool hasIdentity(const struct stat& st, const TrashItemIdentity& identity);

// Where a moved item went.
struct TrashedItem {
    std::string trashDirectory; // the Trash folder
    std::string trashFile;      // trashDirectory + "/files/" + NAME: the item itself
    std::string trashInfo;      // trashDirectory + "/info/" + NAME + ".trashinfo"
    // The folder the item left, as the move found it (whatever its path leads to by now).
    std::uint64_t folderDevice = 0;
    std::uint64_t folderInode = 0;
};

// One object may serve a whole removal pass; any thread may call it (one lock guards
// the remembered name counters).
class Trash {
public:
    explicit Trash(TrashEnvironment environment = TrashEnvironment::current());
    const TrashEnvironment& environment() const { return m_environment; }

    // Moves the item at path (a symbolic link is moved itself, not what it points to) to
    // the Trash of its volume. On success answers true and fills *trashed. On failure
    // answers false with *error: domain kTrashErrorDomain with a TrashErrorCode (the
    // description of kTrashErrorNoTrashOnVolume is "no Trash on this volume", of
    // kTrashErrorTrashDamaged "the Trash folder cannot be used"), or the
    // POSIX domain with errno as the code and the system's text (a full disk while the
    // information file is written, no permission to move the item out of its folder,
    // the item missing); the user info holds the path (kFilePathErrorKey). After a
    // failure the item is at its path and no information file of it was left behind.
    // With expected given, the item's identity is checked again just before the rename
    // (after the information file is synced); another item there, or the same one with
    // another size or time than expected, fails kTrashErrorItemChanged, "changed since
    // the scan", and stays where it is.
    [[nodiscard]] bool moveToTrash(const std::string& path, TrashedItem* trashed, CVError* error,
                                   const std::optional<TrashItemIdentity>& expected = std::nullopt);

    // The Trash folder moveToTrash would move the item at path to, found without making
    // or changing anything (for a dry run). Nothing, with *error as moveToTrash would
    // answer, when the item is missing or its volume has no usable Trash. A move can
    // still fail where this answers a folder (a full disk, a bind mount rename(2) refuses).
    std::optional<std::string> trashDirectoryFor(const std::string& path, CVError* error);

    // Runs after the information file of a move is written and synced, just before the
    // item is renamed to trashFile: a test's window for what another process could do there.
    void setBeforeMoveHook(std::function<void(const std::string& trashFile)> hook) {
        m_beforeMove = std::move(hook);
    }

private:
    friend class TrashBatch;
    unsigned firstAttempt(const std::string& key);
    void rememberAttempt(const std::string& key, unsigned attempt);

    TrashEnvironment m_environment;
    std::mutex m_mutex;
    std::unordered_map<std::string, unsigned> m_nextAttempt; // by Trash folder and name
    std::function<void(const std::string& trashFile)> m_beforeMove;
};

// Moves of many items whose information files are made durable together: add() checks
// an item and claims its name with a written information file (steps 1 and 2 without the
// flush); sync() makes every information file claimed since the last sync durable (an
// fsync of each file and of info/ for a few, one syncfs(2) per Trash folder for more);
// commit() then moves a synced item (step 3, with the identity check of moveToTrash).
// Between sync() and commit() an item is at its path and its information file is in the
// Trash, as between steps 2 and 3 of a single move. An item never committed (dropped,
// failed, or still pending when the batch is destroyed) stays where it is and its
// information file is removed again. The item folders and Trash folders are looked up
// once per batch, so a batch is meant for one short run of moves. One thread at a time
// (a batch may be handed to another thread as a whole); the Trash must outlive the batch.
class TrashBatch {
public:
    explicit TrashBatch(Trash& trash);
    ~TrashBatch();
    TrashBatch(const TrashBatch&) = delete;
    TrashBatch& operator=(const TrashBatch&) = delete;

    // Answers the item's ticket, or nothing with *error as moveToTrash answers (nothing
    // was made or changed then).
    std::optional<std::size_t> add(const std::string& path, const std::optional<TrashItemIdentity>& expected,
                                   CVError* error);
    // False with *error (POSIX domain) when the information files cannot be made durable;
    // every item added since the last sync is then dropped and stays at its path.
    [[nodiscard]] bool sync(CVError* error);
    // Moves an item synced before. Failures as moveToTrash; the item is at its path then.
    // An entry that appeared in files/ under the claimed name meanwhile makes it a single
    // move under the next free name.
    [[nodiscard]] bool commit(std::size_t ticket, TrashedItem* trashed, CVError* error);
    // Gives up an item not committed yet: its information file is removed.
    void drop(std::size_t ticket);
    // As Trash::trashDirectoryFor, with the folders looked up once per batch (a dry run
    // over many items keeps one batch for its look-ups and adds nothing).
    std::optional<std::string> trashDirectoryFor(const std::string& path, CVError* error);
    // How many item folders the batch holds open (each with its Trash folder's three
    // descriptors), so a caller can bound the descriptors a batch takes.
    [[nodiscard]] std::size_t folderCount() const { return m_folders.size(); }

private:
    struct Folder;
    struct Item;
    // The folder of the item at path (looked up once per batch), with the item's own
    // status in *itemStat; nothing with *error when the path names no item, the folder
    // cannot be opened or the item is missing.
    std::shared_ptr<Folder> folderOfItem(const std::string& path, struct stat* itemStat, CVError* error);
    void removeInformation(Item& item);
    // The Trash the item at path goes to (found once per folder), after the checks that
    // the item may go there; nothing with *error otherwise.
    const TrashFolder* trashPlaceFor(Folder& folder, const std::string& path, const TrashItemName& item,
                                     CVError* error);
    // Claims a free name in place for the item: creates its information file exclusively
    // and writes infoText; false with *error when none is free or the file cannot be made.
    bool claimName(Item& claimed, const TrashFolder& place, const std::string& infoText, CVError* error);

    Trash& m_trash;
    std::unordered_map<std::string, std::shared_ptr<Folder>> m_folders; // by the folder as given
    std::optional<std::string> m_homeTrash;                             // resolved on first use
    std::vector<Item> m_items;
    std::size_t m_firstUnsynced = 0;
};

} // namespace corvel
