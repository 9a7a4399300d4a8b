#include "group.h"

#include <algorithm>
#include <unordered_set>

#include "folder.h"
#include "node_allocator.h"
#include "node_type.h"
#include "platform/file_url.h"
#include "platform/invariant.h"
#include "platform/main_queue.h"
#include "platform/text.h"

namespace corvel {

namespace {

// Path components as a file URL gives them: "/" first, then each name.
std::vector<std::string> pathComponents(const std::string& path) {
    std::vector<std::string> components{"/"};
    std::size_t start = 0;
    while (start < path.size()) {
        const std::size_t slash = path.find('/', start);
        const std::size_t end = slash == std::string::npos ? path.size() : slash;
        if (end > start)
            components.emplace_back(path.substr(start, end - start));
        start = end + 1;
    }
    return components;
}

} // namespace

// Sub-folders stand twice in their parents: each is looked into once.
bool comparedBySamples(const CVNode& top) {
    std::vector<const CVNode*> pending{&top};
    std::unordered_set<const CVNode*> seen;
    while (!pending.empty()) {
        const CVNode* node = pending.back();
        pending.pop_back();
        CORVEL_ASSERT(node != nullptr); // a folder holds no null child
        if (const auto* folder = dynamic_cast<const CVFolder*>(node)) {
            if (folder->type() == kNodeTypeApplication || folder->holdsUnwalked())
                return true;
            if (seen.insert(folder).second)
                for (const auto& child : folder->children())
                    pending.push_back(child.get());
        } else if (node->size() != 0 &&
                   CVSignature::getSignatureTypeWithUTI(node->uti(), node->size(), node->type()) !=
                       CVSignature::WholeFile) {
            return true;
        }
    }
    return false;
}

bool CVGroup::wasComparedBySamples() const {
    const auto& members = children();
    if (members.empty())
        return false;
    if (!dynamic_cast<const CVFolder*>(members.front().get()))
        return comparedBySamples(*members.front()); // files of one size share their way of comparing
    // What the walk left out of a folder (a link, say) may be in one member only.
    return std::any_of(members.begin(), members.end(),
                       [](const NodePtr& member) { return comparedBySamples(*member); });
}

std::shared_ptr<CVGroup> CVGroup::initWithCVFile(const std::shared_ptr<CVFile>& file) {
    auto group = makeNode<CVGroup>();
    group->addFile(file);
    group->m_allFilesForbidden = file->removeForbidden();
    return group;
}

CVGroup::CVGroup() = default;

CVGroup::~CVGroup() {
    for (const auto& member : children())
        if (auto* file = dynamic_cast<CVFile*>(member.get()); file && file->parentGroup() == this)
            file->setParentGroup(nullptr);
}

template <typename Write> void CVGroup::changeCounter(std::string_view key, Write write) {
    ChangeNotifier* notifier = changeNotifierIfAny();
    if (notifier)
        notifier->willChangeValueForKey(key);
    {
        std::lock_guard guard(lock());
        write();
    }
    if (notifier)
        notifier->didChangeValueForKey(key);
}

bool CVGroup::autocollected() const {
    std::lock_guard guard(lock());
    return m_autocollected;
}

void CVGroup::setAutocollected(bool value) {
    changeCounter("autocollected", [&] { m_autocollected = value; });
}

std::int64_t CVGroup::filesToRemoveCount() const {
    std::lock_guard guard(lock());
    return m_filesToRemoveCount;
}

void CVGroup::setFilesToRemoveCount(std::int64_t count) {
    changeCounter("filesToRemoveCount", [&] { m_filesToRemoveCount = count; });
}

std::int64_t CVGroup::silentFilesToRemoveCount() const {
    std::lock_guard guard(lock());
    return m_silentFilesToRemoveCount;
}

void CVGroup::setSilentFilesToRemoveCount(std::int64_t count) {
    std::lock_guard guard(lock());
    m_silentFilesToRemoveCount = count;
}

std::uint64_t CVGroup::totalSize() const {
    std::lock_guard guard(lock());
    return m_totalSize;
}

void CVGroup::setTotalSize(std::uint64_t size) {
    changeCounter("totalSize", [&] { m_totalSize = size; });
}

std::uint64_t CVGroup::removedFilesCount() const {
    std::lock_guard guard(lock());
    return m_removedFilesCount;
}

void CVGroup::setRemovedFilesCount(std::uint64_t count) {
    changeCounter("removedFilesCount", [&] { m_removedFilesCount = count; });
}

void CVGroup::addFile(const std::shared_ptr<CVFile>& file) {
    file->setIgnore(true);
    file->setParentGroup(this);
    addChild(file);
    analyseFileData(*file);
    setTotalSize(totalSize() + file->sizeOnDisk());
}

const CVFile* CVGroup::firstMember() const {
    const auto& members = children();
    return members.empty() ? nullptr : static_cast<const CVFile*>(members.front().get());
}

void CVGroup::keepWhatTheFirstMemberGives(const CVFile* leaving) {
    const CVFile* first = firstMember();
    if (!first || first != leaving)
        return;
    if (m_nameFromFirst) {
        setName(first->title());
        m_nameFromFirst = false;
    }
    if (m_leadFromFirst) {
        setPath(first->path());
        m_utiType = first->uti();
        m_leadFromFirst = false;
    }
}

std::string CVGroup::path() const {
    if (m_leadFromFirst)
        if (const CVFile* first = firstMember())
            return first->path();
    return CVNode::path();
}

std::string CVGroup::name() const {
    if (m_nameFromFirst)
        if (const CVFile* first = firstMember())
            return first->title();
    return CVNode::name();
}

std::string CVGroup::uti() const {
    if (m_leadFromFirst)
        if (const CVFile* first = firstMember())
            return first->uti();
    return CVNode::uti();
}

std::string CVGroup::utiType() const {
    if (m_leadFromFirst)
        if (const CVFile* first = firstMember())
            return first->uti();
    return m_utiType;
}

// A copy a removal pass took was counted off by the pass already (it stays marked).
void CVGroup::removeFile(CVFile* file) {
    keepWhatTheFirstMemberGives(file);
    if (file->needToRemove() && !file->wasRemoved())
        decFilesToRemoveCount();
    const std::uint64_t total = totalSize();
    setTotalSize(total >= file->sizeOnDisk() ? total - file->sizeOnDisk() : 0);
    removeChild(file);
    file->setParentGroup(nullptr);
}

void CVGroup::removeFileSilently(CVFile* file) {
    keepWhatTheFirstMemberGives(file);
    if (file->needToRemove() && !file->wasRemoved())
        decFilesToRemoveCount();
    const std::uint64_t total = totalSize();
    setTotalSize(total >= file->sizeOnDisk() ? total - file->sizeOnDisk() : 0);
    auto& list = mutableChildren();
    auto it = std::find_if(list.begin(), list.end(), [&](const NodePtr& c) { return c.get() == file; });
    if (it != list.end()) {
        list.erase(it);
        setChildrenCountSilently(childrenCount() > 0 ? childrenCount() - 1 : 0);
    }
}

void CVGroup::analyseFileData(CVFile& file) {
    // The member's signature as it stands; none is read for the group's sake.
    setSignature(file.hasSignature() ? file.sharedSignature() : nullptr);
    if (size() == 0) {
        setSize(file.size());
        setSizeOnDisk(file.sizeOnDisk());
    }
    // The first member gives its title, path and type identifier when asked; a later
    // member gives them (kept) only when the first could not.
    const bool first = firstMember() == &file && children().size() == 1;
    if (first && CVNode::name().empty()) {
        m_nameFromFirst = true;
    } else if (name().empty()) {
        setName(file.title());
        m_nameFromFirst = false;
    }
    const NodeType fileType = file.type();
    if (fileType != kNodeTypeUnknown) {
        if (type() == kNodeTypeUnknown) {
            setType(fileType);
            if (first) {
                m_leadFromFirst = true;
            } else {
                setPath(file.path());
                m_utiType = file.uti();
            }
        } else if (type() == kNodeTypePlainFolder && fileType == kNodeTypePlainFolder) {
            m_mixedGroup = false;
        } else {
            m_mixedGroup = utiType() != file.uti();
        }
    }
    if (!file.removeForbidden()) {
        m_allFilesForbidden = false;
    } else if (const auto& root = file.rootFolder()) {
        const NodeType rootType = root->type();
        if (rootType == kNodeTypeITunesLibrary || rootType == kNodeTypeIPhotoLibrary ||
            rootType == kNodeTypeNewerIPhotoLibrary)
            m_allFilesForbidden = false;
    }
}

std::int32_t CVGroup::metaGroupTypeForNodeType(NodeType nodeType) {
    static constexpr std::int32_t kinds[] = {1, 1, 2, 3, 4, 5, 6, 7, 1, 1, 4, 4, 1, 3, 3, 3, 3, 3, 2, 5};
    if (nodeType < 0 || nodeType > 19)
        return 1;
    return kinds[nodeType];
}

void CVGroup::incFilesToRemoveCount() {
    changeCounter("filesToRemoveCount", [&] { ++m_filesToRemoveCount; });
    setAutocollected(false);
}

void CVGroup::decFilesToRemoveCount() {
    if (filesToRemoveCount() < 1)
        return;
    changeCounter("filesToRemoveCount", [&] { --m_filesToRemoveCount; });
    setAutocollected(false);
}

void CVGroup::manifest() {
    auto self = std::static_pointer_cast<CVGroup>(shared_from_this());
    MainQueue::shared().deliver([self] { self->setFilesToRemoveCount(self->silentFilesToRemoveCount()); });
}

std::string CVGroup::groupPath() const {
    return children().empty() ? std::string() : children().front()->path();
}

std::vector<std::shared_ptr<CVFile>> CVGroup::files() const {
    std::vector<std::shared_ptr<CVFile>> out;
    out.reserve(children().size());
    for (const auto& child : children())
        if (auto file = std::dynamic_pointer_cast<CVFile>(child))
            out.push_back(std::move(file));
    return out;
}

std::vector<std::shared_ptr<CVFile>> CVGroup::existentChildren() const {
    auto all = files();
    std::erase_if(all, [](const auto& f) { return f->wasRemovedOutside(); });
    return all;
}

bool CVGroup::hardLinkCheck() const {
    std::uint64_t reference = 0;
    for (const auto& member : children()) {
        const std::uint64_t inode = member->inodeNumber();
        if (reference == 0) {
            reference = inode;
            continue;
        }
        if (inode != reference)
            return false;
    }
    return true;
}

std::string CVGroup::basePathForFiles() {
    if (!m_commonPaths)
        m_commonPaths = std::make_unique<CommonPaths>();
    if (m_commonPaths->basePath)
        return *m_commonPaths->basePath;
    std::string base = "/";
    if (!children().empty()) {
        const auto first = pathComponents(children().front()->path());
        std::size_t depth = 0;
        for (const auto& member : children()) {
            const auto components = pathComponents(member->path());
            const std::size_t common = std::min(first.size(), components.size());
            for (std::size_t k = 0; k < common; ++k) {
                if (components[k] != first[k]) {
                    depth = k - 1;
                    break;
                }
            }
        }
        for (std::size_t i = 1; i + 1 <= depth && i < first.size(); ++i)
            base += first[i] + "/";
    }
    m_commonPaths->basePath = fileURLStringFromPath(base);
    return *m_commonPaths->basePath;
}

std::string CVGroup::commonPath() {
    if (!m_commonPaths)
        m_commonPaths = std::make_unique<CommonPaths>();
    if (m_commonPaths->commonPath)
        return *m_commonPaths->commonPath;
    std::string result;
    if (!children().empty()) {
        const std::string base = filePathFromURLString(basePathForFiles()).value_or("/");
        const auto baseComponents = pathComponents(base);
        const auto first = pathComponents(children().front()->path());
        if (first.size() > baseComponents.size())
            result = base + first[baseComponents.size()];
    }
    m_commonPaths->commonPath = result;
    return result;
}

int CVGroup::compare(const CVGroup& other) const {
    const std::string a = name();
    const std::string b = other.name();
    return a < b ? -1 : (b < a ? 1 : 0);
}

int CVGroup::caseInsensitiveCompare(const CVGroup& other) const {
    const std::string a = comparisonKey(name(), true);
    const std::string b = comparisonKey(other.name(), true);
    return a < b ? -1 : (b < a ? 1 : 0);
}

} // namespace corvel
