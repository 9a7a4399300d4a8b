#pragma once
// CVRemovalPass: removes every copy marked for removal, as the collector's Remove button
// does: to the Trash or outright, through the library application for files of the
// current photo or music library, with the clean-up of emptied parent folders when asked.
// The collector controller and the command line drive it; a CVRemovalView shows it.
//
// Copies are handled in group order and, inside a group, in member order, so a pass is
// repeatable. Before a copy is touched it passes the checks of removal_verifier.h; a copy
// that fails them, or whose removal fails, is counted and listed with its reason, and the
// pass goes on. A stop request (Stop, or a signal on the command line) ends the pass after
// the current copy; the copies not reached stay marked.
//
// On Linux a volume without a usable Trash fails the copy ("no Trash on this volume"):
// it is never deleted outright instead; permanent deletion is the user's explicit choice.
// The clean-up of a parent folder never touches a scan root, a mount point or a folder
// the ignore list protects, and in delete mode it removes only ".DS_Store" and then the
// empty folder (never a recursive delete).
//
// Threads: shreddList, removeFinishedWithSize and the accessors on the main thread;
// cleanDuplicates on the pass's own thread (startPass makes it), which waits for the main
// thread at the start and at each progress tick, and prepares the next window of copies
// going to the Trash on a worker thread while it moves one (see prepareWindow). The
// counters are changed on the main thread. requestStop may be called from any thread (a
// signal handler's flag poller).

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <unordered_map>
#include <vector>

#include "engine/group.h"
#include "platform/error.h"
#include "platform/file_access.h"
#include "platform/property_value.h"
#include "platform/unique_fd.h"
#include "removal_verifier.h"
#include "settings/ignore_list.h"

namespace corvel {

class CVDuplicatesController;
class CVIgnoreList;
class CVPreferences;
class CVRemovalView;
class CVStatisticsController;
class HVAchievementsController;
class LibraryAppDriver;
class Trash;
class TrashBatch;
struct TrashItemIdentity;
class UserDefaults;

inline constexpr const char* kIPhotoLaunchErrorDomain = "com.halvik.Corvel.iPhotoLaunchError";
inline constexpr const char* kIPhotoRemoveErrorDomain = "com.halvik.Corvel.iPhotoRemoveError";
inline constexpr const char* kITunesLaunchErrorDomain = "com.halvik.Corvel.iTunesLaunchError";
inline constexpr const char* kITunesRemoveErrorDomain = "com.halvik.Corvel.iTunesRemoveError";
inline constexpr std::int64_t kLibraryLaunchErrorCode = 100501;
inline constexpr std::int64_t kLibraryRemoveErrorCode = 100500;
inline constexpr const char* kRemovedPhotosKey = "RemovedPhotos";
inline constexpr const char* kRemoveHardAnimationsKey = "RemoveHardAnimations";
// The file a folder may hold and still count as emptied for the clean-up: the folder
// views' leftover, removed with its folder.
inline constexpr std::string_view kCleanUpLeftoverName = ".DS_Store";
// The error domain of copies refused by the checks before removal.
inline constexpr const char* kRemovalCheckErrorDomain = "com.halvik.Corvel.RemovalCheck";

class CVRemovalPass {
public:
    struct Services {
        CVDuplicatesController& results;
        UserDefaults& defaults;
        CVPreferences& preferences;
        CVIgnoreList& ignoreList;
        Trash& trash;
        LibraryAppDriver& libraryAppDriver;
        CVStatisticsController& statistics;
        HVAchievementsController& achievements;
        CVRemovalView& view;
    };
    struct Options {
        std::optional<bool> moveToTrash;        // this pass only; else "MoveIntoTrash"
        std::optional<bool> removeEmptyFolders; // this pass only; else "RemoveEmptyFolders"
        bool dryRun = false;                    // decide and report, change nothing (files, Trash, settings)
        bool tickPacing = true;                 // at least 0.2 s between ticks and a pause at the end
        std::vector<std::string> scanRoots;     // never removed by the clean-up
        std::size_t windowCopies = 1024;        // at most this many copies moved to the Trash together
        // Called with a copy's path just before it is deleted permanently, and with an
        // emptied folder's just before the clean-up deletes it (tests change the tree
        // there, as a program running beside the pass could).
        std::function<void(const std::string&)> beforeDelete;
    };

