#pragma once
// TreeWalker: reads one root's folder tree with folder descriptors on a few threads and
// hands its entries to the calling thread in exactly the order one single pass would
// give them.
//
// The walk is cut into tasks, each one pass over a folder subtree (FolderWalk: folders
// opened relative to their parent, links never followed, no crossing of devices, each
// folder's entries in byte order of their names). While work is short, a task leaves a
// sub-folder it enters to a new task and notes, among its own entries, where the
// sub-task's entries belong; the consumer follows those notes, so the cuts never show.
// A thread that waits for the next task in order walks it itself.
//
// Each entry carries everything that needs the folder listing or the file system: the
// ignore list's verdict, a folder's node type, whether its content is hidden or may not
// be removed, the depth limit's decision, and whether its path passes PATH_MAX. Making
// nodes from the entries is the consumer's job, on its own thread.
//
// Threads: the workers only read the ignore list and the type generator, which the
// caller prepares before the walk; canContinue may be cleared from any thread and is
// read between entries. walk() returns once every worker has finished. Each task being
// walked holds at most FolderWalk::kOpenFolders folder descriptors.

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "engine/node.h"

namespace corvel {

class CVIgnoreList;

struct WalkEntry {
    enum Kind : std::uint8_t {
        File,      // a file (or other non-folder item that is not a link)
        Folder,    // a folder, entered or not; a FolderEnd follows
        FolderEnd, // the last entry of a folder
        Failure,   // an entry that could not be read (logged by the consumer)
        Unseen,    // an entry left out of the tree (a symbolic link, a dropped .DS_Store):
                   // the current folder holds more than its nodes show
    };
    Kind kind = File;
    bool ignored = false;             // refused by the ignore list; kept as an ignored node
    bool contentHidden = false;       // Folder: its children are hidden content
    bool contentUndeletable = false;  // Folder: its extension forbids removing its content
    bool closesFolder = false;        // Failure: the folder just entered could not be read
    bool endsRoot = false;            // Failure: the root is gone or its device failed
    bool depthLimited = false;        // Folder: too deep to be entered
    bool notEntered = false;          // Folder: ignored or on another device, so not entered
    bool systemFolder = false;        // Folder: ignored as a protected system folder
    bool pathTooLong = false;         // File, Folder: the whole path passes PATH_MAX, so the
                                      // calls that take paths (reading, removing) fail on it
    NodeType type = kNodeTypeUnknown; // Folder: node type
    int error = 0;                    // Failure: errno
    std::uint64_t size = 0;
    std::uint64_t sizeOnDisk = 0;
    std::uint64_t inode = 0;
    std::int64_t ctime = 0;
    std::int64_t mtimeNanoseconds = 0; // since 1970, negative before
    std::uint64_t device = 0;          // Folder: its device (every entry of a root shares it)
    std::string_view name;             // last component ("/" for the root "/")
    std::string_view path;             // whole path; empty for files below the root
};

class TreeWalker {
public:
    struct Options {
        // Worker threads besides the caller; 0 walks everything on the calling thread.
        unsigned threads = 2;
        // Cut at every folder (tests: the cuts must never show).
        bool cutEverywhere = false;
        // While this many entries wait for the consumer, tasks other than the one it
        // reads pause, so what is walked ahead stays a few MB.
        std::size_t bufferedEntries = 32768;
    };

    // Entries deeper than this under plain folders are not entered.
    static constexpr int kMaxPlainDepth = 26;

    TreeWalker(CVIgnoreList& ignoreList, const std::atomic<bool>& canContinue, Options options);

    // Walks root and calls consume for every entry, in order, on the calling thread.
    // Answers false when the root could not be opened at all (errno is kept in error).
    using Consumer = std::function<void(const WalkEntry&)>;
    bool walk(const CVScanPath& root, const Consumer& consume, int& error);

    // The default number of worker threads: one per core, at least 1, at most 4.
    static unsigned defaultThreads();

private:
    CVIgnoreList& m_ignoreList;
    const std::atomic<bool>& m_canContinue;
    Options m_options;
};

} // namespace corvel
