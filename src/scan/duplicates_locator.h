#pragma once
// CVDuplicatesLocator: drives one scan. scanPaths starts a thread that walks the roots
// (CVFilesHierarchy), searches the size groups from the largest size down, folds equal
// nodes into groups and hands them to a fresh results collection. Progress and the
// scan's start and end go out as notifications; stopScan ends it at the next file.
//
// Threads: the owner (the main thread in the application) calls scanPaths, stopScan and
// the destructor; the scan runs on its own thread and, at its end, waits for the main
// thread to run finishScan. Nothing the owner calls ever waits for the main thread, so
// the owner may be the main thread while a scan waits for it: a new scan's thread waits
// for the previous scan's thread, and stopping (or destroying) drops a finishScan still
// queued, which frees the scan thread without the main thread.

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include "engine/content_comparison.h"
#include "engine/group.h"
#include "engine/node.h"
#include "files_hierarchy.h"
#include "folder_fingerprint.h"
#include "platform/change_notifier.h"
#include "platform/file_access.h"
#include "platform/thread_annotations.h"
#include "results/duplicates_controller.h"
#include "scan_counters.h"
#include "scan_state.h"
#include "settings/ignore_list.h"
#include "size_group_reader.h"
#include "size_search_policy.h"
#include "unread_files.h"

namespace corvel {

class CVIgnoreList;
class CVPreferences;
class UserDefaults;

inline constexpr const char* kScanStartedNotification = "com.halvik.corvel.scanStarted";
inline constexpr const char* kScanFinishedNotification = "com.halvik.corvel.scanFinished";
inline constexpr const char* kProgressUpdatedNotification = "com.halvik.corvel.ProgressUpdated";
inline constexpr const char* kShowFilesWithNoPermissionsKey = "ShowFilesWithNoPermissions";

class CVDuplicatesLocator : public CVNodeDelegate {
public:
    struct Services {
        CVIgnoreList& ignoreList;
        CVPreferences& preferences;
        UserDefaults& defaults;
        // Given to every tree the scan makes: its nodes are typed by its type generator,
        // read library records through its media manager and memoise folder comparisons
        // in its node cache (cleared at the start of every scan). Its type generator must
        // be the ignore list's.
        NodeServicesPtr nodes;
    };

    // On the shared ignore list, preferences, standard store and node services.
    CVDuplicatesLocator();
    explicit CVDuplicatesLocator(Services services);
    // Stops every scan (stopScan) and waits for the scan threads, which by then wait for
    // nothing on the main thread: it may run on the main thread while a scan waits for it.
    // Not from inside a handler of this locator's own "scanFinished" (that handler runs
    // while the scan thread waits for it).
    ~CVDuplicatesLocator() override;
    CVDuplicatesLocator(const CVDuplicatesLocator&) = delete;
    CVDuplicatesLocator& operator=(const CVDuplicatesLocator&) = delete;

    // False for an empty list; otherwise starts the scan on a new thread and answers true
    // at once. A scan still running, or waiting for the main thread to finish, ends first
    // (its "scanFinished" comes before the new "scanStarted"): the new thread waits for
    // it, the caller never does. Owner's thread.
    bool scanPaths(const std::vector<std::string>& paths);
    // The whole scan on the calling thread. Holds the locator's lock throughout, so a
    // second scan waits for the first. On the main thread finishScan runs inline.
    void asyncScanPaths(const std::vector<std::string>& paths);
    void setPaths(const std::vector<std::string>& paths);
    // Any thread: Idle; the running scan stops at its next check (what was found
    // stays), scans asked for before this call and not yet begun never begin, and none
    // of them posts "scanFinished" any more (a finishScan queued for the main thread is
    // dropped unless it is already running).
    void stopScan();
    // On the main thread: Idle and "scanFinished".
    void finishScan();
    // Sets the state as it is (the scan window's error path sets Idle). Any thread.
    void setState(ScanState state) { m_state = state; }

    // What a scan does between the walk and the search: Scanning and a fresh results
    // collection. For callers that walk on their own (tests, tools).
    void startSearching();
    // Searches the size groups, largest first, as the preferences and overrides allow,
    // and lets go of them at the end (or on a stop).
    void locateDuplicatesInDictionary(SizeGroups& groups);
    // The groups of equal nodes in one size group, in the order their first members
    // come in the sorted group.
    std::vector<GroupPtr> findDuplicatesInSizeGroup(std::span<NodePtr> nodes);
    void addDuplicateGroup(const GroupPtr& group);
    void addDuplicateGroupsFromArray(const std::vector<GroupPtr>& groups);
    void updateProgress(double delta, double delaySeconds);
    // True when the node takes no part in the comparison.
    bool ignoreFile(const CVNode& node) const;
    // Frees files an iTunes library does not list, and forbids removing what the user
    // may not delete (item: what the file's digest read of it, else read here) and the
    // folders the ignore list protects (home and its standard folders, and any folder
    // holding one).
    void decideRemoveForbidden(CVFile& file,
                               const std::optional<ItemRemovalAccess>& item = std::nullopt) const;
    // The removal access of the file's folder, read once per folder and scan.
    FolderRemovalAccess folderAccess(const CVFile& file) const;
    // Folders first, shallower paths first; other nodes keep their walk order.
    static void sortSizeGroup(std::span<NodePtr> nodes);