    enum class Outcome { Trashed, Deleted, Failed, NotHandled, WouldTrash, WouldDelete, WouldFail };
    static const char* outcomeName(Outcome outcome);

    // What became of one marked copy.
    struct FileRecord {
        std::shared_ptr<CVFile> file;
        std::size_t group = 0; // the group's place among the results' groups
        Outcome outcome = Outcome::NotHandled;
        std::string keptCopy;
        std::string trashFile;
        std::string trashInfo;
        std::string trashDirectory; // a dry run: where it would go
        std::string error;
        bool noTrashOnVolume = false; // failed for want of a usable Trash, and deleting it could succeed
    };

    CVRemovalPass(Services services, Options options);
    // Stops a running pass and waits for it (running the main queue meanwhile when called
    // on the main thread); its services must still be alive.
    ~CVRemovalPass();
    CVRemovalPass(const CVRemovalPass&) = delete;
    CVRemovalPass& operator=(const CVRemovalPass&) = delete;

    // The Remove/Stop button: starts a pass (on its own thread) when copies are marked and
    // none runs, stops the running one, or ends at once when nothing is marked.
    void shreddList();
    // Asks the running pass to stop after the current copy. Any thread.
    void requestStop() { m_shredInProgress = false; }
    // Waits for the pass's thread; the main queue must be run meanwhile by the caller.
    void waitForPass();
    bool isPassThreadRunning() const { return m_threadRunning.load(); }

    // The pass; on the calling thread (startPass runs it on its own).
    void cleanDuplicates();
    [[nodiscard]] bool shredDuplicateFile(CVFile& file, bool toTrash, CVError* error);
    // compared: the copy's entries as its check compared them. Deleting a folder
    // permanently removes only those (compared_tree_removal.h), and is refused without
    // them; a file is deleted only while it is as compared.
    [[nodiscard]] bool shredPhysicallyDup(CVFile& file, bool toTrash, CVError* error,
                                          const std::vector<ComparedEntry>* compared = nullptr);
    // removedFrom, when given, gets the folder the item left, as the removal found it.
    [[nodiscard]] bool removeItemAtPath(const std::string& path, bool toTrash, CVError* error,
                                        const std::vector<ComparedEntry>* compared = nullptr,
                                        FolderIdentity* removedFrom = nullptr);
    // The clean-up after a removal of the item at removedPath: its folder goes when nothing
    // but a leftover is left in it. removedFrom: the folder the removal took the item from;
    // only that folder is cleaned, whatever the path leads to by now.
    void removeParentFolderIfEmpty(const std::string& removedPath, bool moveToTrash,
                                   const FolderIdentity& removedFrom);
    // A dry run's clean-up: notes the folder the clean-up would remove, going by the path.
    void noteParentFolderIfEmpty(const std::string& removedPath);
    std::optional<CVError> shrediPhotoDup(CVFile& file);
    std::optional<PropertyValue::Dictionary> trashiPhotoImageWithPath(const std::string& path, bool useAdd,
                                                                      bool isVideo);
    std::optional<CVError> shrediTunesDup(CVFile& file);
    void removeFinishedWithSize(std::uint64_t size, std::uint64_t files, bool completeRemove, bool stopped);

    // The marked copies, in group and member order, with their groups' places.
    using MarkedFiles = std::vector<std::pair<std::shared_ptr<CVFile>, std::size_t>>;
    MarkedFiles markedFiles() const;
    // count and size from the marks (the collector's recount).
    void countDuplicates();

    bool shredInProgress() const { return m_shredInProgress.load(); }
    std::uint64_t count() const { return m_count; }
    std::uint64_t size() const { return m_size; }
    std::uint64_t errorFilesCount() const { return m_errorFilesCount; }
    std::uint64_t failedSize() const { return m_failedSize; }
    const std::vector<std::shared_ptr<CVFile>>& failedFiles() const { return m_failedFiles; }
    bool iPhotoWasLaunched() const { return m_iPhotoWasLaunched; }
    bool iTunesWasLaunched() const { return m_iTunesWasLaunched; }
    bool needRefreshing() const { return m_needRefreshing; }

