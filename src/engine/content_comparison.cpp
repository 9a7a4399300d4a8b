#include "content_comparison.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "platform/item_status.h"
#include "platform/unique_fd.h"

namespace corvel {

namespace {

constexpr std::size_t kComparedPiece = std::size_t{128} << 10;
constexpr int kOpenFileFlags = O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
constexpr int kOpenFolderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

// True when the open descriptor is still the entry that was looked at; *st gets its status.
bool descriptorMatches(int fd, const ItemStatus& expected, struct stat* st) {
    return ::fstat(fd, st) == 0 && st->st_dev == expected.device && st->st_ino == expected.inode &&
           (st->st_mode & S_IFMT) == expected.type;
}

// Reads up to length bytes (fewer only at the end of the file); -1 with errno on failure.
ssize_t readFully(int fd, char* into, std::size_t length) {
    std::size_t done = 0;
    while (done < length) {
        const ssize_t n = ::read(fd, into + done, length - done);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            return -1;
        if (n == 0)
            break;
        done += static_cast<std::size_t>(n);
    }
    return static_cast<ssize_t>(done);
}

// The target text of a link; false with errno on failure.
bool linkTarget(int dirFd, const char* name, std::string& out) {
    std::vector<char> buffer(256);
    for (;;) {
        const ssize_t n = ::readlinkat(dirFd, name, buffer.data(), buffer.size());
        if (n < 0)
            return false;
        if (static_cast<std::size_t>(n) < buffer.size()) {
            out.assign(buffer.data(), static_cast<std::size_t>(n));
            return true;
        }
        buffer.resize(buffer.size() * 2);
    }
}

// The names in an open folder except "." and "..", sorted bytewise; 0 or the errno value.
int listFolder(int folderFd, std::vector<std::string>& names) {
    // A descriptor of its own, so the listing's offset is not the walk's.
    const int listingFd = ::openat(folderFd, ".", kOpenFolderFlags);
    if (listingFd < 0)
        return errno;
    DIR* dir = ::fdopendir(listingFd);
    if (!dir) {
        const int saved = errno;
        ::close(listingFd);
        return saved;
    }
    names.clear();
    int failure = 0;
    for (;;) {
        errno = 0;
        const dirent* entry = ::readdir(dir);
        if (!entry) {
            failure = errno;
            break;
        }
        const char* name = entry->d_name;
        if (name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0')))
            continue;
        names.emplace_back(name);
    }
    ::closedir(dir);
    std::sort(names.begin(), names.end());
    return failure;
}

// The path without slashes at its end ("/" stays): a trailing slash would make the
// system follow a link in the last component.
std::string withoutTrailingSlashes(std::string path) {
    while (path.size() > 1 && path.back() == '/')
        path.pop_back();
    return path;
}

// The path of rel inside root, as messages name it.
std::string joinPath(const std::string& root, const std::string& rel) {
    if (rel.empty())
        return root;
    if (!root.empty() && root.back() == '/')
        return root + rel;
    return root + "/" + rel;
}

const char* typeName(mode_t type) {
    switch (type) {
    case S_IFREG:
        return "a file";
    case S_IFDIR:
        return "a folder";
    case S_IFLNK:
        return "a symbolic link";
    case S_IFSOCK:
        return "a socket";
    case S_IFIFO:
        return "a FIFO";
    case S_IFCHR:
    case S_IFBLK:
        return "a device";
    default:
        return "of an unknown type";
    }
}

bool isComparableType(mode_t type) {
    return type == S_IFREG || type == S_IFDIR || type == S_IFLNK;
}

ContentComparison verdict(ContentComparison::Outcome outcome, std::string message) {
    ContentComparison result;
    result.outcome = outcome;
    result.message = std::move(message);
    return result;
}

ContentComparison cannotRead(const std::string& path, int errnoValue) {
    return verdict(ContentComparison::CannotCompare,
                   "cannot read " + path + ": " + std::strerror(errnoValue));
}

ContentComparison changedDuring(const std::string& path) {
    return verdict(ContentComparison::CannotCompare, path + " changed during the comparison");
}

ContentComparison refusedType(const std::string& path, mode_t type) {
    return verdict(ContentComparison::CannotCompare, path + " is " + typeName(type));
}

ContentComparison differentTypes(const std::string& pathA, mode_t typeA, const std::string& pathB,
                                 mode_t typeB) {
    return verdict(ContentComparison::Different,
                   pathA + " is " + typeName(typeA) + ", " + pathB + " is " + typeName(typeB));
}

ContentComparison equal() {
    return verdict(ContentComparison::Equal, {});
}

ContentComparison stopped() {
    return verdict(ContentComparison::Stopped, "stopped");
}

} // namespace

// One comparison: the two roots, what is known of them, and the buffers of the comparer.
class ContentComparer::Walk {
public:
    Walk(ContentComparer& owner, const std::string& rootA, const std::string& rootB,
         std::vector<ComparedEntry>* comparedA = nullptr, const ItemStatus* seenA = nullptr,
         const ItemStatus* seenB = nullptr)
        : m_owner(owner), m_rootA(withoutTrailingSlashes(rootA)), m_rootB(withoutTrailingSlashes(rootB)),
          m_seenA(seenA), m_seenB(seenB), m_comparedA(comparedA) {}

