#include "files_hierarchy.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <utility>

#include "engine/node_allocator.h"
#include "engine/node_type.h"
#include "engine/node_type_generator.h"
#include "platform/file_io.h"
#include "platform/invariant.h"
#include "platform/notification_center.h"
#include "platform/system_log.h"
#include "platform/user_paths.h"
#include "platform/volumes.h"
#include "settings/ignore_list.h"
#include "settings/preferences.h"

namespace corvel {

namespace {

bool liesInside(const std::string& path, const std::string& folder) {
    if (folder == "/")
        return path != "/";
    return path.size() > folder.size() && path.starts_with(folder) && path[folder.size()] == '/';
}

bool isMainLibraryType(NodeType type) {
    return type == kNodeTypeITunesLibrary || type == kNodeTypeNewerITunesLibrary ||
           type == kNodeTypeIPhotoLibrary || type == kNodeTypeNewerIPhotoLibrary ||
           type == kNodeTypeApertureLibrary;
}

} // namespace

std::vector<std::string> mailDownloadFolders() {
    const std::string home = realHomeDirectory();
    return {home + "/Library/Mail Downloads",
            home + "/Library/Containers/com.apple.mail/Data/Library/Mail Downloads"};
}

// The state of one root's walk.
struct CVFilesHierarchy::Walk {
    struct Open {
        std::shared_ptr<CVFolder> folder;
        std::int64_t candidate = -1; // its place among the candidates, -1 when none
        bool incomplete = false;     // it or a folder inside holds an entry not read
        bool reported = false;       // named among the incomplete folders
    };
    std::vector<Open> stack;
    std::vector<std::shared_ptr<CVFolder>> candidates;
    std::vector<bool> incompleteCandidates; // by candidate
    NodePtr top;
    bool deepestLogged = false;
    bool failed = false;

    CVFolder* current() const { return stack.empty() ? nullptr : stack.back().folder.get(); }

    // Closes the current folder: its parent receives it again, now with its final size.
    void closeCurrent() {
        if (stack.empty())
            return;
        const std::shared_ptr<CVFolder> folder = std::move(stack.back().folder);
        stack.pop_back();
        folder->fitChildren();
        if (!stack.empty())
            stack.back().folder->addChildFile(folder);
    }

    // Marks the current folder and every folder above it as not read completely.
    void markOpenFoldersIncomplete() {
        for (auto open = stack.rbegin(); open != stack.rend() && !open->incomplete; ++open) {
            open->incomplete = true;
            if (open->candidate >= 0)
                incompleteCandidates[static_cast<std::size_t>(open->candidate)] = true;
        }
    }

