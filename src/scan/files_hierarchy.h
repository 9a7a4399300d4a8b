#pragma once
// CVFilesHierarchy: walks the scan's root folders into a tree of folder and file nodes
// and files every comparable node under its size. The tree walker reads each root
// (folder descriptors, a few threads, entries in single-pass order) and decides with the
// ignore list what is entered, what is hidden content and what may not be removed; this
// class makes the nodes from its entries.
//
// Runs on the scan thread. canContinue may be cleared from any thread (stop); the walk
// reads it between entries.

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "engine/folder.h"
#include "engine/node.h"
#include "scan_counters.h"
#include "size_groups.h"
#include "tree_walker.h"

namespace corvel {

class CVIgnoreList;
class CVNodeTypeGenerator;
class CVPreferences;

// Notifications of the walk (object: none). The dropped-files ones carry the refused
// root as userInfo["path"] and the verdict as userInfo["verdict"].
inline constexpr const char* kErrorOccuredWhileScanningNotification =
    "com.halvik.corvel.errorOccuredWhileScanning";
inline constexpr const char* kDroppedFilesAreSystemNotification = "com.halvik.Corvel.droppedFilesAreSystem";
inline constexpr const char* kDroppedFilesAreIgnoredNotification = "com.halvik.Corvel.droppedFilesAreIgnored";

// A folder the walk could not read completely, and why (the first reason met).
struct IncompleteFolder {
    std::string path;
    std::string reason;
    bool unlisted = false; // the folder itself could not be read, not only something inside it
    std::string entry;     // unless unlisted: the entry inside it that could not be read
};

class CVFilesHierarchy {
public:
    struct Services {
        CVIgnoreList& ignoreList;
        CVPreferences& preferences;
        // Given to the top node of every root walked (node_services.h). Its type generator
        // must be the ignore list's.
        NodeServicesPtr nodes;
    };

    CVFilesHierarchy(std::vector<CVScanPath> rootPaths, Services services);

    // The whole walk; nothing when canContinue is already false.
    void rescan();
    void buildHierarchyForPath(const CVScanPath& root);
    std::string correctedPath(const std::string& path) const;
    // True when the root at path (as walked, after correctedPath) is left out because
    // the walk of otherRoot covers it: it lies inside otherRoot, unless otherRoot is "/"
    // and the path lies on another volume, which the walk of "/" does not enter. Reads
    // the mount table only in that last case.
    static bool isRootCoveredBy(const std::string& path, const std::string& otherRoot);
    void sortFoldersBySize(const std::vector<std::shared_ptr<CVFolder>>& folders);
    void fatalErrorOccured();

    bool canContinue() const { return m_canContinue.load(std::memory_order_relaxed); }
    void setCanContinue(bool value) { m_canContinue.store(value, std::memory_order_relaxed); }
    const std::vector<CVScanPath>& rootPaths() const { return m_rootPaths; }
    // The comparable files and folders filed by size once rescan has returned (sizes
    // held by one node alone left out).
    SizeGroups& filesGroupedBySize() { return m_filesGroupedBySize; }
    // The top node of each walked root, in walk order.
    const std::vector<NodePtr>& topNodes() const { return m_topNodes; }
    void setNodeDelegate(CVNodeDelegate* delegate) { m_nodeDelegate = delegate; }
    std::uint64_t failedRootPathsCount() const { return m_failedRootPathsCount; }
    // The folders holding an entry the walk could not read (a folder it could not list,
    // an entry whose status failed, a path too long, a cycle, a folder too deep to be
    // entered), each once, in walk order. Such a folder and every folder above it are
    // never offered for folder comparison: what was not read cannot be compared. Read
    // it once rescan has returned.
    const std::vector<IncompleteFolder>& incompleteFolders() const { return m_incompleteFolders; }
    // Counts the folders and files the walk meets there (may be null; not owned).
    void setCounters(ScanCounters* counters) { m_counters = counters; }
    // The protected system folders met inside the roots and left out, in walk order.
    const std::vector<std::string>& skippedSystemFolders() const { return m_skippedSystemFolders; }
    // The folders met inside the roots that lie on another file system (a mounted drive),
    // which the walk does not enter, in walk order; a root walked on its own is not one.
    const std::vector<std::string>& foldersOnOtherVolumes() const { return m_foldersOnOtherVolumes; }

    // Entries deeper than this under plain folders are not entered.
    static constexpr int kMaxPlainDepth = TreeWalker::kMaxPlainDepth;
    // How the roots are read (threads, cuts); the default uses every core.
    void setWalkOptions(TreeWalker::Options options) { m_walkOptions = options; }

private:
    std::atomic<bool> m_canContinue{true};
    std::vector<CVScanPath> m_rootPaths;
    // Comparable nodes, added in walk order and filed by size when the walk ends.
    SizeGroups m_filesGroupedBySize;
    // Each root as its real path (links and "." resolved); a root given twice, or a
    // link to another root, is walked once.
    void canonicaliseRootPaths();
    struct Walk;
    void addFile(Walk& walk, const WalkEntry& entry);
    void addFolder(Walk& walk, const WalkEntry& entry);
    void noteIncomplete(Walk& walk, const WalkEntry& entry, const std::string& reason);
    std::vector<IncompleteFolder> m_incompleteFolders;
    std::vector<std::string> m_skippedSystemFolders;
    std::vector<std::string> m_foldersOnOtherVolumes;
    ScanCounters* m_counters = nullptr;
    TreeWalker::Options m_walkOptions{TreeWalker::defaultThreads(), false};
    std::vector<NodePtr> m_topNodes;
    CVNodeDelegate* m_nodeDelegate = nullptr;
    std::uint64_t m_failedRootPathsCount = 0;
    Services m_services;
};

// The two mail download folders under the account's real home.
std::vector<std::string> mailDownloadFolders();

} // namespace corvel