    // The result with what the walk counted and the roots it looked at.
    ContentComparison finished(ContentComparison result) const {
        result.bytesCompared = m_bytesCompared;
        result.deviceA = m_statusA.device;
        result.inodeA = m_statusA.inode;
        result.deviceB = m_statusB.device;
        result.inodeB = m_statusB.inode;
        return result;
    }

    bool stopRequested() const { return m_owner.m_stop && m_owner.m_stop(); }

    ContentComparison files() {
        ItemStatus a;
        ItemStatus b;
        if (auto failed = rootStatuses(a, b))
            return *failed;
        if (a.type != S_IFREG)
            return refusedType(m_rootA, a.type);
        if (b.type != S_IFREG)
            return refusedType(m_rootB, b.type);
        return openedFiles(AT_FDCWD, m_rootA.c_str(), a, m_rootA, AT_FDCWD, m_rootB.c_str(), b, m_rootB,
                           true);
    }

    ContentComparison trees() {
        ItemStatus a;
        ItemStatus b;
        if (auto failed = rootStatuses(a, b))
            return *failed;
        if (stopRequested())
            return stopped();
        if (!isComparableType(a.type))
            return refusedType(m_rootA, a.type);
        if (!isComparableType(b.type))
            return refusedType(m_rootB, b.type);
        if (sameItem(a, b)) {
            ContentComparison same = equal();
            same.sameFile = true;
            return same;
        }
        if (a.type != b.type)
            return differentTypes(m_rootA, a.type, m_rootB, b.type);
        record(0, {}, a);
        if (a.type == S_IFREG)
            return openedFiles(AT_FDCWD, m_rootA.c_str(), a, m_rootA, AT_FDCWD, m_rootB.c_str(), b, m_rootB,
                               false);
        if (a.type == S_IFLNK)
            return links(AT_FDCWD, m_rootA.c_str(), m_rootA, AT_FDCWD, m_rootB.c_str(), m_rootB);
        return folders(a, b);
    }

private:
    // Reads both roots' status; the failure to report when one cannot be read.
    // A status the caller has just taken is used as it is (every open is checked against
    // it all the same).
    std::optional<ContentComparison> rootStatuses(ItemStatus& a, ItemStatus& b) {
        if (m_seenA)
            a = *m_seenA;
        else if (const int err = itemStatus(AT_FDCWD, m_rootA.c_str(), a))
            return cannotRead(m_rootA, err);
        m_statusA = a;
        if (m_seenB)
            b = *m_seenB;
        else if (const int err = itemStatus(AT_FDCWD, m_rootB.c_str(), b))
            return cannotRead(m_rootB, err);
        m_statusB = b;
        return std::nullopt;
    }

    // Lists an entry of the first tree, when asked to.
    void record(unsigned depth, const std::string& name, const ItemStatus& a) {
        if (!m_comparedA)
            return;
        ComparedEntry entry;
        entry.depth = depth;
        entry.name = name;
        entry.type = a.type;
        entry.device = a.device;
        entry.inode = a.inode;
        if (a.type == S_IFREG) {
            entry.size = a.size;
            entry.modificationTime = a.modificationTime;
            entry.changeTime = a.changeTime;
        }
        m_comparedA->push_back(std::move(entry));
    }

    struct Frame {
        std::vector<std::string> names;
        std::size_t next = 0;
        std::string rel;
        ItemStatus folderA, folderB;
        unsigned depth = 0;
    };

    // Opens name relative to dirFd and checks it is still the entry looked at.
    static bool openChecked(int dirFd, const char* name, int flags, const ItemStatus& expected, UniqueFd& out,
                            int& err, struct stat* opened = nullptr) {
        out = UniqueFd(::openat(dirFd, name, flags));
        if (!out.valid()) {
            err = errno;
            return false;
        }
        err = 0;
        struct stat st {};
        return descriptorMatches(out.get(), expected, opened ? opened : &st);
    }