    // What the last pass did (read after it ended).
    const std::vector<FileRecord>& records() const { return m_records; }
    const std::vector<std::string>& removedFolders() const { return m_removedFolders; }
    std::uint64_t markedFilesAtStart() const { return m_markedAtStart; }
    std::uint64_t markedSizeAtStart() const { return m_markedSizeAtStart; }
    std::uint64_t removedFiles() const { return m_removedFiles; }
    std::uint64_t removedSize() const { return m_removedSize; }
    bool stopped() const { return m_stopped; }
    bool complete() const { return m_complete; }
    bool finished() const { return m_finished; }
    // The trash flag the pass uses: the option, else the preference.
    bool moveToTrash() const;
    bool removeEmptyFolders() const;

private:
    void startPass();
    // A pass in three steps: counters, records and the view's start; the copies in order
    // (removeMarkedFiles stops early on a stop request); the view's end, the statistics
    // and the settings flushed.
    void beginPass(const MarkedFiles& marked);
    void removeMarkedFiles(const MarkedFiles& marked, std::uint64_t& completedGroups);
    void endPass(std::uint64_t total, std::uint64_t completedGroups);
    void runOnMain(const std::function<void()>& work, bool wait);
    // The checks before a copy is touched, by the given verifier; false with *error
    // (kRemovalCheckErrorDomain). *check names the copy that stays.
    [[nodiscard]] bool checkCopy(CVFile& file, bool permanently, RemovalVerifier& verifier,
                                 RemovalCheck* check, CVError* error);
    // What the pass removed counts as gone from here on (a dry run: what it would remove,
    // by its path and by the place the path leads to).
    void countAsGone(const std::string& path);
    // Whether the kept copy a copy was compared with is still there as the scan saw it and
    // stays (a window's copy is moved a little after its check, and an earlier move of the
    // pass may have taken its kept copy, or an item inside a kept folder); else false with
    // *why ("PATH: missing", ...).
    bool keptCopyRemains(const CVFile& kept, std::string* why) const;
    // What the Trash checks again just before a copy is moved: its device, inode and time,
    // and a file's size, as the scan recorded them.
    static TrashItemIdentity identityOf(const CVFile& file);
    // Whether a failed check means a stop came meanwhile: nothing was done to the copy.
    bool stoppedDuringCheck(const CVError& error) const;
    // Whether the copy is moved by the pass itself (not through a library application).
    bool goesToTrashDirectly(const CVFile& file) const;
    // Clears the immutable flag of the copy at path (identity: the copy's) for its removal;
    // answers the copy, open, to lock it again should the removal fail, or an invalid
    // descriptor when it could not be unlocked.
    static UniqueFd unlockForRemoval(const std::string& path, const ItemIdentity& identity);
    // Sets the immutable flag of a copy unlocked for a removal that did not happen again,
    // through the descriptor it was unlocked through (wherever its path leads by now), and
    // closes that; a failure is logged.
    static void lockAgain(UniqueFd& copy, const std::string& path);
    // Plain copies going to the Trash are moved in windows. prepareWindow takes the copies
    // from marked[from] on, up to a copy that is not goesToTrashDirectly or the window's
    // bounds: checks each, unlocks an immutable one and claims its Trash name with a
    // written information file. It runs on a worker while the window before it is moved,
    // never twice at once, and touches no counter or record. moveWindow makes the window's
    // information files durable and moves its copies in order, on the pass's thread; false
    // when a stop ended the pass (the copies not moved stay where they are, marked).
    struct TrashWindow;
    std::unique_ptr<TrashWindow> prepareWindow(const MarkedFiles& marked, std::size_t from);
    bool moveWindow(TrashWindow& window, const MarkedFiles& marked,
                    std::chrono::steady_clock::time_point& lastTick, std::uint64_t& completedGroups);
    // Records a handled copy; settle then marks it removed (when it was) and ticks. The
    // counters and the view learn of handled copies in batches (flushReports), at each
    // tick, after each window and after a copy handled alone.
    void report(const std::shared_ptr<CVFile>& file, bool ok, const CVError& error, bool toTrash);
    void flushReports();
    void settle(CVFile& file, bool removed, std::uint64_t& completedGroups,
                std::chrono::steady_clock::time_point& lastTick);
    void tick(std::chrono::steady_clock::time_point& lastTick);
    bool parentMayBeCleaned(const std::string& folder) const;
    // Whether the open folder (at path folder) holds nothing but a ".DS_Store" leftover (one
    // that no group holds) and, in a dry run, what the run would remove; *identity gets its
    // device, inode, modification and change times from before it was read, so that an entry
    // arriving later shows.
    bool isEmptyForCleanUp(int folderFd, const std::string& folder, TrashItemIdentity* identity) const;
    // The folder open when the clean-up may take it: not kept from it, opened without
    // following a link at its end, the folder removedFrom names when given, and empty as
    // isEmptyForCleanUp says (which fills *identity); not valid otherwise.
    UniqueFd openFolderToClean(const std::string& folder, const std::optional<FolderIdentity>& removedFrom,
                               TrashItemIdentity* identity) const;
    // Deletes the open folder (at path folder, identity as isEmptyForCleanUp took it): its
    // leftover, then the folder itself with rmdir, through the folder that holds it now.
    bool deleteEmptiedFolder(int folderFd, const std::string& folder,
                             const TrashItemIdentity& identity) const;
    CVError checkError(const std::string& reason) const;
    // What a record says of a failure: the error's text, with the Trash's reason when it gave one.
    static std::string failureText(const CVError& error);

