#pragma once
// The checks a copy passes immediately before it is trashed or deleted. A group was
// found on sampled evidence (large files on about 20 KB) and files change after a scan,
// so nothing is removed on the scan's word alone:
//   1. the copy is what the scan recorded: same device, inode, type, size and
//      modification time (to the nanosecond; folders: type and time, no size);
//   2. a kept copy is named: a member of the same group that is not marked, not
//      removed, unchanged since the scan in the same way, another (device, inode) than
//      the copy, and neither above nor below the copy;
//   3. the copy equals the kept copy byte for byte over its whole content (folders:
//      the whole tree; see engine/content_comparison.h).
// The one exception is a group whose every copy the user forced: it has no kept copy and
// may go only to the Trash. A copy that is a hard link of a kept copy is refused: removing
// it would free nothing.
//
// Threads: a verifier is used by one thread at a time (the removal pass keeps one for the
// copies it handles alone and one for the windows its worker prepares).

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>

#include "engine/content_comparison.h"
#include "engine/node.h"
#include "platform/item_status.h"
#include "platform/trash_folder.h"

namespace corvel {

struct RemovalCheck {
    bool ok = false;
    std::string reason;           // why the copy may not go (empty when ok)
    std::string keptCopy;         // the copy that stays, compared with it (empty for a forced group)
    std::shared_ptr<CVFile> kept; // its node (null for a forced group)
    // A copy to be deleted permanently: its entries as compared (see
    // compared_tree_removal.h; a file copy is its only entry); empty otherwise.
    std::vector<ComparedEntry> compared;
};

class RemovalVerifier {
public:
    explicit RemovalVerifier(ContentComparer::StopRequest stop = {});

    // True when the item at the file's path is the one the scan recorded; else false
    // with the reason ("changed since the scan", "missing"). seen, when given, gets the
    // status looked at (nothing when none could be taken).
    [[nodiscard]] static bool isUnchangedSinceScan(const CVFile& file, std::string* reason,
                                                   std::optional<ItemStatus>* seen = nullptr);

    // Whether the copy may be removed now (permanently: deleted rather than trashed).
    RemovalCheck checkBeforeRemoval(const CVFile& copy, bool permanently);

    // Where the Trash folders are: a member inside one is never the kept copy (it is one
    // emptying of the Trash away from being gone). Without it only ".Trash" and
    // ".Trash-UID" folders are known.
    void setTrashEnvironment(const TrashEnvironment& environment) {
        m_homeTrash = homeTrashPlaces(environment);
    }

    // The paths the pass has removed by now (null: none): a folder that held one counts as
    // changed (lostEntryReason). dryRun: the set holds what a dry run, which removes
    // nothing, would have removed, each path also as resolvedPlace gives it; an item at or
    // below one of them, by either path, then counts as missing, as it would be by then.
    // The set must outlive the checks.
    void setGoneEarlier(const std::set<std::string>* paths, bool dryRun) {
        m_goneEarlier = paths;
        m_dryRun = dryRun;
    }

    // Why a folder copy, or a kept folder, is no longer what its check saw once the paths
    // in gone are removed: an entry of its own changes the folder's modification time
    // ("changed since the scan"), one further down its content. Nothing when none lies
    // inside it.
    [[nodiscard]] static std::optional<std::string> lostEntryReason(const std::set<std::string>& gone,
                                                                    const std::string& folder);

    // Where the item at path lies with its folders' symbolic links resolved (the item
    // itself as named), so that a folder and a link to it give one place; the path as
    // given when its folder cannot be resolved. The dry run records what it would remove
    // under both.
    // folders, when given, keeps each folder's resolution for the next call: for a dry run,
    // which changes nothing, so a folder leads where it led (a pass of many copies in a
    // few folders then resolves each folder once).
    using ResolvedFolders = std::unordered_map<std::string, std::optional<std::string>>;
    [[nodiscard]] static std::string resolvedPlace(const std::string& path,
                                                   ResolvedFolders* folders = nullptr);

private:
    // isUnchangedSinceScan, and neither gone nor changed by what went earlier.
    bool isThereAsScanned(const CVFile& file, std::string* reason, std::optional<ItemStatus>* seen) const;
    // Whether the item lies in a Trash folder, by its path as written or with its folder's
    // links resolved.
    bool liesInTrash(const std::string& path);

    ContentComparer m_comparer;
    std::vector<std::string> m_homeTrash;                  // homeTrashPlaces
    std::unordered_map<std::string, bool> m_folderInTrash; // by folder as written
    mutable ResolvedFolders m_resolvedFolders;             // a dry run's
    const std::set<std::string>* m_goneEarlier = nullptr;
    bool m_dryRun = false;
};

// Reasons a copy fails the checks; the command line and the collector show them.
inline constexpr const char* kReasonChanged = "changed since the scan";
inline constexpr const char* kReasonDiffers = "differs from the kept copy";
inline constexpr const char* kReasonNoKeptCopy = "no verified copy would remain";
// The copy and the kept copy are one file: a hard link, or the same file reached through a
// linked folder.
inline constexpr const char* kReasonHardLink =
    "the same file as the kept copy (a hard link or another path to it): removing it frees nothing";
inline constexpr const char* kReasonAllCopiesPermanently =
    "every copy of the group is chosen: they may only go to the Trash";
// A stop was requested while the copy was compared: it was not handled.
inline constexpr const char* kReasonStopped = "stopped";
inline constexpr const char* kReasonProtectedFolder = "home and its standard folders are never removed";
inline constexpr const char* kReasonMountPoint =
    "it is a mount point: removing it would take what is mounted there";

} // namespace corvel