    // Opens two regular files and compares their contents. sameFile reports two names of
    // one file as such (the given paths); inside trees a hard link across them is just equal.
    ContentComparison openedFiles(int dirA, const char* nameA, const ItemStatus& a, const std::string& pathA,
                                  int dirB, const char* nameB, const ItemStatus& b, const std::string& pathB,
                                  bool reportSameFile) {
        if (sameItem(a, b)) {
            ContentComparison same = equal();
            same.sameFile = reportSameFile;
            return same;
        }
        if (a.size != b.size)
            return verdict(ContentComparison::Different, pathA + " has " + std::to_string(a.size) +
                                                             " bytes, " + pathB + " has " +
                                                             std::to_string(b.size));
        UniqueFd fdA;
        UniqueFd fdB;
        struct stat before[2]{};
        int err = 0;
        if (!openChecked(dirA, nameA, kOpenFileFlags, a, fdA, err, &before[0]))
            return err ? cannotRead(pathA, err) : changedDuring(pathA);
        if (!openChecked(dirB, nameB, kOpenFileFlags, b, fdB, err, &before[1]))
            return err ? cannotRead(pathB, err) : changedDuring(pathB);
        return contents(fdA.get(), pathA, before[0], fdB.get(), pathB, before[1], a.size);
    }

    // Streams two open regular files of equal size through the comparer's buffers; the
    // status of each was taken when it was opened.
    ContentComparison contents(int fdA, const std::string& pathA, const struct stat& beforeA, int fdB,
                               const std::string& pathB, const struct stat& beforeB, std::uint64_t size) {
        if (static_cast<std::uint64_t>(beforeA.st_size) != size)
            return changedDuring(pathA);
        if (static_cast<std::uint64_t>(beforeB.st_size) != size)
            return changedDuring(pathB);
        if (size > kContentComparisonChunk) { // read in more than one chunk
            ::posix_fadvise(fdA, 0, 0, POSIX_FADV_SEQUENTIAL);
            ::posix_fadvise(fdB, 0, 0, POSIX_FADV_SEQUENTIAL);
        }
        const auto chunk = static_cast<std::size_t>(std::min<std::uint64_t>(kContentComparisonChunk, size));
        m_owner.reserveBuffers(chunk);
        char* bufferA = m_owner.m_bufferA.get();
        char* bufferB = m_owner.m_bufferB.get();

        std::uint64_t offset = 0;
        while (offset < size) {
            if (stopRequested())
                return stopped();
            const auto length = static_cast<std::size_t>(std::min<std::uint64_t>(chunk, size - offset));
            const ssize_t readA = readFully(fdA, bufferA, length);
            if (readA < 0)
                return cannotRead(pathA, errno);
            if (static_cast<std::size_t>(readA) != length)
                return changedDuring(pathA);
            // The other side in smaller pieces, each compared while it is still in the cache.
            for (std::size_t done = 0; done < length;) {
                const std::size_t piece = std::min(kComparedPiece, length - done);
                const ssize_t readB = readFully(fdB, bufferB, piece);
                if (readB < 0)
                    return cannotRead(pathB, errno);
                if (static_cast<std::size_t>(readB) != piece)
                    return changedDuring(pathB);
                if (std::memcmp(bufferA + done, bufferB, piece) != 0) {
                    const auto where =
                        std::mismatch(bufferB, bufferB + piece, bufferA + done).first - bufferB;
                    const std::uint64_t at = offset + done + static_cast<std::uint64_t>(where);
                    m_bytesCompared += at - offset;
                    return verdict(ContentComparison::Different,
                                   pathA + " differs from " + pathB + " at byte " + std::to_string(at + 1));
                }
                done += piece;
            }
            offset += length;
            m_bytesCompared += length;
        }
        // A file written to while it was read may have given a mix of old and new bytes.
        if (changedSince(fdA, beforeA))
            return changedDuring(pathA);
        if (changedSince(fdB, beforeB))
            return changedDuring(pathB);
        return equal();
    }

    // The change time too: a program can set the modification time back, not that one.
    static bool changedSince(int fd, const struct stat& before) {
        struct stat after {};
        return ::fstat(fd, &after) != 0 || after.st_size != before.st_size ||
               after.st_mtim.tv_sec != before.st_mtim.tv_sec ||
               after.st_mtim.tv_nsec != before.st_mtim.tv_nsec ||
               after.st_ctim.tv_sec != before.st_ctim.tv_sec ||
               after.st_ctim.tv_nsec != before.st_ctim.tv_nsec;
    }