    Services m_services;
    Options m_options;
    RemovalVerifier m_verifier;
    RemovalVerifier m_windowVerifier; // prepareWindow's, which may run beside the pass's thread
    // Home and its standard folders, where they really are: never removed, neither as a
    // copy (nor a folder holding one) nor by the clean-up. Taken from the ignore list when
    // the pass is made, so the pass's threads only read it.
    std::vector<std::string> m_protectedFolders;
    std::vector<FolderIdentity> m_protectedIdentities;
    bool takesProtectedFolder(const std::string& path) const;
    struct Handled {
        std::shared_ptr<CVFile> file;
        bool ok = false;
        std::string reason;
    };
    std::vector<Handled> m_unreported;    // the pass's thread's, until flushReports
    std::vector<CVGroup*> m_unmanifested; // groups whose counts changed since flushReports
    std::atomic<bool> m_shredInProgress{false};
    std::uint64_t m_count = 0;
    std::uint64_t m_size = 0;
    std::uint64_t m_errorFilesCount = 0;
    std::uint64_t m_failedSize = 0;
    std::vector<std::shared_ptr<CVFile>> m_failedFiles;
    bool m_iPhotoWasLaunched = false;
    bool m_iTunesWasLaunched = false;
    std::optional<std::chrono::system_clock::time_point> m_cleanStartDate;
    bool m_needRefreshing = false;

    std::vector<FileRecord> m_records;
    FileRecord* m_current = nullptr; // the record of the copy being handled
    std::vector<std::string> m_removedFolders;
    // The paths removed so far (a dry run: that it would have removed, as named and resolved).
    std::set<std::string> m_gone;
    RemovalVerifier::ResolvedFolders m_resolvedFolders; // a dry run's (countAsGone)
    // The ".DS_Store" files that are members of a group: content, never a leftover the
    // clean-up may remove with its folder.
    std::set<std::string> m_groupedLeftovers;
    std::unique_ptr<TrashBatch> m_lookups; // a dry run: where the copies would go, folder by folder
    // A dry run's: what the user may do in each copy's folder (a dry run changes nothing,
    // so a folder's answer holds for every copy in it).
    std::unordered_map<std::string, FolderRemovalAccess> m_folderAccess;
    std::uint64_t m_markedAtStart = 0;
    std::uint64_t m_markedSizeAtStart = 0;
    std::uint64_t m_removedFiles = 0;
    std::uint64_t m_removedSize = 0;
    std::uint64_t m_step = 1;
    std::uint64_t m_countdown = 1;
    std::uint64_t m_handled = 0;
    bool m_stopped = false;
    bool m_complete = false;
    bool m_finished = false;

    std::thread m_thread;
    std::atomic<bool> m_threadRunning{false};
};

} // namespace corvel