    bool stopSignaturesComparing() const override { return state() == ScanState::Idle; }
    // Notes a folder's child that could not be read for the comparison (unreadFiles).
    void fileCouldNotBeRead(CVFile& file, int error) override { m_unreadFiles.note(file, error); }

    // A hard minimum size for this scan (as "OverrideMinSize" on with that minimum),
    // without touching the stored preferences; nothing restores the preferences' rule.
    void setMinimumSizeOverride(std::optional<std::uint64_t> bytes) { m_minimumSizeOverride = bytes; }
    // Folders found equal on sampled content are compared byte for byte before they are
    // grouped (for results that must hold on every byte). Folders that differ are not
    // grouped, so the files inside them are still compared as files; the folder groups
    // made are marked verified. Off by default.
    void setFoldersConfirmedWhole(bool value) { m_foldersConfirmedWhole = value; }
    // Why folders confirmed whole could not be compared (they were then not grouped), in
    // the order met; read once the scan has ended.
    const std::vector<std::string>& confirmationProblems() const { return m_confirmationProblems; }
    // Files and folders larger than this are not compared in this scan; nothing: no limit.
    void setMaximumSizeOverride(std::optional<std::uint64_t> bytes) { m_maximumSizeOverride = bytes; }
    // How many signature bytes a scan keeps at once for the byte comparison, all size
    // groups together (kKeptBytesBudget unless set); the rest is read again when needed.
    void setKeptBytesLimit(std::uint64_t bytes) { m_keptBytesLimit = bytes; }
    // Whether the last scan left sizes below its minimum unsearched: with the automatic
    // minimum, those the rule of the largest groups cut off (read after the scan ended).
    bool smallerSizesSkipped() const { return m_smallerSizesSkipped; }
    // How far the running scan has got; any thread.
    const ScanCounters& counters() const { return m_counters; }
    // How many groups the last scan left out because the user may remove none of their
    // copies (without "ShowFilesWithNoPermissions"); read after the scan has ended.
    std::uint64_t unremovableGroupsLeftOut() const { return m_unremovableGroupsLeftOut.load(); }
    // The files the last scan listed but could not open or read when it compared their
    // content (so they joined no group), each once, beside the folders its walk could not
    // read (hierarchy()->incompleteFolders()); emptied when a scan starts. Read after the
    // scan has ended.
    const UnreadFiles& unreadFiles() const { return m_unreadFiles; }
    // The pauses that let a progress bar show its last steps; off for the command line.
    void setProgressPauses(bool enabled) { m_progressPauses = enabled; }

    // The readers below may be called from any thread while a scan runs.
    ScanState state() const { return m_state.load(std::memory_order_relaxed); }
    double progress() const { return m_progress.load(std::memory_order_relaxed); }
    double progressDelta() const { return m_progressDelta.load(std::memory_order_relaxed); }
    bool showFilesWOPermissions() const { return m_showFilesWOPermissions; }
    std::string currentScanPath() const;
    std::vector<CVScanPath> pathsToScan() const;
    std::shared_ptr<CVDuplicatesController> duplicatesController() const;
    std::shared_ptr<CVFilesHierarchy> hierarchy() const;
    // True from scanPaths until every scan thread it started has returned.
    bool isScanThreadRunning() const { return m_runningThreads.load() > 0; }
    // True while a scan thread waits for the main thread to run finishScan.
    bool isWaitingForMainThread() const;
    // Waits for the scan threads to return. A scan that completes waits for the main
    // thread: on the main thread, run the main queue until isScanThreadRunning is false
    // first, or stop the scan.
    void waitForScanThread();
    ChangeNotifier& changeNotifier() { return m_notifier; }

private:
    // A finishScan queued for the main thread, and whether it may still run.
    struct FinishHandOff;

