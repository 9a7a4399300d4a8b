#include "folder.h"

#include <mutex>
#include <sys/stat.h>

#include "node_cache.h"
#include "node_type.h"
#include "platform/file_io.h"

namespace corvel {

namespace {

// Tells the delegate (when there is one) of a child file whose signature could not be read.
void tellReadFailure(CVNodeDelegate* delegate, CVNode& node) {
    if (!delegate || !node.hasSignature())
        return;
    if (const int error = node.signature().readError(); error != 0)
        if (auto* file = dynamic_cast<CVFile*>(&node))
            delegate->fileCouldNotBeRead(*file, error);
}

// Two children at one position: the same name, both folders or both files.
bool childrenMatch(CVNode& a, CVNode& b, CVNodeCache& cache, CVNodeDelegate* delegate) {
    if (lastPathComponent(a.storedPath()) != lastPathComponent(b.storedPath()))
        return false;
    auto* folderA = dynamic_cast<CVFolder*>(&a);
    auto* folderB = dynamic_cast<CVFolder*>(&b);
    if (folderA || folderB) {
        if (!folderA || !folderB)
            return false;
        const std::string pathA = a.path();
        const std::string pathB = b.path();
        if (const auto known = cache.duplicatedFolder(pathA, pathB))
            return *known;
        const bool equal = folderA->isDuplicateOf(b, true);
        cache.setDuplicatedFolder(pathA, pathB, equal);
        return equal;
    }
    if (a.size() != b.size())
        return false;
    // Empty files have no signature to compare; inside two folders they match.
    if (a.size() == 0)
        return true;
    auto* fileA = dynamic_cast<CVFile*>(&a);
    const bool equal = fileA && fileA->isDuplicateOf(b);
    tellReadFailure(delegate, a);
    tellReadFailure(delegate, b);
    a.releaseSignature();
    b.releaseSignature();
    return equal;
}

} // namespace

CVFolder::CVFolder(std::string_view path, std::string name, std::uint64_t size, std::uint64_t sizeOnDisk)
    : CVFile(path, std::move(name), size, sizeOnDisk) {
    setFlag(kAllChildrenIgnored, true);
}

CVFolder::~CVFolder() {
    // Services other than the defaults go down with the tree, so that a node that outlives
    // this folder, or lies in a sub-folder that does, still finds them.
    NodeServicesPtr handedDown = sharedServices();
    if (handedDown == defaultNodeServices())
        handedDown = nullptr;
    for (const auto& child : children())
        if (auto* file = dynamic_cast<CVFile*>(child.get()); file && file->parentFolder() == this) {
            const bool livesOn = child.use_count() > 1; // in a group
            if (handedDown && !file->hasOwnServices() && (livesOn || dynamic_cast<CVFolder*>(file)))
                file->setServices(handedDown);
            if (livesOn)
                file->setPath(file->path()); // give it its full path
            file->setParentFolder(nullptr);
            if (livesOn && file->device() == 0)
                file->setDevice(CVFolder::device()); // and the device it asked this folder for
        }
}

void CVFolder::addChildFile(const NodePtr& child) {
    auto* file = dynamic_cast<CVFile*>(child.get());
    if (!file)
        return;
    addChild(child);
    file->setParentFolder(this);
    setFlag(kAllChildrenIgnored, allChildrenIgnored() && file->ignore());
    const NodeType ownType = type();
    if (ownType != kNodeTypePlainFolder && ownType != kNodeTypePackage)
        file->setRootFolder(std::static_pointer_cast<CVFolder>(shared_from_this()));
    else if (auto root = rootFolder())
        file->setRootFolder(root);
    setSize(size() + file->size());
    setSizeOnDisk(sizeOnDisk() + file->sizeOnDisk());
    if (childrenInvisible() || ignore())
        file->setIgnore(true);
    if (childrenUndeletable() || removeForbidden())
        file->setRemoveForbidden(true);
}

void CVFolder::setRemoveForbidden(bool value) {
    CVFile::setRemoveForbidden(value);
    for (const auto& child : children())
        if (auto* file = dynamic_cast<CVFile*>(child.get()); file && file->removeForbidden() != value)
            file->setRemoveForbidden(value);
}

void CVFolder::setIgnore(bool value) {
    CVFile::setIgnore(value);
    for (const auto& child : children())
        if (auto* file = dynamic_cast<CVFile*>(child.get()); file && file->ignore() != value)
            file->setIgnore(value);
}

bool CVFolder::isDuplicateOf(CVNode& other, bool skipChildrenSize) {
    if (stopRequested())
        return false;
    if (type() == kNodeTypeApplication)
        return CVFile::isDuplicateOf(other);
    auto* folder = dynamic_cast<CVFolder*>(&other);
    if (!folder || childrenCount() != folder->childrenCount())
        return false;
    if (childrenCount() == 0)
        return true;
    // A folder is never a duplicate of a folder inside it.
    const std::string mine = path();
    const std::string theirs = folder->path();
    const bool thisShorter = mine.size() <= theirs.size();
    const std::string& shorter = thisShorter ? mine : theirs;
    const std::string& longer = thisShorter ? theirs : mine;
    // By whole components: "/d/photos-backup/photos" is not inside "/d/photos".
    const std::string above = parentPath(longer);
    if (above == shorter || above.starts_with(shorter.ends_with('/') ? shorter : shorter + '/'))
        return false;
    if (!skipChildrenSize && !childrenHaveEqualSize(*folder))
        return false;
    return childrenAreEqual(*folder);
}

bool CVFolder::childrenAreEqual(CVFolder& other) {
    const auto& mine = children();
    const auto& theirs = other.children();
    if (mine.size() != theirs.size())
        return false;
    auto& cache = services().nodeCache;
    for (std::size_t i = 0; i < mine.size(); ++i) {
        if (stopRequested() || !childrenMatch(*mine[i], *theirs[i], cache, m_delegate))
            return false;
    }
    return true;
}

bool CVFolder::childrenHaveEqualSize(CVFolder& other) {
    if (stopRequested())
        return false;
    const auto& mine = children();
    const auto& theirs = other.children();
    if (mine.size() != theirs.size())
        return false;
    auto& cache = services().nodeCache;
    for (std::size_t i = 0; i < mine.size(); ++i) {
        CVNode* a = mine[i].get();
        CVNode* b = theirs[i].get();
        auto* folderA = dynamic_cast<CVFolder*>(a);
        auto* folderB = dynamic_cast<CVFolder*>(b);
        if (folderA && folderB) {
            const std::string pathA = a->path();
            const std::string pathB = b->path();
            const bool known = cache.folderChildrenSizeAreEqual(pathA, pathB).value_or(false);
            if (!known && !folderA->childrenHaveEqualSize(*folderB))
                return false;
            cache.setFolderChildrenSizeAreEqual(pathA, pathB, true);
        } else if (a->size() != b->size()) {
            return false;
        }
    }
    return true;
}

bool CVFolder::checkForIntegrity() const {
    struct stat st {};
    return ::stat(path().c_str(), &st) == 0;
}

std::string CVFolder::title() const {
    if (type() == kNodeTypePlainFolder)
        return lastPathComponent(storedPath());
    return CVFile::title();
}

} // namespace corvel
