#pragma once
// Byte-for-byte comparison of two files or two folder trees, for the checks that must not
// trust sampled evidence: confirming a group found by samples, and the comparison of a copy
// with the copy that stays, immediately before the copy is removed.
//
// Files are streamed in chunks of kContentComparisonChunk bytes (the second file in
// smaller pieces, each compared while it is in the processor's cache) into two buffers the
// comparer owns and reuses; a file is never held whole in memory. Nothing follows a
// symbolic link below the given paths (the last component of a given path is not followed
// either), and a tree is walked relative to folder descriptors, so a folder swapped for a
// link in the middle of the walk is noticed, never entered.
//
// Outcomes:
//   Equal          the contents are the same. Two trees are equal when they hold the same
//                  names (bytewise, so case counts) with the same types at every level,
//                  files byte-equal, symbolic links with the same target text, folders
//                  equal in turn. Two paths naming the same file or folder (same device and
//                  inode) are equal without reading, and the result says so (sameFile): a
//                  caller about to remove one of them must not take that as a second copy.
//   Different      a difference was found; the message says the first one met.
//   CannotCompare  the answer is unknown: a path cannot be opened or read, it is a socket,
//                  FIFO or device, another mount or file system lies inside a tree, the
//                  nesting is deeper than the bound, or a file or folder changed while it
//                  was being compared. Never to be read as "equal".
//   Stopped        a stop was requested; the request is polled before each chunk of a file
//                  and before each entry of a folder.
//
// Messages name full paths (the given path, joined with the relative path inside a tree):
//   "P1 differs from P2 at byte N" (N counted from 1, as cmp(1) does),
//   "P1 has X bytes, P2 has Y", "P is only in ROOT", "P1 is a folder, P2 is a file",
//   "P1 points to \"T1\", P2 to \"T2\"", "cannot read P: REASON", "P is a socket",
//   "P is a FIFO", "P is a device", "P is a mount point", "P is on another file system",
//   "P changed during the comparison", "P is nested deeper than N folders", "stopped".
//
// Threads: any thread; one ContentComparer is used by one thread at a time. The free
// functions make a comparer for the call.

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/item_status.h"

namespace corvel {

inline constexpr std::size_t kContentComparisonChunk = std::size_t{1} << 20;
inline constexpr unsigned kMaxComparedTreeDepth = 4096;

struct ContentComparison {
    enum Outcome { Equal, Different, CannotCompare, Stopped };

    // A result nobody filled in never reads as equal.
    Outcome outcome = CannotCompare;
    // Empty when equal; otherwise what was found (see above), for logs and failure reasons.
    std::string message;
    // Content bytes confirmed equal before the answer, counted once per pair of files
    // (two equal files of N bytes give N; the disk reads were 2N).
    std::uint64_t bytesCompared = 0;
    // True when the two given paths are one file or folder (equal without reading).
    bool sameFile = false;
    // What the two paths led to when the comparison looked, or the statuses it was given
    // (device and inode; 0 when it could not look): a caller checks that they are the items
    // it meant, since a folder of a path swapped meanwhile leads a path elsewhere. Anything
    // opened was checked to be these.
    std::uint64_t deviceA = 0;
    std::uint64_t inodeA = 0;
    std::uint64_t deviceB = 0;
    std::uint64_t inodeB = 0;

    bool isEqual() const { return outcome == Equal; }
};

// One entry of the first tree as it was when compared, in walk order (a folder before its
// entries): what a permanent removal of that tree may delete, each entry checked again
// just before it goes. Files also carry their size, modification time and change time
// (which no program can set back); folders and links only their identity.
struct ComparedEntry {
    unsigned depth = 0;     // 0: the compared path itself
    std::string name;       // the last component; empty at depth 0
    std::uint32_t type = 0; // S_IFREG, S_IFDIR or S_IFLNK
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    std::uint64_t size = 0;
    std::int64_t modificationTime = 0; // nanoseconds since 1970
    std::int64_t changeTime = 0;       // nanoseconds since 1970
};

class ContentComparer {
public:
    // Answers true when the comparison must stop; called on the comparing thread.
    using StopRequest = std::function<bool()>;

    // stop may be empty (never stopped). maxDepth bounds the nesting of folders below a
    // compared folder (the folder itself is depth 0).
    explicit ContentComparer(StopRequest stop = {}, unsigned maxDepth = kMaxComparedTreeDepth);
    ~ContentComparer();
    ContentComparer(const ContentComparer&) = delete;
    ContentComparer& operator=(const ContentComparer&) = delete;

    // Compares two regular files. Anything else (a folder, a link, a FIFO ...) at either
    // path cannot be compared.
    ContentComparison compareFileContents(const std::string& pathA, const std::string& pathB);

    // Compares two trees. A path naming a file compares as a file, a link by its target; a
    // file against a folder (or a link) is different. With comparedA, the entries of the
    // first tree that were compared are listed there (complete only when equal). seenA
    // and seenB, when given, are the paths' status as the caller has just taken it
    // (itemStatus), which the comparison then does not take again.
    ContentComparison compareTrees(const std::string& pathA, const std::string& pathB,
                                   std::vector<ComparedEntry>* comparedA = nullptr,
                                   const ItemStatus* seenA = nullptr, const ItemStatus* seenB = nullptr);

private:
    class Walk;

    // Grows both buffers to at least size bytes (never shrinks them).
    void reserveBuffers(std::size_t size);

    StopRequest m_stop;
    unsigned m_maxDepth;
    std::unique_ptr<char[]> m_bufferA;
    std::unique_ptr<char[]> m_bufferB;
    std::size_t m_bufferSize = 0;
};

// One-call forms of the comparer's methods (see ContentComparer); stop may be null and
// must outlive the call.
ContentComparison compareFileContents(const std::string& pathA, const std::string& pathB,
                                      const std::atomic<bool>* stop = nullptr);
ContentComparison compareTrees(const std::string& pathA, const std::string& pathB,
                               const std::atomic<bool>* stop = nullptr);

} // namespace corvel