    ContentComparison links(int dirA, const char* nameA, const std::string& pathA, int dirB,
                            const char* nameB, const std::string& pathB) {
        std::string targetA;
        std::string targetB;
        if (!linkTarget(dirA, nameA, targetA))
            return cannotRead(pathA, errno);
        if (!linkTarget(dirB, nameB, targetB))
            return cannotRead(pathB, errno);
        if (targetA != targetB)
            return verdict(ContentComparison::Different,
                           pathA + " points to \"" + targetA + "\", " + pathB + " to \"" + targetB + "\"");
        return equal();
    }

    // Refuses an entry inside a compared folder that lies on another mount or file system.
    static ContentComparison mountRefusal(const ItemStatus& entry, const ItemStatus& root,
                                          const std::string& path) {
        if (entry.device != root.device)
            return verdict(ContentComparison::CannotCompare, path + " is on another file system");
        if (entry.mountRoot.value_or(false) ||
            (entry.mountId && root.mountId && *entry.mountId != *root.mountId))
            return verdict(ContentComparison::CannotCompare, path + " is a mount point");
        return equal();
    }

    // Lists both folders (already open as m_folderA/B) and pushes their frame, or answers why not.
    ContentComparison enter(std::string rel, const ItemStatus& a, const ItemStatus& b, unsigned depth) {
        Frame frame;
        frame.rel = std::move(rel);
        frame.folderA = a;
        frame.folderB = b;
        frame.depth = depth;
        std::vector<std::string> namesB;
        if (const int err = listFolder(m_folderA.get(), frame.names))
            return cannotRead(joinPath(m_rootA, frame.rel), err);
        if (const int err = listFolder(m_folderB.get(), namesB))
            return cannotRead(joinPath(m_rootB, frame.rel), err);
        if (frame.names != namesB) {
            const auto& namesA = frame.names;
            const auto [itA, itB] = std::mismatch(namesA.begin(), namesA.end(), namesB.begin(), namesB.end());
            const auto child = [&](const std::string& name) {
                return frame.rel.empty() ? name : frame.rel + "/" + name;
            };
            if (itB == namesB.end() || (itA != namesA.end() && *itA < *itB))
                return verdict(ContentComparison::Different,
                               joinPath(m_rootA, child(*itA)) + " is only in " + m_rootA);
            return verdict(ContentComparison::Different,
                           joinPath(m_rootB, child(*itB)) + " is only in " + m_rootB);
        }
        m_frames.push_back(std::move(frame));
        return equal();
    }

    ContentComparison folders(const ItemStatus& a, const ItemStatus& b) {
        m_rootStatusA = a;
        m_rootStatusB = b;
        int err = 0;
        if (!openChecked(AT_FDCWD, m_rootA.c_str(), kOpenFolderFlags, a, m_folderA, err))
            return err ? cannotRead(m_rootA, err) : changedDuring(m_rootA);
        if (!openChecked(AT_FDCWD, m_rootB.c_str(), kOpenFolderFlags, b, m_folderB, err))
            return err ? cannotRead(m_rootB, err) : changedDuring(m_rootB);
        ContentComparison result = enter({}, a, b, 0);
        while (result.isEqual() && !m_frames.empty())
            result = step();
        return result;
    }

    // Goes back to the folders of the frame below the finished one, checking they are still
    // the ones left (no descriptor is kept per level, so deep trees need no more than a few).
    ContentComparison leave() {
        const Frame finished = std::move(m_frames.back());
        m_frames.pop_back();
        if (m_frames.empty())
            return equal();
        const Frame& parent = m_frames.back();
        UniqueFd upA;
        UniqueFd upB;
        int err = 0;
        if (!openChecked(m_folderA.get(), "..", kOpenFolderFlags, parent.folderA, upA, err))
            return err ? cannotRead(joinPath(m_rootA, parent.rel), err)
                       : changedDuring(joinPath(m_rootA, finished.rel));
        if (!openChecked(m_folderB.get(), "..", kOpenFolderFlags, parent.folderB, upB, err))
            return err ? cannotRead(joinPath(m_rootB, parent.rel), err)
                       : changedDuring(joinPath(m_rootB, finished.rel));
        m_folderA = std::move(upA);
        m_folderB = std::move(upB);
        return equal();
    }

