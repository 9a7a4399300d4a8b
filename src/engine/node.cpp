#include "node.h"

#include <algorithm>
#include <array>
#include <functional>
#include <limits>
#include <sys/stat.h>

#include "folder.h"
#include "group.h"
#include "media/media_manager.h"
#include "node_type.h"
#include "node_type_generator.h"
#include "platform/file_dates.h"
#include "platform/file_io.h"
#include "platform/file_url.h"
#include "platform/invariant.h"
#include "platform/text.h"
#include "platform/type_identifiers.h"

namespace corvel {

struct CVNode::Extras {
    std::shared_ptr<CVSignature> signature;
    std::weak_ptr<CVFolder> rootFolder;
    std::string name;
    PropertyValue info;
    bool infoKnown = false;
    std::unique_ptr<ChangeNotifier> notifier;
    std::uint64_t device = 0; // of a file without a parent folder
    // Services of the top of a tree, or of a node that outlived it: the pointer is
    // published (release) after its owner is set, and never changes afterwards.
    NodeServicesPtr servicesOwner;
    std::atomic<const CVNodeServices*> services{nullptr};
    std::int64_t statCTime = 0; // one that does not fit the node's 32 bits
};

// A file node and the counts std::make_shared keeps beside it (16 bytes) fit a 112-byte
// block of the allocator; 8 bytes more would take a 128-byte one for every file.
static_assert(sizeof(void*) != 8 || sizeof(CVFile) <= 88, "a file node stays within 88 bytes");

namespace {

// Node locks are shared through a small table: a node needs one only for its rare
// observed writes, and a mutex per node would double the size of a file node.
std::mutex& stripedLock(const void* address) {
    static std::array<std::mutex, 64> locks;
    return locks[(reinterpret_cast<std::uintptr_t>(address) >> 4) % locks.size()];
}

} // namespace

std::string fileTitle(std::string_view path) {
    std::string name = lastPathComponent(path);
    const std::string_view extension = pathExtension(name);
    if (!extension.empty())
        name.resize(name.size() - extension.size() - 1);
    return name;
}

CVNode::CVNode(std::string_view path) : m_path(path) {}

struct NodeChildList {
    std::vector<NodePtr> nodes;
    std::atomic<std::uint64_t> count{0};
};

NodeChildSlot::~NodeChildSlot() {
    delete list.load();
}

CVNode::~CVNode() {
    delete m_extras.load();
}

NodeChildList& CVNode::childList() {
    NodeChildSlot* slot = childSlot();
    CORVEL_ASSERT(slot); // only folders and groups hold children
    NodeChildList* list = slot->list.load(std::memory_order_acquire);
    if (!list) {
        list = new NodeChildList;
        slot->list.store(list, std::memory_order_release);
    }
    return *list;
}

namespace {

const NodeChildList* childListIfAny(const NodeChildSlot* slot) {
    return slot ? slot->list.load(std::memory_order_acquire) : nullptr;
}

} // namespace

std::uint64_t CVNode::childrenCount() const {
    const NodeChildList* list = childListIfAny(childSlot());
    return list ? list->count.load(std::memory_order_relaxed) : 0;
}

void CVNode::setChildrenCountSilently(std::uint64_t count) {
    if (count != 0 || childListIfAny(childSlot()))
        childList().count.store(count, std::memory_order_relaxed);
}

std::mutex& CVNode::lock() const {
    return stripedLock(this);
}

CVNode::Extras& CVNode::extras() const {
    Extras* current = m_extras.load(std::memory_order_acquire);
    if (current)
        return *current;
    auto* made = new Extras;
    if (m_extras.compare_exchange_strong(current, made, std::memory_order_acq_rel))
        return *made;
    delete made;
    return *current;
}

template <typename Write> void CVNode::changeObserved(std::string_view key, Write write) {
    ChangeNotifier* notifier = changeNotifierIfAny();
    if (!notifier) {
        // Nobody observes: the values are atomic, no lock or notice is needed.
        write();
        return;
    }
    notifier->willChangeValueForKey(key);
    {
        std::lock_guard guard(lock());
        write();
    }
    notifier->didChangeValueForKey(key);
}

ChangeNotifier& CVNode::changeNotifier() {
    Extras& e = extras();
    std::lock_guard guard(lock());
    if (!e.notifier)
        e.notifier = std::make_unique<ChangeNotifier>();
    return *e.notifier;
}

ChangeNotifier* CVNode::changeNotifierIfAny() const {
    const Extras* e = extrasIfAny();
    return e ? e->notifier.get() : nullptr;
}

std::string CVNode::path() const {
    return std::string(m_path.view());
}

void CVNode::setPath(std::string_view path) {
    std::lock_guard guard(lock());
    m_path = path;
}

std::string CVFile::path() const {
    if (!flag(kRelativePath) || !m_parentFolder)
        return std::string(storedPath());
    // Names up to the first node that knows its full path, joined into one allocation.
    const CVFile* chain[256];
    std::size_t depth = 0;
    std::size_t length = 0;
    const CVFile* node = this;
    while (node->flag(kRelativePath) && node->m_parentFolder && depth < std::size(chain)) {
        chain[depth++] = node;
        length += node->storedPath().size() + 1;
        node = node->m_parentFolder;
    }
    std::string result;
    if (node->flag(kRelativePath) && node->m_parentFolder) {
        result = node->path(); // deeper than the chain holds: rare
        result.reserve(result.size() + length);
    } else {
        result.reserve(node->storedPath().size() + length);
        result = node->storedPath();
    }
    while (depth > 0) {
        const CVFile* step = chain[--depth];
        if (result.empty() || result.back() != '/')
            result += '/';
        result += step->storedPath();
    }
    return result;
}

bool CVFile::hasSamePathAs(const CVFile& other) const {
    // Names are compared up the two chains while both are stored relative; whatever is
    // left is settled by the whole paths.
    const CVFile* a = this;
    const CVFile* b = &other;
    while (a != b) {
        if (!a->flag(kRelativePath) || !a->m_parentFolder || !b->flag(kRelativePath) || !b->m_parentFolder)
            return path() == other.path();
        if (a->storedPath() != b->storedPath())
            return false;
        a = a->m_parentFolder;
        b = b->m_parentFolder;
    }
    return true;
}

void CVFile::setPath(std::string_view path) {
    CVNode::setPath(path);
    setFlag(kRelativePath, false);
}

void CVFile::setNameRelativeToParent(std::string_view name) {
    CVNode::setPath(name);
    setFlag(kRelativePath, true);
}

std::string CVNode::name() const {
    const Extras* e = extrasIfAny();
    if (!e)
        return {};
    std::lock_guard guard(lock());
    return e->name;
}

void CVNode::setName(std::string name) {
    Extras& e = extras();
    std::lock_guard guard(lock());
    e.name = std::move(name);
}

void CVNode::setSize(std::uint64_t size) {
    changeObserved("size", [&] { m_size.store(size, std::memory_order_relaxed); });
}

void CVNode::setChildrenCount(std::uint64_t count) {
    NodeChildList& list = childList();
    changeObserved("childrenCount", [&] { list.count.store(count, std::memory_order_relaxed); });
}

const std::vector<NodePtr>& CVNode::children() const {
    static const std::vector<NodePtr> none;
    const NodeChildList* list = childListIfAny(childSlot());
    return list ? list->nodes : none;
}

void CVNode::fitChildren() {
    if (NodeChildSlot* slot = childSlot())
        if (NodeChildList* list = slot->list.load(std::memory_order_acquire))
            list->nodes.shrink_to_fit();
}

std::vector<NodePtr>& CVNode::mutableChildren() {
    return childList().nodes;
}

void CVNode::addChild(NodePtr child) {
    mutableChildren().push_back(std::move(child));
    setChildrenCount(childrenCount() + 1);
}

void CVNode::removeChild(const CVNode* child) {
    auto& list = mutableChildren();
    auto it = std::find_if(list.begin(), list.end(), [&](const NodePtr& c) { return c.get() == child; });
    if (it == list.end())
        return;
    list.erase(it);
    setChildrenCount(childrenCount() > 0 ? childrenCount() - 1 : 0);
}

std::string CVNode::uti() const {
    std::string extension;
    {
        std::lock_guard guard(lock());
        extension = pathExtension(m_path.view()); // name or path: same extension
    }
    return TypeIdentifiers::shared().preferredIdentifierForExtension(extension);
}

const CVSignature& CVNode::signature() {
    Extras& e = extras();
    if (!e.signature)
        e.signature = std::make_shared<CVSignature>(path(), size(), type(), uti());
    return *e.signature;
}

std::shared_ptr<CVSignature> CVNode::sharedSignature() {
    signature();
    return extras().signature;
}

bool CVNode::hasSignature() const {
    const Extras* e = extrasIfAny();
    return e && e->signature;
}

void CVNode::releaseSignature() {
    if (Extras* e = extrasIfAny())
        e->signature.reset();
}

void CVNode::setSignature(std::shared_ptr<CVSignature> signature) {
    if (signature || extrasIfAny())
        extras().signature = std::move(signature);
}

CVFile::CVFile(std::string_view path, std::string name, std::uint64_t size, std::uint64_t sizeOnDisk)
    : CVNode(path) {
    if (!name.empty())
        setName(std::move(name));
    setSize(size);
    setSizeOnDisk(sizeOnDisk);
}

CVFile::~CVFile() = default;

std::shared_ptr<CVFolder> CVFile::rootFolder() const {
    const Extras* e = extrasIfAny();
    return e ? e->rootFolder.lock() : nullptr;
}

void CVFile::setRootFolder(const std::shared_ptr<CVFolder>& folder) {
    if (folder || extrasIfAny())
        extras().rootFolder = folder;
}

NodeType CVFile::type() const {
    NodeType stored = CVNode::type();
    if (stored == kNodeTypeUnknown) {
        // The stored name has the path's extension.
        stored = services().typeGenerator.nodeTypeOfFile(storedPath());
        const_cast<CVFile*>(this)->setType(stored);
    }
    return stored;
}

void CVFile::setNeedToRemove(bool value) {
    if (needToRemove() == value)
        return;
    changeObserved("needToRemove", [&] { setFlag(kNeedToRemove, value); });
}

void CVFile::setWasRemoved(bool value) {
    changeObserved("wasRemoved", [&] { setFlag(kWasRemoved, value); });
}

const char* CVFile::stringSelectionType(SelectionType type) {
    static constexpr const char* names[] = {"none", "manual", "weak", "strong", "automatic"};
    return type >= 0 && type <= 4 ? names[type] : "unknown";
}

std::string CVFile::title() const {
    return fileTitle(storedPath());
}

std::string CVFile::relativePathURL() const {
    std::string url = fileURLStringFromPath(path());
    CVGroup* group = parentGroup();
    if (!group)
        return url;
    const std::string base = group->basePathForFiles();
    return url.starts_with(base) ? url.substr(base.size()) : url;
}

PropertyValue CVFile::info() const {
    Extras& e = extras();
    {
        std::lock_guard guard(lock());
        if (e.infoKnown)
            return e.info;
    }
    PropertyValue record;
    if (const auto& root = rootFolder()) {
        const NodeType rootType = root->type();
        auto& manager = services().mediaManager;
        if (isIPhotoLibFileType(rootType)) {
            record = manager.iPhotoLibraryEventOfPhotoAtPath(path(), root->path() + "/AlbumData.xml");
        } else if (isITunesLibFileType(rootType)) {
            record = manager.iTunesTrackInfoAtPath(path(), root->path() + "/iTunes Library.xml");
            if (record.count() == 0)
                record = manager.iTunesTrackInfoAtPath(path(), root->path() + "/iTunes Music Library.xml");
        }
    }
    if (!record.isDictionary())
        record = PropertyValue::Dictionary{};
    std::lock_guard guard(lock());
    if (!e.infoKnown) {
        e.info = std::move(record);
        e.infoKnown = true;
    }
    return e.info;
}

const CVNode::Extras* CVFile::servicesCarrier() const {
    for (const CVFile* node = this; node; node = node->parentFolder())
        if (const Extras* e = node->extrasIfAny(); e && e->services.load(std::memory_order_acquire))
            return e;
    return nullptr;
}

const CVNodeServices& CVFile::services() const {
    const Extras* carrier = servicesCarrier();
    return carrier ? *carrier->services.load(std::memory_order_acquire) : *defaultNodeServices();
}

NodeServicesPtr CVFile::sharedServices() const {
    const Extras* carrier = servicesCarrier();
    return carrier ? carrier->servicesOwner : nullptr;
}

void CVFile::setServices(NodeServicesPtr services) {
    if (!services || hasOwnServices())
        return;
    Extras& e = extras();
    e.servicesOwner = std::move(services);
    e.services.store(e.servicesOwner.get(), std::memory_order_release);
}

bool CVFile::hasOwnServices() const {
    const Extras* e = extrasIfAny();
    return e && e->services.load(std::memory_order_acquire);
}

void CVFile::setInfo(PropertyValue info) {
    Extras& e = extras();
    std::lock_guard guard(lock());
    e.info = std::move(info);
    e.infoKnown = true;
}

bool CVFile::isDuplicateOf(CVNode& other) {
    if (typeid(*this) != typeid(other) || path() == other.path())
        return false;
    return signature().isEqualTo(other.signature());
}

std::int64_t CVFile::statMTime() const {
    if (flag(kMTimeInSeconds))
        return m_statMTime;
    const std::int64_t seconds = m_statMTime / kNanosecondsPerSecond;
    return m_statMTime % kNanosecondsPerSecond < 0 ? seconds - 1 : seconds;
}

std::int64_t CVFile::statCTime() const {
    if (m_statCTime != kCTimeElsewhere)
        return m_statCTime;
    const Extras* extras = extrasIfAny();
    return extras ? extras->statCTime : 0;
}

void CVFile::setStatCTime(std::int64_t seconds) {
    if (seconds >= 0 && seconds < kCTimeElsewhere) {
        m_statCTime = static_cast<std::uint32_t>(seconds);
        return;
    }
    extras().statCTime = seconds;
    m_statCTime = kCTimeElsewhere;
}

void CVFile::setStatMTime(std::int64_t seconds) {
    constexpr std::int64_t kLimit = std::numeric_limits<std::int64_t>::max() / kNanosecondsPerSecond;
    const bool inRange = seconds >= -kLimit && seconds <= kLimit;
    m_statMTime = inRange ? seconds * kNanosecondsPerSecond : seconds;
    setFlag(kMTimeInSeconds, !inRange);
}

std::int64_t CVFile::statMTimeNanoseconds() const {
    if (!flag(kMTimeInSeconds))
        return m_statMTime;
    return m_statMTime < 0 ? std::numeric_limits<std::int64_t>::min()
                           : std::numeric_limits<std::int64_t>::max();
}

std::uint64_t CVFile::device() const {
    if (m_parentFolder)
        return m_parentFolder->device();
    const Extras* extras = extrasIfAny();
    return extras ? extras->device : 0;
}

void CVFile::setDevice(std::uint64_t device) {
    if (device != 0 || extrasIfAny())
        extras().device = device;
}

std::vector<NodePtr> CVNode::childrenToRemove() const {
    std::vector<NodePtr> marked;
    for (const auto& child : children())
        if (const auto* file = dynamic_cast<const CVFile*>(child.get()); file && file->needToRemove())
            marked.push_back(child);
    return marked;
}

std::optional<PropertyDate> CVNode::creationDate() const {
    return creationDateOfPath(path());
}

std::optional<PropertyDate> CVNode::modifiedDate() const {
    return modificationDateOfPath(path());
}

bool CVFile::areLastComponentsTheSame(std::string_view otherPath) const {
    return caseInsensitiveEqual(title(), fileTitle(otherPath));
}

bool CVFile::checkForIntegrity() const {
    struct stat st {};
    return ::stat(path().c_str(), &st) == 0 && static_cast<std::uint64_t>(st.st_size) == size();
}

} // namespace corvel
