#include "files_hierarchy.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fts.h>
#include <functional>
#include <optional>
#include <sys/stat.h>

#include "engine/file_sizer.h"
#include "engine/node_type.h"
#include "engine/node_type_generator.h"
#include "platform/file_io.h"
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

bool isMainLibraryType(std::int32_t type) {
    return type == kNodeTypeITunesLibrary || type == kNodeTypeNewerITunesLibrary ||
           type == kNodeTypeIPhotoLibrary || type == kNodeTypeNewerIPhotoLibrary ||
           type == kNodeTypeApertureLibrary;
}

// The entries fts has read for the folder it just returned.
class FtsListing : public FolderListing {
public:
    explicit FtsListing(FTSENT* first) : m_first(first) {}
    bool contains(std::string_view name) const override {
        for (const FTSENT* child = m_first; child; child = child->fts_link)
            if (std::string_view(child->fts_name, child->fts_namelen) == name)
                return true;
        return false;
    }

private:
    FTSENT* m_first;
};

struct FtsCloser {
    void operator()(FTS* fts) const {
        if (fts)
            ::fts_close(fts);
    }
};

// The state of one root's walk.
struct Walk {
    std::vector<std::shared_ptr<CVFolder>> stack;
    std::vector<std::shared_ptr<CVFolder>> candidates;
    NodePtr top;
    int depth = 0;
    int specialOpen = 0;
    bool deepestLogged = false;
    bool failed = false;

    CVFolder* current() const { return stack.empty() ? nullptr : stack.back().get(); }

    // Closes the current folder: its parent receives it again, now with its final size.
    void closeCurrent() {
        if (stack.empty())
            return;
        const std::shared_ptr<CVFolder> folder = stack.back();
        stack.pop_back();
        if (!stack.empty())
            stack.back()->addChildFile(folder);
        --depth;
        if (folder->type() != kNodeTypePlainFolder)
            --specialOpen;
    }
};

} // namespace

std::vector<std::uint64_t> sizesLargestFirst(const SizeGroups& groups) {
    std::vector<std::uint64_t> sizes;
    sizes.reserve(groups.size());
    for (const auto& entry : groups)
        sizes.push_back(entry.first);
    std::sort(sizes.begin(), sizes.end(), std::greater<>());
    return sizes;
}

std::vector<std::string> mailDownloadFolders() {
    const std::string home = realHomeDirectory();
    return {home + "/Library/Mail Downloads",
            home + "/Library/Containers/com.apple.mail/Data/Library/Mail Downloads"};
}

CVFilesHierarchy::CVFilesHierarchy(std::vector<CVScanPath> rootPaths, Services services)
    : m_rootPaths(std::move(rootPaths)), m_services(services) {}

std::string CVFilesHierarchy::correctedPath(const std::string& path) const {
    return m_services.preferences.isAllFilesPath(path) ? std::string("/") : path;
}

void CVFilesHierarchy::fatalErrorOccured() {
    NotificationCenter::defaultCenter().post(kErrorOccuredWhileScanningNotification);
}

void CVFilesHierarchy::sortFoldersBySize(const std::vector<std::shared_ptr<CVFolder>>& folders) {
    for (const auto& folder : folders)
        if (folder->size() != 0 && folder->childrenCount() != 0)
            m_comparable.emplace_back(folder->size(), folder);
}

