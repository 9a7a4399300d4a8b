#include "folder_walk.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <dirent.h>
#include <fcntl.h>
#include <optional>
#include <unistd.h>

#include "engine/file_sizer.h"
#include "engine/node_type.h"
#include "platform/file_dates.h"
#include "settings/ignore_list.h"

namespace corvel {

namespace {

constexpr int kFolderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

void closeDescriptor(int& fd) {
    if (fd >= 0)
        ::close(fd);
    fd = -1;
}

// Examines the entry name of the folder dirFd (AT_FDCWD: a path) without following a
// link: its status in st and, for a folder, a descriptor open on it in fd, or -1 and
// why in openError. Answers 0, or errno when the entry has no status. A name the folder
// lists as a folder is opened first and its status taken from the descriptor.
int examine(int dirFd, const char* name, unsigned char kind, struct stat& st, int& fd, int& openError) {
    fd = -1;
    openError = 0;
    if (kind == DT_DIR) {
        fd = ::openat(dirFd, name, kFolderFlags);
        if (fd >= 0 && ::fstat(fd, &st) == 0)
            return 0;
        openError = errno;
        closeDescriptor(fd);
    }
    if (::fstatat(dirFd, name, &st, AT_SYMLINK_NOFOLLOW) != 0)
        return errno;
    if (S_ISDIR(st.st_mode) && kind != DT_DIR) {
        fd = ::openat(dirFd, name, kFolderFlags);
        if (fd < 0)
            openError = errno;
    }
    return 0;
}

// Whether a path is too long for the calls that take whole paths.
bool passesPathMax(std::string_view path) {
    return path.size() >= PATH_MAX;
}

} // namespace

FolderWalk::FolderWalk(CVIgnoreList& ignoreList, const CVScanPath& root, const RegularExpression* pattern,
                       WalkSink& sink)
    : m_ignoreList(ignoreList), m_root(root), m_pattern(pattern), m_sink(sink) {}

FolderWalk::~FolderWalk() {
    for (Frame& frame : m_frames)
        closeDescriptor(frame.fd);
}

bool FolderWalk::walkRoot(int& error) {
    if (m_root.path.empty()) {
        error = ENOENT;
        return false;
    }
    m_path = m_root.path;
    // Named by its last component, as fts(3) names a root ("/" stays "/").
    const std::size_t slash = m_path.find_last_not_of('/') == std::string::npos ? 0 : m_path.rfind('/') + 1;
    const std::string_view name = std::string_view(m_path).substr(slash);
    struct stat st {};
    int fd = -1;
    int openError = 0;
    if (const int failed = examine(AT_FDCWD, m_path.c_str(), DT_DIR, st, fd, openError)) {
        reportFailure(name, failed, false, true);
        return true;
    }
    m_context.device = st.st_dev;
    if (S_ISDIR(st.st_mode)) {
        m_frames.resize(1);
        visitFolder({name, &st, fd, openError});
        run();
    } else if (!S_ISLNK(st.st_mode)) {
        visitFile(name, st, true);
    }
    return true;
}

void FolderWalk::walkBelow(const std::string& path, const WalkContext& context) {
    m_context = context;
    m_path = path;
    const std::size_t slash = path.rfind('/');
    const std::size_t nameOffset = slash == std::string::npos ? 0 : slash + 1;
    const std::string_view name = std::string_view(m_path).substr(nameOffset);
    m_frames.resize(1);
    Frame& top = m_frames[0];
    int error = 0;
    struct stat st {};
    top.fd = ::open(m_path.c_str(), kFolderFlags);
    if (top.fd < 0 || ::fstat(top.fd, &st) != 0)
        error = errno;
    else if (FolderId{st.st_dev, st.st_ino} != context.top)
        error = ENOENT; // the folder that was met there is gone
    else
        top.names.read(top.fd, error);
    if (error != 0) {
        closeDescriptor(top.fd);
        reportFailure(name, error);
        return;
    }
    top.next = 0;
    top.pathLength = m_path.size();
    top.nameOffset = nameOffset;
    top.id = context.top;
    top.type = context.type;
    top.depth = context.depth;
    top.specialOpen = context.specialOpen;
    top.quietEnd = true;
    m_open = 1;
    run();
}

// The task loop: the current folder's next name, or its end.
void FolderWalk::run() {
    while (m_open > 0 && m_sink.going()) {
        Frame& folder = current();
        if (folder.next == folder.names.size())
            leaveFolder();
        else
            visitName(folder.next++);
    }
}

const char* FolderWalk::enterName(std::string_view name) {
    const Frame& folder = current();
    m_path.resize(folder.pathLength);
    if (m_path.empty() || m_path.back() != '/')
        m_path += '/';
    const std::size_t at = m_path.size();
    m_path.append(name);
    return m_path.c_str() + at;
}

void FolderWalk::visitName(std::size_t index) {
    if (m_frames.size() == m_open)
        m_frames.emplace_back(); // the slot a folder met here is listed into
    const Frame& folder = current();
    const unsigned char kind = folder.names.kind(index);
    if (kind == DT_LNK) {
        reportUnseen(folder.names.name(index)); // links make no node
        return;
    }
    const char* cName = enterName(folder.names.name(index));
    const std::string_view name(cName);
    struct stat st {};
    int fd = -1;
    int openError = 0;
    if (const int failed = examine(folder.fd, cName, kind, st, fd, openError)) {
        reportFailure(name, failed);
    } else if (S_ISDIR(st.st_mode)) {
        visitFolder({name, &st, fd, openError});
    } else if (S_ISREG(st.st_mode)) {
        visitFile(name, st, false);
    } else {
        // A link, pipe, socket or device has no content to compare: no node, and its folder
        // is known to hold something the tree does not show.
        reportUnseen(name);
    }
}

void FolderWalk::visitFile(std::string_view name, const struct stat& st, bool top) {
    const NodeType parentType = m_open > 0 ? current().type : kNodeTypeUnknown;
    const ScanVerdict verdict =
        m_ignoreList.isPathForbiddenToScan(m_path, parentType, m_root.forceScan, false, nullptr, m_pattern);
    if (verdict != ScanAllowed && name == ".DS_Store") {
        if (!top)
            reportUnseen(name); // dropped without a node
        return;
    }
    WalkEntry e = describe(WalkEntry::File, name, st);
    e.ignored = verdict != ScanAllowed;
    if (top)
        e.path = m_path;
    m_sink.emit(e);
}

// Reports the folder met in m_path, then enters it, leaves it to another pass, or ends
// it at once. Its names are listed into the frame slot above the current folder.
void FolderWalk::visitFolder(MetFolder folder) {
    const FolderId id{folder.st->st_dev, folder.st->st_ino};
    if (leadsBackUp(id)) {
        closeDescriptor(folder.fd);
        reportFailure(folder.name, 0); // no error number: a cycle
        return;
    }
    FolderNames& names = m_frames[m_open].names;
    if (folder.fd < 0 || !names.read(folder.fd, folder.openError)) {
        names.clear();
        closeDescriptor(folder.fd);
    }
    const Frame* parent = m_open > 0 ? &current() : nullptr;
    const ScanVerdict verdict =
        m_ignoreList.isPathForbiddenToScan(m_path, parent != nullptr ? parent->type : kNodeTypeUnknown,
                                           m_root.forceScan, true, &names, m_pattern);
    if (verdict != ScanAllowed && folder.name == ".DS_Store") {
        closeDescriptor(folder.fd);
        if (parent != nullptr)
            reportUnseen(folder.name); // dropped without a node
        return;
    }
    WalkEntry e = describe(WalkEntry::Folder, folder.name, *folder.st);
    e.path = m_path;
    e.ignored = verdict != ScanAllowed;
    e.systemFolder = verdict == ScanRefusedSystemPath;
    NodeType type = kNodeTypePlainFolder;
    e.contentHidden = m_ignoreList.isPathContentHidden(m_path, type, &names);
    e.type = type;
    e.contentUndeletable = m_ignoreList.isPathContentForbiddenToRemove(m_path);
    e.depthLimited = !e.ignored && parent != nullptr && parent->depth >= TreeWalker::kMaxPlainDepth &&
                     parent->specialOpen == 0;
    e.notEntered = e.ignored || folder.st->st_dev != m_context.device;
    m_sink.emit(e);

    if (e.notEntered || e.depthLimited) {
        closeDescriptor(folder.fd);
        endFolder(folder.name);
    } else if (folder.fd < 0) {
        reportFailure(folder.name, folder.openError, true);
    } else if (parent != nullptr && !passesPathMax(m_path) && m_sink.mayCut()) {
        closeDescriptor(folder.fd);
        cutFolder(folder, type);
    } else {
        enterFolder(folder, type);
    }
}

void FolderWalk::enterFolder(const MetFolder& folder, NodeType type) {
    Frame& entered = m_frames[m_open];
    const Frame* parent = m_open > 0 ? &current() : nullptr;
    entered.fd = folder.fd;
    entered.next = 0;
    entered.pathLength = m_path.size();
    entered.nameOffset = m_path.size() - folder.name.size();
    entered.id = {folder.st->st_dev, folder.st->st_ino};
    entered.type = type;
    entered.depth = (parent != nullptr ? parent->depth : 0) + 1;
    entered.specialOpen =
        (parent != nullptr ? parent->specialOpen : 0) + (type != kNodeTypePlainFolder ? 1 : 0);
    entered.quietEnd = false;
    ++m_open;
    if (m_open > kOpenFolders) // the oldest folder kept open is opened again on the way back
        closeDescriptor(m_frames[m_open - 1 - kOpenFolders].fd);
}

void FolderWalk::cutFolder(const MetFolder& folder, NodeType type) {
    const Frame& parent = current();
    WalkContext below;
    below.type = type;
    below.depth = parent.depth + 1;
    below.specialOpen = parent.specialOpen + (type != kNodeTypePlainFolder ? 1 : 0);
    below.device = m_context.device;
    below.top = {folder.st->st_dev, folder.st->st_ino};
    below.ancestors = m_context.ancestors;
    for (std::size_t i = 0; i < m_open; ++i)
        below.ancestors.push_back(m_frames[i].id);
    m_sink.cut(m_path, std::move(below));
    endFolder(folder.name);
}

// Ends the current folder; its parent, when closed to bound the descriptors, is opened
// again before the folder's own descriptor is closed.
void FolderWalk::leaveFolder() {
    Frame& leaving = current();
    m_path.resize(leaving.pathLength);
    if (!leaving.quietEnd)
        endFolder(std::string_view(m_path).substr(leaving.nameOffset));
    if (m_open >= 2 && m_frames[m_open - 2].fd < 0)
        reopen(m_open - 2, leaving.fd);
    closeDescriptor(leaving.fd);
    --m_open;
    if (m_open > 0)
        m_path.resize(current().pathLength);
}

// Opens the folder at m_frames[index] again, through ".." of its child or else by path,
// and checks it is the folder that was left. When it cannot be, it is reported and its
// remaining names are not visited.
bool FolderWalk::reopen(std::size_t index, int childFd) {
    Frame& folder = m_frames[index];
    const std::string path = m_path.substr(0, folder.pathLength);
    int error = ENOENT;
    auto adopt = [&](int fd) {
        struct stat st {};
        if (fd < 0) {
            error = errno;
        } else if (::fstat(fd, &st) == 0 && FolderId{st.st_dev, st.st_ino} == folder.id) {
            folder.fd = fd;
        } else {
            error = ENOENT; // another folder stands there now
            ::close(fd);
        }
        return folder.fd >= 0;
    };
    if ((childFd >= 0 && adopt(::openat(childFd, "..", kFolderFlags))) ||
        (!passesPathMax(path) && adopt(::open(path.c_str(), kFolderFlags))))
        return true;
    m_path.resize(folder.pathLength);
    reportFailure(std::string_view(path).substr(folder.nameOffset), error);
    folder.next = folder.names.size();
    return false;
}

void FolderWalk::reportUnseen(std::string_view name) {
    WalkEntry e;
    e.kind = WalkEntry::Unseen;
    e.name = name;
    m_sink.emit(e);
}

void FolderWalk::endFolder(std::string_view name) {
    WalkEntry e;
    e.kind = WalkEntry::FolderEnd;
    e.name = name;
    m_sink.emit(e);
}

// A failure on the entry at m_path. closesFolder: the folder just reported could not be
// listed and ends here. atRoot: the root itself could not be examined.
void FolderWalk::reportFailure(std::string_view name, int error, bool closesFolder, bool atRoot) {
    WalkEntry e;
    e.kind = WalkEntry::Failure;
    e.name = name;
    e.path = m_path;
    e.error = error;
    e.endsRoot = error == ENXIO || (error == ENOENT && atRoot);
    e.closesFolder = closesFolder;
    m_sink.emit(e);
}

WalkEntry FolderWalk::describe(WalkEntry::Kind kind, std::string_view name, const struct stat& st) const {
    WalkEntry e;
    e.kind = kind;
    e.name = name;
    e.size = static_cast<std::uint64_t>(st.st_size);
    e.sizeOnDisk = HVFileSizer::itemSizeWithStat(st);
    e.inode = st.st_ino;
    e.ctime = st.st_ctim.tv_sec;
    e.mtimeNanoseconds = nanosecondsSince1970(st.st_mtim);
    e.device = st.st_dev;
    e.pathTooLong = passesPathMax(m_path);
    return e;
}

bool FolderWalk::leadsBackUp(const FolderId& id) const {
    for (std::size_t i = 0; i < m_open; ++i)
        if (m_frames[i].id == id)
            return true;
    return std::find(m_context.ancestors.begin(), m_context.ancestors.end(), id) != m_context.ancestors.end();
}

} // namespace corvel