    // Compares the next entry of the innermost folder, entering it when it is a folder.
    ContentComparison step() {
        Frame& frame = m_frames.back();
        if (frame.next == frame.names.size())
            return leave();
        if (stopRequested())
            return stopped();
        const std::string& name = frame.names[frame.next++];
        const std::string rel = frame.rel.empty() ? name : frame.rel + "/" + name;
        const std::string pathA = joinPath(m_rootA, rel);
        const std::string pathB = joinPath(m_rootB, rel);
        ItemStatus a;
        ItemStatus b;
        if (const int err = itemStatus(m_folderA.get(), name.c_str(), a))
            return cannotRead(pathA, err);
        if (const int err = itemStatus(m_folderB.get(), name.c_str(), b))
            return cannotRead(pathB, err);
        if (auto refusal = mountRefusal(a, m_rootStatusA, pathA); !refusal.isEqual())
            return refusal;
        if (auto refusal = mountRefusal(b, m_rootStatusB, pathB); !refusal.isEqual())
            return refusal;
        if (!isComparableType(a.type))
            return refusedType(pathA, a.type);
        if (!isComparableType(b.type))
            return refusedType(pathB, b.type);
        if (a.type != b.type)
            return differentTypes(pathA, a.type, pathB, b.type);
        record(frame.depth + 1, name, a);
        if (a.type == S_IFREG)
            return openedFiles(m_folderA.get(), name.c_str(), a, pathA, m_folderB.get(), name.c_str(), b,
                               pathB, false);
        if (a.type == S_IFLNK)
            return links(m_folderA.get(), name.c_str(), pathA, m_folderB.get(), name.c_str(), pathB);

        const unsigned depth = frame.depth + 1;
        if (depth > m_owner.m_maxDepth)
            return verdict(ContentComparison::CannotCompare, pathA + " is nested deeper than " +
                                                                 std::to_string(m_owner.m_maxDepth) +
                                                                 " folders");
        UniqueFd childA;
        UniqueFd childB;
        int err = 0;
        if (!openChecked(m_folderA.get(), name.c_str(), kOpenFolderFlags, a, childA, err))
            return err ? cannotRead(pathA, err) : changedDuring(pathA);
        if (!openChecked(m_folderB.get(), name.c_str(), kOpenFolderFlags, b, childB, err))
            return err ? cannotRead(pathB, err) : changedDuring(pathB);
        m_folderA = std::move(childA);
        m_folderB = std::move(childB);
        return enter(rel, a, b, depth); // frame is not used after this: enter may grow m_frames
    }

    ContentComparer& m_owner;
    const std::string m_rootA;
    const std::string m_rootB;
    const ItemStatus* m_seenA;
    const ItemStatus* m_seenB;
    ItemStatus m_statusA; // the roots as first looked at (all zero until then)
    ItemStatus m_statusB;
    ItemStatus m_rootStatusA;
    ItemStatus m_rootStatusB;
    UniqueFd m_folderA;
    UniqueFd m_folderB;
    std::vector<Frame> m_frames;
    std::uint64_t m_bytesCompared = 0;
    std::vector<ComparedEntry>* m_comparedA;
};

ContentComparer::ContentComparer(StopRequest stop, unsigned maxDepth)
    : m_stop(std::move(stop)), m_maxDepth(maxDepth) {}

ContentComparer::~ContentComparer() = default;

void ContentComparer::reserveBuffers(std::size_t size) {
    if (size <= m_bufferSize)
        return;
    m_bufferA = std::make_unique_for_overwrite<char[]>(size);
    m_bufferB = std::make_unique_for_overwrite<char[]>(size);
    m_bufferSize = size;
}

ContentComparison ContentComparer::compareFileContents(const std::string& pathA, const std::string& pathB) {
    Walk walk(*this, pathA, pathB);
    return walk.finished(walk.files());
}

ContentComparison ContentComparer::compareTrees(const std::string& pathA, const std::string& pathB,
                                                std::vector<ComparedEntry>* comparedA,
                                                const ItemStatus* seenA, const ItemStatus* seenB) {
    if (comparedA)
        comparedA->clear();
    Walk walk(*this, pathA, pathB, comparedA, seenA, seenB);
    return walk.finished(walk.trees());
}

namespace {

ContentComparer::StopRequest stopRequestFor(const std::atomic<bool>* stop) {
    if (!stop)
        return {};
    return [stop] { return stop->load(std::memory_order_relaxed); };
}

} // namespace

ContentComparison compareFileContents(const std::string& pathA, const std::string& pathB,
                                      const std::atomic<bool>* stop) {
    ContentComparer comparer(stopRequestFor(stop));
    return comparer.compareFileContents(pathA, pathB);
}

ContentComparison compareTrees(const std::string& pathA, const std::string& pathB,
                               const std::atomic<bool>* stop) {
    ContentComparer comparer(stopRequestFor(stop));
    return comparer.compareTrees(pathA, pathB);
}

} // namespace corvel