void CVFilesHierarchy::fileComparableNodes() {
    // Stable: nodes of one size keep the order in which the walk met them.
    std::stable_sort(m_comparable.begin(), m_comparable.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    std::size_t distinct = 0;
    for (std::size_t i = 0; i < m_comparable.size(); ++i)
        if (i == 0 || m_comparable[i].first != m_comparable[i - 1].first)
            ++distinct;
    m_filesGroupedBySize.reserve(m_filesGroupedBySize.size() + distinct);
    for (std::size_t i = 0; i < m_comparable.size();) {
        std::size_t end = i;
        while (end < m_comparable.size() && m_comparable[end].first == m_comparable[i].first)
            ++end;
        auto& nodes = m_filesGroupedBySize[m_comparable[i].first];
        nodes.reserve(nodes.size() + (end - i));
        for (std::size_t k = i; k < end; ++k)
            nodes.push_back(std::move(m_comparable[k].second));
        i = end;
    }
    m_comparable.clear();
    m_comparable.shrink_to_fit();
}

void CVFilesHierarchy::rescan() {
    if (!canContinue())
        return;
    m_services.typeGenerator.prepareGenerator();
    m_services.ignoreList.updateExcludeList();
    m_failedRootPathsCount = 0;
    const auto mail = mailDownloadFolders();

    const std::vector<CVScanPath> roots = m_rootPaths;
    for (const auto& root : roots) {
        const std::string p = correctedPath(root.path);
        const std::string volume = volumePathOfPath(p);
        const bool nested = std::any_of(roots.begin(), roots.end(), [&](const CVScanPath& other) {
            const std::string q = correctedPath(other.path);
            return q != p && liesInside(p, q) && !(q == "/" && volume != "/");
        });
        if (nested) {
            std::erase_if(m_rootPaths, [&](const CVScanPath& r) { return r.path == root.path; });
            continue;
        }
        m_services.ignoreList.addExcludePathWithRoot(p);
        const bool mailRoot = std::find(mail.begin(), mail.end(), p) != mail.end();
        const ScanVerdict verdict = m_services.ignoreList.isPathForbiddenToScan(p, 0, mailRoot, true);
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
    fileComparableNodes();
}

void CVFilesHierarchy::buildHierarchyForPath(const CVScanPath& root) {
    const std::string rootPath = correctedPath(root.path);
    char* paths[] = {const_cast<char*>(rootPath.c_str()), nullptr};
    std::unique_ptr<FTS, FtsCloser> fts(::fts_open(paths, FTS_PHYSICAL | FTS_NOCHDIR | FTS_XDEV, nullptr));
    if (!fts) {
        systemLogf("Error scanning '%s': %s\n", rootPath, std::string(std::strerror(errno)));
        if (++m_failedRootPathsCount >= m_rootPaths.size()) {
            fatalErrorOccured();
            m_failedRootPathsCount = 0;
        }
        return;
    }
    CVIgnoreList& ignoreList = m_services.ignoreList;
    Walk walk;
    auto failRoot = [&] {
        walk.failed = true;
        if (++m_failedRootPathsCount >= m_rootPaths.size()) {
            fatalErrorOccured();
            m_failedRootPathsCount = 0;
        }
    };

    while (canContinue() && !walk.failed) {
        FTSENT* entry = ::fts_read(fts.get());
        if (!entry)
            break;
        const std::string path(entry->fts_path, entry->fts_pathlen);
        CVFolder* current = walk.current();
        const std::int32_t currentType = current ? current->type() : 0;

        switch (entry->fts_info) {
        case FTS_D:
        case FTS_F:
        case FTS_DEFAULT: {
            const bool isFolder = entry->fts_info == FTS_D;
            // The folder's entries, read now rather than on the next fts_read (which then
            // reuses them): the library, bundle and backup probes look among them.
            std::optional<FtsListing> listing;
            if (isFolder)
                listing.emplace(::fts_children(fts.get(), 0));
            const FolderListing* folderListing = listing ? &*listing : nullptr;
            const ScanVerdict verdict =
                ignoreList.isPathForbiddenToScan(path, currentType, root.forceScan, isFolder, folderListing);
            bool ignored = false;
            bool skip = false;
            if (verdict == ScanAllowed) {
                if (isFolder && walk.depth >= kMaxPlainDepth && walk.specialOpen == 0) {
                    skip = true;
                    if (!walk.deepestLogged) {
                        systemLog("Deepest Level Reached");
                        walk.deepestLogged = true;
                    }
                }
            } else {
                skip = true;
                if (std::string_view(entry->fts_name, entry->fts_namelen) == ".DS_Store") {
                    if (isFolder)
                        ::fts_set(fts.get(), entry, FTS_SKIP);
                    break;
                }
                ignored = true;
            }
            const struct stat* st = entry->fts_statp;
            // Nodes inside a folder keep only their name; the folder knows the rest of the path.
            const std::string name(entry->fts_name, entry->fts_namelen);
            if (!isFolder) {
                auto file = std::make_shared<CVFile>(current ? name : path, std::string(),
                                                     static_cast<std::uint64_t>(st->st_size),
                                                     HVFileSizer::itemSizeWithFTSEntry(entry));
                if (current)
                    file->setNameRelativeToParent(name);
                file->setIgnore(ignored);
                file->setStatCTime(st->st_ctim.tv_sec);
                file->setStatMTime(st->st_mtim.tv_sec);
                file->setInodeNumber(st->st_ino);
                if (current) {
                    current->addChildFile(file);
                } else {
                    walk.top = file; // a root that is a file
                }
                if (!file->ignore())
                    m_comparable.emplace_back(file->size(), file);
                break;
            }
            auto folder = std::make_shared<CVFolder>(path, std::string());
            if (walk.top && current)
                folder->setNameRelativeToParent(name);
            folder->setStatCTime(st->st_ctim.tv_sec);
            folder->setStatMTime(st->st_mtim.tv_sec);
            folder->setDelegate(m_nodeDelegate);
            folder->setInodeNumber(st->st_ino);
            folder->setIgnore(ignored);
            std::int32_t type = kNodeTypePlainFolder;
            if (ignoreList.isPathContentHidden(path, type, folderListing))
                folder->setChildrenInvisible(true);
            folder->setType(type);
            if (isMainLibraryType(type) || ignoreList.isPathContentForbiddenToRemove(path))
                folder->setChildrenUndeletable(true);
            if (type != kNodeTypePlainFolder)
                ++walk.specialOpen;
            if (walk.top && current)
                current->addChildFile(folder);
            else if (!walk.top)
                walk.top = folder;
            walk.stack.push_back(folder);
            const auto rootFolder = folder->rootFolder();
            if (rootFolder && isITunesLibFileType(rootFolder->type())) {
                if (name == "Books" || name == "Mobile Applications" || name == "Album Artwork")
                    folder->setIgnore(true);
            }
            if (path.starts_with("/Applications/")) {
                const std::int32_t rootType = rootFolder ? rootFolder->type() : 0;
                if (type != kNodeTypeApplication && type != kNodeTypePackage &&
                    rootType != kNodeTypeApplication && rootType != kNodeTypePackage)
                    folder->setIgnore(true);
            }
            if (!folder->ignore())
                walk.candidates.push_back(folder);
            ++walk.depth;
            if (skip) // not entered; fts still reports its exit (FTS_DP), which closes it
                ::fts_set(fts.get(), entry, FTS_SKIP);
            break;
        }
        case FTS_DP:
            walk.closeCurrent();
            break;
        case FTS_SL:
        case FTS_SLNONE:
            break;
        case FTS_DNR:
        case FTS_ERR:
        case FTS_NS:
        case FTS_DC:
        case FTS_NSOK:
        default: {
            const int error = entry->fts_errno;
            systemLogf("Error scanning '%s': %s\n", path, std::string(std::strerror(error)));
            const bool rootGone = error == ENOENT && entry->fts_level == FTS_ROOTLEVEL;
            if (error == ENXIO || rootGone) {
                failRoot();
                break;
            }
            if (current && entry->fts_info == FTS_DNR)
                walk.closeCurrent(); // the folder just entered could not be read
            break;
        }
        }
    }
    if (walk.top)
        m_topNodes.push_back(walk.top);
    sortFoldersBySize(walk.candidates);
}

} // namespace corvel