    // The candidates whose whole content was read.
    std::vector<std::shared_ptr<CVFolder>> completeCandidates() const {
        std::vector<std::shared_ptr<CVFolder>> complete;
        complete.reserve(candidates.size());
        for (std::size_t i = 0; i < candidates.size(); ++i)
            if (!incompleteCandidates[i])
                complete.push_back(candidates[i]);
        return complete;
    }
};

CVFilesHierarchy::CVFilesHierarchy(std::vector<CVScanPath> rootPaths, Services services)
    : m_rootPaths(std::move(rootPaths)), m_services(std::move(services)) {
    // The walk types folders through the ignore list, files through the node services:
    // one generator, prepared and stopped as one.
    CORVEL_ASSERT(&m_services.ignoreList.typeGenerator() == &m_services.nodes->typeGenerator);
}

std::string CVFilesHierarchy::correctedPath(const std::string& path) const {
    return m_services.preferences.isAllFilesPath(path) ? std::string("/") : path;
}

bool CVFilesHierarchy::isRootCoveredBy(const std::string& path, const std::string& otherRoot) {
    if (otherRoot == path || !liesInside(path, otherRoot))
        return false;
    // The walk does not cross volumes: under "/", a root on another volume is walked on its own.
    return otherRoot != "/" || volumePathOfPath(path) == "/";
}

void CVFilesHierarchy::fatalErrorOccured() {
    NotificationCenter::defaultCenter().post(kErrorOccuredWhileScanningNotification);
}

void CVFilesHierarchy::sortFoldersBySize(const std::vector<std::shared_ptr<CVFolder>>& folders) {
    for (const auto& folder : folders)
        if (folder->size() != 0 && folder->childrenCount() != 0)
            m_filesGroupedBySize.add(folder);
}

void CVFilesHierarchy::canonicaliseRootPaths() {
    std::vector<CVScanPath> roots;
    for (auto root : m_rootPaths) {
        if (char* resolved = ::realpath(root.path.c_str(), nullptr)) {
            root.path = resolved;
            std::free(resolved);
        }
        auto same = std::find_if(roots.begin(), roots.end(),
                                 [&](const CVScanPath& kept) { return kept.path == root.path; });
        if (same == roots.end()) {
            roots.push_back(std::move(root));
        } else {
            systemLogf("Root given twice: %s", root.path);
            same->forceScan = same->forceScan || root.forceScan;
        }
    }
    m_rootPaths = std::move(roots);
}

void CVFilesHierarchy::rescan() {
    if (!canContinue())
        return;
    m_services.nodes->typeGenerator.prepareGenerator();
    m_services.ignoreList.updateExcludeList();
    m_failedRootPathsCount = 0;
    const auto mail = mailDownloadFolders();
    canonicaliseRootPaths();

    const std::vector<CVScanPath> roots = m_rootPaths;
    for (const auto& root : roots) {
        const std::string p = correctedPath(root.path);
        const bool nested = std::any_of(roots.begin(), roots.end(), [&](const CVScanPath& other) {
            return isRootCoveredBy(p, correctedPath(other.path));
        });
        if (nested) {
            std::erase_if(m_rootPaths, [&](const CVScanPath& r) { return r.path == root.path; });
            continue;
        }
        m_services.ignoreList.addExcludePathWithRoot(p);
        const bool mailRoot = std::find(mail.begin(), mail.end(), p) != mail.end();
        const ScanVerdict verdict =
            m_services.ignoreList.isPathForbiddenToScan(p, kNodeTypeUnknown, mailRoot, true);
        if (verdict != ScanAllowed) {
            Notification refused;
            refused.name = (verdict == ScanRefusedHidden || verdict == ScanRefusedSystemPath)
                               ? kDroppedFilesAreSystemNotification
                               : kDroppedFilesAreIgnoredNotification;
            refused.userInfo = {{"path", p}, {"verdict", static_cast<int>(verdict)}};
            NotificationCenter::defaultCenter().post(refused);
            setCanContinue(false);
            return;
        }
    }
    std::vector<CVScanPath> forced;
    for (const auto& root : m_rootPaths)
        for (const auto& folder : mail)
            if (liesInside(folder, correctedPath(root.path)) && isDirectory(folder))
                forced.push_back({folder, true});
    m_rootPaths.insert(m_rootPaths.end(), forced.begin(), forced.end());

    for (const auto& root : std::vector<CVScanPath>(m_rootPaths)) {
        if (!canContinue())
            break;
        buildHierarchyForPath(root);
    }
    // A volume mounted inside "/" and given as a root of its own was walked after all.
    std::erase_if(m_foldersOnOtherVolumes, [&](const std::string& folder) {
        return std::any_of(m_rootPaths.begin(), m_rootPaths.end(),
                           [&](const CVScanPath& root) { return correctedPath(root.path) == folder; });
    });
    m_filesGroupedBySize.file();
}

void CVFilesHierarchy::buildHierarchyForPath(const CVScanPath& root) {
    const std::string rootPath = correctedPath(root.path);
    Walk walk;
    auto failRoot = [&] {
        walk.failed = true;
        if (++m_failedRootPathsCount >= m_rootPaths.size()) {
            fatalErrorOccured();
            m_failedRootPathsCount = 0;
        }
    };
    TreeWalker walker(m_services.ignoreList, m_canContinue, m_walkOptions);
    int openError = 0;
    const bool opened = walker.walk(
        CVScanPath{rootPath, root.forceScan},
        [&](const WalkEntry& entry) {
            if (walk.failed)
                return;
            switch (entry.kind) {
            case WalkEntry::File:
                addFile(walk, entry);
                break;
            case WalkEntry::Folder:
                addFolder(walk, entry);
                break;
            case WalkEntry::FolderEnd:
                walk.closeCurrent();
                break;
            case WalkEntry::Unseen:
                if (CVFolder* current = walk.current())
                    current->setHoldsUnwalked(true);
                break;
            case WalkEntry::Failure:
                systemLogf("Error scanning '%s': %s\n", std::string(entry.path),
                           std::string(std::strerror(entry.error)));
                // Without an error number, the walk met a folder that leads back to one above it.
                noteIncomplete(walk, entry,
                               entry.error != 0 ? std::string(std::strerror(entry.error))
                                                : std::string("it leads back to a folder above it"));
                if (entry.endsRoot)
                    failRoot();
                else if (entry.closesFolder)
                    walk.closeCurrent();
                break;
            }
        },
        openError);
    if (!opened) {
        systemLogf("Error scanning '%s': %s\n", rootPath, std::string(std::strerror(openError)));
        failRoot();
        return;
    }
    if (walk.top)
        m_topNodes.push_back(walk.top);
    sortFoldersBySize(walk.completeCandidates());
}

// The entry belongs to the current folder (or is the current folder that could not be
// listed): that folder is named once, and it and the folders above it stop being
// candidates.
void CVFilesHierarchy::noteIncomplete(Walk& walk, const WalkEntry& entry, const std::string& reason) {
    if (walk.stack.empty()) {
        m_incompleteFolders.push_back({std::string(entry.path), reason, true, {}});
        return;
    }
    Walk::Open& current = walk.stack.back();
    if (!current.reported) {
        current.reported = true;
        std::string path = current.folder->path();
        const bool unlisted = entry.kind == WalkEntry::Failure && path == entry.path;
        m_incompleteFolders.push_back(
            {std::move(path), reason, unlisted, unlisted ? std::string() : std::string(entry.path)});
    }
    walk.markOpenFoldersIncomplete();
}

void CVFilesHierarchy::addFile(Walk& walk, const WalkEntry& entry) {
    if (m_counters)
        m_counters->files.fetch_add(1, std::memory_order_relaxed);
    CVFolder* current = walk.current();
    // Nodes inside a folder keep only their name; the folder knows the rest of the path.
    auto file = makeNode<CVFile>(current ? std::string() : std::string(entry.path), std::string(), entry.size,
                                 entry.sizeOnDisk);
    if (current)
        file->setNameRelativeToParent(entry.name);
    file->setIgnore(entry.ignored);
    file->setStatCTime(entry.ctime);
    file->setStatMTimeNanoseconds(entry.mtimeNanoseconds);
    file->setInodeNumber(entry.inode);
    if (!current) {
        file->setDevice(entry.device);
        file->setServices(m_services.nodes);
    }
    if (current)
        current->addChildFile(file);
    else
        walk.top = file; // a root that is a file
    if (entry.pathTooLong)
        noteIncomplete(walk, entry, std::strerror(ENAMETOOLONG));
    if (!file->ignore())
        m_filesGroupedBySize.add(std::move(file));
}

void CVFilesHierarchy::addFolder(Walk& walk, const WalkEntry& entry) {
    if (m_counters)
        m_counters->folders.fetch_add(1, std::memory_order_relaxed);
    CVFolder* current = walk.current();
    const std::string path(entry.path);
    auto folder = makeNode<CVFolder>(walk.top && current ? std::string() : path, std::string());
    if (walk.top && current)
        folder->setNameRelativeToParent(entry.name);
    folder->setStatCTime(entry.ctime);
    folder->setStatMTimeNanoseconds(entry.mtimeNanoseconds);
    folder->setDevice(entry.device);
    folder->setDelegate(m_nodeDelegate);
    folder->setInodeNumber(entry.inode);
    folder->setIgnore(entry.ignored);
    folder->setHoldsUnwalked(entry.notEntered);
    if (!current)
        folder->setServices(m_services.nodes);
    if (entry.systemFolder)
        m_skippedSystemFolders.push_back(path);
    else if (entry.notEntered && !entry.ignored)
        m_foldersOnOtherVolumes.push_back(path);
    if (entry.depthLimited && !walk.deepestLogged) {
        systemLog("Deepest Level Reached");
        walk.deepestLogged = true;
    }
    const NodeType type = entry.type;
    if (entry.contentHidden)
        folder->setChildrenInvisible(true);
    folder->setType(type);
    if (isMainLibraryType(type) || entry.contentUndeletable)
        folder->setChildrenUndeletable(true);
    if (walk.top && current)
        current->addChildFile(folder);
    else if (!walk.top)
        walk.top = folder;
    // Past PATH_MAX nothing can be read or removed by path: the folder holding the first
    // such entry is named, and the folders below it are incomplete without a word.
    if (entry.pathTooLong)
        noteIncomplete(walk, entry, std::strerror(ENAMETOOLONG));
    walk.stack.push_back({folder, -1, entry.pathTooLong, entry.pathTooLong});
    if (entry.depthLimited)
        noteIncomplete(walk, entry,
                       "it lies deeper than the walk goes (" + std::to_string(kMaxPlainDepth) +
                           " folders down)");
    const auto rootFolder = folder->rootFolder();
    if (rootFolder && isITunesLibFileType(rootFolder->type())) {
        if (entry.name == "Books" || entry.name == "Mobile Applications" || entry.name == "Album Artwork")
            folder->setIgnore(true);
    }
    if (path.starts_with("/Applications/")) {
        const NodeType rootType = rootFolder ? rootFolder->type() : kNodeTypeUnknown;
        if (type != kNodeTypeApplication && type != kNodeTypePackage && rootType != kNodeTypeApplication &&
            rootType != kNodeTypePackage)
            folder->setIgnore(true);
    }
    if (!folder->ignore()) {
        walk.stack.back().candidate = static_cast<std::int64_t>(walk.candidates.size());
        walk.candidates.push_back(std::move(folder));
        walk.incompleteCandidates.push_back(walk.stack.back().incomplete);
    }
}

} // namespace corvel