    // A new scan request's number; stopScan stops every request up to the last one.
    std::uint64_t newRequest() EXCLUDES(m_fieldsMutex);
    bool isStopped(std::uint64_t request) const EXCLUDES(m_fieldsMutex);
    // asyncScanPaths for a numbered request.
    void runScan(const std::vector<std::string>& paths, std::uint64_t request) EXCLUDES(m_scanMutex);
    // The end of a completed scan: finishScan on the main thread, waited for, unless the
    // request is stopped meanwhile.
    void finishOnMainThread(std::uint64_t request);
    void makeResultsCollection() EXCLUDES(m_fieldsMutex);
    void setCurrentScanPath(const std::string& path) EXCLUDES(m_fieldsMutex);
    // The node's path as the current scan path, at most every few hundredths of a
    // second: a display reads it a few times a second, and tens of thousands of size
    // groups would each work a path out for nothing.
    void showScanPath(const CVNode& node);
    // The files of a size group that take part in the comparison, with their places.
    void comparableFiles(std::span<const NodePtr> nodes, std::vector<CVFile*>& files,
                         std::vector<std::size_t>& positions) const;
    // The size group's files in classes of equal signatures: from the reader during a
    // scan, read on this thread otherwise.
    EqualClasses classesOfSizeGroup(std::span<const NodePtr> nodes);
    // The folders of the size group that may equal each other: by fingerprint when the
    // group holds many, else every pair.
    FolderCandidates folderCandidates(std::span<const NodePtr> nodes);
    // The group the folder at i forms with the later folders equal to it, or null; only
    // its candidates are compared with it. A later folder holding the very same files
    // (hard links) is no copy: it is marked in sameFilesAsEarlier (one flag per node) and
    // left out of folder groups after that.
    GroupPtr groupOfFolder(std::span<NodePtr> nodes, std::size_t i, const FolderCandidates& candidates,
                           std::vector<bool>& sameFilesAsEarlier);
    // Whether two folders whose signatures match hold the same bytes: true unless folders
    // are confirmed whole and these were compared on samples, then by their content.
    bool confirmedWhole(const CVFolder& folder, const CVFolder& other, bool sampled);
    // The group a class member forms with the later members not yet taken, or null.
    // nodes: the size group the members' places refer to.
    GroupPtr groupOfClassMember(std::span<const NodePtr> nodes, const std::vector<ClassMember>& members,
                                std::size_t m, std::vector<bool>& taken);
    // The group of first and its matches, or null when it is to be dropped. The members'
    // removal is decided here unless the caller has done it (decided).
    GroupPtr makeGroup(const std::shared_ptr<CVFile>& first,
                       const std::vector<std::shared_ptr<CVFile>>& matches, bool decided = false);
    // Queues the size groups from keys[from] on that the policy searches, up to the
    // reader's window.
    void queueAhead(const std::vector<std::uint64_t>& keys, std::size_t from, SizeGroups& groups,
                    const SizeSearchPolicy& policy);
    // The sizes held by more than one node and not above the maximum, largest first.
    std::vector<std::uint64_t> sizesToSearch(const SizeGroups& groups) const;
    // The counters, the log lines and the reader before the first size; the reader freed
    // after the last (or on a stop).
    void beginSizeSearch(const std::vector<std::uint64_t>& sizes, std::uint64_t useful);
    void endSizeSearch();

    Services m_services;
    // Held by a scan from start to end, so that scans run one after the other.
    Mutex m_scanMutex;
    // Guards the fields other threads read during a scan.
    mutable Mutex m_fieldsMutex;
    std::vector<CVScanPath> m_pathsToScan GUARDED_BY(m_fieldsMutex);
    std::shared_ptr<CVFilesHierarchy> m_hierarchy GUARDED_BY(m_fieldsMutex);
    std::shared_ptr<CVDuplicatesController> m_duplicatesController GUARDED_BY(m_fieldsMutex);
    std::string m_currentScanPath GUARDED_BY(m_fieldsMutex);
    std::uint64_t m_requestedScans GUARDED_BY(m_fieldsMutex) = 0;
    std::uint64_t m_stoppedThrough GUARDED_BY(m_fieldsMutex) = 0;
    std::shared_ptr<FinishHandOff> m_pendingFinish GUARDED_BY(m_fieldsMutex);
    // The fields below, up to m_thread, belong to the thread that runs the scan (or, for
    // the settings, to the owner between scans); the atomics may be read from any thread.
    std::chrono::steady_clock::time_point m_scanPathShown;
    bool m_showFilesWOPermissions = false;
    std::atomic<ScanState> m_state{ScanState::Idle};
    // True while asyncScanPaths runs: only then does stopScan stop library reads.
    std::atomic<bool> m_scanning{false};
    std::atomic<double> m_progress{0};
    std::atomic<double> m_progressDelta{0};
    std::optional<std::uint64_t> m_minimumSizeOverride;
    bool m_foldersConfirmedWhole = false;
    std::vector<std::string> m_confirmationProblems;
    std::optional<std::uint64_t> m_maximumSizeOverride;
    std::uint64_t m_keptBytesLimit = kKeptBytesBudget;
    bool m_smallerSizesSkipped = false;
    ScanCounters m_counters;
    std::atomic<std::uint64_t> m_unremovableGroupsLeftOut{0};
    bool m_progressPauses = true;
    // Before the reader, which notes into it.
    UnreadFiles m_unreadFiles;
    std::unique_ptr<SizeGroupReader> m_reader;
    // Compares folders whole when they are confirmed so; made on first use.
    std::unique_ptr<ContentComparer> m_contentComparer;
    mutable std::unordered_map<const CVFolder*, FolderRemovalAccess> m_folderAccess;
    std::vector<std::string> m_protectedFolders;       // the ignore list's, taken as a search begins
    std::vector<FolderIdentity> m_protectedIdentities; // theirs and their parents', as well
    std::size_t m_queuedUpTo = 0;
    // The last scan thread; each scan thread waits for the one before it.
    std::thread m_thread;
    std::atomic<int> m_runningThreads{0};
    ChangeNotifier m_notifier;
};

} // namespace corvel
